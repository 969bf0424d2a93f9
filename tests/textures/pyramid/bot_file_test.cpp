// BOT files: the layout on disk, conversion and reading back, the header
// checks, the disk rule, and damaged files.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "framework/host/command_engine.h"
#include "pyramid_test_support.h"
#include "support/alloc_counter.h"
#include "support/temp_dir.h"
#include "textures/pyramid/bot_codec.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/pyramid.h"

namespace {

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}
void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}
uint32_t get32(const std::vector<uint8_t>& b, size_t at) {
    return uint32_t(b[at]) | uint32_t(b[at + 1]) << 8 | uint32_t(b[at + 2]) << 16 | uint32_t(b[at + 3]) << 24;
}

bool samePixels(const TpixelMap& a, const TpixelMap& b) {
    return a.width() == b.width() && a.height() == b.height() && a.channels() == b.channels() &&
           std::equal(a.pixels(), a.pixels() + a.byteCount(), b.pixels());
}

// Where the damage loops write their thousands of small files: memory when
// the system has a memory file system, the test folder otherwise.
std::string scratchFile(const TtestTempDir& dir, const char* name) {
    if (std::filesystem::is_directory("/dev/shm"))
        return "/dev/shm/shadenet-" + std::to_string(::getpid()) + "-" + name;
    return dir.file(name);
}

}  // namespace

TEST(BotFile, LayoutHasTheHeaderIndexAndBlocksInOrder) {
    TtestTempDir dir;
    auto map = photoLikeImage(70, 45, 3, 2);  // edge blocks of 6 and 13 pixels
    botPyramid(map, dir.file("a.bot"), true);
    auto bytes = readFile(dir.file("a.bot"));
    ASSERT_GE(bytes.size(), 14u);
    // Header.
    EXPECT_EQ(bytes[0] | bytes[1] << 8, 0x5455);
    EXPECT_EQ(bytes[2] | bytes[3] << 8, 70);
    EXPECT_EQ(bytes[4] | bytes[5] << 8, 45);
    EXPECT_EQ(bytes[6], 7);  // 128 >= 70
    EXPECT_EQ(bytes[7], 3);
    EXPECT_EQ(bytes[8] | bytes[9] << 8, 0x5455);
    EXPECT_EQ(bytes[10], 1);
    EXPECT_EQ(bytes[11], 0);
    EXPECT_EQ(bytes[12] | bytes[13] << 8, 0x5455);
    // Levels 0..6 hold 1+1+1+1+1+1+4 blocks; the 70x45 top 3x2 blocks.
    const size_t n = 10 + 6;
    EXPECT_EQ(get32(bytes, 14), 14 + 4 * (n + 1));
    EXPECT_EQ(get32(bytes, 14 + 4 * n), bytes.size());
    // The last block is the bottom-right edge block, 6x13, from the image's bottom rows.
    uint32_t first = get32(bytes, 14 + 4 * (n - 1)), end = get32(bytes, 14 + 4 * n);
    std::vector<uint8_t> block(6 * 13 * 3);
    ASSERT_EQ(TbotCodec::decodeBlock(bytes.data() + first, int(end - first), 6, 13, 3, block.data()), nullptr);
    for (int y = 0; y < 13; ++y)
        for (int x = 0; x < 6; ++x)
            for (int c = 0; c < 3; ++c) ASSERT_EQ(block[(size_t(y) * 6 + x) * 3 + c], map.getPixel(64 + x, 32 + y, c));
}

