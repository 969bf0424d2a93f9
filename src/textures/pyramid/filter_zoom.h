#pragma once
// filterZoom: a separable resampler of 8-bit interleaved images with the
// Mitchell-Netravali cubic (B = C = 1/3), support 2 at the coarser of the two
// scales. Weights are integers (4096 to one), rows are 16-bit; the result is
// clamped to 0..255.
#include <cstdint>
#include <vector>

class TfilterZoom {
public:
    // The cubic k(x), |x| up to 2.
    static double kernel(double x);
    // The integral of the cubic from -2 to x; 0 below -2, 1 above 2.
    static double filterInteg(double x);

    // The weights of one target sample along one axis.
    struct Tfilt {
        int first = 0;  // first source index
        int total = 0;  // sum of the weights
        std::vector<int16_t> weights;
    };
    // makeFilt: one entry per target sample, for `target` samples over `source`.
    static std::vector<Tfilt> makeFilt(int source, int target);
};

// Resamples `source` (sw by sh) into `target` (tw by th), both packed with
// `channels` bytes to a pixel.
void filterZoom(int channels, int sw, int sh, int tw, int th, const uint8_t* source, uint8_t* target);
