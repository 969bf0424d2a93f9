#pragma once
// What the post passes share: colour records on the 0..255 scale of the
// post buffers, the image rectangle, and the two pixel layouts a pass writes
// into. Channel mode 1 is four bytes per pixel (blue, green, red, alpha);
// any other mode is four 16-bit values, each stored low byte first as
// integer part (high byte) and fraction (low byte) of a 0..255 value.
#include <algorithm>
#include <cstdint>

struct QV_Rgb {
    float r = 0, g = 0, b = 0;
};
struct QV_Rgba {
    float r = 0, g = 0, b = 0, a = 0;
};
struct QV_Hsv {
    float h = 0, s = 0, v = 0;  // hue in degrees
};

// Pixels x0 <= x < x1, rows y0 <= y < y1 of an image.
struct Trect {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    int width() const { return x1 - x0; }
    int height() const { return y1 - y0; }
};

inline constexpr unsigned char kPostBytePixels = 1;
inline constexpr unsigned char kPostShortPixels = 2;

inline unsigned postPixelBytes(unsigned char channelMode) { return channelMode == kPostBytePixels ? 4u : 8u; }

// A 16-bit channel as a 0..255 value: high byte + low byte / 256.
inline float postReadChannel16(const unsigned char* p) { return float(p[1]) + float(p[0]) * 0.00390625f; }

inline QV_Rgba postReadPixel(const unsigned char* p, unsigned char channelMode) {
    if (channelMode == kPostBytePixels) return {float(p[2]), float(p[1]), float(p[0]), float(p[3])};
    return {postReadChannel16(p + 4), postReadChannel16(p + 2), postReadChannel16(p), postReadChannel16(p + 6)};
}

// Writes a pixel whose channels are already within 0..255. `rounding` rounds
// to the nearest step of the layout; otherwise the fraction is cut.
inline void postWritePixel(unsigned char* p, unsigned char channelMode, const QV_Rgba& c, bool rounding) {
    const float add = rounding ? 0.5f : 0.0f;
    const float channels[4] = {c.b, c.g, c.r, c.a};
    for (int k = 0; k < 4; ++k) {
        const float v = std::clamp(channels[k], 0.0f, 255.0f);
        if (channelMode == kPostBytePixels) {
            p[k] = uint8_t(std::min(255.0f, v + add));
        } else {
            const unsigned s = unsigned(std::min(65535.0f, v * 256.0f + add));
            p[2 * k] = uint8_t(s & 0xFF);
            p[2 * k + 1] = uint8_t(s >> 8);
        }
    }
}
