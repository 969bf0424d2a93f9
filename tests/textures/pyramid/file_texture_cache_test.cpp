// The per-thread block cache, the inventory and the image reader.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "framework/host/command_engine.h"
#include "pyramid_test_support.h"
#include "support/alloc_counter.h"
#include "support/program_run.h"
#include "support/temp_dir.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/pyramid.h"
#include "textures/pyramid/pyramid_inventory.h"

namespace {
// Read calls the process has made: block loads counted by what reaches the
// file rather than by the cache's own counters. Reading the count is itself
// a read, which readsSince() takes off. -1 where the system does not say.
int64_t readCalls() {
    std::ifstream io("/proc/self/io");
    std::string key;
    int64_t value;
    while (io >> key >> value)
        if (key == "syscr:") return value;
    return -1;
}
int64_t readsSince(int64_t before) {
    static const int64_t own = [] {
        const int64_t first = readCalls();
        return readCalls() - first;
    }();
    return readCalls() - before - own;
}

// Read calls per block load, measured on loads of blocks nobody holds.
int64_t readsPerLoad(Tpyramid& p, int level) {
    TfileTextureCache fresh;
    readsSince(readCalls());  // measures the reader's own reads first
    const int64_t before = readCalls();
    for (int b = 0; b < 4; ++b) fresh.findBlock(p, level, b);
    const int64_t reads = readsSince(before);
    EXPECT_EQ(reads % 4, 0) << reads;
    return reads / 4;
}

// Set bits of a pyramid's flag words in one thread row.
int flagBits(Tpyramid& p, int row) {
    int n = 0;
    for (int l = 0; l <= p.getMaxLevel(); ++l) n += __builtin_popcount(p.cacheFlagWord(row, l));
    return n;
}
}  // namespace

TEST(BlockCache, LeastRecentlyUsedBlockGoesFirstAndFlagWordsTrackTheSlots) {
    TtestTempDir dir;
    auto p = botPyramid(noiseImage(256, 256, 3, 1), dir.file("a.bot"));  // top: 64 blocks
    ASSERT_TRUE(p);
    TfileTextureCache cache;
    const int top = p->getMaxLevel();
    for (int b = 0; b < 32; ++b) cache.findBlock(*p, top, b);
    EXPECT_EQ(cache.stats().loads, 32u);
    EXPECT_EQ(flagBits(*p, cache.row()), 32);
    cache.findBlock(*p, top, 0);  // 0 becomes the most recent; 1 is now the oldest
    EXPECT_EQ(cache.stats().loads, 32u);
    cache.findBlock(*p, top, 40);  // evicts block 1
    EXPECT_EQ(cache.stats().loads, 33u);
    cache.findBlock(*p, top, 0);
    EXPECT_EQ(cache.stats().loads, 33u) << "block 0 survived";
    cache.findBlock(*p, top, 1);
    EXPECT_EQ(cache.stats().loads, 34u) << "block 1 was the victim";
    EXPECT_EQ(flagBits(*p, cache.row()), 32);
    EXPECT_TRUE(cache.holdsPyramid(p.get()));
    cache.forgetPyramid(p.get());
    EXPECT_FALSE(cache.holdsPyramid(p.get()));
}

TEST(BlockCache, VictimTableGivesEvictedBlocksASecondChance) {
    TtestTempDir dir;
    std::vector<TpixelMap> levels;
    auto p = botPyramid(photoLikeImage(512, 512, 4, 2), dir.file("v.bot"), false, &levels);  // top: 256 blocks
    ASSERT_TRUE(p);
    TfileTextureCache cache;
    cache.setCapacity(8);  // 32 slots and 224 victim entries
    const int top = p->getMaxLevel();
    // A cycle of 40 blocks thrashes 32 slots; the victim table catches it.
    for (int round = 0; round < 5; ++round)
        for (int b = 0; b < 40; ++b) cache.findBlock(*p, top, b);
    EXPECT_GT(cache.stats().victimHits, 0u);
    EXPECT_LT(cache.stats().loads, 5u * 40u);
    // What comes back from the victim table is the right block.
    const TpixelMap& m = levels[size_t(top)];
    for (int y = 0; y < 512; y += 7)
        for (int x = 0; x < 512; x += 11) {
            const uint8_t* t = p->texel(cache, top, x, y);
            for (int c = 0; c < 4; ++c) ASSERT_EQ(t[c], m.getPixel(x, 511 - y, c)) << x << "," << y;
        }
    cache.freeThreadLocalCache();
    EXPECT_EQ(cache.capacity(), 32);
}

