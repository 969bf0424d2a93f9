// shadenet swatch TYPE|FILE:NODE -o swatch.png: the preview of a node type or
// of a node of a scene file. A texture shows on a card that fills the view;
// anything else on a ball before a checked backdrop under a fixed light rig.
// shadenet swatch --sheet NAME -o sheet.png: the contact sheet of a family of
// types, one labelled swatch each.
#include <iostream>
#include <memory>
#include <string>

#include "tools/contact_sheet.h"
#include "tools/subcommand.h"
#include "renderer/texture_swatch.h"

namespace {
struct TswatchCommand {
    std::string what, sheet, output = "swatch.png";
    int columns = 4;
    TswatchOptions options;
};

int run(const TswatchCommand& c) {
    if (c.what.empty() == c.sheet.empty()) {
        return reportError("give either a node type (or FILE:NODE) or --sheet NAME", kExitUsage);
    }
    TframeBuffer image;
    std::string error;
    if (!c.sheet.empty()) {
        std::vector<std::string> types = contactSheetTypes(c.sheet);
        if (types.empty()) {
            return reportError("unknown contact sheet '" + c.sheet + "' (known: " + contactSheetNames() + ")", kExitUsage);
        }
        if (!renderContactSheet(types, c.options, c.columns, image, error) || !image.write(c.output, error))
            return reportError(error);
    } else if (!renderAnySwatch(c.what, c.options, image, error) || !image.write(c.output, error)) {
        return reportError(error);
    }
    std::cout << c.output << "\n";
    return kExitOk;
}

const TsubcommandRegistrar kRegistrar{
    {"swatch", "Render the preview of a node type or of FILE:NODE, or a contact sheet", [](CLI::App& app) -> std::function<int()> {
         auto c = std::make_shared<TswatchCommand>();
         app.add_option("what", c->what, "A node type, or FILE:NODE for a node of a scene file");
         app.add_option("--sheet", c->sheet, "A contact sheet of a family of types (textures-2d, textures-3d)");
         app.add_option("--columns", c->columns, "Swatches per row of a contact sheet")->check(wholeNumberBetween(1, 64));
         app.add_option("-o,--output", c->output, "Image file (png, exr, tif ...)");
         app.add_option("--size", c->options.size, "Width and height in pixels of a swatch")->check(wholeNumberBetween(8, 4096));
         app.add_option("--spp", c->options.samplesPerPixel, "Camera samples per pixel")->check(wholeNumberBetween(1, 64));
         app.add_option("--threads", c->options.threads, "Worker threads (default: every core)")->check(wholeNumberBetween(1, 256));
         return [c] { return run(*c); };
     }}};
}  // namespace
