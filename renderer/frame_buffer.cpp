#include "renderer/frame_buffer.h"

#include <OpenImageIO/imageio.h>

#include <filesystem>

void TframeBuffer::resize(int width, int height) {
    fWidth = width;
    fHeight = height;
    fData.assign(size_t(width) * size_t(height) * 4, 0.0f);
}

bool TframeBuffer::write(const std::string& path, std::string& error) const {
    std::string extension = std::filesystem::path(path).extension().string();
    auto out = OIIO::ImageOutput::create(path);
    if (!out) {
        error = path + ": no image format for the extension '" + extension + "'";
        return false;
    }
    // EXR keeps the floats, TIFF takes 16 bits and the rest 8, clamped.
    OIIO::TypeDesc format = OIIO::TypeDesc::UINT8;
    if (extension == ".exr" || extension == ".hdr") format = OIIO::TypeDesc::FLOAT;
    else if (extension == ".tif" || extension == ".tiff") format = OIIO::TypeDesc::UINT16;
    OIIO::ImageSpec layout(fWidth, fHeight, 4, format);
    layout.attribute("Software", "shadenet");
    if (!out->open(path, layout)) {
        error = path + ": cannot write: " + out->geterror();
        return false;
    }
    bool ok = out->write_image(OIIO::TypeDesc::FLOAT, fData.data());
    if (!ok) error = path + ": cannot write: " + out->geterror();
    if (!out->close() && ok) {
        error = path + ": cannot write: " + out->geterror();
        ok = false;
    }
    return ok;
}
