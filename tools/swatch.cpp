// shadenet swatch TYPE|FILE:NODE -o swatch.png: the material preview of a
// node type or of a node of a scene file.
#include <iostream>
#include <memory>
#include <string>

#include "renderer/swatch.h"
#include "tools/subcommand.h"

namespace {
struct TswatchCommand {
    std::string what, output = "swatch.png";
    TswatchOptions options;
};

int run(const TswatchCommand& c) {
    TframeBuffer image;
    std::string error;
    if (!renderSwatch(c.what, c.options, image, error) || !image.write(c.output, error)) {
        std::cerr << error << "\n";
        return kExitFailure;
    }
    std::cout << c.output << "\n";
    return kExitOk;
}

const TsubcommandRegistrar kRegistrar{
    {"swatch", "Render the preview of a node type or of FILE:NODE", [](CLI::App& app) -> std::function<int()> {
         auto c = std::make_shared<TswatchCommand>();
         app.add_option("what", c->what, "A node type, or FILE:NODE for a node of a scene file")->required();
         app.add_option("-o,--output", c->output, "Image file (png, exr, tif ...)");
         app.add_option("--size", c->options.size, "Width and height in pixels")->check(CLI::Range(8, 4096));
         app.add_option("--spp", c->options.samplesPerPixel, "Camera samples per pixel")->check(CLI::Range(1, 64));
         return [c] { return run(*c); };
     }}};
}  // namespace
