#include "framework/host/depend_node.h"

#include <algorithm>
#include <cstdio>

#include "framework/host/depend_graph.h"

namespace {
thread_local TdependNodeVS* tDescriptionUnderConstruction = nullptr;

// Byte offset of `a` inside its root attribute's value.
unsigned offsetInRoot(const Tattribute* a) {
    unsigned offset = 0;
    for (; a->parent(); a = a->parent()) offset += a->offsetInParent();
    return offset;
}

void collectDescendants(const Tattribute* a, std::vector<const Tattribute*>& out) {
    for (unsigned i = 0; i < a->childCount(); ++i) {
        out.push_back(a->child(i));
        collectDescendants(a->child(i), out);
    }
}

// The attribute, its ancestors and descendants: the attributes whose stored
// bytes overlap it.
std::vector<const Tattribute*> overlapping(const Tattribute* a) {
    std::vector<const Tattribute*> set{a};
    for (const Tattribute* p = a->parent(); p; p = p->parent()) set.push_back(p);
    collectDescendants(a, set);
    return set;
}

bool inArray(const Tattribute* a) { return a->rootParent()->isArray(); }
}  // namespace

const TdgContext& TdgContext::normal() {
    static TdgContext context;
    return context;
}

void TdebugOutput::print(const char* format, ...) {
    char buffer[1024];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    if (n > 0) fText.append(buffer, std::min<size_t>(size_t(n), sizeof buffer - 1));
}

TdataBlock::~TdataBlock() = default;
void TdataBlock::debug(TdebugOutput&, unsigned) const {}

unsigned TdataBlock::existingElements(const Tattribute& a, TdataHandle* out, unsigned capacity) {
    unsigned indices[64];
    unsigned n = std::min({multiIndices(a, indices, 64), capacity, 64u}), found = 0;
    for (unsigned k = 0; k < n; ++k) {
        TdataHandle h = elementValue(a, indices[k]);
        if (!h.isNull()) out[found++] = h;
    }
    return found;
}

unsigned TdataBlock::existingElementValues(const Tattribute& a, const void** values, unsigned& stride, unsigned capacity) {
    TdataHandle found[64];
    const unsigned n = existingElements(a, found, std::min(capacity, 64u));
    stride = n ? found[0].stride : 0;
    for (unsigned k = 0; k < n; ++k) values[k] = found[k].value;
    return n;
}

TdataHandle TdataBlock::inputNotDirect(const Tattribute& a, unsigned first, unsigned count, uint64_t selected) {
    if (fDirect && fComputeHook && (fDirect[a.index()] & kDirectComputed)) {
        fComputeHook(*this, a, first, count, selected);
        TdataHandle h;
        if (fResolved && resolved(a, kDirectComputed, h)) return h;
        if (direct(a, fDirect[a.index()], h)) return h;
    }
    return inputRuns(a, first, count, selected);
}

TdataHandle TdataBlock::inputRuns(const Tattribute& a, unsigned first, unsigned count, uint64_t selected) {
    if (!selected || selected == runBits(count)) return inputRun(a, first, selected ? count : 0);
    // The virtual road computes whole runs: one for each run of selected samples.
    TdataHandle h;
    forEachBitRun(selected, [&](unsigned start, unsigned length) { h = inputRun(a, first + start, length); });
    return h;
}

void TdataBlock::resolveDirect(Resolved* table, unsigned words) {
    for (unsigned i = 0; i < words; ++i) {
        const uint32_t word = fDirect ? fDirect[i] : 0;
        Resolved& r = table[i];
        r = {};
        TdataHandle h;
        if (!word || (word & kDirectRecord) || !decode(word, h)) continue;
        r = {h.value, h.block, h.stride, h.flags, uint8_t(word & (kDirectInput | kDirectOutput | kDirectComputed))};
    }
    fResolved = table;
}

// ---------------------------------------------------------------- descriptions

TdependNodeVS::TdependNodeVS() { tDescriptionUnderConstruction = this; }
TdependNodeVS::~TdependNodeVS() = default;

void TdependNodeVS::noteConstructedAttribute(Tattribute* a) {
    if (tDescriptionUnderConstruction) tDescriptionUnderConstruction->fOwn.push_back(a);
}

void TdependNodeVS::endConstruction() { tDescriptionUnderConstruction = nullptr; }

