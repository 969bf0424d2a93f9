// Texel lookups: an in-memory pyramid, a BOT pyramid through the block cache
// sized as a render sizes it, and the image library's texture system on a
// tiled, mip-mapped TIFF of the same image made by its maketx. Bilinear, one
// level. Three patterns: a 96x96 window, a row scan, and a render-like one
// (16x16 pixel tiles of screen-space lookups at 1 to 4 texels per pixel).
// Warm: the caches keep what earlier passes loaded; cold: they are emptied
// before each pass. One thread by CPU time, and one against two threads by
// wall time in the same run for the speed-up. Also the file sizes.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/texture.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/trusted_runs.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/pyramid.h"

namespace {

constexpr int kSide = 2048;
constexpr int kScreen = 256, kTile = 16;
enum Tpattern { kWindow, kScan, kRenderLike };
const char* const kPatternNames[] = {"96x96 window", "row scan", "render-like tiles"};

struct Tfixture {
    std::filesystem::path dir;
    std::string tiff, tx, bot;
    std::unique_ptr<TpyramidNonSwatch> memory;
    std::unique_ptr<Tpyramid> file;
    OIIO::TextureSystem* ts = nullptr;
    std::vector<float> window, scan, render;  // u, v pairs
    bool madeWithMaketx = false;

    Tfixture() {
        dir = std::filesystem::temp_directory_path() / ("shadenet-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(dir);
        tiff = (dir / "image.tif").string();
        tx = (dir / "image.tx").string();
        bot = (dir / "image.bot").string();

        // A photograph-like image: shading, edges, texture, noise.
        TpixelMap map(kSide, kSide, 3);
        std::mt19937 rng(1);
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x)
                for (int c = 0; c < 3; ++c) {
                    double v = 120 + 70 * std::sin(x * 0.004 + c) * std::cos(y * 0.003);
                    if ((x / 300 + y / 200) % 3 == 0) v += 40;
                    v += 10 * std::sin(x * 0.7 + y * 0.45) + double(rng() % 7) - 3;
                    map.setPixel(x, y, c, uint8_t(std::clamp(v, 0.0, 255.0)));
                }
        Tstring why;
        TfilePixelMapCache::saveIMFPixelMap(Tstring(tiff), map, why);

        std::string command = "maketx --compression zip -o '" + tx + "' '" + tiff + "' > /dev/null 2>&1";
        madeWithMaketx = std::system(command.c_str()) == 0 && std::filesystem::exists(tx);
        if (!madeWithMaketx) {
            OIIO::ImageBuf in(tiff);
            OIIO::ImageSpec config;
            config.attribute("compression", "zip");
            OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, in, tx, config);
        }

        memory = std::make_unique<TpyramidNonSwatch>("mem", Tstring(tiff), kSide, kSide, 3, 1, false);
        memory->buildPyramidFromPixelMap(map);
        TpyramidNonSwatch toFile("bot", Tstring(tiff), kSide, kSide, 3, 1, false);
        toFile.buildPyramidFromPixelMap(map);
        Tstring out(bot);
        toFile.remapPyramidToBlocks(&out, true);
        file.reset(Tpyramid::openBOT(Tstring(bot), false, "bot"));

        ts = OIIO::TextureSystem::create(false);
        ts->attribute("max_memory_MB", 512.0f);

        // A window of 96 by 96 texels (16 blocks: a warm cache) walked in
        // random order; and a scan along rows over the whole image, which
        // decodes each block about once per row of lookups.
        std::uniform_real_distribution<float> d(0, 96.0f / kSide);
        for (int i = 0; i < 1 << 16; ++i) {
            window.push_back(0.3f + d(rng));
            window.push_back(0.6f + d(rng));
        }
        for (int i = 0; i < 1 << 16; ++i) {
            scan.push_back(float(i % 1024) / 1024 + 0.0003f);
            scan.push_back(float(i / 1024) / 64 + 0.0002f);
        }
        // A 256x256 screen in 16x16 tiles, row by row within a tile: a
        // receding plane, 1 texel per pixel at the bottom, 4 at the top.
        for (int ty = 0; ty < kScreen; ty += kTile)
            for (int tx = 0; tx < kScreen; tx += kTile)
                for (int y = ty; y < ty + kTile; ++y)
                    for (int x = tx; x < tx + kTile; ++x) {
                        const float density = 1.0f + 3.0f * float(y) / kScreen;  // texels per pixel
                        const float v = (1.0f * y + 1.5f * float(y) * float(y) / kScreen) / kSide;
                        render.push_back(0.1f + (float(x) - kScreen / 2) * density / kSide + 0.3f);
                        render.push_back(0.05f + v);
                    }
    }
    ~Tfixture() {
        OIIO::TextureSystem::destroy(ts);
        file.reset();
        std::filesystem::remove_all(dir);
    }
};

Tfixture& fixture() {
    static Tfixture f;
    return f;
}

const std::vector<float>& pattern(int which) {
    return which == kWindow ? fixture().window : which == kScan ? fixture().scan : fixture().render;
}

