#pragma once
// TmaterialInfo: what the viewport draws a shading group with, as a node of
// the graph. Connected from a group's message (shadingGroup), it keeps the
// group's material record and the texture of the material's colour input,
// and watches the network: every attribute of the group, its material and
// the nodes upstream of the material is connected into a port of its own,
// so the graph's dirty propagation tells it what changed. A material change
// marks the record out of date; a texture change marks the texture it
// belongs to; a texture connected to or disconnected from the material
// makes or drops the texture's record. Every live info is known, so that
// two materials using one texture share its object.
//
// An info made directly on a group (the constructor taking it) keeps the
// same record and textures but watches nothing: it is recomputed when told.
#include <memory>
#include <vector>

#include "display/material_info_mgr.h"
#include "display/material_input_data.h"
#include "display/material_texture.h"
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"

struct TmaterialInfoVS : TdependNodeVS {
    TattributeMessage shadingGroup{"shadingGroup", "sg", TiffTag("MISG")};
    TmaterialInfoVS() { shadingGroup.setFlag(kAttrReadable, false); }
};

class TmaterialInfo : public TnodeClass<TmaterialInfo, TdependNode, TmaterialInfoVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TmaterialInfo", 383, "kMaterialInfo");
    SN_ATTRIBUTE(ShadingGroup, shadingGroup)

    TmaterialInfo();
    // An info on `group` that watches nothing; its surface shader is the material.
    explicit TmaterialInfo(TdependNode* group);
    ~TmaterialInfo() override;

    TdependNode* group() const { return fGroup; }
    TdependNode* material() const { return fMaterial; }
    // The record, recomputed first when out of date.
    const TmaterialInputData& data();
    bool upToDate() const { return fUpToDate; }
    bool hasAlpha() const { return fHasAlpha; }
    // The material's colour texture; null for a plain colour.
    TmaterialTexture* colorTexture() const { return fColorTexture.get(); }

    // Makes the record current for drawing `path`, textured or not.
    bool setMaterial(const TdagPath& path, bool textured);
    // Computes the textures of the entries (each entry's `result`). False
    // when the material is not enabled for textures or has none. Sets the
    // has-alpha bit when an image has transparency to show.
    bool evaluateTexture(TevaluateTextureInfoArray& infos);
    // Binds `object` for drawing (texture unit 0), or nothing.
    void setTexture(const TevaluateTextureInfo& info, const TglTextureObject& object);
    void unsetTexture();
    // The texture matrix of a file texture's placement (column-major 3x3:
    // uv' = M (u, v, 1)); identity for a bake, which holds its placement.
    bool apply2dTextureTransform(const TdagPath& path, float matrix[9]) const;
    // The placement matrix of a solid texture (column-major 4x4), identity
    // for anything else.
    bool apply3dTextureTransform(const TdagPath& path, float matrix[16]) const;
    // A copy of the image last made for the texture driving `attribute` of
    // `node` (the material's colour when `node` is the material).
    bool getTextureImage(const TdagPath& path, const TdependNode& node, const Tstring& attribute, TpixelMap& out) const;
    // Makes the colour texture's object of cycle slot `index`, whatever the frame.
    bool forceToCreateTextureObject(unsigned index);
    // The UV set the colour texture reads ("map1": the one set the renderer has).
    Tstring uvSetName(const TdagPath& path) const;
    // The colour shown where the texture is not (its defaultColor), or the record's diffuse.
    bool getDefaultColor(const TdagPath& path, T3Float& colour) const;

    // The info drawing `path` (through its shading group), or of the group
    // whose surface shader is `plug`'s node; false when none.
    static bool findMaterial(const TdagPath& path, TmaterialInfo*& info);
    static bool findMaterial(const Tplug& plug, TmaterialInfo*& info);
    // Limits of the caches textures are made from.
    static void setTextureCacheSize(unsigned size);
    static void setPixelMapCacheSize(unsigned size);

    // A change upstream: the record and, for a texture change, its objects.
    void materialNodeChanged();
    void transformsDirty() { ++fTransformsDirty; }
    unsigned transformsDirtyCount() const { return fTransformsDirty; }
    void setTexturesEnabled(bool on) { fTexturesEnabled = on; }
    // Drops every texture object (with the context current).
    void purgeTextures();
    // The attributes watched, for tests and the curious.
    unsigned watchedCount() const { return unsigned(fWatched.size()); }

    // A shared object for `texture` from another live texture, or null.
    static std::shared_ptr<TglTextureObject> sFindShared(const TmaterialTexture& texture);

    // When set, the ambient and diffuse colours are balanced for the
    // viewport's own lights (TOVI_HW_AMBIENT_DIFFUSE_ADJUST, read once).
    static bool sAmbientDiffuseAdjust();

    bool setDependentsDirty(TmsgDirty& msg) override;
    void connectionMade(const Tplug& mine, const Tplug& other, bool asSource) override;
    void connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) override;

private:
    void defaultMaterial(TmaterialInputData& data);
    void rebuild();
    // Applies what the watch found out while the graph was being edited.
    void settle();
    // The watch: one port per attribute of the group, the material and the
    // nodes upstream, each connected from the attribute it watches.
    void watchNetwork();
    void unwatchNetwork();
    void connectTexture(const Tplug& texture);
    void disconnectTexture();
    void textureNodeChanged(const Tplug& changed);

    TdependNode* fGroup = nullptr;
    TdependNode* fMaterial = nullptr;
    std::unique_ptr<TmaterialInfoFactory> fFactory;
    TmaterialInputData fData;
    bool fUpToDate = false;
    bool fHasAlpha = false;
    bool fTexturesEnabled = true;
    bool fWatching = false;  // made by the graph: watches through connections
    int fQuiet = 0;          // inside its own edits: dirty messages are ours
    bool fNeedsRebuild = false, fFreshTexture = false;
    unsigned fTransformsDirty = 0;
    std::unique_ptr<TmaterialTexture> fColorTexture;
    struct Twatch {
        Tplug source;                 // the attribute watched
        const Tattribute* port;       // this node's dynamic attribute it feeds
        Tplug upstream;               // what drove it when watched, or null
    };
    std::vector<Twatch> fWatched;
    std::vector<const Tattribute*> fPorts;  // every port made, reused on a rewatch
};
