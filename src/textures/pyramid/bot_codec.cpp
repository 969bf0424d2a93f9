#include "textures/pyramid/bot_codec.h"

#include <cstring>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

constexpr int kSymbols = 256;
constexpr int kMaxPixels = TbotCodec::kBlockSide * TbotCodec::kBlockSide;
constexpr int kMaxRun = 32;

// Walks the pixels of a channel in serpentine order.
struct Tserpentine {
    int width, x = 0, y = 0, step = 1;
    explicit Tserpentine(int w) : width(w) {}
    int index() const { return y * width + x; }
    void next() {
        x += step;
        if (x == width || x < 0) {
            ++y;
            step = -step;
            x += step;
        }
    }
};

// ---- writing ----

struct TbitWriter {
    uint8_t* out;
    int capacity;
    int bytes = 0;
    uint64_t acc = 0;
    int pending = 0;
    bool overflow = false;

    void put(uint32_t value, int bits) {
        acc |= uint64_t(value) << pending;
        pending += bits;
        while (pending >= 8) {
            emit(uint8_t(acc));
            acc >>= 8;
            pending -= 8;
        }
    }
    void emit(uint8_t b) {
        if (bytes >= capacity) {
            overflow = true;
            return;
        }
        out[bytes++] = b;
    }
    int finish() {
        if (pending > 0) emit(uint8_t(acc));
        pending = 0;
        return overflow ? 0 : bytes;
    }
};

struct TcodedSymbol {
    uint8_t symbol;
    uint8_t extra;
    uint8_t extraBits;
};

struct ThuffmanNode {
    uint32_t freq;
    int16_t child[2];  // -1 for a leaf
    int16_t symbol;
};

// A small binary heap of node indices ordered by frequency, then index, so
// that the tree (and the file) does not depend on the heap's whims.
struct TnodeHeap {
    int16_t items[kSymbols];
    int count = 0;
    const ThuffmanNode* nodes;

    bool less(int a, int b) const {
        return nodes[a].freq != nodes[b].freq ? nodes[a].freq < nodes[b].freq : a < b;
    }
    void heapUpdate(int i) {  // sift down from i
        for (;;) {
            int l = 2 * i + 1, r = l + 1, m = i;
            if (l < count && less(items[l], items[m])) m = l;
            if (r < count && less(items[r], items[m])) m = r;
            if (m == i) return;
            std::swap(items[i], items[m]);
            i = m;
        }
    }
    void push(int16_t node) {
        int i = count++;
        items[i] = node;
        while (i > 0) {
            int p = (i - 1) / 2;
            if (!less(items[i], items[p])) break;
            std::swap(items[i], items[p]);
            i = p;
        }
    }
    int16_t pop() {
        int16_t top = items[0];
        items[0] = items[--count];
        heapUpdate(0);
        return top;
    }
};

// Codes run through one channel; returns the symbols appended.
int codeChannel(const uint8_t* pixels, int width, int height, int channels, int channel, TcodedSymbol* out) {
    int n = width * height;
    uint8_t scan[kMaxPixels];
    Tserpentine s(width);
    for (int i = 0; i < n; ++i, s.next()) scan[i] = pixels[s.index() * channels + channel];

    int count = 0, predictor = 0;
    for (int p = 0; p < n;) {
        int value = scan[p];
        int run = 0;
        while (run < kMaxRun - 1 && p + 1 + run < n && scan[p + 1 + run] == value) ++run;
        int d = value - predictor;
        if (d > 128) d -= 256;
        if (d < -127) d += 256;
        int c = TbotCodec::category(d);
        TcodedSymbol& cs = out[count++];
        cs.symbol = uint8_t(run * 8 + c);
        if (c == 0) {
            cs.extra = d == 128 ? 1 : 0;
            cs.extraBits = 1;
        } else {
            cs.extra = uint8_t(d > 0 ? d & ~(1 << (c - 1)) : -d);
            cs.extraBits = uint8_t(c);
        }
        predictor = value;
        p += run + 1;
    }
    return count;
}

}  // namespace

