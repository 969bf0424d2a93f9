#pragma once
// TmaterialInfo: what the viewport draws a shading group with. It keeps the
// group's material record and the texture of the material's colour input,
// recomputed when marked out of date. Every live info is known, so that two
// materials using one texture share its object.
#include <memory>
#include <vector>

#include "display/material_info_mgr.h"
#include "display/material_input_data.h"
#include "display/material_texture.h"

class TdependNode;

class TmaterialInfo {
public:
    // `group` is the shading group; its surface shader is the material.
    explicit TmaterialInfo(TdependNode* group);
    ~TmaterialInfo();
    TmaterialInfo(const TmaterialInfo&) = delete;
    TmaterialInfo& operator=(const TmaterialInfo&) = delete;

    TdependNode* group() const { return fGroup; }
    TdependNode* material() const { return fMaterial; }
    // The record, recomputed first when out of date.
    const TmaterialInputData& data();
    bool hasAlpha() const { return fHasAlpha; }
    // The material's colour texture; null for a plain colour.
    TmaterialTexture* colorTexture() const { return fColorTexture.get(); }

    // Computes the textures of the entries. False when the material is not
    // enabled for textures or has none. Sets the has-alpha bit when an image
    // has transparency to show.
    bool evaluateTexture(TevaluateTextureInfoArray& infos);
    // A change upstream: the record and, for a texture change, its objects.
    void materialNodeChanged();
    void transformsDirty() { ++fTransformsDirty; }
    unsigned transformsDirtyCount() const { return fTransformsDirty; }
    void setTexturesEnabled(bool on) { fTexturesEnabled = on; }

    // A shared object for `texture` from another live texture, or null.
    static std::shared_ptr<TglTextureObject> sFindShared(const TmaterialTexture& texture);

    // When set, the ambient and diffuse colours are balanced for the
    // viewport's own lights (TOVI_HW_AMBIENT_DIFFUSE_ADJUST, read once).
    static bool sAmbientDiffuseAdjust();

private:
    void defaultMaterial(TmaterialInputData& data);
    void rebuild();

    TdependNode* fGroup = nullptr;
    TdependNode* fMaterial = nullptr;
    std::unique_ptr<TmaterialInfoFactory> fFactory;
    TmaterialInputData fData;
    bool fUpToDate = false;
    bool fHasAlpha = false;
    bool fTexturesEnabled = true;
    unsigned fTransformsDirty = 0;
    std::unique_ptr<TmaterialTexture> fColorTexture;
};
