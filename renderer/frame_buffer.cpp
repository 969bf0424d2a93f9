#include "renderer/frame_buffer.h"

#include "renderer/image_output.h"

void TframeBuffer::resize(int width, int height) {
    fWidth = width;
    fHeight = height;
    fData.assign(size_t(width) * size_t(height) * 4, 0.0f);
    fLayers.clear();
}

TimageLayer& TframeBuffer::addLayer(const std::string& name, const std::vector<std::string>& channels, bool colour) {
    TimageLayer* target = nullptr;
    for (TimageLayer& l : fLayers)
        if (l.name == name) target = &l;
    if (!target) target = &fLayers.emplace_back();
    target->name = name;
    target->channels = channels;
    target->colour = colour;
    target->pixels.assign(size_t(fWidth) * size_t(fHeight) * channels.size(), 0.0f);
    return *target;
}

const TimageLayer* TframeBuffer::layer(const std::string& name) const {
    for (const TimageLayer& l : fLayers)
        if (l.name == name) return &l;
    return nullptr;
}

TimageLayer* TframeBuffer::findLayer(const std::string& name) {
    for (TimageLayer& l : fLayers)
        if (l.name == name) return &l;
    return nullptr;
}

void TframeBuffer::setBeforePost(const std::vector<float>& pixels) {
    TimageLayer& l = addLayer("beforePost", {"R", "G", "B", "A"}, true);
    l.pixels = pixels;
    l.ownFile = false;  // a PNG render with glow must not leave a second picture beside it
}

bool TframeBuffer::write(const std::string& path, std::string& error) const {
    std::vector<std::string> written;
    return writeRenderImage(*this, path, TimageOutputOptions(), written, error);
}
