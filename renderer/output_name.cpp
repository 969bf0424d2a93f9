#include "renderer/output_name.h"

#include <OpenImageIO/imageio.h>

#include <filesystem>
#include <regex>

#include "framework/host/depend_graph.h"
#include "settings/image_name.h"
#include "settings/render_globals.h"
#include "settings/render_globals_data.h"

namespace {
std::string stemOf(const std::string& sceneFile) { return std::filesystem::path(sceneFile).stem().string(); }
}  // namespace

std::string defaultImageName(TdependGraph& graph, const std::string& sceneFile, const std::string& camera, const int* frame) {
    std::string stem = stemOf(sceneFile);
    TcommonRenderGlobalsData data;
    TdependNode* node = graph.findNode("defaultRenderGlobals");
    if (node && node->typeof()->istype(TdnRenderGlobals::sMetaclass())) static_cast<TdnRenderGlobals*>(node)->setCommonRenderGlobals(data);
    std::string extension = data.getFormatExtension().str();
    bool writable = !extension.empty() && OIIO::ImageOutput::create("probe." + extension) != nullptr;
    if (!writable) extension = "png";
    if (frame && !data.isAnimated()) {
        // Stills name no frame; a sequence of them would overwrite one file.
        data.setAnimated(true);
        if (data.namingScheme() <= 1) data.setNamingConvention("name.#.ext");
        data.setImageName(data.imageFilePrefix());
    }
    const TanimTime time(frame ? double(*frame) : 1.0);
    std::string name = data.getImageName(kPathImages, time, Tstring(camera), Tstring(extension), nullptr, Tstring(stem)).str();
    return name.empty() ? stem + "." + extension : name;
}

std::string frameImageName(const std::string& pattern, const std::string& sceneFile, const std::string& camera, int frame) {
    Tstring fixed = TimageName::fixNumberPattern(Tstring(pattern));
    static const std::regex kFrameToken(".*%[-_./]?[0-9]*n.*");
    if (!std::regex_match(fixed.str(), kFrameToken)) TimageName::addBeforeExtension(fixed, Tstring(".%4n"));
    std::string extension = std::filesystem::path(pattern).extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    return TimageName::relativeFileName(fixed, frame, true, Tstring(), Tstring(stemOf(sceneFile)), Tstring(extension),
                                        Tstring(camera), Tstring(), Tstring(), Tstring(), Tstring(), false)
        .str();
}
