#pragma once
// Shadow depth maps for a render: before any tile, every light that asks for
// depth-map shadows gets its maps, read back from files (reuseDmap) or
// rendered from the light with Embree (and written out with writeDmap). The
// lights hold them while the render lasts.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lights/shadow_map.h"

class TdependGraph;
class TnonExtendedLightShape;
class TrenderScene;

class TdepthMaps {
public:
    // Problems that do not stop the render go to `warnings`.
    TdepthMaps(TdependGraph& graph, const TrenderScene& scene, const std::string& sceneFile, std::vector<std::string>& warnings);
    // The lights forget their maps.
    ~TdepthMaps();
    TdepthMaps(const TdepthMaps&) = delete;
    TdepthMaps& operator=(const TdepthMaps&) = delete;

    size_t lightCount() const { return fMaps.size(); }

private:
    std::vector<std::pair<TnonExtendedLightShape*, std::unique_ptr<TuseShadowMap>>> fMaps;
};

// World boxes of the objects of `scene` that cast shadows.
std::vector<TworldBox> shadowCasterBoxes(const TrenderScene& scene);
// Distances along the texel rays of `view` to the first shadow-casting
// surface, and with `second` to the one behind it; TuseShadowMap::kNoSurface
// where there is none. Rows run in parallel.
void renderDepthMap(const TrenderScene& scene, const TshadowMapView& view, float* first, float* second);
