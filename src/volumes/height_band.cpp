#include "volumes/height_band.h"

#include <algorithm>
#include <cmath>

double heightBandLength(double y, double dy, double distance, double low, double high, double flat) {
    if (std::fabs(dy) <= flat) return y >= low && y <= high ? high - low : 0;
    const double ta = (low - y) / dy, tb = (high - y) / dy;
    const double enter = std::max(0.0, std::min(ta, tb)), leave = std::min(distance, std::max(ta, tb));
    return leave - enter;
}

double heightBandFactor(double y, double low, double high, double blend) {
    if (!(y > low && y < high)) return 0;
    double factor = 1;
    if (blend > 0) {
        if (y - low < blend) factor = (y - low) / blend;
        if (high - y < blend && factor != 0) factor *= (high - y) / blend;
    }
    return factor;
}
