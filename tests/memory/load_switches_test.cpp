// Switches read once at load, seen on and off by running single tests of this
// program in a child process with the variable set. The DISABLED_ tests are
// the children's bodies; a normal run skips them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "cache_tile.h"
#include "framework/host/command_engine.h"
#include "memory/global_render_cache.h"
#include "memory/render_cache.h"
#include "memory/render_swap.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

namespace {
const char* childPath() { return std::getenv("SHADENET_CHILD_PATH"); }

// LoadSwitchChild.DISABLED_`body` in a fresh process of this program.
TprogramRun runChild(const std::string& body, const std::vector<std::pair<std::string, std::string>>& environment) {
    return runProgram("/proc/self/exe", {"--gtest_filter=LoadSwitchChild.DISABLED_" + body, "--gtest_also_run_disabled_tests"},
                      {}, environment);
}

// The filter matched exactly one test and it passed.
void expectRan(const TprogramRun& run) {
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("[  PASSED  ] 1 test."), std::string::npos) << run.out;
}

unsigned countOf(const std::string& text, const std::string& needle) {
    unsigned n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + needle.size())) ++n;
    return n;
}
}  // namespace

// ---- GROW_RENDER_CACHE and TRACE_RENDER_CACHE

TEST(LoadSwitchChild, DISABLED_CapStaysWithoutGrowth) {
    ASSERT_FALSE(TrenderCache::sGrowEnabled());
    TrenderCache cache(1000, TmallocAllocator::mallocAllocator());
    TrenderCache quiet(TmallocAllocator::mallocAllocator(), 1000, 65536, 4294967295u);
    void* p = cache.allocate(2000);  // empty list, over the cap: still served
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(cache.maximumMemorySize(), 1000u);
    // Every later allocation over the cap sweeps the whole list first.
    TcacheTile a(cache, 64), b(cache, 64);
    a.touch(), b.touch();
    void* q = cache.allocate(4000);
    EXPECT_EQ(a.leaves + b.leaves, 2);
    EXPECT_EQ(cache.idleCount(), 0u);
    EXPECT_EQ(cache.maximumMemorySize(), 1000u);
    cache.deallocate(p);
    cache.deallocate(q);
}

TEST(LoadSwitches, GrowthOffKeepsTheCapAndTracesOnce) {
    const TprogramRun run = runChild("CapStaysWithoutGrowth",
                                       {{"GROW_RENDER_CACHE", "0"},
                                        {"TRACE_RENDER_CACHE", "1"},
                                        {"TOVI_RENDERER_GLOBALIZE_RENDER_CACHE", "0"}});
    expectRan(run);
    // One line for the one cache made with the first constructor.
    EXPECT_EQ(countOf(run.err, "TrenderCache: GROW_RENDER_CACHE disabled\n"), 1u) << run.err;
    // Without the trace switch there is no line.
    const TprogramRun quiet = runChild("CapStaysWithoutGrowth",
                                         {{"GROW_RENDER_CACHE", "0"}, {"TOVI_RENDERER_GLOBALIZE_RENDER_CACHE", "0"}});
    expectRan(quiet);
    EXPECT_EQ(countOf(quiet.err, "GROW_RENDER_CACHE"), 0u) << quiet.err;
}

// ---- LIMIT_CACHE_SIZE

TEST(LoadSwitchChild, DISABLED_IdleLimitFromTheEnvironment) {
    TrenderCache cache(4294967295u, TmallocAllocator::mallocAllocator());
    ASSERT_EQ(cache.idleLimit(), 2u);
    TcacheTile a(cache, 64), b(cache, 64), c(cache, 64);
    a.touch();
    EXPECT_EQ(a.leaves, 0);
    b.touch();  // the second idle entry evicts the oldest
    EXPECT_EQ(a.leaves, 1);
    c.touch();
    EXPECT_EQ(b.leaves, 1);
    EXPECT_EQ(cache.idleCount(), 1u);
}

