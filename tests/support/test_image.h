#pragma once
// An image file read back as floats, for tests that compare rendered pixels
// with closed forms.
#include <cstddef>
#include <string>
#include <vector>

struct TtestImage {
    int width = 0, height = 0, channels = 0;
    std::vector<float> pixels;  // rows from the top, channels interleaved
    float at(int x, int y, int c = 0) const {
        return pixels[(size_t(y) * size_t(width) + size_t(x)) * size_t(channels) + size_t(c)];
    }
};

// The whole image at `path`; width 0 when it cannot be read.
TtestImage readTestImage(const std::string& path);