bool TdependNodeVS::appendAttributes(TattributeList& list) {
    if (fBaseDescription) {
        TdependNodeVS& base = *fBaseDescription();
        if (!base.appendAttributes(list)) return false;
    }
    list.setInheritedCount(list.length());
    bool complete = true;
    for (Tattribute* a : fOwn)
        if (!list.addAttribute(a)) {
            fClashes.push_back(a);
            complete = false;
        }
    return complete;
}

bool TdependNodeVS::setupDependencies(TdependencyMatrix& matrix) {
    if (fBaseDescription) return fBaseDescription()->setupDependencies(matrix);
    return true;
}

bool TdependNodeVS::initializeClass(TdependNodeVS& vs) {
    if (vs.fInitialized) return vs.fComplete;
    vs.fList.clear();
    vs.fMatrix.clear();
    vs.fClashes.clear();
    bool ok = vs.appendAttributes(vs.fList);
    ok = vs.setupDependencies(vs.fMatrix) && ok;
    vs.fInitialized = true;
    vs.fComplete = ok;
    return ok;
}

bool TdependNodeVS::cleanupClass(TdependNodeVS& vs) {
    vs.fList.clear();
    vs.fMatrix.clear();
    vs.fInitialized = false;
    return true;
}

void TdependNodeVS::affects(TdependencyMatrix& m, std::initializer_list<const Tattribute*> inputs,
                            std::initializer_list<const Tattribute*> outputs) {
    for (const Tattribute* in : inputs) {
        std::vector<const Tattribute*> ins{in};
        collectDescendants(in, ins);
        for (const Tattribute* out : outputs) {
            std::vector<const Tattribute*> outs{out};
            collectDescendants(out, outs);
            for (const Tattribute* i : ins)
                for (const Tattribute* o : outs) m.attributeAffects(*i, *o);
            const_cast<Tattribute*>(out)->setComputeModifies(true);
            for (const Tattribute* o : outs) const_cast<Tattribute*>(o)->setComputeModifies(true);
        }
    }
}

// ---------------------------------------------------------------- nodes

namespace {
// Every node has a message attribute: a connection end that carries no value.
struct RootDescription final : TdependNodeVS {
    TattributeMessage message{"message", "msg", TiffTag("MESG")};
    RootDescription() {
        message.setFlag(kAttrStorable, false);
        message.setFlag(kAttrHidden, true);
    }
};
}  // namespace

const Tattribute& TdependNode::saMessage() { return static_cast<RootDescription&>(sVsData()).message; }

Tmetaclass* TdependNode::sMetaclass() {
    static Tmetaclass* slot = nullptr;
    static Tmetaclass meta(&slot, "dependNode", sizeof(TdependNode), nullptr, 0, true, nullptr, nullptr);
    return &meta;
}

TdependNodeVS& TdependNode::sVsData() {
    static RootDescription* vs = [] {
        auto* d = new RootDescription;
        TdependNodeVS::endConstruction();
        TdependNodeVS::initializeClass(*d);
        return d;
    }();
    return *vs;
}

TdependNode::TdependNode() = default;

TdependNode::~TdependNode() { destroyValues(); }

void* TdependNode::cast(Tmetaclass* meta) { return meta == sMetaclass() ? this : nullptr; }
TdependNodeVS& TdependNode::vsData() const { return sVsData(); }
const Tstring& TdependNode::typeName() const {
    static const Tstring name("dependNode");
    return name;
}
const TiffTag& TdependNode::iffTag() const {
    static const TiffTag tag("DPND");
    return tag;
}

bool TdependNode::computePlug(const Tplug&, TdataBlock&) { return false; }
bool TdependNode::vectorComputePlug(const Tplug&, TdataBlock&, unsigned, unsigned) { return false; }

bool TdependNode::setDependentsDirty(TmsgDirty&) { return true; }

bool TdependNode::legalConnection(const Tplug&, const Tplug&, bool, bool&) const { return false; }
bool TdependNode::legalDisconnection(const Tplug&, const Tplug&, bool, bool&) const { return false; }
void TdependNode::connectionMade(const Tplug&, const Tplug&, bool) {}
void TdependNode::connectionBroken(const Tplug&, const Tplug&, bool) {}
int TdependNode::merge(TDGcommand&, TdependNode*, TDNarray&, TDNarray&) { return -1; }

