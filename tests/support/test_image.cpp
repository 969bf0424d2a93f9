#include "support/test_image.h"

#include <OpenImageIO/imageio.h>

TtestImage readTestImage(const std::string& path, OIIO::ImageSpec* headerOut, bool unassociatedAlpha) {
    TtestImage image;
    OIIO::ImageSpec config;
    if (unassociatedAlpha) config.attribute("oiio:UnassociatedAlpha", 1);
    auto in = OIIO::ImageInput::open(path, &config);
    if (!in) return image;
    const OIIO::ImageSpec& header = in->spec();
    if (headerOut) *headerOut = header;
    image.width = header.width, image.height = header.height, image.channels = header.nchannels;
    image.channelNames = header.channelnames;
    image.pixels.resize(size_t(image.width) * size_t(image.height) * size_t(image.channels));
    if (!in->read_image(0, 0, 0, image.channels, OIIO::TypeDesc::FLOAT, image.pixels.data())) image = TtestImage{};
    return image;
}
