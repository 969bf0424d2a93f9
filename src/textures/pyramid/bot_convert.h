#pragma once
// An image file made into a block-ordered texture file: read, built into a
// pyramid and written as blocks. Shared by the bot command and the Python
// module.
#include <string>

#include "textures/pyramid/file_pixel_map_cache.h"

struct TbotConvertOptions {
    ThdrMapping hdrMapping = ThdrMapping::kLinear;
    float exposure = 0;     // stops, for floating-point images
    bool keepSize = false;  // never stretch long thin images to a square
};

// False with `error` when the image cannot be read or is too large; false
// with `error` empty when writing failed and the library has said why
// through the command engine. On success `summary` is one line:
// "in.png: 64x64, 3 channels -> out.bot (7 levels, 85 blocks, 12345 bytes)".
// `warning` is set when the source holds more than 8 bits per channel, which
// the file cannot keep, or was read in spite of damage: the caller tells the
// user, the conversion goes on.
bool convertImageToBot(const std::string& input, const std::string& output, const TbotConvertOptions& options,
                       std::string& summary, std::string& warning, std::string& error);
