// shadenet preview SCENE -o preview.png: the scene as the interactive
// viewport draws it, by OpenGL off-screen, in the camera a render uses.
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/frame_buffer.h"
#include "renderer/gl_preview.h"
#include "renderer/image_output.h"
#include "scene/scene_loader.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "tools/subcommand.h"

namespace {
struct TpreviewCommand {
    std::string scene, output = "preview.png", objectIds;
    std::vector<int> resolution;
    unsigned textureResolution = 128;
    bool stats = false;
};

// Object numbers are data: written as read back, never colour-encoded.
bool writeImage(const std::string& path, const TpixelMap& map) {
    Tstring error;
    if (TfilePixelMapCache::saveIMFPixelMap(Tstring(path), map, error)) return true;
    reportError(error.str());  // the message names the file
    return false;
}

// The picture goes out as a render's does, so that an 8-bit file is
// display-encoded and the two can be laid side by side.
bool writePicture(const std::string& path, const TpixelMap& map) {
    TframeBuffer image;
    image.resize(map.width(), map.height());
    for (int y = 0; y < map.height(); ++y)
        for (int x = 0; x < map.width(); ++x) {
            float* out = image.pixel(x, y);
            for (int c = 0; c < 3; ++c) out[c] = float(map.getPixel(x, y, c)) / 255.0f;
            out[3] = 1;
        }
    std::vector<std::string> written;
    std::string error;
    if (writeRenderImage(image, path, TimageOutputOptions(), written, error)) return true;
    reportError(error);
    return false;
}

int run(const TpreviewCommand& c) {
    auto start = std::chrono::steady_clock::now();
    if (std::string why = unreadableInput(c.scene); !why.empty()) return reportError(c.scene + ": " + why);
    for (const std::string& output : {c.output, c.objectIds})
        if (!output.empty() && sameFile(c.scene, output)) return reportError(output + ": the output is the input file", kExitUsage);
    // The object numbers would overwrite the picture.
    if (!c.objectIds.empty() && sameFile(c.output, c.objectIds))
        return reportError(c.objectIds + ": --object-ids names the same file as the picture (-o)", kExitUsage);
    TdependGraph graph;
    TsceneLoader loader;
    if (!loader.load(c.scene, graph)) {
        for (const TsceneError& e : loader.errors()) reportError(e.text());
        return kExitFailure;
    }
    TpreviewOptions options;
    if (c.resolution.size() == 2) options.width = c.resolution[0], options.height = c.resolution[1];
    options.textureResolution = c.textureResolution;
    TglPreview preview;
    std::string error;
    if (!preview.build(graph, c.scene, options, error)) return reportError(c.scene + ": " + error);
    auto built = std::chrono::steady_clock::now();
    preview.draw();
    TpixelMap image;
    preview.readImage(image);
    if (!writePicture(c.output, image)) return kExitFailure;
    if (!c.objectIds.empty()) {
        preview.drawObjectIds();
        preview.readImage(image);
        image.setChannels(3);
        if (!writeImage(c.objectIds, image)) return kExitFailure;
    }
    if (c.stats) {
        auto ms = [](auto a, auto b) { return std::chrono::duration<double, std::milli>(b - a).count(); };
        std::cerr << "preview: " << preview.port().rendererName() << ", " << preview.width() << "x" << preview.height()
                  << ", build " << ms(start, built) << " ms, total " << ms(start, std::chrono::steady_clock::now()) << " ms\n";
    }
    std::cout << c.output << "\n";
    return kExitOk;
}

const TsubcommandRegistrar kRegistrar{
    {"preview", "Draw the scene by OpenGL as the viewport shows it", [](CLI::App& app) -> std::function<int()> {
         auto c = std::make_shared<TpreviewCommand>();
         app.add_option("scene", c->scene, "Scene file")->required();
         app.add_option("-o,--output", c->output, "Image file (png, exr, tif ...)");
         app.add_option("--resolution", c->resolution, "Image width and height")->expected(2)->check(wholeNumberBetween(1, 16384));
         app.add_option("--texture-resolution", c->textureResolution, "Size of baked textures without a resolution of their own")
             ->check(wholeNumberBetween(2, 8192));
         app.add_option("--object-ids", c->objectIds, "Also write object numbers (index + 1 in red) to this image");
         app.add_flag("--stats", c->stats, "Print timings on stderr");
         return [c] { return run(*c); };
     }}};
}  // namespace
