#include "renderer/output_name.h"

#include <OpenImageIO/imageio.h>

#include <filesystem>

#include "framework/host/depend_graph.h"
#include "settings/render_globals.h"
#include "settings/render_globals_data.h"

std::string defaultImageName(TdependGraph& graph, const std::string& sceneFile, const std::string& camera) {
    std::string stem = std::filesystem::path(sceneFile).stem().string();
    TcommonRenderGlobalsData data;
    TdependNode* node = graph.findNode("defaultRenderGlobals");
    if (node && node->typeof()->istype(TdnRenderGlobals::sMetaclass())) static_cast<TdnRenderGlobals*>(node)->setCommonRenderGlobals(data);
    std::string extension = data.getFormatExtension().str();
    bool writable = !extension.empty() && OIIO::ImageOutput::create("probe." + extension) != nullptr;
    if (!writable) extension = "png";
    std::string name = data.getImageName(kPathImages, TanimTime(1.0), Tstring(camera), Tstring(extension), nullptr, Tstring(stem)).str();
    return name.empty() ? stem + "." + extension : name;
}
