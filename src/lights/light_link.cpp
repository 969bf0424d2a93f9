#include "lights/light_link.h"

#include <algorithm>

#include "shading/shading_engine.h"

SN_REGISTER_NODE_CLASS(TdnLightLink)

namespace {
TiffTag tagOf(const char* t) { return node_class_detail::tagFromText(t); }

// Every graph that asks for default nodes gets the set of lights that
// illuminate by default and one link node to hold the links.
void createLightNodes(TdependGraph& graph) {
    if (!graph.findNode(TDNshadingEngine::kDefaultLightSet)) graph.createNode("objectSet", TDNshadingEngine::kDefaultLightSet);
    bool hasLinker = false;
    for (TdependNode* n : graph.nodes()) hasLinker = hasLinker || n->typeof()->istype(TdnLightLink::sMetaclass());
    if (!hasLinker) graph.createNode("lightLinker", "lightLinker1");
}
const bool kLightNodesHooked = (TdependGraph::addDefaultNodeHook(&createLightNodes), true);
}  // namespace

TdnVSLightLink::Pair::Pair(const char* longName, const char* shortName, const char* tag, const char* lightLong,
                           const char* lightShort, const char* lightTag, const char* objectLong, const char* objectShort,
                           const char* objectTag)
    : whole(longName, shortName, tagOf(tag)),
      light(lightLong, lightShort, tagOf(lightTag)),
      object(objectLong, objectShort, tagOf(objectTag)) {
    whole.setMulti(true);
    whole.setIndexMatters(true);
    light.setParent(&whole);
    object.setParent(&whole);
    for (Tattribute* a : {static_cast<Tattribute*>(&whole), static_cast<Tattribute*>(&light), static_cast<Tattribute*>(&object)})
        a->setFlag(kAttrStorable | kAttrKeyable, false);
}

const TdnVSLightLink::Pair* TdnLightLink::pairOf(const Tattribute* compound) {
    TdnVSLightLink& vs = sVsData();
    for (const TdnVSLightLink::Pair* p : {&vs.link, &vs.ignore, &vs.shadowLink, &vs.shadowIgnore})
        if (compound == &p->whole) return p;
    return nullptr;
}

TdependNode* TdnLightLink::lightAt(const Tattribute* attr, int index) const {
    const TdnVSLightLink::Pair* p = pairOf(attr);
    if (!p || index < 0) return nullptr;
    const Tplug* source = sourceOf(Tplug(const_cast<TdnLightLink*>(this), &p->light, index));
    return source ? source->node() : nullptr;
}

TdependNode* TdnLightLink::objectAt(const Tattribute* attr, int index) const {
    const TdnVSLightLink::Pair* p = pairOf(attr);
    if (!p || index < 0) return nullptr;
    const Tplug* source = sourceOf(Tplug(const_cast<TdnLightLink*>(this), &p->object, index));
    return source ? source->node() : nullptr;
}

