#include "framework/host/pixel_map.h"

#include <algorithm>
#include <cstring>

void TpixelMap::setSize(int width, int height, int channels) {
    fWidth = std::max(width, 0);
    fHeight = std::max(height, 0);
    fChannels = std::max(channels, 0);
    fPixels.assign(size_t(fWidth) * fHeight * fChannels, 0);
}

void TpixelMap::setChannels(int channels) {
    if (channels == fChannels || channels <= 0) return;
    std::vector<uint8_t> out(size_t(fWidth) * fHeight * channels, 0);
    size_t n = size_t(fWidth) * fHeight;
    for (size_t i = 0; i < n; ++i) {
        const uint8_t* s = fPixels.data() + i * fChannels;
        uint8_t* d = out.data() + i * channels;
        for (int c = 0; c < channels; ++c) {
            if (c < fChannels) d[c] = s[c];
            else if (c == 3) d[c] = 255;
            else d[c] = s[0];  // grey spreads to colour
        }
    }
    fPixels.swap(out);
    fChannels = channels;
}

void TpixelMap::setImage(int width, int height, int channels, const uint8_t* pixels) {
    setSize(width, height, channels);
    if (pixels && !fPixels.empty()) std::memcpy(fPixels.data(), pixels, fPixels.size());
}

bool TpixelMap::hasNonUnitAlpha() const {
    if (fChannels != 4) return false;
    for (size_t i = 3; i < fPixels.size(); i += 4)
        if (fPixels[i] != 255) return true;
    return false;
}

void TpixelMap::verticalFlip() {
    size_t row = size_t(fWidth) * fChannels;
    for (int y = 0; y < fHeight / 2; ++y)
        std::swap_ranges(fPixels.begin() + ptrdiff_t(y * row), fPixels.begin() + ptrdiff_t((y + 1) * row),
                         fPixels.begin() + ptrdiff_t((fHeight - 1 - y) * row));
}

void TpixelMap::horizontalFlip() {
    for (int y = 0; y < fHeight; ++y)
        for (int x = 0; x < fWidth / 2; ++x)
            std::swap_ranges(pixel(x, y), pixel(x, y) + fChannels, pixel(fWidth - 1 - x, y));
}
