#include "utilities/render_utilities.h"

#include <algorithm>
#include <cmath>

T3Float TrenderUtilities::HSVtoRGB(const T3Float& hsv) {
    float s = hsv.y, v = hsv.z;
    if (s <= 0) return {v, v, v};
    // Any hue wraps into [0, 360).
    float h = std::fmod(hsv.x, 360.0f);
    if (h < 0) h += 360.0f;
    h /= 60.0f;
    int sector = int(std::floor(h));
    float f = h - float(sector);
    float p = v * (1 - s), q = v * (1 - s * f), t = v * (1 - s * (1 - f));
    switch (sector) {
        case 0: return {v, t, p};
        case 1: return {q, v, p};
        case 2: return {p, v, t};
        case 3: return {p, q, v};
        case 4: return {t, p, v};
        default: return {v, p, q};
    }
}

T3Float TrenderUtilities::RGBtoHSV(const T3Float& rgb) {
    float hi = std::max({rgb.x, rgb.y, rgb.z});
    float lo = std::min({rgb.x, rgb.y, rgb.z});
    float delta = hi - lo;
    float s = hi > 0 ? delta / hi : 0.0f;
    float h = 0;
    if (delta > 0) {
        if (rgb.x == hi)
            h = (rgb.y - rgb.z) / delta;
        else if (rgb.y == hi)
            h = 2 + (rgb.z - rgb.x) / delta;
        else
            h = 4 + (rgb.x - rgb.y) / delta;
        h *= 60.0f;
        if (h < 0) h += 360.0f;
    }
    return {h, s, hi};
}