int TbotCodec::category(int delta) {
    if (delta == 0 || delta == 128) return 0;
    int m = delta < 0 ? -delta : delta;
    int c = 0;
    while (m) {
        ++c;
        m >>= 1;
    }
    return c;
}

int TbotCodec::codeBlock(const uint8_t* pixels, int width, int height, int channels, uint8_t* out, int capacity) {
    if (!pixels || !out || width < 1 || height < 1 || width > kBlockSide || height > kBlockSide) return 0;
    if (channels != 1 && channels != 3 && channels != 4) return 0;

    // Symbols of all channels, in stream order.
    TcodedSymbol coded[4 * kMaxPixels];
    int symbolCount = 0;
    int channelEnd[4] = {0, 0, 0, 0};
    for (int ch = 0; ch < channels; ++ch) {
        symbolCount += codeChannel(pixels, width, height, channels, ch, coded + symbolCount);
        channelEnd[ch] = symbolCount;
    }

    // getFreq
    uint32_t freq[kSymbols] = {};
    for (int i = 0; i < symbolCount; ++i) ++freq[coded[i].symbol];

    // buildTree: leaves first, then internal nodes, two smallest at a time.
    ThuffmanNode nodes[2 * kSymbols];
    int nodeCount = 0;
    TnodeHeap heap;
    heap.nodes = nodes;
    for (int s = 0; s < kSymbols; ++s) {
        if (!freq[s]) continue;
        nodes[nodeCount] = {freq[s], {-1, -1}, int16_t(s)};
        heap.push(int16_t(nodeCount++));
    }
    while (heap.count > 1) {
        int16_t a = heap.pop(), b = heap.pop();
        nodes[nodeCount] = {nodes[a].freq + nodes[b].freq, {a, b}, -1};
        heap.push(int16_t(nodeCount++));
    }
    int root = heap.pop();
    if (nodeCount > kMaxTreeNodes) return 0;

    // traverseTree: codes, first branch in the lowest bit; and the tree
    // itself in pre-order.
    uint32_t code[kSymbols] = {};
    uint8_t length[kSymbols] = {};
    TbitWriter w{out, capacity};
    struct Tvisit {
        int16_t node;
        uint8_t depth;
        uint32_t code;
    } stack[2 * kSymbols];
    int top = 0;
    stack[top++] = {int16_t(root), 0, 0};
    while (top > 0) {
        Tvisit v = stack[--top];
        const ThuffmanNode& node = nodes[v.node];
        if (node.child[0] < 0) {
            w.put(0, 1);
            w.put(uint32_t(node.symbol), 8);
            code[node.symbol] = v.code;
            length[node.symbol] = v.depth;
            continue;
        }
        w.put(1, 1);
        // Push the 1-branch first so that the 0-branch is written first.
        stack[top++] = {node.child[1], uint8_t(v.depth + 1), v.code | (1u << v.depth)};
        stack[top++] = {node.child[0], uint8_t(v.depth + 1), v.code};
    }

    for (int i = 0; i < symbolCount; ++i) {
        const TcodedSymbol& cs = coded[i];
        if (length[cs.symbol]) w.put(code[cs.symbol], length[cs.symbol]);
        w.put(cs.extra, cs.extraBits);
        if (w.overflow) return 0;
    }
    (void)channelEnd;
    return w.finish();
}

namespace {

// ---- reading ----

// Bits lowest first from a 64-bit word refilled whole where 8 bytes remain.
// Past the end it feeds zero bits and counts them, so a stream that ends
// early is noticed once those bits are used, never by reading past it.
struct TbitReader {
    const uint8_t* next;
    const uint8_t* end;
    uint64_t buffer = 0;
    int available = 0;  // valid bits in `buffer`, lowest first
    int padding = 0;    // of those, zero bits standing beyond the end (topmost)

