#include "framework/data_block_rendering.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "framework/host/depend_node.h"

namespace {
std::atomic<TdataBlockRendering::ComputeValue> gComputeValue{nullptr};

// The head of an array value in a block: how many elements there are room
// for, their size and which logical indices exist. Elements follow at dOff.
struct TmultiHeader {
    uint32_t count;
    uint32_t elementSize;
    uint32_t bits[2];
};
constexpr unsigned kMaxMultiElements = 64;

// Inline walks: these run several times per node and batch, and calls into
// the shared library's exported functions are never inlined.
inline const Tattribute* topParent(const Tattribute* a) {
    while (a->parent()) a = a->parent();
    return a;
}
inline uint16_t rootIndex(const Tattribute& a) { return topParent(&a)->index(); }
}  // namespace

void TdataBlockRendering::setComputeValueHook(ComputeValue hook) { gComputeValue.store(hook); }

const char* TdataBlockRendering::kindName(uint32_t kind) {
    switch (kind) {
        case kConstDefaultValue: return "kConstDefaultValue";
        case kVarDefaultValue: return "kVarDefaultValue";
        case kConstPresent: return "kConstPresent";
        case kVarPresent: return "kVarPresent";
        case kConstUseParent: return "kConstUseParent";
        case kVarUseParent: return "kVarUseParent";
        case kConstUseChild: return "kConstUseChild";
        case kVarUseChild: return "kVarUseChild";
        case kVarPreferChild: return "kVarPreferChild";
        case kConstUseParentAndChild: return "kConstUseParentAndChild";
        case kVarUseParentAndChild: return "kVarUseParentAndChild";
        case kVarPresentNoProp: return "kVarPresentNoProp";
        case kConstantType: return "kConstantType";
        case kVariableType: return "kVariableType";
        case kNotConnectedType: return "kNotConnectedType";
        case kConstPreferChild: return "kConstPreferChild";
        case kVarPresentOtherDB: return "kVarPresentOtherDB";
        case kVarUseParentOtherDB: return "kVarUseParentOtherDB";
        default: return "*** INVALID VALUE ***";
    }
}

TdataBlockRendering::~TdataBlockRendering() { tearDown(); }


void TdataBlockRendering::setUp(TdependNode* node, unsigned stride, unsigned char* first, unsigned count,
                                unsigned char* constant, AttrInfo* offsets, MultiInfo* multi, const uint16_t* hiddenMulti,
                                void* context) {
    fStride = stride;
    fFirst = first;
    fLastIndex = count ? count - 1 : 0;
    fCurrent = first;
    fNode = node;
    fOffsets = offsets;
    fMulti = multi;
    fHiddenMulti = hiddenMulti;
    fContext = context;
    fCleanCount = 0;
    fDirect = nullptr;
    fDirectBase[0] = constant;
    fDirectBase[1] = first;
    fDirectStride = stride;
    fMarksIgnored = false;
    fComputeHook = &computeForDirect;
    if (hiddenMulti && hiddenMulti[0]) constructHidden(count);
}

void TdataBlockRendering::constructHidden(unsigned count) {
    for (unsigned h = 0; h < fHiddenMulti[0]; ++h) {
        const Tattribute* a = fNode->attribute(fHiddenMulti[1 + h]);
        AttrInfo& e = fOffsets[a->index()];
        if (!(e.kind & kVariableBit)) continue;
        for (unsigned i = 0; i < count; ++i) {
            unsigned char* element = fFirst + size_t(fStride) * i + e.offset;
            if (e.kind & kOtherBlockBit) {
                if (i == 0) std::memset(element, 0, sizeof(OtherBlockRef));
            } else if (a->isArray() && fMulti && e.parentOrSegment >= 0) {
                const MultiInfo& m = fMulti[e.parentOrSegment];
                auto* header = reinterpret_cast<TmultiHeader*>(element);
                header->count = m.numKids;
                header->elementSize = a->size();
                header->bits[0] = header->bits[1] = 0;
                for (unsigned k = 0; k < m.numKids && k < kMaxMultiElements; ++k) {
                    unsigned char* slot = element + m.dOff + size_t(k) * a->size();
                    a->constructValue(slot);
                    a->copyDefaultValue(slot);
                }
            } else {
                a->constructValue(element);
            }
        }
    }
}

