#include "settings/display_transform.h"

#include <OpenColorIO/OpenColorIO.h>

#include <cstdlib>
#include <sstream>
#include <vector>

namespace OCIO = OCIO_NAMESPACE;

namespace {
// Enough for a first render to look right on an ordinary monitor: the sRGB
// curve is exact (a 2.4 power with a linear toe), the reference space is
// the renderer's linear RGB with sRGB primaries.
constexpr const char* kBuiltInConfig = R"(ocio_profile_version: 2
roles:
  default: Linear
  scene_linear: Linear
  data: Raw
  color_picking: sRGB
file_rules:
  - !<Rule> {name: Default, colorspace: default}
displays:
  sRGB:
    - !<View> {name: Standard, colorspace: sRGB}
    - !<View> {name: Raw, colorspace: Raw}
active_displays: [sRGB]
active_views: [Standard, Raw]
colorspaces:
  - !<ColorSpace>
    name: Linear
    encoding: scene-linear
  - !<ColorSpace>
    name: sRGB
    encoding: sdr-video
    from_scene_reference: !<ExponentWithLinearTransform> {gamma: 2.4, offset: 0.055, direction: inverse}
  - !<ColorSpace>
    name: Gamma 2.2
    encoding: sdr-video
    from_scene_reference: !<ExponentTransform> {value: 2.2, direction: inverse}
  - !<ColorSpace>
    name: Raw
    isdata: true
)";

const char* ocioPath() {
    const char* path = std::getenv("OCIO");
    return path && *path ? path : nullptr;
}

OCIO::ConstConfigRcPtr loadConfig() {
    if (const char* path = ocioPath()) return OCIO::Config::CreateFromFile(path);
    std::istringstream text(kBuiltInConfig);
    return OCIO::Config::CreateFromStream(text);
}

std::string joined(const std::vector<std::string>& names) {
    std::string all;
    for (const std::string& n : names) all += (all.empty() ? "" : ", ") + ("'" + n + "'");
    return all;
}
}  // namespace

struct TdisplayTransform::Tprocessor {
    OCIO::ConstCPUProcessorRcPtr cpu;
};

std::string TdisplayTransform::sConfigSource() {
    const char* path = ocioPath();
    return path ? std::string(path) : std::string("built-in");
}

bool TdisplayTransform::setup(const std::string& colorspace, const std::string& view, std::string& error) {
    fProcessor.reset();
    fEncoding.clear();
    const std::string source = "the colour configuration (" + sConfigSource() + ")";
    try {
        OCIO::ConstConfigRcPtr config = loadConfig();
        OCIO::ConstProcessorRcPtr processor;
        if (!colorspace.empty()) {
            if (!config->getColorSpace(colorspace.c_str())) {
                std::vector<std::string> names;
                for (int i = 0; i < config->getNumColorSpaces(); ++i) names.push_back(config->getColorSpaceNameByIndex(i));
                error = source + " has no colour space '" + colorspace + "'; it has " + joined(names);
                return false;
            }
            processor = config->getProcessor(OCIO::ROLE_SCENE_LINEAR, colorspace.c_str());
            fEncoding = colorspace;
        } else {
            const char* display = config->getDefaultDisplay();
            std::string chosen = view.empty() ? std::string(config->getDefaultView(display)) : view;
            std::vector<std::string> views;
            bool found = false;
            for (int i = 0; i < config->getNumViews(display); ++i) {
                views.push_back(config->getView(display, i));
                found = found || views.back() == chosen;
            }
            if (!found) {
                error = source + " has no view '" + chosen + "' for the display '" + display + "'; it has " + joined(views);
                return false;
            }
            OCIO::DisplayViewTransformRcPtr transform = OCIO::DisplayViewTransform::Create();
            transform->setSrc(OCIO::ROLE_SCENE_LINEAR);
            transform->setDisplay(display);
            transform->setView(chosen.c_str());
            processor = config->getProcessor(transform);
            fEncoding = config->getDisplayViewColorSpaceName(display, chosen.c_str());
        }
        auto p = std::make_shared<Tprocessor>();
        p->cpu = processor->getDefaultCPUProcessor();
        fProcessor = p;
        return true;
    } catch (const OCIO::Exception& e) {
        error = source + ": " + e.what();
        fEncoding.clear();
        return false;
    }
}

void TdisplayTransform::apply(float* rgba, size_t count) const {
    if (!fProcessor || count == 0) return;
    OCIO::PackedImageDesc image(rgba, long(count), 1, 4);
    fProcessor->cpu->apply(image);
}
