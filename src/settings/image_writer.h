#pragma once
// Image files as the system writes them: in the format the file name's
// extension names, complete or not at all (through TatomicFile), every
// failure of the image library or of the disk reported with the file name.
#include <OpenImageIO/imageio.h>

#include <string>
#include <vector>

// Writes `pixels`, laid out as `layout` says and stored as `pixelType`, to
// `path` in the file type of `layout.format`. False with `error` set
// ("<path>: cannot write: <reason>"); the earlier file is then untouched.
bool writeImageFile(const std::string& path, const OIIO::ImageSpec& layout, OIIO::TypeDesc pixelType,
                    const void* pixels, std::string& error);

