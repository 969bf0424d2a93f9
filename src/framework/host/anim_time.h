#pragma once
// TanimTime: a point in scene time, counted in frames. Sub-frame times occur
// (motion blur, fields); frameNumber() is the frame a time belongs to.
#include <climits>
#include <cmath>

class TanimTime {
public:
    constexpr TanimTime() = default;
    constexpr explicit TanimTime(double frames) : fFrames(frames) {}

    constexpr double asFrames() const { return fFrames; }
    // The nearest whole frame, halves away from zero, clamped to int; 0 for NaN.
    int frameNumber() const {
        const double r = std::round(fFrames);
        if (std::isnan(r)) return 0;
        if (r <= double(INT_MIN)) return INT_MIN;
        if (r >= double(INT_MAX)) return INT_MAX;
        return int(r);
    }

private:
    double fFrames = 0.0;
};
