// The shading group's light collection: which lights reach each object that
// uses the group, and which lights shadow it. Runs on the main thread while a
// render is set up; the tables it leaves are read-only afterwards.
#include <algorithm>

#include "lights/light_entries.h"
#include "lights/light_link.h"
#include "lights/light_visibility.h"
#include "settings/render_globals.h"
#include "shading/shading_engine.h"

namespace {

using E = TlightEntries;

// The link node's children that name lights and objects, for one pass.
struct LinkerSides {
    const Tattribute* linkLight;
    const Tattribute* linkObject;
    const Tattribute* ignoreLight;
    const Tattribute* ignoreObject;
};

LinkerSides sidesFor(bool shadow) {
    TdnVSLightLink& vs = TdnLightLink::sVsData();
    if (shadow) return {&vs.shadowLink.light, &vs.shadowLink.object, &vs.shadowIgnore.light, &vs.shadowIgnore.object};
    return {&vs.link.light, &vs.link.object, &vs.ignore.light, &vs.ignore.object};
}

const Tattribute* lightDataOf(TdependNode* node) { return node ? node->attribute(Tstring("lightData")) : nullptr; }

bool isSet(TdependNode* node) { return node && node->typeof()->istype(TobjectSet::sMetaclass()); }

// The path `prefix` is `path` or lies above it.
bool covers(const TdagPath& prefix, const TdagPath& path) {
    const auto& a = prefix.nodes();
    const auto& b = path.nodes();
    return !a.empty() && a.size() <= b.size() && std::equal(a.begin(), a.end(), b.begin());
}

// The sources connected to the elements of the group's array `root`, in
// element order.
std::vector<Tplug> sourcesInto(const TdependNode& group, const Tattribute* root) {
    std::vector<std::pair<Tplug, Tplug>> incoming;
    group.allIncoming(incoming);
    std::vector<std::pair<int, Tplug>> found;
    for (auto& [source, destination] : incoming)
        if (destination.attribute() && destination.attribute()->rootParent() == root) found.emplace_back(destination.index(), source);
    std::stable_sort(found.begin(), found.end(), [](auto& a, auto& b) { return a.first < b.first; });
    std::vector<Tplug> out;
    for (auto& f : found)
        if (std::find(out.begin(), out.end(), f.second) == out.end()) out.push_back(f.second);
    return out;
}

// How shadows follow links, from the scene's render globals; a scene
// without them gets the defaults of a new scene.
void shadowSwitches(TdependGraph* graph, bool& obeyLightLinking, bool& obeyShadowLinking) {
    obeyLightLinking = true;
    obeyShadowLinking = false;
    TdependNode* globals = graph ? graph->findNode(Tstring(TDNshadingEngine::kDefaultRenderGlobals)) : nullptr;
    if (!globals || !globals->typeof()->istype(TdnRenderGlobals::sMetaclass())) return;
    globals->getAttributeValue(&TdnRenderGlobals::saShadowsObeyLightLinking(), &obeyLightLinking);
    globals->getAttributeValue(&TdnRenderGlobals::saShadowsObeyShadowLinking(), &obeyShadowLinking);
}

}  // namespace

Tplug* TDNshadingEngine::holdPlug(const Tplug& plug, bool shadow) {
    Tplug* held = new Tplug(plug);
    (shadow ? fShadowPlugs : fLightPlugs).push_back(held);
    return held;
}

bool TDNshadingEngine::addSetMemberLight(const TdagPath& member, uint32_t entryFlags, TplugArray& lights, TuInt32Array& flags,
                                         int& count, bool shadow) {
    TdagNode* node = member.node();
    const Tattribute* data = lightDataOf(node);
    if (!data || !data->isReadable()) return false;
    if (!TdagPathUtils::isObjectVisibleToRenderer(member) || !TdagPathUtils::inCurrentRenderLayer(member)) return false;
    lights.append(holdPlug(Tplug(node, data), shadow));
    flags.append(entryFlags);
    ++count;
    return true;
}

void TDNshadingEngine::addLightsFromSet(TobjectSet* set, uint32_t objectFlags, TplugArray& lights, TuInt32Array& flags,
                                        int& count, bool shadow) {
    if (!set) return;
    for (const TdagPath& member : set->members()) addSetMemberLight(member, objectFlags, lights, flags, count, shadow);
}

