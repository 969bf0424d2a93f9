#include "textures/pyramid/file_pixel_map_cache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "settings/image_writer.h"
#include "textures/pyramid/hdr_exposure.h"

TfilePixelMapCache& TfilePixelMapCache::theCache() {
    static TfilePixelMapCache cache;
    return cache;
}

Tstring TfilePixelMapCache::frameName(const Tstring& fileName, int frame) {
    if (frame < 0) return fileName;
    return Tstring(fileName.str() + "." + std::to_string(frame));
}

std::shared_ptr<const TpixelMap> TfilePixelMapCache::pixelMap(const Tstring& fileName, int frame, Tstring* error) {
    const Tstring name = frameName(fileName, frame);
    ThdrMapping mapping;
    float exposure;
    {
        std::lock_guard lock(fMutex);
        auto it = fMaps.find(name.str());
        if (it != fMaps.end()) return it->second;
        mapping = fMapping;
        exposure = fExposure;
    }
    // Read outside the lock: reading a large image must not hold up others.
    auto map = std::make_shared<TpixelMap>();
    Tstring why;
    if (!loadIMFPixelMap(name, *map, why, mapping, exposure)) {
        if (error) *error = why;
        return nullptr;
    }
    std::lock_guard lock(fMutex);
    auto [it, inserted] = fMaps.emplace(name.str(), std::move(map));
    return it->second;
}

void TfilePixelMapCache::clear() {
    std::lock_guard lock(fMutex);
    fMaps.clear();
}

unsigned TfilePixelMapCache::size() const {
    std::lock_guard lock(fMutex);
    return unsigned(fMaps.size());
}

void TfilePixelMapCache::setHdrMapping(ThdrMapping mapping, float exposure) {
    std::lock_guard lock(fMutex);
    fMapping = mapping;
    fExposure = exposure;
    fMaps.clear();
}

namespace {
// 1, 3 or 4 channels: grey stays grey, grey with alpha becomes colour with alpha.
int storedChannels(int fileChannels) {
    if (fileChannels <= 1) return 1;
    if (fileChannels == 2) return 4;
    if (fileChannels == 3) return 3;
    return 4;
}
// Source channel of stored channel c.
int sourceChannel(int fileChannels, int c) {
    if (fileChannels == 2) return c == 3 ? 1 : 0;
    return c;
}

// Images whose pixels would take more than this part of the machine's memory
// are not read.
constexpr int kMemoryShare = 4;

double machineBytes() {
    const long pages = sysconf(_SC_PHYS_PAGES), size = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && size > 0 ? double(pages) * double(size) : 0;
}

// The pixels of an opened image into `map`, 8 bits a channel.
bool readPixels(OIIO::ImageInput& in, int w, int h, int ch, bool hdr, const Tstring& path, TpixelMap& map, Tstring& error,
                ThdrMapping mapping, float exposure, Tstring* damage) {
    if (hdr) {
        std::vector<float> pixels(size_t(w) * h * ch);
        if (!in.read_image(0, 0, 0, ch, OIIO::TypeDesc::FLOAT, pixels.data())) {
            error = Tstring(in.geterror());
            return false;
        }
        if (in.has_error() && damage) *damage = Tstring(in.geterror());
        ThdrExposure::newExposureControl(path.str(), mapping, exposure)->map(pixels.data(), w, h, ch, map);
        return true;
    }
    std::vector<uint8_t> pixels(size_t(w) * h * ch);
    if (!in.read_image(0, 0, 0, ch, OIIO::TypeDesc::UINT8, pixels.data())) {
        error = Tstring(in.geterror());
        return false;
    }
    if (in.has_error() && damage) *damage = Tstring(in.geterror());
    const int stored = storedChannels(ch);
    map.setSize(w, h, stored);
    for (size_t i = 0; i < size_t(w) * h; ++i)
        for (int c = 0; c < stored; ++c) map.pixels()[i * stored + size_t(c)] = pixels[i * ch + size_t(sourceChannel(ch, c))];
    return true;
}
}  // namespace

