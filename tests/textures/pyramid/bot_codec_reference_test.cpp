// The table decoder against the plain one it replaced, kept here as the
// reference: a tree walked bit by bit after an 8-bit look-up, a bit reader
// that reassembles every read from bytes, and pixels written one at a time
// along the serpentine. Both must agree on valid blocks of every kind and on
// hostile bytes: the same success or failure, the same pixels.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "pyramid_test_support.h"
#include "textures/pyramid/bot_codec.h"

namespace {

struct TrefBits {
    const uint8_t* data;
    int size;
    uint64_t pos = 0;
    uint32_t read(int bits) {
        uint32_t v = 0;
        for (int i = 0; i < bits; ++i, ++pos) {
            uint64_t byte = pos >> 3;
            if (byte < uint64_t(size)) v |= uint32_t((data[byte] >> (pos & 7)) & 1) << i;
        }
        return v;
    }
    bool overrun() const { return pos > uint64_t(size) * 8; }
};

// Returns whether the block decoded. `usedBits`, when given, receives the
// bits that the channels took, when they all could be read.
bool referenceDecode(const uint8_t* data, int size, int width, int height, int channels, uint8_t* pixels,
                     uint64_t* usedBits = nullptr) {
    struct Tnode {
        int child[2];
        int symbol;
    };
    Tnode nodes[TbotCodec::kMaxTreeNodes];
    TrefBits in{data, size};
    int count = 1;
    if (in.read(1) == 0) {
        nodes[0] = {{-1, -1}, int(in.read(8))};
    } else {
        nodes[0] = {{-1, -1}, -1};
        struct Tpending {
            int node, next;
        } stack[TbotCodec::kMaxTreeNodes];
        int top = 0;
        stack[top++] = {0, 0};
        while (top > 0) {
            Tpending& p = stack[top - 1];
            if (p.next == 2) {
                --top;
                continue;
            }
            int which = p.next++;
            if (count >= TbotCodec::kMaxTreeNodes || in.overrun()) return false;
            int id = count++;
            nodes[p.node].child[which] = id;
            if (in.read(1)) {
                nodes[id] = {{-1, -1}, -1};
                stack[top++] = {id, 0};
            } else {
                nodes[id] = {{-1, -1}, int(in.read(8))};
            }
        }
    }
    if (in.overrun()) return false;
    const int n = width * height;
    for (int ch = 0; ch < channels; ++ch) {
        int predictor = 0, x = 0, y = 0, step = 1;
        for (int p = 0; p < n;) {
            int node = 0;
            while (nodes[node].symbol < 0) {
                if (in.overrun()) return false;
                node = nodes[node].child[in.read(1)];
            }
            int symbol = nodes[node].symbol, run = symbol >> 3, c = symbol & 7;
            int extra = int(in.read(c ? c : 1));
            if (in.overrun() || p + run + 1 > n) return false;
            // The delta from its category and extra bits: with the top bit
            // set they are the magnitude of a negative difference, without
            // it a positive one less its top bit; category 0 is 0 or 128.
            int delta;
            if (c == 0) delta = extra ? 128 : 0;
            else if (extra >> (c - 1)) delta = -extra;
            else delta = extra + (1 << (c - 1));
            int value = (predictor + delta) & 255;
            for (int k = 0; k <= run; ++k) {
                pixels[(y * width + x) * channels + ch] = uint8_t(value);
                x += step;
                if (x == width || x < 0) {
                    ++y;
                    step = -step;
                    x += step;
                }
            }
            predictor = value;
            p += run + 1;
        }
    }
    if (usedBits) *usedBits = in.pos;
    // Only the last byte may hold bits past the last channel.
    return in.pos + 8 > uint64_t(size) * 8;
}


// Compares both decoders on one stream, and with the pixels that were coded
// when given; the table decoder writes into a buffer with guards on either
// side that must stay untouched. Returns whether the block decoded.
bool expectSameDecode(const std::vector<uint8_t>& data, int w, int h, int ch, const char* what, int trial,
                      const std::vector<uint8_t>* coded = nullptr) {
    const size_t count = size_t(w) * h * ch, guard = 64;
    std::vector<uint8_t> reference(count, 0), table(count + 2 * guard, 0xA5);
    const bool refOk = referenceDecode(data.data(), int(data.size()), w, h, ch, reference.data());
    const char* why = TbotCodec::decodeBlock(data.data(), int(data.size()), w, h, ch, table.data() + guard);
    EXPECT_EQ(why == nullptr, refOk) << what << " trial " << trial << ": " << (why ? why : "decoded");
    for (size_t i = 0; i < guard; ++i) {
        EXPECT_EQ(table[i], 0xA5) << what << " trial " << trial;
        EXPECT_EQ(table[guard + count + i], 0xA5) << what << " trial " << trial;
    }
    if (refOk && !why) {
        EXPECT_TRUE(std::equal(reference.begin(), reference.end(), table.begin() + ptrdiff_t(guard)))
            << what << " trial " << trial << " " << w << "x" << h << "x" << ch;
    }
    if (coded) {
        EXPECT_TRUE(!why && std::equal(coded->begin(), coded->end(), table.begin() + ptrdiff_t(guard)))
            << what << " trial " << trial << ": the coded pixels come back";
    }
    return refOk;
}

}  // namespace

