#include "display/material_info.h"

#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

#include "display/material_values.h"
#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"
#include "framework/host/depend_node.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/texture_3d.h"

SN_REGISTER_NODE_CLASS(TmaterialInfo)

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

// Inputs a bake drives itself (the sample's place on the surface): a
// change of them is the bake at work, not an edit.
bool drivenByBakes(const std::string& name) {
    for (const char* n : {"uvCoord", "uvFilterSize", "refPointObj", "pointObj", "refPointCamera", "pointCamera", "normalCamera",
                          "matrixEyeToWorld", "xPixelAngle", "filterSize"})
        if (name == n) return true;
    return false;
}

// `node` and every node upstream of it, depth first.
void collectUpstream(TdependNode* node, std::vector<TdependNode*>& out) {
    if (!node || std::find(out.begin(), out.end(), node) != out.end()) return;
    out.push_back(node);
    std::vector<std::pair<Tplug, Tplug>> incoming;
    node->allIncoming(incoming);
    for (auto& link : incoming) collectUpstream(link.first.node(), out);
}
}  // namespace

TmaterialInfo::TmaterialInfo() { liveInfos().push_back(this); }

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
    if (!colour.isNull()) connectTexture(colour);
    else disconnectTexture();
    fUpToDate = false;
    if (fWatching) watchNetwork();
}

void TmaterialInfo::connectTexture(const Tplug& texture) {
    if (!fColorTexture || fColorTexture->plug() != texture) fColorTexture = std::make_unique<TmaterialTexture>(this, texture);
}

void TmaterialInfo::disconnectTexture() { fColorTexture.reset(); }

void TmaterialInfo::watchNetwork() {
    TdependGraph* graph = this->graph();
    if (!graph) return;
    ++fQuiet;
    unwatchNetwork();
    std::vector<TdependNode*> nodes;
    if (fGroup) nodes.push_back(fGroup);
    collectUpstream(fMaterial, nodes);
    unsigned used = 0;
    for (TdependNode* node : nodes) {
        if (node == this) continue;
        for (unsigned i = 0; i < node->attributeCount(); ++i) {
            const Tattribute* a = node->attribute(i);
            if (a->parent() || !a->isReadable() || a->isComputed() || a->valueType() == TvalueType::kMessage ||
                drivenByBakes(a->longName().str()))
                continue;
            // An array is watched element by element, a compound element
            // child by child, so that each port names one plug: a value
            // arriving through a connection can then be told from an edit.
            std::vector<Tplug> sources;
            if (a->isArray()) {
                TuInt32Array elements;
                node->getExistingMultiAttributeIndices(Tplug(node, a, true), elements);
                for (unsigned e = 0; e < elements.length(); ++e) {
                    if (a->childCount() == 0) sources.emplace_back(node, a, int(elements[e]));
                    for (unsigned c = 0; c < a->childCount(); ++c) sources.emplace_back(node, a->child(c), int(elements[e]));
                }
            } else {
                sources.emplace_back(node, a);
            }
            for (const Tplug& source : sources) {
                if (source.attribute()->valueType() == TvalueType::kMessage) continue;
                if (used == fPorts.size()) {
                    const std::string name = "watch" + std::to_string(used);
                    auto port = std::make_unique<TattributeTyped>(Tstring(name), Tstring("wt" + std::to_string(used)),
                                                                  TiffTag(0x57544348u + used));
                    port->setFlag(kAttrStorable, false);
                    const Tattribute* made = port.get();
                    if (!addDynamicAttribute(std::move(port))) break;
                    fPorts.push_back(made);
                }
                if (used == fPorts.size()) break;
                const Tattribute* port = fPorts[used];
                if (graph->connect(source, Tplug(this, port)) != TconnectStatus::kOk) continue;
                const Tplug* upstream = node->sourceOf(source);
                fWatched.push_back({source, port, upstream ? *upstream : Tplug()});
                ++used;
            }
        }
    }
    --fQuiet;
}

