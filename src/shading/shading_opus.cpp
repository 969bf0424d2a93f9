#include "shading/shading_opus.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
#include <vector>

#include "framework/host/depend_node.h"
#include "framework/shading_node.h"
#include "shading/dispatch_compute.h"
#include "shading/opus_frame.h"
#include "shading/render_bases.h"
#include "shading/sample.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"
#include "shading/shading_frames.h"

namespace {
struct Dispatcher : TDNdispatchCompute {
    static bool run(TdependNode* node, const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
        return dispatchCompute(node, plug, block, first, count);
    }
};

constexpr uint16_t kNoBlock = 0xFFFF;
// Steps of the plan only, both unlocked computes: of a node that runs once
// in the pass, with nobody reading its clean marks; of a node with several
// outputs in the pass, whose marks are read (see alreadyComputed).
constexpr uint32_t kStepPlainCompute = 0x100;
constexpr uint32_t kStepMarkedCompute = 0x101;
constexpr size_t kFrameAlignment = 16;
}  // namespace

// A step of a run. A compute names its node, plug and on-demand state
// directly, so that a step is a few loads before the node's call.
struct TSEstep {
    uint32_t opcode;
    uint32_t operand;  // a copy, a compute target, or else the instruction
    uint32_t block;
    uint32_t sibling;  // a later compute of the same node in this pass
    const TSEcomputeTarget* target;  // for a compute
    std::atomic<int32_t>* onDemand;  // the node's on-demand state; null without the mixin
};

namespace {

// A node with several outputs in the pass: its first compute clears the
// block's clean marks; a later one is skipped when an earlier compute
// marked its output.
inline bool alreadyComputed(TdataBlockRendering& block, const TSEstep& step) {
    if (step.sibling) return block.isClean(*step.target->plug.attribute());
    block.clearCleanMarks();
    return false;
}

size_t align16(size_t n) { return (n + 15) & ~size_t(15); }

uint64_t rangeMask(unsigned first, unsigned count) {
    if (count == 0 || first >= 64) return 0;
    uint64_t bits = count >= 64 ? ~uint64_t(0) : (uint64_t(1) << count) - 1;
    return bits << first;
}

// ---------------------------------------------------------------- copy routines

template <unsigned N>
struct Tvalue {
    unsigned char bytes[N];
};

// The run's fields are read into locals first: the byte stores of the copy
// may alias the run description, and would reload it on every sample.
template <unsigned N, TSEside S, TSEside D>
void copyFixed(const TSErun& r, unsigned first, unsigned last) {
    Tsample* const* const samples = r.samples;
    const size_t sourceField = r.sourceField, destField = r.destField;
    const size_t sourceStride = r.sourceStride, destStride = r.destStride;
    const unsigned char* const source = r.source;
    unsigned char* const dest = r.dest;
    auto to = [&](unsigned i) {
        return D == kSideSample ? reinterpret_cast<unsigned char*>(samples[i]) + destField : dest + destStride * i;
    };
    if constexpr (S == kSideConstant) {
        // One load, many stores.
        Tvalue<N> v;
        std::memcpy(&v, source, N);
        for (unsigned i = first; i <= last; ++i) std::memcpy(to(i), &v, N);
    } else {
        for (unsigned i = first; i <= last; ++i) {
            const unsigned char* s = S == kSideSample ? reinterpret_cast<const unsigned char*>(samples[i]) + sourceField
                                                      : source + sourceStride * i;
            Tvalue<N> v;
            std::memcpy(&v, s, N);
            std::memcpy(to(i), &v, N);
        }
    }
}

template <TSEside S, TSEside D>
void copyBytes(const TSErun& r, unsigned first, unsigned last) {
    for (unsigned i = first; i <= last; ++i) {
        const unsigned char* s = S == kSideSample     ? reinterpret_cast<const unsigned char*>(r.samples[i]) + r.sourceField
                                 : S == kSideConstant ? r.source
                                                      : r.source + size_t(r.sourceStride) * i;
        unsigned char* d = D == kSideSample ? reinterpret_cast<unsigned char*>(r.samples[i]) + r.destField : r.dest + size_t(r.destStride) * i;
        std::memcpy(d, s, r.size);
    }
}
constexpr TSEcopyRoutine kAnySize[3][3] = {
    {copyBytes<kSideConstant, kSideConstant>, copyBytes<kSideConstant, kSideVariable>, copyBytes<kSideConstant, kSideSample>},
    {copyBytes<kSideVariable, kSideConstant>, copyBytes<kSideVariable, kSideVariable>, copyBytes<kSideVariable, kSideSample>},
    {copyBytes<kSideSample, kSideConstant>, copyBytes<kSideSample, kSideVariable>, copyBytes<kSideSample, kSideSample>},
};

// Value classes by size: 1-byte, 16-bit, 32-bit, pairs, triples, light data, matrices.
constexpr unsigned kClassSizes[] = {1, 2, 4, 8, 12, 16, sizeof(void*) == 8 ? 48u : 40u, 64};
constexpr unsigned kClassCount = sizeof(kClassSizes) / sizeof(kClassSizes[0]);

template <unsigned N>
constexpr TSEcopyRoutine kRoutines[3][3] = {
    {copyFixed<N, kSideConstant, kSideConstant>, copyFixed<N, kSideConstant, kSideVariable>, copyFixed<N, kSideConstant, kSideSample>},
    {copyFixed<N, kSideVariable, kSideConstant>, copyFixed<N, kSideVariable, kSideVariable>, copyFixed<N, kSideVariable, kSideSample>},
    {copyFixed<N, kSideSample, kSideConstant>, copyFixed<N, kSideSample, kSideVariable>, copyFixed<N, kSideSample, kSideSample>},
};

const TSEcopyRoutine (*routineTable(unsigned size))[3] {
    switch (size) {
        case 1: return kRoutines<1>;
        case 2: return kRoutines<2>;
        case 4: return kRoutines<4>;
        case 8: return kRoutines<8>;
        case 12: return kRoutines<12>;
        case 16: return kRoutines<16>;
        case kClassSizes[6]: return kRoutines<kClassSizes[6]>;
        case 64: return kRoutines<64>;
        default: return kAnySize;
    }
}

struct ComputeValueInstaller {
    ComputeValueInstaller() { TdataBlockRendering::setComputeValueHook(&TshadingOpus::computeValue); }
};
const ComputeValueInstaller sInstaller;
}  // namespace

