#pragma once
// TdataBlockRendering: what a node computes on while a shading program runs.
// One per node per run, in the run frame: a constant block shared by all
// samples and a variable block with one element per sample, so that a
// node's vectorComputePlug is one loop over elements. Each attribute has an
// AttrInfo entry that says where its value lives and how an input read fills
// it (default, computed on demand by a cut segment, assembled from children,
// or read from another node's block).
#include <cstdint>

#include "framework/host/data_block.h"

class TdependNode;

class TdataBlockRendering final : public TdataBlock {
public:
    enum Kind : uint32_t {
        kConstDefaultValue = 0,
        kVarDefaultValue = 1,
        kConstPresent = 2,
        kVarPresent = 3,
        kConstUseParent = 4,
        kVarUseParent = 5,
        kConstUseChild = 8,
        kVarUseChild = 9,
        kVarPreferChild = 11,
        kConstUseParentAndChild = 12,
        kVarUseParentAndChild = 13,
        kVarPresentNoProp = 17,
        kConstantType = 20,
        kVariableType = 21,
        kNotConnectedType = 22,
        // A constant kind with the variable bit set; made variable it becomes 11.
        kConstPreferChild = 27,
        kVarPresentOtherDB = 35,
        kVarUseParentOtherDB = 36,
    };
    static constexpr uint32_t kVariableBit = 1u << 0;
    static constexpr uint32_t kOtherBlockBit = 1u << 5;
    static constexpr int16_t kNoSegment = -1;

    struct AttrInfo {
        uint32_t kind;
        uint16_t offset;           // within the constant or the variable block
        int16_t parentOrSegment;   // parent array index, or the segment that computes the value
    };
    struct MultiInfo {
        uint32_t threadCount, numKids, pOff, cOff, dOff, bOff;
    };
    // What stands at an other-block attribute's offset: TdataBlock::OtherBlockRef.

    // Computes a cut segment's value on demand; the opus installs it.
    using ComputeValue = void (*)(void* context, int segment, const Tattribute* a, unsigned first, unsigned count);
    static void setComputeValueHook(ComputeValue hook);

    static const char* kindName(uint32_t kind);
    // The kind of a constant attribute once analysis makes it variable.
    static uint32_t makeVariable(uint32_t kind) { return kind == kConstPreferChild ? kVarPreferChild : kind | kVariableBit; }

    TdataBlockRendering() = default;
    // Made and set up at once, as a program run makes its blocks: each field
    // is written once.
    TdataBlockRendering(TdependNode* node, unsigned stride, unsigned char* first, unsigned count, unsigned char* constant,
                        AttrInfo* offsets, MultiInfo* multi, const uint16_t* hiddenMulti, void* context)
        : fFirst(first),
          fCurrent(first),
          fHiddenMulti(hiddenMulti),
          fContext(context),
          fNode(node),
          fOffsets(offsets),
          fMulti(multi),
          fStride(stride),
          fLastIndex(count ? count - 1 : 0) {
        fDirectBase[0] = constant;
        fDirectBase[1] = first;
        fDirectStride = stride;
        fComputeHook = &computeForDirect;
        if (hiddenMulti && hiddenMulti[0]) constructHidden(count);
    }
    // A run's block from a prototype made when the program was built: only
    // what depends on the batch is written after the copy.
    // `records`: the batch's records as one block, or null.
    TdataBlockRendering(const TdataBlockRendering& prototype, unsigned char* first, unsigned count, unsigned char* constant,
                        const uint16_t* hiddenMulti, void* context, TdataBlock* records)
        : TdataBlockRendering(prototype) {
        fFirst = fCurrent = fDirectBase[1] = first;
        fLastIndex = count ? count - 1 : 0;
        fDirectBase[0] = constant;
        fHiddenMulti = hiddenMulti;
        fContext = context;
        fRecords = records;
        if (hiddenMulti && hiddenMulti[0]) constructHidden(count);
    }
    // The sample records of a batch as one block, `stride` apart, with
    // `fields` saying where each numbered field lies in a record.
    TdataBlockRendering(const TdataBlockRendering& prototype, unsigned stride, unsigned char* first, unsigned count,
                        const unsigned* fields, void* context)
        : TdataBlockRendering(prototype) {
        moveRecords(stride, first, count, fields);
        fContext = context;
    }
    TdataBlockRendering(const TdataBlockRendering&) = default;
    // A block kept between runs (made for no samples) is readied for each:
    // `resize` when the run's size or records differ from the last run's,
    // then `constructValues` for the values that need construction, which
    // `endRun` destroys again. The clean marks need no reset: a pass clears
    // them at its first compute of the node.
    void resize(unsigned count, TdataBlock* records) {
        fLastIndex = count ? count - 1 : 0;
        fRecords = records;
    }
    void constructValues(unsigned count) {
        if (fHiddenMulti && fHiddenMulti[0]) constructHidden(count);
    }
    void endRun() { destroyHidden(); }
    // A kept records block moved to the next batch's records.
    void moveRecords(unsigned stride, unsigned char* first, unsigned count, const unsigned* fields) {
        fStride = fDirectStride = stride;
        fFirst = fCurrent = fDirectBase[1] = first;
        fLastIndex = count ? count - 1 : 0;
        fRecordFields = fields;
    }
    TdataBlockRendering& operator=(const TdataBlockRendering&) = delete;
    ~TdataBlockRendering() override;

