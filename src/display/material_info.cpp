#include "display/material_info.h"

#include <algorithm>
#include <cstdlib>

#include "display/material_values.h"
#include "framework/host/depend_node.h"

namespace {
std::vector<TmaterialInfo*>& liveInfos() {
    static std::vector<TmaterialInfo*> infos;
    return infos;
}

TportColor portColor(const T3Float& c) { return {c.x, c.y, c.z, 1}; }

// The node driving `name` of `node`, as a plug, or null.
Tplug sourcePlug(TdependNode* node, const char* name) {
    const Tattribute* a = node ? node->attribute(Tstring(name)) : nullptr;
    if (!a) return {};
    const Tplug* source = node->sourceOf(Tplug(node, a));
    return source ? *source : Tplug();
}
}  // namespace

TmaterialInfo::TmaterialInfo(TdependNode* group) : fGroup(group) {
    liveInfos().push_back(this);
    rebuild();
}

TmaterialInfo::~TmaterialInfo() {
    auto& infos = liveInfos();
    infos.erase(std::remove(infos.begin(), infos.end(), this), infos.end());
}

void TmaterialInfo::rebuild() {
    Tplug shader = sourcePlug(fGroup, "surfaceShader");
    fMaterial = shader.node();
    fFactory.reset(fMaterial ? TmaterialInfoMgr::createMatInfoFactory(fMaterial) : nullptr);
    Tplug colour = sourcePlug(fMaterial, "color");
    if (colour.isNull()) colour = sourcePlug(fMaterial, "diffuse");
    if (!colour.isNull() && (!fColorTexture || fColorTexture->plug() != colour))
        fColorTexture = std::make_unique<TmaterialTexture>(this, colour);
    else if (colour.isNull())
        fColorTexture.reset();
    fUpToDate = false;
}

bool TmaterialInfo::sAmbientDiffuseAdjust() {
    static const bool adjust = std::getenv("TOVI_HW_AMBIENT_DIFFUSE_ADJUST") != nullptr;
    return adjust;
}

const TmaterialInputData& TmaterialInfo::data() {
    if (!fUpToDate) {
        fData = TmaterialInputData();
        if (!fFactory || !fFactory->computeMaterial(fData)) defaultMaterial(fData);
        fUpToDate = true;
    }
    return fData;
}

void TmaterialInfo::defaultMaterial(TmaterialInputData& data) {
    TdependNode* m = fMaterial;
    if (!m) return;
    // A colour input driven by a texture shows the texture at full strength:
    // the record keeps only the scale the material applies to it.
    bool textured = isConnectedInput(m, "color");
    T3Float colour{1, 1, 1};
    if (auto c = unconnectedColor(m, "hardwareColor"); c && (c->x > 0 || c->y > 0 || c->z > 0)) colour = *c;
    else if (auto c = unconnectedColor(m, "color"); c && !textured) colour = *c;
    else if (auto c = unconnectedColor(m, "outColor"); c && !textured && !unconnectedColor(m, "color")) colour = *c;
    float diffuse = float(unconnectedNumber(m, "diffuse").value_or(1.0));
    data.diffuse = portColor(colour * diffuse);
    // Ambient lights reach the colour without the diffuse factor, as in a
    // render; the material's own ambient colour adds like a glow of it.
    data.ambient = portColor(colour);
    T3Float emission{0, 0, 0};
    if (auto c = unconnectedColor(m, "incandescence")) emission = *c;
    if (auto c = unconnectedColor(m, "ambientColor")) emission = emission + T3Float(c->x * colour.x, c->y * colour.y, c->z * colour.z);
    data.emission = portColor(emission);
    if (auto c = unconnectedColor(m, "specularColor")) data.specular = portColor(*c);
    T3Float transparency{0, 0, 0};
    if (auto c = unconnectedColor(m, "transparency")) transparency = *c;
    else if (auto c = unconnectedColor(m, "outTransparency")) transparency = *c;
    float gain = float(unconnectedNumber(m, "materialAlphaGain").value_or(1.0));
    data.alpha = std::clamp(1 - gain * (transparency.x + transparency.y + transparency.z) / 3, 0.0f, 1.0f);
    // The specular family names its exponent in its own way; a record wants
    // one OpenGL shininess.
    if (auto s = unconnectedNumber(m, "shininess")) data.shininess = float(*s);
    else if (auto s = unconnectedNumber(m, "cosinePower")) data.shininess = float(*s);
    else if (auto e = unconnectedNumber(m, "eccentricity")) data.shininess = float(std::clamp(2 / std::max(*e * *e, 1e-4), 1.0, 128.0));
    data.shininess = std::clamp(data.shininess, 0.0f, 128.0f);
    if (sAmbientDiffuseAdjust()) {
        // The viewport has no ambient light of its own: lend the ambient some
        // of the diffuse so unlit sides do not go black.
        data.ambient = {data.ambient.r + 0.2f * data.diffuse.r, data.ambient.g + 0.2f * data.diffuse.g,
                        data.ambient.b + 0.2f * data.diffuse.b, 1};
    }
}

bool TmaterialInfo::evaluateTexture(TevaluateTextureInfoArray& infos) {
    if (!fTexturesEnabled) return false;
    if (!fUpToDate) data();
    fHasAlpha = false;
    if (!fColorTexture) return false;
    bool any = false;
    for (TevaluateTextureInfo& info : infos) {
        info.result = fColorTexture->getTexture(info);
        if (!info.result) continue;
        any = true;
        const TpixelMap* image = fColorTexture->lastImage();
        if (image && image->channels() == 4 && image->hasNonUnitAlpha()) fHasAlpha = true;
    }
    return any;
}

void TmaterialInfo::materialNodeChanged() {
    rebuild();
    if (fColorTexture) fColorTexture->setDirty();
}

std::shared_ptr<TglTextureObject> TmaterialInfo::sFindShared(const TmaterialTexture& texture) {
    for (TmaterialInfo* info : liveInfos())
        if (info->fColorTexture && info->fColorTexture->find(texture)) return info->fColorTexture->sharedObject(0);
    return nullptr;
}
