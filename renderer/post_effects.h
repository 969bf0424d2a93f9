#pragma once
// The post passes of a render: shader glow and the optical effects of the
// lights, run on the finished image before it is written. begin() before
// the tiles start (it opens the glow buffer the tiles deposit into),
// finish() once the image is complete.
#include <string>
#include <vector>

#include "framework/host/math.h"
#include "renderer/frame_buffer.h"

class TdependGraph;
class TrenderScene;
class TdnShaderGlow;
class TdnOpticalFX;

class TpostEffects {
public:
    TpostEffects();
    ~TpostEffects();
    TpostEffects(const TpostEffects&) = delete;
    TpostEffects& operator=(const TpostEffects&) = delete;

    // Finds the scene's glow node and the lights that carry an active
    // optical effect. Problems that do not stop a render go to `warnings`.
    void begin(TdependGraph& graph, const TrenderScene& scene, int width, int height, std::vector<std::string>& warnings);
    // Whether the tiles should deposit glow.
    bool depositing() const { return fGlow; }
    // A sample's glow colour (0..1 linear) over the pixel square from (x, y),
    // weighted by its share of the pixel. Any render thread.
    static void deposit(const T3Float& glow, float x, float y, float weight);
    // Adds glow and the lights' effects to `image`, which keeps what it held
    // before as its pre-post layer. Nothing happens when begin() found nothing.
    void finish(TframeBuffer& image, const TrenderScene& scene);

private:
    struct Teffect;
    bool fGlow = false;
    std::vector<Teffect> fEffects;
};
