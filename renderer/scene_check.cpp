#include "renderer/scene_check.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <set>

#include "framework/host/depend_graph.h"
#include "lights/light_visibility.h"
#include "lights/render_light.h"
#include "renderer/render_scene.h"
#include "renderer/triangle_mesh.h"
#include "scene/plug_text.h"
#include "scene/scene_camera.h"
#include "scene/scene_paths.h"
#include "scene/scene_shapes.h"
#include "settings/resolution.h"
#include "shading/shading_engine.h"

namespace {
std::string quoted(const std::string& s) { return "'" + s + "'"; }

std::string number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

bool isFloatValue(const Tattribute& a) {
    switch (a.valueType()) {
        case TvalueType::kFloat:
        case TvalueType::kDouble:
        case TvalueType::kFloatLinear:
        case TvalueType::kDoubleAngle: return true;
        default: return false;
    }
}

// Floats of a float2 or float3 kept whole, without child attributes (a wind
// direction, the corners of a box): 2 or 3; 0 for any other attribute.
unsigned wholeFloats(const Tattribute& a) {
    if (a.childCount()) return 0;
    if (a.valueType() == TvalueType::k2Float) return 2;
    if (a.valueType() == TvalueType::k3Float) return 3;
    return 0;
}

// A child of an RGB triple ("colorR" of "color").
bool isColourChannel(const Tattribute& a) {
    const Tattribute* p = a.parent();
    return p && p->valueType() == TvalueType::k3Float && p->childCount() == 3 &&
           p->child(0)->longName().str() == p->longName().str() + "R";
}

// A value set by a connection comes from upstream; what is stored under it
// is never read.
bool driven(TdependNode& node, const Tattribute& a, int element) {
    for (const Tattribute* p = &a; p; p = p->parent())
        if (node.sourceOf(Tplug(&node, p, element))) return true;
    return false;
}

bool isDag(TdependNode* node) { return node->cast(TdagNode::sMetaclass()) != nullptr; }

bool finiteMatrix(const Tmatrix& m) {
    for (const auto& row : m.m)
        for (double v : row)
            if (!std::isfinite(v)) return false;
    return true;
}

class Checker {
public:
    Checker(TdependGraph& graph, const std::string& file, const TsceneCheckOptions& options, std::vector<TsceneIssue>& issues)
        : fGraph(graph), fFile(file), fOptions(options), fIssues(issues) {}

    void run() {
        placementLoops();
        values();
        settings();
        camera();
        shapes();
        scales();
        lights();
        groups();
    }

private:
    void add(TsceneIssue::Kind kind, const TdependNode* node, const std::string& attribute, std::string message) {
        fIssues.push_back({kind, node ? node->name().str() : std::string(), attribute, std::move(message)});
    }
    void error(const TdependNode* node, const std::string& attribute, std::string message) {
        add(TsceneIssue::Kind::kError, node, attribute, std::move(message));
    }
    void warning(const TdependNode* node, const std::string& attribute, std::string message) {
        add(TsceneIssue::Kind::kWarning, node, attribute, std::move(message));
    }
    // A path through a node whose own values are already reported.
    bool reported(const TdagPath& path) const {
        return std::any_of(path.nodes().begin(), path.nodes().end(), [&](TdagNode* n) { return fBadNodes.count(n) != 0; });
    }

    void placementLoops();
    void values();
    void value(TdependNode* node, const Tattribute& a, int element);
    void settings();
    void camera();
    void shapes();
    void shapePath(TdependNode* shape, const TdagPath& path, const TtriangleMesh* mesh);
    void scales();
    void lights();
    void groups();
    void loops(TDNshadingEngine* group);

