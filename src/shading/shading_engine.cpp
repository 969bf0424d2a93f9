#include "shading/shading_engine.h"

#include <algorithm>
#include <atomic>

#include "framework/shading_node.h"

SN_REGISTER_NODE_CLASS(TDNshadingEngine)

namespace {
// The four light-data blocks share one shape; only their names differ.
const TlightDataAttributes::Names kDefaultShadows{
    "defaultShadows", "dsl", "SDSL",
    {"dShadowDirection", "dShadowIntensity", "dShadowAmbient", "dShadowDiffuse", "dShadowSpecular",
     "dShadowShadowFraction", "dShadowPreShadowIntensity", "dShadowBlindData"},
    {"dsd", "dsi", "dsa", "dsf", "dss", "dssf", "dsps", "dbld"},
    {"DSDR", "DSIN", "DSAM", "DSDF", "DSSC", "DSSF", "DSPS", "DBLD"},
    {"dsx", "dsy", "dsz"},
    {"dsr", "dsg", "dsb"}};
const TlightDataAttributes::Names kLinkedShadows{
    "linkedShadows", "ls", "SELS",
    {"lShadowDirection", "lShadowIntensity", "lShadowAmbient", "lShadowDiffuse", "lShadowSpecular",
     "lShadowShadowFraction", "lShadowPreShadowIntensity", "lShadowBlindData"},
    {"lsd", "lsi", "lsa", "lsf", "lss", "lssf", "lsps", "lbld"},
    {"LSDR", "LSIN", "LSAM", "LSDF", "LSSC", "LSSF", "LSPS", "LBLD"},
    {"lsx", "lsy", "lsz"},
    {"lsr", "lsg", "lsb"}};
const TlightDataAttributes::Names kIgnoredShadows{
    "ignoredShadows", "xs", "SEXS",
    {"xShadowDirection", "xShadowIntensity", "xShadowAmbient", "xShadowDiffuse", "xShadowSpecular",
     "xShadowShadowFraction", "xShadowPreShadowIntensity", "xShadowBlindData"},
    {"xsd", "xsi", "xsa", "xsf", "xss", "xssf", "xsps", "xbld"},
    {"XSDR", "XSIN", "XSAM", "XSDF", "XSSC", "XSSF", "XSPS", "XBLD"},
    {"xsx", "xsy", "xsz"},
    {"xsr", "xsg", "xsb"}};
const TlightDataAttributes::Names kBogusAttribute{
    "bogusAttribute", "blt", "BATT",
    {"bogusDirection", "bogusIntensity", "bogusAmbient", "bogusDiffuse", "bogusSpecular", "bogusShadowFraction",
     "bogusPreShadowIntensity", "bogusBlindData"},
    {"bgd", "bgi", "bga", "bgf", "bgs", "bgsf", "bgps", "bbld"},
    {"BLDR", "BLIN", "BLAM", "BLDF", "BLSC", "BLSF", "BLPS", "BBLD"},
    {"bgx", "bgy", "bgz"},
    {"bgr", "bgg", "bgb"}};

TiffTag tagOf(const char* t) { return node_class_detail::tagFromText(t); }

std::atomic<TDNshadingEngine::DeleteOpusHook> gDeleteOpus{nullptr};
}  // namespace

TlightDataAttributes::TlightDataAttributes(const Names& n)
    : whole(n.longName, n.shortName, tagOf(n.tag)),
      direction(n.childLong[0], n.childShort[0], tagOf(n.childTag[0]), "XYZ", n.directionShort),
      intensity(n.childLong[1], n.childShort[1], tagOf(n.childTag[1]), "RGB", n.intensityShort),
      ambient(n.childLong[2], n.childShort[2], tagOf(n.childTag[2])),
      diffuse(n.childLong[3], n.childShort[3], tagOf(n.childTag[3])),
      specular(n.childLong[4], n.childShort[4], tagOf(n.childTag[4])),
      shadowFraction(n.childLong[5], n.childShort[5], tagOf(n.childTag[5])),
      preShadowIntensity(n.childLong[6], n.childShort[6], tagOf(n.childTag[6])),
      blindData(n.childLong[7], n.childShort[7], tagOf(n.childTag[7])) {
    whole.setMulti(true);
    for (Tattribute* child : std::initializer_list<Tattribute*>{&direction.whole, &intensity.whole, &ambient, &diffuse, &specular,
                                                               &shadowFraction, &preShadowIntensity, &blindData})
        child->setParent(&whole);
}