TEST(BotCodecReference, CodedBlocksOfManyKindsRoundTripAndDecodeAsTheReferenceDoes) {
    std::mt19937 rng(99);
    struct Timage {
        const char* name;
        int (*pixel)(std::mt19937&, int x, int y, int c);
    } images[] = {
        {"noise", [](std::mt19937& r, int, int, int) { return int(r() & 255); }},
        {"photo-like", [](std::mt19937& r, int x, int y, int c) { return 100 + x * 2 + y + c * 9 + int(r() % 9); }},
        {"sharp edges", [](std::mt19937& r, int x, int y, int) { return ((x / 5 + y / 3) & 1) ? 230 : 20 + int(r() % 2); }},
        {"flat", [](std::mt19937&, int, int, int) { return 77; }},
        // Deltas of 128 and of the full range: category 0 with its extra bit set.
        {"extremes", [](std::mt19937& r, int, int, int) { return (r() & 1) ? 0 : 255; }},
        {"alternating 128", [](std::mt19937&, int x, int y, int) { return ((x + y) & 1) * 128; }},
        // One value dominates and every other delta appears about once:
        // codes far longer than one look-up resolves.
        {"skewed", [](std::mt19937& r, int x, int y, int) { return (x * 31 + y) % 41 == 0 ? int(r() & 255) : (x & 1); }},
    };
    // Odd pixel counts end a channel on a lone pixel; rows of 16, 17 and 31
    // meet the 16-pixel groups that interleave the channels, in the last
    // row too, where nothing may be written past the block.
    const int sizes[][2] = {{1, 1}, {3, 1}, {1, 7}, {5, 9}, {16, 3}, {31, 2}, {32, 1}, {1, 32}, {17, 32}, {32, 32}};
    int trial = 0;
    for (const Timage& image : images)
        for (auto [w, h] : sizes)
            for (int ch : {1, 3, 4})
                for (int repeat = 0; repeat < 4; ++repeat, ++trial) {
                    std::vector<uint8_t> pixels(size_t(w) * h * ch);
                    for (int y = 0; y < h; ++y)
                        for (int x = 0; x < w; ++x)
                            for (int k = 0; k < ch; ++k)
                                pixels[(size_t(y) * w + x) * ch + k] = uint8_t(image.pixel(rng, x, y, k));
                    std::vector<uint8_t> coded(TbotCodec::kMaxBlockBytes);
                    int bytes = TbotCodec::codeBlock(pixels.data(), w, h, ch, coded.data());
                    ASSERT_GT(bytes, 0) << image.name;
                    ASSERT_LE(bytes, TbotCodec::kMaxBlockBytes) << image.name;
                    coded.resize(size_t(bytes));
                    expectSameDecode(coded, w, h, ch, image.name, trial, &pixels);
                }
}

