#pragma once
// TshadingOpus: the compiled program of one (shading group, option) pair. A
// flat array of nine-word instructions, cut into segments (segment 0 is the
// straight-line program; the others are computed on demand), with the
// layouts of the nodes' data blocks and the constants read at analysis.
// Shared read-only by every render thread; a run keeps all of its state in a
// frame carved from the calling thread's stack, or in the frame the thread
// keeps for the program (TshadingFrames), so shading allocates nothing.
#include <cstdint>

#include "framework/data_block_rendering.h"
#include "framework/host/allocator.h"
#include "framework/host/bit_field.h"
#include "framework/host/plug.h"
#include "framework/host/threads.h"
#include "shading/shading_types.h"
#include "shading/user_sample_data.h"

class TDNshadingEngine;
class TdependNode;
class TshadingNode;
class TrenderGroupBase;
class Tsample;
class TlightData;
struct TSEframe;
struct TSElighting;
struct TSEstep;

enum TSEopcode : uint32_t {
    kOpCompute = 0,        // node safe for many threads
    kOpComputeLocked = 1,  // under the node's mutex
    kOpSetUpBlock = 2,
    kOpCopy = 3,
    kOpCopyFromStack = 4,
    kOpPushProvider = 5,
    kOpPopProvider = 6,
    kOpInitStack = 7,
    kOpLinkBlock = 10,  // store in a block the reference to another block's value
    kOpLightArray = 11,  // fill a node's light array from the lights run for each sample
    kOpLinkSample = 12,  // make an input read, or an output write, a sample item where the records lie
};
// The opcode's name for listings; null for a value that is no opcode.
const char* opcodeName(uint32_t opcode);

// Nine 32-bit words. Pointers do not fit a word on this build, so operands
// that are objects are indices into the opus's tables.
struct TSEinstruction {
    uint32_t opcode;
    uint32_t word[8];
};
static_assert(sizeof(TSEinstruction) == 36);

// One side of a copy: a data block's constant or variable area, or a field
// of the samples.
enum TSEside : uint8_t { kSideConstant = 0, kSideVariable = 1, kSideSample = 2 };

// Where one side of a copy reads or writes, resolved for a run.
struct TSErun {
    const unsigned char* source;  // block: element of sample 0; sample: unused
    unsigned char* dest;
    unsigned sourceStride;  // 0 for a constant
    unsigned destStride;
    unsigned sourceField;  // byte offset in each sample record
    unsigned destField;
    Tsample* const* samples;
    unsigned size;  // bytes of the value, for the routine of any size
};
using TSEcopyRoutine = void (*)(const TSErun& run, unsigned first, unsigned last);

// The typed copy routine for a value of `size` bytes between the two sides;
// one specialised loop per (value class, source side, destination side).
// Sizes outside the value classes (whole multis) get a byte-wise loop.
TSEcopyRoutine selectCopyRoutine(unsigned size, TSEside source, TSEside dest);

struct TSEcopy {
    TSEcopyRoutine routine;
    TSEside sourceSide, destSide;
    uint16_t sourceBlock, destBlock;  // unused for a sample side
    uint32_t sourceOffset, destOffset;  // in the block's area, or the sample item index
    uint32_t size;
    int32_t sourceSegment;  // computed on demand before the copy, or -1
    // The source output is written into the records when they lie evenly
    // spaced; the copy only runs when they do not.
    bool destInPlace = false;
};

// The layout of one node's block.
struct TSEblockLayout {
    TdependNode* node;
    unsigned elementSize;     // bytes per sample in the variable area, multiple of 8
    unsigned variableBase;    // per-sample byte offset of this block in the frame's variable area
    unsigned constantOffset;  // of this block's constant area in the opus constants
    unsigned constantSize;
    TdataBlockRendering::AttrInfo* info;  // one entry per attribute
    TdataBlockRendering::MultiInfo* multi;
    uint16_t* hidden;  // count, then the attributes whose values need construction
};

