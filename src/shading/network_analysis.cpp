// Network analysis: from a shading group and an option to a compiled
// program. A depth-first walk classifies every input of every reached node
// (constant for the batch or variable per sample, and where its value comes
// from); loops and lazily read inputs are cut into segments computed on
// demand; the rest becomes one straight-line program in dependency order.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "framework/host/depend_node.h"
#include "framework/shading_node.h"
#include "shading/render_bases.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"
#include "shading/user_sample_data.h"

namespace {

constexpr uint32_t kEmittingGuard = 0xDEAD;
constexpr uint16_t kNoBlock = 0xFFFF;
// An input that reads another block's value keeps a (value, block) pair in its slot.
constexpr unsigned kReferenceSlot = sizeof(TdataBlockRendering::OtherBlockRef);
// Array values in a block: a header, then up to 64 elements.
constexpr unsigned kMultiHeaderSize = 16;
constexpr unsigned kMaxMultiElements = 64;
// The input through which a node reads the records of the group's lights.
constexpr const char* kLightDataArrayName = "lightDataArray";
// A provider stack in the run's loop area: a header, then 16-byte entries.
constexpr unsigned kStackHeaderSize = sizeof(TSEproviderStack);
constexpr unsigned kStackEntrySize = sizeof(TSEproviderEntry);

// Search order per (port, sample type); 7 ends a list.
constexpr uint8_t kSearchTable[7][5][4] = {
    {{3, 1, 2, 7}, {4, 1, 2, 7}, {6, 1, 7, 7}, {5, 1, 7, 7}, {7, 7, 7, 7}},
    {{0, 1, 7, 7}, {0, 1, 7, 7}, {0, 1, 7, 7}, {0, 1, 7, 7}, {0, 1, 7, 7}},
    {{0, 1, 7, 7}, {0, 1, 7, 7}, {7, 7, 7, 7}, {7, 7, 7, 7}, {0, 1, 7, 7}},
    {{0, 1, 2, 7}, {7, 7, 7, 7}, {7, 7, 7, 7}, {7, 7, 7, 7}, {0, 1, 7, 7}},
    {{7, 7, 7, 7}, {0, 1, 2, 7}, {7, 7, 7, 7}, {7, 7, 7, 7}, {0, 1, 7, 7}},
    {{0, 1, 7, 7}, {0, 1, 7, 7}, {7, 7, 7, 7}, {0, 1, 7, 7}, {7, 7, 7, 7}},
    {{7, 7, 7, 7}, {7, 7, 7, 7}, {0, 1, 7, 7}, {7, 7, 7, 7}, {7, 7, 7, 7}},
};

// Request constants per option: items 0 to 31, then 32 to 63.
constexpr uint32_t kRequests[kTSEoptionCount][2] = {
    {0x001C0000, 0x00008000}, {0x191C0000, 0x00008000}, {0, 0x00400000}, {0x00080000, 0},
    {0x68000000, 0},          {0x19080000, 0},          {0, 0x00400000}, {0, 0x00800000},
    {0x191C0000, 0x00008000}, {0x19080000, 0},          {0x000C0000, 0x00800000}, {0x00040000, 0x00800000},
};

unsigned align(unsigned n, unsigned to) { return (n + to - 1) / to * to; }
unsigned slotAlignment(unsigned size) { return size >= 8 ? 8 : size >= 4 ? 4 : size >= 2 ? 2 : 1; }

// The entry of a plan's list whose first word is `attribute`, or null.
const std::array<unsigned, 3>* findFirst(const std::vector<std::array<unsigned, 3>>& list, unsigned attribute) {
    auto it = std::find_if(list.begin(), list.end(), [&](const auto& e) { return e[0] == attribute; });
    return it == list.end() ? nullptr : &*it;
}

bool isGroup(const TdependNode* node) { return node && node->typeof()->istype(TDNshadingEngine::sMetaclass()); }

// Reads the value of a plug as the host graph sees it now.
void readPlug(const Tplug& plug, void* into) {
    TdataHandle handle;
    handle.attribute = plug.attribute();
    handle.value = into;
    TmsgPlugValue(plug, handle, TdgContext::normal()).send();
}

// A copy between two described places; the routine follows from the size and the sides.
TSEcopy makeCopy(TSEside from, uint16_t fromBlock, uint32_t fromOffset, TSEside to, uint16_t toBlock, uint32_t toOffset, unsigned size,
                 int32_t sourceSegment = -1) {
    TSEcopy copy{};
    copy.sourceSide = from;
    copy.sourceBlock = fromBlock;
    copy.sourceOffset = fromOffset;
    copy.destSide = to;
    copy.destBlock = toBlock;
    copy.destOffset = toOffset;
    copy.size = size;
    copy.sourceSegment = sourceSegment;
    copy.routine = selectCopyRoutine(size, from, to);
    return copy;
}

bool allZero(const unsigned char* bytes, unsigned size) {
    for (unsigned i = 0; i < size; ++i)
        if (bytes[i]) return false;
    return true;
}

// What the walk collects and emission turns into a program.
class TSEanalysis {
public:
    TSEanalysis(TDNshadingEngine& group, TSEoption option, TSEsampleType type, TbitField64 requested, TbitField64& needs)
        : fGroup(group), fOption(option), fType(type), fRequested(requested), fNeeds(needs),
          fRoot(&group, nullptr, nullptr) {
        fRoot.root = &fRoot;
        fRoot.attributeCount = kSampleItemCount;
        fRoot.memoryType.assign(kSampleItemCount, kMemoryVariable);
        fRoot.wanted.assign(kSampleItemCount, 0);
        fRoot.lazy.assign(kSampleItemCount, 0);
    }

    bool satisfySampler(TbitField64& result);
    // A program leaves out the lights when none of the outputs it computes
    // reads them (a surface-shadows program of a material's transparency,
    // mostly): the lights' programs, shadow rays and all, would run for
    // nothing. A node is described with all its inputs, whatever is asked.
    void dropUnreadLights();
    void cutLoops();
    void segment();
    void promoteUnconditional();
    TshadingOpus* distribute(TstackArena& arena, TbitField64 result, unsigned*& fieldOffsets, unsigned& sampleSize);
    bool foundConstantTransparency() const { return fConstantTransparency; }
    // A node of the network reads the group's light array.
    bool foundLights() const { return fFoundLights; }
    // The program of a light: the root's "lightData" comes from the light's output.
    bool satisfyLight(TdependNode* light, TbitField64& result);
    void setOpusNode(TdependNode* node) { fOpusNode = node; }

private:
    struct RootConstant {
        unsigned item;
        unsigned offset;  // in the root constant area
    };

    TSEnodeDescription* describe(TdependNode* node);
    TSEnodeDescription* traverseNode(TSEportId port, const Tplug& plug);
    void findProviderOutputs(TSEnodeDescription* d);
    TSEmemoryType processInput(TSEnodeDescription* d, const Tattribute* a, TSEportId port);
    bool connect(TSEnodeDescription* d, const Tattribute* dest, const Tplug& source, TSEportId port, bool lazy, int element = -1);
    TSEimplicitType findSource(const Tstring& name, TSEportId port, TSEnodeDescription* d, unsigned index,
                               const Tattribute* attr);
    TSEimplicitType offerFrom(const Tplug& plug, TSEportId port, TSEnodeDescription* d, unsigned index, const Tattribute* attr);
    void finishOutput(TSEnodeDescription* d, const Tattribute* output);
    void setMemory(TSEnodeDescription* d, const Tattribute* a, TSEmemoryType m);

    // Emission.
    struct Slot {
        uint32_t kind;
        unsigned offset;
        int segment;
    };
    void layOut(TSEnodeDescription* d);
    void emitNode(TSEnodeDescription* d, std::vector<TSEinstruction>& stream);
    void emitCopies(TSEnodeDescription* d, std::vector<TSEinstruction>& stream);
    void emitElementCopy(TSEnodeDescription* d, const TSEconnectionRecord& c, std::vector<TSEinstruction>& stream);
    unsigned addCopy(const TSEcopy& c);
    unsigned newSegment();
    TSEinstruction instruction(uint32_t op, uint32_t w0 = 0, uint32_t w1 = 0, uint32_t w2 = 0, uint32_t w3 = 0, uint32_t w4 = 0) {
        TSEinstruction in{};
        in.opcode = op;
        in.word[0] = w0;
        in.word[1] = w1;
        in.word[2] = w2;
        in.word[3] = w3;
        in.word[4] = w4;
        return in;
    }

