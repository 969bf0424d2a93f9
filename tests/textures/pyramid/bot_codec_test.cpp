// The block coder: the exact bit layout of small blocks and the tree and size
// limits. Round trips of every kind of block, truncated blocks and hostile
// bytes are in bot_codec_reference_test, against the plain decoder.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "pyramid_test_support.h"
#include "textures/pyramid/bot_codec.h"

namespace {

std::vector<uint8_t> code(const std::vector<uint8_t>& pixels, int w, int h, int ch) {
    std::vector<uint8_t> out(TbotCodec::kMaxBlockBytes);
    int n = TbotCodec::codeBlock(pixels.data(), w, h, ch, out.data());
    out.resize(size_t(n));
    return out;
}

std::vector<uint8_t> decode(const std::vector<uint8_t>& data, int w, int h, int ch, const char** why = nullptr) {
    std::vector<uint8_t> out(size_t(w) * h * ch, 0xCD);
    const char* r = TbotCodec::decodeBlock(data.data(), int(data.size()), w, h, ch, out.data());
    if (why) *why = r;
    if (r) out.clear();
    return out;
}
}  // namespace

TEST(BotCodec, SinglePixelsHaveTheExactBitLayout) {
    // Leaf bit 0, symbol (8 bits), no code bits, then the extra bits.
    struct Tcase {
        uint8_t value;
        std::vector<uint8_t> bytes;
    } cases[] = {
        {0, {0x00, 0x00}},    // category 0, extra bit 0
        {128, {0x00, 0x02}},  // a delta of 128 is category 0 with the extra bit set
        {1, {0x02, 0x00}},    // category 1, extra bit 0 (top bit cleared)
        {255, {0x02, 0x02}},  // -1: category 1, magnitude 1 with its top bit set
        {5, {0x06, 0x02}},    // category 3, 5 with bit 2 cleared = 1
        {251, {0x06, 0x0A}},  // -5: category 3, magnitude 101
        {127, {0x0E, 0x7E}},  // category 7, 127 without its top bit = 63
        {129, {0x0E, 0xFE}},  // -127: category 7, magnitude 127 fills the second byte
    };
    for (const Tcase& c : cases) {
        auto coded = code({c.value}, 1, 1, 1);
        EXPECT_EQ(coded, c.bytes) << int(c.value);
        EXPECT_EQ(decode(coded, 1, 1, 1), std::vector<uint8_t>{c.value});
    }
}

TEST(BotCodec, ConstantBlocksOfZeroOr128UseASingleSymbolTree) {
    // 32x32 of one value: 32 runs of 32 pixels, all the symbol 31*8 + 0.
    // Tree: 9 bits; each run: no code bits and 1 extra bit.
    for (uint8_t value : {uint8_t(0), uint8_t(128)}) {
        std::vector<uint8_t> pixels(32 * 32, value);
        auto coded = code(pixels, 32, 32, 1);
        EXPECT_EQ(coded.size(), size_t((9 + 32 + 7) / 8)) << int(value);
        EXPECT_EQ(coded[0] & 1, 0) << "a single-symbol tree starts with a leaf bit";
        EXPECT_EQ((coded[0] >> 1) | ((coded[1] & 1) << 7), 31 * 8);
        EXPECT_EQ(decode(coded, 32, 32, 1), pixels);
    }
    // Any other constant needs a second symbol for the first run's delta:
    // tree 1+9+9 bits, two 1-bit codes per... 32 runs: 32 code bits, extras 3 + 31.
    std::vector<uint8_t> sevens(32 * 32, 7);
    EXPECT_EQ(code(sevens, 32, 32, 1).size(), size_t((19 + 32 + 3 + 31 + 7) / 8));
}

TEST(BotCodec, RunsStopAt32PixelsAndFollowTheSerpentine) {
    // 32x2 block; in serpentine order the first 33 pixels are 9, the rest 10.
    // Row 1 runs right to left, so its last pixel (x = 31) is the 33rd.
    std::vector<uint8_t> pixels(64, 10);
    for (int x = 0; x < 32; ++x) pixels[size_t(x)] = 9;
    pixels[32 + 31] = 9;
    // Symbols: (31, c=4), (0, c=0), (30, c=1): tree 2 internal + 3 leaves =
    // 5 + 24 bits; codes 1 + 2 + 2 bits; extras 4 + 1 + 1 bits: 40 bits.
    auto coded = code(pixels, 32, 2, 1);
    EXPECT_EQ(coded.size(), 5u);
    EXPECT_EQ(decode(coded, 32, 2, 1), pixels);
    // 2x2 block (0 0 / 5 0): in serpentine order 0 0 0 5, two symbols
    // (2, c=0) and (0, c=3): 19 tree bits, 2 code bits, 1 + 3 extra bits.
    // Row by row it would be three symbols and 6 bytes.
    std::vector<uint8_t> small{0, 0, 5, 0};
    auto smallCoded = code(small, 2, 2, 1);
    EXPECT_EQ(smallCoded.size(), 4u);
    EXPECT_EQ(decode(smallCoded, 2, 2, 1), small);
}