    TbitReader(const uint8_t* data, int size) : next(data), end(data + size) {}

    void refill() {
        if (end - next >= 8) {
            uint64_t word;
            std::memcpy(&word, next, 8);  // little-endian host
            buffer |= word << available;
            next += (63 - available) >> 3;
            available |= 56;
            return;
        }
        while (available <= 56) {
            if (next < end) buffer |= uint64_t(*next++) << available;
            else padding += 8;
            available += 8;
        }
    }
    // Keeps at least 32 bits ready.
    void ensure() {
        if (available < 32) refill();
    }
    void skip(int bits) {
        buffer >>= bits;
        available -= bits;
    }
    uint32_t read(int bits) {  // up to 32
        ensure();
        uint32_t v = uint32_t(buffer & ((uint64_t(1) << bits) - 1));
        skip(bits);
        return v;
    }
    bool overrun() const { return padding > available; }
};

struct TdecodeNode {
    int16_t child[2];
    int16_t symbol;  // -1 for internal nodes
};

// Table of the value subtracted from the predictor, indexed by 2^c plus the
// extra bits (0 plus the bit for category 0).
struct TdeltaTable {
    uint8_t value[256];
    TdeltaTable() {
        value[0] = 0;
        value[1] = 128;
        for (int c = 1; c <= 7; ++c) {
            int base = 1 << c, half = 1 << (c - 1);
            for (int e = 0; e < half; ++e) value[base + e] = uint8_t(256 - (half + e));
            for (int e = half; e < base; ++e) value[base + e] = uint8_t(e);
        }
    }
};
const TdeltaTable kDeltas;

int extraBits(int symbol) { return (symbol & 7) ? (symbol & 7) : 1; }
int deltaOf(int symbol, uint32_t extra) {
    int c = symbol & 7;
    return kDeltas.value[(c ? 1 << c : 0) + int(extra)];
}

// One look-up at the next kLookupBits bits (kShortLookupBits for blocks of
// few bits, where filling the larger table would cost more than it saves).
// Most symbols of photographs take 2 to 7 code bits and 1 to 4 extra bits,
// so they resolve whole here, run and delta ready; and where a lone pixel's
// symbol leaves room for the next symbol, the entry resolves both. Longer
// symbols resolve at least their code, and codes longer than the table go
// on through the tree.
constexpr int kLookupBits = 10;
constexpr int kShortLookupBits = 8;
// Blocks of fewer bits than this after the tree use the short table.
constexpr int kShortLookupBelow = 4096;

// Entry: bits to drop in 0-5; then either
//   resolved: pixels written in 8-15, delta of the run's value in 16-23, and
//     with kPair set, a lone pixel first, whose delta stands in 24-31;
//   kSlow: the symbol in 8-15 (its extra bits still to read), or with
//     kLongCode set, the tree node to go on from in 16-31.
enum : uint32_t { kPair = 1u << 6, kLongCode = 1u << 6, kSlow = 1u << 7 };

// A symbol with its extra bits that fits the table with room to spare.
struct TshortCode {
    uint16_t code;
    uint8_t run, delta;
};

// Fills every entry whose low `bits` bits are `code`.
inline void fillEntries(uint32_t* table, int size, uint32_t code, int bits, uint32_t entry) {
    for (uint32_t k = code; k < uint32_t(size); k += 1u << bits) table[k] = entry;
}

void buildLookup(const TdecodeNode* nodes, int lookupBits, uint32_t* table) {
    const int size = 1 << lookupBits;
    // Short codes by their length in bits, for pairing: at most 2^b codes
    // of b bits, so length b keeps entries 2^b to 2^(b+1) - 1.
    TshortCode shortCodes[1 << kLookupBits];
    int shortCount[kLookupBits] = {};
    struct Tvisit {
        int16_t node;
        uint8_t depth;
        uint32_t code;
    } stack[2 * kLookupBits + 2];
    int top = 0;
    stack[top++] = {0, 0, 0};
    while (top > 0) {
        Tvisit v = stack[--top];
        const TdecodeNode& node = nodes[v.node];
        if (node.symbol < 0) {
            if (v.depth == lookupBits) {
                table[v.code] = kSlow | kLongCode | uint32_t(lookupBits) | uint32_t(v.node) << 16;
                continue;
            }
            stack[top++] = {node.child[1], uint8_t(v.depth + 1), v.code | (1u << v.depth)};
            stack[top++] = {node.child[0], uint8_t(v.depth + 1), v.code};
            continue;
        }
        const int symbol = node.symbol, length = v.depth, extra = extraBits(symbol), bits = length + extra;
        const int run = symbol >> 3;
        if (bits > lookupBits) {
            fillEntries(table, size, v.code, length, kSlow | uint32_t(length) | uint32_t(symbol) << 8);
            continue;
        }
        for (uint32_t x = 0; x < (1u << extra); ++x) {
            const uint32_t code = v.code | x << length, delta = uint32_t(deltaOf(symbol, x));
            fillEntries(table, size, code, bits, uint32_t(bits) | uint32_t(run + 1) << 8 | delta << 16);
            if (bits < lookupBits) shortCodes[(1 << bits) + shortCount[bits]++] = {uint16_t(code), uint8_t(run), uint8_t(delta)};
        }
    }
    // Pairs: a lone pixel followed by any symbol that fits behind it.
    for (int firstBits = 1; firstBits < lookupBits; ++firstBits)
        for (int i = 0; i < shortCount[firstBits]; ++i) {
            const TshortCode& first = shortCodes[(1 << firstBits) + i];
            if (first.run != 0) continue;
            for (int secondBits = 1; secondBits <= lookupBits - firstBits; ++secondBits)
                for (int j = 0; j < shortCount[secondBits]; ++j) {
                    const TshortCode& second = shortCodes[(1 << secondBits) + j];
                    const int bits = firstBits + secondBits;
                    fillEntries(table, size, first.code | uint32_t(second.code) << firstBits, bits,
                                kPair | uint32_t(bits) | uint32_t(second.run + 2) << 8 | uint32_t(second.delta) << 16 |
                                    uint32_t(first.delta) << 24);
                }
        }
}

// The symbol that starts at `node` (its code bits up to there already
// read) and its delta; false when the data ends. Inlined so that the
// reader's state stays in registers in the loop that calls it.
[[gnu::always_inline]] inline bool slowSymbol(TbitReader& in, const TdecodeNode* nodes, int node, int& symbol,
                                              int& delta) {
    while (nodes[node].symbol < 0) {
        if (in.overrun()) return false;
        node = nodes[node].child[in.read(1)];
    }
    symbol = nodes[node].symbol;
    delta = deltaOf(symbol, in.read(extraBits(symbol)));
    return !in.overrun();
}

// Writes 32 copies of the value: a run of any length in four fixed stores.
inline void fillRun(uint8_t* at, uint8_t value) {
#if defined(__SSE2__)
    const __m128i v = _mm_set1_epi32(int(value * 0x01010101u));  // cheaper than a byte broadcast on SSE2
    _mm_storeu_si128(reinterpret_cast<__m128i*>(at), v);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(at + 16), v);
#else
    const uint64_t word = value * 0x0101010101010101ull;
    for (int i = 0; i < kMaxRun; i += 8) std::memcpy(at + i, &word, 8);
#endif
}

