#pragma once
// Scenes for renderer tests, written as scene-file text and rendered in
// process.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/renderer.h"
#include "scene/scene_loader.h"

struct TrenderRun {
    TframeBuffer image;
    std::vector<std::string> warnings;
    std::string error;
    bool ok = false;
    TrenderStatistics statistics;
};

// Loads `text` (as the file `path`, for relative names) and renders it.
inline TrenderRun renderText(const std::string& text, const TrenderOptions& options, const std::string& path = "scene.json") {
    TrenderRun run;
    TdependGraph graph;
    TsceneLoader loader;
    if (!loader.loadText(text, path, graph)) {
        for (const TsceneError& e : loader.errors()) run.error += e.text() + "\n";
        return run;
    }
    Trenderer renderer;
    run.ok = renderer.render(graph, path, options, run.image, run.error);
    run.warnings = renderer.warnings();
    run.statistics = renderer.statistics();
    return run;
}

// A `w` by `h` render at `spp` samples per pixel on `threads` threads.
inline TrenderOptions renderOptions(int w, int h, int threads = 1, int spp = 1) {
    TrenderOptions o;
    o.width = w, o.height = h, o.threads = threads, o.samplesPerPixel = spp;
    return o;
}

inline void writeFile(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

// A scene: a camera on +Z looking at the origin, then `nodes` (JSON object
// texts, comma-separated) and `connections`.
inline std::string sceneText(const std::string& nodes, const std::string& connections = "", const std::string& camera = "") {
    std::string cam = camera.empty() ? R"({"type": "camera", "name": "cam", "parent": "camXf"})" : camera;
    return R"({"nodes": [{"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 5]}}, )" + cam +
           (nodes.empty() ? "" : ", " + nodes) + R"(], "connections": [)" + connections + "]}";
}

// An orthographic camera `width` units wide, for sceneText's `camera`.
inline std::string orthoCamera(int width) {
    return R"({"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": )" +
           std::to_string(width) + "}}";
}

// A box filter one pixel wide: at one sample a pixel, each pixel is the sample at its centre.
inline const char* const kBoxFilter =
    R"({"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1}})";

// A shading group `name`SG with a test surface `name` in the given mode and
// with the given members.
inline std::string testGroup(const std::string& name, int mode, const std::string& members, const std::string& attributes = "") {
    return R"({"type": "rendererTestSurface", "name": ")" + name + R"(", "attributes": {"mode": )" + std::to_string(mode) +
           (attributes.empty() ? "" : ", " + attributes) + R"(}}, {"type": "shadingEngine", "name": ")" + name +
           R"(SG", "members": [)" + members + "]}";
}
inline std::string testConnection(const std::string& name) {
    return "[\"" + name + ".outColor\", \"" + name + "SG.surfaceShader\"]";
}

// The default camera: a 35 mm lens over a 36 mm gate.
constexpr float kDefaultTanHalfWidth = 36.0f / 70.0f;

// The camera-space direction through a pixel centre of the default camera
// rendering a `w` by `h` image.
inline T3Float defaultCameraRay(int px, int py, int w, int h) {
    float x = (2 * (float(px) + 0.5f) / float(w) - 1) * kDefaultTanHalfWidth;
    float y = (1 - 2 * (float(py) + 0.5f) / float(h)) * kDefaultTanHalfWidth * float(h) / float(w);
    return normalize(T3Float(x, y, -1));
}

inline T3Float rgb(const TframeBuffer& image, int x, int y) {
    const float* p = image.pixel(x, y);
    return {p[0], p[1], p[2]};
}