unsigned TdependNode::staticAttributeCount() const { return vsData().attributes().length(); }
unsigned TdependNode::attributeCount() const { return staticAttributeCount() + unsigned(fDynamic.size()); }

const Tattribute* TdependNode::attribute(unsigned index) const {
    unsigned n = staticAttributeCount();
    if (index < n) return vsData().attributes()[index];
    index -= n;
    return index < fDynamic.size() ? fDynamic[index].get() : nullptr;
}

const Tattribute* TdependNode::attribute(const Tstring& name) const {
    if (const Tattribute* a = vsData().attributes().find(name)) return a;
    for (auto& d : fDynamic)
        if (d->longName() == name || d->shortName() == name) return d.get();
    return nullptr;
}

bool TdependNode::addDynamicAttribute(std::unique_ptr<Tattribute> a) {
    if (!a || a->parent() || attribute(a->longName()) || attribute(a->shortName())) return false;
    std::vector<const Tattribute*> tree{a.get()};
    collectDescendants(a.get(), tree);
    for (const Tattribute* t : tree)
        if (attribute(t->longName())) return false;
    // Children take the indices right after their parent; the node owns the
    // whole tree through the parent and the children it was given.
    unsigned base = attributeCount();
    for (unsigned i = 0; i < tree.size(); ++i) const_cast<Tattribute*>(tree[i])->setIndex(uint16_t(base + i));
    fDynamic.push_back(std::move(a));
    for (unsigned i = 1; i < tree.size(); ++i) fDynamic.emplace_back(const_cast<Tattribute*>(tree[i]));
    fSlots.resize(attributeCount());
    ensureDirtyBits();
    return true;
}

TdependNode::Slot& TdependNode::slotFor(const Tattribute* root) {
    if (fSlots.size() < attributeCount()) fSlots.resize(attributeCount());
    return fSlots[root->index()];
}

unsigned char* TdependNode::rootStorage(const Tattribute* root, int index, bool create) {
    Slot& slot = slotFor(root);
    slot.attribute = root;
    std::vector<unsigned char>* bytes = nullptr;
    if (root->isArray()) {
        if (index < 0) return nullptr;
        auto it = slot.elements.find(unsigned(index));
        if (it == slot.elements.end()) {
            if (!create) return nullptr;
            it = slot.elements.emplace(unsigned(index), std::vector<unsigned char>(std::max(root->size(), 1u))).first;
            root->constructValue(it->second.data());
            root->copyDefaultValue(it->second.data());
        }
        bytes = &it->second;
    } else {
        if (!slot.constructed) {
            slot.single.assign(std::max(root->size(), 1u), 0);
            root->constructValue(slot.single.data());
            root->copyDefaultValue(slot.single.data());
            slot.constructed = true;
        }
        bytes = &slot.single;
    }
    return bytes->data();
}

void TdependNode::destroyValues() {
    for (Slot& slot : fSlots) {
        const Tattribute* a = slot.attribute;
        if (!a || !(a->flags() & kAttrNeedsConstruction)) continue;
        if (slot.constructed) a->destructValue(slot.single.data());
        for (auto& [index, bytes] : slot.elements) a->destructValue(bytes.data());
    }
    fSlots.clear();
}

void* TdependNode::storage(const Tattribute* a, unsigned index) {
    const Tattribute* root = a->rootParent();
    unsigned char* base = rootStorage(root, root->isArray() ? int(index) : Tplug::kNoIndex, true);
    return base ? base + offsetInRoot(a) : nullptr;
}

bool TdependNode::hasMultiElement(const Tattribute* a, unsigned index) const {
    const Tattribute* root = a->rootParent();
    if (!root->isArray() || root->index() >= fSlots.size()) return false;
    return fSlots[root->index()].elements.count(index) != 0;
}

void TdependNode::removeMultiElement(const Tattribute* a, unsigned index) {
    const Tattribute* root = a->rootParent();
    if (!root->isArray() || root->index() >= fSlots.size()) return;
    auto& elements = fSlots[root->index()].elements;
    auto it = elements.find(index);
    if (it == elements.end()) return;
    root->destructValue(it->second.data());
    elements.erase(it);
}