void TmaterialInfo::unwatchNetwork() {
    TdependGraph* graph = this->graph();
    ++fQuiet;
    for (const Twatch& w : fWatched)
        if (graph) graph->disconnect(w.source, Tplug(this, w.port));
    fWatched.clear();
    --fQuiet;
}

void TmaterialInfo::connectionMade(const Tplug& mine, const Tplug& other, bool asSource) {
    TdependNode::connectionMade(mine, other, asSource);
    if (asSource || mine.attribute() != &attrShadingGroup()) return;
    fGroup = other.node();
    fWatching = true;
    rebuild();
}

void TmaterialInfo::connectionBroken(const Tplug& mine, const Tplug& other, bool asSource) {
    TdependNode::connectionBroken(mine, other, asSource);
    if (asSource) return;
    if (mine.attribute() == &attrShadingGroup()) {
        // Detached from its group: nothing left to draw or watch.
        unwatchNetwork();
        fWatching = false;
        fGroup = fMaterial = nullptr;
        fFactory.reset();
        disconnectTexture();
        fUpToDate = false;
        return;
    }
    if (fQuiet) return;
    // A watched node went away (or its link was cut): stop watching it.
    fWatched.erase(std::remove_if(fWatched.begin(), fWatched.end(), [&](const Twatch& w) { return w.port == mine.attribute(); }),
                   fWatched.end());
}

bool TmaterialInfo::setDependentsDirty(TmsgDirty& msg) {
    const Tattribute* port = msg.plug().attribute();
    // The port is ours to read again: clean, so the next change reaches us too.
    markClean(port);
    if (fQuiet || TmaterialTexture::sBaking()) return true;
    auto w = std::find_if(fWatched.begin(), fWatched.end(), [&](const Twatch& x) { return x.port == port; });
    if (w == fWatched.end()) return true;
    const Tplug changed = w->source;
    TdependNode* node = changed.node();
    const Tplug* now = node->sourceOf(changed);
    if ((now ? *now : Tplug()) != w->upstream) {
        // A connection made or broken: settled at the next use, as the graph
        // is in the middle of the edit now. Upstream of the material the
        // textures' make-up may have changed with it.
        fNeedsRebuild = true;
        if (node != fGroup && node != fMaterial) fFreshTexture = true;
        fUpToDate = false;
        return true;
    }
    // A value arriving through a connection: its source is watched itself.
    if (now) return true;
    if (node == fGroup || node == fMaterial) fUpToDate = false;
    else textureNodeChanged(changed);
    return true;
}

void TmaterialInfo::textureNodeChanged(const Tplug& changed) {
    if (fColorTexture) fColorTexture->nodeChanged(changed);
}

bool TmaterialInfo::sAmbientDiffuseAdjust() {
    static const bool adjust = std::getenv("TOVI_HW_AMBIENT_DIFFUSE_ADJUST") != nullptr;
    return adjust;
}

void TmaterialInfo::settle() {
    if (!fNeedsRebuild) return;
    fNeedsRebuild = false;
    if (fFreshTexture) disconnectTexture();
    fFreshTexture = false;
    rebuild();
}

const TmaterialInputData& TmaterialInfo::data() {
    settle();
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
    // Under a texture the ambient colour glows through the texture's colour,
    // which a record cannot hold: the draw adds it times the texel.
    if (auto c = unconnectedColor(m, "ambientColor"); c && !textured)
        emission = emission + T3Float(c->x * colour.x, c->y * colour.y, c->z * colour.z);
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
    settle();
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

bool TmaterialInfo::setMaterial(const TdagPath&, bool textured) {
    data();
    fTexturesEnabled = textured;
    return fMaterial != nullptr;
}

void TmaterialInfo::setTexture(const TevaluateTextureInfo&, const TglTextureObject& object) {
    glActiveTexture(GL_TEXTURE0);
    object.bind();
}

void TmaterialInfo::unsetTexture() {
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, 0);
}

