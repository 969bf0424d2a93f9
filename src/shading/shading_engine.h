#pragma once
// TDNshadingEngine: the shading group. A set whose members are shaded alike
// and whose attributes are the ports of a network; it owns, per option, the
// compiled program and the sample layout, and the light tables of its members.
#include <array>
#include <vector>

#include "framework/host/attribute_groups.h"
#include "framework/host/threads.h"
#include "shading/dispatch_compute.h"
#include "shading/network_analysis.h"
#include "shading/shading_types.h"

class TgeoManagerBase;
class TstackArena;
class TrenderThreadBase;

// One block of light-data children ("defaultShadows" and its three siblings).
struct TlightDataAttributes {
    // Long names, short names and tags of the eight children, in order:
    // direction, intensity, ambient, diffuse, specular, shadow fraction,
    // pre-shadow intensity, blind data.
    struct Names {
        const char* longName;
        const char* shortName;
        const char* tag;
        const char* childLong[8];
        const char* childShort[8];
        const char* childTag[8];
        const char* directionShort[3];
        const char* intensityShort[3];
    };
    explicit TlightDataAttributes(const Names& n);

    TattributeCompound whole;
    TtripleAttribute direction;
    TtripleAttribute intensity;
    TattributeBoolean ambient, diffuse, specular;
    TattributeFloat shadowFraction, preShadowIntensity;
    TattributeAddr blindData;
};

struct TDNshadingEngineVS : TdependNodeVS {
    static constexpr const char* kContourColorShort[3] = {"micr", "micg", "micb"};
    TattributeTyped unsolicited{"unsolicited", "un", TiffTag("SEUN")};
    TattributeTyped displacementShader{"displacementShader", "ds", TiffTag("SEDS")};
    TattributeTyped imageShader{"imageShader", "is", TiffTag("SEIS")};
    TattributeTyped volumeShader{"volumeShader", "vs", TiffTag("SEVS")};
    TattributeTyped surfaceShader{"surfaceShader", "ss", TiffTag("SESS")};
    TattributeLightData defaultLights{"defaultLights", "dl", TiffTag("SEDL")};
    TattributeLightData linkedLights{"linkedLights", "ll", TiffTag("SELL")};
    TattributeLightData ignoredLights{"ignoredLights", "xl", TiffTag("SEXL")};
    TlightDataAttributes defaultShadows;
    TlightDataAttributes linkedShadows;
    TlightDataAttributes ignoredShadows;
    // The target that analysis connects "lightDataArray" to; the odd name is
    // deliberate and part of the file format.
    TlightDataAttributes bogusAttribute;

    // Stored only, for an outside renderer.
    TattributeBoolean miExportMrMaterial{"miExportMrMaterial", "mimt", TiffTag("MIMT")};
    TattributeBoolean miOpaque{"miOpaque", "miop", TiffTag("MIOP")};
    TattributeBoolean miCutAwayOpacity{"miCutAwayOpacity", "mico", TiffTag("MICO")};
    TattributeBoolean miExportShadingEngine{"miExportShadingEngine", "mise", TiffTag("MISE")};
    TattributeMessage miMaterialShader{"miMaterialShader", "mims", TiffTag("MIMS")};
    TattributeMessage miShadowShader{"miShadowShader", "miss", TiffTag("MISS")};
    TattributeBoolean miExportVolumeSampler{"miExportVolumeSampler", "mism", TiffTag("MISM")};
    TattributeMessage miVolumeShader{"miVolumeShader", "mivs", TiffTag("MIVS")};
    TattributeMessage miPhotonShader{"miPhotonShader", "mips", TiffTag("MIPS")};
    TattributeMessage miPhotonVolumeShader{"miPhotonVolumeShader", "mipv", TiffTag("MIPV")};
    TattributeMessage miDisplacementShader{"miDisplacementShader", "mids", TiffTag("MIDS")};
    TattributeMessage miEnvironmentShader{"miEnvironmentShader", "mies", TiffTag("MIES")};
    TattributeMessage miLightMapShader{"miLightMapShader", "milm", TiffTag("MILM")};
    TattributeMessage miContourShader{"miContourShader", "mics", TiffTag("MICS")};
    TattributeBoolean miContourEnable{"miContourEnable", "mice", TiffTag("MICE")};
    TtripleAttribute miContourColor{"miContourColor", "micc", TiffTag("MICC"), "RGB", kContourColorShort};
    TattributeFloat miContourAlpha{"miContourAlpha", "mica", TiffTag("MICA")};
    TattributeFloat miContourWidth{"miContourWidth", "micw", TiffTag("MICW")};
    TattributeBoolean miContourRelativeWidth{"miContourRelativeWidth", "mirw", TiffTag("MIRW")};

