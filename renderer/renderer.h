#pragma once
// Trenderer: renders a graph's camera view into a frame buffer. Tiles render
// in parallel; each worker thread drives the shading engine through its own
// render thread, sample manager and deep raster.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "renderer/frame_buffer.h"

class TdependGraph;

// The largest image side a render takes. Beyond it a request is a typing
// slip rather than a wish: a 32768-pixel side already needs 16 GiB of frame
// buffer.
constexpr int kMaxImageSide = 32768;

struct TrenderOptions {
    int threads = 0;                 // 0: every core
    int width = 0, height = 0;       // 0: from the resolution settings
    int samplesPerPixel = 0;         // 0: from the quality settings
    int maxRayDepth = -1;            // -1: from the quality settings
    bool useRegion = false;          // render only [x0, x1) x [y0, y1), rows from the top
    int regionX0 = 0, regionY0 = 0, regionX1 = 0, regionY1 = 0;
    int tileSize = 16;
    std::string camera;              // node name or path; "" for the first renderable
    bool postEffects = true;         // shader glow and the lights' optical effects
    bool keepShadingFrames = true;   // each thread keeps the programs' frames between batches (TshadingFrames)
    // Layers added to the image, by the names of renderPasses().
    std::vector<std::string> passes;
    // Called as tiles finish, with the count done and the total over the
    // image and its engine passes, from one thread at a time.
    std::function<void(unsigned done, unsigned total)> progress;
};

struct TrenderStatistics {
    double wallSeconds = 0;
    double intersectSeconds = 0;  // camera, secondary and shadow rays, summed over threads
    double shadeSeconds = 0;      // inside the engine, summed over threads, less nested intersection
    double threadSeconds = 0;     // tile time summed over threads
    uint64_t cameraRays = 0, secondaryRays = 0, shadowRays = 0;
    uint64_t shadedSamples = 0;
    uint64_t fogIntervals = 0;    // volume intervals shaded for fog
    uint64_t framesMade = 0, framesReused = 0;  // kept frames carved, and batches that found theirs
    unsigned threads = 0;
};

class Trenderer {
public:
    // Renders `graph`. `sceneFile` anchors relative file names. False with
    // `error` set when the scene cannot be rendered.
    bool render(TdependGraph& graph, const std::string& sceneFile, const TrenderOptions& options, TframeBuffer& image,
                std::string& error);
    const TrenderStatistics& statistics() const { return fStatistics; }
    // One line per problem that did not stop the render (a group that cannot
    // shade, for instance), each given once.
    const std::vector<std::string>& warnings() const { return fWarnings; }

private:
    // One render of the current pass into `image`; tiles done so far and
    // the total of the whole job go to the progress.
    bool renderPass(TdependGraph& graph, const std::string& sceneFile, const TrenderOptions& options, TframeBuffer& image,
                    unsigned tilesBefore, unsigned passCount, std::string& error);

    TrenderStatistics fStatistics;
    std::vector<std::string> fWarnings;
    unsigned fTilesPerPass = 0;
};

// Loads a scene file and renders it. Load problems come back in `error`, one
// per line, each naming the file.
bool renderSceneFile(const std::string& path, const TrenderOptions& options, TframeBuffer& image, std::string& error,
                     Trenderer* renderer = nullptr);
