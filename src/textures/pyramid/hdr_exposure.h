#pragma once
// ThdrExposure: how a file texture brings a high-dynamic-range image to the
// 8 bits of its pyramid, by the node's hdrMapping and hdrExposure (stops).
// Radiance images take ThdrLinearExposure, EXR images ThdrOpenEXR, whose
// colours are stored premultiplied and are divided by alpha first.
#include <memory>
#include <string>

#include "framework/host/pixel_map.h"
#include "textures/pyramid/file_pixel_map_cache.h"

class ThdrExposure {
public:
    ThdrExposure(ThdrMapping mapping, float exposure) : fMapping(mapping), fExposure(exposure) {}
    virtual ~ThdrExposure() = default;

    ThdrMapping mapping() const { return fMapping; }
    float exposure() const { return fExposure; }
    // Float pixels, `channels` of them interleaved, into `map`.
    virtual void map(const float* pixels, int width, int height, int channels, TpixelMap& map) const;
    // "linear, +1.5 stops" and the like; with `brief` the mapping alone.
    virtual std::string describe(bool brief) const;

    // The exposure control for a floating-point image file, by its kind.
    static std::unique_ptr<ThdrExposure> newExposureControl(const std::string& path, ThdrMapping mapping,
                                                            float exposure);
    static const char* mappingName(ThdrMapping mapping);

private:
    ThdrMapping fMapping;
    float fExposure;
};

class ThdrLinearExposure : public ThdrExposure {
public:
    using ThdrExposure::ThdrExposure;
    std::string describe(bool brief) const override;
};

class ThdrOpenEXR : public ThdrExposure {
public:
    using ThdrExposure::ThdrExposure;
    void map(const float* pixels, int width, int height, int channels, TpixelMap& map) const override;
    std::string describe(bool brief) const override;
};