TSEcopyRoutine selectCopyRoutine(unsigned size, TSEside source, TSEside dest) {
    static_assert(kClassCount == 8);
    auto table = routineTable(size);
    return table ? table[source][dest] : nullptr;
}

TshadingOpus::TshadingOpus(TdependNode* node, unsigned option, TstackArena* arena) : fNode(node), fOption(option), fArena(arena) {
    // Another subsystem's test may have replaced the hook; the engine's is the one that counts while programs exist.
    TdataBlockRendering::setComputeValueHook(&TshadingOpus::computeValue);
}

TshadingOpus::~TshadingOpus() {
    for (unsigned m = fProgram.mutexCount; m-- > 0;) {
        TdepNodeMutexMgr::instance().returnMutex(fProgram.mutexNodes[m], fProgram.mutexes[m]);
        fProgram.mutexes[m].~TdependNodeMutexPtr();
    }
    for (unsigned t = fProgram.targetCount; t-- > 0;) fProgram.targets[t].~TSEcomputeTarget();
}

struct TshadingOpus::Plan {
    // A copy with both sides looked up. A constant side reads at `base` in
    // the frame's constants; a variable side at base * layout + offset in
    // its variables, `stride` apart; a sample side reads field `offset`.
    struct Copy {
        TSEcopyRoutine routine;
        TSEside sourceSide, destSide;
        uint32_t sourceBase, sourceOffset, sourceStride;
        uint32_t destBase, destOffset, destStride;
        uint32_t size;
        int32_t sourceSegment;
        bool destInPlace;
    };
    // An input that reads another block's output where it lies.
    struct Link {
        uint32_t destBase, destOffset, sourceBase, sourceOffset, sourceBlock, destBlock;
    };
    // An input that reads a sample item where the records lie, or a copy
    // of it at `copyOffset` of its own block when they are not evenly spaced;
    // or an output that writes the item there, or at `copyOffset` for the
    // copy after it.
    struct SampleLink {
        uint32_t destBase, destOffset, copyOffset, destBlock, stride, item, attribute;
        TSEcopyRoutine copy;  // null for an output
        bool inRecords;       // its direct word names the item's field in the records
    };
    using Step = TSEstep;
    Copy* copies;  // one per program copy
    Link* links;  // those into blocks with values to construct first: a kept frame makes them again each run
    unsigned linkCount;
    unsigned relinkCount;
    SampleLink* sampleLinks;
    unsigned sampleLinkCount;
    unsigned* prologue;  // instructions that start the provider stacks
    unsigned prologueCount;
    bool* marksRead;  // per block: the node computes more than one output
    uint32_t** direct;  // per block: its direct table, one word per attribute
    unsigned* directWords;  // per block: the words of its table
    unsigned resolvedWords;  // over all blocks: the entries of a kept frame's resolved tables
    // The entries of words that name a field of the records: they follow
    // the records from batch to batch.
    struct RecordEntry {
        uint32_t entry, item, field;  // the field in the program's own sample layout
        uint32_t at;                  // the byte offset of the entry's value in the resolved tables
    };
    RecordEntry* recordEntries;
    unsigned recordEntryCount;
    TdataBlockRendering* prototypes;  // per block: all a run's block holds that does not depend on the batch
    Step* steps;
    unsigned* segmentSteps;  // segmentCount + 1 entries
    // The same without the copies into items written in place, which have
    // nothing to do when the records are evenly spaced.
    Step* evenSteps;
    unsigned* evenSegmentSteps;
    uint16_t* constructed;   // the blocks with values to tear down: count, then the blocks
    TdataBlockRendering* recordsPrototype;  // the records as one block, but for the batch
    size_t frameFixed;       // bytes of a frame that do not depend on the batch size
    size_t keptSize;         // bytes of a kept frame
    // Every item linked to the samples has a field in the program's sample
    // layout: with evenly spaced records, no reference is made per batch.
    bool recordsCarryAll;
};

void TshadingOpus::initialize(const Program& program, TbitField64 needs, TbitField64 requested, unsigned* fieldOffsets,
                              TDNshadingEngine* engine) {
    fProgram = program;
    fNeeds = needs;
    fRequested = requested;
    fFieldOffsets = fieldOffsets;
    fEngine = engine;
    buildPlan();
}

uint64_t TshadingOpus::sNextSerial() {
    static std::atomic<uint64_t> sSerial{0};
    return sSerial.fetch_add(1, std::memory_order_relaxed) + 1;
}