void TDNshadingEngine::addLightsFromLinker(const Tplug& objectMessage, uint32_t objectFlags, TplugArray& lights,
                                           TuInt32Array& flags, TplugArray& ignored, TuInt32Array& ignoredFlags, int& count,
                                           bool shadow) {
    const LinkerSides sides = sidesFor(shadow);
    std::vector<Tplug> named;
    objectMessage.node()->destinationsOf(objectMessage, named);
    for (const Tplug& end : named) {
        if (!end.node()->typeof()->istype(TdnLightLink::sMetaclass())) continue;
        const bool isLink = end.attribute() == sides.linkObject;
        if (!isLink && end.attribute() != sides.ignoreObject) continue;
        const Tplug* lightSide =
            end.node()->sourceOf(Tplug(end.node(), isLink ? sides.linkLight : sides.ignoreLight, end.index()));
        if (!lightSide) continue;  // half a pair adds nothing
        TdependNode* light = lightSide->node();
        TplugArray& toLights = isLink ? lights : ignored;
        TuInt32Array& toFlags = isLink ? flags : ignoredFlags;
        int ignoredCount = 0;
        int& toCount = isLink ? count : ignoredCount;
        if (isSet(light)) {
            addLightsFromSet(static_cast<TobjectSet*>(light), objectFlags | E::kFromLink | E::kThroughSet, toLights, toFlags,
                             toCount, shadow);
        } else if (const Tattribute* data = lightDataOf(light)) {
            if (!data->isReadable() || !TdagPathUtils::lightTakesPart(light)) continue;
            toLights.append(holdPlug(Tplug(light, data), shadow));
            toFlags.append(objectFlags | E::kFromLink);
            ++toCount;
        }
    }
}

void TDNshadingEngine::addDefaultLights(TplugArray& lights, TuInt32Array& flags, TplugArray& ignored,
                                        TuInt32Array& ignoredFlags, int& count, bool shadow) {
    addLightsFromLinker(Tplug(this, &saMessage()), E::kWholeGroup, lights, flags, ignored, ignoredFlags, count, shadow);
}

void TDNshadingEngine::addSGLinkedLights(TplugArray& lights, TuInt32Array& flags, int& count, bool shadow) {
    const Tattribute* root = shadow ? static_cast<const Tattribute*>(&attrLinkedShadows()) : &attrLinkedLights();
    for (const Tplug& source : sourcesInto(*this, root)) {
        TdependNode* node = source.node();
        const Tattribute* data = lightDataOf(node);
        if (data && source.attribute() == data) {
            // A light's own data, connected straight to the group.
            if (!TdagPathUtils::lightTakesPart(node)) continue;
            lights.append(holdPlug(source, shadow));
            flags.append(E::kWholeGroup);
            ++count;
        } else if (!data && isSet(node)) {
            for (const TdagPath& member : static_cast<TobjectSet*>(node)->members())
                addSetMemberLight(member, E::kWholeGroup | E::kFromLink, lights, flags, count, shadow);
        } else if (data && data->isReadable()) {
            // Some other output of a light: the light's data stands for it.
            if (!TdagPathUtils::lightTakesPart(node)) continue;
            lights.append(holdPlug(Tplug(node, data), shadow));
            flags.append(E::kWholeGroup | E::kFromLink);
            ++count;
        }
    }
}

void TDNshadingEngine::addSGIgnoredLights(TplugArray& ignored, TuInt32Array& ignoredFlags, bool shadow) {
    // Lights connected to the group's ignore port are group-wide ignores,
    // read like the sources of the linked port. Ignores are not counted.
    int unused = 0;
    const Tattribute* root = shadow ? static_cast<const Tattribute*>(&attrIgnoredShadows()) : &attrIgnoredLights();
    for (const Tplug& source : sourcesInto(*this, root)) {
        TdependNode* node = source.node();
        const Tattribute* data = lightDataOf(node);
        if (data && data->isReadable()) {
            ignored.append(holdPlug(Tplug(node, data), shadow));
            ignoredFlags.append(E::kWholeGroup | E::kFromLink);
        } else if (isSet(node)) {
            for (const TdagPath& member : static_cast<TobjectSet*>(node)->members())
                addSetMemberLight(member, E::kWholeGroup | E::kFromLink, ignored, ignoredFlags, unused, shadow);
        }
    }
}

void TDNshadingEngine::addObjctSetLnkdLights(TplugArray& lights, TuInt32Array& flags, TplugArray& ignored,
                                             TuInt32Array& ignoredFlags, int& count, bool shadow) {
    if (!fCollecting || !graph()) return;
    // Sets are visited in the graph's creation order.
    std::vector<TobjectSet*> sets;
    for (TdependNode* n : graph()->nodes())
        if (n != this && isSet(n)) sets.push_back(static_cast<TobjectSet*>(n));
    for (unsigned object = 0; object < fCollecting->size() && object <= E::kObjectMask; ++object) {
        const TdagPath& path = (*fCollecting)[object];
        for (TobjectSet* set : sets) {
            // The object is in the set itself or through one of its parents.
            bool member = false;
            for (const TdagPath& m : set->members()) member = member || covers(m, path);
            if (!member) continue;
            addLightsFromLinker(Tplug(set, &saMessage()), object | E::kThroughSet, lights, flags, ignored, ignoredFlags, count,
                                shadow);
        }
    }
}

void TDNshadingEngine::addObjctDirectLnkdLights(TplugArray& lights, TuInt32Array& flags, TplugArray& ignored,
                                                TuInt32Array& ignoredFlags, int& count, bool shadow) {
    if (!fCollecting) return;
    for (unsigned object = 0; object < fCollecting->size() && object <= E::kObjectMask; ++object) {
        const auto& nodes = (*fCollecting)[object].nodes();
        // The object first, then each parent up its path.
        for (auto it = nodes.rbegin(); it != nodes.rend(); ++it)
            addLightsFromLinker(Tplug(*it, &saMessage()), object, lights, flags, ignored, ignoredFlags, count, shadow);
    }
}