TEST(BotFile, EveryLevelRoundTripsBitExactForNoiseAndPhotographs) {
    TtestTempDir dir;
    struct Tcase {
        TpixelMap map;
        const char* name;
    } cases[] = {
        {noiseImage(1, 1, 3, 1), "1x1"},
        {noiseImage(33, 32, 1, 2), "noise 33x32 grey"},
        {noiseImage(130, 90, 4, 3), "noise 130x90 rgba"},
        {photoLikeImage(512, 512, 3, 4), "photo 512 square"},
        {photoLikeImage(300, 200, 4, 5), "photo 300x200 rgba"},
        {photoLikeImage(2000, 100, 3, 6), "stretched 2000x100"},
    };
    for (auto& c : cases) {
        std::string path = dir.file("r.bot");
        TpyramidNonSwatch p("id", "src.png", c.map.width(), c.map.height(), c.map.channels(), 1, false);
        ASSERT_TRUE(p.buildPyramidFromPixelMap(c.map)) << c.name;
        auto before = levelsOf(p);
        Tstring out(path);
        ASSERT_TRUE(p.remapPyramidToBlocks(&out, true)) << c.name;
        // The converted pyramid itself, and the file opened afresh.
        std::unique_ptr<Tpyramid> opened(Tpyramid::openBOT(Tstring(path), false, "again"));
        ASSERT_TRUE(opened) << c.name;
        auto after = levelsOf(p), reopened = levelsOf(*opened);
        for (size_t l = 0; l < before.size(); ++l) {
            EXPECT_TRUE(samePixels(before[l], after[l])) << c.name << " level " << l;
            EXPECT_TRUE(samePixels(before[l], reopened[l])) << c.name << " level " << l;
        }
        // Texels through the block cache equal the memory pyramid's.
        TfileTextureCache cache;
        for (int l = 0; l <= p.getMaxLevel(); ++l) {
            const TpixelMap& m = before[size_t(l)];
            for (int y = 0; y < m.height(); y += 1 + m.height() / 40)
                for (int x = 0; x < m.width(); x += 1 + m.width() / 40) {
                    const uint8_t* t = opened->texel(cache, l, x, y);
                    for (int k = 0; k < m.channels(); ++k)
                        ASSERT_EQ(t[k], m.getPixel(x, m.height() - 1 - y, k)) << c.name << " " << l << " " << x << "," << y;
                }
        }
    }
}

TEST(BotFile, HeaderMagicRules) {
    TtestTempDir dir;
    botPyramid(noiseImage(20, 20, 3, 1), dir.file("m.bot"));
    auto good = readFile(dir.file("m.bot"));
    struct Tcase {
        uint16_t m1, m2, m3;
        bool accepted;
    } cases[] = {
        {0x5455, 0x5455, 0x5455, true},
        {0x5555, 0x5555, 0x5555, true},
        {0x5455, 0x5455, 0x5555, false},
        {0x5555, 0x5555, 0x5455, false},
        {0x5455, 0x5555, 0x5455, false},
        {0x1234, 0x1234, 0x1234, false},
    };
    for (const Tcase& c : cases) {
        auto bytes = good;
        bytes[0] = uint8_t(c.m1), bytes[1] = uint8_t(c.m1 >> 8);
        bytes[8] = uint8_t(c.m2), bytes[9] = uint8_t(c.m2 >> 8);
        bytes[12] = uint8_t(c.m3), bytes[13] = uint8_t(c.m3 >> 8);
        writeFile(dir.file("x.bot"), bytes);
        botHeader h;
        int fd = -1;
        EXPECT_EQ(Tpyramid::IsItABOTFile(Tstring(dir.file("x.bot")), &fd, &h), c.accepted) << std::hex << c.m1;
        if (c.accepted) {
            EXPECT_GE(fd, 0);
            EXPECT_EQ(h.width, 20);
            ::close(fd);
        }
        std::unique_ptr<Tpyramid> p(Tpyramid::openBOT(Tstring(dir.file("x.bot")), true, "s"));
        EXPECT_EQ(p != nullptr, c.accepted);
        if (p) {
            EXPECT_TRUE(p->isSwatch());
            EXPECT_TRUE(p->isBOTfile());
            TpixelMap top;
            EXPECT_TRUE(p->extractLevel(p->getMaxLevel(), top));
        }
    }
    EXPECT_FALSE(Tpyramid::IsItABOTFile(Tstring(dir.file("missing.bot")), nullptr, nullptr));
}