TEST(BlockCache, ReadingBlocksAllocatesNothing) {
    TtestTempDir dir;
    auto p = botPyramid(photoLikeImage(300, 300, 3, 3), dir.file("n.bot"));
    ASSERT_TRUE(p);
    TfileTextureCache cache;
    TfileTextureWrapper w;
    w.cache = &cache;
    T3Float colour;
    float alpha;
    p->getMapColor(w, 0.1f, 0.1f, colour, false, alpha, 0.01f);  // anything lazily made is made now
    TallocationCounter counter;
    for (int i = 0; i < 3000; ++i) {
        float u = float((i * 37) % 1000) / 1000, v = float((i * 91) % 1000) / 1000;
        p->getMapColor(w, u, v, colour, false, alpha, 0.0001f + float(i % 50) / 400);
    }
    EXPECT_GT(cache.stats().loads, 32u) << "the loop must miss and load";
    EXPECT_EQ(counter.allocations(), 0u);
}

TEST(PyramidInventory, FindsByIdentifierAndFreesWhatIsNotNeeded) {
    TpyramidInventory::freeAllPyramids();
    auto* a = new TpyramidNonSwatch("a", "a.png", 8, 8, 3, 1, false);
    auto* b = new TpyramidNonSwatch("b", "b.png", 8, 8, 3, 1, false);
    auto* s = new TpyramidSwatch("a", "a.png", 8, 8, 3, 1, false);
    TpyramidInventory::TfindResult r;
    TpyramidInventory::registerPyramid(a, r);
    TpyramidInventory::registerPyramid(b, r);
    TpyramidInventory::registerPyramid(s, r);
    EXPECT_EQ(TpyramidInventory::findPyramid("a", false).pyramid, a);
    EXPECT_EQ(TpyramidInventory::findPyramid("a", true).pyramid, s);
    EXPECT_FALSE(TpyramidInventory::findPyramid("b", true).found());
    a->setNeeded();
    TpyramidInventory::freeUnusedPyramids();  // b goes; a stays with its mark cleared
    EXPECT_EQ(TpyramidInventory::count(false), 1u);
    EXPECT_FALSE(a->needed());
    EXPECT_FALSE(TpyramidInventory::findPyramid("b", false).found());
    delete a;  // unregisters itself
    EXPECT_EQ(TpyramidInventory::count(false), 0u);
    TpyramidInventory::freeAllPyramids();
    EXPECT_EQ(TpyramidInventory::count(true), 0u);
    EXPECT_EQ(Tpyramid::getUniqueIdentifier("tex", false, true, 0.25f), Tstring("tex__%2500%__"));
    EXPECT_EQ(Tpyramid::getUniqueIdentifier("tex", false, false, 0.25f), Tstring("tex"));
}

