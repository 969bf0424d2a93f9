#pragma once
// TfilePixelMapCache: the process's images read from files, shared by name
// and frame. PNG, JPEG, TIFF, EXR, HDR and whatever else the image library
// reads. Images of more than 8 bits per channel are brought to 8 bits: plain
// integer images by scaling, floating-point (high-dynamic-range) images
// through the exposure mapping (see docs/textures.md).
#include <memory>
#include <mutex>
#include <unordered_map>

#include "framework/host/pixel_map.h"
#include "framework/host/tstring.h"

enum class ThdrMapping {
    kClamp,        // v * 2^exposure, clamped to 0..1
    kLinear,       // v * 2^exposure over the image's brightest value (when above 1)
    kExponential,  // 1 - exp(-v * 2^exposure)
};

class TfilePixelMapCache {
public:
    static TfilePixelMapCache& theCache();

    // The image of a file (and frame, -1 for none); null when it cannot be
    // read, with the reason in `error` when given.
    std::shared_ptr<const TpixelMap> pixelMap(const Tstring& fileName, int frame = -1, Tstring* error = nullptr);
    void clear();
    unsigned size() const;

    void setHdrMapping(ThdrMapping mapping, float exposure);

    // "name.7" for frame 7.
    static Tstring frameName(const Tstring& fileName, int frame);
    // Reads any image; floating-point pixels go through the mapping. A file
    // the image library reads in spite of a problem (a truncated JPEG comes
    // back with its missing part filled in) succeeds with the library's
    // words in `damage`, when given, for the caller to pass on.
    static bool loadIMFPixelMap(const Tstring& path, TpixelMap& map, Tstring& error,
                                ThdrMapping mapping = ThdrMapping::kLinear, float exposure = 0,
                                Tstring* damage = nullptr);
    // The exposure mapping alone, on float pixels of `channels` channels, of
    // which the fourth (alpha) is only clamped.
    static void loadHdrPixelMap(const float* pixels, int width, int height, int channels, ThdrMapping mapping,
                                float exposure, TpixelMap& map);
    // How the file stores a channel when that is more than the pyramid's 8
    // bits ("16-bit integer", "16-bit float", "32-bit float" ...); empty for
    // 8 bits or less, and for a file that cannot be opened.
    static std::string widerThanByte(const Tstring& path);
    static bool saveIMFPixelMap(const Tstring& path, const TpixelMap& map, Tstring& error);

private:
    mutable std::mutex fMutex;
    std::unordered_map<std::string, std::shared_ptr<const TpixelMap>> fMaps;
    ThdrMapping fMapping = ThdrMapping::kLinear;
    float fExposure = 0;
};