bool TdataBlockRendering::isClean(const Tattribute& a) const {
    const uint16_t index = rootIndex(a);
    for (unsigned k = 0; k < fCleanCount; ++k)
        if (fClean[k] == index) return true;
    return false;
}

void TdataBlockRendering::markClean(const Tattribute& a) {
    const uint16_t index = rootIndex(a);
    for (unsigned k = 0; k < fCleanCount; ++k)
        if (fClean[k] == index) return;
    if (fCleanCount < kMaxCleanMarks) fClean[fCleanCount++] = index;
}

void TdataBlockRendering::tearDown() {
    destroyHidden();
    fHiddenMulti = nullptr;
}

void TdataBlockRendering::destroyHidden() {
    if (!fHiddenMulti || !fNode) return;
    unsigned count = elementCount();
    for (unsigned h = 0; h < fHiddenMulti[0]; ++h) {
        const Tattribute* a = fNode->attribute(fHiddenMulti[1 + h]);
        const AttrInfo& e = fOffsets[a->index()];
        if (!(e.kind & kVariableBit) || (e.kind & kOtherBlockBit) || !(a->flags() & kAttrNeedsConstruction)) continue;
        for (unsigned i = 0; i < count; ++i) {
            unsigned char* element = fFirst + size_t(fStride) * i + e.offset;
            if (a->isArray() && fMulti && e.parentOrSegment >= 0) {
                const MultiInfo& m = fMulti[e.parentOrSegment];
                for (unsigned k = 0; k < m.numKids && k < kMaxMultiElements; ++k) a->destructValue(element + m.dOff + size_t(k) * a->size());
            } else {
                a->destructValue(element);
            }
        }
    }
}

// Inline: private, and called by every handle operation of this file.
inline TdataHandle TdataBlockRendering::locate(const Tattribute& a) {
    const AttrInfo& e = fOffsets[a.index()];
    TdataHandle h;
    h.block = this;
    h.attribute = &a;
    if (e.kind & kOtherBlockBit) {
        // A child's entry holds its offset within the value its top parent refers to.
        const bool child = e.kind == kVarUseParentOtherDB;
        const unsigned top = child ? topParent(&a)->index() : a.index();
        const AttrInfo& entry = fOffsets[top];
        // A value in the sample records: its reference is not made when they
        // lie evenly spaced.
        if (fDirect && (fDirect[top] & kDirectRecord) && recordValue(fDirect[top], child ? e.offset : 0, h)) {
            h.attribute = &a;
            return h;
        }
        auto* ref = reinterpret_cast<OtherBlockRef*>(fFirst + entry.offset);
        if (ref->block && ref->value) {
            h.block = ref->block;
            h.value = static_cast<unsigned char*>(ref->value) + (child ? e.offset : 0);
            h.stride = ref->block->directStride();
            h.flags = TdataHandle::kIsVariable;
        }
        return h;
    }
    if (e.kind & kVariableBit) {
        h.value = fFirst + e.offset;
        h.stride = fStride;
        h.flags = TdataHandle::kIsVariable;
    } else {
        h.value = constants() + e.offset;
        h.stride = 0;
    }
    if (a.isArray()) h.flags |= TdataHandle::kIsArray;
    return h;
}

TdataHandle TdataBlockRendering::outputValue(const Tattribute& a) {
    TdataHandle h = locate(a);
    // The current element only: a scalar view for computePlug.
    if (h.isVariable()) h.value = static_cast<char*>(h.value) + size_t(h.stride) * currentIndex();
    h.stride = 0;
    return h;
}
TdataHandle TdataBlockRendering::outputValue(const Tplug& p) { return outputValue(*p.attribute()); }
TdataHandle TdataBlockRendering::inputValue(const Tattribute& a) {
    unsigned index = currentIndex();
    TdataHandle h = inputValue(a, index, 1);
    if (h.isVariable()) h.value = static_cast<char*>(h.value) + size_t(h.stride) * index;
    h.stride = 0;
    return h;
}
TdataHandle TdataBlockRendering::inputValue(const Tplug& p) { return inputValue(*p.attribute()); }
TdataHandle TdataBlockRendering::outputRun(const Tattribute& a, unsigned, unsigned) { return locate(a); }

