// shadenet bot: convert images to block-ordered texture files, describe
// them, and take their levels back out as images.
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "framework/host/command_engine.h"
#include "textures/pyramid/bot_convert.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/pyramid/pyramid.h"
#include "tools/subcommand.h"

namespace {

struct TbotOptions {
    std::string input, output, hdrMapping = "linear";
    float exposure = 0;
    bool keepSize = false;
    int level = -1;
};

void corrupted(const std::string& path, const Tstring& why) {
    reportError("Corrupted data found in block ordered texture file " + path + ": " + why.str());
}

// Writing over the file being read would destroy it before it is read.
bool refuseOverwritingInput(const TbotOptions& o) {
    if (!sameFile(o.input, o.output)) return false;
    reportError(o.output + ": the output is the input file " + o.input + "; give another output name", kExitUsage);
    return true;
}

std::unique_ptr<Tpyramid> openOrComplain(const std::string& path) {
    if (std::string why = unreadableInput(path); !why.empty()) {
        reportError(path + ": " + why);
        return nullptr;
    }
    Tstring why;
    std::unique_ptr<Tpyramid> p(Tpyramid::openBOT(Tstring(path), false, Tstring(path), &why));
    if (p) return p;
    if (!why.isEmpty())
        corrupted(path, why);
    else
        reportError(path + " is not a block ordered texture file");
    return p;
}

int runConvert(const TbotOptions& o) {
    TbotConvertOptions convert;
    convert.hdrMapping = o.hdrMapping == "clamp"         ? ThdrMapping::kClamp
                         : o.hdrMapping == "exponential" ? ThdrMapping::kExponential
                                                         : ThdrMapping::kLinear;
    convert.exposure = o.exposure;
    convert.keepSize = o.keepSize;
    if (refuseOverwritingInput(o)) return kExitUsage;
    std::string summary, warning, error;
    const bool ok = convertImageToBot(o.input, o.output, convert, summary, warning, error);
    if (!warning.empty()) reportWarning(warning);
    if (!ok) return error.empty() ? kExitFailure : reportError(error);
    std::printf("%s\n", summary.c_str());
    return kExitOk;
}

int runInfo(const TbotOptions& o) {
    std::unique_ptr<Tpyramid> p = openOrComplain(o.input);
    if (!p) return kExitFailure;
    botHeader h;
    Tpyramid::IsItABOTFile(Tstring(o.input), nullptr, &h);
    std::vector<uint32_t> index;
    Tstring why;
    if (!p->readBlockIndex(index, why)) {
        corrupted(o.input, why);
        return kExitFailure;
    }
    std::printf("file:            %s\n", o.input.c_str());
    std::printf("magic:           0x%04x\n", h.magic);
    std::printf("size:            %d x %d\n", p->width(), p->height());
    std::printf("channels:        %d\n", p->channels());
    std::printf("maximum level:   %d\n", p->getMaxLevel());
    std::printf("flag rows:       %d\n", h.flagRows);
    uint64_t raw = 0;
    for (int level = 0; level <= p->getMaxLevel(); ++level) {
        const int first = int(Tpyramid::fsNumBlocks[level]), count = p->levelBlockCount(level);
        const uint64_t bytes = uint64_t(index[size_t(first + count)]) - index[size_t(first)];
        const uint64_t levelRaw = uint64_t(p->levelWidth(level)) * p->levelHeight(level) * p->channels();
        raw += levelRaw;
        std::printf("level %2d:        %5d x %-5d %6d blocks %10" PRIu64 " bytes (%.2f:1)\n", level,
                    p->levelWidth(level), p->levelHeight(level), count, bytes,
                    bytes ? double(levelRaw) / double(bytes) : 0.0);
    }
    // Every block is decoded, so that damage inside the data shows here.
    TpixelMap scratch;
    for (int level = 0; level <= p->getMaxLevel(); ++level)
        if (!p->extractLevel(level, scratch)) return kExitFailure;
    const uint64_t fileBytes = p->fileBytes();
    std::printf("blocks:          %d\n", p->totalBlockCount());
    std::printf("index bytes:     %zu\n", 4 * index.size());
    std::printf("data bytes:      %" PRIu64 "\n", uint64_t(index.back()) - index.front());
    std::printf("file bytes:      %" PRIu64 "\n", fileBytes);
    std::printf("pixel bytes:     %" PRIu64 "\n", raw);
    std::printf("compression:     %.2f:1\n", fileBytes ? double(raw) / double(fileBytes) : 0.0);
    return kExitOk;
}

int runExtract(const TbotOptions& o) {
    if (refuseOverwritingInput(o)) return kExitUsage;
    std::unique_ptr<Tpyramid> p = openOrComplain(o.input);
    if (!p) return kExitFailure;
    const int level = o.level < 0 ? p->getMaxLevel() : o.level;
    if (level > p->getMaxLevel()) {
        return reportError(o.input + " has levels 0 to " + std::to_string(p->getMaxLevel()) + "; there is no level " +
                               std::to_string(level),
                           kExitUsage);
    }
    TpixelMap map;
    if (!p->extractLevel(level, map)) return kExitFailure;
    Tstring why;
    if (!TfilePixelMapCache::saveIMFPixelMap(Tstring(o.output), map, why)) return reportError(why.str());
    std::printf("level %d of %s: %dx%d -> %s\n", level, o.input.c_str(), map.width(), map.height(), o.output.c_str());
    return kExitOk;
}

const TsubcommandRegistrar kBot{{"bot", "Block-ordered texture files: convert, info, extract",
                                 [](CLI::App& app) -> std::function<int()> {
    auto options = std::make_shared<TbotOptions>();
    app.require_subcommand(1);
    CLI::App* convert = app.add_subcommand("convert", "Convert an image into a BOT file");
    convert->add_option("image", options->input, "Image file (PNG, JPEG, TIFF, EXR, HDR ...)")->required();
    convert->add_option("-o,--output", options->output, "BOT file to write")->required();
    convert->add_flag("--keep-size", options->keepSize, "Never stretch long thin images to a square");
    convert->add_option("--hdr-mapping", options->hdrMapping, "Floating-point images: clamp, linear or exponential")
        ->check(CLI::IsMember({"clamp", "linear", "exponential"}));
    convert->add_option("--exposure", options->exposure, "Exposure in stops for floating-point images");
    CLI::App* info = app.add_subcommand("info", "Describe a BOT file and check every block");
    info->add_option("file", options->input, "BOT file")->required();
    CLI::App* extract = app.add_subcommand("extract", "Write one level of a BOT file as an image");
    extract->add_option("file", options->input, "BOT file")->required();
    extract->add_option("--level", options->level, "Level (0 is 1x1; default the top level)")->check(wholeNumberBetween(0, Tpyramid::kLevels - 1));
    extract->add_option("-o,--output", options->output, "Image file to write")->required();
    return [options, convert, info, extract]() {
        if (convert->parsed()) return runConvert(*options);
        if (info->parsed()) return runInfo(*options);
        if (extract->parsed()) return runExtract(*options);
        return kExitUsage;
    };
}}};

}  // namespace