    TDNshadingEngineVS();
};

class TDNshadingEngine : public TnodeClass<TDNshadingEngine, TDNdispatchCompute, TDNshadingEngineVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TDNshadingEngine", 320, "kShadingEngine", "shadingEngine", "SHAD",
                                          "shadingEngine", false, 0, true};

    SN_ATTRIBUTE(Unsolicited, unsolicited)
    SN_ATTRIBUTE(DisplacementShader, displacementShader)
    SN_ATTRIBUTE(ImageShader, imageShader)
    SN_ATTRIBUTE(VolumeShader, volumeShader)
    SN_ATTRIBUTE(SurfaceShader, surfaceShader)
    SN_ATTRIBUTE(DefaultLights, defaultLights)
    SN_ATTRIBUTE(LinkedLights, linkedLights)
    SN_ATTRIBUTE(IgnoredLights, ignoredLights)
    SN_ATTRIBUTE(DefaultShadows, defaultShadows.whole)
    SN_ATTRIBUTE(LinkedShadows, linkedShadows.whole)
    SN_ATTRIBUTE(IgnoredShadows, ignoredShadows.whole)
    SN_ATTRIBUTE(BogusAttribute, bogusAttribute.whole)

    // Names of the default nodes the group knows.
    static constexpr const char* kInitialMaterialInfo = "initialMaterialInfo";
    static constexpr const char* kInitialShadingGroup = "initialShadingGroup";
    static constexpr const char* kInitialParticleSE = "initialParticleSE";
    static constexpr const char* kRenderPartition = "renderPartition";
    static constexpr const char* kDefaultLightSet = "defaultLightSet";
    static constexpr const char* kDefaultObjectSet = "defaultObjectSet";
    static constexpr const char* kDefaultRenderGlobals = "defaultRenderGlobals";
    static constexpr const char* kDefaultRenderQuality = "defaultRenderQuality";
    static constexpr const char* kDefaultResolution = "defaultResolution";

    // Per-option state, filled by analysis.
    struct OptionState {
        TshadingOpus* opus = nullptr;
        unsigned* fieldOffsets = nullptr;
        unsigned sampleSize = 0;
        TbitField64 requested;
        TbitField64 needs;
    };

    TDNshadingEngine();
    ~TDNshadingEngine() override;

    // Render lifecycle.
    void initializeConnected(TvariantArena* arena, TframeSampleData* data, TbaseDeepRaster* raster);
    void resetShadingEngine();
    void releaseOpus(unsigned option);
    bool isInitialized() const { return fInitialized; }
    bool resetPending() const { return fResetPending; }
    TbaseDeepRaster* deepRaster() const { return fDeepRaster; }
    OptionState& option(unsigned option) { return fOptions[option]; }
    const OptionState& option(unsigned option) const { return fOptions[option]; }
    bool needs(TSEoption option, unsigned item) const { return fOptions[option].needs.test(item); }

    // Network analysis: compiles the network behind the group for `option`
    // into a program held in the shading catalog, once; later calls find it.
    // `result` receives the requested items the network provides.
    bool analyse(TSEoption option, TbitField64* result, TframeSampleData* data, const TgeoManagerBase* geoManager,
                 TrenderThreadBase* thread);
    using Analyser = bool (TDNshadingEngine::*)(TSEoption, TbitField64*, TbitField64*, TframeSampleData*,
                                                const TgeoManagerBase*, TrenderThreadBase*);
    static const Analyser fsAnalysers[kTSEoptionCount];
    bool surfaceShadingInit(TSEoption, TbitField64* requested, TbitField64* result, TframeSampleData*, const TgeoManagerBase*,
                            TrenderThreadBase*);
    bool volumeShadingInit(TSEoption, TbitField64* requested, TbitField64* result, TframeSampleData*, const TgeoManagerBase*,
                           TrenderThreadBase*);
    bool dispShadingInit(TSEoption, TbitField64* requested, TbitField64* result, TframeSampleData*, const TgeoManagerBase*,
                         TrenderThreadBase*);
    // For a node's analyse: reserves a user item of `size` bytes in every
    // sample, which feeds `input` (null for none) of the node. The value is
    // copied from field `sourceField` before each batch, or written by
    // fills[object number] when that exists. Returns the item's field index.
    unsigned defineUserSampleData(TSEnodeDescription* description, const Tattribute* input, unsigned size, unsigned sourceField,
                                  const class TuserSampleFill* const* fills = nullptr, unsigned fillCount = 0);
    // The items each option asks of the network, from the request constants.
    static TbitField64 requestedForOption(TSEoption option);
    void setSamplerRequests();
    unsigned* fieldOffsetTable(TSEoption o) const { return fOptions[o].fieldOffsets; }
    unsigned sampleSize(TSEoption o) const { return fOptions[o].sampleSize; }
    // Set by analysis: the network's transparency does not vary per sample;
    // its displacement is zero.
    bool transparencyConstant() const { return fTransparencyConstant; }
    bool displacementZero() const { return fDisplacementZero; }

    // The nodes of the network this group holds a reference on; the first
    // reference of a render runs a node's shadingNodeInit, the reset lets go.
    void addToNodeTable(TdependNode* node, TframeSampleData* data);
    // Takes a reference on every node upstream of the group and of its lights.
    void processNodeTable(TframeSampleData* data);
    const std::vector<TdependNode*>& nodeTable() const { return fNodeTable; }

    // Reference count of the group itself.
    int incrementReferenceCount();
    int decrementReferenceCount();
    void disableReferenceCounting() { fReferenceCountingEnabled = false; }
    bool referenceCountingEnabled() const { return fReferenceCountingEnabled; }

    // Light linking: the group's light and shadow arrays and, per member
    // object, a row of bits over them.
    void setLightTables(std::vector<TdependNode*> lights, std::vector<TbitFieldFixedN> litRows,
                        std::vector<TdependNode*> shadowLights, std::vector<TbitFieldFixedN> shadowRows);
    bool litBy(unsigned objectIndex, const TdependNode* light) const;
    const std::vector<TdependNode*>& lights() const { return fLights; }
    const std::vector<TbitFieldFixedN>& litRows() const { return fLitRows; }
    // Builds the program of each light of the group (option kSingleLight,
    // shared through the catalog) and hands it to `opus`; widens the sample
    // layout of `option` to what the lights read. Under the group's mutex.
    void getLightList(TSEoption option, TshadingOpus* opus, TstackArena& arena);
    bool shadowedBy(unsigned objectIndex, const TdependNode* light) const;
    // Collects, once per render initialisation, the lights that reach each
    // of `objects` (its index is its position) from the default light set,
    // the group's links, object sets and direct links, and likewise the
    // lights that shadow it, and installs both through setLightTables. The
    // overload without arguments uses the group's members.
    void collectLights(const std::vector<TdagPath>& objects);
    void collectLights() { collectLights(members()); }
    const std::vector<TdependNode*>& shadowLights() const { return fShadowLights; }
    // The running count of distinct live lights the last collection ended
    // with, for the light or the shadow pass.
    int collectedLightCount(bool shadow) const { return fCollectedCount[shadow ? 1 : 0]; }
    // What the lights of `shape` need (all the group's lights when it is not
    // one of the collected objects): bit 3 for depth-map shadows, bit 5 for
    // ray-traced shadows.
    static constexpr unsigned kNeedsDepthMaps = 1u << 3;
    static constexpr unsigned kNeedsRayTracedShadows = 1u << 5;
    void mapLights(unsigned& mask, const TdagNode* shape) const;

    bool computePlug(const Tplug& plug, TdataBlock& block) override;
    int merge(TDGcommand& command, TdependNode* other, TDNarray& a, TDNarray& b) override;
    bool aboutToDuplicate(TDNsortedArray& nodes) override;

    // How the engine deletes an option's program when the group resets;
    // installed by the render side, which owns the catalog.
    using DeleteOpusHook = void (*)(TDNshadingEngine* group, unsigned option, bool allThreads);
    static void setDeleteOpusHook(DeleteOpusHook hook);

