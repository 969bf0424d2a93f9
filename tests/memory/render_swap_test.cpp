// The swap file: round trips by position, the write limit at its boundary,
// a dead object, reads past the end, warnings shown once, clean-up.
#include "memory/render_swap.h"

#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <numeric>
#include <thread>
#include <vector>

#include "framework/host/command_engine.h"
#include "framework/host/tmp_file_cache.h"
#include "support/temp_dir.h"

namespace {
constexpr const char* kOpenKey = "s_TrenderSwapStrings.rSwapOpenErrorStr";
constexpr const char* kLimitKey = "s_TrenderSwapStrings.rSwapLimitErrorStr";
constexpr const char* kWriteKey = "s_TrenderSwapStrings.rSwapWriteErrorStr";
constexpr unsigned kHeader = 12;  // FOR4, length, "Swap"

std::vector<unsigned char> pattern(unsigned size, unsigned seed) {
    std::vector<unsigned char> v(size);
    for (unsigned i = 0; i < size; ++i) v[i] = (unsigned char)((i * 31 + seed * 7 + (i >> 8)) & 0xFF);
    return v;
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// A swap file in a folder of its own.
class RenderSwap : public testing::Test {
protected:
    TtestTempDir dir;
    const std::string path = dir.file("s");
    TrenderSwap swap{path.c_str()};
};
}  // namespace

TEST_F(RenderSwap, BlocksReadBackByPositionAfterTheHeader) {
    ASSERT_NE(swap.file(), nullptr);
    EXPECT_EQ(swap.gotoEnd(), kHeader);

    const unsigned sizes[] = {1, 7, 4096, 0, 100000, 3};
    std::vector<unsigned> positions;
    for (unsigned i = 0; i < std::size(sizes); ++i) {
        positions.push_back(swap.gotoEnd());
        auto block = pattern(sizes[i], i);
        ASSERT_EQ(swap.append(block.data(), sizes[i]), 0) << i;
    }
    // Blocks lie end to end, without headers or padding.
    for (unsigned i = 1; i < positions.size(); ++i) EXPECT_EQ(positions[i], positions[i - 1] + sizes[i - 1]);
    EXPECT_EQ(swap.flushOutput(), 0);
    // Read back in reverse order, interleaved with appends that go to the end
    // whatever the write position says.
    ASSERT_EQ(swap.setWritePosition(kHeader), 0);
    unsigned position = 0;
    ASSERT_EQ(swap.getWritePosition(position), 0);
    EXPECT_EQ(position, kHeader);
    for (unsigned i = unsigned(std::size(sizes)); i-- > 0;) {
        std::vector<unsigned char> back(sizes[i] + 1);
        ASSERT_EQ(swap.read(back.data(), sizes[i], positions[i]), 0) << i;
        back.resize(sizes[i]);
        EXPECT_EQ(back, pattern(sizes[i], i)) << i;
        unsigned char tail = 0xEE;
        EXPECT_EQ(swap.append(&tail, 1), 0);
    }
    EXPECT_EQ(swap.gotoEnd(), positions.back() + sizes[std::size(sizes) - 1] + std::size(sizes));
    unsigned char header[kHeader];
    ASSERT_EQ(swap.read(header, kHeader, 0), 0);
    EXPECT_EQ(std::memcmp(header, "FOR4\0\0\0\0Swap", kHeader), 0);
}

// The limit is exclusive for appends and write positions alike; reading is
// not bounded by it.
TEST_F(RenderSwap, ALimitRefusesBlocksAndPositionsReachingItWithOneWarning) {
    swap.setWriteLimit(kHeader + 10);
    TcommandCapture capture;
    unsigned char bytes[64] = {};
    EXPECT_EQ(swap.append(bytes, 16), -1);
    EXPECT_EQ(swap.append(bytes, 4294967295u), -1);  // would wrap under the limit in 32 bits
    EXPECT_EQ(swap.gotoEnd(), kHeader);
    EXPECT_EQ(swap.append(bytes, 9), 0);  // what still fits is written
    EXPECT_EQ(swap.append(bytes, 1), -1);  // ending at the limit is too far
    EXPECT_EQ(swap.gotoEnd(), kHeader + 9);
    // The warning names the file and is shown once.
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages()[0].key, kLimitKey);
    EXPECT_EQ(capture.messages()[0].severity, TmessageSeverity::kWarning);
    EXPECT_NE(capture.messages()[0].text.find(path), std::string::npos);