bool TmaterialInfo::apply2dTextureTransform(const TdagPath& path, float matrix[9]) const {
    const float identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    std::copy(std::begin(identity), std::end(identity), matrix);
    float ru, rv, ou, ov, rotate;
    // A file texture places itself; a bake already holds its placement.
    if (!fColorTexture || fColorTexture->kind() != TmaterialTexture::kFile ||
        !fColorTexture->getTextureTransform(path, ru, rv, ou, ov, rotate))
        return false;
    const float c = std::cos(rotate), s = std::sin(rotate);
    const float m[9] = {ru * c, ru * s, 0, -rv * s, rv * c, 0, ou, ov, 1};
    std::copy(std::begin(m), std::end(m), matrix);
    return true;
}

bool TmaterialInfo::apply3dTextureTransform(const TdagPath&, float matrix[16]) const {
    TfltMatrix placement;
    TdependNode* node = fColorTexture ? fColorTexture->node() : nullptr;
    const bool solid = node && node->cast(TdnTx3D::sMetaclass());
    if (solid) node->getAttributeValue(&TdnTx3D::saPlacementMatrix(), &placement);
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) matrix[4 * r + c] = placement.m[r][c];  // row vectors: the rows are OpenGL's columns
    return solid;
}

bool TmaterialInfo::getTextureImage(const TdagPath&, const TdependNode& node, const Tstring& attribute, TpixelMap& out) const {
    if (!fColorTexture) return false;
    // The record has one texture: the colour's, asked for through the
    // material or through the texture node itself.
    const bool asMaterial = &node == fMaterial && (attribute.str() == "color" || attribute.str() == "diffuse");
    if (!asMaterial && &node != fColorTexture->node()) return false;
    const TpixelMap* image = fColorTexture->lastImage();
    if (!image) return false;
    out = *image;
    return true;
}

bool TmaterialInfo::forceToCreateTextureObject(unsigned index) {
    settle();
    return fColorTexture && fColorTexture->forceToCreateTextureObject(index);
}

Tstring TmaterialInfo::uvSetName(const TdagPath&) const { return Tstring("map1"); }

bool TmaterialInfo::getDefaultColor(const TdagPath& path, T3Float& colour) const {
    if (fColorTexture && fColorTexture->getDefaultColor(path, colour)) return true;
    colour = {fData.diffuse.r, fData.diffuse.g, fData.diffuse.b};
    return false;
}

bool TmaterialInfo::findMaterial(const TdagPath& path, TmaterialInfo*& info) {
    for (TmaterialInfo* candidate : liveInfos()) {
        auto* set = candidate->fGroup ? static_cast<TobjectSet*>(candidate->fGroup->cast(TobjectSet::sMetaclass())) : nullptr;
        if (set && set->isMember(path)) {
            info = candidate;
            return true;
        }
    }
    info = nullptr;
    return false;
}

bool TmaterialInfo::findMaterial(const Tplug& plug, TmaterialInfo*& info) {
    for (TmaterialInfo* candidate : liveInfos())
        if (plug.node() && (candidate->fMaterial == plug.node() || candidate->fGroup == plug.node())) {
            info = candidate;
            return true;
        }
    info = nullptr;
    return false;
}

void TmaterialInfo::setTextureCacheSize(unsigned size) {
    for (TmaterialInfo* info : liveInfos())
        if (info->fColorTexture) info->fColorTexture->setTextureCacheSize(size);
}

void TmaterialInfo::setPixelMapCacheSize(unsigned size) {
    // The shared image cache has no limit of its own: past the size it is
    // emptied, and the images in use stay alive with their users.
    if (TfilePixelMapCache::theCache().size() > size) TfilePixelMapCache::theCache().clear();
}

void TmaterialInfo::purgeTextures() {
    if (fColorTexture) fColorTexture->purge();
}

std::shared_ptr<TglTextureObject> TmaterialInfo::sFindShared(const TmaterialTexture& texture) {
    for (TmaterialInfo* info : liveInfos())
        if (info->fColorTexture && info->fColorTexture->find(texture)) return info->fColorTexture->sharedObject(0);
    return nullptr;
}