// The stack of one provided sample item in the run's loop area: where reads
// of the item go while providers run, innermost on top.
struct TSEproviderEntry {
    uint16_t block;  // kNoBlock for the sample itself
    uint16_t reserved;
    uint32_t offset;  // in the block's variable element, or the sample item
    uint32_t nesting;  // pushes of the same key on top of this one
    uint32_t pad;
};
struct TSEproviderStack {
    uint32_t top;  // index of the top entry
    uint32_t capacity;
};
static_assert(sizeof(TSEproviderEntry) == 16 && sizeof(TSEproviderStack) == 8);

// What the compute instructions name.
struct TSEcomputeTarget {
    Tplug plug;
    TshadingNode* shadingNode;  // null for a node without the mixin
    TmtRecursiveMutex* mutex;   // for kOpComputeLocked
};

class TshadingOpus {
public:
    TshadingOpus(TdependNode* node, unsigned option, TstackArena* arena);
    virtual ~TshadingOpus();
    TshadingOpus(const TshadingOpus&) = delete;
    TshadingOpus& operator=(const TshadingOpus&) = delete;

    // Takes over the program built by analysis; every pointer lies in the arena.
    struct Program {
        TSEinstruction* instructions;
        unsigned instructionCount;
        unsigned* segments;  // segmentCount + 1 entries: start of each segment, then the end
        unsigned segmentCount;
        TSEblockLayout* blocks;
        unsigned blockCount;
        TSEcopy* copies;
        unsigned copyCount;
        TSEcomputeTarget* targets;
        unsigned targetCount;
        TdependNodeMutexPtr* mutexes;  // held for the life of the opus
        TdependNode** mutexNodes;       // whose mutex each is
        unsigned mutexCount;
        unsigned char* constants;  // every block's constant area, then the root's
        unsigned constantSize;
        unsigned variableSize;  // bytes per sample over all blocks
        bool zeroVariables;     // a loop may read a value before it is computed
        unsigned loopSize;      // bytes of provider stacks
    };
    void initialize(const Program& program, TbitField64 needs, TbitField64 requested, unsigned* fieldOffsets,
                    TDNshadingEngine* engine);

    // Shades `count` (1 to 64) samples of one batch.
    void shade(unsigned count, Tsample** samples) const;

    // Runs segment `segment` for samples first .. first + count - 1 of the run
    // whose frame is `context`, skipping samples it has already computed.
    static void computeValue(void* context, int segment, const Tattribute* a, unsigned first, unsigned count);
    // The blocks' hook for reads of values a cut segment computes.
    static void computeForBlock(TdataBlock& block, const Tattribute& a, unsigned first, unsigned count, uint64_t selected);

    bool releaseOpus();

    // Lights (opus_lights.cpp). A group's program keeps one light program
    // per light of the group; shade runs them first over the samples that
    // have their own lighting, and the network reads the records through
    // its light array.
    void addIlluminationData(unsigned lightCount, TstackArena& arena);
    void addIlluminatingLight(unsigned index, TshadingOpus* lightOpus);
    unsigned numberOfLights() const { return fLightCount; }
    TshadingOpus* illuminatingLight(unsigned index) const { return index < fLightCount ? fLights[index] : nullptr; }
    // A wider sample layout, once the lights' needs are known.
    void setFieldOffsets(unsigned* fieldOffsets, TbitField64 needs);
    // Runs the lights of the run whose frame is `context` at `count` other
    // points, for sample `sample` of the run: results[p] receives up to
    // numberOfLights() records for point p. `cameraToWorld`, when given,
    // places "pointWorld". Returns the number of lights that ran.
    static unsigned sampleLights(void* context, unsigned sample, unsigned count, const T3Float* points,
                                 TlightData* const* results, const TfltMatrix* cameraToWorld = nullptr);