void TdataBlockRendering::fillFromDefault(const Tattribute& a, AttrInfo& e, unsigned first, unsigned count) {
    if (e.kind & kVariableBit) {
        for (unsigned i = first; i < first + count; ++i) {
            unsigned char* element = fFirst + size_t(fStride) * i + e.offset;
            a.copyDefaultValue(element);
        }
        return;
    }
    unsigned char* value = constants() + e.offset;
    a.constructValue(value);
    a.copyDefaultValue(value);
    e.kind = kConstPresent;
}

void TdataBlockRendering::fillFromChildren(const Tattribute& a, unsigned first, unsigned count) {
    TdataHandle whole = locate(a);
    for (unsigned c = 0; c < a.childCount(); ++c) {
        const Tattribute& child = *a.child(c);
        TdataHandle part = inputValue(child, first, count);
        if (part.isNull()) continue;
        if (!whole.isVariable()) {
            child.copyValue(static_cast<char*>(whole.value) + child.offsetInParent(), part.element(0));
            continue;
        }
        for (unsigned i = first; i < first + count; ++i)
            child.copyValue(static_cast<char*>(whole.element(i)) + child.offsetInParent(), part.element(part.isVariable() ? i : 0));
    }
}

void TdataBlockRendering::computeSegment(int segment, const Tattribute& a, unsigned first, unsigned count, void* context) {
    ComputeValue hook = gComputeValue.load();
    if (segment < 0 || !hook) return;
    unsigned char* saved = fCurrent;
    hook(context, segment, &a, first, count);
    // The segment may have moved the current element; put it back when it
    // still lies in the block.
    if (saved >= fFirst && saved <= fFirst + size_t(fStride) * fLastIndex) fCurrent = saved;
}

namespace {
// Present values, and values linked from another block that no cut segment
// computes, are handed out as they stand.
inline bool standsAsIs(const TdataBlockRendering::AttrInfo& e) {
    using B = TdataBlockRendering;
    return e.kind == B::kConstPresent || e.kind == B::kVarPresentNoProp ||
           ((e.kind == B::kVarPresent || e.kind == B::kVarPresentOtherDB) && e.parentOrSegment < 0);
}
}  // namespace

TdataHandle TdataBlockRendering::inputRun(const Tattribute& a, unsigned first, unsigned count) {
    AttrInfo& e = fOffsets[a.index()];
    if (standsAsIs(e)) return locate(a);
    return fillAndLocate(a, e, first, count);
}

uint32_t TdataBlockRendering::directEntry(const AttrInfo& e, const Tattribute& a) {
    // Arrays carry a flag and parents of other-block children look up their
    // top parent: both stay on the virtual road. The variable and other-block
    // bits of a kind never change while a program runs, so a write can
    // always be direct; a read only while the kind stands as it is.
    // A value a cut segment computes is read after the block's hook has run
    // the segment, as the virtual road would.
    if (a.isArray()) return 0;
    const uint32_t at = uint32_t(e.offset) << kDirectShift;
    if (e.kind & kOtherBlockBit) {
        if (e.kind != kVarPresentOtherDB) return 0;
        return e.parentOrSegment < 0 ? at | kDirectInput | kDirectOutput | kDirectVariable | kDirectOther
                                     : at | kDirectComputed | kDirectVariable | kDirectOther;
    }
    const uint32_t computed = e.kind == kVarPresent && e.parentOrSegment >= 0 ? kDirectComputed : 0;
    return at | kDirectOutput | computed | (standsAsIs(e) ? kDirectInput : 0) | ((e.kind & kVariableBit) ? kDirectVariable : 0);
}

void TdataBlockRendering::computeForDirect(TdataBlock& block, const Tattribute& a, unsigned first, unsigned count, uint64_t selected) {
    auto& self = static_cast<TdataBlockRendering&>(block);
    const AttrInfo& e = self.fOffsets[a.index()];
    TdataBlockRendering* owner = &self;
    if (e.kind & kOtherBlockBit) {
        // The entry names the segment that computes the value in the block
        // the reference names: another, or this one where a source writes
        // into this node's output.
        owner = static_cast<TdataBlockRendering*>(reinterpret_cast<const OtherBlockRef*>(self.fFirst + e.offset)->block);
        if (!owner) return;
    }
    if (selected == runBits(count)) {
        owner->computeSegment(e.parentOrSegment, a, first, count, owner->fContext);
        return;
    }
    forEachBitRun(selected, [&](unsigned start, unsigned length) {
        owner->computeSegment(e.parentOrSegment, a, first + start, length, owner->fContext);
    });
}