TEST(BotCodec, TreesOfMoreThan508NodesAreRefusedAndAFull507NodeTreeIsRead) {
    // A chain: internal nodes each with a leaf on the 0-branch. `leaves`
    // leaves make 2 * leaves - 1 nodes. Leaf 0 (code "0") is symbol 0.
    auto chain = [](int leaves) {
        TtestBits b;
        for (int i = 0; i < leaves - 1; ++i) {
            b.put(1, 1);
            b.put(0, 1);
            b.put(uint32_t(i), 8);
        }
        b.put(0, 1);
        b.put(uint32_t(leaves - 1), 8);
        b.put(0, 1);  // code of symbol 0
        b.put(0, 1);  // its extra bit: delta 0
        return b.bytes;
    };
    const char* why = nullptr;
    auto ok = decode(chain(254), 1, 1, 1, &why);  // 507 nodes
    EXPECT_EQ(why, nullptr);
    EXPECT_EQ(ok, std::vector<uint8_t>{0});
    decode(chain(255), 1, 1, 1, &why);  // 509 nodes
    ASSERT_NE(why, nullptr);
    EXPECT_STREQ(why, "tree has too many nodes");
}

TEST(BotCodec, TheByteLimitHoldsForNoiseAndACapacityBelowTheNeedIsRefused) {
    std::mt19937 rng(11);
    std::vector<uint8_t> pixels(32 * 32 * 4);
    size_t largest = 0;
    for (int trial = 0; trial < 20; ++trial) {
        for (auto& p : pixels) p = uint8_t(rng());
        auto coded = code(pixels, 32, 32, 4);
        ASSERT_GT(coded.size(), 0u);
        largest = std::max(largest, coded.size());
        std::vector<uint8_t> small(coded.size() - 1);
        EXPECT_EQ(TbotCodec::codeBlock(pixels.data(), 32, 32, 4, small.data(), int(small.size())), 0);
    }
    EXPECT_LE(largest, size_t(TbotCodec::kMaxBlockBytes));
}

TEST(BotCodec, ABlockReadWithFewerChannelsThanItHoldsIsRefused) {
    // A block does not store its channel count: the header's count is the
    // only one there is. Read with fewer channels, whole bytes of the block
    // are left over; read with more, the data ends early.
    struct Tcase {
        const char* name;
        TpixelMap image;
        int coded, read;
        bool refused;
    };
    const Tcase cases[] = {
        {"3 read as 1", photoLikeImage(32, 32, 3, 1), 3, 1, true},
        {"4 read as 3", photoLikeImage(32, 32, 4, 2), 4, 3, true},
        {"4 read as 1", noiseImage(32, 20, 4, 3), 4, 1, true},
        {"3 read as 4", photoLikeImage(32, 32, 3, 4), 3, 4, true},
        {"1 read as 3", noiseImage(7, 5, 1, 5), 1, 3, true},
        {"constant 32x32, 4 read as 3", TpixelMap(32, 32, 4), 4, 3, true},
        // The limit of what a block can tell: one pixel of 0 costs its channel
        // a single bit (no code bits, one extra bit), 9 + 4 bits in all; read
        // as 3 channels, the one bit left lies in the last byte, as padding would.
        {"one pixel of 0, 4 read as 3", TpixelMap(1, 1, 4), 4, 3, false},
    };
    for (const Tcase& c : cases) {
        SCOPED_TRACE(c.name);
        const int w = c.image.width(), h = c.image.height();
        const std::vector<uint8_t> pixels(c.image.pixels(), c.image.pixels() + c.image.byteCount());
        const auto coded = code(pixels, w, h, c.coded);
        ASSERT_FALSE(coded.empty());
        EXPECT_EQ(decode(coded, w, h, c.coded), pixels);
        const char* why = nullptr;
        decode(coded, w, h, c.read, &why);
        EXPECT_EQ(why != nullptr, c.refused) << (why ? why : "decoded");
        if (c.refused && c.read < c.coded) {
            EXPECT_STREQ(why, "data is left after the last channel");
        }
    }
}
