// Cost of naming an image: the first call (which builds the expressions)
// against every call after it, then the steady cost of each operation.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>

#include "framework/host/command_engine.h"
#include "settings/image_name.h"
#include "settings/render_globals_data.h"

namespace {

using Clock = std::chrono::steady_clock;

Tstring expandOnce(const char* pattern, int frame) {
    return TimageName::relativeFileName(pattern, frame, true, "", "shot", "iff", "persp", "fg", "diffuse", "", "v1",
                                        false);
}

double microseconds(Clock::duration d) { return std::chrono::duration<double, std::micro>(d).count(); }

void BM_ExpandFramePattern(benchmark::State& state) {
    int frame = 0;
    for (auto _ : state) benchmark::DoNotOptimize(expandOnce("%/l%/c%s.%4n.%e", ++frame));
}
BENCHMARK(BM_ExpandFramePattern);

void BM_ExpandTwoFrameTokensAndTags(benchmark::State& state) {
    int frame = 0;
    for (auto _ : state) benchmark::DoNotOptimize(expandOnce("<Scene>/<Camera>/%s%_l.#.%e.%/2n", ++frame));
}
BENCHMARK(BM_ExpandTwoFrameTokensAndTags);

void BM_ExpandWithoutFrameToken(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(expandOnce("%s_%c.%e", 1));
}
BENCHMARK(BM_ExpandWithoutFrameToken);

void BM_FixPattern(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(TimageName::fixPatternQuietly("%s%.e", true, true, true));
}
BENCHMARK(BM_FixPattern);

void BM_GetImageName(benchmark::State& state) {
    TcommonRenderGlobalsData d;
    d.setNamingConvention("name.#.ext");
    d.setImageName("%s");
    d.setAnimated(true);
    TrenderLayerState layer{"fg", false, {}};
    double t = 0;
    for (auto _ : state) benchmark::DoNotOptimize(d.getImageName(kPathImages, TanimTime(++t), "persp", "", &layer, "shot"));
}
BENCHMARK(BM_GetImageName);

void BM_GetAllImageNames12(benchmark::State& state) {
    TcommonRenderGlobalsData d;
    d.setNamingConvention("name.#.ext");
    d.setImageName("%s");
    d.setAnimated(true);
    d.setRenderableCameras({"left", "right", "top"});
    TrenderLayerState layer{"fg", false, {"diffuse", "specular"}};
    d.initializeImageNameSettings(&layer, true);
    const TstringArray passes{"diffuse", "specular"};
    const TstringArray fields{"odd", "even"};
    TstringArray names;
    for (auto _ : state) {
        d.getAllImageNames(kPathImages, TanimTime(1), "", &layer, "shot", &passes, &fields, names);
        benchmark::DoNotOptimize(names.length());
    }
    state.SetItemsProcessed(state.iterations() * 12);
}
BENCHMARK(BM_GetAllImageNames12);

}  // namespace

int main(int argc, char** argv) {
    TcommandCapture quiet;

    // The very first expansion of the process pays for building the
    // expressions; it can be measured only once.
    const auto start = Clock::now();
    benchmark::DoNotOptimize(expandOnce("%/l%/c%s.%4n.%e", 1));
    const double first = microseconds(Clock::now() - start);

    constexpr int kWarmCalls = 20000;
    const auto warmStart = Clock::now();
    for (int i = 0; i < kWarmCalls; ++i) benchmark::DoNotOptimize(expandOnce("%/l%/c%s.%4n.%e", i));
    const double warm = microseconds(Clock::now() - warmStart) / kWarmCalls;

    std::printf("pattern \"%%/l%%/c%%s.%%4n.%%e\"\n");
    std::printf("  first call        %9.2f us\n", first);
    std::printf("  after first call  %9.2f us  (mean of %d)\n", warm, kWarmCalls);
    std::printf("  first / after     %9.1f x\n\n", first / warm);

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