TEST(LoadSwitches, IdleLimitComesFromLimitCacheSize) {
    expectRan(runChild("IdleLimitFromTheEnvironment", {{"LIMIT_CACHE_SIZE", "2"}}));
    // And the default is no limit.
    EXPECT_EQ(TrenderCache(1, TmallocAllocator::mallocAllocator()).idleLimit(), size_t(4294967295u));
}

// ---- TOVI_RENDERER_GLOBALIZE_RENDER_CACHE and TOVI_RENDERER_TRACE_GLOBAL_CACHE

TEST(LoadSwitchChild, DISABLED_GlobalCacheStartsSmallAndGrows) {
    TrenderCache* global = theGlobalRenderCache();
    ASSERT_NE(global, nullptr);
    std::unique_ptr<TrenderCache> own;
    EXPECT_EQ(globalOrPrivateRenderCache(own), global);  // the fallback is the global cache
    EXPECT_EQ(own, nullptr);
    EXPECT_EQ(global->maximumMemorySize(), 16384u);
    void* p = global->allocate(20000);
    EXPECT_EQ(global->maximumMemorySize(), 16384u + 20000u + TrenderCache::kGrowthMargin);
    EXPECT_EQ(theGlobalRenderCache(1000), global);  // only ever rises
    EXPECT_EQ(global->maximumMemorySize(), 16384u + 20000u + TrenderCache::kGrowthMargin);
    EXPECT_EQ(theGlobalRenderCache(1u << 30), global);
    EXPECT_EQ(global->maximumMemorySize(), 1u << 30);
    global->deallocate(p);
}

TEST(LoadSwitches, GlobalCacheOnWithTrace) {
    const TprogramRun run = runChild("GlobalCacheStartsSmallAndGrows",
                                       {{"TOVI_RENDERER_TRACE_GLOBAL_CACHE", "1"}});
    expectRan(run);
    const std::string expected[] = {
        "Warning TOVI_RENDERER_GLOBALIZE_RENDER_CACHE is enabled.\n starting with 16384 bytes of RAM \n",
        // 20000 bytes in use from one 2 MiB page; printed before each cap change.
        "Warning: render cache footPrint 2097152 bytes \nWarning: render cache used 20000 bytes \n"
        "Warning: render cache free 2077152 bytes \n",
        "Warning: setting global cache maximum memory size to 298528\n",
        "Warning: setting global cache maximum memory size to 1073741824\n",
    };
    for (const std::string& line : expected) EXPECT_NE(run.err.find(line), std::string::npos) << line << run.err;
    EXPECT_EQ(countOf(run.err, "Warning: render cache footPrint"), 2u) << run.err;
    // Without trace the same run is silent.
    const TprogramRun quiet = runChild("GlobalCacheStartsSmallAndGrows", {});
    expectRan(quiet);
    EXPECT_EQ(countOf(quiet.err, "Warning"), 0u) << quiet.err;
}

TEST(LoadSwitchChild, DISABLED_NoGlobalCache) {
    EXPECT_EQ(theGlobalRenderCache(), nullptr);
    EXPECT_EQ(theGlobalRenderCache(1u << 20), nullptr);
    displayGlobalRenderCacheFootPrint();
    std::unique_ptr<TrenderCache> own;
    TrenderCache* fallback = globalOrPrivateRenderCache(own);
    ASSERT_NE(fallback, nullptr);
    EXPECT_EQ(fallback, own.get());
    EXPECT_EQ(fallback->maximumMemorySize(), 0x1000000u);
    EXPECT_EQ(globalOrPrivateRenderCache(own), fallback);  // made once
}

TEST(LoadSwitches, GlobalCacheOff) {
    const TprogramRun run = runChild("NoGlobalCache",
                                       {{"TOVI_RENDERER_GLOBALIZE_RENDER_CACHE", "0"},
                                        {"TOVI_RENDERER_TRACE_GLOBAL_CACHE", "1"}});
    expectRan(run);
    EXPECT_EQ(countOf(run.err, "Warning"), 0u) << run.err;
}

// ---- TOVI_SWAP_LIMIT and TOVI_TRACE_SWAP