unsigned TdependNode::getExistingMultiAttributeIndices(const Tplug& plug, TuInt32Array& indices) const {
    indices.clear();
    const Tattribute* root = plug.attribute() ? plug.attribute()->rootParent() : nullptr;
    if (!root || !root->isArray()) return 0;
    std::vector<unsigned> found;
    if (root->index() < fSlots.size())
        for (auto& [index, bytes] : fSlots[root->index()].elements) found.push_back(index);
    // Elements that exist only as connection ends count as well.
    for (auto& [key, source] : fIncoming)
        if (attribute(key.first)->rootParent() == root && key.second >= 0) found.push_back(unsigned(key.second));
    for (auto& [key, dest] : fOutgoing)
        if (attribute(key.first)->rootParent() == root && key.second >= 0) found.push_back(unsigned(key.second));
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    for (unsigned i : found) indices.append(i);
    return indices.length();
}

void TdependNode::ensureDirtyBits() {
    unsigned n = attributeCount();
    if (fDirty.size() >= n) return;
    unsigned old = unsigned(fDirty.size());
    fDirty.resize(n, 0);
    // Computed outputs start out of date.
    for (unsigned i = old; i < n; ++i)
        if (attribute(i)->isComputed()) fDirty[i] = 1;
}

bool TdependNode::isDirty(const Tattribute* a) const { return a->index() < fDirty.size() && fDirty[a->index()]; }

void TdependNode::markClean(const Tattribute* a) {
    std::vector<const Tattribute*> tree{a};
    collectDescendants(a, tree);
    for (const Tattribute* t : tree)
        if (t->index() < fDirty.size()) fDirty[t->index()] = 0;
}

void TdependNode::markDirty(const Tattribute* a) {
    ensureDirtyBits();
    fDirty[a->index()] = 0;  // force: the origin always propagates
    propagateDirty(a);
}

void TdependNode::propagateDirty(const Tattribute* a) {
    ensureDirtyBits();
    if (fDirty[a->index()]) return;
    std::vector<const Tattribute*> set = overlapping(a);
    for (const Tattribute* s : set) fDirty[s->index()] = 1;

    TmsgDirty msg(Tplug(this, a));
    msg.affected() = TbitFieldFixedN(attributeCount());
    for (const Tattribute* s : set) dependencies().allAffectees(s->index(), msg.affected());
    setDependentsDirty(msg);
    for (unsigned o = 0; o < msg.affected().length(); ++o)
        if (msg.affected().test(o)) propagateDirty(attribute(o));

    std::vector<Tplug> downstream;
    for (auto& [key, dest] : fOutgoing)
        for (const Tattribute* s : set)
            if (s->index() == key.first) downstream.push_back(dest);
    for (const Tplug& d : downstream) d.node()->propagateDirty(d.attribute());
}

const Tplug* TdependNode::sourceOf(const Tplug& destination) const {
    auto it = fIncoming.find(keyOf(destination));
    return it == fIncoming.end() ? nullptr : &it->second;
}

void TdependNode::destinationsOf(const Tplug& source, std::vector<Tplug>& out) const {
    auto range = fOutgoing.equal_range(keyOf(source));
    for (auto it = range.first; it != range.second; ++it) out.push_back(it->second);
}

bool TdependNode::hasConnections(const Tattribute* a) const {
    for (auto& [key, s] : fIncoming)
        if (key.first == a->index()) return true;
    for (auto& [key, d] : fOutgoing)
        if (key.first == a->index()) return true;
    return false;
}

void TdependNode::allIncoming(std::vector<std::pair<Tplug, Tplug>>& out) const {
    for (auto& [key, source] : fIncoming)
        out.emplace_back(source, Tplug(const_cast<TdependNode*>(this), attribute(key.first), key.second));
}

void TdependNode::refresh(const Tattribute* a, int index) {
    bool arrayValue = inArray(a);
    if (!arrayValue && !isDirty(a)) return;
    if (fEvaluating > 32) return;  // a cycle: keep the stored value
    ++fEvaluating;
    int rootIndex = a->rootParent()->isArray() ? index : Tplug::kNoIndex;

    // Connected values first, outermost first so that child connections win.
    std::vector<const Tattribute*> set = overlapping(a);
    std::sort(set.begin(), set.end(), [](const Tattribute* x, const Tattribute* y) {
        unsigned dx = 0, dy = 0;
        for (auto* p = x->parent(); p; p = p->parent()) ++dx;
        for (auto* p = y->parent(); p; p = p->parent()) ++dy;
        return dx < dy;
    });
    bool connected = false;
    for (const Tattribute* s : set) {
        auto it = fIncoming.find({s->index(), rootIndex});
        if (it == fIncoming.end()) continue;
        connected = true;
        const Tplug& src = it->second;
        const void* value = src.node()->valuePointer(src.attribute(), src.index() < 0 ? 0u : unsigned(src.index()));
        if (value) convertValue(*src.attribute(), value, *s, storage(s, unsigned(std::max(index, 0))));
    }
    if (!connected) {
        const Tattribute* computed = nullptr;
        for (const Tattribute* s : set)
            if (s->isComputed() && isDirty(s)) {
                computed = s;
                break;
            }
        if (computed) {
            TdgDataBlock block(*this, rootIndex);
            computePlug(Tplug(this, a, rootIndex), block);
        }
    }
    markClean(a);
    --fEvaluating;
}

