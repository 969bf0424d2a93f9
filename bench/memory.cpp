// Render memory: allocation below the cap against the plain heap, and a
// lock/unlock of an idle cache entry against an uncontended mutex pair.
// Prints the figures, then the ratios.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "memory/cache.h"
#include "memory/render_cache.h"

namespace {
constexpr unsigned kHuge = 4294967295u;
constexpr int kBatch = 256;

void BM_MallocFree(benchmark::State& state) {
    const size_t size = size_t(state.range(0));
    for (auto _ : state) {
        void* p = std::malloc(size);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}
BENCHMARK(BM_MallocFree)->Arg(64)->Arg(4096);

void BM_RenderCacheAllocateFree(benchmark::State& state) {
    TrenderCache cache(kHuge, TmallocAllocator::mallocAllocator());
    const unsigned size = unsigned(state.range(0));
    for (auto _ : state) {
        void* p = cache.allocate(size);
        benchmark::DoNotOptimize(p);
        cache.deallocate(p);
    }
}
BENCHMARK(BM_RenderCacheAllocateFree)->Arg(64)->Arg(4096);

// A batch of mixed sizes held at once, then released: closer to a frame's use.
void BM_MallocBatch(benchmark::State& state) {
    std::vector<void*> blocks(kBatch);
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) blocks[i] = std::malloc(size_t(32 + (i % 16) * 48));
        benchmark::DoNotOptimize(blocks.data());
        for (void* p : blocks) std::free(p);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_MallocBatch);

void BM_RenderCacheBatch(benchmark::State& state) {
    TrenderCache cache(kHuge, TmallocAllocator::mallocAllocator());
    std::vector<void*> blocks(kBatch);
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) blocks[i] = cache.allocate(unsigned(32 + (i % 16) * 48));
        benchmark::DoNotOptimize(blocks.data());
        for (void* p : blocks) cache.deallocate(p);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_RenderCacheBatch);

void BM_IdleEntryLockUnlock(benchmark::State& state) {
    Tcache cache(kHuge);
    TcacheProxy entry;
    cache.lock(entry);
    cache.unlock(entry);  // idle, in the list
    for (auto _ : state) {
        cache.lock(entry);
        cache.unlock(entry);
    }
    benchmark::DoNotOptimize(entry.state());
}
BENCHMARK(BM_IdleEntryLockUnlock);

void BM_MutexPair(benchmark::State& state) {
    std::mutex m;
    for (auto _ : state) {
        m.lock();
        m.unlock();
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_MutexPair);

class TratioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs)
            if (r.run_type == Run::RT_Iteration) fNanoseconds[r.benchmark_name()] = r.GetAdjustedCPUTime();
        ConsoleReporter::ReportRuns(runs);
    }
    void printRatio(const char* what, const std::string& a, const std::string& b) const {
        auto ia = fNanoseconds.find(a), ib = fNanoseconds.find(b);
        if (ia == fNanoseconds.end() || ib == fNanoseconds.end() || ib->second <= 0) return;
        std::printf("%-58s %8.2f ns / %8.2f ns = %5.2fx\n", what, ia->second, ib->second, ia->second / ib->second);
    }

private:
    std::map<std::string, double> fNanoseconds;
};
}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    TratioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nratios of CPU time (render memory / reference):\n");
    reporter.printRatio("allocate+deallocate 64 B below the cap vs malloc+free", "BM_RenderCacheAllocateFree/64",
                        "BM_MallocFree/64");
    reporter.printRatio("allocate+deallocate 4 KiB below the cap vs malloc+free", "BM_RenderCacheAllocateFree/4096",
                        "BM_MallocFree/4096");
    reporter.printRatio("batch of 256 mixed blocks vs malloc+free", "BM_RenderCacheBatch", "BM_MallocBatch");
    reporter.printRatio("lock+unlock of an idle entry vs one mutex lock+unlock", "BM_IdleEntryLockUnlock",
                        "BM_MutexPair");
    benchmark::Shutdown();
    return 0;
}
