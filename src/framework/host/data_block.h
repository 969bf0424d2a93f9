#pragma once
// Data blocks: where a node's compute reads inputs and writes outputs. The
// host's scalar block (TdgDataBlock) holds one element; the rendering block
// of the shading engine holds a constant block and one element per sample.
// Both hand out TdataHandle values, so a node's compute is one loop either way.
#include <cstdarg>
#include <cstdint>
#include <string>

#include "framework/host/attribute.h"
#include "framework/host/math.h"

class TdependNode;
class Tplug;

// A handle on the value of one attribute. For a variable value the pointer
// is the element of sample 0 and advances by the stride per sample; for a
// constant the stride is 0.
struct TdataHandle {
    enum : uint8_t { kIsArray = 1u << 0, kIsVariable = 1u << 1 };

    class TdataBlock* block = nullptr;
    const Tattribute* attribute = nullptr;
    void* value = nullptr;
    uint8_t flags = 0;
    unsigned stride = 0;

    bool isNull() const { return value == nullptr; }
    bool isVariable() const { return flags & kIsVariable; }
    void* element(unsigned i) const { return static_cast<char*>(value) + size_t(stride) * i; }
    template <typename T> T& as(unsigned i = 0) const { return *static_cast<T*>(element(i)); }
    float& asFloat(unsigned i = 0) const { return as<float>(i); }
    T3Float& asFloat3(unsigned i = 0) const { return as<T3Float>(i); }
    T2Float& asFloat2(unsigned i = 0) const { return as<T2Float>(i); }
    int32_t& asInt(unsigned i = 0) const { return as<int32_t>(i); }
    int16_t& asShort(unsigned i = 0) const { return as<int16_t>(i); }
    bool& asBool(unsigned i = 0) const { return as<bool>(i); }
};

// Text output of debug dumps.
class TdebugOutput {
public:
    void print(const char* format, ...) __attribute__((format(printf, 2, 3)));
    const std::string& text() const { return fText; }
    void clear() { fText.clear(); }

private:
    std::string fText;
};

class TdataBlock {
public:
    virtual ~TdataBlock();
    virtual void debug(TdebugOutput& out, unsigned level) const;
    // Current element, by attribute and by plug.
    virtual TdataHandle outputValue(const Tattribute& a) = 0;
    virtual TdataHandle outputValue(const Tplug& p) = 0;
    virtual TdataHandle inputValue(const Tattribute& a) = 0;
    virtual TdataHandle inputValue(const Tplug& p) = 0;
    // A run of elements: what vectorComputePlug reads and writes. A node
    // makes a dozen of these a call, so a block with a direct table answers
    // the plain attributes inline; the rest take the virtual road.
    TdataHandle inputValue(const Tattribute& a, unsigned first, unsigned count) {
        TdataHandle h;
        if (inputAtHand(a, h)) return h;
        return inputNotDirect(a, first, count, runBits(count));
    }
    // The same for the samples of the run whose bits are set in `selected`
    // (bit 0 is `first`; at most 64 samples): a value computed on demand is
    // computed for those samples only, in one call however they lie. What
    // the handle holds for the others is unspecified.
    TdataHandle inputValue(const Tattribute& a, unsigned first, unsigned count, uint64_t selected) {
        TdataHandle h;
        if (inputAtHand(a, h)) return h;
        return inputNotDirect(a, first, count, selected & runBits(count));
    }
    // True, with its handle, when input `a` is read without any compute (a
    // constant, or a value already in place): a caller that must gather the
    // samples it names first can skip that work.
    bool inputAtHand(const Tattribute& a, TdataHandle& h) {
        if (fResolved && resolved(a, kDirectInput, h)) return true;
        return fDirect && (fDirect[a.index()] & kDirectInput) && direct(a, fDirect[a.index()], h);
    }
    // The bits of a run of `count` samples, from bit 0.
    static uint64_t runBits(unsigned count) { return count >= 64 ? ~uint64_t(0) : (uint64_t(1) << count) - 1; }
    // The lowest run of set bits of `bits` (not 0): adding the lowest set
    // bit carries through the run and clears it.
    static uint64_t lowestRun(uint64_t bits) { return bits & ~(bits + (bits & (0 - bits))); }
    // Calls f(start, length) for each run of set bits, lowest first.
    template <typename F>
    static void forEachBitRun(uint64_t bits, F&& f) {
        while (bits) {
            const uint64_t run = lowestRun(bits);
            const unsigned start = unsigned(__builtin_ctzll(bits));
            f(start, 64 - unsigned(__builtin_clzll(run)) - start);
            bits &= ~run;
        }
    }
    TdataHandle outputValue(const Tattribute& a, unsigned first, unsigned count) {
        TdataHandle h;
        if (fResolved && resolved(a, kDirectOutput, h)) return h;
        if (fDirect && (fDirect[a.index()] & kDirectOutput) && direct(a, fDirect[a.index()], h)) return h;
        return outputRun(a, first, count);
    }
    virtual bool isClean(const Tattribute&) const { return true; }
    void setClean(const Tattribute& a) {
        if (!fMarksIgnored) markClean(a);
    }
    // The index of the current element: 0 for a scalar block.
    virtual unsigned currentIndex() const { return 0; }
    virtual unsigned elementCount() const { return 1; }
    virtual size_t dataBlockMemorySize() const { return 0; }
    // Logical indices of the existing elements of an array attribute.
    virtual unsigned multiIndices(const Tattribute& a, unsigned* indices, unsigned capacity) const = 0;
    virtual TdataHandle elementValue(const Tattribute& a, unsigned logicalIndex) = 0;
    // The handles of the existing elements of an array attribute, in index
    // order, at most `capacity` of them; elements without a value are left
    // out. One call where a material reads its light array every batch.
    virtual unsigned existingElements(const Tattribute& a, TdataHandle* out, unsigned capacity);
    // The same as sample 0's value of each element, with the one stride the
    // elements of an array share (0 for a constant array): a light loop
    // needs no more, and the block writes no handles.
    virtual unsigned existingElementValues(const Tattribute& a, const void** values, unsigned& stride, unsigned capacity);

