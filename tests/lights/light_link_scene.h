#pragma once
// Scenes for the light-linking tests, built in the host graph: lights and
// objects as shapes under transforms, groups and sets holding their paths,
// links made through the graph's link node.
#include <string>
#include <vector>

#include "framework/host/dag.h"
#include "lights/light_link.h"
#include "settings/render_globals.h"
#include "shading/shading_engine.h"

struct TlinkTestLightVS : TdependNodeVS {
    TattributeBoolean useDepthMapShadows{"useDepthMapShadows", "udms", TiffTag("UDMS")};
    TattributeBoolean exclusive{"exclusive", "ex", TiffTag("LEXC")};
};

// A concrete light: the host's light shape plus the switches that the
// collection and the lists look up by name.
class TlinkTestLight : public TnodeClass<TlinkTestLight, TlightShape, TlinkTestLightVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TlinkTestLight", 9101, "kLinkTestLight", "linkTestLight", "LTLT"};
    SN_ATTRIBUTE(UseDepthMapShadows, useDepthMapShadows)
    SN_ATTRIBUTE(Exclusive, exclusive)
};

struct TlinkTestShapeVS : TdependNodeVS {};
class TlinkTestShape : public TnodeClass<TlinkTestShape, TgeometryShape, TlinkTestShapeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TlinkTestShape", 9102, "kLinkTestShape", "linkTestShape", "LTSH"};
};

class TlinkScene {
public:
    TlinkScene();
    TdependGraph& graph() { return fGraph; }
    // A light shape "<name>" under a transform "<name>T"; it joins the
    // default light set when `byDefault`.
    TlinkTestLight* light(const std::string& name, bool byDefault = true);
    // A geometry shape "<name>" under a transform "<name>T".
    TlinkTestShape* object(const std::string& name);
    TdagNode* transformOf(TdagNode* shape) { return shape->parents().front(); }
    TdagPath pathOf(TdagNode* node) { return node->allPaths().front(); }
    // A group holding the given objects in order (object index = position),
    // linked to the default light set.
    TDNshadingEngine* group(const std::string& name, const std::vector<TdagNode*>& objects, bool defaultLights = true);
    TobjectSet* set(const std::string& name, const std::vector<TdagNode*>& members);
    TobjectSet* defaultLightSet();
    TdnLightLink* linker();
    TdnRenderGlobals* globals();

    // A pair in one compound of the link node, at its first free index.
    void pair(const Tattribute& compound, TdependNode* light, TdependNode* object);
    void link(TdependNode* light, TdependNode* object) { pair(TdnLightLink::saLink(), light, object); }
    void ignore(TdependNode* light, TdependNode* object) { pair(TdnLightLink::saIgnore(), light, object); }
    void shadowLink(TdependNode* light, TdependNode* object) { pair(TdnLightLink::saShadowLink(), light, object); }
    void shadowIgnore(TdependNode* light, TdependNode* object) { pair(TdnLightLink::saShadowIgnore(), light, object); }
    void setShadowSwitches(bool obeyLightLinking, bool obeyShadowLinking);

    // The lights that reach object `index` of `group`, by name, in the
    // group's light order (after collectLights).
    static std::vector<std::string> litNames(const TDNshadingEngine& group, unsigned index, bool shadow = false);

private:
    TdependGraph fGraph;
};