TEST(LoadSwitchChild, DISABLED_SwapLimitZero) {
    TrenderSwap swap(childPath());
    ASSERT_NE(swap.file(), nullptr);
    EXPECT_EQ(swap.writeLimit(), 0u);
    TcommandCapture capture;
    unsigned char byte = 1;
    EXPECT_EQ(swap.append(&byte, 1), -1);
    EXPECT_EQ(swap.append(&byte, 0), -1);  // even nothing reaches a limit of 0
    EXPECT_EQ(swap.gotoEnd(), 12u);
    EXPECT_EQ(capture.countKey("s_TrenderSwapStrings.rSwapLimitErrorStr"), 1u);
    EXPECT_EQ(capture.messages().size(), 1u);
}

TEST(LoadSwitches, SwapLimitZeroFailsEveryAppendWithOneWarning) {
    TtestTempDir dir;
    const std::string path = dir.file("s");
    const TprogramRun run = runChild("SwapLimitZero", {{"TOVI_SWAP_LIMIT", "0"},
                                                                                  {"TOVI_TRACE_SWAP", "1"},
                                                                                  {"SHADENET_CHILD_PATH", path}});
    expectRan(run);
    // The constructor's seek to 0 failed silently: no "failed" line.
    const std::string expected = "TrenderSwap:: opening swap " + path +
                                 "\nTrenderSwap: using IFF file\nTrenderSwap: setting write limit to 0\n"
                                 "TrenderSwap:setWritePosition 0\n";
    EXPECT_NE(run.err.find(expected), std::string::npos) << run.err;
    EXPECT_EQ(countOf(run.err, "failed setWritePosition"), 0u);
    EXPECT_EQ(countOf(run.err, "TrenderSwap: closing swap file\n"), 1u);
    EXPECT_NE(access(path.c_str(), F_OK), 0);
}

// ---- Temporary files at process exit

TEST(LoadSwitchChild, DISABLED_ExitWithASwapFileOpen) {
    static TrenderSwap* swap = new TrenderSwap(childPath());
    unsigned char bytes[100] = {};
    ASSERT_EQ(swap->append(bytes, 100), 0);
    ASSERT_EQ(access(childPath(), F_OK), 0);
    std::exit(3);  // as a command line does on an error
}

TEST(LoadSwitches, SwapFileIsRemovedWhenTheProcessExits) {
    TtestTempDir dir;
    const std::string path = dir.file("s");
    const TprogramRun run = runChild("ExitWithASwapFileOpen", {{"SHADENET_CHILD_PATH", path}});
    EXPECT_EQ(run.status, 3) << run.out << run.err;
    EXPECT_NE(run.out.find("[ RUN      ] LoadSwitchChild.DISABLED_ExitWithASwapFileOpen"), std::string::npos);
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    EXPECT_EQ(countOf(run.err, "TrenderSwap"), 0u) << "traced without TOVI_TRACE_SWAP: " << run.err;
}

// ---- Write errors (a file size limit on the child)

TEST(LoadSwitchChild, DISABLED_WriteErrorsWarnOnce) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4096, 4096};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    TrenderSwap swap(childPath());
    ASSERT_NE(swap.file(), nullptr);
    TcommandCapture capture;
    std::vector<unsigned char> block(65536, 7);
    EXPECT_EQ(swap.append(block.data(), unsigned(block.size())), -1);
    EXPECT_EQ(swap.append(block.data(), unsigned(block.size())), -1);
    EXPECT_EQ(capture.countKey("s_TrenderSwapStrings.rSwapWriteErrorStr"), 1u);
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_NE(capture.messages()[0].text.find(childPath()), std::string::npos);
    int status = 0;
    swap.verifyWriteStatus(status);  // the stream's error flag stays set
    EXPECT_EQ(status, -1);
    EXPECT_EQ(capture.messages().size(), 1u);
}

TEST(LoadSwitches, WriteErrorsWarnOnce) {
    TtestTempDir dir;
    expectRan(runChild("WriteErrorsWarnOnce", {{"SHADENET_CHILD_PATH", dir.file("s")}}));
}
