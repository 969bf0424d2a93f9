#pragma once
// Lists of lights: the list node (lights connected by message), the default
// light list (the light data of the lights that illuminate by default) and
// the editing-side lists of DAG paths, a default list with exclusions and
// additions.
#include <functional>
#include <vector>

#include "framework/host/dag.h"
#include "framework/node_registry.h"
#include "shading/shading_engine.h"

using TdagPathArray = std::vector<TdagPath>;

struct TdnVSLightList : TdependNodeVS {
    TattributeMessage lights{"lights", "l", TiffTag("LGHT")};
    TattributeMessage linkNodes{"linkNodes", "ln", TiffTag("LINK")};
    TdnVSLightList() { lights.setMulti(true); }
};

class TdnLightList : public TnodeClass<TdnLightList, TdependNode, TdnVSLightList> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnLightList", 1047, "kLightList");
    SN_ATTRIBUTE(Lights, lights)
    SN_ATTRIBUTE(LinkNodes, linkNodes)

    // Appends the node of every connected element of "lights", in index
    // order; elements without a connection are skipped.
    void lightList(TDNarray& out) const;
    unsigned numLights() const;
};

struct TdnVSDefaultLightList : TdependNodeVS {
    TlightDataAttributes lightDataArray;  // input, one element per light
    TlightDataAttributes lightData;       // output
    TdnVSDefaultLightList();
};

class TdnDefaultLightList : public TnodeClass<TdnDefaultLightList, TdependNode, TdnVSDefaultLightList> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnDefaultLightList", 1048, "kDefaultLightList");
    SN_ATTRIBUTE(LightDataArray, lightDataArray.whole)
    SN_ATTRIBUTE(LightData, lightData.whole)
};

// A list of paths: a default list, less exclusions, plus additions.
class TrenderList {
public:
    virtual ~TrenderList() = default;
    // False when the list already stands that way.
    virtual bool addToList(const TdagPath& path);
    virtual bool removeFromList(const TdagPath& path);
    // Clears `out`; with the default list on, fills it with the default
    // list less the exclusions; then appends each addition not yet there.
    void getList(TdagPathArray& out) const;
    void setUseDefaultList(bool on) { fUseDefault = on; }
    bool useDefaultList() const { return fUseDefault; }
    virtual void getDefaultList(TdagPathArray& out) const;
    const TdagPathArray& additions() const { return fAdditions; }
    const TdagPathArray& exclusions() const { return fExclusions; }

private:
    TdagPathArray fAdditions, fExclusions;
    bool fUseDefault = true;
};

// What a light list tells its listeners when an edit changes it.
struct TlightListModifiedMsg {
    enum Kind { kAdded, kRemoved };
    Kind kind;
    TdagPath path;
};

// The lights of a graph: by default the first path of every light shape that
// is not exclusive.
class TlightList : public TrenderList {
public:
    explicit TlightList(TdependGraph* model) : fModel(model) {}
    bool addToList(const TdagPath& path) override;
    bool removeFromList(const TdagPath& path) override;
    void getDefaultList(TdagPathArray& out) const override;
    using Listener = std::function<void(const TlightListModifiedMsg&)>;
    void setListener(Listener listener) { fListener = std::move(listener); }

private:
    TdependGraph* fModel;
    Listener fListener;
};
