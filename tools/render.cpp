// shadenet render SCENE: renders a scene file's camera view and writes the
// image (PNG, EXR, TIFF ... by extension).
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/output_name.h"
#include "renderer/renderer.h"
#include "renderer/scene_check.h"
#include "scene/attribute_override.h"
#include "scene/scene_loader.h"
#include "tools/subcommand.h"

namespace {
// Beyond this a request is a typing slip rather than a wish: a 32768-pixel
// side already needs 16 GiB of frame buffer. More threads than cores are
// clamped to the cores, with a warning.
constexpr int kMaxImageSide = 32768;

struct TrenderCommand {
    std::string scene, output, camera;
    int threads = 0, spp = 0, depth = -1;
    std::vector<int> region, resolution;
    std::vector<std::string> sets;
    bool quiet = false, stats = false, noPost = false;
};

void drawProgress(unsigned done, unsigned total) {
    constexpr int kWidth = 40;
    int filled = int(kWidth * double(done) / double(total));
    std::fprintf(stderr, "\rrendering [%s%s] %3d%%", std::string(size_t(filled), '#').c_str(),
                 std::string(size_t(kWidth - filled), ' ').c_str(), int(100.0 * done / total));
    if (done == total) std::fprintf(stderr, "\n");
    std::fflush(stderr);
}

// Prints each line of a message that may hold several.
void printErrorLines(const std::string& text) {
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        if (end > start) reportError(text.substr(start, end - start));
        start = end + 1;
    }
}

int run(const TrenderCommand& c) {
    if (std::string why = unreadableInput(c.scene); !why.empty()) return reportError(c.scene + ": " + why);
    TdependGraph graph;
    TsceneLoader loader;
    if (!loader.load(c.scene, graph)) {
        for (const TsceneError& e : loader.errors()) reportError(e.text());
        return kExitFailure;
    }
    if (std::vector<std::string> errors; !applyAttributeOverrides(graph, c.sets, "--set", errors)) {
        for (const std::string& e : errors) reportError(e);
        return kExitUsage;
    }
    TrenderOptions options;
    options.threads = c.threads;
    // More workers than cores only costs memory; 100000 of them exhaust it.
    const int cores = int(std::max(1u, std::thread::hardware_concurrency()));
    if (c.threads > cores) {
        reportWarning("--threads " + std::to_string(c.threads) + " is more than the " + std::to_string(cores) +
                      " cores of this machine; using " + std::to_string(cores));
        options.threads = cores;
    }
    options.samplesPerPixel = c.spp;
    options.maxRayDepth = c.depth;
    options.camera = c.camera;
    options.postEffects = !c.noPost;
    if (c.resolution.size() == 2) options.width = c.resolution[0], options.height = c.resolution[1];
    if (c.region.size() == 4) {
        options.useRegion = true;
        options.regionX0 = c.region[0], options.regionY0 = c.region[1];
        options.regionX1 = c.region[2], options.regionY1 = c.region[3];
    }
    if (!c.quiet && isatty(STDERR_FILENO)) options.progress = drawProgress;

    // The pre-flight: refuse what cannot render, say once what looks wrong.
    // Meshes are read (and their problems reported) by the render itself.
    TsceneCheck sceneCheck;
    TsceneCheckOptions checkOptions;
    checkOptions.camera = c.camera;
    checkOptions.width = options.width, checkOptions.height = options.height;
    checkOptions.readMeshes = false;
    sceneCheck.run(graph, c.scene, checkOptions);
    for (const TsceneIssue& issue : sceneCheck.issues()) {
        if (issue.isError())
            reportError(c.scene + ": " + issue.text());
        else
            reportWarning(c.scene + ": " + issue.text());
    }
    if (sceneCheck.hasErrors()) return kExitFailure;

    Trenderer renderer;
    TframeBuffer image;
    std::string error;
    if (!renderer.render(graph, c.scene, options, image, error)) {
        printErrorLines(c.scene + ": " + error);
        return kExitFailure;
    }
    for (const std::string& w : renderer.warnings()) reportWarning(c.scene + ": " + w);

    std::string output = c.output.empty() ? defaultImageName(graph, c.scene, options.camera) : c.output;
    std::error_code ec;
    std::filesystem::path folder = std::filesystem::path(output).parent_path();
    if (!folder.empty()) std::filesystem::create_directories(folder, ec);
    if (!image.write(output, error)) return reportError(error);
    if (c.stats) {
        const TrenderStatistics& s = renderer.statistics();
        std::fprintf(stderr, "%d threads, %.3f s wall; per thread %.3f s intersect, %.3f s shade, %.3f s total; %llu samples shaded\n",
                     s.threads, s.wallSeconds, s.intersectSeconds, s.shadeSeconds, s.threadSeconds,
                     static_cast<unsigned long long>(s.shadedSamples));
    }
    std::cout << output << "\n";
    return kExitOk;
}

const TsubcommandRegistrar kRegistrar{
    {"render", "Render a scene file to an image", [](CLI::App& app) -> std::function<int()> {
         auto c = std::make_shared<TrenderCommand>();
         app.add_option("scene", c->scene, "Scene file")->required();
         app.add_option("-o,--output", c->output, "Image file; its extension picks the format (png, exr, tif)");
         app.add_option("--threads", c->threads, "Worker threads (default: every core)")->check(wholeNumberAtLeast(1));
         app.add_option("--region", c->region, "Render only pixels x0 <= x < x1, y0 <= y < y1 (rows from the top)")
             ->expected(4);
         app.add_option("--resolution", c->resolution, "Image width and height")->expected(2)->check(wholeNumberBetween(1, kMaxImageSide));
         app.add_option("--spp", c->spp, "Camera samples per pixel")->check(wholeNumberBetween(1, 64));
         app.add_option("--depth", c->depth, "Deepest reflection or refraction ray")->check(wholeNumberBetween(0, 15));
         app.add_option("--camera", c->camera, "Camera node name or path");
         app.add_option("--set", c->sets, "NODE.ATTR=VALUE: override an attribute (repeatable; VALUE as in the scene file)")
             ->allow_extra_args(false);
         app.add_flag("-q,--quiet", c->quiet, "No progress bar");
         app.add_flag("--no-post", c->noPost, "Leave out shader glow and the lights' optical effects");
         app.add_flag("--stats", c->stats, "Print timings on stderr");
         return [c] { return run(*c); };
     }}};
}  // namespace