    swap.setWriteLimit(TrenderSwap::kNoLimit);
    ASSERT_EQ(swap.append(bytes, 64), 0);
    swap.setWriteLimit(50);
    ASSERT_EQ(swap.setWritePosition(20), 0);
    for (unsigned position : {50u, 51u, 4294967295u}) {
        EXPECT_EQ(swap.setWritePosition(position), -1) << position;
        unsigned now = 0;
        ASSERT_EQ(swap.getWritePosition(now), 0);
        EXPECT_EQ(now, 20u) << position;
    }
    EXPECT_EQ(swap.setWritePosition(49), 0);
    EXPECT_EQ(capture.messages().size(), 1u) << "a refused position warns nobody";
    EXPECT_EQ(swap.setReadPosition(60), 0);
    unsigned char back[4];
    EXPECT_EQ(swap.read(back, 4, 60), 0);
}

TEST(RenderSwapLimit, FreeSpaceRuleKeepsFivePercentAndClampsTo32Bits) {
    struct Case {
        uint64_t freeBytes;
        unsigned limit;
    };
    const Case cases[] = {
        {0, 0}, {19, 19}, {20, 19}, {39, 38}, {40, 38}, {100, 95}, {1000000, 950000},
        {4294967295ull, 4294967295u - 214748364u},
        {4294967296ull, 4294967295u - 214748364u},  // high half set: taken as 2^32 - 1
        {1ull << 40, 4294967295u - 214748364u},
    };
    for (const Case& c : cases) EXPECT_EQ(TrenderSwap::sLimitFromFreeBytes(c.freeBytes), c.limit) << c.freeBytes;
}

TEST(RenderSwapLimit, DirectoryOfThePathBoundsTheFile) {
    struct Case {
        const char* path;
        const char* directory;
    };
    const Case cases[] = {
        {"", "."},           {"swap", "."},          {"a/b/swap", "a/b"},  {"/tmp/swap", "/tmp"},
        {"/swap", "/"},      {"dir/", "dir"},        {"C:\\tmp\\swap", "."},  {"a\\b/c", "a\\b"},
    };
    for (const Case& c : cases) EXPECT_EQ(TrenderSwap::sSwapDirectory(c.path), c.directory) << c.path;

    // The limit made at construction is 95% of what the folder had free.
    TtestTempDir dir;
    struct statvfs before, after;
    ASSERT_EQ(statvfs(dir.path().c_str(), &before), 0);
    TrenderSwap swap(dir.file("s").c_str());
    ASSERT_EQ(statvfs(dir.path().c_str(), &after), 0);
    auto bounded = [](const struct statvfs& fs) {
        const double bytes = double(fs.f_bavail) * double(fs.f_frsize);
        return std::min(bytes, 4294967295.0) * 0.95;
    };
    const double low = std::min(bounded(before), bounded(after)) - 1.0 - 65536.0;
    const double high = std::max(bounded(before), bounded(after)) + 1.0 + 65536.0;
    EXPECT_GE(double(swap.writeLimit()), low);
    EXPECT_LE(double(swap.writeLimit()), high);
}

