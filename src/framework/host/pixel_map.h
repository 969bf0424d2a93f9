#pragma once
// TpixelMap: the host's image in memory. 8-bit channels, interleaved, rows
// from the top of the image down, as image files store them.
#include <cstddef>
#include <cstdint>
#include <vector>

class TpixelMap {
public:
    TpixelMap() = default;
    TpixelMap(int width, int height, int channels) { setSize(width, height, channels); }

    // Resizes and clears to zero. Negative sizes count as zero.
    void setSize(int width, int height, int channels);
    // Changes the channel count, keeping what the channels have in common;
    // a new fourth channel is opaque.
    void setChannels(int channels);
    // Copies width * height * channels bytes from `pixels`.
    void setImage(int width, int height, int channels, const uint8_t* pixels);

    int width() const { return fWidth; }
    int height() const { return fHeight; }
    int channels() const { return fChannels; }
    bool isEmpty() const { return fPixels.empty(); }
    size_t byteCount() const { return fPixels.size(); }

    uint8_t* pixels() { return fPixels.data(); }
    const uint8_t* pixels() const { return fPixels.data(); }
    uint8_t* pixel(int x, int y) { return fPixels.data() + (size_t(y) * fWidth + x) * fChannels; }
    const uint8_t* pixel(int x, int y) const { return fPixels.data() + (size_t(y) * fWidth + x) * fChannels; }
    uint8_t getPixel(int x, int y, int channel) const { return pixel(x, y)[channel]; }
    void setPixel(int x, int y, int channel, uint8_t value) { pixel(x, y)[channel] = value; }

    // True when a fourth channel holds anything but 255.
    bool hasNonUnitAlpha() const;
    void verticalFlip();
    void horizontalFlip();

private:
    int fWidth = 0;
    int fHeight = 0;
    int fChannels = 0;
    std::vector<uint8_t> fPixels;
};