    TdependGraph& fGraph;
    const std::string& fFile;
    const TsceneCheckOptions& fOptions;
    std::vector<TsceneIssue>& fIssues;
    std::set<const TdependNode*> fBadNodes;
    // Where rays may start: the camera and every drawn shape, in world units;
    // and what is placed, whose own space must hold that reach.
    double fSceneReach = 0;
    struct Placed {
        TdependNode* node;  // a shape, or the camera
        std::string path;
        Tmatrix toWorld;
    };
    std::vector<Placed> fPlaced;
};

// A value of a DAG node that its own value drives, through connections and
// the computations of the nodes between: the graph would evaluate it from
// itself, giving up at some depth with whatever was stored, so what it places
// or shapes is undefined. The shading engine cuts its loops; nothing cuts
// these, so they are errors. Values are followed by attribute, whatever the
// element of a multi, as the graph pulls them: a compound is made of its
// children unless it is connected whole, and a computed output of the
// inputs that affect it (and, for one that its node's transform affects, of
// the transforms above it).
void Checker::placementLoops() {
    using Tvalue = std::pair<TdependNode*, const Tattribute*>;
    std::map<Tvalue, std::vector<Tvalue>> sources;
    for (TdependNode* node : fGraph.nodes()) {
        std::vector<std::pair<Tplug, Tplug>> incoming;
        node->allIncoming(incoming);
        for (const auto& [source, destination] : incoming)
            sources[{node, destination.attribute()}].push_back({source.node(), source.attribute()});
    }
    auto connected = [&](const Tvalue& v) { return sources.count(v) != 0; };
    const TtransformVS& transform = Ttransform::sVsData();
    const Tattribute* placing[] = {&transform.translate.whole, &transform.rotate.whole, &transform.scale.whole};
    auto feeding = [&](const Tvalue& v) {
        auto [node, a] = v;
        std::vector<Tvalue> out;
        if (auto it = sources.find(v); it != sources.end()) return it->second;
        if (a->parent() && connected({node, a->parent()})) out.push_back({node, a->parent()});
        for (unsigned c = 0; c < a->childCount(); ++c) out.push_back({node, a->child(c)});
        if (!a->isComputed() && !a->rootParent()->isComputed()) return out;
        const TdependencyMatrix& affects = node->dependencies();
        bool placed = false;
        for (unsigned i = 0; i < node->staticAttributeCount(); ++i) {
            const Tattribute* input = node->attribute(i);
            if (input == a || !affects.affects(input->index(), a->index())) continue;
            out.push_back({node, input});
            placed = placed || std::find(std::begin(placing), std::end(placing), input) != std::end(placing);
        }
        if (placed && isDag(node)) {
            std::set<TdagNode*> above;
            std::vector<TdagNode*> todo(static_cast<TdagNode*>(node)->parents());
            while (!todo.empty()) {
                TdagNode* up = todo.back();
                todo.pop_back();
                if (!above.insert(up).second) continue;
                if (isNodeOf<Ttransform>(up))
                    for (const Tattribute* t : placing) out.push_back({up, t});
                todo.insert(todo.end(), up->parents().begin(), up->parents().end());
            }
        }
        return out;
    };
    auto text = [](const Tvalue& v) { return quoted(plugText(*v.first, *v.second, Tplug::kNoIndex)); };

    // From each connected value of a DAG node, in the file's order.
    std::vector<Tvalue> starts;
    for (TdependNode* node : fGraph.nodes())
        if (isDag(node))
            for (unsigned i = 0; i < node->staticAttributeCount(); ++i)
                if (connected({node, node->attribute(i)})) starts.push_back({node, node->attribute(i)});
    std::set<Tvalue> inLoop;
    for (const Tvalue& start : starts) {
        if (inLoop.count(start)) continue;
        // Breadth first upstream, so that the loop found is a shortest one.
        std::map<Tvalue, Tvalue> feeds;  // a value -> the value it feeds on the way back to the start
        std::vector<Tvalue> frontier{start};
        std::optional<Tvalue> last;
        while (!frontier.empty() && !last) {
            std::vector<Tvalue> next;
            for (const Tvalue& v : frontier) {
                for (const Tvalue& up : feeding(v)) {
                    if (up == start) {
                        last = v;
                        break;
                    }
                    if (feeds.emplace(up, v).second) next.push_back(up);
                }
                if (last) break;
            }
            frontier = std::move(next);
        }
        if (!last) continue;
        // Data runs from the start to `last` through the values that feed on
        // the way, and back to the start.
        std::string loop = text(start);
        for (Tvalue v = *last;; v = feeds.at(v)) {
            loop += " -> " + text(v);
            inLoop.insert(v);
            if (v == start) break;
        }
        const std::string name = plugText(*start.first, *start.second, Tplug::kNoIndex).substr(start.first->name().str().size() + 1);
        error(start.first, name, "its value depends on itself through a loop of connections (" + loop +
                                     "): it cannot be evaluated; break one of the connections");
        for (const Tvalue& v : inLoop)
            if (isDag(v.first)) fBadNodes.insert(v.first);
    }
}

// NaN and infinite values. Colours and the values that place things (every
// DAG node's) are errors: the first shade NaN pixels, the second cannot be
// traced. Elsewhere a render goes on, so they are warnings.
void Checker::values() {
    for (TdependNode* node : fGraph.nodes())
        for (unsigned i = 0; i < node->staticAttributeCount(); ++i) {
            const Tattribute* a = node->attribute(i);
            if (a->childCount() || a->isComputed() || !(a->flags() & kAttrStorable)) continue;
            if (!isFloatValue(*a) && !wholeFloats(*a)) continue;
            const Tattribute* root = a->rootParent();
            if (!root->isArray()) {
                value(node, *a, Tplug::kNoIndex);
                continue;
            }
            TuInt32Array indices;
            node->getExistingMultiAttributeIndices(Tplug(node, root, true), indices);
            for (unsigned k = 0; k < indices.length(); ++k) value(node, *a, int(indices[k]));
        }
}

void Checker::value(TdependNode* node, const Tattribute& a, int element) {
    if (driven(*node, a, element)) return;
    const void* stored = node->storage(&a, unsigned(std::max(element, 0)));
    if (!stored) return;
    double v = 0;
    if (const unsigned n = wholeFloats(a)) {
        for (unsigned k = 0; k < n && std::isfinite(v); ++k) v = static_cast<const float*>(stored)[k];
    } else {
        v = a.numericValue(stored);
    }
    if (std::isfinite(v)) return;
    // An endless far clip is a far clip.
    if (&a == &Tcamera::sVsData().farClipPlane && v > 0) return;
    std::string name = plugText(*node, a, element).substr(node->name().str().size() + 1);
    std::string what = std::isnan(v) ? "is NaN" : "is infinite";
    if (isColourChannel(a)) {
        error(node, name, what + ": a colour must be a finite number, or the render shades NaN pixels");
        fBadNodes.insert(node);
    } else if (isDag(node)) {
        error(node, name, what + ": what it places or shapes cannot be rendered");
        fBadNodes.insert(node);
    } else {
        warning(node, name, what + "; what it feeds may shade NaN pixels");
    }
}

void Checker::settings() {
    TrenderSettings settings = TrenderScene::sReadSettings(fGraph);
    TdependNode* resolution = isNodeOf<TdnResolution>(fGraph.findNode("defaultResolution")) ? fGraph.findNode("defaultResolution") : nullptr;
    bool overridden = fOptions.width > 0 && fOptions.height > 0;
    if (overridden) {
        settings.width = fOptions.width, settings.height = fOptions.height;
        resolution = nullptr;
    }
    if (settings.width <= 0 || settings.height <= 0) {
        error(resolution, settings.width <= 0 ? "width" : "height",
              "the resolution " + std::to_string(settings.width) + "x" + std::to_string(settings.height) + " is empty");
        return;
    }
    if (std::string problem = frameMemoryProblem(settings.width, settings.height); !problem.empty())
        error(resolution, "", problem + (overridden ? " (--resolution)" : ""));
}

void Checker::camera() {
    TdagPath path = TrenderScene::sFindCamera(fGraph, fOptions.camera);
    if (!path.isValid()) {
        const std::vector<TdependNode*> nodes = fGraph.nodes();
        bool anyCamera = std::any_of(nodes.begin(), nodes.end(), [](TdependNode* n) { return isNodeOf<Tcamera>(n); });
        if (!fOptions.camera.empty())
            error(nullptr, "", "no camera named " + quoted(fOptions.camera));
        else if (anyCamera || fOptions.requireCamera)
            error(nullptr, "", "the scene has no renderable camera");
        else
            warning(nullptr, "", "the scene has no camera: it cannot be rendered");
        return;
    }
    TdependNode* cam = path.node();
    if (fBadNodes.count(cam) || reported(path)) return;
    const TcameraVS& vs = Tcamera::sVsData();
    Tmatrix cameraToWorld = path.inclusiveMatrix();
    if (isDegenerateTransform(cameraToWorld)) {
        // Blame the node that flattens the view.
        TdagNode* flat = path.node();
        for (TdagNode* n : path.nodes())
            if (isDegenerateTransform(n->localMatrix())) flat = n;
        error(flat, isNodeOf<Ttransform>(flat) ? "scale" : "",
              "camera " + quoted(cam->name().str()) + " is scaled to nothing on an axis: it has no view");
    } else if (std::string far = reachProblem(cameraToWorld, T3Float(), T3Float()); !far.empty()) {
        error(cam, "", "camera " + quoted(path.fullPathName()) + " " + far);
    } else {
        fSceneReach = std::max(fSceneReach, farthestReach(cameraToWorld, T3Float(), T3Float()));
        fPlaced.push_back({cam, path.fullPathName(), cameraToWorld});
    }
    bool orthographic = renderValueOf<bool>(cam, vs.orthographic, false);
    auto positive = [&](const TattributeFloat& a, const char* what) {
        float v = renderValueOf<float>(cam, a, 1);
        if (std::isfinite(v) && v <= 0) error(cam, a.longName().str(), std::string("the ") + what + " must be above 0, not " + number(v));
    };
    if (orthographic) {
        positive(vs.orthographicWidth, "orthographic width");
    } else {
        positive(vs.focalLength, "focal length");
        positive(vs.horizontalFilmAperture, "film aperture");
        // Past this the view is within a hair of 180 degrees and the rays of
        // its edge pixels run too far sideways for the tracer, which aborts.
        constexpr double kWidestTanHalfView = 1e6;
        const double focal = renderValueOf<float>(cam, vs.focalLength, 35);
        const double aperture = renderValueOf<float>(cam, vs.horizontalFilmAperture, 36);
        if (focal > 0 && aperture > 0 && aperture / (2 * focal) > kWidestTanHalfView)
            error(cam, "focalLength", "the view is wider than 179.9999 degrees (film aperture " + number(float(aperture)) +
                                          " over focal length " + number(float(focal)) + "): nothing could be traced at its edges");
    }
    float nearClip = renderValueOf<float>(cam, vs.nearClipPlane, 0.01f);
    float farClip = renderValueOf<float>(cam, vs.farClipPlane, 1.0e6f);
    if (nearClip < 0)
        error(cam, "nearClipPlane", "the near clip plane must be 0 or more, not " + number(nearClip));
    else if (nearClip >= farClip)
        error(cam, "nearClipPlane", "the near clip plane (" + number(nearClip) + ") must lie before the far clip plane (" +
                                        number(farClip) + "): nothing could be seen");
}

void Checker::shapes() {
    for (TdependNode* node : fGraph.nodes()) {
        if (!isNodeOf<TgeometryShape>(node) || fBadNodes.count(node)) continue;
        auto check = [&](const Tattribute& a, float v) {
            if (std::isfinite(v) && v < 0) error(node, a.longName().str(), "must be 0 or more, not " + number(v));
        };
        if (isNodeOf<TsphereShape>(node)) check(TsphereShape::saRadius(), renderValueOf<float>(node, TsphereShape::saRadius(), 1));
        if (isNodeOf<TdiscShape>(node)) check(TdiscShape::saRadius(), renderValueOf<float>(node, TdiscShape::saRadius(), 1));
        if (isNodeOf<TplaneShape>(node)) {
            check(TplaneShape::saWidth(), renderValueOf<float>(node, TplaneShape::saWidth(), 1));
            check(TplaneShape::saHeight(), renderValueOf<float>(node, TplaneShape::saHeight(), 1));
        }
        if (isNodeOf<TboxShape>(node)) {
            T3Float size = renderValueOf<T3Float>(node, TboxShape::saSize(), T3Float(1, 1, 1));
            if (size.x < 0 || size.y < 0 || size.z < 0)
                error(node, "size", "must be 0 or more on every axis, not " + number(size.x) + " " + number(size.y) + " " + number(size.z));
        }
        TtriangleMesh mesh;
        bool haveMesh = false;
        if (isNodeOf<TmeshShape>(node)) {
            Tstring stored;
            node->getAttributeValue(&TmeshShape::saFileName(), &stored);
            if (stored.str().empty()) {
                error(node, "fileName", "the mesh names no file");
                continue;
            }
            if (fOptions.readMeshes) {
                std::string why;
                if (!loadObjMesh(resolveScenePath(fFile, stored.str()), mesh, why)) {
                    error(node, "fileName", why);
                    continue;
                }
                haveMesh = true;
            }
        }
        if (std::any_of(fIssues.begin(), fIssues.end(), [&](const TsceneIssue& i) { return i.isError() && i.node == node->name().str(); }))
            continue;
        for (const TdagPath& path : static_cast<TdagNode*>(node)->allPaths()) shapePath(node, path, haveMesh ? &mesh : nullptr);
    }
}

// One drawn instance of a shape: where it lies, and which group shades it.
void Checker::shapePath(TdependNode* shape, const TdagPath& path, const TtriangleMesh* mesh) {
    if (reported(path)) return;
    Tmatrix objectToWorld = path.inclusiveMatrix();
    if (!finiteMatrix(objectToWorld)) {
        error(shape, "", quoted(path.fullPathName()) + " has a transform that is not finite");
        return;
    }
    if (isDegenerateTransform(objectToWorld)) return;  // hidden by a zero scale: not drawn
    T3Float lo, hi;
    if (isNodeOf<TsphereShape>(shape) || isNodeOf<TdiscShape>(shape)) {
        const Tattribute& a = isNodeOf<TsphereShape>(shape) ? TsphereShape::saRadius() : TdiscShape::saRadius();
        float r = renderValueOf<float>(shape, a, 1);
        lo = T3Float(-r, isNodeOf<TdiscShape>(shape) ? 0 : -r, -r);
        hi = lo * -1.0f;
    } else if (isNodeOf<TplaneShape>(shape)) {
        float w = renderValueOf<float>(shape, TplaneShape::saWidth(), 1) / 2, h = renderValueOf<float>(shape, TplaneShape::saHeight(), 1) / 2;
        lo = T3Float(-w, 0, -h), hi = T3Float(w, 0, h);
    } else if (isNodeOf<TboxShape>(shape)) {
        hi = renderValueOf<T3Float>(shape, TboxShape::saSize(), T3Float(1, 1, 1)) * 0.5f;
        lo = hi * -1.0f;
    } else if (mesh) {
        meshBounds(*mesh, lo, hi);
    }
    if (std::string far = reachProblem(objectToWorld, lo, hi); !far.empty()) {
        error(shape, "", quoted(path.fullPathName()) + " " + far);
    } else {
        fSceneReach = std::max(fSceneReach, farthestReach(objectToWorld, lo, hi));
        fPlaced.push_back({shape, path.fullPathName(), objectToWorld});
    }

    bool grouped = false;
    for (TdependNode* node : fGraph.nodes()) {
        if (!isNodeOf<TDNshadingEngine>(node)) continue;
        for (const TdagPath& member : static_cast<TDNshadingEngine*>(node)->members()) {
            const auto& m = member.nodes();
            if (m.size() <= path.nodes().size() && std::equal(m.begin(), m.end(), path.nodes().begin())) grouped = true;
        }
    }
    if (!grouped && !isNodeOf<TDNshadingEngine>(fGraph.findNode(TDNshadingEngine::kInitialShadingGroup)))
        warning(shape, "", quoted(path.fullPathName()) + " is in no shading group: it renders in the default colour");
}

// The tracer meets each shape's rays in the shape's own space, and the
// engine shades in the camera's: a shape or camera scaled very small beside
// the rest of the scene puts it further off there than they can hold,
// though it fits in world space.
void Checker::scales() {
    for (const Placed& p : fPlaced) {
        const bool camera = isNodeOf<Tcamera>(p.node);
        const double limit = camera ? TsceneCheck::kMaxCoordinate : TsceneCheck::kMaxObjectCoordinate;
        if (std::string small = smallScaleProblem(p.toWorld, fSceneReach, limit); !small.empty())
            error(p.node, "", (camera ? "camera " : "") + quoted(p.path) + " " + small);
    }
}

void Checker::lights() {
    for (TdependNode* node : fGraph.nodes())
        if (isNodeOf<TrenderLightShape>(node) && TdagPathUtils::lightTakesPart(node)) return;
    warning(nullptr, "", "the scene has no lights: lit materials render black");
}

void Checker::groups() {
    for (TdependNode* node : fGraph.nodes()) {
        if (!isNodeOf<TDNshadingEngine>(node)) continue;
        auto* group = static_cast<TDNshadingEngine*>(node);
        // A fog's group shades volumes only.
        if (!group->sourceOf(Tplug(group, &TDNshadingEngine::saSurfaceShader())) &&
            !group->sourceOf(Tplug(group, &TDNshadingEngine::saVolumeShader()))) {
            warning(group, "surfaceShader", "the shading group has no material: its objects render in the default colour");
            continue;
        }
        loops(group);
    }
}

// Walks the network upstream from the group's material the way the engine's
// analysis does (each node's inputs in attribute order, depth first). Where
// the walk comes back to a node it is still inside, the engine cuts the loop:
// that node is computed on demand and may read a value of the batch before
// it was computed.
void Checker::loops(TDNshadingEngine* group) {
    enum State { kNew, kInside, kDone };
    std::map<TdependNode*, State> state;
    std::vector<TdependNode*> stack;
    std::set<TdependNode*> cuts;
    auto walk = [&](auto& self, TdependNode* node) -> void {
        state[node] = kInside;
        stack.push_back(node);
        std::vector<std::pair<Tplug, Tplug>> incoming;
        node->allIncoming(incoming);
        std::stable_sort(incoming.begin(), incoming.end(), [](const auto& a, const auto& b) {
            return a.second.attribute()->rootParent()->index() < b.second.attribute()->rootParent()->index();
        });
        for (const auto& [source, destination] : incoming) {
            TdependNode* upstream = source.node();
            if (isNodeOf<TDNshadingEngine>(upstream)) continue;
            State s = state.count(upstream) ? state[upstream] : kNew;
            if (s == kNew) {
                self(self, upstream);
            } else if (s == kInside && cuts.insert(upstream).second) {
                // Data runs from the cut node down the walk's stack and back.
                std::string loop = quoted(upstream->name().str());
                auto at = std::find(stack.begin(), stack.end(), upstream);
                for (auto it = stack.rbegin(); it != std::make_reverse_iterator(at + 1); ++it) loop += " -> " + quoted((*it)->name().str());
                loop += " -> " + quoted(upstream->name().str());
                warning(group, "", "its network has a loop (" + loop + "); the engine cuts it where " + quoted(plugText(source)) +
                                       " feeds " + quoted(plugText(destination)) + ": " + quoted(upstream->name().str()) +
                                       " is computed on demand there and may read values not yet computed");
            }
        }
        stack.pop_back();
        state[node] = kDone;
    };
    for (const Tattribute* slot : {&TDNshadingEngine::saSurfaceShader(), &TDNshadingEngine::saVolumeShader()})
        if (const Tplug* shader = group->sourceOf(Tplug(group, slot)); shader && !state.count(shader->node())) walk(walk, shader->node());
}
}  // namespace

