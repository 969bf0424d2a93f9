#include "textures/pyramid/hdr_exposure.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {
std::string lowerExtension(const std::string& path) {
    const size_t dot = path.find_last_of('.');
    const size_t slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
    std::string e = path.substr(dot + 1);
    for (char& c : e) c = char(std::tolower(static_cast<unsigned char>(c)));
    return e;
}
std::string withExposure(const char* name, float exposure, bool brief) {
    if (brief) return name;
    char text[64];
    std::snprintf(text, sizeof text, "%s, %+.2f stops", name, double(exposure));
    return text;
}
}  // namespace

const char* ThdrExposure::mappingName(ThdrMapping mapping) {
    switch (mapping) {
        case ThdrMapping::kClamp:
            return "clamp";
        case ThdrMapping::kLinear:
            return "linear";
        default:
            return "exponential";
    }
}

void ThdrExposure::map(const float* pixels, int width, int height, int channels, TpixelMap& out) const {
    TfilePixelMapCache::loadHdrPixelMap(pixels, width, height, channels, fMapping, fExposure, out);
}

std::string ThdrExposure::describe(bool brief) const { return withExposure(mappingName(fMapping), fExposure, brief); }

std::string ThdrLinearExposure::describe(bool brief) const {
    return "Radiance " + withExposure(mappingName(mapping()), exposure(), brief);
}

void ThdrOpenEXR::map(const float* pixels, int width, int height, int channels, TpixelMap& out) const {
    if (channels != 4) {
        ThdrExposure::map(pixels, width, height, channels, out);
        return;
    }
    // EXR colours are premultiplied; the pyramid keeps straight colours.
    std::vector<float> straight(pixels, pixels + size_t(width) * height * 4);
    for (size_t i = 0; i < straight.size(); i += 4) {
        const float a = straight[i + 3];
        if (a > 0.0f && a < 1.0f)
            for (int c = 0; c < 3; ++c) straight[i + size_t(c)] /= a;
    }
    ThdrExposure::map(straight.data(), width, height, channels, out);
}

std::string ThdrOpenEXR::describe(bool brief) const { return "EXR " + withExposure(mappingName(mapping()), exposure(), brief); }

std::unique_ptr<ThdrExposure> ThdrExposure::newExposureControl(const std::string& path, ThdrMapping mapping,
                                                               float exposure) {
    const std::string e = lowerExtension(path);
    if (e == "exr") return std::make_unique<ThdrOpenEXR>(mapping, exposure);
    if (e == "hdr" || e == "pic" || e == "rgbe") return std::make_unique<ThdrLinearExposure>(mapping, exposure);
    return std::make_unique<ThdrExposure>(mapping, exposure);
}
