#include "framework/render_utilities.h"

#include <algorithm>
#include <cmath>

T3Float TrenderUtilities::RGBtoHSV(const T3Float& rgb) {
    float r = rgb.x, g = rgb.y, b = rgb.z;
    float high = std::max({r, g, b}), low = std::min({r, g, b});
    float delta = high - low;
    float s = high > 0.0f ? delta / high : 0.0f;
    float h = 0.0f;
    if (delta > 0.0f) {
        if (high == r)
            h = (g - b) / delta;
        else if (high == g)
            h = 2.0f + (b - r) / delta;
        else
            h = 4.0f + (r - g) / delta;
        h *= 60.0f;
        if (h < 0.0f) h += 360.0f;
    }
    return T3Float(h, s, high);
}

T3Float TrenderUtilities::HSVtoRGB(const T3Float& hsv) {
    float h = std::fmod(hsv.x, 360.0f), s = hsv.y, v = hsv.z;
    if (h < 0.0f) h += 360.0f;
    if (s <= 0.0f) return T3Float(v, v, v);
    h /= 60.0f;
    int sector = std::min(int(h), 5);
    float f = h - float(sector);
    float p = v * (1.0f - s), q = v * (1.0f - s * f), t = v * (1.0f - s * (1.0f - f));
    switch (sector) {
        case 0: return T3Float(v, t, p);
        case 1: return T3Float(q, v, p);
        case 2: return T3Float(p, v, t);
        case 3: return T3Float(p, q, v);
        case 4: return T3Float(t, p, v);
        default: return T3Float(v, p, q);
    }
}