TEST(PixelMapCache, ReadsEveryFormatAndMapsHighDynamicRange) {
    TtestTempDir dir;
    auto map = photoLikeImage(40, 30, 3, 4);
    struct Tcase {
        const char* name;
        bool exact;
    } cases[] = {{"i.png", true}, {"i.tif", true}, {"i.jpg", false}};
    for (const Tcase& c : cases) {
        Tstring why;
        ASSERT_TRUE(TfilePixelMapCache::saveIMFPixelMap(Tstring(dir.file(c.name)), map, why)) << why.asC();
        TpixelMap back;
        ASSERT_TRUE(TfilePixelMapCache::loadIMFPixelMap(Tstring(dir.file(c.name)), back, why)) << c.name;
        ASSERT_EQ(back.width(), 40);
        ASSERT_EQ(back.channels(), 3);
        double err = 0;
        for (size_t i = 0; i < map.byteCount(); ++i) err = std::max(err, std::fabs(double(back.pixels()[i]) - map.pixels()[i]));
        if (c.exact) EXPECT_EQ(err, 0) << c.name;
        else EXPECT_LT(err, 64) << c.name;
    }
    // Floating-point files: 0.25 at +1 stop is 0.5 -> 128 when clamped.
    for (const char* name : {"f.exr", "f.hdr"}) {
        std::vector<float> px{0.25f, 0.5f, 4.0f, 0.0f, 0.125f, 1.0f};
        auto out = OIIO::ImageOutput::create(dir.file(name));
        ASSERT_TRUE(out);
        OIIO::ImageSpec header(2, 1, 3, OIIO::TypeDesc::FLOAT);
        ASSERT_TRUE(out->open(dir.file(name), header));
        ASSERT_TRUE(out->write_image(OIIO::TypeDesc::FLOAT, px.data()));
        out->close();
        TpixelMap m;
        Tstring why;
        ASSERT_TRUE(TfilePixelMapCache::loadIMFPixelMap(Tstring(dir.file(name)), m, why, ThdrMapping::kClamp, 1.0f));
        EXPECT_NEAR(m.getPixel(0, 0, 0), 128, 1) << name;
        EXPECT_EQ(m.getPixel(0, 0, 2), 255) << name;
        EXPECT_EQ(m.getPixel(1, 0, 0), 0) << name;
        // Linear: the brightest value (4 * 2 = 8) becomes 255.
        ASSERT_TRUE(TfilePixelMapCache::loadIMFPixelMap(Tstring(dir.file(name)), m, why, ThdrMapping::kLinear, 1.0f));
        EXPECT_EQ(m.getPixel(0, 0, 2), 255);
        EXPECT_NEAR(m.getPixel(1, 0, 2), 255.0 * 2 / 8, 1) << name;
        // Exponential: 1 - exp(-0.5) at 0.25 and one stop.
        ASSERT_TRUE(TfilePixelMapCache::loadIMFPixelMap(Tstring(dir.file(name)), m, why, ThdrMapping::kExponential, 1.0f));
        EXPECT_NEAR(m.getPixel(0, 0, 0), 255 * (1 - std::exp(-0.5)), 1) << name;
    }
    // The shared cache reads once and keys frames apart.
    auto& cache = TfilePixelMapCache::theCache();
    cache.clear();
    Tstring why;
    auto first = cache.pixelMap(Tstring(dir.file("i.png")), -1, &why);
    ASSERT_TRUE(first);
    EXPECT_EQ(cache.pixelMap(Tstring(dir.file("i.png"))), first);
    EXPECT_FALSE(cache.pixelMap(Tstring(dir.file("i.png")), 7, &why));
    EXPECT_EQ(TfilePixelMapCache::frameName("seq.png", 7), Tstring("seq.png.7"));
    EXPECT_EQ(cache.size(), 1u);
}

namespace {
// The program with arguments split at spaces (test folders have none), its
// two streams read as one.
TprogramRun run(const std::string& args) {
    std::vector<std::string> words;
    std::istringstream in(args);
    for (std::string word; in >> word;) words.push_back(word);
    TprogramRun r = runProgram(SHADENET_CLI, words);
    r.out += r.err;
    return r;
}
}  // namespace

