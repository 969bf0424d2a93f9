#include "textures/pyramid/bot_convert.h"

#include "textures/pyramid/pyramid.h"

#include <cstdio>

bool convertImageToBot(const std::string& input, const std::string& output, const TbotConvertOptions& options,
                       std::string& summary, std::string& warning, std::string& error) {
    error.clear();
    warning.clear();
    TpixelMap map;
    Tstring why, damage;
    if (!TfilePixelMapCache::loadIMFPixelMap(Tstring(input), map, why, options.hdrMapping, options.exposure, &damage)) {
        error = "cannot read image " + input + ": " + why.str();
        return false;
    }
    if (!damage.isEmpty()) warning = input + " is damaged and parts of it may be wrong in the BOT file: " + damage.str();
    if (const std::string wide = TfilePixelMapCache::widerThanByte(Tstring(input)); !wide.empty()) {
        const bool isFloat = wide.find("float") != std::string::npos;
        const char* mappingName = options.hdrMapping == ThdrMapping::kClamp         ? "clamp"
                                  : options.hdrMapping == ThdrMapping::kExponential ? "exponential"
                                                                                     : "linear";
        char exposure[32];
        std::snprintf(exposure, sizeof exposure, "%+g", double(options.exposure));
        if (!warning.empty()) warning += "; ";
        warning += input + " holds " + wide + " channels; the BOT file keeps 8 bits per channel" +
                  (isFloat ? std::string(" (mapped ") + mappingName + ", exposure " + exposure + " stops)" : " (scaled)");
    }
    if (map.width() > Tpyramid::kMaxSide || map.height() > Tpyramid::kMaxSide) {
        error = input + " is " + std::to_string(map.width()) + "x" + std::to_string(map.height()) +
                "; a texture side may be at most " + std::to_string(Tpyramid::kMaxSide) + " pixels";
        return false;
    }
    TpyramidNonSwatch pyramid{Tstring(input), Tstring(input), map.width(), map.height(), map.channels(), 1,
                              options.keepSize};
    if (!pyramid.buildPyramidFromPixelMap(map)) {
        error = "cannot build the pyramid of " + input;
        return false;
    }
    const Tstring out(output);
    if (!pyramid.remapPyramidToBlocks(&out, true)) return false;  // the library reported why
    summary = input + ": " + std::to_string(map.width()) + "x" + std::to_string(map.height()) + ", " +
              std::to_string(map.channels()) + " channels -> " + output + " (" + std::to_string(pyramid.getMaxLevel() + 1) +
              " levels, " + std::to_string(pyramid.totalBlockCount()) + " blocks, " + std::to_string(pyramid.fileBytes()) +
              " bytes)";
    return true;
}