    TDNshadingEngine& fGroup;
    TSEoption fOption;
    TSEsampleType fType;
    TbitField64 fRequested, fGiven;
    TbitField64& fNeeds;
    TSEnodeDescription fRoot;
    std::vector<std::unique_ptr<TSEnodeDescription>> fDescriptions;
    TSEnodeDescription* fList = nullptr;  // last completed first
    bool fConstantTransparency = false;
    bool fHasLoops = false;
    bool fFoundLights = false;
    TdependNode* fOpusNode = nullptr;  // the light whose program this is, or null for the group's
    // Items that some node provides: the item, how many providers can nest,
    // and where the item's stack lies in the run's loop area.
    struct Provided {
        unsigned item;
        unsigned depth;
        unsigned stackOffset;
    };
    std::vector<Provided> fProvided;
    unsigned fLoopSize = 0;
    const Provided* providedItem(unsigned item) const {
        for (const Provided& p : fProvided)
            if (p.item == item) return &p;
        return nullptr;
    }

    // Emission state.
    std::vector<TSEnodeDescription*> fBlocks;
    struct BlockPlan {
        std::vector<TdataBlockRendering::AttrInfo> info;
        std::vector<TdataBlockRendering::MultiInfo> multi;
        std::vector<uint16_t> hidden;
        std::vector<unsigned char> constants;
        unsigned elementSize = 0;
        // Inputs that read another block's output directly: (attribute, source block, source attribute).
        std::vector<std::array<unsigned, 3>> links;
        // Constant pieces of variable inputs: (attribute, constant offset).
        std::vector<std::pair<unsigned, unsigned>> constantParts;
        // Varying multis: (attribute, template offset, bytes per sample).
        std::vector<std::array<unsigned, 3>> arrays;
        // Inputs that read a sample item where the records lie: (attribute,
        // item, offset of the copy kept for records that are not evenly spaced).
        std::vector<std::array<unsigned, 3>> sampleLinks;
        // Outputs written where the records lie: (attribute, item, offset of
        // the value kept for records that are not evenly spaced).
        std::vector<std::array<unsigned, 3>> outputLinks;
        std::vector<std::pair<unsigned, unsigned>> inPlace;  // (attribute, item) chosen before the layout
        // Outputs written into a reader's output, and inputs that read them
        // there: (attribute, the reader's block, its output).
        std::vector<std::array<unsigned, 3>> passInto, passFrom;
    };
    void chooseOutputsInPlace();
    void choosePassThrough();
    unsigned arrayTemplate(BlockPlan& plan, TdependNode* node, const Tattribute* a, unsigned& count);
    std::vector<BlockPlan> fPlans;
    std::vector<std::vector<TSEinstruction>> fSegments;
    std::vector<TSEcopy> fCopies;
    std::vector<TSEcomputeTarget> fTargets;
    std::vector<TdependNodeMutexPtr> fMutexes;
    std::vector<TdependNode*> fMutexNodes;
    std::vector<unsigned char> fRootConstants;
    std::vector<RootConstant> fRootConstantItems;
    unsigned* fFields = nullptr;
};

TSEnodeDescription* TSEanalysis::describe(TdependNode* node) {
    for (auto& d : fDescriptions)
        if (d->node == node) return d.get();
    return nullptr;
}

void TSEanalysis::setMemory(TSEnodeDescription* d, const Tattribute* a, TSEmemoryType m) {
    d->memoryType[a->index()] = m;
    for (unsigned c = 0; c < a->childCount(); ++c) setMemory(d, a->child(c), m);
}

bool TSEanalysis::satisfySampler(TbitField64& result) {
    result.clearAll();
    bool found = false;
    for (unsigned index = 0; index < kSampleItemCount; ++index) {
        TSEimplicitType r = kImplicitNotFound;
        if (fRequested.test(index) && index == kItemLightTable) {
            // The table of records the lights leave: lights are wanted.
            result.set(index);
            fFoundLights = true;
            found = true;
        } else if (fRequested.test(index)) {
            r = findSource(Tstring(Tsample::fDataItem[index]), kPortImplicit, &fRoot, index, nullptr);
            if (r == kImplicitConstant || r == kImplicitVariable) {
                result.set(index);
                found = true;
            }
        }
        if ((fType == kSampleSurface || fType == kSampleVolume) && index == kItemOutTransparency)
            fConstantTransparency = r != kImplicitVariable;
    }
    return found;
}

TSEimplicitType TSEanalysis::offerFrom(const Tplug& plug, TSEportId port, TSEnodeDescription* d, unsigned index,
                                       const Tattribute* attr) {
    if (d == &fRoot) {
        TSEnodeDescription* source = traverseNode(port, plug);
        const Tattribute* output = plug.attribute();
        if (source->memoryType[output->rootParent()->index()] == kMemoryVariable) {
            fRoot.connections.push_back({kConnShaderOutput, source, int(output->index()), index, kMemoryVariable, false});
            ++source->uses;
            return kImplicitVariable;
        }
        // A constant: read once now.
        unsigned size = Tsample::sStorageSize(index);
        if (output->size() != size) return kImplicitNotFound;
        unsigned offset = align(unsigned(fRootConstants.size()), 8);
        fRootConstants.resize(offset + align(size, 8), 0);
        readPlug(plug, fRootConstants.data() + offset);
        if (allZero(fRootConstants.data() + offset, size)) {
            fRootConstants.resize(offset);
            return kImplicitZero;
        }
        fRoot.connections.push_back({kConnConstantValue, nullptr, int(output->index()), index, kMemoryConstant, false});
        fRootConstantItems.push_back({index, offset});
        return kImplicitConstant;
    }
    return connect(d, attr, plug, port, d->lazy[attr->index()]) ? kImplicitVariable : kImplicitConstant;
}

TSEimplicitType TSEanalysis::findSource(const Tstring& name, TSEportId port, TSEnodeDescription* d, unsigned index,
                                        const Tattribute* attr) {
    TDNshadingEngine& g = fGroup;
    for (uint8_t step : kSearchTable[port][fType]) {
        if (step == kPortEnd) break;
        if (step == kPortImplicit) {
            if (d == &fRoot) continue;
            int item = Tsample::sItemIndex(name.asC());
            if (item < 0 || fRequested.test(unsigned(item))) continue;
            // An item narrower than its four-byte slot (objectType is one
            // byte) matches an attribute of its own width: the copy reads the
            // slot's first bytes, where the item is kept.
            const unsigned width = attr->size();
            if (width != Tsample::sStorageSize(unsigned(item)) && width != Tsample::fSizes[item]) continue;
            d->connections.push_back({kConnSampleItem, nullptr, item, index, kMemoryVariable, false});
            fNeeds.set(unsigned(item));
            return kImplicitVariable;
        }
        if (step == kPortLightData) {
            // The lights' records, from the group: filled per sample by the lights' programs.
            if (d == &fRoot || !attr || name != Tstring(kLightDataArrayName) || attr->valueType() != TvalueType::kLightData) continue;
            d->connections.push_back({kConnLightDefault, nullptr, int(TDNshadingEngine::saBogusAttribute().index()), index,
                                      kMemoryVariable, false});
            fFoundLights = true;
            return kImplicitVariable;
        }
        if (step == kPortUnsolicited) {
            TuInt32Array indices;
            g.getExistingMultiAttributeIndices(Tplug(&g, &TDNshadingEngine::saUnsolicited(), true), indices);
            for (unsigned e = 0; e < indices.length(); ++e) {
                const Tplug* offered = g.sourceOf(Tplug(&g, &TDNshadingEngine::saUnsolicited(), int(indices[e])));
                if (!offered || offered->node() == d->node || isGroup(offered->node())) continue;
                TdependNode* node = offered->node();
                for (unsigned i = 0; i < node->attributeCount(); ++i) {
                    const Tattribute* a = node->attribute(i);
                    if (a->parent() || !a->isReadable() || a->matchName() != name) continue;
                    if (attr && a->size() != attr->size()) continue;
                    return offerFrom(Tplug(node, a), TSEportId(kPortUnsolicited), d, index, attr);
                }
            }
            continue;
        }
        // A shader slot of the group.
        const Tattribute* slot = step == kPortSurfaceShader   ? &TDNshadingEngine::saSurfaceShader()
                                 : step == kPortVolumeShader  ? &TDNshadingEngine::saVolumeShader()
                                 : step == kPortDisplacementShader ? &TDNshadingEngine::saDisplacementShader()
                                                                   : &TDNshadingEngine::saImageShader();
        const Tplug* shader = g.sourceOf(Tplug(&g, slot));
        if (!shader) continue;
        TdependNode* node = shader->node();
        for (unsigned i = 0; i < node->attributeCount(); ++i) {
            const Tattribute* a = node->attribute(i);
            if (a->parent() || !a->isReadable() || a->matchName() != name) continue;
            return offerFrom(Tplug(node, a), TSEportId(step), d, index, attr);
        }
    }
    return kImplicitNotFound;
}

void TSEanalysis::findProviderOutputs(TSEnodeDescription* d) {
    for (unsigned i = 0; i < d->attributeCount; ++i) {
        const Tattribute* a = d->node->attribute(i);
        if (a->parent() || !a->isComputed() || !a->isReadable() || !(a->flags() & kAttrSampleOutput)) continue;
        int item = Tsample::sItemIndex(a->matchName().asC());
        if (item < 0 || a->size() != Tsample::sStorageSize(unsigned(item))) continue;
        d->provider = true;
        d->provides.push_back({unsigned(item), i});
        // Written per sample by the node, seeded from the sample.
        setMemory(d, a, kMemoryVariable);
        fNeeds.set(unsigned(item));
        auto found = std::find_if(fProvided.begin(), fProvided.end(), [&](const Provided& p) { return p.item == unsigned(item); });
        if (found == fProvided.end())
            fProvided.push_back({unsigned(item), 1, 0});
        else
            ++found->depth;
    }
}

TSEnodeDescription* TSEanalysis::traverseNode(TSEportId port, const Tplug& plug) {
    TdependNode* node = plug.node();
    const Tattribute* output = plug.attribute()->rootParent();
    TSEnodeDescription* d = describe(node);
    if (!d) {
        fDescriptions.push_back(std::make_unique<TSEnodeDescription>(&fGroup, &fRoot, node));
        d = fDescriptions.back().get();
        d->inProgress = true;
        if (TshadingNode* shading = TshadingNode::fromNode(node)) shading->analyse(&fGroup, d, nullptr, fNeeds);
        findProviderOutputs(d);
        for (unsigned i = 0; i < d->attributeCount; ++i) {
            const Tattribute* a = node->attribute(i);
            if (a->parent() || a->isComputed() || !a->isWritable()) continue;
            if (d->memoryType[i] == kMemoryVariable) continue;  // fed by user sample data
            processInput(d, a, port);
        }
        d->inProgress = false;
        finishOutput(d, output);
    } else if (d->inProgress) {
        // The walk came back to a node it is still inside: a loop. The node is
        // computed on demand, and its output counts as varying.
        d->cut = true;
        d->loop = true;
        fHasLoops = true;
        d->wanted[output->index()] = 1;
        setMemory(d, output, kMemoryVariable);
    } else {
        finishOutput(d, output);
    }
    return d;
}

void TSEanalysis::finishOutput(TSEnodeDescription* d, const Tattribute* output) {
    d->wanted[output->index()] = 1;
    if (d->memoryType[output->index()] != kMemoryVariable) {
        TbitFieldFixedN affectors(d->attributeCount);
        d->matrix->allAffectors(output->index(), affectors);
        if (TshadingNode* shading = TshadingNode::fromNode(d->node))
            shading->modifyAffects(output, affectors, &fGroup, nullptr);
        bool variable = false;
        for (unsigned i = 0; i < d->attributeCount && !variable; ++i)
            if (affectors.test(i) && d->memoryType[d->node->attribute(i)->rootParent()->index()] == kMemoryVariable) variable = true;
        setMemory(d, output, variable ? kMemoryVariable : kMemoryConstant);
    }
    if (d->memoryType[output->index()] == kMemoryVariable && !d->emitted) {
        d->emitted = true;
        d->next = fList;
        fList = d;
    }
}

bool TSEanalysis::connect(TSEnodeDescription* d, const Tattribute* dest, const Tplug& source, TSEportId port, bool lazy,
                          int element) {
    TSEnodeDescription* s = traverseNode(port, source);
    bool variable = s->memoryType[source.attribute()->rootParent()->index()] == kMemoryVariable;
    d->connections.push_back({variable ? kConnNodeOutput : kConnConstantPlug, s, int(source.attribute()->index()), dest->index(),
                              variable ? kMemoryVariable : kMemoryConstant, lazy, element});
    if (variable) ++s->uses;
    return variable;
}

TSEmemoryType TSEanalysis::processInput(TSEnodeDescription* d, const Tattribute* a, TSEportId port) {
    TdependNode* node = d->node;
    bool lazy = d->lazy[a->index()];
    bool any = false, variable = false;
    std::vector<const Tattribute*> tree{a};
    for (unsigned i = 0; i < tree.size(); ++i)
        for (unsigned c = 0; c < tree[i]->childCount(); ++c) tree.push_back(tree[i]->child(c));
    if (a->isArray()) {
        // Elements with constant sources are read at analysis into the
        // multi's template; an element (or a child of one) driven by a
        // varying source is copied per sample over that template.
        TuInt32Array indices;
        node->getExistingMultiAttributeIndices(Tplug(node, a, true), indices);
        for (unsigned e = 0; e < indices.length(); ++e) {
            if (indices[e] >= kMaxMultiElements) continue;
            for (const Tattribute* x : tree)
                if (const Tplug* source = node->sourceOf(Tplug(node, x, int(indices[e])))) {
                    if (isGroup(source->node())) continue;
                    if (connect(d, x, *source, port, false, int(indices[e]))) variable = true;
                }
        }
        // A light array with no element of its own, set or connected, is fed
        // by the group's lights.
        if (indices.length() == 0 && a->matchName() == Tstring(kLightDataArrayName) &&
            findSource(a->matchName(), port, d, a->index(), a) == kImplicitVariable) {
            setMemory(d, a, kMemoryVariable);
            return kMemoryVariable;
        }
        setMemory(d, a, variable ? kMemoryVariable : kMemoryConstant);
        return variable ? kMemoryVariable : kMemoryConstant;
    }
    for (const Tattribute* x : tree) {
        const Tplug* source = node->sourceOf(Tplug(node, x));
        if (!source || isGroup(source->node())) continue;
        any = true;
        if (connect(d, x, *source, port, lazy)) variable = true;
    }
    if (!any) variable = findSource(a->matchName(), port, d, a->index(), a) == kImplicitVariable;
    setMemory(d, a, variable ? kMemoryVariable : kMemoryConstant);
    return variable ? kMemoryVariable : kMemoryConstant;
}

void TSEanalysis::dropUnreadLights() {
    if (!fFoundLights || fRequested.test(kItemLightTable)) return;
    bool read = false;
    for (auto& d : fDescriptions) {
        auto& connections = d->connections;
        for (size_t k = 0; k < connections.size();) {
            if (connections[k].kind != kConnLightDefault) {
                ++k;
                continue;
            }
            const Tattribute* lights = d->node->attribute(unsigned(connections[k].destAttr));
            bool wanted = false;
            for (unsigned o = 0; o < d->attributeCount && !wanted; ++o) {
                if (!d->wanted[o]) continue;
                TbitFieldFixedN affectors(d->attributeCount);
                d->matrix->allAffectors(o, affectors);
                if (TshadingNode* shading = TshadingNode::fromNode(d->node))
                    shading->modifyAffects(d->node->attribute(o), affectors, &fGroup, nullptr);
                wanted = affectors.test(lights->index());
            }
            if (wanted) {
                read = true;
                ++k;
                continue;
            }
            setMemory(d.get(), lights, kMemoryConstant);
            connections.erase(connections.begin() + std::ptrdiff_t(k));
        }
    }
    fFoundLights = read;
}

void TSEanalysis::cutLoops() {
    for (auto& d : fDescriptions) d->pending = d->uses;
    auto pass = [](TSEnodeDescription* d) {
        if (d->node && d->pending > 0) d->cut = true;
        for (const TSEconnectionRecord& c : d->connections)
            if (c.source && c.memory == kMemoryVariable && c.source->pending > 0) --c.source->pending;
    };
    pass(&fRoot);
    for (TSEnodeDescription* d = fList; d; d = d->next) pass(d);
    // A lazily read input's source runs only when asked.
    for (TSEnodeDescription* d = fList; d; d = d->next)
        for (const TSEconnectionRecord& c : d->connections)
            if (c.lazy && c.source && c.memory == kMemoryVariable) c.source->cut = true;
}

// Depth first from `top` over the nodes upstream through variable
// connections, each node once (the caller clears the visited marks):
// `enter(node)` false ends the walk, which then returns false; `follow(c)`
// says whether to go on into c's source.
template <class Enter, class Follow>
bool walkUpstream(TSEnodeDescription* top, Enter&& enter, Follow&& follow) {
    std::vector<TSEnodeDescription*> work{top};
    while (!work.empty()) {
        TSEnodeDescription* d = work.back();
        work.pop_back();
        if (d->visited) continue;
        d->visited = true;
        if (!enter(*d)) return false;
        for (const TSEconnectionRecord& c : d->connections)
            if (c.source && c.memory == kMemoryVariable && follow(c)) work.push_back(c.source);
    }
    return true;
}

void TSEanalysis::segment() {
    // A shared node upstream of a cut node is cut as well, so that each
    // segment owns only the nodes nobody else reads.
    bool changed = true;
    while (changed) {
        changed = false;
        for (TSEnodeDescription* d = fList; d; d = d->next) d->visited = false;
        for (TSEnodeDescription* top = fList; top; top = top->next) {
            if (!top->cut) continue;
            walkUpstream(
                top, [](TSEnodeDescription&) { return true; },
                [&](const TSEconnectionRecord& c) {
                    if (c.source->cut) return false;
                    if (c.source->uses <= 1) return true;
                    c.source->cut = true;
                    changed = true;
                    return false;
                });
        }
    }
    promoteUnconditional();
}

void TSEanalysis::promoteUnconditional() {
    // A cut node that the straight line reads through an input that is not
    // lazy is wanted for every sample of every batch: computed at the head of
    // the straight line, its readers read it directly instead of through the
    // segment's hook on each read. Only a node whose whole upstream reads
    // nothing lazily is moved, so that computing it never runs a segment,
    // which could read a moved node not yet computed. Loops and providers
    // re-run segments, so their programs keep the cuts.
    if (fHasLoops || !fProvided.empty()) return;
    std::vector<TSEnodeDescription*> upstream;
    auto gather = [&](TSEnodeDescription* top) {
        // The nodes `top` computes from, `top` included; false where one reads lazily.
        upstream.clear();
        for (TSEnodeDescription* d = fList; d; d = d->next) d->visited = false;
        return walkUpstream(
            top,
            [&](TSEnodeDescription& d) {
                if (!d.node || d.provider) return false;
                for (const TSEconnectionRecord& c : d.connections)
                    if (c.source && c.memory == kMemoryVariable && c.lazy) return false;
                upstream.push_back(&d);
                return true;
            },
            [](const TSEconnectionRecord&) { return true; });
    };
    std::vector<TSEnodeDescription*> straight, candidates;
    bool changed = true;
    while (changed) {
        changed = false;
        // The straight line: the root and what it reaches through uncut sources.
        candidates.clear();
        straight.assign(1, &fRoot);
        for (size_t k = 0; k < straight.size(); ++k)
            for (const TSEconnectionRecord& c : straight[k]->connections) {
                if (!c.source || c.memory != kMemoryVariable) continue;
                if (c.source->cut) {
                    if (!c.lazy) candidates.push_back(c.source);
                } else if (std::find(straight.begin(), straight.end(), c.source) == straight.end()) {
                    straight.push_back(c.source);
                }
            }
        for (TSEnodeDescription* x : candidates) {
            if (!x->cut || !gather(x)) continue;
            for (TSEnodeDescription* d : upstream) {
                d->cut = false;
                d->promoted = true;
            }
            changed = true;
        }
    }
}

unsigned TSEanalysis::newSegment() {
    fSegments.emplace_back();
    return unsigned(fSegments.size() - 1);
}

unsigned TSEanalysis::addCopy(const TSEcopy& c) {
    fCopies.push_back(c);
    return unsigned(fCopies.size() - 1);
}

unsigned TSEanalysis::arrayTemplate(BlockPlan& plan, TdependNode* node, const Tattribute* a, unsigned& count) {
    TuInt32Array indices;
    node->getExistingMultiAttributeIndices(Tplug(node, a, true), indices);
    count = 0;
    for (unsigned e = 0; e < indices.length(); ++e) count = std::max(count, std::min(indices[e] + 1, kMaxMultiElements));
    unsigned size = a->size();
    unsigned offset = align(unsigned(plan.constants.size()), 8);
    plan.constants.resize(offset + kMultiHeaderSize + count * size, 0);
    uint32_t header[4] = {count, size, 0, 0};
    for (unsigned e = 0; e < indices.length(); ++e) {
        unsigned k = indices[e];
        if (k >= count) continue;
        header[2 + k / 32] |= 1u << (k % 32);
        readPlug(Tplug(node, a, int(k)), plan.constants.data() + offset + kMultiHeaderSize + k * size);
    }
    std::memcpy(plan.constants.data() + offset, header, sizeof header);
    return offset;
}

void TSEanalysis::chooseOutputsInPlace() {
    // A shader output that only the group reads is written straight into
    // the sample records when they lie evenly spaced, so no copy follows
    // the compute. Not where a loop may read a value before it is computed
    // (the records hold last batch's), nor for a node run on demand, nor
    // when the network also reads the item (it would see the new value early).
    if (fHasLoops) return;
    auto readsBelow = [](const TSEconnectionRecord& c, const TSEnodeDescription* s, const Tattribute* a) {
        if (c.source != s || c.sourceAttr < 0) return false;
        const Tattribute* from = s->node->attribute(unsigned(c.sourceAttr));
        while (from && from != a) from = from->parent();
        return from == a;
    };
    for (const TSEconnectionRecord& c : fRoot.connections) {
        if (c.kind != kConnShaderOutput || !c.source || c.source->cut || c.source->block < 0 || c.destAttr >= kSampleItemCount) continue;
        TSEnodeDescription* s = c.source;
        const Tattribute* a = s->node->attribute(unsigned(c.sourceAttr));
        if (a->parent() || a->isArray() || a->size() != Tsample::sStorageSize(c.destAttr) || (a->flags() & kAttrNeedsConstruction))
            continue;
        if (std::any_of(s->provides.begin(), s->provides.end(), [&](const auto& p) { return p.second == a->index(); })) continue;
        unsigned readers = 0;
        bool itemRead = false;
        for (const TSEconnectionRecord& r : fRoot.connections) readers += readsBelow(r, s, a);
        for (const TSEnodeDescription* d : fBlocks)
            for (const TSEconnectionRecord& r : d->connections) {
                readers += readsBelow(r, s, a);
                itemRead |= (r.kind == kConnSampleItem || r.kind == kConnSampleDirect) && r.sourceAttr == int(c.destAttr);
            }
        if (readers == 1 && !itemRead) fPlans[unsigned(s->block)].inPlace.push_back({a->index(), c.destAttr});
    }
}

void TSEanalysis::choosePassThrough() {
    // A lazy input that its node only copies into an output, for the samples
    // it reads it for, needs no copy when its source writes straight into
    // that output: the source runs on demand for exactly those samples. Only
    // where nothing else reads the source (it would run for other samples
    // and write over the reader's output) and the source runs nowhere but
    // in its own segment. Loops and providers re-run segments: not there.
    if (fHasLoops || !fProvided.empty()) return;
    auto readsFrom = [](const TSEnodeDescription* reader, const TSEnodeDescription* s) {
        return unsigned(std::count_if(reader->connections.begin(), reader->connections.end(),
                                      [&](const TSEconnectionRecord& c) { return c.source == s; }));
    };
    auto plainValue = [](const Tattribute* a) { return !a->parent() && !a->isArray() && !(a->flags() & kAttrNeedsConstruction); };
    struct Pass {
        unsigned source, value, reader, output, input;  // blocks and attribute indices
    };
    std::vector<Pass> passes;
    for (TSEnodeDescription* d : fBlocks)
        for (auto [input, output] : d->passes) {
            const Tattribute* in = d->node->attribute(input);
            const Tattribute* out = d->node->attribute(output);
            if (!plainValue(out) || d->memoryType[output] != kMemoryVariable) continue;
            if (std::any_of(fPlans[unsigned(d->block)].inPlace.begin(), fPlans[unsigned(d->block)].inPlace.end(),
                            [&](const auto& p) { return p.first == output; }))
                continue;
            const TSEconnectionRecord* feed = nullptr;
            unsigned feeds = 0;
            for (const TSEconnectionRecord& c : d->connections)
                if (d->node->attribute(c.destAttr)->rootParent() == in) {
                    feed = &c;
                    ++feeds;
                }
            if (feeds != 1 || feed->kind != kConnNodeOutput || feed->element >= 0 || feed->destAttr != input) continue;
            TSEnodeDescription* s = feed->source;
            if (!s || s == d || !s->cut || s->promoted || s->provider || s->block < 0) continue;
            const Tattribute* value = s->node->attribute(unsigned(feed->sourceAttr));
            if (!plainValue(value) || value->typeof() != out->typeof() || value->size() != out->size()) continue;
            unsigned readers = readsFrom(&fRoot, s);
            for (const TSEnodeDescription* r : fBlocks) readers += readsFrom(r, s);
            if (readers != 1) continue;
            passes.push_back({unsigned(s->block), value->index(), unsigned(d->block), output, input});
        }
    // An output that is itself written into another holds a reference, not
    // a value: nothing writes into it (of nested conditions, the outer one
    // takes its colours' values in place).
    auto isSource = [&](unsigned block, unsigned attribute) {
        return std::any_of(passes.begin(), passes.end(), [&](const Pass& p) { return p.source == block && p.value == attribute; });
    };
    for (const Pass& p : passes) {
        if (isSource(p.reader, p.output)) continue;
        fPlans[p.source].passInto.push_back({p.value, p.reader, p.output});
        fPlans[p.reader].passFrom.push_back({p.input, p.reader, p.output});
    }
}

void TSEanalysis::layOut(TSEnodeDescription* d) {
    BlockPlan& plan = fPlans[unsigned(d->block)];
    TdependNode* node = d->node;
    unsigned n = d->attributeCount;
    plan.info.assign(n, {TdataBlockRendering::kConstPresent, 0, TdataBlockRendering::kNoSegment});
    unsigned variable = 0;

    // Inputs that can read their single source's block directly.
    std::vector<const TSEconnectionRecord*> direct(n, nullptr);
    std::vector<unsigned> connectionCount(n, 0);
    for (const TSEconnectionRecord& c : d->connections) connectionCount[node->attribute(c.destAttr)->rootParent()->index()]++;
    std::vector<uint8_t> lightArray(n, 0);
    for (const TSEconnectionRecord& c : d->connections)
        if (c.kind == kConnLightDefault) lightArray[c.destAttr] = 1;
    for (const TSEconnectionRecord& c : d->connections) {
        const Tattribute* dest = node->attribute(c.destAttr);
        if (c.kind != kConnNodeOutput || dest->parent() || dest->isArray() || connectionCount[dest->index()] != 1) continue;
        // A child of a compound output (a colour's red, say) lies at its own
        // offset in the source's element, so it links as well as a whole value.
        const Tattribute* source = c.source->node->attribute(unsigned(c.sourceAttr));
        if (source->rootParent()->isArray() || source->typeof() != dest->typeof()) continue;
        direct[dest->index()] = &c;
    }
    // Inputs fed by one sample item alone read it in the records; an item
    // that providers stand in for keeps its copy from the provider stack.
    std::vector<const TSEconnectionRecord*> fromSample(n, nullptr);
    for (const TSEconnectionRecord& c : d->connections) {
        const Tattribute* dest = node->attribute(c.destAttr);
        if (c.kind != kConnSampleItem || c.element >= 0 || dest->parent() || dest->isArray() || connectionCount[dest->index()] != 1)
            continue;
        const unsigned item = unsigned(c.sourceAttr);
        if (item >= kSampleItemCount || providedItem(item) || dest->size() > Tsample::sStorageSize(item) ||
            (dest->flags() & kAttrNeedsConstruction))
            continue;
        fromSample[dest->index()] = &c;
    }

    auto place = [&](const Tattribute* a, uint32_t kind, unsigned offset, int segment, auto&& self) -> void {
        plan.info[a->index()] = {kind, uint16_t(offset), int16_t(segment)};
        // The slot of a linked input holds a reference, not the value: its
        // children are read through their top parent's reference, at their
        // offset within the value.
        const bool linked = kind == TdataBlockRendering::kVarPresentOtherDB || kind == TdataBlockRendering::kVarUseParentOtherDB;
        for (unsigned c = 0; c < a->childCount(); ++c)
            self(a->child(c), linked ? TdataBlockRendering::kVarUseParentOtherDB : kind,
                 (linked && a->parent() == nullptr ? 0 : offset) + a->child(c)->offsetInParent(), segment, self);
    };
    for (unsigned i = 0; i < n; ++i) {
        const Tattribute* a = node->attribute(i);
        if (a->parent()) continue;
        bool isVariable = d->memoryType[i] == kMemoryVariable;
        unsigned size = a->size();
        if (a->isArray() && isVariable && lightArray[i]) {
            // One header and a record per light of the group, per sample; the
            // light loop fills it (kOpLightArray).
            unsigned lights = unsigned(std::min<size_t>(fGroup.lights().size(), kMaxMultiElements));
            variable = align(variable, 8);
            plan.multi.push_back({0, lights, 0, 0, kMultiHeaderSize, 8});
            place(a, TdataBlockRendering::kVarPresentNoProp, variable, int(plan.multi.size() - 1), place);
            variable += kMultiHeaderSize + lights * size;
            continue;
        }
        if (a->isArray()) {
            unsigned count = 0;
            unsigned templateOffset = arrayTemplate(plan, node, a, count);
            plan.multi.push_back({0, count, 0, 0, kMultiHeaderSize, 8});
            int multi = int(plan.multi.size() - 1);
            if (!isVariable) {
                place(a, TdataBlockRendering::kConstPresent, templateOffset, multi, place);
                continue;
            }
            // Each sample holds its own copy of the multi: the template, then
            // the varying elements over it. No segment stands behind the
            // value itself, only behind the elements' sources.
            variable = align(variable, 8);
            place(a, TdataBlockRendering::kVarPresentNoProp, variable, multi, place);
            plan.arrays.push_back({i, templateOffset, kMultiHeaderSize + count * size});
            variable += kMultiHeaderSize + count * size;
            continue;
        }
        if (!isVariable) {
            unsigned offset = align(unsigned(plan.constants.size()), slotAlignment(size));
            plan.constants.resize(offset + size, 0);
            if (!(a->flags() & kAttrNeedsConstruction) && size) {
                if (a->isComputed())
                    a->copyDefaultValue(plan.constants.data() + offset);
                else
                    readPlug(Tplug(node, a), plan.constants.data() + offset);
            }
            place(a, TdataBlockRendering::kConstPresent, offset, TdataBlockRendering::kNoSegment, place);
            continue;
        }
        if (const TSEconnectionRecord* c = fromSample[i]) {
            variable = align(variable, 8);
            place(a, TdataBlockRendering::kVarPresentOtherDB, variable, TdataBlockRendering::kNoSegment, place);
            plan.sampleLinks.push_back({i, unsigned(c->sourceAttr), variable + kReferenceSlot});
            variable += kReferenceSlot + align(size, 8);
            continue;
        }
        if (auto it = std::find_if(plan.inPlace.begin(), plan.inPlace.end(), [&](const auto& p) { return p.first == i; });
            it != plan.inPlace.end()) {
            variable = align(variable, 8);
            place(a, TdataBlockRendering::kVarPresentOtherDB, variable, TdataBlockRendering::kNoSegment, place);
            plan.outputLinks.push_back({i, it->second, variable + kReferenceSlot});
            variable += kReferenceSlot + align(size, 8);
            continue;
        }
        if (const auto* pass = findFirst(plan.passInto, i)) {
            // Written into the reader's output; nothing reads it here.
            variable = align(variable, 8);
            place(a, TdataBlockRendering::kVarPresentOtherDB, variable, TdataBlockRendering::kNoSegment, place);
            variable += std::max(size, kReferenceSlot);
            plan.links.push_back(*pass);
            continue;
        }
        if (const TSEconnectionRecord* c = direct[i]) {
            variable = align(variable, 8);
            place(a, TdataBlockRendering::kVarPresentOtherDB, variable, c->source->cut ? c->source->segment : TdataBlockRendering::kNoSegment,
                  place);
            variable += std::max(size, kReferenceSlot);
            const Tattribute* source = c->source->node->attribute(unsigned(c->sourceAttr));
            // A source that writes into this node's output is read there.
            const auto* pass = findFirst(plan.passFrom, i);
            plan.links.push_back(pass ? *pass : std::array<unsigned, 3>{i, unsigned(c->source->block), source->index()});
            continue;
        }
        variable = align(variable, slotAlignment(size));
        int segment = a->isComputed() && d->cut ? d->segment : TdataBlockRendering::kNoSegment;
        place(a, TdataBlockRendering::kVarPresent, variable, segment, place);
        if (a->flags() & kAttrNeedsConstruction) plan.hidden.push_back(uint16_t(i));
        variable += size;
    }
    plan.elementSize = align(std::max(variable, 8u), 8);
}

void TSEanalysis::emitCopies(TSEnodeDescription* d, std::vector<TSEinstruction>& stream) {
    BlockPlan& plan = fPlans[unsigned(d->block)];
    TdependNode* node = d->node;
    uint16_t block = uint16_t(d->block);
    std::vector<uint8_t> covered(d->attributeCount, 0);
    // Varying multis start from their template; driven elements follow.
    for (const auto& array : plan.arrays)
        stream.push_back(instruction(
            kOpCopy, addCopy(makeCopy(kSideConstant, block, array[1], kSideVariable, block, plan.info[array[0]].offset, array[2]))));
    // A provider's outputs start from the value of their item as the node sees it.
    // From the stack: inside another provider of the item, the seed is that provider's value.
    for (auto [item, attr] : d->provides)
        stream.push_back(instruction(kOpCopyFromStack, providedItem(item)->stackOffset,
                                     addCopy(makeCopy(kSideSample, kNoBlock, item, kSideVariable, block, plan.info[attr].offset,
                                                      node->attribute(attr)->size()))));
    for (const TSEconnectionRecord& c : d->connections) {
        const Tattribute* dest = node->attribute(c.destAttr);
        if (c.element >= 0) {
            if (c.kind == kConnNodeOutput) emitElementCopy(d, c, stream);
            continue;
        }
        const Tattribute* root = dest->rootParent();
        auto& info = plan.info[dest->index()];
        covered[dest->index()] = 1;
        for (const Tattribute* p = dest->parent(); p; p = p->parent()) covered[p->index()] = 1;
        std::vector<const Tattribute*> below{dest};
        for (unsigned k = 0; k < below.size(); ++k)
            for (unsigned ch = 0; ch < below[k]->childCount(); ++ch) {
                below.push_back(below[k]->child(ch));
                covered[below[k]->child(ch)->index()] = 1;
            }
        if (d->memoryType[root->index()] != kMemoryVariable || info.kind == TdataBlockRendering::kVarPresentOtherDB) continue;
        if (c.kind == kConnLightDefault) {
            stream.push_back(instruction(kOpLightArray, block, dest->index()));
            continue;
        }
        TSEcopy copy{};
        copy.destSide = kSideVariable;
        copy.destBlock = block;
        copy.destOffset = info.offset;
        copy.size = dest->size();
        copy.sourceSegment = -1;
        if (c.kind == kConnSampleItem || c.kind == kConnSampleDirect) {
            copy.sourceSide = kSideSample;
            copy.sourceBlock = kNoBlock;
            copy.sourceOffset = unsigned(c.sourceAttr);
            copy.routine = selectCopyRoutine(copy.size, copy.sourceSide, copy.destSide);
            const Provided* p = c.kind == kConnSampleItem ? providedItem(unsigned(c.sourceAttr)) : nullptr;
            // A provided item is read where the innermost running provider keeps it.
            stream.push_back(p ? instruction(kOpCopyFromStack, p->stackOffset, addCopy(copy)) : instruction(kOpCopy, addCopy(copy)));
            continue;
        } else if (c.kind == kConnNodeOutput) {
            const TSEnodeDescription* s = c.source;
            const Tattribute* source = s->node->attribute(unsigned(c.sourceAttr));
            if (source->size() != dest->size()) continue;
            copy.sourceSide = kSideVariable;
            copy.sourceBlock = uint16_t(s->block);
            copy.sourceOffset = fPlans[unsigned(s->block)].info[source->index()].offset;
            if (s->cut) copy.sourceSegment = s->segment;
        } else {
            // A constant piece of a varying input: read now, spread per sample.
            unsigned offset = align(unsigned(plan.constants.size()), 8);
            plan.constants.resize(offset + align(dest->size(), 8), 0);
            readPlug(Tplug(node, dest), plan.constants.data() + offset);
            copy.sourceSide = kSideConstant;
            copy.sourceBlock = block;
            copy.sourceOffset = offset;
        }
        copy.routine = selectCopyRoutine(copy.size, copy.sourceSide, copy.destSide);
        unsigned index = addCopy(copy);
        if (c.lazy && copy.sourceSegment > 0) {
            // Runs only for the samples the node asks for.
            unsigned s = newSegment();
            fSegments[s].push_back(instruction(kOpCopy, index));
            info.parentOrSegment = int16_t(s);
            for (const Tattribute* p = dest->parent(); p; p = p->parent())
                plan.info[p->index()].kind = TdataBlockRendering::kVarUseChild;
        } else {
            stream.push_back(instruction(kOpCopy, index));
        }
    }
    // Parts of varying compounds that nothing drives keep their stored value.
    for (unsigned i = 0; i < d->attributeCount; ++i) {
        const Tattribute* a = node->attribute(i);
        const Tattribute* root = a->rootParent();
        if (a->isComputed() || root->isComputed() || covered[i] || root->isArray() || d->memoryType[root->index()] != kMemoryVariable)
            continue;
        if (plan.info[root->index()].kind == TdataBlockRendering::kVarPresentOtherDB || a->childCount() || root == a) continue;
        unsigned offset = align(unsigned(plan.constants.size()), 8);
        plan.constants.resize(offset + align(a->size(), 8), 0);
        // Nothing drives it: its stored value, without pulling its siblings' sources.
        a->copyValue(plan.constants.data() + offset, node->storage(a));
        stream.push_back(instruction(kOpCopy, addCopy(makeCopy(kSideConstant, block, offset, kSideVariable, block, plan.info[i].offset, a->size()))));
    }
}

void TSEanalysis::emitElementCopy(TSEnodeDescription* d, const TSEconnectionRecord& c, std::vector<TSEinstruction>& stream) {
    const Tattribute* dest = d->node->attribute(c.destAttr);
    const Tattribute* array = dest->rootParent();
    const Tattribute* source = c.source->node->attribute(unsigned(c.sourceAttr));
    if (source->size() != dest->size()) return;
    unsigned within = 0;
    for (const Tattribute* p = dest; p != array; p = p->parent()) within += p->offsetInParent();
    unsigned destOffset = fPlans[unsigned(d->block)].info[array->index()].offset + kMultiHeaderSize + unsigned(c.element) * array->size() + within;
    stream.push_back(instruction(kOpCopy, addCopy(makeCopy(kSideVariable, uint16_t(c.source->block),
                                                           fPlans[unsigned(c.source->block)].info[source->index()].offset, kSideVariable,
                                                           uint16_t(d->block), destOffset, dest->size(),
                                                           c.source->cut ? c.source->segment : -1))));
}

void TSEanalysis::emitNode(TSEnodeDescription* d, std::vector<TSEinstruction>& stream) {
    if (d->codeEmitted) return;
    d->codeEmitted = true;
    d->guard = kEmittingGuard;
    for (const TSEconnectionRecord& c : d->connections)
        if (c.source && c.memory == kMemoryVariable && !c.source->cut) emitNode(c.source, stream);
    emitCopies(d, stream);
    uint32_t sibling = 0;  // set on every compute of this node after the first
    for (unsigned i = 0; i < d->attributeCount; ++i) {
        const Tattribute* a = d->node->attribute(i);
        if (a->parent() || !a->isComputed() || !d->wanted[i] || d->memoryType[i] != kMemoryVariable) continue;
        TSEcomputeTarget target{Tplug(d->node, a), TshadingNode::fromNode(d->node), nullptr};
        uint32_t op = kOpCompute;
        if (!d->node->isMpSafe()) {
            fMutexes.push_back(TdepNodeMutexMgr::instance().obtainNodeMutex(d->node));
            fMutexNodes.push_back(d->node);
            target.mutex = fMutexes.back().get();
            op = kOpComputeLocked;
        }
        fTargets.push_back(target);
        for (auto [item, attr] : d->provides)
            stream.push_back(instruction(kOpPushProvider, providedItem(item)->stackOffset, uint32_t(d->block),
                                         fPlans[unsigned(d->block)].info[attr].offset));
        stream.push_back(instruction(op, uint32_t(d->block), uint32_t(fTargets.size() - 1), sibling));
        sibling = 1;
        for (auto it = d->provides.rbegin(); it != d->provides.rend(); ++it)
            stream.push_back(instruction(kOpPopProvider, providedItem(it->first)->stackOffset));
    }
    d->guard = 0;
}

template <typename T>
T* copyToArena(TstackArena& arena, const T* data, size_t count) {
    if (!count) return nullptr;
    T* out = static_cast<T*>(arena.allocate(sizeof(T) * count));
    for (size_t i = 0; i < count; ++i) new (&out[i]) T(data[i]);
    return out;
}

TshadingOpus* TSEanalysis::distribute(TstackArena& arena, TbitField64 result, unsigned*& fieldOffsets, unsigned& sampleSize) {
    // Sample layout: the found outputs, the items the network reads, and the object.
    if (fFoundLights) fNeeds.set(kItemLightData);  // each light's program leaves its record there
    TbitField64 needed = (fRequested & result) | fNeeds;
    needed.set(kItemObjectId);
    const auto& users = fRoot.userItems;
    std::vector<unsigned> userSizes;
    if (!users.empty()) {
        userSizes.push_back(kIlluminationSlotSize);
        for (const auto& u : users) {
            userSizes.push_back(u.size);
            if (u.sourceField < kSampleItemCount) needed.set(u.sourceField);
        }
    }
    unsigned userCount = unsigned(userSizes.size());
    fFields = static_cast<unsigned*>(arena.allocate(sizeof(unsigned) * Tsample::sFieldTableLength(userCount)));
    sampleSize = Tsample::sBuildFieldOffsets(needed, fFields, userSizes.data(), userCount);
    fieldOffsets = fFields;

    // Blocks, first completed first, so that sources come before consumers.
    for (TSEnodeDescription* d = fList; d; d = d->next) fBlocks.push_back(d);
    std::reverse(fBlocks.begin(), fBlocks.end());
    fPlans.resize(fBlocks.size());
    for (unsigned b = 0; b < fBlocks.size(); ++b) fBlocks[b]->block = int(b);
    newSegment();  // segment 0: the straight-line program
    for (TSEnodeDescription* d : fBlocks)
        if (d->cut) d->segment = int(newSegment());
    chooseOutputsInPlace();
    choosePassThrough();
    for (TSEnodeDescription* d : fBlocks) layOut(d);
    // One stack per provided item: the seed, then one entry per nesting provider.
    for (Provided& p : fProvided) {
        p.stackOffset = fLoopSize;
        fLoopSize += kStackHeaderSize + (p.depth + 1) * kStackEntrySize;
    }

    // Segment 0: set up every block, link direct reads, start the stacks of
    // provided items, then the root's needs. Built aside: emission adds
    // segments, which moves the ones already made.
    std::vector<TSEinstruction> prologue;
    for (unsigned b = 0; b < fBlocks.size(); ++b) prologue.push_back(instruction(kOpSetUpBlock, b));
    for (const Provided& p : fProvided)
        prologue.push_back(instruction(kOpInitStack, p.stackOffset, p.stackOffset + kStackHeaderSize + (p.depth + 1) * kStackEntrySize,
                                       p.item));
    for (unsigned b = 0; b < fBlocks.size(); ++b)
        for (auto& link : fPlans[b].links) prologue.push_back(instruction(kOpLinkBlock, b, link[0], link[1], link[2]));
    for (unsigned b = 0; b < fBlocks.size(); ++b) {
        for (auto& link : fPlans[b].sampleLinks) prologue.push_back(instruction(kOpLinkSample, b, link[0], link[1], link[2], 0));
        for (auto& link : fPlans[b].outputLinks) prologue.push_back(instruction(kOpLinkSample, b, link[0], link[1], link[2], 1));
    }
    // Nodes moved out of segments come first in the straight line, before
    // the segments that read them claim them: they run no segment, and
    // segments may read them from the start.
    std::vector<TSEinstruction> main;
    for (TSEnodeDescription* d : fBlocks)
        if (d->promoted) emitNode(d, main);
    for (TSEnodeDescription* d : fBlocks)
        if (d->cut) {
            std::vector<TSEinstruction> stream;
            emitNode(d, stream);
            auto& target = fSegments[unsigned(d->segment)];
            target.insert(target.end(), stream.begin(), stream.end());
        }
    for (const TSEconnectionRecord& c : fRoot.connections)
        if (c.source && !c.source->cut) emitNode(c.source, main);
    unsigned rootConstantBase = 0;  // fixed below, once the block constants are placed
    std::vector<unsigned> rootCopies;
    for (const TSEconnectionRecord& c : fRoot.connections) {
        TSEcopy copy{};
        copy.destSide = kSideSample;
        copy.destBlock = kNoBlock;
        copy.destOffset = c.destAttr;
        copy.size = Tsample::sStorageSize(c.destAttr);
        copy.sourceSegment = -1;
        if (c.kind == kConnShaderOutput) {
            const Tattribute* source = c.source->node->attribute(unsigned(c.sourceAttr));
            if (source->size() != copy.size) continue;
            copy.sourceSide = kSideVariable;
            copy.sourceBlock = uint16_t(c.source->block);
            copy.sourceOffset = fPlans[unsigned(c.source->block)].info[source->index()].offset;
            if (c.source->cut) copy.sourceSegment = c.source->segment;
            for (const auto& link : fPlans[unsigned(c.source->block)].outputLinks)
                if (link[0] == source->index() && link[1] == c.destAttr) {
                    // The value's own place is the fallback behind the reference.
                    copy.sourceOffset = link[2];
                    copy.destInPlace = true;
                }
        } else {
            copy.sourceSide = kSideConstant;
            copy.sourceBlock = kNoBlock;
            for (const RootConstant& rc : fRootConstantItems)
                if (rc.item == c.destAttr) copy.sourceOffset = rc.offset;
            rootCopies.push_back(unsigned(fCopies.size()));
        }
        copy.routine = selectCopyRoutine(copy.size, copy.sourceSide, copy.destSide);
        main.push_back(instruction(kOpCopy, addCopy(copy)));
    }
    prologue.insert(prologue.end(), main.begin(), main.end());
    fSegments[0] = std::move(prologue);

    // Constants: every block's area, then the root's.
    std::vector<unsigned char> constants;
    std::vector<TSEblockLayout> layouts(fBlocks.size());
    unsigned variableBase = 0;
    for (unsigned b = 0; b < fBlocks.size(); ++b) {
        BlockPlan& plan = fPlans[b];
        unsigned offset = align(unsigned(constants.size()), 16);
        constants.resize(offset);
        constants.insert(constants.end(), plan.constants.begin(), plan.constants.end());
        TSEblockLayout& layout = layouts[b];
        layout.node = fBlocks[b]->node;
        layout.elementSize = plan.elementSize;
        layout.variableBase = variableBase;
        variableBase += plan.elementSize;
        layout.constantOffset = offset;
        layout.constantSize = unsigned(plan.constants.size());
        layout.info = copyToArena(arena, plan.info.data(), plan.info.size());
        layout.multi = copyToArena(arena, plan.multi.data(), plan.multi.size());
        std::vector<uint16_t> hidden{uint16_t(plan.hidden.size())};
        hidden.insert(hidden.end(), plan.hidden.begin(), plan.hidden.end());
        layout.hidden = copyToArena(arena, hidden.data(), hidden.size());
    }
    rootConstantBase = align(unsigned(constants.size()), 16);
    constants.resize(rootConstantBase);
    constants.insert(constants.end(), fRootConstants.begin(), fRootConstants.end());
    for (unsigned c : rootCopies) fCopies[c].sourceOffset += rootConstantBase;

    // The instruction list and its segment table.
    std::vector<TSEinstruction> all;
    std::vector<unsigned> segments;
    for (auto& s : fSegments) {
        segments.push_back(unsigned(all.size()));
        all.insert(all.end(), s.begin(), s.end());
    }
    segments.push_back(unsigned(all.size()));

    TshadingOpus::Program program{};
    program.instructions = copyToArena(arena, all.data(), all.size());
    program.instructionCount = unsigned(all.size());
    program.segments = copyToArena(arena, segments.data(), segments.size());
    program.segmentCount = unsigned(fSegments.size());
    program.blocks = copyToArena(arena, layouts.data(), layouts.size());
    program.blockCount = unsigned(layouts.size());
    program.copies = copyToArena(arena, fCopies.data(), fCopies.size());
    program.copyCount = unsigned(fCopies.size());
    program.targets = copyToArena(arena, fTargets.data(), fTargets.size());
    program.targetCount = unsigned(fTargets.size());
    program.mutexes = copyToArena(arena, fMutexes.data(), fMutexes.size());
    program.mutexNodes = copyToArena(arena, fMutexNodes.data(), fMutexNodes.size());
    program.mutexCount = unsigned(fMutexes.size());
    program.constants = copyToArena(arena, constants.data(), constants.size());
    program.constantSize = unsigned(constants.size());
    program.variableSize = variableBase;
    program.zeroVariables = fHasLoops;
    program.loopSize = fLoopSize;

    auto* opus = new (arena.allocate(sizeof(TshadingOpus))) TshadingOpus(fOpusNode ? fOpusNode : &fGroup, fOption, &arena);
    opus->initialize(program, fNeeds, fRequested, fFields, &fGroup);
    if (!users.empty()) {
        auto* table = static_cast<TSEudSampleTable*>(arena.allocate(sizeof(TSEudSampleTable)));
        table->count = unsigned(users.size());
        table->records = static_cast<TSEudSampleRecord*>(arena.allocate(sizeof(TSEudSampleRecord) * users.size()));
        for (unsigned u = 0; u < users.size(); ++u) {
            const auto& item = users[u];
            const TuserSampleFill** fills = nullptr;
            if (item.fillCount) {
                fills = static_cast<const TuserSampleFill**>(arena.allocate(sizeof(void*) * item.fillCount));
                for (unsigned k = 0; k < item.fillCount; ++k) fills[k] = item.fills[k];
            }
            table->records[u] = {item.attribute, item.size, kFirstUserField + 1 + u, item.sourceField, item.fillCount, fills};
        }
        opus->addUserSampleData(table);
    }
    return opus;
}

bool TSEanalysis::satisfyLight(TdependNode* light, TbitField64& result) {
    result.clearAll();
    const Tattribute* output = light->attribute(Tstring("lightData"));
    if (!output || output->valueType() != TvalueType::kLightData || output->size() != Tsample::sStorageSize(kItemLightData))
        return false;
    if (offerFrom(Tplug(light, output), kPortLightData, &fRoot, kItemLightData, nullptr) != kImplicitVariable) return false;
    result.set(kItemLightData);
    return true;
}

}  // namespace

