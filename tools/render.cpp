// shadenet render SCENE: renders a scene file's camera view and writes the
// image (PNG, EXR, TIFF ... by extension), one frame or a sequence.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/image_output.h"
#include "renderer/output_name.h"
#include "renderer/progress_report.h"
#include "renderer/render_passes.h"
#include "renderer/render_scene.h"
#include "renderer/renderer.h"
#include "renderer/scene_check.h"
#include "scene/attribute_override.h"
#include "scene/scene_loader.h"
#include "settings/display_transform.h"
#include "tools/subcommand.h"

namespace {
// More threads than cores are clamped to the cores, with a warning.
// Frames of a shot are far inside this; a number beyond it is a slip.
constexpr int kMaxFrame = 1000000;

struct TrenderCommand {
    std::string scene, output, camera, frames;
    int threads = 0, spp = 0, depth = -1, frame = 0;
    std::vector<int> region, resolution;
    std::vector<std::string> sets;
    std::vector<std::string> passes;
    TimageOutputOptions image;
    bool quiet = false, stats = false, noPost = false;
    CLI::Option* frameOption = nullptr;
};

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

// "FIRST-LAST[:STEP]" or "N" into the frames it names, in order.
bool parseFrames(const std::string& text, std::vector<int>& frames, std::string& error) {
    static const std::regex kRange("([0-9]+)(?:-([0-9]+))?(?::([0-9]+))?");
    std::smatch m;
    if (!std::regex_match(text, m, kRange)) {
        error = "--frames '" + text + "' is not FIRST-LAST[:STEP], such as 1-100 or 1-100:5";
        return false;
    }
    const long first = std::stol(m[1].str());
    const long last = m[2].matched ? std::stol(m[2].str()) : first;
    const long step = m[3].matched ? std::stol(m[3].str()) : 1;
    if (first > kMaxFrame || last > kMaxFrame || step > kMaxFrame) {
        error = "--frames '" + text + "' goes beyond frame " + std::to_string(kMaxFrame);
        return false;
    }
    if (last < first || step < 1) {
        error = "--frames '" + text + "' holds no frame: the last comes before the first or the step is 0";
        return false;
    }
    for (long f = first; f <= last; f += step) frames.push_back(int(f));
    return true;
}

// A usage problem of the image options, found before anything renders.
std::string checkImageOptions(const TrenderCommand& c, const std::string& output) {
    const TimageOutputOptions& o = c.image;
    const std::string ext = std::filesystem::path(output).extension().string();
    if (o.crop && c.region.size() != 4) return "--crop needs --region";
    if (o.half && ext != ".exr") return "--half is for EXR files; '" + output + "' is not one";
    if (!o.compression.empty()) {
        if (ext != ".exr") return "--compression is for EXR files; '" + output + "' is not one";
        const auto& names = exrCompressions();
        if (std::find(names.begin(), names.end(), o.compression) == names.end()) {
            std::string all;
            for (const std::string& n : names) all += (all.empty() ? "" : ", ") + n;
            return "--compression '" + o.compression + "' is not one of " + all;
        }
    }
    if (o.bits) {
        const std::vector<int> depths = bitDepthsOf(output);
        if (std::find(depths.begin(), depths.end(), o.bits) == depths.end())
            return "--bits " + std::to_string(o.bits) + " is not a depth of '" + output + "'";
    }
    if (!o.colorspace.empty() && !o.view.empty()) return "--colorspace and --view both choose the encoding; give one";
    if (isDisplayEncoded(output, o) || !o.colorspace.empty() || !o.view.empty()) {
        TdisplayTransform transform;
        std::string error;
        if (!transform.setup(o.colorspace, o.view, error)) return error;
    }
    for (const std::string& p : c.passes)
        if (!findRenderPass(p)) {
            std::string all;
            for (const TrenderPassInfo& info : renderPasses()) all += (all.empty() ? "" : ", ") + std::string(info.name);
            return "--pass '" + p + "' is not one of " + all;
        }
    return {};
}

// Reads the scene and applies the --set values: kExitOk, or the status to
// leave with once the messages are out.
int loadScene(const TrenderCommand& c, TdependGraph& graph) {
    TsceneLoader loader;
    if (!loader.load(c.scene, graph)) {
        for (const TsceneError& e : loader.errors()) reportError(e.text());
        return kExitFailure;
    }
    if (std::vector<std::string> errors; !applyAttributeOverrides(graph, c.sets, "--set", errors)) {
        for (const std::string& e : errors) reportError(e);
        return kExitUsage;
    }
    return kExitOk;
}

int renderFrame(const TrenderCommand& c, TrenderOptions options, const int* frame) {
    // Each frame starts from the file, so that no state of one frame can
    // reach the next and any frame renders alone as it does in a sequence.
    TdependGraph graph;
    if (int status = loadScene(c, graph); status != kExitOk) return status;
    // Names carry the camera the render looks through, also when the
    // command line named none.
    std::string camera = options.camera;
    if (TdagPath path = TrenderScene::sFindCamera(graph, options.camera); path.node()) camera = path.node()->name().str();
    std::string output;
    if (c.output.empty())
        output = defaultImageName(graph, c.scene, camera, frame);
    else
        output = frame ? frameImageName(c.output, c.scene, camera, *frame) : c.output;
    if (std::string why = checkImageOptions(c, output); !why.empty()) return reportError(why, kExitUsage);

    std::unique_ptr<TprogressReport> progress;
    if (!c.quiet) {
        const bool terminal = isatty(STDERR_FILENO);
        progress = std::make_unique<TprogressReport>(terminal ? TprogressReport::kBar : TprogressReport::kLog, stderr,
                                                     frame ? "frame " + std::to_string(*frame) : std::string("render"));
        options.progress = [&progress](unsigned done, unsigned total) { progress->update(done, total); };
    }

    Trenderer renderer;
    TframeBuffer image;
    std::string error;
    if (!renderer.render(graph, c.scene, options, image, error)) {
        printErrorLines(c.scene + ": " + error);
        return kExitFailure;
    }
    for (const std::string& w : renderer.warnings()) reportWarning(c.scene + ": " + w);

    TimageOutputOptions write = c.image;
    if (c.region.size() == 4) {
        write.useRegion = true;
        write.x0 = c.region[0], write.y0 = c.region[1], write.x1 = c.region[2], write.y1 = c.region[3];
    }
    const TrenderStatistics& s = renderer.statistics();
    write.renderSeconds = s.wallSeconds;
    std::error_code ec;
    write.text.emplace_back("shadenet:scene", std::filesystem::absolute(c.scene, ec).string());
    if (frame) write.text.emplace_back("shadenet:frame", std::to_string(*frame));
    std::filesystem::path folder = std::filesystem::path(output).parent_path();
    if (!folder.empty()) std::filesystem::create_directories(folder, ec);
    std::vector<std::string> written;
    if (!writeRenderImage(image, output, write, written, error)) return reportError(error);
    if (c.stats) {
        // Wall time is what the user waited; the others add up every
        // thread's time, so they exceed the wall time on several threads.
        std::fprintf(stderr,
                     "wall time %.3f s on %u threads; summed over threads: busy %.3f s, ray intersection %.3f s, "
                     "shading %.3f s; %llu samples shaded; frames kept by the threads: %llu made, %llu reused\n",
                     s.wallSeconds, s.threads, s.threadSeconds, s.intersectSeconds, s.shadeSeconds,
                     static_cast<unsigned long long>(s.shadedSamples), static_cast<unsigned long long>(s.framesMade),
                     static_cast<unsigned long long>(s.framesReused));
    }
    for (const std::string& file : written) std::cout << file << "\n";
    return kExitOk;
}

int run(const TrenderCommand& c) {
    if (std::string why = unreadableInput(c.scene); !why.empty()) return reportError(c.scene + ": " + why);
    std::vector<int> frames;
    if (!c.frames.empty()) {
        if (c.frameOption->count() > 0) return reportError("--frame and --frames both name frames; give one", kExitUsage);
        std::string error;
        if (!parseFrames(c.frames, frames, error)) return reportError(error, kExitUsage);
    } else if (c.frameOption->count() > 0) {
        frames.push_back(c.frame);
    }
    TdependGraph graph;
    if (int status = loadScene(c, graph); status != kExitOk) return status;
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
    options.passes = c.passes;
    if (c.resolution.size() == 2) options.width = c.resolution[0], options.height = c.resolution[1];
    if (c.region.size() == 4) {
        options.useRegion = true;
        options.regionX0 = c.region[0], options.regionY0 = c.region[1];
        options.regionX1 = c.region[2], options.regionY1 = c.region[3];
    }

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

    if (frames.empty()) return renderFrame(c, options, nullptr);
    for (int f : frames)
        if (int status = renderFrame(c, options, &f); status != kExitOk) return status;
    return kExitOk;
}

const TsubcommandRegistrar kRegistrar{
    {"render", "Render a scene file to an image", [](CLI::App& app) -> std::function<int()> {
         auto c = std::make_shared<TrenderCommand>();
         app.add_option("scene", c->scene, "Scene file")->required();
         app.add_option("-o,--output", c->output,
                        "Image file; its extension picks the format (png, jpg, tif, exr). With frames a name "
                        "pattern (%s scene, %c camera, %4n or # frame)");
         app.add_option("--threads", c->threads, "Worker threads (default: every core)")->check(wholeNumberAtLeast(1));
         app.add_option("--region", c->region, "Render only pixels x0 <= x < x1, y0 <= y < y1 (rows from the top)")
             ->expected(4);
         app.add_flag("--crop", c->image.crop, "With --region: write an image of the region's size");
         app.add_option("--resolution", c->resolution, "Image width and height")->expected(2)->check(wholeNumberBetween(1, kMaxImageSide));
         app.add_option("--spp", c->spp, "Camera samples per pixel")->check(wholeNumberBetween(1, 64));
         app.add_option("--depth", c->depth, "Deepest reflection or refraction ray")->check(wholeNumberBetween(0, 15));
         app.add_option("--camera", c->camera, "Camera node name or path");
         app.add_option("--frames", c->frames, "Render the frames FIRST-LAST[:STEP], one file each");
         c->frameOption = app.add_option("--frame", c->frame, "Render one frame, named as in a sequence")
                              ->check(wholeNumberBetween(-kMaxFrame, kMaxFrame));
         app.add_option("--pass", c->passes,
                        "Add a layer: depth, normal, position, objectId, noShadows, ambient, noSpecular, specular")
             ->delimiter(',');
         app.add_flag("--pass-files", c->image.separateLayers, "Write passes as files of their own even to EXR");
         app.add_option("--colorspace", c->image.colorspace, "8- and 16-bit files: encode to this colour space of the OCIO config");
         app.add_option("--view", c->image.view, "8- and 16-bit files: encode through this view of the default display");
         app.add_option("--bits", c->image.bits, "Bit depth: PNG 8 or 16, TIFF 8, 16 or 32 (float)");
         app.add_flag("--half", c->image.half, "EXR: 16-bit floats instead of 32");
         app.add_option("--compression", c->image.compression, "EXR compression (zip, piz, dwaa, none ...; default zip)");
         app.add_option("--set", c->sets, "NODE.ATTR=VALUE: override an attribute (repeatable; VALUE as in the scene file)")
             ->allow_extra_args(false);
         app.add_flag("--no-post", c->noPost, "Leave out shader glow and the lights' optical effects");
         app.add_flag("-q,--quiet", c->quiet, "No progress report");
         app.add_flag("--stats", c->stats, "Print timings on stderr");
         return [c] { return run(*c); };
     }}};
}  // namespace