    // A direct table has one word per attribute index: the byte offset
    // shifted by kDirectShift and the flags below; 0 takes the virtual road.
    static constexpr uint32_t kDirectInput = 1u << 0;     // a read hands the value out as it stands
    static constexpr uint32_t kDirectOutput = 1u << 1;    // so does a write
    static constexpr uint32_t kDirectVariable = 1u << 2;  // in the elements, else in the constants
    static constexpr uint32_t kDirectOther = 1u << 3;     // a reference to a value in another block
    static constexpr uint32_t kDirectComputed = 1u << 4;  // a read first has the block's hook compute the run
    // With kDirectOther: the value is a field of the records block, the one
    // whose number the word carries in place of an offset; the records block
    // says where each field lies, so one table serves records of any layout.
    static constexpr uint32_t kDirectRecord = 1u << 5;
    static constexpr unsigned kDirectShift = 6;
    // Computes attribute `a` for the samples of a run whose bits are set in
    // `selected` (bit 0 is `first`) before a kDirectComputed read hands it out.
    using ComputeHook = void (*)(TdataBlock& block, const Tattribute& a, unsigned first, unsigned count, uint64_t selected);
    // What a kDirectOther word points at.
    struct OtherBlockRef {
        void* value;  // element 0 of the value in the other block
        TdataBlock* block;
    };
    unsigned directStride() const { return fDirectStride; }

    // A word of the direct table decoded once, for a block whose places stay
    // put from run to run (the engine's frames kept between batches): its
    // handle, and the roads of its word it answers (none: decode the word).
    struct Resolved {
        void* value;
        TdataBlock* block;
        unsigned stride;
        uint8_t flags;
        uint8_t roads;  // kDirectInput, kDirectOutput, kDirectComputed
    };
    // Fills `table` (one entry per word) from the words as they stand now
    // and answers from it from then on. Words of the records block, which
    // moves with each batch, and references not yet made stay unresolved.
    void resolveDirect(Resolved* table, unsigned words);

protected:
    virtual TdataHandle inputRun(const Tattribute& a, unsigned first, unsigned count) = 0;
    virtual TdataHandle outputRun(const Tattribute& a, unsigned first, unsigned count) = 0;
    virtual void markClean(const Tattribute&) {}

    const uint32_t* fDirect = nullptr;
    const Resolved* fResolved = nullptr;
    unsigned char* fDirectBase[2] = {};  // the constants, then element 0 of the elements
    unsigned fDirectStride = 0;
    bool fMarksIgnored = false;
    ComputeHook fComputeHook = nullptr;  // set by a block whose table has kDirectComputed words
    // Records that lie at a fixed spacing, seen as one block whose elements
    // are the records: where kDirectRecord words read and write. Null when
    // there are none; the virtual road then answers.
    TdataBlock* fRecords = nullptr;
    // On a records block: the offset of each numbered field in a record.
    const unsigned* fRecordFields = nullptr;

    // The handle of a kDirectRecord word on the records block, at `within`
    // bytes into the field; false without records.
    bool recordValue(uint32_t word, unsigned within, TdataHandle& h) const {
        if (!fRecords) return false;
        h.block = fRecords;
        h.value = fRecords->fDirectBase[1] + fRecords->fRecordFields[word >> kDirectShift] + within;
        h.stride = fRecords->fDirectStride;
        h.flags = TdataHandle::kIsVariable;
        return true;
    }

private:
    // Out of line, so that the inline read stays one test: a value the
    // block's hook computes first, else the virtual road.
    TdataHandle inputNotDirect(const Tattribute& a, unsigned first, unsigned count, uint64_t selected);
    // The virtual road, a run of selected samples at a time.
    [[gnu::noinline]] TdataHandle inputRuns(const Tattribute& a, unsigned first, unsigned count, uint64_t selected);
    bool resolved(const Tattribute& a, uint8_t road, TdataHandle& h) const {
        const Resolved& r = fResolved[a.index()];
        if (!(r.roads & road)) return false;
        h.block = r.block;
        h.attribute = &a;
        h.value = r.value;
        h.stride = r.stride;
        h.flags = r.flags;
        return true;
    }
    // False for a reference not made in this run: the virtual road says so.
    bool direct(const Tattribute& a, uint32_t word, TdataHandle& h) {
        h.attribute = &a;
        return decode(word, h);
    }
    bool decode(uint32_t word, TdataHandle& h) {
        unsigned char* at = fDirectBase[(word & kDirectVariable) ? 1 : 0] + (word >> kDirectShift);
        if (word & kDirectOther) {
            if (word & kDirectRecord) return recordValue(word, 0, h);
            const auto* ref = reinterpret_cast<const OtherBlockRef*>(at);
            if (!ref->block || !ref->value) return false;
            h.block = ref->block;
            h.value = ref->value;
            h.stride = ref->block->fDirectStride;
            h.flags = TdataHandle::kIsVariable;
            return true;
        }
        h.block = this;
        h.value = at;
        if (word & kDirectVariable) {
            h.stride = fDirectStride;
            h.flags = TdataHandle::kIsVariable;
        }
        return true;
    }
};