TshadingOpus* buildLightOpus(TDNshadingEngine& group, TdependNode* light, TstackArena& arena) {
    TbitField64 needs, result, requested;
    requested.set(kItemLightData);
    TSEanalysis analysis(group, kSingleLight, kSampleSurface, requested, needs);
    analysis.setOpusNode(light);
    if (!analysis.satisfyLight(light, result)) return nullptr;
    analysis.cutLoops();
    analysis.segment();
    unsigned* fields = nullptr;
    unsigned size = 0;
    return analysis.distribute(arena, result, fields, size);
}

TSEnodeDescription::TSEnodeDescription(TDNshadingEngine* engine_, TSEnodeDescription* root_, TdependNode* node_)
    : engine(engine_), root(root_), node(node_) {
    if (!node) return;
    matrix = &node->dependencies();
    attributeCount = node->attributeCount();
    memoryType.assign(attributeCount, kMemoryUnknown);
    wanted.assign(attributeCount, 0);
    lazy.assign(attributeCount, 0);
}

void TSEnodeDescription::markLazyInput(const Tattribute& input, const Tattribute* passedTo) {
    if (input.index() >= lazy.size()) return;
    lazy[input.index()] = 1;
    if (passedTo && passedTo->index() < attributeCount) passes.push_back({input.index(), passedTo->index()});
}