private:
    bool shadingInit(TSEsampleType type, TSEoption option, TbitField64* requested, TbitField64* result, TframeSampleData* data);
    void cleanUpNetwork();
    static bool lookUp(const std::vector<TdependNode*>& nodes, const std::vector<TbitFieldFixedN>& rows,
                       unsigned objectIndex, const TdependNode* light);

    std::array<OptionState, kTSEoptionCount> fOptions{};
    TbaseDeepRaster* fDeepRaster = nullptr;
    bool fInitialized = false;
    bool fResetPending = false;
    bool fHasUseBackground = false;
    bool fHasHideSourceLambert = false;
    bool fTransparencyConstant = false;
    bool fDisplacementZero = false;
    std::vector<TdependNode*> fNodeTable;
    std::vector<Tplug*> fLightPlugs, fShadowPlugs, fOwnPlugs;
    std::vector<TdependNode*> fLights, fShadowLights;
    // Light collection (light_collection.cpp), in the order it runs.
    void addDefaultLights(TplugArray& lights, TuInt32Array& flags, TplugArray& ignored, TuInt32Array& ignoredFlags, int& count,
                          bool shadow);
    void addSGLinkedLights(TplugArray& lights, TuInt32Array& flags, int& count, bool shadow);
    void addSGIgnoredLights(TplugArray& ignored, TuInt32Array& ignoredFlags, bool shadow);
    void addObjctSetLnkdLights(TplugArray& lights, TuInt32Array& flags, TplugArray& ignored, TuInt32Array& ignoredFlags,
                               int& count, bool shadow);
    void addObjctDirectLnkdLights(TplugArray& lights, TuInt32Array& flags, TplugArray& ignored, TuInt32Array& ignoredFlags,
                                  int& count, bool shadow);
    void addLightsFromLinker(const Tplug& objectMessage, uint32_t objectFlags, TplugArray& lights, TuInt32Array& flags,
                             TplugArray& ignored, TuInt32Array& ignoredFlags, int& count, bool shadow);
    void addLightsFromSet(TobjectSet* set, uint32_t objectFlags, TplugArray& lights, TuInt32Array& flags, int& count,
                          bool shadow);
    void removeIgnoredLights(TplugArray& lights, TuInt32Array& flags, TplugArray& ignored, TuInt32Array& ignoredFlags,
                             int& count);
    void removeDuplicateLights(TplugArray& lights, TuInt32Array& flags, int& count);
    bool addSetMemberLight(const TdagPath& member, uint32_t entryFlags, TplugArray& lights, TuInt32Array& flags, int& count,
                           bool shadow);
    Tplug* holdPlug(const Tplug& plug, bool shadow);
    const std::vector<TdagPath>* fCollecting = nullptr;
    std::vector<const TdagNode*> fLinkedObjects;
    int fCollectedCount[2] = {0, 0};
    std::vector<TbitFieldFixedN> fLitRows, fShadowRows;
    TmtRefCounter fReferences;
    bool fReferenceCountingEnabled = true;
};
