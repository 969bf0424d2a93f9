#pragma once
// TdepthMapFile: a shadow depth map on disk, in the tagged IFF form of the
// host's image files. One FOR4 group of type "DMAP" holds three chunks:
//   "DHDR"  width, height (unsigned 32-bit), flags (bit 0: orthographic),
//           half width, near and far clip (floats)
//   "DVEW"  the world-to-view matrix, 16 doubles, row by row
//   "DZBF"  width * height floats, rows from the top: distance along each
//           texel's ray to the surface it sees (a huge value for none)
// Numbers are big-endian. Reading follows the host's image-file steps: open,
// type, getSize, load, close.
#include <string>
#include <vector>

#include "framework/host/iff_file.h"
#include "lights/shadow_map.h"

class TdepthMapFile {
public:
    static constexpr TiffTag kForm{"DMAP"};
    static constexpr TiffTag kHeader{"DHDR"};
    static constexpr TiffTag kView{"DVEW"};
    static constexpr TiffTag kDepth{"DZBF"};

    // False when the file cannot be read as an IFF group with a header.
    bool open(const std::string& path);
    // The form's type: kForm for a depth map.
    TiffTag type() const { return fType; }
    void getSize(int& width, int& height) const {
        width = fView.resolution;
        height = fHeight;
    }
    const TshadowMapView& view() const { return fView; }
    // width * height distances.
    bool load(float* distances);
    void close() { fFile.close(); }

    static bool sExists(const std::string& path);
    // Writes through a temporary file in the same folder that is renamed into
    // place, so that a reader never sees half a map. `reason` says why not.
    static bool sWriteAtomically(const std::string& path, const TshadowMapView& view, const float* distances, std::string& reason);

private:
    TiffFile fFile;
    TiffTag fType;
    TshadowMapView fView;
    int fHeight = 0;
    int64_t fDepthOffset = -1;
    uint32_t fDepthBytes = 0;
};