// ---------------------------------------------------------------- the group's side

unsigned TDNshadingEngine::defineUserSampleData(TSEnodeDescription* d, const Tattribute* input, unsigned size, unsigned sourceField,
                                                const TuserSampleFill* const* fills, unsigned fillCount) {
    if (!d || !d->root) return 0;
    auto& items = d->root->userItems;
    unsigned field = kFirstUserField + 1 + unsigned(items.size());
    items.push_back({input ? input->index() : ~0u, size, sourceField, fills ? fillCount : 0, fills});
    if (input && d->node && input->index() < d->attributeCount && input->size() == size && !input->parent()) {
        d->connections.push_back({kConnSampleDirect, nullptr, int(field), input->index(), kMemoryVariable, false});
        for (unsigned i = 0; i < d->attributeCount; ++i)
            if (d->node->attribute(i)->rootParent() == input) d->memoryType[i] = kMemoryVariable;
    }
    return field;
}

const TDNshadingEngine::Analyser TDNshadingEngine::fsAnalysers[kTSEoptionCount] = {
    &TDNshadingEngine::surfaceShadingInit, &TDNshadingEngine::volumeShadingInit,  &TDNshadingEngine::dispShadingInit,
    &TDNshadingEngine::surfaceShadingInit, &TDNshadingEngine::volumeShadingInit,  &TDNshadingEngine::volumeShadingInit,
    &TDNshadingEngine::surfaceShadingInit, &TDNshadingEngine::surfaceShadingInit, &TDNshadingEngine::surfaceShadingInit,
    &TDNshadingEngine::surfaceShadingInit, &TDNshadingEngine::surfaceShadingInit, &TDNshadingEngine::surfaceShadingInit,
};