    // Set-up of one block for `count` samples. `hiddenMulti` is a count and
    // then the indices of the attributes that need their values constructed.
    void setUp(TdependNode* node, unsigned stride, unsigned char* first, unsigned count, unsigned char* constant,
               AttrInfo* offsets, MultiInfo* multi, const uint16_t* hiddenMulti, void* context);
    void tearDown();

    void setCurrent(unsigned index) { fCurrent = fFirst + size_t(fStride) * index; }
    unsigned currentIndex() const override { return fStride ? unsigned((fCurrent - fFirst) / fStride) : 0; }
    unsigned elementCount() const override { return fStride ? fLastIndex + 1 : 1; }
    unsigned stride() const { return fStride; }
    TdependNode* node() const { return fNode; }
    void* context() const { return fContext; }
    AttrInfo& info(const Tattribute& a) { return fOffsets[a.index()]; }

    // The word of a direct table for attribute `a` laid out as `e`: plain
    // values only, so that an inline answer is the one the virtual road gives.
    static uint32_t directEntry(const AttrInfo& e, const Tattribute& a);
    // The table, one word per attribute index, built with the program; null
    // sends every read down the virtual road.
    void setDirect(const uint32_t* table) { fDirect = table; }
    void setRecords(TdataBlock* records) { fRecords = records; }
    // What computes the values its table marks kDirectComputed; by default
    // the segment hook the engine installs.
    void setComputeHook(ComputeHook hook) { fComputeHook = hook; }

    void debug(TdebugOutput& out, unsigned level) const override;
    using TdataBlock::inputValue;
    using TdataBlock::outputValue;
    TdataHandle outputValue(const Tattribute& a) override;
    TdataHandle outputValue(const Tplug& p) override;
    TdataHandle inputValue(const Tattribute& a) override;
    TdataHandle inputValue(const Tplug& p) override;
    size_t dataBlockMemorySize() const override { return size_t(fStride) * (fLastIndex + 1); }
    unsigned multiIndices(const Tattribute& a, unsigned* indices, unsigned capacity) const override;
    TdataHandle elementValue(const Tattribute& a, unsigned logicalIndex) override;
    unsigned existingElements(const Tattribute& a, TdataHandle* out, unsigned capacity) override;
    unsigned existingElementValues(const Tattribute& a, const void** values, unsigned& stride, unsigned capacity) override;

    // Outputs the node produced in its latest compute. A node that computes
    // several outputs in one call marks each; the engine then skips the
    // computes of the others in that run. Marks are by top-level attribute;
    // past kMaxCleanMarks further marks are dropped, which only costs a
    // recompute.
    static constexpr unsigned kMaxCleanMarks = 8;
    bool isClean(const Tattribute& a) const override;
    void clearCleanMarks() { fCleanCount = 0; }
    // For a node the engine computes once per pass, nobody reads the marks:
    // setClean returns at once.
    void ignoreCleanMarks() { fMarksIgnored = true; }
    unsigned cleanMarkCount() const { return fCleanCount; }

protected:
    TdataHandle inputRun(const Tattribute& a, unsigned first, unsigned count) override;
    TdataHandle outputRun(const Tattribute& a, unsigned first, unsigned count) override;
    void markClean(const Tattribute& a) override;

private:
    // The hook behind kDirectComputed words: runs the segment that computes
    // `a`, in this block or in the block its reference names.
    static void computeForDirect(TdataBlock& block, const Tattribute& a, unsigned first, unsigned count, uint64_t selected);
    TdataHandle locate(const Tattribute& a);
    // The constants lie where the direct table's constant words point.
    unsigned char* constants() const { return fDirectBase[0]; }
    // The kinds that fill or compute a value before handing it out; kept
    // apart so that a read of a present value stays a few instructions.
    TdataHandle fillAndLocate(const Tattribute& a, AttrInfo& e, unsigned first, unsigned count);
    void constructHidden(unsigned count);
    void destroyHidden();
    void fillFromDefault(const Tattribute& a, AttrInfo& e, unsigned first, unsigned count);
    void fillFromChildren(const Tattribute& a, unsigned first, unsigned count);
    void computeSegment(int segment, const Tattribute& a, unsigned first, unsigned count, void* context);

    // What a run writes, then what a block made from a prototype copies.
    unsigned char* fFirst = nullptr;
    unsigned char* fCurrent = nullptr;
    const uint16_t* fHiddenMulti = nullptr;
    void* fContext = nullptr;
    TdependNode* fNode = nullptr;
    AttrInfo* fOffsets = nullptr;
    MultiInfo* fMulti = nullptr;
    unsigned fStride = 0;
    unsigned fLastIndex = 0;  // of the elements; a count kept in the pointer's place keeps the block small
    uint8_t fCleanCount = 0;
    uint16_t fClean[kMaxCleanMarks] = {};
};