TEST(BotFile, DiskRuleKeepsTheTextureInMemoryWhenSpaceIsShort) {
    TtestTempDir dir;
    auto map = noiseImage(64, 64, 3, 8);
    static uint64_t pretendFree = 0;
    TpyramidNonSwatch::fsTempDirectory = Tstring(dir.path().string());
    auto saved = TpyramidNonSwatch::fsDiskFree;
    TpyramidNonSwatch::fsDiskFree = [](const char*, uint64_t& bytes) {
        bytes = pretendFree;
        return true;
    };
    TfileTextureCache& cache = TfileTextureCache::threadCache();
    const int savedLimit = cache.limitMB();
    const uint64_t mb = 1 << 20;
    const uint64_t need = 3 * (64 * 64 + Tpyramid::fsSpaceRequired[6]);
    struct Tcase {
        int limit;
        uint64_t free;
        bool written;
    } cases[] = {
        {-50, 40 * mb, false},
        {-50, 50 * mb + need - 1, false},
        {-50, 50 * mb + need, true},
        {-1, 2 * mb, true},
        {0, 1000 * mb, false},  // a limit of 0 MB allows nothing
        {1, 0, true},           // a positive limit ignores the disk
    };
    for (const Tcase& c : cases) {
        pretendFree = c.free;
        cache.setLimitMB(c.limit);
        TpyramidNonSwatch p("id", "tex.png", 64, 64, 3, 1, false);
        ASSERT_TRUE(p.buildPyramidFromPixelMap(map));
        TcommandCapture capture;
        const uint64_t usedBefore = Tpyramid::fsCacheBytesUsed;
        EXPECT_EQ(p.remapPyramidToBlocks(nullptr, false), c.written) << c.limit << " " << c.free;
        EXPECT_EQ(p.isBOTfile(), c.written);
        if (!c.written) {
            ASSERT_EQ(capture.messages().size(), 2u);  // "producing BOT file for", then the refusal
            EXPECT_EQ(capture.messages()[1].text, "Warning: Not enough disk space or limit exceeded for caching texture tex.png");
            EXPECT_NE(p.getPtrToLevel(6), nullptr);  // still in memory, still readable
            TfileTextureWrapper w;
            T3Float colour;
            float alpha;
            p.getMapColor(w, 0.5f, 0.5f, colour, true, alpha, 0);
            EXPECT_EQ(Tpyramid::fsCacheBytesUsed, usedBefore);
        } else {
            EXPECT_EQ(Tpyramid::fsCacheBytesUsed, usedBefore + p.fileBytes());
        }
    }
    // A positive limit counts the bytes of cache files already made.
    cache.setLimitMB(1);
    {
        TpyramidNonSwatch big("id", "big.png", 1024, 1024, 3, 1, false);
        ASSERT_TRUE(big.buildPyramidFromPixelMap(noiseImage(1024, 1024, 3, 9)));
        TcommandCapture capture;
        EXPECT_FALSE(big.remapPyramidToBlocks(nullptr, false));  // 3 MB > 1 MB
    }
    cache.setLimitMB(savedLimit);
    TpyramidNonSwatch::fsDiskFree = saved;
    TpyramidNonSwatch::fsTempDirectory = Tstring();
}

TEST(BotFile, TemporaryCacheFilesAreNamedAfterTheSourceAndRemovedWithThePyramid) {
    TtestTempDir dir;
    TpyramidNonSwatch::fsTempDirectory = Tstring(dir.path().string());
    std::string made;
    {
        TpyramidNonSwatch p("id", "/a:b\\c/tex.v2.png", 40, 40, 3, 1, false);
        ASSERT_TRUE(p.buildPyramidFromPixelMap(noiseImage(40, 40, 3, 3)));
        Tstring name, directory;
        p.getCachePyrFileName(3, name, directory);
        EXPECT_EQ(directory, Tstring(dir.path().string() + "/"));
        char expect[512];
        std::snprintf(expect, sizeof expect, "%s/_a_b_c_tex_v2_png_3_%p", dir.path().string().c_str(),
                      static_cast<void*>(&p));
        EXPECT_EQ(name, Tstring(expect));
        TcommandCapture capture;
        ASSERT_TRUE(p.remapPyramidToBlocks(nullptr, false));
        ASSERT_EQ(capture.messages().size(), 1u);
        EXPECT_EQ(capture.messages()[0].text.rfind("producing BOT file for " + dir.path().string(), 0), 0u);
        made = p.botPath().str();
        EXPECT_TRUE(std::filesystem::exists(made));
        EXPECT_TRUE(p.hasCacheFile());
    }
    EXPECT_FALSE(std::filesystem::exists(made));
    TpyramidNonSwatch::fsTempDirectory = Tstring();
}