TDNshadingEngineVS::TDNshadingEngineVS()
    : defaultShadows(kDefaultShadows),
      linkedShadows(kLinkedShadows),
      ignoredShadows(kIgnoredShadows),
      bogusAttribute(kBogusAttribute) {
    unsolicited.setMulti(true);
    for (TattributeLightData* lights : {&defaultLights, &linkedLights, &ignoredLights}) lights->setMulti(true);
    for (Tattribute* port : std::initializer_list<Tattribute*>{&unsolicited, &displacementShader, &imageShader, &volumeShader,
                                                              &surfaceShader}) {
        port->setFlag(kAttrStorable | kAttrKeyable, false);
        port->setResourceName("s_TDNshadingEngineStrings");
    }
    miContourColor.setDefault(0, 0, 0);
    miContourAlpha.setNativeDefaultData(1.0);
    miContourWidth.setNativeDefaultData(1.0);
}

TDNshadingEngine::TDNshadingEngine() { setSamplerRequests(); }

TDNshadingEngine::~TDNshadingEngine() {
    resetShadingEngine();
    for (auto* plugs : {&fLightPlugs, &fShadowPlugs, &fOwnPlugs})
        for (Tplug* p : *plugs) delete p;
}

void TDNshadingEngine::setDeleteOpusHook(DeleteOpusHook hook) { gDeleteOpus.store(hook); }

void TDNshadingEngine::initializeConnected(TvariantArena*, TframeSampleData* data, TbaseDeepRaster* raster) {
    resetShadingEngine();
    fInitialized = true;
    fDeepRaster = raster;
    // The light tables come from the render side (setLightTables) before
    // this call; the node table is built here, so that every node a render
    // reaches is prepared for it and let go at the reset.
    processNodeTable(data);
}

void TDNshadingEngine::processNodeTable(TframeSampleData* data) {
    // Everything upstream of the group and of its lights. Other groups are
    // not part of this network and are not walked through.
    std::vector<TdependNode*> found;
    auto reach = [&](TdependNode* node) {
        if (!node || node == this || std::find(found.begin(), found.end(), node) != found.end()) return;
        if (node->typeof()->istype(sMetaclass())) return;
        found.push_back(node);
    };
    for (const auto* lights : {&fLights, &fShadowLights})
        for (TdependNode* light : *lights) reach(light);
    std::vector<std::pair<Tplug, Tplug>> incoming;
    allIncoming(incoming);
    for (const auto& connection : incoming) reach(connection.first.node());
    for (size_t k = 0; k < found.size(); ++k) {
        incoming.clear();
        found[k]->allIncoming(incoming);
        for (const auto& connection : incoming) reach(connection.first.node());
    }
    // Farthest upstream first: a node's init may read what feeds it.
    for (auto it = found.rbegin(); it != found.rend(); ++it) addToNodeTable(*it, data);
}

void TDNshadingEngine::resetShadingEngine() {
    if (!fInitialized) return;
    fResetPending = true;
    fHasUseBackground = false;
    fHasHideSourceLambert = false;
    DeleteOpusHook hook = gDeleteOpus.load();
    for (unsigned o = 0; o < kTSEoptionCount; ++o) {
        if (!fOptions[o].opus) continue;
        if (hook) hook(this, o, true);
        releaseOpus(o);
    }
    for (OptionState& s : fOptions) s.requested = s.needs = TbitField64();
    setSamplerRequests();
    cleanUpNetwork();
    for (auto* plugs : {&fLightPlugs, &fShadowPlugs, &fOwnPlugs}) {
        while (!plugs->empty()) {
            delete plugs->back();
            plugs->pop_back();
        }
    }
    fLights.clear();
    fShadowLights.clear();
    fLitRows.clear();
    fShadowRows.clear();
    fDeepRaster = nullptr;
    fInitialized = false;
}