std::vector<int> TdnLightLink::usedIndices(const Tattribute* attr) const {
    std::vector<int> out;
    const TdnVSLightLink::Pair* p = pairOf(attr);
    if (!p) return out;
    std::vector<std::pair<Tplug, Tplug>> incoming;
    allIncoming(incoming);
    for (auto& [source, destination] : incoming)
        if ((destination.attribute() == &p->light || destination.attribute() == &p->object) && destination.index() >= 0)
            out.push_back(destination.index());
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

int TdnLightLink::firstFreeIndexStartingFrom(int start, const Tattribute* attr) const {
    if (!pairOf(attr)) return -1;
    int index = std::max(start, 0);
    for (int used : usedIndices(attr)) {
        if (used < index) continue;
        if (used > index) break;
        ++index;
    }
    return index;
}

int TdnLightLink::firstUsedIndexStartingFrom(int start, const Tattribute* attr) const {
    for (int used : usedIndices(attr))
        if (used >= start) return used;
    return -1;
}

bool TdnLightLink::connectPair(const Tattribute* attr, int index, TdependNode* light, TdependNode* object) {
    const TdnVSLightLink::Pair* p = pairOf(attr);
    TdependGraph* g = graph();
    if (!p || !g || !light || !object || index < 0) return false;
    if (g->connect(Tplug(light, &saMessage()), Tplug(this, &p->light, index)) != TconnectStatus::kOk) return false;
    if (g->connect(Tplug(object, &saMessage()), Tplug(this, &p->object, index)) != TconnectStatus::kOk) {
        g->disconnect(Tplug(light, &saMessage()), Tplug(this, &p->light, index));
        return false;
    }
    return true;
}

void TdnLightLink::cleanUp() {
    TdnVSLightLink& vs = sVsData();
    for (const Tattribute* a : {&vs.link.whole, &vs.ignore.whole, &vs.shadowLink.whole, &vs.shadowIgnore.whole}) cleanUp(a);
}

void TdnLightLink::cleanUp(const Tattribute* attr) {
    const TdnVSLightLink::Pair* p = pairOf(attr);
    TdependGraph* g = graph();
    if (!p || !g) return;
    for (int index : usedIndices(attr)) {
        Tplug lightSide(this, &p->light, index), objectSide(this, &p->object, index);
        const Tplug* l = sourceOf(lightSide);
        const Tplug* o = sourceOf(objectSide);
        if (l && o) continue;
        // Copies: the disconnection frees the stored source.
        if (l) g->disconnect(Tplug(*l), lightSide);
        if (o) g->disconnect(Tplug(*o), objectSide);
    }
}

void TdnLightLink::assimilate(TdnLightLink* other) {
    if (!other || other == this) return;
    TdnVSLightLink& vs = sVsData();
    for (const Tattribute* a : {&vs.link.whole, &vs.ignore.whole, &vs.shadowLink.whole, &vs.shadowIgnore.whole})
        assimilate(other, a);
}

void TdnLightLink::assimilate(TdnLightLink* other, const Tattribute* attr) {
    const TdnVSLightLink::Pair* p = pairOf(attr);
    TdependGraph* g = graph();
    if (!p || !g || other->graph() != g) return;
    int free = 0;
    for (int index : other->usedIndices(attr)) {
        TdependNode* light = other->lightAt(attr, index);
        TdependNode* object = other->objectAt(attr, index);
        if (!light || !object) continue;
        g->disconnect(Tplug(light, &saMessage()), Tplug(other, &p->light, index));
        g->disconnect(Tplug(object, &saMessage()), Tplug(other, &p->object, index));
        free = firstFreeIndexStartingFrom(free, attr);
        connectPair(attr, free, light, object);
    }
}

void TdnLightLink::setRelationshipClients(RelationshipClient groups, RelationshipClient others) {
    fGroupClient = std::move(groups);
    fOtherClient = std::move(others);
}

void TdnLightLink::relationshipsChanged(TdependNode* object) {
    ++fChanges;
    if (fGroupClient) fGroupClient(*this, object);
}

void TdnLightLink::relationshipsChangedNonSG(TdependNode* object) {
    ++fChanges;
    if (fOtherClient) fOtherClient(*this, object);
}

bool TdnLightLink::names(TdependNode* node) const {
    std::vector<std::pair<Tplug, Tplug>> incoming;
    allIncoming(incoming);
    for (auto& [source, destination] : incoming)
        if (source.node() == node) return true;
    return false;
}

void TdnLightLink::tellClients(TdependNode* object) {
    if (!object) return;
    if (object->typeof()->istype(TDNshadingEngine::sMetaclass()))
        relationshipsChanged(object);
    else
        relationshipsChangedNonSG(object);
}

void TdnLightLink::setMembershipChanged(TdependNode* set) {
    if (set && names(set)) tellClients(set);
}

void TdnLightLink::serverDeleted(TdependNode* node) {
    if (node && names(node)) tellClients(node);
}

bool TdnLightLink::shouldBeWritten() const {
    TdnVSLightLink& vs = sVsData();
    for (const Tattribute* a : {&vs.link.whole, &vs.ignore.whole, &vs.shadowLink.whole, &vs.shadowIgnore.whole})
        if (!usedIndices(a).empty()) return true;
    return false;
}

void TdnLightLink::pairChanged(const Tplug& mine, const Tplug& other, bool asSource) {
    if (asSource || !mine.attribute() || !mine.attribute()->parent()) return;
    const TdnVSLightLink::Pair* p = pairOf(mine.attribute()->parent());
    if (!p) return;
    // An object side names whose lighting changed; a light side names the
    // object already at that index, if any.
    tellClients(mine.attribute() == &p->object ? other.node() : objectAt(&p->whole, mine.index()));
}

void TdnLightLink::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdependNode::connectionMade(mine, other, asSource);
    pairChanged(mine, other, asSource);
}

void TdnLightLink::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdependNode::connectionBroken(mine, other, asSource);
    pairChanged(mine, other, asSource);
}

TdnLightLink* TdnLightLink::active(TdependGraph& graph) {
    for (TdependNode* n : graph.nodes())
        if (n->typeof()->istype(sMetaclass())) return static_cast<TdnLightLink*>(n);
    return static_cast<TdnLightLink*>(graph.createNode("lightLinker", "lightLinker1"));
}