TdataHandle TdataBlockRendering::fillAndLocate(const Tattribute& a, AttrInfo& e, unsigned first, unsigned count) {
    switch (e.kind) {
        case kConstDefaultValue:
        case kVarDefaultValue:
            fillFromDefault(a, e, first, count);
            break;
        case kVarPresent:
            computeSegment(e.parentOrSegment, a, first, count, fContext);
            break;
        case kVarUseParent:
            if (a.parent()) computeSegment(fOffsets[a.parent()->index()].parentOrSegment, *a.parent(), first, count, fContext);
            break;
        case kVarUseParentAndChild:
            if (a.parent()) computeSegment(fOffsets[a.parent()->index()].parentOrSegment, *a.parent(), first, count, fContext);
            fillFromChildren(a, first, count);
            break;
        case kConstUseChild:
            fillFromChildren(a, first, count);
            e.kind = kConstPresent;
            break;
        case kVarUseChild:
        case kConstPreferChild:
            fillFromChildren(a, first, count);
            break;
        case kVarPreferChild:
            computeSegment(e.parentOrSegment, a, first, count, fContext);
            fillFromChildren(a, first, count);
            break;
        case kVarPresentOtherDB:
        case kVarUseParentOtherDB: {
            TdataHandle h = locate(a);
            if (h.value) {
                // The entry names the segment that computes the value in the
                // block the reference names; this node's attribute indices
                // mean nothing there.
                auto* other = static_cast<TdataBlockRendering*>(h.block);
                const AttrInfo& entry = e.kind == kVarUseParentOtherDB ? fOffsets[topParent(&a)->index()] : e;
                if (entry.parentOrSegment >= 0) other->computeSegment(entry.parentOrSegment, a, first, count, other->fContext);
            }
            return h;
        }
        default:
            break;
    }
    return locate(a);
}

unsigned TdataBlockRendering::multiIndices(const Tattribute& a, unsigned* indices, unsigned capacity) const {
    const AttrInfo& e = fOffsets[a.index()];
    if (!a.isArray() || !fMulti || e.parentOrSegment < 0) return 0;
    const unsigned char* base = (e.kind & kVariableBit) ? fCurrent + e.offset : constants() + e.offset;
    auto* header = reinterpret_cast<const TmultiHeader*>(base);
    unsigned n = 0;
    for (unsigned k = 0; k < header->count && k < kMaxMultiElements; ++k)
        if ((header->bits[k >> 5] >> (k & 31)) & 1u) {
            if (n < capacity) indices[n] = k;
            ++n;
        }
    return n;
}

TdataHandle TdataBlockRendering::elementValue(const Tattribute& a, unsigned logicalIndex) {
    TdataHandle h = locate(a);
    const AttrInfo& e = fOffsets[a.index()];
    if (!a.isArray() || !fMulti || e.parentOrSegment < 0 || h.isNull()) return {};
    const MultiInfo& m = fMulti[e.parentOrSegment];
    if (logicalIndex >= m.numKids) return {};
    h.value = static_cast<char*>(h.value) + m.dOff + size_t(logicalIndex) * a.size();
    h.flags &= ~TdataHandle::kIsArray;
    return h;
}

unsigned TdataBlockRendering::existingElements(const Tattribute& a, TdataHandle* out, unsigned capacity) {
    const void* values[kMaxMultiElements];
    unsigned stride = 0;
    const unsigned n = existingElementValues(a, values, stride, std::min(capacity, kMaxMultiElements));
    if (n == 0) return 0;
    TdataHandle element = locate(a);
    element.flags &= ~TdataHandle::kIsArray;
    for (unsigned k = 0; k < n; ++k) {
        out[k] = element;
        out[k].value = const_cast<void*>(values[k]);
    }
    return n;
}

