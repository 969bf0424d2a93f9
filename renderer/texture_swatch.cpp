#include "renderer/texture_swatch.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"
#include "framework/host/file_checks.h"
#include "renderer/renderer.h"
#include "renderer/swatch_scene.h"
#include "scene/scene_loader.h"
#include "shading/shading_engine.h"
#include "textures/file_texture.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/ramp.h"
#include "textures/texture_3d.h"

namespace {
using swatch_scene::placed;
using swatch_scene::set;

// The view spans kViewWidth; the card reaches kMargin of that further on
// each side, so that the pixel filter at the image's border still finds the
// card. A placement made for the preview maps the view, not the card, onto
// the texture's repeats.
constexpr float kViewWidth = 2.0f;
constexpr float kMargin = 0.1f;
constexpr float kCardWidth = kViewWidth * (1.0f + 2.0f * kMargin);

bool link(TdependGraph& graph, TdependNode* from, const char* out, TdependNode* to, const char* in) {
    const Tattribute* a = from ? from->attribute(Tstring(out)) : nullptr;
    const Tattribute* b = to ? to->attribute(Tstring(in)) : nullptr;
    return a && b && graph.connect(Tplug(from, a), Tplug(to, b)) == TconnectStatus::kOk;
}

bool isConnectedInput(TdependNode* node, const char* attribute) {
    const Tattribute* a = node->attribute(Tstring(attribute));
    return a && Tplug(node, a).isDestination();
}

// How many times the unit square repeats across the card, per type: enough
// cells to see a pattern's rhythm, few enough that it does not alias at the
// sizes previews are drawn.
struct TswatchLook {
    const char* type;
    float repeat;
};
constexpr TswatchLook kLooks[] = {
    {"checker", 4}, {"grid", 4}, {"bulge", 4}, {"cloth", 6}, {"ramp", 1}, {"fractal", 1},
    {"noise", 1},   {"mountain", 1}, {"stencil", 1}, {"water", 1}, {"ocean", 1},
};

float repeatFor(const std::string& type) {
    for (const TswatchLook& l : kLooks)
        if (type == l.type) return l.repeat;
    return 1.0f;
}

// A small picture for a file texture that names no file: sky, sun and hills,
// written once per run to the temporary folder and removed at exit.
std::string swatchPicture() {
    struct Tpicture {
        std::string path;
        Tpicture() {
            const int n = 128;
            TpixelMap map(n, n, 3);
            for (int y = 0; y < n; ++y)
                for (int x = 0; x < n; ++x) {
                    const float u = float(x) / n, v = float(y) / n;  // v from the top
                    const float hill = 0.6f + 0.08f * std::sin(u * 9.0f) + 0.05f * std::sin(u * 23.0f + 1.0f);
                    const float sun = std::hypot(u - 0.7f, v - 0.28f);
                    float r = 90 + 110 * v, g = 140 + 80 * v, b = 230;
                    if (sun < 0.1f) r = 255, g = 235, b = 150;
                    if (v > hill) r = 60 + 40 * std::sin(x * 0.7f) * std::sin(y * 0.9f), g = 130 + 30 * v, b = 50;
                    const float c[3] = {r, g, b};
                    for (int k = 0; k < 3; ++k) map.setPixel(x, y, k, uint8_t(std::clamp(c[k], 0.0f, 255.0f)));
                }
            path = (std::filesystem::temp_directory_path() / ("shadenet-swatch-" + std::to_string(::getpid()) + ".png")).string();
            Tstring why;
            if (!TfilePixelMapCache::saveIMFPixelMap(Tstring(path), map, why)) path.clear();
        }
        ~Tpicture() {
            std::error_code ignored;
            if (!path.empty()) std::filesystem::remove(path, ignored);
        }
    };
    static Tpicture picture;
    return picture.path;
}

}  // namespace

bool isTextureType(const std::string& typeName) {
    if (TclassificationMgr::isClassified(Tstring(typeName), Tstring("texture"))) return true;
    // A type without a classification still previews as a texture when it
    // derives from one of the texture bases.
    TdependGraph probe;
    TdependNode* node = TdependGraph::findNodeType(Tstring(typeName)) ? probe.createNode(Tstring(typeName)) : nullptr;
    return dynamic_cast<TdnTx2D*>(node) || dynamic_cast<TdnTx3D*>(node);
}

