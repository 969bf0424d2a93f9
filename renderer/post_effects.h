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
    // Where tiles leave each pixel's glow colour (0..1, the mean of its
    // samples'), one entry per pixel, rows from the top; null when nothing
    // glows. Each tile writes only its own pixels, and the buffer is
    // deposited in pixel order after the render, so the glow does not depend
    // on which thread shaded what.
    T3Float* pixelGlow() { return fGlow ? fPixelGlow.data() : nullptr; }
    // Adds glow and the lights' effects to `image`, which keeps what it held
    // before as its pre-post layer. Nothing happens when begin() found nothing.
    // Only pixels with x0 <= x < x1 and y0 <= y < y1 change: outside a region
    // render the image stays empty.
    void finish(TframeBuffer& image, const TrenderScene& scene, int x0, int y0, int x1, int y1);

private:
    struct Teffect;
    bool fGlow = false;
    std::vector<T3Float> fPixelGlow;
    std::vector<Teffect> fEffects;
};
