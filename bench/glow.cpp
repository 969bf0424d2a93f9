// The glow pass at 1920x1080: deposits from a frame in which a tenth of the
// pixels glow (discs of several sizes), then calculateGlow and the image
// pass, for a small and a large spread. The fourth-root resolution rule
// promises about the same work for both; "direct" scatters every lit cell
// through the filter, "fft" convolves through FFTs, "auto" picks by work.
// The lit-cell and tap counts are printed beside the times.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "framework/host/depend_graph.h"
#include "post/post_image.h"
#include "post/shader_glow.h"

namespace {
constexpr int kWidth = 1920, kHeight = 1080;

struct TglowFrame {
    std::vector<std::pair<int, int>> lit;  // pixels that deposit
    TglowFrame() {
        std::mt19937 random(11);
        std::vector<bool> on(size_t(kWidth) * kHeight);
        for (int disc = 0; disc < 120; ++disc) {
            const int cx = int(random() % kWidth), cy = int(random() % kHeight), r = 6 + int(random() % 40);
            for (int y = std::max(0, cy - r); y < std::min(kHeight, cy + r); ++y)
                for (int x = std::max(0, cx - r); x < std::min(kWidth, cx + r); ++x)
                    if ((x - cx) * (x - cx) + (y - cy) * (y - cy) < r * r) on[size_t(y) * kWidth + x] = true;
        }
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                if (on[size_t(y) * kWidth + x]) lit.emplace_back(x, y);
    }
};

const TglowFrame& frame() {
    static TglowFrame f;
    return f;
}

void glowPass(benchmark::State& state) {
    const float spread = state.range(0) == 0 ? 0.1f : 2.0f;
    const auto mode = TdnShaderGlow::TconvolutionMode(state.range(1));
    TdependGraph graph;
    auto* node = static_cast<TdnShaderGlow*>(graph.createNode(Tstring("shaderGlow"), Tstring("glow")));
    short none = 0;
    node->setAttributeValue(&TdnShaderGlow::saHaloType(), &none);
    node->setAttributeValue(node->attribute(Tstring("glowSpread")), &spread);
    std::vector<unsigned char> image(size_t(kWidth) * kHeight * 8);
    const QV_Rgba colour{200, 150, 90, 0};
    TdnShaderGlow::setConvolutionMode(mode);
    const Trect rect{0, 0, kWidth, kHeight};
    double cells = 0, taps = 0;
    for (auto _ : state) {
        state.PauseTiming();
        node->initShaderGlow(rect, kHeight, false);
        for (auto [x, y] : frame().lit) TdnShaderGlow::addShaderGlow(&colour, x, y);
        std::fill(image.begin(), image.end(), 0);
        state.ResumeTiming();
        TdnShaderGlow::calculateGlow();
        TdnShaderGlow::addShaderGlowToArray(rect, image.data(), false, kPostShortPixels);
        const QV_GlowParams& g = TdnShaderGlow::sSettings().glow;
        cells = double(g.wide) * g.high;
        taps = double(g.filterWidth) * g.filterWidth;
    }
    TdnShaderGlow::endGlow();
    TdnShaderGlow::setConvolutionMode(TdnShaderGlow::kConvolveAuto);
    state.counters["cells"] = cells;
    state.counters["taps"] = taps;
    state.counters["cellsXtaps"] = cells * taps;
}
}  // namespace

BENCHMARK(glowPass)
    ->ArgNames({"largeSpread", "mode"})
    ->Args({0, TdnShaderGlow::kConvolveDirect})
    ->Args({1, TdnShaderGlow::kConvolveDirect})
    ->Args({0, TdnShaderGlow::kConvolveFFT})
    ->Args({1, TdnShaderGlow::kConvolveFFT})
    ->Args({0, TdnShaderGlow::kConvolveAuto})
    ->Args({1, TdnShaderGlow::kConvolveAuto})
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
