#pragma once
// The rendered image: linear RGBA floats, rows from the top.
#include <string>
#include <vector>

class TframeBuffer {
public:
    void resize(int width, int height);
    int width() const { return fWidth; }
    int height() const { return fHeight; }
    float* pixel(int x, int y) { return &fData[(size_t(y) * fWidth + x) * 4]; }
    const float* pixel(int x, int y) const { return &fData[(size_t(y) * fWidth + x) * 4]; }
    const std::vector<float>& data() const { return fData; }

    // The image before post effects, kept so that an EXR file carries it as
    // a second layer ("beforePost.R" ...); empty when no post pass ran.
    void setBeforePost(std::vector<float> pixels) { fBeforePost = std::move(pixels); }
    const std::vector<float>& beforePost() const { return fBeforePost; }

    // Writes the image in the format its extension names (png, exr, tif ...).
    bool write(const std::string& path, std::string& error) const;

private:
    int fWidth = 0, fHeight = 0;
    std::vector<float> fData;
    std::vector<float> fBeforePost;
};
