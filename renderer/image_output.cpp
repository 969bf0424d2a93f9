#include "renderer/image_output.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <filesystem>

#include "settings/display_transform.h"
#include "settings/image_name.h"
#include "settings/image_writer.h"

#ifndef SHADENET_VERSION
#define SHADENET_VERSION "unknown"
#endif

namespace {
std::string extensionOf(const std::string& path) {
    std::string e = std::filesystem::path(path).extension().string();
    std::transform(e.begin(), e.end(), e.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return e;
}

bool isExr(const std::string& path) { return extensionOf(path) == ".exr"; }
bool isTiff(const std::string& path) { return extensionOf(path) == ".tif" || extensionOf(path) == ".tiff"; }

// The depth a file is written with; 32 means floats.
int bitsFor(const std::string& path, const TimageOutputOptions& options) {
    const std::string e = extensionOf(path);
    if (e == ".exr" || e == ".hdr") return 32;
    if (options.bits) return options.bits;
    return isTiff(path) ? 16 : 8;
}

// The rectangle that goes into the file.
struct Twindow {
    int x0, y0, x1, y1;
    int width() const { return x1 - x0; }
    int height() const { return y1 - y0; }
};

Twindow windowOf(const TframeBuffer& image, const std::string& path, const TimageOutputOptions& options) {
    if (options.useRegion && (options.crop || isExr(path)))
        return {std::clamp(options.x0, 0, image.width()), std::clamp(options.y0, 0, image.height()),
                std::clamp(options.x1, 0, image.width()), std::clamp(options.y1, 0, image.height())};
    return {0, 0, image.width(), image.height()};
}

// Copies channels [first, first + count) of a `stride`-channel full-frame
// buffer inside `w` into `out`, which holds `outStride` channels per pixel
// starting at `outFirst`.
void copyWindow(const float* source, int imageWidth, int stride, int first, int count, const Twindow& w, float* out,
                int outStride, int outFirst) {
    for (int y = w.y0; y < w.y1; ++y)
        for (int x = w.x0; x < w.x1; ++x) {
            const float* s = source + (size_t(y) * size_t(imageWidth) + size_t(x)) * size_t(stride) + size_t(first);
            float* d = out + (size_t(y - w.y0) * size_t(w.width()) + size_t(x - w.x0)) * size_t(outStride) + size_t(outFirst);
            std::copy(s, s + count, d);
        }
}

OIIO::ImageSpec headerFor(const TframeBuffer& image, const Twindow& w, const TimageOutputOptions& options, bool exr,
                        OIIO::TypeDesc format, const std::vector<std::string>& channels) {
    OIIO::ImageSpec header(w.width(), w.height(), int(channels.size()), format);
    header.channelnames = channels;
    header.alpha_channel = -1;
    for (size_t c = 0; c < channels.size(); ++c)
        if (channels[c] == "A") header.alpha_channel = int(c);
    if (exr && !options.crop) {
        header.x = w.x0, header.y = w.y0;
        header.full_x = 0, header.full_y = 0;
        header.full_width = image.width(), header.full_height = image.height();
    }
    header.attribute("Software", "shadenet " SHADENET_VERSION);
    header.attribute("shadenet:version", SHADENET_VERSION);
    for (const auto& [key, value] : options.text) header.attribute(key, value);
    if (options.renderSeconds >= 0) header.attribute("shadenet:renderSeconds", float(options.renderSeconds));
    if (image.worldToCamera.size() == 16) header.attribute("worldToCamera", OIIO::TypeMatrix, image.worldToCamera.data());
    if (image.worldToNDC.size() == 16) header.attribute("worldToNDC", OIIO::TypeMatrix, image.worldToNDC.data());
    if (exr) header.attribute("compression", options.compression.empty() ? std::string("zip") : options.compression);
    return header;
}

bool canHoldAlpha(const std::string& path) {
    auto out = OIIO::ImageOutput::create(path);
    return out && out->supports("alpha");
}

// Integer formats: unassociated alpha, then the display encoding; without
// an alpha channel the premultiplied colour (over the backdrop the render
// already holds) is encoded as it is.
void encodeForDisplay(std::vector<float>& rgba, bool unassociate, const TdisplayTransform& transform) {
    const size_t count = rgba.size() / 4;
    if (unassociate)
        for (size_t i = 0; i < count; ++i) {
            float* p = &rgba[i * 4];
            const float a = p[3];
            for (int c = 0; c < 3; ++c) p[c] = a > 0 ? p[c] / a : 0.0f;
        }
    transform.apply(rgba.data(), count);
}

OIIO::TypeDesc integerType(int bits) { return bits == 16 ? OIIO::TypeDesc::UINT16 : OIIO::TypeDesc::UINT8; }

// One colour image (RGBA or RGB of a colour layer) into a file of any format.
bool writeColourFile(const TframeBuffer& image, const float* rgba, const std::string& path, const TimageOutputOptions& options,
                     std::string& error) {
    const Twindow w = windowOf(image, path, options);
    const int bits = bitsFor(path, options);
    const bool alpha = canHoldAlpha(path);
    std::vector<float> pixels(size_t(w.width()) * size_t(w.height()) * 4);
    copyWindow(rgba, image.width(), 4, 0, 4, w, pixels.data(), 4, 0);
    const bool exr = isExr(path);
    std::vector<std::string> channels = {"R", "G", "B"};
    if (alpha) channels.push_back("A");
    OIIO::TypeDesc format = bits == 32 ? (options.half && exr ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::FLOAT) : integerType(bits);
    OIIO::ImageSpec header = headerFor(image, w, options, exr, format, channels);
    if (bits == 32) {
        header.attribute("oiio:ColorSpace", "Linear");
    } else {
        TdisplayTransform transform;
        if (!transform.setup(options.colorspace, options.view, error)) {
            error = path + ": cannot write: " + error;
            return false;
        }
        encodeForDisplay(pixels, alpha, transform);
        header.attribute("oiio:ColorSpace", transform.encodingName());
        if (alpha) header.attribute("oiio:UnassociatedAlpha", 1);
    }
    if (!alpha) {
        for (size_t i = 0, n = pixels.size() / 4; i < n; ++i) std::copy_n(&pixels[i * 4], 3, &pixels[i * 3]);
        pixels.resize(pixels.size() / 4 * 3);
    }
    return writeImageFile(path, header, OIIO::TypeDesc::FLOAT, pixels.data(), error);
}

// A data layer on its own: floats as they are.
bool writeDataFile(const TframeBuffer& image, const TimageLayer& layer, const std::string& path,
                   const TimageOutputOptions& options, std::string& error) {
    const Twindow w = windowOf(image, path, options);
    const int n = int(layer.channels.size());
    std::vector<float> pixels(size_t(w.width()) * size_t(w.height()) * size_t(n));
    copyWindow(layer.pixels.data(), image.width(), n, 0, n, w, pixels.data(), n, 0);
    const bool half = options.half && isExr(path) && layer.name != "objectId";
    OIIO::ImageSpec header = headerFor(image, w, options, isExr(path), half ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::FLOAT, layer.channels);
    return writeImageFile(path, header, OIIO::TypeDesc::FLOAT, pixels.data(), error);
}

// The beauty and every layer in one EXR, layers as "<layer>.<channel>".
bool writeLayeredExr(const TframeBuffer& image, const std::string& path, const TimageOutputOptions& options, std::string& error) {
    const Twindow w = windowOf(image, path, options);
    std::vector<std::string> channels = {"R", "G", "B", "A"};
    for (const TimageLayer& l : image.layers())
        for (const std::string& c : l.channels) channels.push_back(l.name + "." + c);
    const int stride = int(channels.size());
    std::vector<float> pixels(size_t(w.width()) * size_t(w.height()) * size_t(stride));
    copyWindow(image.data().data(), image.width(), 4, 0, 4, w, pixels.data(), stride, 0);
    int at = 4;
    for (const TimageLayer& l : image.layers()) {
        const int n = int(l.channels.size());
        copyWindow(l.pixels.data(), image.width(), n, 0, n, w, pixels.data(), stride, at);
        at += n;
    }
    const OIIO::TypeDesc format = options.half ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::FLOAT;
    OIIO::ImageSpec header = headerFor(image, w, options, true, format, channels);
    header.attribute("oiio:ColorSpace", "Linear");
    // Ids are whole numbers that half floats would round beyond 2048.
    header.channelformats.assign(channels.size(), format);
    for (size_t c = 0; c < channels.size(); ++c)
        if (channels[c].rfind("objectId.", 0) == 0) header.channelformats[c] = OIIO::TypeDesc::FLOAT;
    return writeImageFile(path, header, OIIO::TypeDesc::FLOAT, pixels.data(), error);
}
}  // namespace

bool isDisplayEncoded(const std::string& path, const TimageOutputOptions& options) { return bitsFor(path, options) != 32; }

const std::vector<std::string>& exrCompressions() {
    static const std::vector<std::string> names = {"none", "rle", "zips", "zip", "piz", "pxr24", "b44", "b44a", "dwaa", "dwab"};
    return names;
}

std::vector<int> bitDepthsOf(const std::string& path) {
    const std::string e = extensionOf(path);
    if (e == ".png") return {8, 16};
    if (isTiff(path)) return {8, 16, 32};
    return {};
}

std::string layerFileName(const std::string& path, const TimageLayer& layer, const TimageOutputOptions& options) {
    Tstring name(path);
    TimageName::addBeforeExtension(name, Tstring("_" + layer.name));
    if (layer.colour || bitsFor(path, options) == 32) return name.str();
    return std::filesystem::path(name.str()).replace_extension(".exr").string();
}

bool writeRenderImage(const TframeBuffer& image, const std::string& path, const TimageOutputOptions& options,
                      std::vector<std::string>& written, std::string& error) {
    written.clear();
    if (options.bits) {
        const std::vector<int> depths = bitDepthsOf(path);
        if (std::find(depths.begin(), depths.end(), options.bits) == depths.end()) {
            error = path + ": cannot write: the format has no " + std::to_string(options.bits) + "-bit form";
            return false;
        }
    }
    if (!options.compression.empty() && !isExr(path)) {
        error = path + ": cannot write: a compression is chosen for EXR files only";
        return false;
    }
    if (isExr(path) && !options.separateLayers && !image.layers().empty()) {
        if (!writeLayeredExr(image, path, options, error)) return false;
        written.push_back(path);
        return true;
    }
    if (!writeColourFile(image, image.data().data(), path, options, error)) return false;
    written.push_back(path);
    for (const TimageLayer& l : image.layers()) {
        if (!l.ownFile) continue;
        const std::string file = layerFileName(path, l, options);
        bool ok;
        if (l.colour && l.channels.size() == 4) {
            ok = writeColourFile(image, l.pixels.data(), file, options, error);
        } else {
            ok = writeDataFile(image, l, file, options, error);
        }
        if (!ok) return false;
        written.push_back(file);
    }
    return true;
}
