// Texel lookups: an in-memory pyramid, a BOT pyramid with a warm block
// cache, and the image library's texture system on a tiled, mip-mapped TIFF
// of the same image made by its maketx. Bilinear, one level. Also the file
// sizes. Prints figures and ratios.
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

#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/pyramid.h"

namespace {

constexpr int kSide = 2048;

struct Tfixture {
    std::filesystem::path dir;
    std::string tiff, tx, bot;
    std::unique_ptr<TpyramidNonSwatch> memory;
    std::unique_ptr<Tpyramid> file;
    OIIO::TextureSystem* ts = nullptr;
    std::vector<float> window, scan;  // u, v pairs
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

const std::vector<float>& pattern(int which) { return which == 0 ? fixture().window : fixture().scan; }

void lookupsOwn(benchmark::State& state, Tpyramid& p) {
    const auto& uv = pattern(int(state.range(0)));
    TfileTextureWrapper w;
    w.cache = &TfileTextureCache::threadCache();
    T3Float colour;
    float alpha, sum = 0;
    size_t i = 0, n = uv.size() / 2;
    for (int k = 0; k < 4096; ++k, i = (i + 1) % n) p.getMapColor(w, uv[2 * i], uv[2 * i + 1], colour, true, alpha, 0);
    for (auto _ : state) {
        p.getMapColor(w, uv[2 * i], uv[2 * i + 1], colour, true, alpha, 0);
        sum += colour.x;
        i = i + 1 == n ? 0 : i + 1;
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(int64_t(state.iterations()));
}

void BM_MemoryPyramid(benchmark::State& state) { lookupsOwn(state, *fixture().memory); }
void BM_BotPyramidWarm(benchmark::State& state) { lookupsOwn(state, *fixture().file); }

void BM_TextureSystem(benchmark::State& state) {
    auto& f = fixture();
    const auto& uv = pattern(int(state.range(0)));
    OIIO::TextureOpt opt;
    opt.interpmode = OIIO::TextureOpt::InterpBilinear;
    opt.mipmode = OIIO::TextureOpt::MipModeOneLevel;
    opt.swrap = opt.twrap = OIIO::TextureOpt::WrapPeriodic;
    OIIO::ustring name(f.tx);
    auto* thread = f.ts->get_perthread_info();
    auto* handle = f.ts->get_texture_handle(name, thread);
    float result[3], sum = 0;
    size_t i = 0, n = uv.size() / 2;
    for (int k = 0; k < 4096; ++k, i = (i + 1) % n)
        f.ts->texture(handle, thread, opt, uv[2 * i], uv[2 * i + 1], 0, 0, 0, 0, 3, result);
    for (auto _ : state) {
        f.ts->texture(handle, thread, opt, uv[2 * i], uv[2 * i + 1], 0, 0, 0, 0, 3, result);
        sum += result[0];
        i = i + 1 == n ? 0 : i + 1;
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(int64_t(state.iterations()));
}

BENCHMARK(BM_MemoryPyramid)->Arg(0)->Arg(1)->ArgName("scan");
BENCHMARK(BM_BotPyramidWarm)->Arg(0)->Arg(1)->ArgName("scan");
BENCHMARK(BM_TextureSystem)->Arg(0)->Arg(1)->ArgName("scan");

// Keeps each run's rate for the summary.
class TsummaryReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> rates;
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            auto it = r.counters.find("items_per_second");
            if (it != r.counters.end()) rates[r.benchmark_name()] = it->second;
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    TsummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto& f = fixture();
    auto rate = [&](const std::string& name) { return reporter.rates.count(name) ? reporter.rates[name] : 0.0; };
    std::printf("\nLookups per second (bilinear, one level, %dx%d RGB):\n", kSide, kSide);
    for (int scan = 0; scan < 2; ++scan) {
        std::string arg = "/scan:" + std::to_string(scan);
        double mem = rate("BM_MemoryPyramid" + arg), bot = rate("BM_BotPyramidWarm" + arg),
               ts = rate("BM_TextureSystem" + arg);
        std::printf("  %-22s memory %7.1f M/s   BOT %7.1f M/s   texture system %7.1f M/s   BOT/texture system %.2f\n",
                    scan ? "row scan (cold blocks)" : "96x96 window (warm)", mem / 1e6, bot / 1e6, ts / 1e6,
                    ts > 0 ? bot / ts : 0.0);
    }
    auto size = [](const std::string& p) { return std::filesystem::exists(p) ? double(std::filesystem::file_size(p)) : 0.0; };
    std::printf("File sizes: BOT %.0f bytes, maketx (zip%s) %.0f bytes, BOT/maketx %.3f\n", size(f.bot),
                f.madeWithMaketx ? "" : ", through the library", size(f.tx), size(f.tx) > 0 ? size(f.bot) / size(f.tx) : 0.0);
    benchmark::Shutdown();
    return 0;
}