    TdependNode* node() const { return fNode; }
    TDNshadingEngine* engine() const { return fEngine; }
    unsigned shadingOption() const { return fOption; }
    TbitField64 needs() const { return fNeeds; }
    TbitField64 requested() const { return fRequested; }
    unsigned* fieldOffsetTable() const { return fFieldOffsets; }
    const Program& program() const { return fProgram; }
    // Bytes of stack a run of `count` samples takes.
    size_t frameSize(unsigned count) const;
    // Bytes of the frame a thread keeps for the program (TshadingFrames).
    size_t keptFrameSize() const;
    // User sample data: the table, taken over from analysis (in the arena).
    void addUserSampleData(TSEudSampleTable* table) { fUserData = table; }
    const TSEudSampleTable* userSampleDataTable() const { return fUserData; }
    bool userSampleData() const { return fUserData && fUserData->count; }
    // Entries of the field table past the items' end: the illumination slot
    // and the user items, or 0 without user items.
    unsigned sizeOffset() const { return userSampleData() ? fUserData->count + 1 : 0; }
    // Bytes of the user items, each rounded up to 4.
    unsigned userSampleSize() const;
    // Before a batch runs: each user item from its fill object for the
    // group's object, or copied from its source field.
    void fillUserSampleData(TrenderGroupBase* group, unsigned count, Tsample** samples) const;

    static void resetShadeVectorHistogram() {}
    static void printShadeVectorHistogram() {}

    // The program as a run walks it, resolved once when it is built: each
    // block's set-up, the links and each segment's steps with their operands
    // looked up. Defined in shading_opus.cpp; lives in the arena.
    struct Plan;

private:
    void buildPlan();
    static uint64_t sNextSerial();
    void linkRecordFields(Plan& plan) const;
    // Whether records laid out by `fields` carry every item a direct word names.
    bool carriesRecordItems(const unsigned* fields) const;
    void carveFrame(TSEframe& frame, unsigned char* memory, unsigned layout) const;
    void setUpFrame(TSEframe& frame) const;
    // Writes the references of links first .. last - 1 of the plan.
    void linkBlocks(TSEframe& frame, unsigned first, unsigned last) const;
    void makeKeptFrame(TSEframe& frame, unsigned char* memory) const;
    void startKeptRun(TSEframe& frame) const;
    bool needsSampleLinks(const TSEframe& frame) const;
    void linkSamples(TSEframe& frame) const;
    void run(TSEframe& frame, unsigned segment, unsigned first, unsigned count) const;
    // A step that is not a plain compute, out of the run loop.
    [[gnu::noinline]] void runStep(TSEframe& frame, const TSEstep& step, unsigned first, unsigned count) const;
    [[gnu::noinline, gnu::cold]] static void ensureOnDemand(const TSEcomputeTarget& target, TdataBlockRendering& block);
    void execute(TSEframe& frame, const TSEinstruction& in, unsigned first, unsigned count) const;
    // Runs the segment for the samples whose bits are set in `wanted`.
    void runSegment(TSEframe& frame, int segment, uint64_t wanted) const;
    // The bodies of run and runSegment, for the calls on the lazy reads' road.
    void runSteps(TSEframe& frame, unsigned segment, unsigned first, unsigned count) const;
    void runSegmentInline(TSEframe& frame, int segment, uint64_t wanted) const;
    void copy(TSEframe& frame, const TSEcopy& c, unsigned first, unsigned count) const;
    void copyLights(TSEframe& frame, const TSEinstruction& in, unsigned first, unsigned count) const;
    void releaseLights();
    void runLights(unsigned count, Tsample** samples, TSElighting& lighting, uint8_t* groupOf, Tsample** unique) const;
    // Which lights light the batch: false when none of the group's lights is masked out.
    bool objectMask(Tsample* const* samples, const TbitFieldFixedN*& row) const;
    void copyFromStack(TSEframe& frame, unsigned stackOffset, const TSEcopy& c, unsigned first, unsigned count) const;

    TDNshadingEngine* fEngine = nullptr;
    TdependNode* fNode;
    unsigned fOption;
    TstackArena* fArena;
    Program fProgram{};
    const Plan* fPlan = nullptr;
    uint64_t fSerial = 0;  // of the plan, for the frames threads keep
    TbitField64 fNeeds, fRequested;
    unsigned* fFieldOffsets = nullptr;
    TshadingOpus** fLights = nullptr;  // in the group's arena
    unsigned fLightCount = 0;
    TSEudSampleTable* fUserData = nullptr;
};