void TshadingOpus::buildPlan() {
    // Frames a thread keeps are made for one plan: a new plan, or a new
    // program at this address, never finds an old one.
    fSerial = sNextSerial();
    fPlan = nullptr;
    if (!fArena) return;
    const Program& p = fProgram;
    auto* plan = new (fArena->allocate(sizeof(Plan))) Plan{};
    auto array = [&](auto*& out, size_t n) {
        using T = std::remove_reference_t<decltype(*out)>;
        out = n ? static_cast<T*>(fArena->allocate(sizeof(T) * n)) : nullptr;
    };
    array(plan->copies, p.copyCount);
    for (unsigned k = 0; k < p.copyCount; ++k) {
        const TSEcopy& c = p.copies[k];
        Plan::Copy& r = plan->copies[k];
        r = {c.routine, c.sourceSide, c.destSide, 0, c.sourceOffset, 0, 0, c.destOffset, 0, c.size, c.sourceSegment, c.destInPlace};
        auto side = [&](TSEside s, uint16_t block, uint32_t& base, uint32_t& offset, uint32_t& stride) {
            if (s == kSideConstant) {
                base = (block == kNoBlock ? 0 : p.blocks[block].constantOffset) + offset;
                offset = 0;
            } else if (s == kSideVariable) {
                base = p.blocks[block].variableBase;
                stride = p.blocks[block].elementSize;
            }
        };
        side(c.sourceSide, c.sourceBlock, r.sourceBase, r.sourceOffset, r.sourceStride);
        side(c.destSide, c.destBlock, r.destBase, r.destOffset, r.destStride);
    }
    array(plan->marksRead, p.blockCount);
    for (unsigned b = 0; b < p.blockCount; ++b) plan->marksRead[b] = false;
    array(plan->direct, p.blockCount);
    array(plan->directWords, p.blockCount);
    for (unsigned b = 0; b < p.blockCount; ++b) {
        const TSEblockLayout& layout = p.blocks[b];
        const unsigned n = layout.node && layout.info ? layout.node->attributeCount() : 0;
        plan->directWords[b] = n;
        plan->resolvedWords += n;
        array(plan->direct[b], n);
        for (unsigned i = 0; i < n; ++i)
            plan->direct[b][i] = TdataBlockRendering::directEntry(layout.info[i], *layout.node->attribute(i));
    }
    // Segment 0 starts with the set-up of every block, the provider stacks
    // and the links; the frame does those before any step runs.
    unsigned k = p.segmentCount ? p.segments[0] : 0, end0 = p.segmentCount ? p.segments[1] : 0;
    unsigned prologueEnd = k;
    unsigned links = 0, sampleLinks = 0, stacks = 0;
    while (prologueEnd < end0) {
        uint32_t op = p.instructions[prologueEnd].opcode;
        if (op != kOpSetUpBlock && op != kOpInitStack && op != kOpLinkBlock && op != kOpLinkSample) break;
        links += op == kOpLinkBlock;
        sampleLinks += op == kOpLinkSample;
        stacks += op == kOpInitStack;
        ++prologueEnd;
    }
    array(plan->links, links);
    array(plan->sampleLinks, sampleLinks);
    array(plan->recordEntries, sampleLinks);
    array(plan->prologue, stacks);
    for (; k < prologueEnd; ++k) {
        const TSEinstruction& in = p.instructions[k];
        if (in.opcode == kOpInitStack) plan->prologue[plan->prologueCount++] = k;
        if (in.opcode == kOpLinkSample) {
            const TSEblockLayout& dest = p.blocks[in.word[0]];
            const unsigned size = dest.node->attribute(in.word[1])->size();
            plan->sampleLinks[plan->sampleLinkCount++] = {dest.variableBase, dest.info[in.word[1]].offset, in.word[3], in.word[0],
                                                          dest.elementSize, in.word[2], in.word[1],
                                                          in.word[4] ? nullptr : selectCopyRoutine(size, kSideSample, kSideVariable),
                                                          false};
            continue;
        }
        if (in.opcode != kOpLinkBlock) continue;
        const TSEblockLayout& dest = p.blocks[in.word[0]];
        const TSEblockLayout& source = p.blocks[in.word[2]];
        plan->links[plan->linkCount++] = {dest.variableBase, dest.info[in.word[1]].offset, source.variableBase,
                                          source.info[in.word[3]].offset, in.word[2], in.word[0]};
    }
    // Constructing a block's values clears the references among them, so a
    // kept frame links those again after each run's construction.
    auto constructs = [&](uint32_t b) { return p.blocks[b].hidden && p.blocks[b].hidden[0]; };
    plan->relinkCount = unsigned(std::stable_partition(plan->links, plan->links + plan->linkCount,
                                                       [&](const Plan::Link& l) { return constructs(l.destBlock); }) -
                                 plan->links);
    linkRecordFields(*plan);
    // The steps: every instruction after the prologue, segment by segment.
    array(plan->segmentSteps, p.segmentCount + 1);
    array(plan->steps, p.instructionCount);
    unsigned n = 0;
    std::vector<unsigned> computes(p.blockCount, 0);
    for (unsigned s = 0; s < p.segmentCount; ++s) {
        plan->segmentSteps[s] = n;
        for (unsigned i = s == 0 ? prologueEnd : p.segments[s]; i < p.segments[s + 1]; ++i) {
            const TSEinstruction& in = p.instructions[i];
            Plan::Step& step = plan->steps[n++];
            step = {in.opcode, i, 0, 0, nullptr, nullptr};
            if (in.opcode == kOpCopy) step.operand = in.word[0];
            if (in.opcode == kOpCompute || in.opcode == kOpComputeLocked) {
                const TSEcomputeTarget& target = p.targets[in.word[1]];
                step = {in.opcode, in.word[1], in.word[0], in.word[2], &target,
                        target.shadingNode ? &target.shadingNode->onDemandState() : nullptr};
                if (in.word[0] < p.blockCount) ++computes[in.word[0]];
            }
        }
    }
    if (p.segmentCount) plan->segmentSteps[p.segmentCount] = n;
    for (unsigned b = 0; b < p.blockCount; ++b) plan->marksRead[b] = computes[b] > 1;
    for (unsigned k = 0; k < n; ++k) {
        Plan::Step& step = plan->steps[k];
        if (step.opcode != kOpCompute || step.block >= p.blockCount) continue;
        step.opcode = step.sibling || plan->marksRead[step.block] ? kStepMarkedCompute : kStepPlainCompute;
    }
    // A copy whose source an on-demand segment computes keeps its step: the
    // segment runs even when the copy has nothing to do.
    auto inPlaceOnly = [&](const Plan::Step& step) {
        if (step.opcode != kOpCopy) return false;
        const Plan::Copy& c = plan->copies[step.operand];
        return c.destInPlace && c.sourceSegment <= 0;
    };
    if (std::any_of(plan->steps, plan->steps + n, inPlaceOnly)) {
        array(plan->evenSegmentSteps, p.segmentCount + 1);
        array(plan->evenSteps, n);
        unsigned kept = 0;
        for (unsigned s = 0; s < p.segmentCount; ++s) {
            plan->evenSegmentSteps[s] = kept;
            for (unsigned k = plan->segmentSteps[s]; k < plan->segmentSteps[s + 1]; ++k)
                if (!inPlaceOnly(plan->steps[k])) plan->evenSteps[kept++] = plan->steps[k];
        }
        if (p.segmentCount) plan->evenSegmentSteps[p.segmentCount] = kept;
    } else {
        plan->evenSteps = plan->steps;
        plan->evenSegmentSteps = plan->segmentSteps;
    }
    // Never torn down: a prototype constructs no values.
    array(plan->prototypes, p.blockCount);
    for (unsigned b = 0; b < p.blockCount; ++b) {
        const TSEblockLayout& layout = p.blocks[b];
        auto* block = new (&plan->prototypes[b])
            TdataBlockRendering(layout.node, layout.elementSize, nullptr, 0, nullptr, layout.info, layout.multi, nullptr, nullptr);
        if (!plan->marksRead[b]) block->ignoreCleanMarks();
        block->setDirect(plan->direct[b]);
        block->setComputeHook(&computeForBlock);
    }
    plan->recordsPrototype = new (fArena->allocate(sizeof(TdataBlockRendering)))
        TdataBlockRendering(nullptr, 0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr);
    std::vector<uint16_t> constructed{0};
    for (unsigned b = 0; b < p.blockCount; ++b)
        if (p.blocks[b].hidden && p.blocks[b].hidden[0]) constructed.push_back(uint16_t(b));
    constructed[0] = uint16_t(constructed.size() - 1);
    array(plan->constructed, constructed.size());
    std::copy(constructed.begin(), constructed.end(), plan->constructed);
    plan->frameFixed = align16(sizeof(TdataBlockRendering) * (p.blockCount + 1)) + align16(p.constantSize) +
                       align16(2 * sizeof(uint64_t) * p.segmentCount) + align16(p.loopSize);
    plan->keptSize = align16(sizeof(TSEframe)) + plan->frameFixed + align16(size_t(p.variableSize) * kBatchSize) +
                     align16(sizeof(TdataBlock::Resolved) * plan->resolvedWords);
    fPlan = plan;
}