TEST(BotCommand, ConvertInfoAndExtractRoundTripAFile) {
    TtestTempDir dir;
    auto map = photoLikeImage(200, 120, 4, 6);
    Tstring why;
    ASSERT_TRUE(TfilePixelMapCache::saveIMFPixelMap(Tstring(dir.file("in.png")), map, why));
    auto convert = run("bot convert " + dir.file("in.png") + " -o " + dir.file("out.bot"));
    ASSERT_EQ(convert.status, 0) << convert.out;
    auto info = run("bot info " + dir.file("out.bot"));
    ASSERT_EQ(info.status, 0) << info.out;
    EXPECT_NE(info.out.find("size:            200 x 120"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("maximum level:   8"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("blocks:          " + std::to_string(Tpyramid::fsNumBlocks[8] + 7 * 4)), std::string::npos)
        << info.out;
    EXPECT_NE(info.out.find("compression:"), std::string::npos);
    auto top = run("bot extract " + dir.file("out.bot") + " -o " + dir.file("top.png"));
    ASSERT_EQ(top.status, 0) << top.out;
    TpixelMap back;
    ASSERT_TRUE(TfilePixelMapCache::loadIMFPixelMap(Tstring(dir.file("top.png")), back, why));
    ASSERT_EQ(back.byteCount(), map.byteCount());
    EXPECT_TRUE(std::equal(back.pixels(), back.pixels() + back.byteCount(), map.pixels()));
    auto level3 = run("bot extract " + dir.file("out.bot") + " --level 3 -o " + dir.file("l3.png"));
    ASSERT_EQ(level3.status, 0) << level3.out;
    ASSERT_TRUE(TfilePixelMapCache::loadIMFPixelMap(Tstring(dir.file("l3.png")), back, why));
    EXPECT_EQ(back.width(), 8);
    EXPECT_NE(run("bot extract " + dir.file("out.bot") + " --level 9 -o " + dir.file("x.png")).status, 0);
}

TEST(BotCommand, DamagedFilesGiveTheCorruptionMessageAndAFailingStatus) {
    TtestTempDir dir;
    Tstring why;
    ASSERT_TRUE(TfilePixelMapCache::saveIMFPixelMap(Tstring(dir.file("in.png")), photoLikeImage(64, 64, 3, 1), why));
    ASSERT_EQ(run("bot convert " + dir.file("in.png") + " -o " + dir.file("ok.bot")).status, 0);
    std::ifstream in(dir.file("ok.bot"), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    struct Tcase {
        const char* name;
        std::string content;
        const char* message;
    } cases[] = {
        {"cut-index.bot", bytes.substr(0, 30), "shadenet bot info: error: Corrupted data found in block ordered texture file"},
        {"cut-data.bot", bytes.substr(0, bytes.size() - 10), "shadenet bot info: error: Corrupted data found in block ordered texture file"},
        {"not.bot", "hello, world, this is text", "is not a block ordered texture file"},
    };
    for (const Tcase& c : cases) {
        std::ofstream(dir.file(c.name), std::ios::binary) << c.content;
        auto r = run("bot info " + dir.file(c.name));
        EXPECT_EQ(r.status, 1) << c.name << r.out;
        EXPECT_NE(r.out.find(c.message), std::string::npos) << c.name << ": " << r.out;
    }
    // Damage inside a block shows when the block is decoded: the last
    // block's tree becomes 320 internal nodes, more than a tree may have.
    std::string damaged = bytes;
    const size_t lastEntry = 14 + 4 * (Tpyramid::fsNumBlocks[6] + 4 - 1);
    const uint32_t last = uint32_t(uint8_t(bytes[lastEntry])) | uint32_t(uint8_t(bytes[lastEntry + 1])) << 8 |
                          uint32_t(uint8_t(bytes[lastEntry + 2])) << 16;
    ASSERT_LT(last + 40, bytes.size());
    for (size_t i = last; i < last + 40; ++i) damaged[i] = char(0xFF);
    std::ofstream(dir.file("bad.bot"), std::ios::binary) << damaged;
    auto r = run("bot extract " + dir.file("bad.bot") + " -o " + dir.file("bad.png"));
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_NE(r.out.find("shadenet bot extract: error: Decode error in block ordered texture file"), std::string::npos) << r.out;
}

TEST(BlockCache, RenderSizingFollowsTheTileTheImageWidthAndTheMemory) {
    const uint64_t plenty = uint64_t(16) << 30;
    struct Tcase {
        int threads, tile, width;
        uint64_t memory;
        int log2;
    } cases[] = {
        // Blocks across (a row of tiles, or one tile), times blocks down a
        // tile, a quarter more for the next level, four textures, twice for
        // the victim sets.
        {1, 0, 0, plenty, 5},           // no render: the default
        {1, 4, 0, plenty, 6},           // 2 x 2 blocks: 40 slots
        {2, 16, 0, plenty, 8},          // 4 x 4 blocks: 160 slots
        {2, 64, 0, plenty, 10},         // 10 x 10: 1000 slots
        {1, 1000, 0, plenty, 16},       // as large as a cache goes
        {4, 64, 0, 8u << 20, 5},        // 8 MB over 4 threads: 32 KB each, the floor
        {1, 64, 0, 64u << 20, 8},       // 1 MB for the one thread: 256 slots
        {2, 64, 0, 64u << 20, 7},       // 512 KB each: 128 slots
        {2, 16, 256, plenty, 11},       // 34 x 4 blocks: 1360 slots
        {2, 16, 8, plenty, 8},          // an image narrower than a tile sizes by the tile
        {2, 40, 1920, plenty, 15},      // 242 x 7 blocks: 16940 slots
        {2, 40, 1920, 8ull << 30, 14},  // 64 MB each
    };
    for (const Tcase& c : cases)
        EXPECT_EQ(TfileTextureCache::sCapacityLog2ForRender(c.threads, c.tile, c.memory, c.width), c.log2)
            << c.threads << " threads, tile " << c.tile << ", width " << c.width << ", " << (c.memory >> 20) << " MB";
}

TEST(BlockCache, VictimSetsKeepWhatADirectMappedTableWouldLose) {
    if (readCalls() < 0) GTEST_SKIP() << "no read counts from the system";
    TtestTempDir dir;
    auto p = botPyramid(photoLikeImage(1024, 1024, 3, 8), dir.file("w.bot"));  // 1370 blocks
    ASSERT_TRUE(p);
    const int perLoad = int(readsPerLoad(*p, p->getMaxLevel()));
    ASSERT_GT(perLoad, 0);

    // 32 slots and 32 victim entries. Blocks by their set, from the rule.
    constexpr int kWays = TfileTextureCache::kVictimWays, kSets = 32 / kWays;
    TfileTextureCache probe;
    probe.setCapacity(6);
    ASSERT_EQ(probe.victimSets(), kSets);
    struct Tblock {
        int level, block;
    };
    std::vector<std::vector<Tblock>> bySet(kSets);
    for (int level = 0; level <= p->getMaxLevel(); ++level)
        for (int b = 0; b < p->levelBlockCount(level); ++b)
            bySet[size_t(probe.victimSet(*p, level, b))].push_back({level, b});
    // Neighbours in a level go to different sets.
    const int top = p->getMaxLevel();
    for (int b = 0; b < 16; ++b) EXPECT_NE(probe.victimSet(*p, top, b), probe.victimSet(*p, top, b + 1)) << b;

    // A cycle through more blocks than the 32 slots keeps the ones beyond
    // them in the victim table: each access swaps one in and one out. All
    // in one set, `kWays` in flight fit (a direct-mapped table would reload
    // every access from two on); one more and LRU within the set loses
    // each block just before it is wanted. Cycles that take the sets in
    // turn keep up to every entry busy without a reload.
    auto oneSet = [&](int count) { return std::vector<Tblock>(bySet[3].begin(), bySet[3].begin() + count); };
    auto inTurn = [&](int count) {
        std::vector<Tblock> cycle;
        for (int i = 0; i < count; ++i) cycle.push_back(bySet[size_t(i % kSets)][size_t(i / kSets)]);
        return cycle;
    };
    for (const auto& set : bySet) ASSERT_GE(set.size(), size_t(72 / kSets));
    struct Tcase {
        const char* name;
        std::vector<Tblock> cycle;
        int reloadsPerPass;
    } cases[] = {
        {"2 in flight, one set", oneSet(34), 0},
        {"as many in flight as a set has ways", oneSet(32 + kWays), 0},
        {"one more in flight than a set has ways", oneSet(33 + kWays), 33 + kWays},
        {"16 in flight, sets in turn", inTurn(48), 0},
        {"32 in flight, sets in turn: the whole cache", inTurn(64), 0},
        {"40 in flight, sets in turn: one more per set than the ways", inTurn(72), 72},
    };
    for (const Tcase& c : cases) {
        TfileTextureCache cache;
        cache.setCapacity(6);
        auto pass = [&] {
            for (const Tblock& b : c.cycle) cache.findBlock(*p, b.level, b.block);
        };
        int64_t before = readCalls();
        pass();
        EXPECT_EQ(readsSince(before), int64_t(c.cycle.size()) * perLoad) << c.name << ": the first pass loads all";
        before = readCalls();
        pass();
        pass();
        EXPECT_EQ(readsSince(before), int64_t(2 * c.reloadsPerPass) * perLoad) << c.name;
        // Blocks that moved through the victim table hold their own pixels.
        uint8_t decoded[TfileTextureCache::kSlotBytes];
        for (const Tblock& b : c.cycle) {
            int bw, bh;
            p->blockSize(b.level, b.block, bw, bh);
            ASSERT_TRUE(p->loadBlock(cache, decoded, b.block, b.level, bw, bh, 3));
            const uint8_t* held = cache.findBlock(*p, b.level, b.block);
            ASSERT_TRUE(std::equal(decoded, decoded + bw * bh * 3, held))
                << c.name << " level " << b.level << " block " << b.block;
        }
    }
}

TEST(BlockCache, ARenderSizedCacheHoldsEveryBlockOfATilesLookups) {
    if (readCalls() < 0) GTEST_SKIP() << "no read counts from the system";
    TtestTempDir dir;
    std::vector<std::unique_ptr<Tpyramid>> textures;
    for (int t = 0; t < TfileTextureCache::kTexturesPerTile; ++t)
        textures.push_back(botPyramid(noiseImage(512, 512, 3, unsigned(t)), dir.file(std::string("t") + std::to_string(t) + ".bot")));
    const int perLoad = int(readsPerLoad(*textures[0], textures[0]->getMaxLevel()));
    // One 16 x 16 pixel tile at 4 texels per pixel in every texture, at the
    // finest level and the next; the tile straddles block edges: 52
    // distinct blocks.
    auto tilePass = [&](TfileTextureCache& cache) {
        for (auto& p : textures) {
            const int top = p->getMaxLevel();
            for (int level : {top, top - 1})
                for (int y = 0; y < 16; ++y)
                    for (int x = 0; x < 16; ++x) {
                        const int shift = top - level;
                        p->texel(cache, level, (20 + 4 * x) >> shift, (50 + 4 * y) >> shift);
                    }
        }
    };
    auto loadsOfTwoPasses = [&](TfileTextureCache& cache) {
        int64_t before = readCalls();
        tilePass(cache);
        const int64_t first = readsSince(before) / perLoad;
        before = readCalls();
        tilePass(cache);
        return std::pair{first, readsSince(before) / perLoad};
    };
    std::pair<int64_t, int64_t> sized;
    int sizedCapacity = 0;
    TfileTextureCache::sSizeForRender(1, 16);
    std::thread([&] {
        TfileTextureCache& cache = TfileTextureCache::threadCache();
        sizedCapacity = cache.capacity();
        sized = loadsOfTwoPasses(cache);
    }).join();
    TfileTextureCache::sSizeForRender(1, 0);  // back to 32 slots for later tests
    EXPECT_EQ(sizedCapacity, 256);
    EXPECT_EQ(sized.first, 52);
    EXPECT_EQ(sized.second, 0) << "the second pass over the tile reloads nothing";
    TfileTextureCache unsized;  // 32 slots: the same tile thrashes
    EXPECT_GT(loadsOfTwoPasses(unsized).second, 40);
    EXPECT_EQ(TfileTextureCache::threadCache().capacity(), 32);
}