std::string TsceneIssue::text() const {
    std::string where;
    if (!node.empty()) where = "node " + quoted(node);
    if (!attribute.empty()) {
        if (!where.empty()) where += ' ';
        where += "attribute ";
        where += quoted(attribute);
    }
    return where.empty() ? message : where + ": " + message;
}

bool TsceneCheck::run(TdependGraph& graph, const std::string& sceneFile, const TsceneCheckOptions& options) {
    fIssues.clear();
    Checker(graph, sceneFile, options, fIssues).run();
    return !hasErrors();
}

bool TsceneCheck::hasErrors() const {
    return std::any_of(fIssues.begin(), fIssues.end(), [](const TsceneIssue& i) { return i.isError(); });
}

std::string TsceneCheck::errorText() const {
    std::string text;
    for (const TsceneIssue& i : fIssues) {
        if (!i.isError()) continue;
        if (!text.empty()) text += '\n';
        text += i.text();
    }
    return text;
}

bool isDegenerateTransform(const Tmatrix& m) {
    // Relative to the size of the axes, so that a tiny but whole object is
    // still drawn.
    double scale = 0;
    for (int i = 0; i < 3; ++i) scale = std::max(scale, std::hypot(m.m[i][0], m.m[i][1], m.m[i][2]));
    double det = m.m[0][0] * (m.m[1][1] * m.m[2][2] - m.m[1][2] * m.m[2][1]) -
                 m.m[0][1] * (m.m[1][0] * m.m[2][2] - m.m[1][2] * m.m[2][0]) +
                 m.m[0][2] * (m.m[1][0] * m.m[2][1] - m.m[1][1] * m.m[2][0]);
    return !(std::fabs(det) > 1e-12 * scale * scale * scale);
}

