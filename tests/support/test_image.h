#pragma once
// An image file read back as floats, for tests that compare rendered pixels
// with closed forms.
#include <OpenImageIO/imageio.h>

#include <cstddef>
#include <string>
#include <vector>

struct TtestImage {
    int width = 0, height = 0, channels = 0;
    std::vector<std::string> channelNames;
    std::vector<float> pixels;  // rows from the top, channels interleaved
    float at(int x, int y, int c = 0) const {
        return pixels[(size_t(y) * size_t(width) + size_t(x)) * size_t(channels) + size_t(c)];
    }
};

// The whole image at `path`; width 0 when it cannot be read. `header`, when
// given, receives the file's header. With `unassociatedAlpha` a file stored
// with unassociated alpha gives its stored values, not the premultiplied
// ones the image library gives by default.
TtestImage readTestImage(const std::string& path, OIIO::ImageSpec* header = nullptr, bool unassociatedAlpha = false);
