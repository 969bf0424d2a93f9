#pragma once
// TglPreview: the scene as the viewport draws it. Each shading group is one
// OpenGL material (its TmaterialInfo record and colour texture); meshes,
// spheres and discs are drawn through the render's camera with per-pixel
// Blinn-Phong under the scene's lights, without shadows. A reflective
// object mirrors a cube map of the scene drawn from its centre.
#include <memory>
#include <string>
#include <vector>

#include "display/gl_port.h"
#include "display/material_info.h"
#include "renderer/render_scene.h"

class TdependGraph;

struct TpreviewOptions {
    int width = 0, height = 0;         // 0: the scene's resolution
    unsigned textureResolution = 128;  // what the host answers for the default bake size
};

class TglPreview {
public:
    TglPreview();
    ~TglPreview();

    // Gathers the scene and makes the port, the material records, the
    // textures and the vertex buffers. False with `error` set.
    bool build(TdependGraph& graph, const std::string& sceneFile, const TpreviewOptions& options, std::string& error);
    // Draws one frame into the port.
    void draw();
    // Draws object numbers (index + 1 in the red channel, 0 for none).
    void drawObjectIds();
    void readImage(TpixelMap& image) { fPort->readImage(image); }
    int width() const { return fWidth; }
    int height() const { return fHeight; }
    const TrenderScene& scene() const { return *fScene; }
    T3dPort& port() { return *fPort; }
    // The cube map a reflective object mirrors (scene object index), or null.
    const TglTextureObject* environmentMap(unsigned objectIndex) const;

private:
    struct Tlight {
        int kind;  // 0 ambient, 1 directional, 2 point
        T3Float colour, vector;  // vector: position or direction towards the light, camera space
        float ambientShade;
        TdependNode* node;
    };
    struct Tdrawable;
    bool buildProgram(std::string& error);
    void useObject(const Tdrawable& d, bool ids, bool reflections);
    // One pass over the objects through `view` and `projection`, lit as seen
    // from `eye` (camera space); `hidden` is left out. Reflections are drawn
    // in the camera's pass only: a map holds the scene without them.
    void drawPass(bool ids, const float* view, const float* projection, const T3Float& eye, const Tdrawable* hidden);
    void bakeEnvironments();
    void useTile(Tdrawable& d, const TmaterialTexture* texture);

    std::unique_ptr<TrenderScene> fScene;
    std::unique_ptr<T3dPort> fPort;
    std::vector<TmaterialInfo*> fInfos;  // one per group, nodes of the graph
    std::vector<Tlight> fLights;
    std::vector<Tdrawable> fDrawables;
    unsigned fProgram = 0;
    float fProjection[16] = {};
    T3Float fBackground;
    int fWidth = 0, fHeight = 0;
};