void TfilePixelMapCache::loadHdrPixelMap(const float* pixels, int width, int height, int channels,
                                         ThdrMapping mapping, float exposure, TpixelMap& map) {
    const int stored = storedChannels(channels);
    map.setSize(width, height, stored);
    const float scale = std::exp2(exposure);
    const size_t n = size_t(width) * height;
    float peak = 1;
    if (mapping == ThdrMapping::kLinear)
        for (size_t i = 0; i < n; ++i)
            for (int c = 0; c < std::min(channels, 3); ++c)
                if (channels != 2 || c == 0) peak = std::max(peak, pixels[i * channels + size_t(c)] * scale);
    for (size_t i = 0; i < n; ++i)
        for (int c = 0; c < stored; ++c) {
            int sc = sourceChannel(channels, c);
            float v = pixels[i * channels + size_t(sc)];
            bool isAlpha = (stored == 4 && c == 3);
            float y;
            if (!std::isfinite(v)) v = v > 0 ? 1e30f : 0;
            if (isAlpha) y = v;
            else if (mapping == ThdrMapping::kClamp) y = v * scale;
            else if (mapping == ThdrMapping::kLinear) y = v * scale / peak;
            else y = 1 - std::exp(-std::max(v, 0.0f) * scale);
            map.pixels()[i * stored + size_t(c)] = uint8_t(std::lround(std::clamp(y, 0.0f, 1.0f) * 255));
        }
}

bool TfilePixelMapCache::loadIMFPixelMap(const Tstring& path, TpixelMap& map, Tstring& error, ThdrMapping mapping,
                                         float exposure, Tstring* damage) {
    // Texture alpha is straight: keep it as the file has it.
    OIIO::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    auto in = OIIO::ImageInput::open(path.str(), &config);
    if (!in) {
        // The system's reason is the clearer one for a file that cannot be
        // opened at all; the image library's for one it cannot decode.
        // geterror() clears what it returns: it is asked once.
        const std::string why = OIIO::geterror();
        struct stat file {};
        if (::stat(path.asC(), &file) != 0) error = Tstring(std::strerror(errno));
        else if (S_ISDIR(file.st_mode)) error = Tstring("is a directory");
        else error = Tstring(why.empty() ? "the image library cannot read it" : why);
        return false;
    }
    // Only the size and pixel type are needed; the cheaper query skips the metadata.
    const OIIO::ImageSpec header = in->spec_dimensions(0);
    const int w = header.width, h = header.height, ch = header.nchannels;
    if (w < 1 || h < 1 || ch < 1) {
        error = Tstring("image has no pixels");
        return false;
    }
    const auto base = OIIO::TypeDesc::BASETYPE(header.format.basetype);
    const bool hdr = base == OIIO::TypeDesc::FLOAT || base == OIIO::TypeDesc::HALF || base == OIIO::TypeDesc::DOUBLE;
    // A header can claim any size, and the image library fills its buffer
    // before it finds the data short: a claim past what the machine can
    // spare is refused before a byte is read.
    const double needed = double(w) * h * ch * (hdr ? sizeof(float) : 1);
    if (const double spare = machineBytes() / kMemoryShare; spare > 0 && needed > spare) {
        char text[200];
        std::snprintf(text, sizeof text,
                      "the image is %dx%d with %d channel%s; reading it takes %.1f GB, more than 1/%d of this machine's memory",
                      w, h, ch, ch == 1 ? "" : "s", needed / 1e9, kMemoryShare);
        error = Tstring(text);
        return false;
    }
    try {
        return readPixels(*in, w, h, ch, hdr, path, map, error, mapping, exposure, damage);
    } catch (const std::bad_alloc&) {
        error = Tstring("the image is " + std::to_string(w) + "x" + std::to_string(h) + ": there is not the memory to read it");
        return false;
    }
}

std::string TfilePixelMapCache::widerThanByte(const Tstring& path) {
    auto in = OIIO::ImageInput::open(path.str());
    if (!in) {
        OIIO::geterror();  // cleared: the caller reads the file again and reports there
        return {};
    }
    const OIIO::TypeDesc format = in->spec_dimensions(0).format;
    const bool isFloat = format.basetype == OIIO::TypeDesc::FLOAT || format.basetype == OIIO::TypeDesc::HALF ||
                         format.basetype == OIIO::TypeDesc::DOUBLE;
    const int bits = int(format.size()) * 8;
    if (bits <= 8) return {};
    return std::to_string(bits) + "-bit " + (isFloat ? "float" : "integer");
}

bool TfilePixelMapCache::saveIMFPixelMap(const Tstring& path, const TpixelMap& map, Tstring& error) {
    OIIO::ImageSpec header(map.width(), map.height(), map.channels(), OIIO::TypeDesc::UINT8);
    header.attribute("oiio:UnassociatedAlpha", 1);
    std::string why;
    if (writeImageFile(path.str(), header, OIIO::TypeDesc::UINT8, map.pixels(), why)) return true;
    error = Tstring(why);
    return false;
}