TEST(BotCodecReference, HostileStreamsFailOrDecodeExactlyAsTheReferenceDoes) {
    std::mt19937 rng(4242);
    int decoded = 0;
    // Random trees: at each step an internal node with a probability that
    // makes some trees deep chains (codes of dozens of bits) and some bushy,
    // then random code and extra bits, cut at a random length.
    for (int trial = 0; trial < 4000; ++trial) {
        TtestBits b;
        const int w = 1 + int(rng() % 32), h = 1 + int(rng() % 32);
        const int ch = (int[]){1, 3, 4}[rng() % 3];
        if (trial % 5 == 0) {
            b.put(0, 1);  // a single symbol
            b.put(rng() & 255, 8);
        } else {
            const double internal = trial % 2 ? 0.45 : 0.9;
            std::uniform_real_distribution<double> u(0, 1);
            int open = 1, nodes = 0;
            b.put(1, 1);
            ++nodes;
            open = 2;
            while (open > 0 && nodes < 600) {
                ++nodes;
                if (u(rng) < internal && nodes < 500) {
                    b.put(1, 1);
                    open += 1;
                } else {
                    b.put(0, 1);
                    // Long runs most of the time, so that streams often finish.
                    b.put((rng() % 4 ? 0xF8u : 0u) | (rng() & 0xFF), 8);
                    open -= 1;
                }
                if (internal > 0.5 && u(rng) < 0.5 && open > 1) {  // close a chain link with a leaf
                    b.put(0, 1);
                    b.put(rng() & 255, 8);
                    open -= 1;
                    ++nodes;
                }
            }
        }
        const int bodyBits = int(rng() % (w * h * ch * 12 + 64));
        for (int i = 0; i < bodyBits; ++i) b.put(rng() % 3 ? 0 : 1, 1);
        expectSameDecode(b.bytes, w, h, ch, "random tree", trial);
        // And cut where the channels end, so that many decode whole.
        uint64_t used = 0;
        std::vector<uint8_t> scratch(size_t(w) * h * ch);
        referenceDecode(b.bytes.data(), int(b.bytes.size()), w, h, ch, scratch.data(), &used);
        if (used > 0 && (used + 7) / 8 < b.bytes.size()) {
            b.bytes.resize(size_t((used + 7) / 8));
            decoded += expectSameDecode(b.bytes, w, h, ch, "random tree cut after its channels", trial);
        }
    }
    // Enough of them complete for the pixel comparison to have weight.
    EXPECT_GT(decoded, 150) << decoded;
    // Random bytes, and valid blocks with bytes flipped or cut.
    std::vector<uint8_t> pixels(32 * 32 * 3);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = uint8_t(i / 7 + rng() % 5);
    std::vector<uint8_t> coded(TbotCodec::kMaxBlockBytes);
    coded.resize(size_t(TbotCodec::codeBlock(pixels.data(), 32, 32, 3, coded.data())));
    // Every truncation of a valid block fails.
    for (size_t n = 0; n < coded.size(); ++n)
        EXPECT_FALSE(expectSameDecode(std::vector<uint8_t>(coded.begin(), coded.begin() + ptrdiff_t(n)), 32, 32, 3, "cut", int(n)));
    for (int trial = 0; trial < 3000; ++trial) {
        std::vector<uint8_t> data;
        if (trial % 3 == 0) {
            data.resize(1 + rng() % 700);
            for (auto& d : data) d = uint8_t(rng());
        } else {
            data = coded;
            for (int k = 0; k < 1 + int(rng() % 3); ++k) data[rng() % data.size()] ^= uint8_t(1u << (rng() % 8));
            if (trial % 3 == 2) data.resize(1 + rng() % data.size());
        }
        expectSameDecode(data, 32, 32, 3, "mutated", trial);
    }
}