void TshadingOpus::linkRecordFields(Plan& plan) const {
    // An input or output linked to a sample item names the item in its
    // direct word: when the records lie evenly spaced, reads and writes go
    // to its field there without a reference made per batch, whatever the
    // records' layout. Redone when the program's own sample layout changes.
    plan.recordsCarryAll = true;
    plan.recordEntryCount = 0;
    for (unsigned k = 0; k < plan.sampleLinkCount; ++k) {
        Plan::SampleLink& link = plan.sampleLinks[k];
        const TSEblockLayout& layout = fProgram.blocks[link.destBlock];
        uint32_t& word = plan.direct[link.destBlock][link.attribute];
        link.inRecords = fFieldOffsets && fFieldOffsets[link.item];
        plan.recordsCarryAll &= link.inRecords;
        if (link.inRecords) {
            uint32_t entry = link.attribute;
            for (unsigned b = 0; b < link.destBlock; ++b) entry += plan.directWords[b];
            const uint32_t at = uint32_t(entry * sizeof(TdataBlock::Resolved) + offsetof(TdataBlock::Resolved, value));
            plan.recordEntries[plan.recordEntryCount++] = {entry, link.item, fFieldOffsets[link.item], at};
        }
        word = link.inRecords ? (link.item << TdataBlock::kDirectShift) | TdataBlock::kDirectInput | TdataBlock::kDirectOutput |
                                    TdataBlock::kDirectVariable | TdataBlock::kDirectOther | TdataBlock::kDirectRecord
                              : TdataBlockRendering::directEntry(layout.info[link.attribute], *layout.node->attribute(link.attribute));
    }
}

bool TshadingOpus::carriesRecordItems(const unsigned* fields) const {
    // User sample data is numbered per program: another layout's numbers mean other data.
    for (unsigned k = 0; k < fPlan->recordEntryCount; ++k) {
        const unsigned item = fPlan->recordEntries[k].item;
        if (item >= kSampleItemCount || !fields[item]) return false;
    }
    return true;
}

inline void TshadingOpus::runSegmentInline(TSEframe& frame, int segment, uint64_t wanted) const {
    if (segment <= 0 || unsigned(segment) >= fProgram.segmentCount) return;
    // A segment is not run again for samples it is running (a loop), nor,
    // outside providers, for samples it has done. Inside a provider the
    // values upstream depend on what the provider set, so the segment runs
    // again, and what it leaves is not a result for the plain sample.
    uint64_t& done = frame.segmentDone[segment];
    uint64_t& running = frame.segmentRunning[segment];
    uint64_t todo = wanted & rangeMask(0, frame.count) & ~running;
    if (frame.providerDepth == 0) todo &= ~done;
    if (!todo) return;
    running |= todo;
    while (todo) {
        const uint64_t mask = TdataBlock::lowestRun(todo);
        const unsigned start = unsigned(__builtin_ctzll(todo));
        runSteps(frame, unsigned(segment), start, 64 - unsigned(__builtin_clzll(mask)) - start);
        running &= ~mask;
        if (frame.providerDepth == 0)
            done |= mask;
        else
            done &= ~mask;
        todo &= ~mask;
    }
}

void TshadingOpus::runSegment(TSEframe& frame, int segment, uint64_t wanted) const { runSegmentInline(frame, segment, wanted); }

void TshadingOpus::computeForBlock(TdataBlock& block, const Tattribute& a, unsigned first, unsigned, uint64_t selected) {
    // Every block of a run has the run's frame for context, and an entry
    // that reads another block's value names the segment computing it there.
    auto& b = static_cast<TdataBlockRendering&>(block);
    auto* frame = static_cast<TSEframe*>(b.context());
    if (frame && first < 64) frame->opus->runSegmentInline(*frame, b.info(a).parentOrSegment, selected << first);
}

bool TshadingOpus::releaseOpus() {
    // A light's program, owned by its own catalog entry, releases nothing.
    if (fEngine && static_cast<TdependNode*>(fEngine) == fNode) {
        releaseLights();
        if (fUserData)
            for (unsigned u = 0; u < fUserData->count; ++u) {
                const TSEudSampleRecord& r = fUserData->records[u];
                for (unsigned k = 0; k < r.fillCount; ++k)
                    if (r.fills[k]) r.fills[k]->release();
            }
        fUserData = nullptr;
        fEngine->releaseOpus(fOption);
    }
    return true;
}

unsigned TshadingOpus::userSampleSize() const {
    unsigned total = 0;
    if (fUserData)
        for (unsigned u = 0; u < fUserData->count; ++u) total += (fUserData->records[u].size + 3) & ~3u;
    return total;
}

void TshadingOpus::fillUserSampleData(TrenderGroupBase* group, unsigned count, Tsample** samples) const {
    if (!fUserData) return;
    for (unsigned u = 0; u < fUserData->count; ++u) {
        const TSEudSampleRecord& r = fUserData->records[u];
        const TuserSampleFill* fill = nullptr;
        if (group) {
            unsigned object = group->objectNumber();
            if (object < r.fillCount) fill = r.fills[object];
        }
        if (fill) {
            fill->fill(count, samples, r.field, r.size, r.sourceField);
            continue;
        }
        for (unsigned i = 0; i < count; ++i) samples[i]->copyUserSampleData(r.sourceField, r.field, r.size);
    }
}