const void* TdependNode::valuePointer(const Tattribute* a, unsigned index) {
    ensureDirtyBits();
    refresh(a, a->rootParent()->isArray() ? int(index) : Tplug::kNoIndex);
    return storage(a, index);
}

bool TdependNode::getAttributeValue(const Tattribute* a, void* value, unsigned index) {
    const void* p = valuePointer(a, index);
    if (!p) return false;
    a->copyValue(value, p);
    return true;
}

bool TdependNode::setAttributeValue(const Tattribute* a, const void* value, unsigned index) {
    int rootIndex = a->rootParent()->isArray() ? int(index) : Tplug::kNoIndex;
    for (const Tattribute* p = a; p; p = p->parent())
        if (fIncoming.count({p->index(), rootIndex})) return false;  // driven by a connection
    void* dest = storage(a, index);
    if (!dest) return false;
    a->copyValue(dest, value);
    markDirty(a);
    markClean(a);
    return true;
}

// ---------------------------------------------------------------- scalar block

TdataHandle TdgDataBlock::handleOn(const Tattribute& a, void* value) {
    TdataHandle h;
    h.block = this;
    h.attribute = &a;
    h.value = value;
    h.flags = a.isArray() ? TdataHandle::kIsArray : 0;
    return h;
}

TdataHandle TdgDataBlock::outputValue(const Tattribute& a) {
    return handleOn(a, fNode.storage(&a, unsigned(std::max(fIndex, 0))));
}
TdataHandle TdgDataBlock::outputValue(const Tplug& p) {
    return handleOn(*p.attribute(), fNode.storage(p.attribute(), unsigned(std::max(p.index(), 0))));
}
TdataHandle TdgDataBlock::inputValue(const Tattribute& a) {
    unsigned index = unsigned(std::max(fIndex, 0));
    return handleOn(a, const_cast<void*>(fNode.valuePointer(&a, index)));
}
TdataHandle TdgDataBlock::inputValue(const Tplug& p) {
    return handleOn(*p.attribute(), const_cast<void*>(fNode.valuePointer(p.attribute(), unsigned(std::max(p.index(), 0)))));
}
unsigned TdgDataBlock::multiIndices(const Tattribute& a, unsigned* indices, unsigned capacity) const {
    TuInt32Array found;
    fNode.getExistingMultiAttributeIndices(Tplug(&fNode, &a, true), found);
    unsigned n = std::min(capacity, found.length());
    for (unsigned i = 0; i < n; ++i) indices[i] = found[i];
    return found.length();
}
TdataHandle TdgDataBlock::elementValue(const Tattribute& a, unsigned logicalIndex) {
    return handleOn(a, const_cast<void*>(fNode.valuePointer(&a, logicalIndex)));
}

TmsgPlugValue::TmsgPlugValue(const Tplug& plug, TdataHandle& handle, const TdgContext&) : fPlug(plug), fHandle(handle) {}

bool TmsgPlugValue::send() {
    if (fPlug.isNull() || !fHandle.value) return false;
    const void* v = fPlug.node()->valuePointer(fPlug.attribute(), unsigned(std::max(fPlug.index(), 0)));
    if (!v) return false;
    if (fHandle.attribute && fHandle.attribute != fPlug.attribute())
        convertValue(*fPlug.attribute(), v, *fHandle.attribute, fHandle.value);
    else
        fPlug.attribute()->copyValue(fHandle.value, v);
    return true;
}

bool TmsgSetPlugValue::send() {
    if (fPlug.isNull()) return false;
    return fPlug.node()->setAttributeValue(fPlug.attribute(), fValue, unsigned(std::max(fPlug.index(), 0)));
}
