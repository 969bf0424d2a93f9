#include "support/test_image.h"

#include <OpenImageIO/imageio.h>

TtestImage readTestImage(const std::string& path) {
    TtestImage image;
    auto in = OIIO::ImageInput::open(path);
    if (!in) return image;
    const OIIO::ImageSpec& header = in->spec();
    image.width = header.width, image.height = header.height, image.channels = header.nchannels;
    image.pixels.resize(size_t(image.width) * size_t(image.height) * size_t(image.channels));
    if (!in->read_image(0, 0, 0, image.channels, OIIO::TypeDesc::FLOAT, image.pixels.data())) image = TtestImage{};
    return image;
}
