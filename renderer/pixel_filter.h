#pragma once
// Pixel reconstruction filters. A filter of width w weighs a sample at
// offset (dx, dy) pixels from a pixel's centre; it is separable and zero
// beyond w / 2 in either direction.
#include <algorithm>
#include <cmath>

#include "renderer/render_scene.h"

class TpixelFilterKernel {
public:
    // Widths past this blur no picture anyone wants, and every tile's margin
    // of samples grows with the width: a huge one overflowed the buffers.
    static constexpr float kMaxWidth = 64;

    TpixelFilterKernel(TpixelFilter type, float width)
        : fType(type), fRadius(width > 0 ? std::min(width, kMaxWidth) / 2 : 0.5f) {
        // The box never shrinks below one pixel: narrower, it would drop samples.
        if (fType == TpixelFilter::kBox && fRadius < 0.5f) fRadius = 0.5f;
    }
    float radius() const { return fRadius; }
    // Pixels beyond a tile whose samples can reach it.
    int margin() const { return int(std::ceil(fRadius - 0.5f)); }
    float weight(float dx, float dy) const { return weight1(dx) * weight1(dy); }
    float weight1(float d) const {
        float x = std::fabs(d) / fRadius;  // 0 at the centre, 1 at the edge of the support
        if (x >= 1) return 0;
        switch (fType) {
            case TpixelFilter::kBox: return 1;
            case TpixelFilter::kTriangle: return 1 - x;
            case TpixelFilter::kGaussian: {
                // Shifted so that it reaches zero at the edge of the support.
                constexpr float kAlpha = 4.0f;
                return std::exp(-kAlpha * x * x) - std::exp(-kAlpha);
            }
            case TpixelFilter::kBSpline: {
                // The quadratic B-spline over [-1.5, 1.5], stretched to the support.
                float u = x * 1.5f;
                return u < 0.5f ? 0.75f - u * u : 0.5f * (1.5f - u) * (1.5f - u);
            }
        }
        return 0;
    }

private:
    TpixelFilter fType;
    float fRadius;
};
