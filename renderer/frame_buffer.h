#pragma once
// The rendered image: linear RGBA floats, premultiplied by alpha, rows from
// the top; beside it any number of named layers of the same size (depth,
// normals, render passes) and what the camera was, for the file's header.
#include <deque>
#include <string>
#include <vector>

struct TimageLayer {
    std::string name;                   // "depth", "normal", "specular" ...
    std::vector<std::string> channels;  // "Z"; "X", "Y", "Z"; "R", "G", "B", "A" ...
    bool colour = false;                // a picture (display-encoded in 8-bit files) rather than data
    std::vector<float> pixels;          // width x height x channels, rows from the top
    bool ownFile = true;                // false: kept only inside a layered EXR, never written alone
};

class TframeBuffer {
public:
    void resize(int width, int height);
    int width() const { return fWidth; }
    int height() const { return fHeight; }
    float* pixel(int x, int y) { return &fData[(size_t(y) * fWidth + x) * 4]; }
    const float* pixel(int x, int y) const { return &fData[(size_t(y) * fWidth + x) * 4]; }
    const std::vector<float>& data() const { return fData; }

    // A layer of this image's size, zero-filled; an existing one of the
    // name is replaced. References to layers stay valid as others are added.
    TimageLayer& addLayer(const std::string& name, const std::vector<std::string>& channels, bool colour);
    const std::deque<TimageLayer>& layers() const { return fLayers; }
    const TimageLayer* layer(const std::string& name) const;
    TimageLayer* findLayer(const std::string& name);

    // The image before post effects, kept as the layer "beforePost" so that
    // an EXR file carries it for a compositor to redo them.
    void setBeforePost(const std::vector<float>& pixels);

    // Row-vector matrices of the camera that saw the image (world to camera,
    // world to normalised device coordinates with y down); empty when unknown.
    std::vector<float> worldToCamera, worldToNDC;

    // Writes the image in the format its extension names (png, exr, tif ...)
    // with the default encoding; see writeRenderImage for the choices.
    bool write(const std::string& path, std::string& error) const;

private:
    int fWidth = 0, fHeight = 0;
    std::vector<float> fData;
    std::deque<TimageLayer> fLayers;
};
