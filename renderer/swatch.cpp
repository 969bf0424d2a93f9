#include "renderer/swatch.h"

#include <string_view>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/renderer.h"
#include "renderer/swatch_scene.h"
#include "shading/swatch_mode.h"
#include "scene/scene_camera.h"
#include "scene/scene_loader.h"
#include "scene/scene_shapes.h"
#include "settings/render_quality.h"
#include "shading/shading_engine.h"

namespace {
using swatch_scene::placed;
using swatch_scene::set;

bool startsWith(const std::string& text, std::string_view prefix) { return text.compare(0, prefix.size(), prefix) == 0; }

// The node's colour output: outColor, else output.
const Tattribute* colourOutput(TdependNode* node) {
    for (const char* name : {"outColor", "output"})
        if (const Tattribute* a = node->attribute(Tstring(name))) return a;
    return nullptr;
}

TDNshadingEngine* groupFor(TdependGraph& graph, const char* name, TdependNode* shape) {
    auto* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine", Tstring(name)));
    for (const TdagPath& p : static_cast<TdagNode*>(shape)->allPaths()) group->addMember(p);
    return group;
}
}  // namespace

bool renderSwatch(TdependGraph& graph, TdependNode* node, const TswatchOptions& options, TframeBuffer& image, std::string& error,
                  const std::string& sceneFile) {
    const Tattribute* out = colourOutput(node);
    if (!out) {
        error = "node '" + node->name().str() + "' of type '" + node->typeName().str() + "' has no colour output to preview";
        return false;
    }
    std::string classification = TclassificationMgr::getClassification(node->typeName()).str();
    bool texture = startsWith(classification, "texture/");

    TdependNode* camera = placed(graph, "camera", "swatchCamera", {0, 0, 4.2f}, {0, 0, 0});
    // The subject: a sphere, or a card facing the camera for a texture.
    TdependNode* subject = texture ? placed(graph, "plane", "swatchCard", {0, 0, 0}, {90, 0, 0})
                                   : placed(graph, "sphere", "swatchBall", {0, 0, 0}, {0, 0, 0});
    if (texture) {
        set(subject, "width", 2.2f);
        set(subject, "height", 2.2f);
    }
    TDNshadingEngine* group = groupFor(graph, "swatchSG", subject);
    std::vector<TDNshadingEngine*> lit = {group};
    if (graph.connect(Tplug(node, out), Tplug(group, &TDNshadingEngine::saSurfaceShader())) != TconnectStatus::kOk) {
        error = "cannot preview '" + node->name().str() + "': its output does not connect to a shading group";
        return false;
    }

    // The checked backdrop behind the subject, when checkers exist.
    TdependNode* wall = placed(graph, "plane", "swatchBackdrop", {0, 0, -2.5f}, {90, 0, 0});
    set(wall, "width", 12.0f);
    set(wall, "height", 12.0f);
    set(wall, "castsShadows", false);
    if (TdependNode* checks = graph.createNode("checker", "swatchChecks")) {
        set(checks, "color1", T3Float(0.55f, 0.55f, 0.55f));
        set(checks, "color2", T3Float(0.3f, 0.3f, 0.3f));
        if (TdependNode* place = graph.createNode("place2dTexture", "swatchPlace")) {
            set(place, "repeatUV", T2Float{8, 8});
            graph.connect(Tplug(place, place->attribute("outUV")), Tplug(checks, checks->attribute("uvCoord")));
        }
        TDNshadingEngine* backdrop = groupFor(graph, "swatchBackdropSG", wall);
        graph.connect(Tplug(checks, checks->attribute("outColor")), Tplug(backdrop, &TDNshadingEngine::saSurfaceShader()));
        lit.push_back(backdrop);
    }

    // The rig: a key from the upper left, a fill and an ambient. Each light
    // is linked straight to the swatch's groups, so that it lights them
    // whatever links a scene file holds for its own objects.
    struct Light {
        const char* type;
        const char* name;
        T3Float translate, rotate;
        float intensity;
    };
    int rigSize = 0;
    for (const Light& l : {Light{"directionalLight", "swatchKey", {0, 0, 0}, {-35, -40, 0}, 1.0f},
                           Light{"pointLight", "swatchFill", {3, 1, 3}, {0, 0, 0}, 0.5f},
                           Light{"ambientLight", "swatchAmbient", {0, 0, 0}, {0, 0, 0}, 0.15f}}) {
        if (!TdependGraph::findNodeType(l.type)) continue;
        TdependNode* light = placed(graph, l.type, l.name, l.translate, l.rotate);
        set(light, "intensity", l.intensity);
        const Tattribute* data = light ? light->attribute(Tstring("lightData")) : nullptr;
        if (!data) continue;
        for (TDNshadingEngine* g : lit) graph.connect(Tplug(light, data), Tplug(g, &TDNshadingEngine::saLinkedLights(), rigSize));
        ++rigSize;
    }

    TrenderOptions render;
    render.width = render.height = options.size;
    render.samplesPerPixel = options.samplesPerPixel;
    render.threads = options.threads;
    render.camera = camera->name().str();
    Trenderer renderer;
    // Fog nodes scale their tiny swatch thickness while this is set.
    struct TswatchModeScope {
        TswatchModeScope() { inSampleSwatchMode = true; }
        ~TswatchModeScope() { inSampleSwatchMode = false; }
    } swatchMode;
    return renderer.render(graph, sceneFile, render, image, error);
}

bool renderSwatch(const std::string& what, const TswatchOptions& options, TframeBuffer& image, std::string& error) {
    TdependGraph graph;
    TdependNode* node = nullptr;
    std::string sceneFile;
    size_t colon = what.rfind(':');
    if (colon != std::string::npos && colon > 0) {
        std::string file = what.substr(0, colon), name = what.substr(colon + 1);
        sceneFile = file;
        TsceneLoader loader;
        if (!loader.load(file, graph)) {
            for (const TsceneError& e : loader.errors()) error.append(error.empty() ? "" : "\n").append(e.text());
            return false;
        }
        node = graph.findNode(Tstring(name));
        if (!node) {
            error = file + ": no node named '" + name + "'";
            return false;
        }
        // The file's own objects stay out of the preview.
        bool off = false;
        for (TdependNode* other : graph.nodes())
            if (other->typeof()->istype(Ttransform::sMetaclass())) other->setAttributeValue(&Ttransform::saVisibility(), &off);
    } else {
        if (!TdependGraph::findNodeType(Tstring(what))) {
            error = "unknown node type '" + what + "'";
            return false;
        }
        node = graph.createNode(Tstring(what), Tstring("swatchSubject"));
        if (!node) {
            error = "cannot make a node of type '" + what + "'";
            return false;
        }
    }
    return renderSwatch(graph, node, options, image, error, sceneFile);
}