void TDNshadingEngine::removeIgnoredLights(TplugArray& lights, TuInt32Array& flags, TplugArray& ignored,
                                           TuInt32Array& ignoredFlags, int& count) {
    TlightEntries::removeIgnored(lights, flags, ignored, ignoredFlags, count);
}

void TDNshadingEngine::removeDuplicateLights(TplugArray& lights, TuInt32Array& flags, int& count) {
    TlightEntries::removeDuplicates(lights, flags, count);
}

void TDNshadingEngine::collectLights(const std::vector<TdagPath>& objects) {
    // A copy: the overload without arguments passes the member list, which
    // nothing here changes, but the caller's vector may be a temporary.
    const std::vector<TdagPath> collecting = objects;
    fCollecting = &collecting;
    for (auto* plugs : {&fLightPlugs, &fShadowPlugs}) {
        for (Tplug* p : *plugs) delete p;
        plugs->clear();
    }
    auto collect = [&](bool shadow) {
        TplugArray lights, ignored;
        TuInt32Array flags, ignoredFlags;
        int count = 0;
        addDefaultLights(lights, flags, ignored, ignoredFlags, count, shadow);
        addSGLinkedLights(lights, flags, count, shadow);
        addSGIgnoredLights(ignored, ignoredFlags, shadow);
        addObjctSetLnkdLights(lights, flags, ignored, ignoredFlags, count, shadow);
        addObjctDirectLnkdLights(lights, flags, ignored, ignoredFlags, count, shadow);
        removeIgnoredLights(lights, flags, ignored, ignoredFlags, count);
        removeDuplicateLights(lights, flags, count);
        fCollectedCount[shadow ? 1 : 0] = count;
        return TlightEntries::compact(lights, flags, unsigned(collecting.size()));
    };
    TlightEntries::Table lit = collect(false);

    bool obeyLightLinking, obeyShadowLinking;
    shadowSwitches(graph(), obeyLightLinking, obeyShadowLinking);
    TlightEntries::Table shadowed;
    if (obeyShadowLinking) {
        shadowed = collect(true);
        if (obeyLightLinking) {
            // Both: a light shadows an object only when it also lights it.
            for (unsigned o = 0; o < shadowed.rows.size(); ++o)
                for (unsigned p = 0; p < shadowed.lights.size(); ++p) {
                    auto it = std::find(lit.lights.begin(), lit.lights.end(), shadowed.lights[p]);
                    if (it == lit.lights.end() || !lit.rows[o].test(unsigned(it - lit.lights.begin()))) shadowed.rows[o].clear(p);
                }
        }
    } else if (obeyLightLinking) {
        shadowed = lit;
        fCollectedCount[1] = fCollectedCount[0];
    } else {
        // Shadows ignore links: every light that reaches the group shadows
        // every object of it.
        shadowed.lights = lit.lights;
        shadowed.rows.assign(collecting.size(), TbitFieldFixedN(unsigned(lit.lights.size())));
        for (TbitFieldFixedN& row : shadowed.rows) row.setAll();
        fCollectedCount[1] = int(lit.lights.size());
    }

    fLinkedObjects.clear();
    for (const TdagPath& path : collecting) fLinkedObjects.push_back(path.node());
    fCollecting = nullptr;
    setLightTables(std::move(lit.lights), std::move(lit.rows), std::move(shadowed.lights), std::move(shadowed.rows));
}

void TDNshadingEngine::mapLights(unsigned& mask, const TdagNode* shape) const {
    const unsigned both = kNeedsDepthMaps | kNeedsRayTracedShadows;
    if ((mask & both) == both || fLights.empty()) return;
    const TbitFieldFixedN* row = nullptr;
    for (unsigned o = 0; o < fLinkedObjects.size() && o < fLitRows.size(); ++o)
        if (shape && fLinkedObjects[o] == shape) {
            row = &fLitRows[o];
            break;
        }
    for (unsigned p = 0; p < fLights.size(); ++p) {
        if (row && !row->test(p)) continue;
        TdependNode* light = fLights[p];
        // Depth maps belong to the non-extended light classes, which carry
        // the switch; it is looked up by name.
        if (const Tattribute* depth = light->attribute(Tstring("useDepthMapShadows"));
            depth && depth->valueType() == TvalueType::kBoolean && light->typeof()->istype(TlightShape::sMetaclass())) {
            bool on = false;
            if (light->getAttributeValue(depth, &on) && on) mask |= kNeedsDepthMaps;
        }
        if (light->typeof()->istype(TlightShape::sMetaclass())) {
            bool on = false;
            if (light->getAttributeValue(&TlightShape::saUseRayTraceShadows(), &on) && on) mask |= kNeedsRayTracedShadows;
        }
        if ((mask & both) == both) return;
    }
}