TEST(RenderSwapDead, FailedOpenWarnsOnceAndEveryOperationFails) {
    TtestTempDir dir;
    const std::string path = dir.file("missing-folder/s");
    TcommandCapture capture;
    TrenderSwap swap(path.c_str());
    EXPECT_EQ(swap.file(), nullptr);
    ASSERT_EQ(capture.countKey(kOpenKey), 1u);
    EXPECT_NE(capture.messages()[0].text.find(path), std::string::npos);
    EXPECT_NE(capture.messages()[0].text.find(std::strerror(ENOENT)), std::string::npos);
    // The folder does not exist, so the disk query failed and no limit was set.
    EXPECT_EQ(swap.writeLimit(), TrenderSwap::kNoLimit);

    unsigned char bytes[8] = {};
    unsigned position = 77;
    EXPECT_EQ(swap.setWritePosition(0), -1);
    EXPECT_EQ(swap.getWritePosition(position), -1);
    EXPECT_EQ(swap.getReadPosition(position), -1);
    EXPECT_EQ(position, 77u);
    EXPECT_EQ(swap.setReadPosition(0), -1);
    EXPECT_EQ(swap.append(bytes, 8), -1);
    EXPECT_EQ(swap.read(bytes, 8, 0), -1);
    EXPECT_EQ(swap.flushOutput(), -1);
    EXPECT_EQ(swap.gotoEnd(), 0u);
    // Only the open failure reached the user.
    EXPECT_EQ(capture.messages().size(), 1u);
    EXPECT_FALSE(exists(path));
}

TEST_F(RenderSwap, ReadPastTheEndFailsOnTheShortRead) {
    auto block = pattern(32, 3);
    ASSERT_EQ(swap.append(block.data(), 32), 0);
    const unsigned end = swap.gotoEnd();
    struct Case {
        unsigned position, size;
        int result;
    };
    const Case cases[] = {
        {end - 32, 32, 0}, {end - 5, 5, 0}, {end - 5, 6, -1}, {end, 1, -1}, {end + 100, 10, -1}, {end + 100, 0, 0},
    };
    TcommandCapture capture;
    for (const Case& c : cases) {
        // The seek itself succeeds beyond the end.
        EXPECT_EQ(swap.setReadPosition(c.position), 0) << c.position;
        std::vector<unsigned char> back(c.size + 1);
        EXPECT_EQ(swap.read(back.data(), c.size, c.position), c.result) << c.position << "+" << c.size;
    }
    EXPECT_TRUE(capture.messages().empty());  // read failures are not the user's business
    // The file is still usable after a short read.
    ASSERT_EQ(swap.append(block.data(), 32), 0);
    std::vector<unsigned char> back(32);
    ASSERT_EQ(swap.read(back.data(), 32, end), 0);
    EXPECT_EQ(back, block);
}

TEST(RenderSwapLifetime, FileReplacesAnOldOneAndIsRemovedWithItsLastOwner) {
    TtestTempDir dir;
    const std::string path = dir.file("s");
    std::ofstream(path) << "stale contents that are longer than a header";
    auto registered = [&] {
        auto files = registeredTmpFiles();
        return std::find(files.begin(), files.end(), path) != files.end();
    };
    {
        auto swap = std::make_unique<TrenderSwap>(path.c_str());
        EXPECT_EQ(swap->gotoEnd(), kHeader);
        EXPECT_TRUE(registered());
        TrenderSwap copy(*swap);
        EXPECT_EQ(copy.file(), swap->file());
        unsigned char bytes[10] = {};
        ASSERT_EQ(copy.append(bytes, 10), 0);
        EXPECT_EQ(swap->gotoEnd(), kHeader + 10);
        swap.reset();
        EXPECT_TRUE(exists(path));  // the copy still uses it
        EXPECT_EQ(copy.gotoEnd(), kHeader + 10);
    }
    EXPECT_FALSE(exists(path));
    EXPECT_FALSE(registered());
}

TEST_F(RenderSwap, RecursiveLockIsHandedOverByValue) {
    auto outer = swap.beginMutex();
    auto inner = swap.beginMutex();  // the same thread may nest
    EXPECT_TRUE(inner.ownsLock());
    swap.endMutex(std::move(inner));
    EXPECT_FALSE(inner.ownsLock());
    std::atomic<bool> taken{false};
    std::thread other([&] {
        auto lock = swap.beginMutex();
        taken = true;
    });
    EXPECT_FALSE(taken.load());  // still held once by this thread
    swap.endMutex(std::move(outer));
    other.join();
    EXPECT_TRUE(taken.load());
}
