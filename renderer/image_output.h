#pragma once
// How a rendered image becomes files. Integer formats (PNG, JPEG, 8- and
// 16-bit TIFF) hold display-encoded colour with unassociated alpha, tagged
// with their colour space; float formats (EXR, 32-bit TIFF) hold the
// scene-linear, premultiplied values. Layers go into an EXR as channel
// groups, or else each into a file of its own.
#include <string>
#include <vector>

#include "renderer/frame_buffer.h"

struct TimageOutputOptions {
    std::string colorspace;   // integer formats: a colour space of the configuration ...
    std::string view;         // ... or a view of its default display; both empty: the default view
    int bits = 0;             // 8, 16 or 32 (float); 0 for the format's own default
    bool half = false;        // EXR: 16-bit floats (object ids stay 32-bit)
    std::string compression;  // EXR: none, rle, zips, zip, piz, pxr24, b44, b44a, dwaa, dwab; "" for zip
    bool separateLayers = false;  // layers in files of their own even when the format could hold them
    // The pixels [x0, x1) x [y0, y1) only: an EXR gets a data window inside
    // the full frame, other formats the full frame with nothing outside;
    // with `crop` every format gets an image of the region's size.
    bool useRegion = false, crop = false;
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    // Header text, such as the scene file, and the render's wall time.
    std::vector<std::pair<std::string, std::string>> text;
    double renderSeconds = -1;
};

// True when `path` is written display-encoded (an integer format).
bool isDisplayEncoded(const std::string& path, const TimageOutputOptions& options);

// The EXR compressions accepted in TimageOutputOptions::compression.
const std::vector<std::string>& exrCompressions();

// The bit depths `path`'s format can be written with; empty when the depth
// is not a choice of the format.
std::vector<int> bitDepthsOf(const std::string& path);

// The name of the file that holds `layer` when it is not inside `path`:
// "_<layer>" before the extension, and ".exr" for data layers of an integer
// format.
std::string layerFileName(const std::string& path, const TimageLayer& layer, const TimageOutputOptions& options);

// Writes `image` (and its layers) to `path`. `written` receives every file's
// name, the main one first. False with `error` naming the file when one
// cannot be written or the options do not fit the format.
bool writeRenderImage(const TframeBuffer& image, const std::string& path, const TimageOutputOptions& options,
                      std::vector<std::string>& written, std::string& error);