TEST(BotFile, ConversionFailuresReportAndLeaveThePyramidInMemory) {
    TpyramidNonSwatch p("id", "tex.png", 40, 40, 3, 1, false);
    ASSERT_TRUE(p.buildPyramidFromPixelMap(noiseImage(40, 40, 3, 3)));
    TcommandCapture capture;
    Tstring out("/nonexistent-folder/x.bot");
    auto saved = TpyramidNonSwatch::fsDiskFree;
    TpyramidNonSwatch::fsDiskFree = [](const char*, uint64_t& bytes) {
        bytes = uint64_t(1) << 40;
        return true;
    };
    EXPECT_FALSE(p.remapPyramidToBlocks(&out, true));
    TpyramidNonSwatch::fsDiskFree = saved;
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages()[0].text, "Warning: Can't open cache file for texture tex.png: No such file or directory");
    EXPECT_FALSE(p.isBOTfile());
    EXPECT_NE(p.getPtrToLevel(p.getMaxLevel()), nullptr);
}

// Every file cut short at each byte, and every byte of a file damaged in
// turn: the reader and the block cache never crash, a cut file always
// fails, and a failure always says so.
TEST(BotFile, TruncatedAndCorruptedFilesNeverCrashTheReaderOrTheCache) {
    TtestTempDir dir;
    botPyramid(photoLikeImage(24, 10, 4, 7), dir.file("c.bot"));
    const auto bytes = readFile(dir.file("c.bot"));
    const std::string bad = scratchFile(dir, "bad.bot");
    std::mt19937 rng(1);
    unsigned failed = 0;
    for (bool cut : {true, false})
        for (size_t at = 0; at < bytes.size(); ++at) {
            auto damaged = bytes;
            if (cut)
                damaged.resize(at);
            else
                damaged[at] ^= uint8_t(1 + rng() % 255);
            writeFile(bad, damaged);
            TcommandCapture capture;
            std::unique_ptr<Tpyramid> p(Tpyramid::openBOT(Tstring(bad), false, "bad"));
            if (!p) continue;  // header or index damaged: not taken
            bool ok = true;
            TfileTextureCache cache;
            unsigned sum = 0;
            for (int l = 0; l <= p->getMaxLevel(); ++l) {
                TpixelMap m;
                ok = p->extractLevel(l, m) && ok;
                // Through the block cache as well: every texel.
                for (int y = 0; y < p->levelHeight(l); ++y)
                    for (int x = 0; x < p->levelWidth(l); ++x) sum += p->texel(cache, l, x, y)[0];
            }
            (void)sum;
            if (cut) {
                EXPECT_FALSE(ok) << "cut to " << at;
                EXPECT_GE(capture.count(TmessageSeverity::kInfo) + capture.count(TmessageSeverity::kError), 1u);
                std::vector<uint32_t> index;
                Tstring why;
                EXPECT_FALSE(p->readBlockIndex(index, why)) << at;
            } else if (!ok) {
                ++failed;
                EXPECT_FALSE(capture.messages().empty()) << at;
            }
        }
    EXPECT_GT(failed, 0u) << "some damaged byte must be caught";
    std::filesystem::remove(bad);
}