void dressTextureForSwatch(TdependGraph& graph, TdependNode* texture) {
    const std::string type = texture->typeName().str();
    if (auto* ramp = dynamic_cast<TdnRamp*>(texture)) ramp->addDefaultValuesIfEmpty();
    if (type == "stencil") {
        // A stencil shows an image; on its own it would be its default grey
        // over the same grey. Show a ramp through a soft edge over black.
        auto* image = static_cast<TdnRamp*>(graph.createNode("ramp", "swatchStencilImage"));
        if (image) {
            image->addDefaultValuesIfEmpty();
            set(image, "type", short(TdnRamp::kDiagRamp));
            link(graph, image, "outColor", texture, "image");
        }
        set(texture, "edgeBlend", 0.35f);
        set(texture, "defaultColor", T3Float(0.05f, 0.05f, 0.05f));
    }
    if (type == "file") {
        Tstring name;
        texture->getAttributeValue(texture->attribute(Tstring("fileTextureName")), &name);
        if (name.str().empty()) {
            set(texture, "fileTextureName", Tstring(swatchPicture()));
        }
    }
    if (type == "water") {
        // The default waves move the grey by a few hundredths: raise them
        // so the crests and the ripple read.
        set(texture, "waveAmplitude", 0.3f);
        set(texture, "rippleAmplitude", 0.3f);
    }
    if (type == "snow") {
        // A card facing the camera has one normal, so the snow alone would
        // be one flat tone. Tilt the view so the card faces up, and show the
        // edge blend: the snow fades into a dark default colour towards the
        // faces of the unit box around the card's middle.
        TfltMatrix up;
        up.m[1][1] = 0.0f, up.m[1][2] = -1.0f, up.m[2][1] = 1.0f, up.m[2][2] = 0.0f;
        set(texture, "eyeToTextureMatrix", up);
        set(texture, "local", true);
        set(texture, "wrap", false);
        set(texture, "blend", 0.6f);
        set(texture, "defaultColor", T3Float(0.1f, 0.1f, 0.12f));
    }
    if (type == "wood") {
        // The rings repeat every unit about the centre of the unit square:
        // show one square, centred, rather than four corners.
        TfltMatrix placement = TfltMatrix::scaling(0.5f, 0.5f, 0.5f);
        placement.m[3][0] = placement.m[3][1] = 0.5f;
        set(texture, "placementMatrix", placement);
    }
    // 2D textures read their UV through a placement; solid textures read
    // the point and keep theirs.
    if (!texture->attribute(Tstring("uvCoord")) || isConnectedInput(texture, "uvCoord")) return;
    TdependNode* place = graph.createNode("place2dTexture", "swatchPlacement");
    if (!place) return;
    // The view covers the card's UVs from m / (1 + 2m) to (1 + m) / (1 + 2m):
    // scaled and shifted so that it shows exactly `r` repeats.
    float r = repeatFor(type);
    set(place, "repeatUV", T2Float{r * (1.0f + 2.0f * kMargin), r * (1.0f + 2.0f * kMargin)});
    set(place, "offset", T2Float{-r * kMargin, -r * kMargin});
    link(graph, place, "outUV", texture, "uvCoord");
    link(graph, place, "outUvFilterSize", texture, "uvFilterSize");
}

bool renderTextureSwatch(TdependGraph& graph, TdependNode* texture, const TswatchOptions& options, TframeBuffer& image,
                         std::string& error, const std::string& sceneFile) {
    const Tattribute* out = texture->attribute(Tstring("outColor"));
    if (!out) {
        error = "texture '" + texture->name().str() + "' has no outColor to preview";
        return false;
    }
    // The card covers the view; the camera looks down -Z at it.
    TdependNode* camera = placed(graph, "camera", "swatchCamera", {0, 0, 5}, {0, 0, 0});
    set(camera, "orthographic", true);
    set(camera, "orthographicWidth", kViewWidth);
    TdependNode* card = placed(graph, "plane", "swatchCard", {0, 0, 0}, {90, 0, 0});
    set(card, "width", kCardWidth);
    set(card, "height", kCardWidth);
    auto* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine", "swatchSG"));
    for (const TdagPath& p : static_cast<TdagNode*>(card)->allPaths()) group->addMember(p);
    // The colour goes straight to the group: no light changes the pattern.
    if (graph.connect(Tplug(texture, out), Tplug(group, &TDNshadingEngine::saSurfaceShader())) != TconnectStatus::kOk) {
        error = "cannot preview '" + texture->name().str() + "': its colour does not connect to a shading group";
        return false;
    }
    TrenderOptions render;
    render.width = render.height = options.size;
    render.samplesPerPixel = options.samplesPerPixel;
    render.threads = options.threads;
    render.camera = camera->name().str();
    Trenderer renderer;
    // File textures build their small swatch pyramids for a preview.
    TdnFileTexture::setSwatchMode(true);
    const bool ok = renderer.render(graph, sceneFile, render, image, error);
    TdnFileTexture::setSwatchMode(false);
    return ok;
}

bool renderAnySwatch(const std::string& what, const TswatchOptions& options, TframeBuffer& image, std::string& error) {
    size_t colon = what.rfind(':');
    if (colon != std::string::npos && colon > 0) {
        std::string file = what.substr(0, colon), name = what.substr(colon + 1);
        if (std::string why = unreadableInput(file); !why.empty()) {
            error = file + ": " + why;
            return false;
        }
        TdependGraph graph;
        TsceneLoader loader;
        if (!loader.load(file, graph)) {
            for (const TsceneError& e : loader.errors()) error.append(error.empty() ? "" : "\n").append(e.text());
            return false;
        }
        TdependNode* node = graph.findNode(Tstring(name));
        if (!node) {
            error = file + ": no node named '" + name + "'";
            return false;
        }
        if (!isTextureType(node->typeName().str())) return renderSwatch(what, options, image, error);
        // The file's own objects stay out of the preview.
        bool off = false;
        for (TdependNode* other : graph.nodes())
            if (other->typeof()->istype(Ttransform::sMetaclass())) other->setAttributeValue(&Ttransform::saVisibility(), &off);
        return renderTextureSwatch(graph, node, options, image, error, file);
    }
    if (!isTextureType(what)) return renderSwatch(what, options, image, error);
    TdependGraph graph;
    TdependNode* node = graph.createNode(Tstring(what), Tstring("swatchSubject"));
    if (!node) {
        error = "cannot make a node of type '" + what + "'";
        return false;
    }
    dressTextureForSwatch(graph, node);
    return renderTextureSwatch(graph, node, options, image, error);
}
