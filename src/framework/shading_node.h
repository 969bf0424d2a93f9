#pragma once
// TshadingNode: the mixin of every render node. The shading engine reaches
// it from a TdependNode* through the metaclass (istype, then cast) and
// treats a node that does not answer as having no shading behaviour.
#include <atomic>
#include <cstdint>

#include "framework/host/array.h"
#include "framework/host/bit_field.h"
#include "framework/host/threads.h"

class Tattribute;
class TdataBlock;
class TDNshadingEngine;
class TdependNode;
class TdagPath;
class Tmetaclass;
class Tplug;
class TSEnodeDescription;
struct TframeSampleData;
struct ThardwareRenderProfile;
struct TgeometryRequirements;
struct TgeometryRequest;
struct ThardwareRenderInfo;

enum eOnDemandState : int32_t { kOnDemandNotStarted = 0, kOnDemandComputing = 1, kOnDemandDone = 2 };

class TshadingNode {
public:
    static Tmetaclass* sMetaclass();
    // The mixin of a node, or null for a node without shading behaviour.
    static TshadingNode* fromNode(TdependNode* node);

    TshadingNode() = default;
    TshadingNode(const TshadingNode& other);
    TshadingNode& operator=(const TshadingNode& other);

    virtual Tmetaclass* shadingTypeof() const { return sMetaclass(); }
    virtual void* shadingCast(Tmetaclass* meta);
    virtual ~TshadingNode();
    virtual void shadingNodeInit(TframeSampleData*) {}
    virtual void shadingNodeOnDemand(Tplug&, TdataBlock&) {}
    virtual Tattribute* alternateAttr(const Tattribute*) { return nullptr; }
    virtual void groupedAttrs(const Tattribute*, TattributeArray&) {}
    virtual void modifyAffects(const Tattribute*, TbitFieldFixedN&, TDNshadingEngine*, void*) {}
    virtual void endOfRender(TDNshadingEngine*) { setOnDemandState(kOnDemandNotStarted); }
    virtual void analyse(TDNshadingEngine*, TSEnodeDescription*, void*, TbitField64&) {}
    virtual void getGlow(float& glow) const { glow = 0; }
    virtual const ThardwareRenderProfile* rendererProfile(unsigned& count) const {
        count = 0;
        return nullptr;
    }
    virtual int populateRequirements(const TdagPath&, TDNshadingEngine*, TgeometryRequirements&) { return -1; }
    virtual unsigned transparencyOptions() const { return 0; }
    virtual int render(const TgeometryRequest**, unsigned, const ThardwareRenderInfo&) { return -1; }

    int referenceCount() const { return fReferences.count(); }
    // The first reference of a render runs shadingNodeInit.
    int incrementReferenceCount(TframeSampleData* data);
    // The last reference runs endOfRender; a count already at 0 stays.
    int decrementReferenceCount(TDNshadingEngine* group);

    std::atomic<int32_t>& onDemandState() { return fOnDemandState; }
    void setOnDemandState(eOnDemandState s) { fOnDemandState.store(s, std::memory_order_release); }
    // Runs shadingNodeOnDemand once per render: the thread that moves the
    // state from 0 to 1 computes and stores 2; every other thread spins
    // until it reads 2.
    void ensureOnDemand(Tplug& plug, TdataBlock& block);

    bool supportsCustomRendering() const { return fCustomRenderingFlags & 1u; }
    bool enableCustomRendering() const { return !(fCustomRenderingFlags & 2u); }
    void setCustomRenderingFlags(uint32_t flags) { fCustomRenderingFlags = flags; }

private:
    TmtRefCounter fReferences;
    std::atomic<int32_t> fOnDemandState{0};
    uint32_t fCustomRenderingFlags = 0;
};