TEST(BotFile, LoadBlockWarnsOnceABadBlockAndLeavesTheSlotAlone) {
    TtestTempDir dir;
    botPyramid(noiseImage(64, 64, 3, 5), dir.file("s.bot"));
    const auto good = readFile(dir.file("s.bot"));
    // Damage that comes after the file was opened (and checked): block 1 of
    // the file (level 1) claims 8189 bytes, past the limit.
    auto bytes = good;
    const uint32_t first = get32(bytes, 14 + 4);
    const uint32_t fake = first + 8189;
    for (int i = 0; i < 4; ++i) bytes[14 + 8 + size_t(i)] = uint8_t(fake >> (8 * i));
    std::unique_ptr<Tpyramid> p(Tpyramid::openBOT(Tstring(dir.file("s.bot")), false, "big"));
    ASSERT_TRUE(p);
    writeFile(dir.file("s.bot"), bytes);
    TcommandCapture capture;
    TfileTextureCache cache;
    uint8_t slot[TfileTextureCache::kSlotBytes];
    std::memset(slot, 0x5A, sizeof slot);
    EXPECT_FALSE(p->loadBlock(cache, slot, 0, 1, 2, 2, 3));
    // The render goes on past it: a warning, not an error, and only the
    // first time, however many lookups meet the block.
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages()[0].text, "Warning: Corrupted data found in block ordered texture file " + dir.file("s.bot") +
                                              ": block size out of range; parts of the texture may show wrong");
    EXPECT_FALSE(p->loadBlock(cache, slot, 0, 1, 2, 2, 3));
    EXPECT_EQ(capture.messages().size(), 1u);
    for (uint8_t b : slot) ASSERT_EQ(b, 0x5A);
    // A whole level taken out is the work itself failing: an error.
    TpixelMap level;
    EXPECT_FALSE(p->extractLevel(1, level));
    ASSERT_EQ(capture.messages().size(), 2u);
    EXPECT_EQ(capture.messages()[1].text.substr(0, 7), "Error: ");
    // A block offset outside the file is a seek error, through the catalogue.
    writeFile(dir.file("far.bot"), good);
    std::unique_ptr<Tpyramid> q(Tpyramid::openBOT(Tstring(dir.file("far.bot")), false, "far"));
    ASSERT_TRUE(q);
    for (int i = 0; i < 4; ++i) bytes[14 + 4 + size_t(i)] = 0xFF;
    writeFile(dir.file("far.bot"), bytes);
    EXPECT_FALSE(q->loadBlock(cache, slot, 0, 1, 2, 2, 3));
    ASSERT_EQ(capture.messages().size(), 3u);
    EXPECT_EQ(capture.messages()[2].key, "s_TfileTextureStrings.rBOTseekError");
    EXPECT_EQ(capture.messages()[2].severity, TmessageSeverity::kWarning);
}

TEST(BotFile, ManyThreadsReadingOneFileSeeTheSameTexels) {
    TtestTempDir dir;
    auto map = photoLikeImage(256, 192, 3, 12);
    std::vector<TpixelMap> levels;
    std::unique_ptr<Tpyramid> p = botPyramid(map, dir.file("mt.bot"), false, &levels);
    ASSERT_TRUE(p);
    const int threads = 8;
    std::vector<uint64_t> mismatches(threads, 0), reads(threads, 0);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&, t] {
            std::mt19937 rng{unsigned(t)};
            TfileTextureCache& cache = TfileTextureCache::threadCache();
            for (int i = 0; i < 40000; ++i) {
                int l = int(rng() % (p->getMaxLevel() + 1));
                const TpixelMap& m = levels[size_t(l)];
                int x = int(rng() % unsigned(m.width())), y = int(rng() % unsigned(m.height()));
                const uint8_t* got = p->texel(cache, l, x, y);
                for (int c = 0; c < 3; ++c) mismatches[size_t(t)] += got[c] != m.getPixel(x, m.height() - 1 - y, c);
                ++reads[size_t(t)];
            }
        });
    for (auto& th : pool) th.join();
    for (int t = 0; t < threads; ++t) {
        EXPECT_EQ(mismatches[size_t(t)], 0u) << t;
        EXPECT_EQ(reads[size_t(t)], 40000u);
    }
}
