#include "lights/light_list.h"

#include <algorithm>

SN_REGISTER_NODE_CLASS(TdnLightList)
SN_REGISTER_NODE_CLASS(TdnDefaultLightList)

namespace {
const TlightDataAttributes::Names kLightDataArray{
    "lightDataArray", "lda", "LDAR",
    {"lightDirection", "lightIntensity", "lightAmbient", "lightDiffuse", "lightSpecular", "lightShadowFraction",
     "preShadowIntensity", "lightBlindData"},
    {"ld", "li", "la", "ldf", "ls", "lsf", "psi", "lbd"},
    {"LDIR", "LITN", "LAMB", "LDIF", "LSPC", "LSHF", "LPSI", "LBLD"},
    {"ldx", "ldy", "ldz"},
    {"lir", "lig", "lib"}};
const TlightDataAttributes::Names kLightData{
    "lightData", "ltd", "LITD",
    {"lightDirectionOut", "lightIntensityOut", "lightAmbientOut", "lightDiffuseOut", "lightSpecularOut",
     "lightShadowFractionOut", "preShadowIntensityOut", "lightBlindDataOut"},
    {"ldo", "lw", "lya", "lyf", "lys", "sfo", "psio", "lbdo"},
    {"LDRO", "LINW", "LYAM", "LYDF", "LYSP", "LSFO", "PSIO", "LBDO"},
    {"lqx", "lqy", "lqz"},
    {"lwr", "lwg", "lwb"}};

bool contains(const TdagPathArray& paths, const TdagPath& path) { return std::find(paths.begin(), paths.end(), path) != paths.end(); }

bool erase(TdagPathArray& paths, const TdagPath& path) {
    auto it = std::find(paths.begin(), paths.end(), path);
    if (it == paths.end()) return false;
    paths.erase(it);
    return true;
}
}  // namespace

void TdnLightList::lightList(TDNarray& out) const {
    std::vector<std::pair<Tplug, Tplug>> incoming;
    allIncoming(incoming);  // ordered by attribute, then element
    for (auto& [source, destination] : incoming)
        if (destination.attribute() == &attrLights() && destination.index() >= 0) out.append(source.node());
}

unsigned TdnLightList::numLights() const {
    TDNarray nodes;
    lightList(nodes);
    return nodes.length();
}

TdnVSDefaultLightList::TdnVSDefaultLightList() : lightDataArray(kLightDataArray), lightData(kLightData) {
    // The output is one record, filled by the light loop, not by the graph.
    lightData.whole.setMulti(false);
    for (Tattribute* a : std::initializer_list<Tattribute*>{
             &lightData.whole, &lightData.direction.whole, &lightData.direction.c0, &lightData.direction.c1,
             &lightData.direction.c2, &lightData.intensity.whole, &lightData.intensity.c0, &lightData.intensity.c1,
             &lightData.intensity.c2, &lightData.ambient, &lightData.diffuse, &lightData.specular, &lightData.shadowFraction,
             &lightData.preShadowIntensity, &lightData.blindData})
        a->setFlag(kAttrWritable | kAttrStorable, false);
}

bool TrenderList::addToList(const TdagPath& path) {
    bool changed = erase(fExclusions, path);
    if (contains(fAdditions, path)) return changed;
    if (fUseDefault) {
        TdagPathArray defaults;
        getDefaultList(defaults);
        if (contains(defaults, path)) return changed;
    }
    fAdditions.push_back(path);
    return true;
}

bool TrenderList::removeFromList(const TdagPath& path) {
    bool changed = erase(fAdditions, path);
    if (!fUseDefault || contains(fExclusions, path)) return changed;
    TdagPathArray defaults;
    getDefaultList(defaults);
    if (!contains(defaults, path)) return changed;
    fExclusions.push_back(path);
    return true;
}

void TrenderList::getList(TdagPathArray& out) const {
    out.clear();
    if (fUseDefault) {
        getDefaultList(out);
        for (const TdagPath& excluded : fExclusions) erase(out, excluded);
    }
    for (const TdagPath& added : fAdditions)
        if (!contains(out, added)) out.push_back(added);
}

void TrenderList::getDefaultList(TdagPathArray& out) const { out.clear(); }

bool TlightList::addToList(const TdagPath& path) {
    if (!TrenderList::addToList(path)) return false;
    if (fListener) fListener({TlightListModifiedMsg::kAdded, path});
    return true;
}

bool TlightList::removeFromList(const TdagPath& path) {
    if (!TrenderList::removeFromList(path)) return false;
    if (fListener) fListener({TlightListModifiedMsg::kRemoved, path});
    return true;
}

void TlightList::getDefaultList(TdagPathArray& out) const {
    out.clear();
    if (!fModel) return;
    for (TdependNode* node : fModel->nodes()) {
        if (!node->typeof()->istype(TlightShape::sMetaclass())) continue;
        // An exclusive light lights only what it is linked to.
        if (const Tattribute* exclusive = node->attribute(Tstring("exclusive"));
            exclusive && exclusive->valueType() == TvalueType::kBoolean) {
            bool on = false;
            if (node->getAttributeValue(exclusive, &on) && on) continue;
        }
        std::vector<TdagPath> paths = static_cast<TdagNode*>(node)->allPaths();
        if (!paths.empty()) out.push_back(paths.front());
    }
}