size_t TshadingOpus::frameSize(unsigned count) const {
    const size_t variables = align16(size_t(fProgram.variableSize) * count);
    if (fPlan) return fPlan->frameFixed + variables;
    return align16(sizeof(TdataBlockRendering) * (fProgram.blockCount + 1)) + align16(fProgram.constantSize) + variables +
           align16(2 * sizeof(uint64_t) * fProgram.segmentCount) + align16(fProgram.loopSize);
}

size_t TshadingOpus::keptFrameSize() const {
    return fPlan ? fPlan->keptSize : align16(sizeof(TSEframe)) + frameSize(kBatchSize);
}

void TshadingOpus::shade(unsigned count, Tsample** samples) const {
    if (!samples || count == 0 || !fPlan) return;
    count = std::min(count, kBatchSize);
    if (fUserData) {
        TsampleBatch* batch = samples[0]->batch();
        fillUserSampleData(batch ? batch->renderGroup : nullptr, count, samples);
    }
    // One pass over the records gathers the items set in every sample and
    // whether the records lie at a fixed spacing, as a batch usually does
    // (inputs and outputs then use them in place). Defaults of needed items
    // the renderer did not set are filled in a second pass, only when some
    // are missing.
    uint64_t every = ~uint64_t(0), any = 0;
    const uintptr_t base = reinterpret_cast<uintptr_t>(samples[0]);
    const uintptr_t spacing = count > 1 ? reinterpret_cast<uintptr_t>(samples[1]) - base : 0;
    uintptr_t expected = base, uneven = 0;
    for (unsigned i = 0; i < count; ++i, expected += spacing) {
        const uint64_t set = samples[i]->fieldsSet().bits();
        every &= set;
        any |= set;
        uneven |= reinterpret_cast<uintptr_t>(samples[i]) ^ expected;
    }
    // Items the renderer leaves to their defaults (the lights' records, the
    // translucence depth) are usually unset in every record: filled an item
    // at a time; the few set in some records only, record by record.
    if (const uint64_t missing = fNeeds.bits() & ~every) {
        if (missing & ~any) Tsample::sConfirmUnset(samples, count, TbitField64(missing & ~any));
        if (missing & any)
            for (unsigned i = 0; i < count; ++i) samples[i]->confirmSet(TbitField64(missing & any));
    }

    // Lights first, once per sample that has its own lighting.
    TSElighting lighting;
    if (fLightCount) {
        lighting.records = static_cast<TlightData*>(__builtin_alloca(sizeof(TlightData) * fLightCount * count));
        uint8_t* groupOf = static_cast<uint8_t*>(__builtin_alloca((count + 1) & ~1u));
        Tsample** unique = static_cast<Tsample**>(__builtin_alloca(sizeof(Tsample*) * ((count + 1) & ~1u)));
        lighting.groupOf = groupOf;
        runLights(count, samples, lighting, groupOf, unique);
    }

    // The frame: the one this thread keeps for the program, with its blocks
    // made and linked by an earlier batch, or one carved from the stack.
    TshadingFrames* frames = TshadingFrames::current();
    bool fresh = false;
    TshadingFrames::Tframe* kept = frames ? frames->acquire(this, fSerial, fPlan->keptSize, fresh) : nullptr;
    TSEframe local;
    if (kept && fresh) makeKeptFrame(*new (kept->memory) TSEframe{}, kept->memory + align16(sizeof(TSEframe)));
    TSEframe& frame = kept ? *std::launder(reinterpret_cast<TSEframe*>(kept->memory)) : local;
    if (!kept) {
        const size_t size = frameSize(count);
        auto* raw = static_cast<unsigned char*>(__builtin_alloca(size + kFrameAlignment));
        carveFrame(frame, reinterpret_cast<unsigned char*>((reinterpret_cast<uintptr_t>(raw) + kFrameAlignment - 1) &
                                                           ~uintptr_t(kFrameAlignment - 1)),
                   count);
    }
    frame.providerDepth = 0;
    frame.samples = samples;
    frame.fields = samples[0]->fieldOffsets();
    frame.count = count;
    frame.lighting = &lighting;
    // A block's stride is 32 bits and never negative. Records of another
    // sample layout (a light's program on a material's records) serve in
    // place when they carry every item the direct words name. Asked per
    // batch: another layout's table may be rebuilt at the same address.
    const bool carried = frame.fields == fFieldOffsets || carriesRecordItems(frame.fields);
    frame.recordsEven = !uneven && spacing <= UINT32_MAX && carried;
    frame.steps = frame.recordsEven ? fPlan->evenSteps : fPlan->steps;
    frame.segmentSteps = frame.recordsEven ? fPlan->evenSegmentSteps : fPlan->segmentSteps;
    TdataBlockRendering* records = frame.blocks + fProgram.blockCount;
    frame.sampleBlock = nullptr;
    if (frame.recordsEven && fPlan->sampleLinkCount) {
        frame.recordsFirst = reinterpret_cast<unsigned char*>(base);
        frame.recordsStride = unsigned(spacing);
        if (kept)
            records->moveRecords(unsigned(spacing), reinterpret_cast<unsigned char*>(base), count, frame.fields);
        else
            new (records) TdataBlockRendering(*fPlan->recordsPrototype, unsigned(spacing), reinterpret_cast<unsigned char*>(base),
                                              count, frame.fields, &frame);
        frame.sampleBlock = records;
    }

    if (fProgram.constantSize) std::memcpy(frame.constants, fProgram.constants, fProgram.constantSize);
    if (fProgram.zeroVariables) std::memset(frame.variables, 0, size_t(fProgram.variableSize) * frame.layout);
    std::memset(frame.segmentDone, 0, 2 * sizeof(uint64_t) * fProgram.segmentCount);
    frame.segmentDone[0] = rangeMask(0, count);

    if (kept)
        startKeptRun(frame);
    else
        setUpFrame(frame);
    run(frame, 0, 0, count);

    // Only blocks with values that were constructed have anything to tear
    // down; the others end with the frame, or stay made in a kept one.
    for (unsigned k = fPlan->constructed[0]; k > 0; --k) {
        const unsigned b = fPlan->constructed[k];
        if (b >= frame.blocksMade) continue;
        if (kept)
            frame.blocks[b].endRun();
        else
            frame.blocks[b].~TdataBlockRendering();
    }
    if (kept) TshadingFrames::release(kept);
}

