// shadenet name: expands an image-name pattern the way a render names its
// files, or with --fix repairs one so that images cannot overwrite each other.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "framework/host/command_engine.h"
#include "settings/image_name.h"
#include "tools/subcommand.h"

namespace {

struct TnameOptions {
    std::string pattern;
    std::string scene, camera, layer, pass, field, extension, version, frameOverride;
    int frame = 0;
    bool animated = false;
    bool keepNumber = false;
    bool fix = false;
    bool needFrame = false, needCamera = false, needLayer = false;
    bool verbose = false;
};

int usageError(const std::string& message) { return reportError(message, kExitUsage); }

// Frames of a shot are far inside this; a number beyond it is a slip.
constexpr int kMaxFrame = 1000000;

std::function<int()> setupName(CLI::App& app) {
    auto o = std::make_shared<TnameOptions>();
    app.add_option("pattern", o->pattern, "the pattern, such as \"%s.%4n.%e\" or \"<Camera>/img_@@@\"")->required();

    // Options of expansion.
    std::vector<CLI::Option*> expandOnly{
        app.add_option("--scene", o->scene, "scene name (%s, <Scene>)"),
        app.add_option("--camera", o->camera, "camera name (%c, <Camera>)"),
        app.add_option("--layer", o->layer, "render layer name (%l, <Layer>)"),
        app.add_option("--pass", o->pass, "render pass, joined to the layer with \"_\""),
        app.add_option("--field", o->field, "field name, joined to the camera with \"_\""),
        app.add_option("--frame", o->frame, "frame number; negative frames get a leading \"-\"")
            ->check(wholeNumberBetween(-kMaxFrame, kMaxFrame)),
        app.add_option("--ext", o->extension, "file extension (%e, <Extension>)"),
        app.add_option("--version-label", o->version, "version label (%v, <Version>)"),
        app.add_option("--frame-override", o->frameOverride, "text that replaces every frame token"),
        app.add_flag("--animated", o->animated, "write the frame number (without it frame tokens vanish)"),
        app.add_flag("--keep-number", o->keepNumber, "leave the frame tokens in the result"),
    };

    // Options of repair.
    app.add_flag("--fix", o->fix, "print the repaired pattern instead of a name");
    std::vector<CLI::Option*> fixOnly{
        app.add_flag("--need-frame", o->needFrame, "with --fix: the pattern must hold a frame token"),
        app.add_flag("--need-camera", o->needCamera, "with --fix: several cameras render"),
        app.add_flag("--need-layer", o->needLayer, "with --fix: several layers or passes render"),
    };
    app.add_flag("--verbose", o->verbose, "also print what the library reports about the pattern");

    return [o, expandOnly, fixOnly]() -> int {
        for (CLI::Option* option : o->fix ? expandOnly : fixOnly)
            if (option->count() > 0)
                return usageError(option->get_name() + (o->fix ? " cannot be used with --fix" : " needs --fix"));
        if (o->pattern.empty()) return usageError("the pattern is empty");
        if (o->pattern.size() > TimageName::kMaxPatternLength)
            return usageError("the pattern is longer than " + std::to_string(TimageName::kMaxPatternLength) +
                              " characters");

        std::string result;
        std::vector<TcommandMessage> messages;
        {
            // The library's notes go to stderr only when asked for.
            TcommandCapture capture;
            TimageName::sSetReportExpansions(o->verbose);
            if (o->fix) {
                result = TimageName::fixPattern(o->pattern, o->needFrame, o->needCamera, o->needLayer).str();
            } else {
                result = TimageName::relativeFileName(o->pattern, o->frame, o->animated, o->frameOverride, o->scene,
                                                      o->extension, o->camera, o->layer, o->pass, o->field,
                                                      o->version, o->keepNumber)
                             .str();
            }
            TimageName::sSetReportExpansions(false);
            messages = capture.messages();
        }
        if (o->verbose)
            for (const TcommandMessage& m : messages) std::cerr << m.text << "\n";
        std::cout << result << "\n";
        return kExitOk;
    };
}

const TsubcommandRegistrar kNameCommand{
    {"name", "expand an image-name pattern into a file name, or repair one with --fix", setupName}};

}  // namespace