#if defined(__SSE2__)
inline __m128i reverseBytes(__m128i v) {
    v = _mm_shuffle_epi32(v, _MM_SHUFFLE(0, 1, 2, 3));
    v = _mm_shufflelo_epi16(v, _MM_SHUFFLE(2, 3, 0, 1));
    v = _mm_shufflehi_epi16(v, _MM_SHUFFLE(2, 3, 0, 1));
    return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}

// Interleaves 16 pixels of each channel into out. Three channels write 2
// bytes past the 48 (zeros, for the next pixel to overwrite).
template <int kChannels>
inline void interleave16(const __m128i* v, uint8_t* out) {
    if constexpr (kChannels == 1) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v[0]);
    } else {
        const __m128i d = kChannels == 4 ? v[3] : _mm_setzero_si128();
        const __m128i abLo = _mm_unpacklo_epi8(v[0], v[1]), abHi = _mm_unpackhi_epi8(v[0], v[1]);
        const __m128i cdLo = _mm_unpacklo_epi8(v[2], d), cdHi = _mm_unpackhi_epi8(v[2], d);
        const __m128i quads[4] = {_mm_unpacklo_epi16(abLo, cdLo), _mm_unpackhi_epi16(abLo, cdLo),
                                  _mm_unpacklo_epi16(abHi, cdHi), _mm_unpackhi_epi16(abHi, cdHi)};
#pragma GCC unroll 4
        for (int q = 0; q < 4; ++q) {
            if constexpr (kChannels == 4) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * q), quads[q]);
            } else {
                // Each 64-bit lane holds two pixels with a zero byte after
                // each; closing the gap leaves six bytes, stored overlapping.
                const __m128i lowPixel = _mm_set1_epi64x(0xFFFFFF), highPixel = _mm_set1_epi64x(0xFFFFFF000000);
                const __m128i six = _mm_or_si128(_mm_and_si128(quads[q], lowPixel),
                                                 _mm_and_si128(_mm_srli_epi64(quads[q], 8), highPixel));
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 12 * q), six);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 12 * q + 6), _mm_srli_si128(six, 8));
            }
        }
    }
}
#endif

