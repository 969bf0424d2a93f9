#include "renderer/frame_buffer.h"

#include <OpenImageIO/imageio.h>

#include <filesystem>

#include "settings/image_writer.h"

void TframeBuffer::resize(int width, int height) {
    fWidth = width;
    fHeight = height;
    fData.assign(size_t(width) * size_t(height) * 4, 0.0f);
    fBeforePost.clear();
}

bool TframeBuffer::write(const std::string& path, std::string& error) const {
    std::string extension = std::filesystem::path(path).extension().string();
    // EXR keeps the floats, TIFF takes 16 bits and the rest 8, clamped.
    OIIO::TypeDesc format = OIIO::TypeDesc::UINT8;
    if (extension == ".exr" || extension == ".hdr") format = OIIO::TypeDesc::FLOAT;
    else if (extension == ".tif" || extension == ".tiff") format = OIIO::TypeDesc::UINT16;
    OIIO::ImageSpec layout(fWidth, fHeight, 4, format);
    layout.attribute("Software", "shadenet");
    if (extension == ".exr" && fBeforePost.size() == fData.size()) {
        std::vector<float> layered = appendImageLayer(layout, fData.data(), fBeforePost.data(), 4, "beforePost");
        return writeImageFile(path, layout, OIIO::TypeDesc::FLOAT, layered.data(), error);
    }
    return writeImageFile(path, layout, OIIO::TypeDesc::FLOAT, fData.data(), error);
}