unsigned TdataBlockRendering::existingElementValues(const Tattribute& a, const void** values, unsigned& stride,
                                                    unsigned capacity) {
    stride = 0;
    const AttrInfo& e = fOffsets[a.index()];
    if (!a.isArray() || !fMulti || e.parentOrSegment < 0) return 0;
    const TdataHandle whole = locate(a);
    if (whole.isNull()) return 0;
    stride = whole.stride;
    const MultiInfo& m = fMulti[e.parentOrSegment];
    const unsigned char* base = (e.kind & kVariableBit) ? fCurrent + e.offset : constants() + e.offset;
    auto* header = reinterpret_cast<const TmultiHeader*>(base);
    const unsigned limit = std::min({header->count, kMaxMultiElements, unsigned(m.numKids)});
    const char* first = static_cast<const char*>(whole.value) + m.dOff;
    const size_t size = a.size();
    uint64_t bits = header->bits[0] | uint64_t(header->bits[1]) << 32;
    if (limit < 64) bits &= (uint64_t(1) << limit) - 1;
    unsigned found = 0;
    for (; bits && found < capacity; bits &= bits - 1) values[found++] = first + size * unsigned(__builtin_ctzll(bits));
    return found;
}

void TdataBlockRendering::debug(TdebugOutput& out, unsigned level) const {
    out.print("DataBlockRendering for Node:%s", fNode ? fNode->name().asC() : "NULL");
    TdataBlock::debug(out, level);
    if (level == 0 || !fNode) return;
    auto dumpValue = [&](const Tattribute& a, const unsigned char* value) {
        if (isNumericType(a.valueType())) {
            out.print(" : %g\n", a.numericValue(value));
        } else if (a.valueType() == TvalueType::k3Float || a.valueType() == TvalueType::k2Float) {
            const float* f = reinterpret_cast<const float*>(value);
            if (a.valueType() == TvalueType::k3Float)
                out.print(" : %g %g %g\n", f[0], f[1], f[2]);
            else
                out.print(" : %g %g\n", f[0], f[1]);
        } else {
            out.print("\n");
        }
    };
    auto header = [&](const char* title, const char* rule) {
        out.print("%s", title);
        out.print("%s", rule);
        out.print("Index : AttrName : Offset : Type [: Value]\n");
    };
    unsigned n = fNode->attributeCount();
    header("Constant Block\n", "--------------\n");
    for (unsigned i = 0; i < n; ++i) {
        const Tattribute& a = *fNode->attribute(i);
        const AttrInfo& e = fOffsets[i];
        if (e.kind & kVariableBit) continue;
        if (a.isArray()) {
            out.print("%d : %s : %d\n", int(i), a.longName().asC(), int(e.offset));
            continue;
        }
        out.print("%d : %s : %d : %s", int(i), a.longName().asC(), int(e.offset), valueTypeName(a.valueType()));
        dumpValue(a, constants() + e.offset);
    }
    header("\nVariable Block\n", "--------------\n");
    for (unsigned k = 0; k < elementCount(); ++k) {
        out.print("Vector Element %d\n", int(k));
        for (unsigned i = 0; i < n; ++i) {
            const Tattribute& a = *fNode->attribute(i);
            const AttrInfo& e = fOffsets[i];
            if (!(e.kind & kVariableBit) || (e.kind & kOtherBlockBit)) continue;
            out.print("%d : %s : %d : %s", int(i), a.longName().asC(), int(e.offset), valueTypeName(a.valueType()));
            dumpValue(a, fFirst + size_t(fStride) * k + e.offset);
        }
    }
    out.print("AttrInfo structure for Node: %s\n", fNode->name().asC());
    out.print("----------------------------\n");
    for (unsigned i = 0; i < n; ++i) {
        const Tattribute& a = *fNode->attribute(i);
        const AttrInfo& e = fOffsets[i];
        out.print("%s %s offset: %d Parent_Array_Index: %d", a.longName().asC(), kindName(e.kind), int(e.offset),
                  int(e.parentOrSegment));
        if (a.isArray()) out.print(" multiInfo[%d]", int(e.parentOrSegment));
        out.print("\n");
    }
    if (!fMulti) return;
    out.print("MultiInfo structure for Node: %s\n", fNode->name().asC());
    for (unsigned i = 0; i < n; ++i) {
        const Tattribute& a = *fNode->attribute(i);
        const AttrInfo& e = fOffsets[i];
        if (!a.isArray() || e.parentOrSegment < 0) continue;
        const MultiInfo& m = fMulti[e.parentOrSegment];
        out.print("thread: %u numKids: %u pOff: %u cOff: %u dOff: %u bOff: %u\n", m.threadCount, m.numKids, m.pOff, m.cOff,
                  m.dOff, m.bOff);
    }
}