// Channel values in scan order to interleaved pixels, undoing the serpentine.
template <int kChannels>
void unscan(const uint8_t (*scan)[kMaxPixels + kMaxRun + 1], int width, int height, uint8_t* pixels) {
    for (int y = 0; y < height; ++y) {
        uint8_t* out = pixels + size_t(y) * width * kChannels;
        const int start = y * width;
        const bool backwards = y & 1;
        int x = 0;
#if defined(__SSE2__)
        // Three channels store 2 bytes past a group: not past the last row.
        const int end = kChannels == 3 && y == height - 1 ? width - 1 : width;
        for (; x + 16 <= end; x += 16) {
            __m128i v[kChannels];
#pragma GCC unroll 4
            for (int c = 0; c < kChannels; ++c) {
                const uint8_t* from = scan[c] + (backwards ? start + width - 16 - x : start + x);
                v[c] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
                if (backwards) v[c] = reverseBytes(v[c]);
            }
            interleave16<kChannels>(v, out + x * kChannels);
        }
#endif
        for (; x < width; ++x)
            for (int c = 0; c < kChannels; ++c)
                out[x * kChannels + c] = scan[c][backwards ? start + width - 1 - x : start + x];
    }
}


}  // namespace

const char* TbotCodec::decodeBlock(const uint8_t* data, int size, int width, int height, int channels,
                                   uint8_t* pixels) {
    if (!data || size <= 0) return "empty block";
    if (width < 1 || height < 1 || width > kBlockSide || height > kBlockSide) return "bad block size";
    if (channels != 1 && channels != 3 && channels != 4) return "bad channel count";

    TbitReader in(data, size);

    // The tree, iteratively so that a hostile stream cannot recurse deeply.
    // A single leaf is a tree of one node whose code has no bits.
    TdecodeNode nodes[kMaxTreeNodes];
    int nodeCount = 1;
    if (in.read(1) == 0) {
        nodes[0] = {{-1, -1}, int16_t(in.read(8))};
    } else {
        nodes[0] = {{-1, -1}, -1};
        struct Tpending {
            int16_t node;
            uint8_t next;
        } stack[kMaxTreeNodes];
        int top = 0;
        stack[top++] = {0, 0};
        while (top > 0) {
            Tpending& p = stack[top - 1];
            if (p.next == 2) {
                --top;
                continue;
            }
            int which = p.next++;
            if (nodeCount >= kMaxTreeNodes) return "tree has too many nodes";
            if (in.overrun()) return "data ends inside the tree";
            int id = nodeCount++;
            nodes[p.node].child[which] = int16_t(id);
            if (in.read(1)) {
                nodes[id] = {{-1, -1}, -1};
                stack[top++] = {int16_t(id), 0};
            } else {
                nodes[id] = {{-1, -1}, int16_t(in.read(8))};
            }
        }
    }
    if (in.overrun()) return "data ends inside the tree";

    const int bodyBits = int(in.end - in.next) * 8 + in.available - in.padding;
    const int lookupBits = bodyBits < kShortLookupBelow ? kShortLookupBits : kLookupBits;
    const uint32_t lookupMask = (1u << lookupBits) - 1;
    uint32_t lookup[1 << kLookupBits];
    buildLookup(nodes, lookupBits, lookup);

    // A run writes 32 bytes whatever its length, after a lone pixel for a
    // pair, so each scan has room after.
    uint8_t scans[4][kMaxPixels + kMaxRun + 1];
    const int n = width * height;
    for (int ch = 0; ch < channels; ++ch) {
        uint8_t* scan = scans[ch];
        int predictor = 0, p = 0;
        TbitReader bits = in;  // a local copy the compiler can keep in registers
        // While two pixels remain a pair cannot reach into the next channel.
        while (p < n - 1) {
            bits.ensure();
            const uint32_t e = lookup[bits.buffer & lookupMask];
            bits.skip(int(e & 63));
            if (!(e & kSlow)) {
                // A lone symbol has a first delta of 0 and its run overwrites
                // that pixel; a pair writes the lone pixel and runs after it.
                const uint8_t first = uint8_t(predictor - int(e >> 24));
                scan[p] = first;
                const uint8_t value = uint8_t(first - int((e >> 16) & 255));
                fillRun(scan + p + int((e >> 6) & 1), value);
                predictor = value;
                p += int((e >> 8) & 255);
                continue;
            }
            int symbol, delta;
            if (e & kLongCode) {
                if (!slowSymbol(bits, nodes, int(e >> 16), symbol, delta)) return "data ends inside a code";
            } else {
                symbol = int((e >> 8) & 255);
                delta = deltaOf(symbol, bits.read(extraBits(symbol)));
                if (bits.overrun()) return "data ends before the block is complete";
            }
            if (p + (symbol >> 3) + 1 > n) return "a run passes the end of the block";
            const uint8_t value = uint8_t(predictor - delta);
            fillRun(scan + p, value);
            predictor = value;
            p += (symbol >> 3) + 1;
        }
        if (p == n - 1) {  // the last pixel alone, through the tree
            int symbol, delta;
            if (!slowSymbol(bits, nodes, 0, symbol, delta)) return "data ends before the block is complete";
            if (symbol >> 3) return "a run passes the end of the block";
            scan[p++] = uint8_t(predictor - delta);
        }
        if (p != n) return "a run passes the end of the block";
        // Bits past the end read as zeros and the scan stays in bounds, so
        // resolved symbols check only here: once overrun, a stream stays so.
        if (bits.overrun()) return "data ends before the block is complete";
        in = bits;
    }
    // The coder pads only the last byte: whole bytes left over mean the
    // block holds more channels than it was read with.
    if (in.end - in.next > 0 || in.available - in.padding >= 8) return "data is left after the last channel";
    switch (channels) {
        case 1: unscan<1>(scans, width, height, pixels); break;
        case 3: unscan<3>(scans, width, height, pixels); break;
        default: unscan<4>(scans, width, height, pixels); break;
    }
    return nullptr;
}