void TDNshadingEngine::releaseOpus(unsigned option) {
    if (option >= kTSEoptionCount) return;
    fOptions[option].opus = nullptr;
    fOptions[option].fieldOffsets = nullptr;
    fOptions[option].sampleSize = 0;
}

void TDNshadingEngine::addToNodeTable(TdependNode* node, TframeSampleData* data) {
    if (std::find(fNodeTable.begin(), fNodeTable.end(), node) != fNodeTable.end()) return;
    fNodeTable.push_back(node);
    if (TshadingNode* s = TshadingNode::fromNode(node)) s->incrementReferenceCount(data);
}

void TDNshadingEngine::cleanUpNetwork() {
    for (TdependNode* node : fNodeTable)
        if (TshadingNode* s = TshadingNode::fromNode(node)) s->decrementReferenceCount(this);
    fNodeTable.clear();
}

int TDNshadingEngine::incrementReferenceCount() { return fReferenceCountingEnabled ? fReferences.add() : fReferences.count(); }

int TDNshadingEngine::decrementReferenceCount() {
    if (!fReferenceCountingEnabled || fReferences.count() < 1) return fReferences.count();
    return fReferences.remove();
}

void TDNshadingEngine::setLightTables(std::vector<TdependNode*> lights, std::vector<TbitFieldFixedN> litRows,
                                      std::vector<TdependNode*> shadowLights, std::vector<TbitFieldFixedN> shadowRows) {
    fLights = std::move(lights);
    fLitRows = std::move(litRows);
    fShadowLights = std::move(shadowLights);
    fShadowRows = std::move(shadowRows);
}

bool TDNshadingEngine::lookUp(const std::vector<TdependNode*>& nodes, const std::vector<TbitFieldFixedN>& rows,
                              unsigned objectIndex, const TdependNode* light) {
    auto it = std::find(nodes.begin(), nodes.end(), light);
    if (it == nodes.end() || objectIndex >= rows.size()) return false;
    return rows[objectIndex].test(unsigned(it - nodes.begin()));
}

bool TDNshadingEngine::litBy(unsigned objectIndex, const TdependNode* light) const {
    return lookUp(fLights, fLitRows, objectIndex, light);
}

bool TDNshadingEngine::shadowedBy(unsigned objectIndex, const TdependNode* light) const {
    return lookUp(fShadowLights, fShadowRows, objectIndex, light);
}

bool TDNshadingEngine::computePlug(const Tplug& plug, TdataBlock& block) {
    // Nothing of the group computes through the graph; its real outputs are
    // its programs'.
    return TDNdispatchCompute::computePlug(plug, block);
}

int TDNshadingEngine::merge(TDGcommand&, TdependNode* other, TDNarray&, TDNarray&) {
    if (!other || !other->typeof()->istype(sMetaclass())) return -1;
    auto* into = static_cast<TDNshadingEngine*>(other);
    std::vector<TdagPath> moving = members();
    if (!moving.empty()) TobjectSet::moveItemsToSet(moving, std::vector<TobjectSet*>(moving.size(), into));
    // Light links that name this group by its message plug now name the one
    // that remains.
    TdependGraph* graph = this->graph();
    if (!graph) return 0;
    std::vector<Tplug> links;
    destinationsOf(Tplug(this, &saMessage()), links);
    for (const Tplug& link : links) {
        if (link.node()->typeName() != "lightLinker") continue;
        graph->disconnect(Tplug(this, &saMessage()), link);
        graph->connect(Tplug(into, &saMessage()), link);
    }
    return 0;
}

bool TDNshadingEngine::aboutToDuplicate(TDNsortedArray& nodes) {
    std::vector<Tplug> out;
    destinationsOf(Tplug(this, &saMessage()), out);
    for (const Tplug& p : out)
        if (p.node()->typeName() == "materialInfo") {
            unsigned position;
            nodes.insert(p.node(), position);
            break;
        }
    return true;
}
