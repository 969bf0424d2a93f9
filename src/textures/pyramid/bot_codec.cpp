#include "textures/pyramid/bot_codec.h"

#include <cstring>
#include <utility>

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

struct TbitReader {
    const uint8_t* data;
    int size;
    uint64_t bitPos = 0;

    // The next `bits` (up to 32) bits; bits past the end read as zero.
    uint32_t peek(int bits) const {
        uint64_t byte = bitPos >> 3;
        int shift = int(bitPos & 7);
        uint64_t word = 0;
        if (byte + 8 <= uint64_t(size)) {
            std::memcpy(&word, data + byte, 8);  // little-endian host
        } else {
            for (uint64_t i = 0; byte + i < uint64_t(size) && i < 8; ++i) word |= uint64_t(data[byte + i]) << (8 * i);
        }
        return uint32_t((word >> shift) & ((uint64_t(1) << bits) - 1));
    }
    uint32_t read(int bits) {
        uint32_t v = peek(bits);
        bitPos += uint64_t(bits);
        return v;
    }
    bool overrun() const { return bitPos > uint64_t(size) * 8; }
};

struct TdecodeNode {
    int16_t child[2];
    int16_t symbol;  // -1 for internal nodes
};

struct TfastEntry {
    uint8_t length;  // bits of the code, 0 when the code is longer than 8
    uint8_t symbol;
    int16_t node;  // where the walk goes on after 8 bits
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

}  // namespace

const char* TbotCodec::decodeBlock(const uint8_t* data, int size, int width, int height, int channels,
                                   uint8_t* pixels) {
    if (!data || size <= 0) return "empty block";
    if (width < 1 || height < 1 || width > kBlockSide || height > kBlockSide) return "bad block size";
    if (channels != 1 && channels != 3 && channels != 4) return "bad channel count";

    TbitReader in{data, size};

    // The tree, iteratively so that a hostile stream cannot recurse deeply.
    TdecodeNode nodes[kMaxTreeNodes];
    int nodeCount = 1;
    bool single = in.read(1) == 0;
    int singleSymbol = 0;
    if (single) {
        singleSymbol = int(in.read(8));
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

    // Codes of up to 8 bits resolve through one table look-up.
    TfastEntry fast[256];
    if (!single) {
        for (int bits = 0; bits < 256; ++bits) {
            int node = 0, used = 0;
            while (nodes[node].symbol < 0 && used < 8) node = nodes[node].child[(bits >> used++) & 1];
            if (nodes[node].symbol >= 0) fast[bits] = {uint8_t(used), uint8_t(nodes[node].symbol), int16_t(node)};
            else fast[bits] = {0, 0, int16_t(node)};
        }
    }

    const int n = width * height;
    for (int ch = 0; ch < channels; ++ch) {
        Tserpentine s(width);
        int predictor = 0;
        for (int p = 0; p < n;) {
            int symbol;
            if (single) {
                symbol = singleSymbol;
            } else {
                const TfastEntry& e = fast[in.peek(8)];
                if (e.length) {
                    in.bitPos += e.length;
                    symbol = e.symbol;
                } else {
                    in.bitPos += 8;
                    int node = e.node;
                    while (nodes[node].symbol < 0) {
                        if (in.overrun()) return "data ends inside a code";
                        node = nodes[node].child[in.read(1)];
                    }
                    symbol = nodes[node].symbol;
                }
            }
            int run = symbol >> 3, c = symbol & 7;
            uint32_t extra = in.read(c ? c : 1);
            if (in.overrun()) return "data ends before the block is complete";
            if (p + run + 1 > n) return "a run passes the end of the block";
            int index = (c ? 1 << c : 0) + int(extra);
            uint8_t value = uint8_t(predictor - kDeltas.value[index]);
            for (int k = 0; k <= run; ++k, s.next()) pixels[s.index() * channels + ch] = value;
            predictor = value;
            p += run + 1;
        }
    }
    return nullptr;
}