TbitField64 TDNshadingEngine::requestedForOption(TSEoption option) {
    return TbitField64((uint64_t(kRequests[option][1]) << 32) | kRequests[option][0]);
}

void TDNshadingEngine::setSamplerRequests() {
    for (unsigned o = 0; o < kTSEoptionCount; ++o) fOptions[o].requested = requestedForOption(TSEoption(o));
}

bool TDNshadingEngine::analyse(TSEoption option, TbitField64* result, TframeSampleData* data, const TgeoManagerBase* geoManager,
                               TrenderThreadBase* thread) {
    if (option >= kTSEoptionCount) return false;
    return (this->*fsAnalysers[option])(option, &fOptions[option].requested, result, data, geoManager, thread);
}

bool TDNshadingEngine::surfaceShadingInit(TSEoption option, TbitField64* requested, TbitField64* result, TframeSampleData* data,
                                          const TgeoManagerBase*, TrenderThreadBase*) {
    return shadingInit(kSampleSurface, option, requested, result, data);
}
bool TDNshadingEngine::volumeShadingInit(TSEoption option, TbitField64* requested, TbitField64* result, TframeSampleData* data,
                                         const TgeoManagerBase*, TrenderThreadBase*) {
    return shadingInit(kSampleVolume, option, requested, result, data);
}
bool TDNshadingEngine::dispShadingInit(TSEoption option, TbitField64* requested, TbitField64* result, TframeSampleData* data,
                                       const TgeoManagerBase*, TrenderThreadBase*) {
    return shadingInit(kSampleDisplacement, option, requested, result, data);
}

