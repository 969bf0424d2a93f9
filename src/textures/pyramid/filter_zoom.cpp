#include "textures/pyramid/filter_zoom.h"

#include <algorithm>
#include <cmath>

double TfilterZoom::kernel(double x) {
    x = std::fabs(x);
    if (x < 1) return (7.0 / 6.0) * x * x * x - 2.0 * x * x + 8.0 / 9.0;
    if (x < 2) return (-7.0 / 18.0) * x * x * x + 2.0 * x * x - (10.0 / 3.0) * x + 16.0 / 9.0;
    return 0;
}

namespace {
// Integral of the cubic from 0 to x, for x in 0..2.
double halfInteg(double x) {
    if (x <= 1) return (7.0 / 24.0) * x * x * x * x - (2.0 / 3.0) * x * x * x + (8.0 / 9.0) * x;
    double at1 = 7.0 / 24.0 - 2.0 / 3.0 + 8.0 / 9.0;
    auto p = [](double t) {
        return (-7.0 / 72.0) * t * t * t * t + (2.0 / 3.0) * t * t * t - (5.0 / 3.0) * t * t + (16.0 / 9.0) * t;
    };
    return at1 + p(std::min(x, 2.0)) - p(1.0);
}
}  // namespace

double TfilterZoom::filterInteg(double x) {
    if (x <= -2) return 0;
    if (x >= 2) return 1;
    return x >= 0 ? 0.5 + halfInteg(x) : 0.5 - halfInteg(-x);
}

std::vector<TfilterZoom::Tfilt> TfilterZoom::makeFilt(int source, int target) {
    std::vector<Tfilt> out(size_t(std::max(target, 0)));
    if (source < 1 || target < 1) return out;
    const double ratio = double(source) / double(target);  // source pixels per target pixel
    for (int i = 0; i < target; ++i) {
        Tfilt& f = out[size_t(i)];
        int first, last;
        if (target == source) {
            // An axis that keeps its size (one side of a stretch) is copied.
            first = last = i;
            f.weights.push_back(4096);
        } else if (target < source) {
            // Reducing: the filter is 2 target pixels wide each side.
            double centre = (i + 0.5) * ratio;
            first = int(std::floor(centre - 2 * ratio + 0.0001));
            last = int(std::ceil(centre + 2 * ratio - 0.0001)) - 1;
            first = std::max(first, 0);
            last = std::min(last, source - 1);
            for (int j = first; j <= last; ++j) {
                double w = filterInteg((j + 1 - centre) / ratio) - filterInteg((j - centre) / ratio);
                f.weights.push_back(int16_t(w * 4096 + 0.5));
            }
        } else {
            // Enlarging: the target pixel's span, widened by 2 source pixels.
            double lo = i * ratio, hi = (i + 1) * ratio;
            // Source pixel j (centre j + 0.5) reaches the span when its
            // support of 2 overlaps [lo, hi].
            first = int(std::floor(lo - 2 - 0.5001)) + 1;
            last = int(std::ceil(hi + 2 - 0.5001)) - 1;
            first = std::max(first, 0);
            last = std::min(last, source - 1);
            for (int j = first; j <= last; ++j) {
                double c = j + 0.5;
                double w = (filterInteg(hi - c) - filterInteg(lo - c)) / ratio;
                f.weights.push_back(int16_t(w * 4096 + 0.5));
            }
        }
        f.first = first;
        f.total = 0;
        for (int16_t w : f.weights) f.total += w;
    }
    return out;
}

namespace {

using Tfilt = TfilterZoom::Tfilt;

void getRow(const uint8_t* source, int width, int channels, int y, int16_t* row) {
    const uint8_t* s = source + size_t(y) * width * channels;
    for (int i = 0; i < width * channels; ++i) row[i] = s[i];
}

int divRound(int64_t value, int total) {
    if (total <= 0) return int(value);
    return value >= 0 ? int((value + total / 2) / total) : -int((-value + total / 2) / total);
}

// Horizontal pass: one source row to target width; values stay near 0..255.
void applyXFilt(const int16_t* row, int channels, const std::vector<Tfilt>& xf, int16_t* out) {
    for (size_t x = 0; x < xf.size(); ++x) {
        const Tfilt& f = xf[x];
        for (int c = 0; c < channels; ++c) {
            int64_t sum = 0;
            for (size_t k = 0; k < f.weights.size(); ++k) sum += int64_t(f.weights[k]) * row[(f.first + int(k)) * channels + c];
            out[x * size_t(channels) + size_t(c)] = int16_t(std::clamp(divRound(sum, f.total), -32768, 32767));
        }
    }
}

void addRow(int32_t* acc, const int16_t* row, int weight, int n) {
    for (int i = 0; i < n; ++i) acc[i] += weight * row[i];
}

void divRow(int32_t* acc, int total, int n) {
    for (int i = 0; i < n; ++i) acc[i] = divRound(acc[i], total);
}

void clampRow(int32_t* acc, int n) {
    for (int i = 0; i < n; ++i) acc[i] = std::clamp(acc[i], 0, 255);
}

void putRow(const int32_t* acc, uint8_t* target, int n) {
    for (int i = 0; i < n; ++i) target[i] = uint8_t(acc[i]);
}

}  // namespace

void filterZoom(int channels, int sw, int sh, int tw, int th, const uint8_t* source, uint8_t* target) {
    if (sw < 1 || sh < 1 || tw < 1 || th < 1 || channels < 1) return;
    std::vector<Tfilt> xf = TfilterZoom::makeFilt(sw, tw);
    std::vector<Tfilt> yf = TfilterZoom::makeFilt(sh, th);

    // Horizontally filtered source rows, kept in a ring: the source rows a
    // target row needs only move forward.
    size_t span = 1;
    for (const Tfilt& f : yf) span = std::max(span, f.weights.size());
    const int rowLength = tw * channels;
    std::vector<int16_t> ring(span * size_t(rowLength));
    std::vector<int> ringRow(span, -1);
    std::vector<int16_t> sourceRow(size_t(sw) * channels);
    std::vector<int32_t> acc(static_cast<size_t>(rowLength));

    for (int y = 0; y < th; ++y) {
        const Tfilt& f = yf[size_t(y)];
        std::fill(acc.begin(), acc.end(), 0);
        for (size_t k = 0; k < f.weights.size(); ++k) {
            int sy = f.first + int(k);
            size_t slot = size_t(sy) % span;
            int16_t* filtered = ring.data() + slot * size_t(rowLength);
            if (ringRow[slot] != sy) {
                getRow(source, sw, channels, sy, sourceRow.data());
                applyXFilt(sourceRow.data(), channels, xf, filtered);
                ringRow[slot] = sy;
            }
            addRow(acc.data(), filtered, f.weights[k], rowLength);
        }
        divRow(acc.data(), f.total, rowLength);
        clampRow(acc.data(), rowLength);
        putRow(acc.data(), target + size_t(y) * size_t(rowLength), rowLength);
    }
}