double farthestReach(const Tmatrix& objectToWorld, const T3Float& lo, const T3Float& hi) {
    double farthest = 0;
    for (int corner = 0; corner < 8; ++corner) {
        double p[3] = {corner & 1 ? hi.x : lo.x, corner & 2 ? hi.y : lo.y, corner & 4 ? hi.z : lo.z};
        for (int c = 0; c < 3; ++c) {
            double w = p[0] * objectToWorld.m[0][c] + p[1] * objectToWorld.m[1][c] + p[2] * objectToWorld.m[2][c] + objectToWorld.m[3][c];
            farthest = std::isnan(w) ? INFINITY : std::max(farthest, std::fabs(w));
        }
    }
    return farthest;
}

std::string reachProblem(const Tmatrix& objectToWorld, const T3Float& lo, const T3Float& hi) {
    const double farthest = farthestReach(objectToWorld, lo, hi);
    if (farthest <= TsceneCheck::kMaxCoordinate) return "";
    return "reaches " + number(farthest) + " units from the origin; the renderer works within " + number(TsceneCheck::kMaxCoordinate);
}

std::string smallScaleProblem(const Tmatrix& toWorld, double sceneReach, double limit) {
    const Tmatrix fromWorld = toWorld.inverse();
    double farthest = 0;
    for (int c = 0; c < 3; ++c) {
        const double axes = std::fabs(fromWorld.m[0][c]) + std::fabs(fromWorld.m[1][c]) + std::fabs(fromWorld.m[2][c]);
        farthest = std::max(farthest, axes * sceneReach + std::fabs(fromWorld.m[3][c]));
    }
    if (farthest <= limit) return "";
    return "is scaled too small beside the rest of the scene: it reaches " + number(farthest) +
           " units in its own space; the renderer works within " + number(limit);
}