void TshadingOpus::carveFrame(TSEframe& frame, unsigned char* memory, unsigned layout) const {
    // Blocks, constants, variables, segment marks, provider stacks.
    frame.opus = this;
    frame.blocks = reinterpret_cast<TdataBlockRendering*>(memory);
    memory += align16(sizeof(TdataBlockRendering) * (fProgram.blockCount + 1));
    frame.constants = memory;
    memory += align16(fProgram.constantSize);
    frame.variables = memory;
    frame.layout = layout;
    memory += align16(size_t(fProgram.variableSize) * layout);
    frame.segmentDone = reinterpret_cast<uint64_t*>(memory);
    frame.segmentRunning = frame.segmentDone + fProgram.segmentCount;
    memory += align16(2 * sizeof(uint64_t) * fProgram.segmentCount);
    frame.loop = memory;
    frame.blocksMade = 0;
}

inline bool TshadingOpus::needsSampleLinks(const TSEframe& frame) const {
    // Tested by the callers: most batches need nothing, and the call alone
    // cost more than the test.
    return fPlan->sampleLinkCount && !(frame.sampleBlock && fPlan->recordsCarryAll);
}

void TshadingOpus::setUpFrame(TSEframe& frame) const {
    for (unsigned b = 0; b < fProgram.blockCount; ++b) {
        const TSEblockLayout& layout = fProgram.blocks[b];
        // Clean marks only matter to a node with a second compute in the
        // pass; the prototype says which, and holds the direct table.
        new (&frame.blocks[b]) TdataBlockRendering(fPlan->prototypes[b], frame.variables + size_t(layout.variableBase) * frame.layout,
                                                   frame.count, frame.constants + layout.constantOffset, layout.hidden, &frame,
                                                   frame.sampleBlock);
    }
    frame.blocksMade = fProgram.blockCount;
    for (unsigned k = 0; k < fPlan->prologueCount; ++k) execute(frame, fProgram.instructions[fPlan->prologue[k]], 0, frame.count);
    linkBlocks(frame, 0, fPlan->linkCount);
    if (needsSampleLinks(frame)) linkSamples(frame);
}

void TshadingOpus::linkBlocks(TSEframe& frame, unsigned first, unsigned last) const {
    for (unsigned k = first; k < last; ++k) {
        const Plan::Link& link = fPlan->links[k];
        auto* ref = reinterpret_cast<TdataBlockRendering::OtherBlockRef*>(frame.variables + size_t(link.destBase) * frame.layout + link.destOffset);
        ref->value = frame.variables + size_t(link.sourceBase) * frame.layout + link.sourceOffset;
        ref->block = &frame.blocks[link.sourceBlock];
    }
}

void TshadingOpus::makeKeptFrame(TSEframe& frame, unsigned char* memory) const {
    // Laid out for a whole batch, so that no address depends on the batch:
    // the blocks and the links between them are made once.
    carveFrame(frame, memory, kBatchSize);
    for (unsigned b = 0; b < fProgram.blockCount; ++b) {
        const TSEblockLayout& layout = fProgram.blocks[b];
        new (&frame.blocks[b]) TdataBlockRendering(fPlan->prototypes[b], frame.variables + size_t(layout.variableBase) * kBatchSize,
                                                   0, frame.constants + layout.constantOffset, layout.hidden, &frame, nullptr);
    }
    new (frame.blocks + fProgram.blockCount) TdataBlockRendering(*fPlan->recordsPrototype, 0, nullptr, 0, nullptr, &frame);
    frame.blocksMade = fProgram.blockCount;
    frame.keptCount = 0;
    frame.keptRecords = frame.blocks;  // neither null nor the records: the first run readies every block
    frame.resolved = reinterpret_cast<TdataBlock::Resolved*>(frame.loop + align16(fProgram.loopSize));
    frame.resolvedReady = false;
    frame.resolvedFirst = nullptr;
    frame.resolvedStride = 0;
    frame.resolvedFields = nullptr;
    linkBlocks(frame, fPlan->relinkCount, fPlan->linkCount);
}

void TshadingOpus::startKeptRun(TSEframe& frame) const {
    // What a batch changes: its size and records (usually as the last
    // batch's), the values that need construction and the links among them
    // (all links, where a loop has the variables zeroed), the provider
    // stacks and the references to the records' items.
    TdataBlockRendering* const blocks = frame.blocks;
    TdataBlock* const records = frame.sampleBlock;
    const unsigned count = frame.count;
    if (count != frame.keptCount || records != frame.keptRecords) {
        for (unsigned b = 0, n = fProgram.blockCount; b < n; ++b) blocks[b].resize(count, records);
        frame.keptCount = count;
        frame.keptRecords = records;
    }
    for (unsigned k = fPlan->constructed[0]; k > 0; --k) blocks[fPlan->constructed[k]].constructValues(count);
    // A program with a loop has its variables zeroed per run, references included.
    linkBlocks(frame, 0, fProgram.zeroVariables ? fPlan->linkCount : fPlan->relinkCount);
    for (unsigned k = 0; k < fPlan->prologueCount; ++k) execute(frame, fProgram.instructions[fPlan->prologue[k]], 0, count);
    if (needsSampleLinks(frame)) linkSamples(frame);
    // Every place a block's words name is where it will be in each later
    // run: decoded once, after the first run has made every reference.
    if (!frame.resolvedReady) {
        TdataBlock::Resolved* table = frame.resolved;
        for (unsigned b = 0, n = fProgram.blockCount; b < n; ++b) {
            blocks[b].resolveDirect(table, fPlan->directWords[b]);
            table += fPlan->directWords[b];
        }
        frame.resolvedReady = true;
    }
    // The records move with each batch: their entries follow when a batch's
    // records lie elsewhere, and answer nothing when they are not evenly
    // spaced. Records of another layout are followed every batch, as that
    // layout's table may have been rebuilt at the same address.
    unsigned char* const first = frame.sampleBlock ? frame.recordsFirst : nullptr;
    const unsigned stride = frame.recordsStride;
    const unsigned* const fields = frame.fields;
    if (first != frame.resolvedFirst ||
        (first && (stride != frame.resolvedStride || fields != fFieldOffsets || fields != frame.resolvedFields))) {
        const bool wereOff = !frame.resolvedFirst, sameStride = stride == frame.resolvedStride;
        frame.resolvedFirst = first;
        frame.resolvedStride = stride;
        frame.resolvedFields = fields;
        TdataBlock::Resolved* const table = frame.resolved;
        const Plan::RecordEntry* const entries = fPlan->recordEntries;
        const unsigned n = fPlan->recordEntryCount;
        if (first && !wereOff && sameStride) {
            // The usual batch: the same spacing at another place.
            if (fields == fFieldOffsets)
                // The table walked by bytes, the entry's index scaled once when the plan was made.
                for (const Plan::RecordEntry* e = entries; e != entries + n; ++e)
                    *reinterpret_cast<unsigned char**>(reinterpret_cast<unsigned char*>(table) + e->at) = first + e->field;
            else
                for (const Plan::RecordEntry* e = entries; e != entries + n; ++e)
                    *reinterpret_cast<unsigned char**>(reinterpret_cast<unsigned char*>(table) + e->at) = first + fields[e->item];
            return;
        }
        for (unsigned k = 0; k < n; ++k) {
            TdataBlock::Resolved& r = table[entries[k].entry];
            if (!first) {
                r.roads = 0;
                continue;
            }
            r.value = first + fields[entries[k].item];
            r.stride = stride;
            if (wereOff) {
                r.block = frame.sampleBlock;
                r.flags = TdataHandle::kIsVariable;
                r.roads = TdataBlock::kDirectInput | TdataBlock::kDirectOutput;
            }
        }
    }
}

