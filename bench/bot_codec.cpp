// Decoding speed of BOT blocks in megabytes of decoded pixels per second,
// beside zlib inflating the same image cut in tiles the way a zip-compressed
// tiled TIFF stores them (each tile deflated on its own, no predictor), for
// a photograph-like and a sharp-edged image. CPU time, interleaved runs.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "bench/trusted_runs.h"
#include "textures/pyramid/bot_codec.h"

namespace {

constexpr int kSide = 1024, kChannels = 3;

std::vector<uint8_t> makeImage(int kind) {
    std::vector<uint8_t> pixels(size_t(kSide) * kSide * kChannels);
    std::mt19937 rng(1);
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x)
            for (int c = 0; c < kChannels; ++c) {
                double v;
                if (kind == 0) {  // shading, broad edges, fine texture, sensor noise
                    v = 120 + 70 * std::sin(x * 0.008 + c) * std::cos(y * 0.006);
                    if ((x / 150 + y / 100) % 3 == 0) v += 40;
                    v += 10 * std::sin(x * 0.7 + y * 0.45) + double(rng() % 7) - 3;
                } else {  // flat areas, hard edges, thin strokes: a diagram or lettering
                    bool stroke = (x % 37 < 2) || (y % 23 < 2) || ((x + 2 * y) % 61 < 3);
                    v = stroke ? 20 : ((x / 128 + y / 96) % 4) * 60 + 30 + c * 5;
                }
                pixels[(size_t(y) * kSide + x) * kChannels + c] = uint8_t(std::clamp(v, 0.0, 255.0));
            }
    return pixels;
}

std::vector<uint8_t> tile(const std::vector<uint8_t>& image, int tx, int ty, int side) {
    std::vector<uint8_t> out;
    for (int y = ty * side; y < (ty + 1) * side; ++y)
        out.insert(out.end(), image.begin() + ptrdiff_t((size_t(y) * kSide + tx * side) * kChannels),
                   image.begin() + ptrdiff_t((size_t(y) * kSide + (tx + 1) * side) * kChannels));
    return out;
}

struct Tcoded {
    std::vector<std::vector<uint8_t>> tiles;
    size_t codedBytes = 0;
};

Tcoded& botBlocks(int kind) {
    static Tcoded coded[2];
    Tcoded& c = coded[kind];
    if (c.tiles.empty()) {
        auto image = makeImage(kind);
        for (int ty = 0; ty < kSide / 32; ++ty)
            for (int tx = 0; tx < kSide / 32; ++tx) {
                std::vector<uint8_t> block(TbotCodec::kMaxBlockBytes);
                auto pixels = tile(image, tx, ty, 32);
                block.resize(size_t(TbotCodec::codeBlock(pixels.data(), 32, 32, kChannels, block.data())));
                c.codedBytes += block.size();
                c.tiles.push_back(std::move(block));
            }
    }
    return c;
}

Tcoded& zipTiles(int kind, int side) {
    static Tcoded coded[2][2];
    Tcoded& c = coded[kind][side == 64];
    if (c.tiles.empty()) {
        auto image = makeImage(kind);
        for (int ty = 0; ty < kSide / side; ++ty)
            for (int tx = 0; tx < kSide / side; ++tx) {
                auto pixels = tile(image, tx, ty, side);
                uLongf size = compressBound(uLong(pixels.size()));
                std::vector<uint8_t> z(size);
                compress2(z.data(), &size, pixels.data(), uLong(pixels.size()), Z_DEFAULT_COMPRESSION);
                z.resize(size);
                c.codedBytes += z.size();
                c.tiles.push_back(std::move(z));
            }
    }
    return c;
}

void BM_BotDecode(benchmark::State& state) {
    const Tcoded& c = botBlocks(int(state.range(0)));
    uint8_t pixels[32 * 32 * 4];
    for (auto _ : state)
        for (const auto& block : c.tiles) {
            const char* why = TbotCodec::decodeBlock(block.data(), int(block.size()), 32, 32, kChannels, pixels);
            benchmark::DoNotOptimize(why);
            benchmark::DoNotOptimize(pixels[0]);
        }
    state.SetBytesProcessed(int64_t(state.iterations()) * kSide * kSide * kChannels);
}

void BM_ZlibInflate(benchmark::State& state) {
    const int side = int(state.range(1));
    const Tcoded& c = zipTiles(int(state.range(0)), side);
    std::vector<uint8_t> pixels(size_t(side) * side * kChannels);
    for (auto _ : state)
        for (const auto& z : c.tiles) {
            uLongf size = uLongf(pixels.size());
            int r = uncompress(pixels.data(), &size, z.data(), uLong(z.size()));
            benchmark::DoNotOptimize(r);
            benchmark::DoNotOptimize(pixels[0]);
        }
    state.SetBytesProcessed(int64_t(state.iterations()) * kSide * kSide * kChannels);
}

BENCHMARK(BM_BotDecode)->ArgName("image")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZlibInflate)->ArgNames({"image", "tile"})->ArgsProduct({{0, 1}, {32, 64}})->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    initializeTrusted(argc, argv);
    TtrustedReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nDecoded MB/s (%dx%d RGB, CPU time, median of interleaved runs):\n", kSide, kSide);
    const char* names[] = {"photo-like", "sharp"};
    for (int kind = 0; kind < 2; ++kind) {
        const std::string arg = "/image:" + std::to_string(kind);
        const std::string bot = "BM_BotDecode" + arg;
        std::printf("  %-10s BOT %s, %.2f bits/pixel\n", names[kind],
                    reporter.figure(bot, "bytes_per_second", 1e-6, "%6.0f").c_str(),
                    8.0 * double(botBlocks(kind).codedBytes) / (double(kSide) * kSide));
        for (int side : {32, 64}) {
            const std::string zip = "BM_ZlibInflate" + arg + "/tile:" + std::to_string(side);
            double z = reporter.median(zip, "bytes_per_second");
            std::printf("  %-10s zlib %dx%d tiles %s, %.2f bits/pixel; BOT/zlib %.2f\n", "", side, side,
                        reporter.figure(zip, "bytes_per_second", 1e-6, "%6.0f").c_str(),
                        8.0 * double(zipTiles(kind, side).codedBytes) / (double(kSide) * kSide),
                        z > 0 ? reporter.median(bot, "bytes_per_second") / z : 0.0);
        }
    }
    std::printf("target: BOT at least 300 MB/s on both images\n");
    reporter.printIdleCores();
    benchmark::Shutdown();
    return 0;
}