void meshBounds(const TtriangleMesh& mesh, T3Float& lo, T3Float& hi) {
    lo = hi = T3Float();
    for (size_t i = 0; i < mesh.positions.size(); ++i) {
        const T3Float& p = mesh.positions[i];
        lo = i ? T3Float(std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z)) : p;
        hi = i ? T3Float(std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z)) : p;
    }
}

uint64_t machineMemoryBytes() {
    long pages = sysconf(_SC_PHYS_PAGES), size = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && size > 0 ? uint64_t(pages) * uint64_t(size) : 0;
}

std::string frameMemoryProblem(int64_t width, int64_t height, uint64_t machineBytes) {
    if (machineBytes == 0) machineBytes = machineMemoryBytes();
    if (machineBytes == 0 || width <= 0 || height <= 0) return "";
    // In long double: a frame of 2^31 x 2^31 pixels overflows 64 bits of bytes.
    long double needed = (long double)width * (long double)height * TsceneCheck::kBytesPerPixel;
    if (needed <= (long double)machineBytes) return "";
    constexpr long double kGiB = 1024.0L * 1024.0L * 1024.0L;
    char text[160];
    std::snprintf(text, sizeof text, "a %lldx%lld frame needs %.1Lf GiB of memory (%llu bytes a pixel); this machine has %.1Lf GiB",
                  (long long)width, (long long)height, needed / kGiB, (unsigned long long)TsceneCheck::kBytesPerPixel,
                  (long double)machineBytes / kGiB);
    return text;
}