void TshadingOpus::linkSamples(TSEframe& frame) const {
    // Records laid out one after another at a fixed spacing, as a batch
    // usually is, form one block whose elements are the records: inputs
    // read their items there. Otherwise each input gets its own copy.
    const unsigned count = frame.count, layout = frame.layout;
    // In locals: the stores through the references could alias the frame and the plan.
    TdataBlockRendering* const records = frame.sampleBlock;
    unsigned char* const variables = frame.variables;
    const unsigned* const fields = frame.fields;
    const Plan::SampleLink* const links = fPlan->sampleLinks;
    const unsigned linkCount = fPlan->sampleLinkCount;
    for (unsigned k = 0; k < linkCount; ++k) {
        const Plan::SampleLink& link = links[k];
        unsigned char* element = variables + size_t(link.destBase) * layout;
        auto* ref = reinterpret_cast<TdataBlockRendering::OtherBlockRef*>(element + link.destOffset);
        const unsigned field = fields[link.item];
        // The direct word reads the field in the records; the virtual road
        // looks there too, so the reference is not needed.
        if (records && link.inRecords) continue;
        // Copied as a copy instruction would; an item the records do not
        // carry is left as the frame has it. An output's copy comes after it.
        if (field && link.copy) {
            TSErun r{};
            r.samples = frame.samples;
            r.dest = element + link.copyOffset;
            r.destStride = link.stride;
            r.sourceField = field;
            link.copy(r, 0, count - 1);
        }
        ref->value = element + link.copyOffset;
        ref->block = &frame.blocks[link.destBlock];
    }
}

void TshadingOpus::computeValue(void* context, int segment, const Tattribute*, unsigned first, unsigned count) {
    auto* frame = static_cast<TSEframe*>(context);
    if (!frame || segment <= 0) return;
    frame->opus->runSegment(*frame, segment, rangeMask(first, count));
}

void TshadingOpus::copyFromStack(TSEframe& frame, unsigned stackOffset, const TSEcopy& c, unsigned first, unsigned count) const {
    const auto* stack = reinterpret_cast<const TSEproviderStack*>(frame.loop + stackOffset);
    const auto* entries = reinterpret_cast<const TSEproviderEntry*>(stack + 1);
    const TSEproviderEntry& top = entries[stack->top];
    if (top.block == kNoBlock) {
        copy(frame, c, first, count);
        return;
    }
    TSEcopy fromProvider = c;
    fromProvider.sourceSide = kSideVariable;
    fromProvider.sourceBlock = top.block;
    fromProvider.sourceOffset = top.offset;
    fromProvider.sourceSegment = -1;
    fromProvider.routine = selectCopyRoutine(c.size, kSideVariable, c.destSide);
    copy(frame, fromProvider, first, count);
}

void TshadingOpus::copy(TSEframe& frame, const TSEcopy& c, unsigned first, unsigned count) const {
    if (c.sourceSegment > 0) runSegment(frame, c.sourceSegment, rangeMask(first, count));
    TSErun run{};
    run.samples = frame.samples;
    run.size = c.size;
    auto side = [&](TSEside s, uint16_t block, uint32_t offset, const unsigned char*& pointer, unsigned& stride, unsigned& field) {
        if (s == kSideSample) {
            field = frame.fields[offset];
            return;
        }
        if (s == kSideConstant) {
            pointer = frame.constants + (block == kNoBlock ? 0 : fProgram.blocks[block].constantOffset) + offset;
            stride = 0;
            return;
        }
        const TSEblockLayout& layout = fProgram.blocks[block];
        pointer = frame.variables + size_t(layout.variableBase) * frame.layout + offset;
        stride = layout.elementSize;
    };
    const unsigned char* dest = nullptr;
    side(c.sourceSide, c.sourceBlock, c.sourceOffset, run.source, run.sourceStride, run.sourceField);
    side(c.destSide, c.destBlock, c.destOffset, dest, run.destStride, run.destField);
    run.dest = const_cast<unsigned char*>(dest);
    if ((c.sourceSide == kSideSample && run.sourceField == 0) || (c.destSide == kSideSample && run.destField == 0)) return;
    c.routine(run, first, first + count - 1);
}

inline void TshadingOpus::runSteps(TSEframe& frame, unsigned segment, unsigned first, unsigned count) const {
    // Most steps of a program are plain computes: the loop does those
    // itself and leaves the rest to a call, so that it keeps few registers.
    const TSEstep* const end = frame.steps + frame.segmentSteps[segment + 1];
    for (const TSEstep* step = frame.steps + frame.segmentSteps[segment]; step != end; ++step) {
        const uint32_t opcode = step->opcode;
        if (opcode != kStepPlainCompute) [[unlikely]] {
            if (opcode != kStepMarkedCompute) {
                runStep(frame, *step, first, count);
                continue;
            }
            if (alreadyComputed(frame.blocks[step->block], *step)) continue;
        }
        TdataBlockRendering& block = frame.blocks[step->block];
        const TSEcomputeTarget& target = *step->target;
        if (step->onDemand && step->onDemand->load(std::memory_order_acquire) != kOnDemandDone) [[unlikely]]
            ensureOnDemand(target, block);
        Dispatcher::run(target.plug.node(), target.plug, block, first, count);
    }
}

void TshadingOpus::run(TSEframe& frame, unsigned segment, unsigned first, unsigned count) const {
    runSteps(frame, segment, first, count);
}