// One iteration is one pass over the pattern. Threads share the pyramid and
// each has its own block cache, sized as a render of two threads sizes it.
void lookupsOwn(benchmark::State& state, Tpyramid& p) {
    const auto& uv = pattern(int(state.range(0)));
    const bool cold = state.range(1) != 0;
    TfileTextureCache& cache = TfileTextureCache::threadCache();
    TfileTextureWrapper w;
    w.cache = &cache;
    T3Float colour;
    float alpha, sum = 0;
    const size_t n = uv.size() / 2;
    for (auto _ : state) {
        if (cold) cache.forgetPyramid(&p);
        for (size_t i = 0; i < n; ++i) {
            p.getMapColor(w, uv[2 * i], uv[2 * i + 1], colour, true, alpha, 0);
            sum += colour.x;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(int64_t(state.iterations() * n));
}

void BM_MemoryPyramid(benchmark::State& state) { lookupsOwn(state, *fixture().memory); }
void BM_BotPyramid(benchmark::State& state) { lookupsOwn(state, *fixture().file); }

void BM_TextureSystem(benchmark::State& state) {
    auto& f = fixture();
    const auto& uv = pattern(int(state.range(0)));
    const bool cold = state.range(1) != 0;
    OIIO::TextureOpt opt;
    opt.interpmode = OIIO::TextureOpt::InterpBilinear;
    opt.mipmode = OIIO::TextureOpt::MipModeOneLevel;
    opt.swrap = opt.twrap = OIIO::TextureOpt::WrapPeriodic;
    OIIO::ustring name(f.tx);
    auto* thread = f.ts->get_perthread_info();
    auto* handle = f.ts->get_texture_handle(name, thread);
    float result[3], sum = 0;
    const size_t n = uv.size() / 2;
    for (auto _ : state) {
        if (cold) {  // drops its tiles; the file stays open
            state.PauseTiming();
            f.ts->invalidate(name, true);
            handle = f.ts->get_texture_handle(name, thread);
            state.ResumeTiming();
        }
        for (size_t i = 0; i < n; ++i) {
            f.ts->texture(handle, thread, opt, uv[2 * i], uv[2 * i + 1], 0, 0, 0, 0, 3, result);
            sum += result[0];
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(int64_t(state.iterations() * n));
}

// Warm and cold for every pattern by CPU time; the render-like pattern with
// one and two threads by wall time as well, warm only: emptying the texture
// system's cache while another thread reads it is not allowed.
void patterns(benchmark::internal::Benchmark* b) {
    b->ArgNames({"pattern", "cold"})->ArgsProduct({{kWindow, kScan, kRenderLike}, {0, 1}})->MinTime(0.2);
}
void threaded(benchmark::internal::Benchmark* b) {
    b->ArgNames({"pattern", "cold"})->ArgsProduct({{kRenderLike}, {0}})->Threads(1)->Threads(2)->UseRealTime()->MinTime(0.2);
}
BENCHMARK(BM_MemoryPyramid)->ArgNames({"pattern", "cold"})->ArgsProduct({{kWindow, kScan, kRenderLike}, {0}})->MinTime(0.2);
BENCHMARK(BM_BotPyramid)->Apply(patterns);
BENCHMARK(BM_TextureSystem)->Apply(patterns);
BENCHMARK(BM_BotPyramid)->Apply(threaded);
BENCHMARK(BM_TextureSystem)->Apply(threaded);

}  // namespace

int main(int argc, char** argv) {
    initializeTrusted(argc, argv);
    // As the renderer does for two threads of 16-pixel tiles on this screen.
    TfileTextureCache::sSizeForRender(2, kTile, kScreen);
    TtrustedReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto& f = fixture();
    std::printf("\nMillions of lookups per second (bilinear, one level, %dx%d RGB; one thread, CPU time;\n"
                "median of interleaved runs; block cache of %d slots per thread):\n",
                kSide, kSide, TfileTextureCache::threadCache().capacity());
    for (int p = kWindow; p <= kRenderLike; ++p)
        for (int cold = 0; cold < 2; ++cold) {
            const std::string arg = "/pattern:" + std::to_string(p) + "/cold:" + std::to_string(cold) + "/min_time:0.200";
            const double bot = reporter.median("BM_BotPyramid" + arg), ts = reporter.median("BM_TextureSystem" + arg);
            std::printf("  %-18s %-4s memory %-26s BOT %-26s texture system %-26s BOT/texture system %.2f\n",
                        kPatternNames[p], cold ? "cold" : "warm",
                        cold ? "-" : reporter.figure("BM_MemoryPyramid" + arg, "items_per_second", 1e-6, "%.1f").c_str(),
                        reporter.figure("BM_BotPyramid" + arg, "items_per_second", 1e-6, "%.1f").c_str(),
                        reporter.figure("BM_TextureSystem" + arg, "items_per_second", 1e-6, "%.1f").c_str(),
                        ts > 0 ? bot / ts : 0.0);
        }
    std::printf("Render-like pattern, wall time, one and two threads in the same run (M lookups/s over all threads):\n");
    for (const char* impl : {"BM_BotPyramid", "BM_TextureSystem"})
        for (int cold = 0; cold < 1; ++cold) {
            const std::string base = std::string(impl) + "/pattern:2/cold:" + std::to_string(cold) + "/min_time:0.200/real_time";
            const double one = reporter.median(base + "/threads:1"), two = reporter.median(base + "/threads:2");
            std::printf("  %-17s %-4s 1 thread %-26s 2 threads %-26s speed-up %.2f\n", impl + 3, cold ? "cold" : "warm",
                        reporter.figure(base + "/threads:1", "items_per_second", 1e-6, "%.1f").c_str(),
                        reporter.figure(base + "/threads:2", "items_per_second", 1e-6, "%.1f").c_str(),
                        one > 0 ? two / one : 0.0);
        }
    reporter.printIdleCores();
    auto size = [](const std::string& p) { return std::filesystem::exists(p) ? double(std::filesystem::file_size(p)) : 0.0; };
    std::printf("File sizes: BOT %.0f bytes, maketx (zip%s) %.0f bytes, BOT/maketx %.3f\n", size(f.bot),
                f.madeWithMaketx ? "" : ", through the library", size(f.tx), size(f.tx) > 0 ? size(f.bot) / size(f.tx) : 0.0);
    benchmark::Shutdown();
    return 0;
}