bool TDNshadingEngine::shadingInit(TSEsampleType type, TSEoption option, TbitField64* requested, TbitField64* result,
                                   TframeSampleData*) {
    TdependNodeMutexPtr mutex = TdepNodeMutexMgr::instance().obtainNodeMutex(this);
    bool found = false;
    {
        TmtLock lock(*mutex);
        OptionState& state = fOptions[option];
        TshadingOpus** slot = nullptr;
        TstackArena* arena = nullptr;
        bool present = TshadingCatalog::getOpus(slot, arena, this, option);
        if (present) {
            if (state.opus == *slot) {
                found = true;
            } else if (!state.opus) {
                state.opus = *slot;
                state.fieldOffsets = (*slot)->fieldOffsetTable();
                state.needs = (*slot)->needs();
                state.sampleSize = (state.fieldOffsets[Tsample::sFieldTableLength((*slot)->sizeOffset()) - 1] + 7) / 8 * 8;
                found = true;
            } else {
                std::printf("analysis error 1 opt=%d\n", int(option));
                found = true;
            }
        } else if (state.opus) {
            found = true;
        } else {
            TbitField64 ignored;
            TbitField64& out = result ? *result : ignored;
            if (fDeepRaster) state.needs |= fDeepRaster->wantedItems();
            if (type == kSampleDisplacement) fDisplacementZero = true;
            TSEanalysis analysis(*this, option, type, *requested, state.needs);
            found = analysis.satisfySampler(out);
            if (type == kSampleSurface || type == kSampleVolume) fTransparencyConstant = analysis.foundConstantTransparency();
            if (found) {
                analysis.dropUnreadLights();
                analysis.cutLoops();
                analysis.segment();
                unsigned* fields = nullptr;
                unsigned size = 0;
                TshadingOpus* opus = analysis.distribute(*arena, out, fields, size);
                *slot = opus;
                state.opus = opus;
                state.fieldOffsets = fields;
                state.sampleSize = size;
                if (analysis.foundLights()) getLightList(option, opus, *arena);
            } else {
                // Nothing to shade: give the catalog entry back.
                TshadingCatalog::deleteOpus(this, option, true);
            }
        }
    }
    TdepNodeMutexMgr::instance().returnMutex(this, mutex);
    return found;
}
