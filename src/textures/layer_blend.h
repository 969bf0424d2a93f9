#pragma once
// How one layer of a layered texture combines with what lies under it. The
// layered texture node and the viewport's composite of layer images both
// use this, so that a preview and a render stack layers alike.
#include <algorithm>
#include <cmath>

#include "framework/host/math.h"

enum class TlayerBlendMode : short {
    kNone, kOver, kIn, kOut, kAdd, kSubtract, kMultiply, kDifference, kLighten, kDarken, kSaturate, kDesaturate, kIlluminate,
};
inline constexpr short kLayerBlendModeCount = 13;

// Puts the layer (colour c, alpha a) onto `colour`/`alpha` below it. Over
// composites by alpha; In and Out keep the colour below where the layer is
// or is not; the rest mix their operation in by the layer's alpha and keep
// the alpha below. An unknown mode leaves the layer out.
inline void blendLayer(short mode, const T3Float& c, float a, T3Float& colour, float& alpha) {
    const T3Float below = colour;
    auto mix = [&](const T3Float& op) { colour = below + (op - below) * a; };
    auto perChannel = [&](auto f) { return T3Float{f(c.x, below.x), f(c.y, below.y), f(c.z, below.z)}; };
    switch (TlayerBlendMode(mode)) {
        case TlayerBlendMode::kNone: colour = c, alpha = a; return;
        case TlayerBlendMode::kOver:
            colour = c * a + below * (1 - a);
            alpha = 1 - (1 - a) * (1 - alpha);
            return;
        case TlayerBlendMode::kIn: colour = below * a, alpha *= a; return;
        case TlayerBlendMode::kOut: colour = below * (1 - a), alpha *= 1 - a; return;
        case TlayerBlendMode::kAdd: colour = below + c * a; return;
        case TlayerBlendMode::kSubtract: colour = below - c * a; return;
        case TlayerBlendMode::kMultiply: mix(perChannel([](float f, float b) { return f * b; })); return;
        case TlayerBlendMode::kDifference: mix(perChannel([](float f, float b) { return std::fabs(f - b); })); return;
        case TlayerBlendMode::kLighten: mix(perChannel([](float f, float b) { return std::max(f, b); })); return;
        case TlayerBlendMode::kDarken: mix(perChannel([](float f, float b) { return std::min(f, b); })); return;
        case TlayerBlendMode::kSaturate: mix(perChannel([](float f, float b) { return b * (1 + f); })); return;
        case TlayerBlendMode::kDesaturate: mix(perChannel([](float f, float b) { return b * (1 - f); })); return;
        case TlayerBlendMode::kIlluminate: mix(perChannel([](float f, float b) { return b * 2 * f; })); return;
    }
}