void TshadingOpus::ensureOnDemand(const TSEcomputeTarget& target, TdataBlockRendering& block) {
    Tplug plug = target.plug;
    target.shadingNode->ensureOnDemand(plug, block);
}

void TshadingOpus::runStep(TSEframe& frame, const TSEstep& step, unsigned first, unsigned count) const {
    switch (step.opcode) {
        case kOpCompute:
        case kOpComputeLocked: {
            TdataBlockRendering& block = frame.blocks[step.block];
            const TSEcomputeTarget& target = *step.target;
            if (alreadyComputed(block, step)) break;
            // Once per render the node's on-demand step runs; after that a load tells.
            if (step.onDemand && step.onDemand->load(std::memory_order_acquire) != kOnDemandDone) ensureOnDemand(target, block);
            if (step.opcode == kOpComputeLocked && target.mutex) {
                TmtLock lock(*target.mutex);
                Dispatcher::run(target.plug.node(), target.plug, block, first, count);
            } else {
                Dispatcher::run(target.plug.node(), target.plug, block, first, count);
            }
            break;
        }
        case kOpCopy: {
            const Plan::Copy& c = fPlan->copies[step.operand];
            if (c.sourceSegment > 0) runSegment(frame, c.sourceSegment, rangeMask(first, count));
            if (c.destInPlace && frame.recordsEven) break;
            TSErun r;
            r.samples = frame.samples;
            r.size = c.size;
            r.source = c.sourceSide == kSideConstant ? frame.constants + c.sourceBase
                                                     : frame.variables + size_t(c.sourceBase) * frame.layout + c.sourceOffset;
            r.dest = c.destSide == kSideConstant ? frame.constants + c.destBase
                                                 : frame.variables + size_t(c.destBase) * frame.layout + c.destOffset;
            r.sourceStride = c.sourceStride;
            r.destStride = c.destStride;
            r.sourceField = c.sourceSide == kSideSample ? frame.fields[c.sourceOffset] : 0;
            r.destField = c.destSide == kSideSample ? frame.fields[c.destOffset] : 0;
            // An item the samples do not carry.
            if ((c.sourceSide == kSideSample && r.sourceField == 0) || (c.destSide == kSideSample && r.destField == 0)) break;
            c.routine(r, first, first + count - 1);
            break;
        }
        default:
            execute(frame, fProgram.instructions[step.operand], first, count);
            break;
    }
}

void TshadingOpus::execute(TSEframe& frame, const TSEinstruction& in, unsigned first, unsigned count) const {
    // The instructions that are not computes or copies: the prologue's, the
    // providers' and the light arrays'.
    switch (in.opcode) {
        case kOpSetUpBlock: {
            unsigned b = in.word[0];
            const TSEblockLayout& layout = fProgram.blocks[b];
            auto* block = new (&frame.blocks[b]) TdataBlockRendering(layout.node, layout.elementSize,
                                                       frame.variables + size_t(layout.variableBase) * frame.layout, frame.count,
                                                       frame.constants + layout.constantOffset, layout.info, layout.multi,
                                                       layout.hidden, &frame);
            block->setDirect(fPlan->direct[b]);
            block->setRecords(frame.sampleBlock);
            frame.blocksMade = std::max(frame.blocksMade, b + 1);
            break;
        }
        case kOpLightArray:
            copyLights(frame, in, first, count);
            break;
        case kOpCopyFromStack:
            copyFromStack(frame, in.word[0], fProgram.copies[in.word[1]], first, count);
            break;
        case kOpInitStack: {
            auto* stack = reinterpret_cast<TSEproviderStack*>(frame.loop + in.word[0]);
            auto* entries = reinterpret_cast<TSEproviderEntry*>(stack + 1);
            stack->top = 0;
            stack->capacity = unsigned((in.word[1] - in.word[0] - sizeof(TSEproviderStack)) / sizeof(TSEproviderEntry));
            entries[0] = {kNoBlock, 0, in.word[2], 0, 0};
            break;
        }
        case kOpPushProvider: {
            auto* stack = reinterpret_cast<TSEproviderStack*>(frame.loop + in.word[0]);
            auto* entries = reinterpret_cast<TSEproviderEntry*>(stack + 1);
            TSEproviderEntry& top = entries[stack->top];
            if (stack->top + 1 < stack->capacity && (top.block != in.word[1] || top.offset != in.word[2]))
                entries[++stack->top] = {uint16_t(in.word[1]), 0, in.word[2], 0, 0};
            else
                ++top.nesting;
            ++frame.providerDepth;
            break;
        }
        case kOpPopProvider: {
            auto* stack = reinterpret_cast<TSEproviderStack*>(frame.loop + in.word[0]);
            auto* entries = reinterpret_cast<TSEproviderEntry*>(stack + 1);
            TSEproviderEntry& top = entries[stack->top];
            if (top.nesting == 0 && stack->top > 0)
                --stack->top;
            else if (top.nesting > 0)
                --top.nesting;
            if (frame.providerDepth) --frame.providerDepth;
            break;
        }
        case kOpLinkBlock: {
            const TSEblockLayout& dest = fProgram.blocks[in.word[0]];
            const TSEblockLayout& source = fProgram.blocks[in.word[2]];
            const auto& destInfo = dest.info[in.word[1]];
            const auto& sourceInfo = source.info[in.word[3]];
            auto* ref = reinterpret_cast<TdataBlockRendering::OtherBlockRef*>(
                frame.variables + size_t(dest.variableBase) * frame.layout + destInfo.offset);
            ref->value = frame.variables + size_t(source.variableBase) * frame.layout + sourceInfo.offset;
            ref->block = &frame.blocks[in.word[2]];
            break;
        }
        default:
            break;
    }
}

const char* opcodeName(uint32_t opcode) {
    switch (TSEopcode(opcode)) {
        case kOpCompute: return "compute";
        case kOpComputeLocked: return "computeLocked";
        case kOpSetUpBlock: return "setUpBlock";
        case kOpCopy: return "copy";
        case kOpCopyFromStack: return "copyFromStack";
        case kOpPushProvider: return "pushProvider";
        case kOpPopProvider: return "popProvider";
        case kOpInitStack: return "initStack";
        case kOpLinkBlock: return "linkBlock";
        case kOpLightArray: return "lightArray";
        case kOpLinkSample: return "linkSample";
    }
    return nullptr;
}
