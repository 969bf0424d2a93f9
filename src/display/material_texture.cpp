#include "display/material_texture.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

#include "display/material_info.h"
#include "display/material_values.h"
#include "framework/host/command_engine.h"
#include "textures/file_texture.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/pyramid/pyramid.h"
#include "textures/texture_2d.h"
#include "textures/layered_texture.h"
#include "textures/texture_3d.h"
#include "utilities/switches.h"

bool TmaterialTexture::fsDisableTextureCompute = false;

namespace {
// The baked size when neither the node nor the host says otherwise.
constexpr unsigned kFallbackResolution = 256;

unsigned short clampResolution(double r) { return static_cast<unsigned short>(std::clamp(r, 2.0, 65535.0)); }

int intValue(TdependNode* node, const char* name, int fallback) {
    auto v = unconnectedNumber(node, name);
    return v ? int(*v) : fallback;
}

uint8_t toByte(float v) { return uint8_t(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)); }

// A file's image: through the shared image cache, or for a block-ordered
// file (which the cache does not read) the top level of its pyramid.
// Null with the reason in `why` when neither can read it.
std::shared_ptr<const TpixelMap> readFileImage(const Tstring& name, Tstring& why) {
    if (auto image = TfilePixelMapCache::theCache().pixelMap(name, -1, &why)) return image;
    if (!Tpyramid::IsItABOTFile(name, nullptr, nullptr)) return nullptr;
    std::unique_ptr<Tpyramid> pyramid(Tpyramid::openBOT(name, false, name));
    auto map = std::make_shared<TpixelMap>();
    if (!pyramid || !pyramid->extractLevel(pyramid->getMaxLevel(), *map)) {
        why = Tstring("the block-ordered texture file is damaged");
        return nullptr;
    }
    return map;
}
}  // namespace

TmaterialTexture::TmaterialTexture(TmaterialInfo* owner, const Tplug& texture)
    : fOwner(owner), fPlug(texture), fNode(texture.node()) {
    if (fNode && fNode->cast(TdnFileTexture::sMetaclass())) fKind = kFile;
    else if (fNode && fNode->cast(TdnTx3D::sMetaclass())) fKind = kConvertSolid;
    else if (fNode && fNode->cast(TdnBaseSwitch::sMetaclass())) fKind = kSwitch;
    else if (fNode && fNode->cast(TdnLayeredTexture::sMetaclass())) fKind = kLayered;
    else fKind = kSwatch;
    fFlags = fKind == kFile ? kFileDirty : kSwatchDirty;
    if (fKind == kSwitch) {
        TuInt32Array elements;
        if (const Tattribute* input = fNode->attribute(Tstring("input")))
            fNode->getExistingMultiAttributeIndices(Tplug(fNode, input, true), elements);
        for (unsigned e = 0; e < elements.length(); ++e) addSwitchInput(elements[e]);
        addSwitchDefault();
    } else if (fKind == kLayered) {
        initAsLayeredTexture();
    }
}

TmaterialTexture::TmaterialTexture(TmaterialInfo* owner, Kind kind) : fKind(kind), fOwner(owner) {
    fFlags = kind == kFile ? kFileDirty : kSwatchDirty;
}

TmaterialTexture::~TmaterialTexture() { purge(); }

unsigned TmaterialTexture::sCycleIndex(int frame, int start, int end, int increment, bool cycling) {
    if (!cycling || increment == 0) return 0;
    long last = std::labs(long(end - start) / increment);
    long i = long(frame - start) / increment;
    return unsigned(std::clamp(i, 0L, last));
}

unsigned short TmaterialTexture::nodeResolution(TdependNode& node) {
    auto own = unconnectedNumber(&node, "resolution");
    if (std::getenv("TOVI_HW_FILE_TEXTURE_RESOLUTION_OVERRIDE") && node.cast(TdnFileTexture::sMetaclass())) {
        auto& file = static_cast<TdnFileTexture&>(*static_cast<TdnFileTexture*>(node.cast(TdnFileTexture::sMetaclass())));
        Tstring name;
        double size = 0;
        if (file.getExactTextureName(name))
            if (auto map = TfilePixelMapCache::theCache().pixelMap(name)) size = std::max(map->width(), map->height());
        if (own) size = std::max(size, *own);
        return clampResolution(size);
    }
    if (own) return clampResolution(*own);
    TscriptCmdResult result;
    if (theCommandEngine().executeCommandWithResult("optionVar -query defaultTextureResolution", result))
        return clampResolution(std::atof(result.value.c_str()));
    return kFallbackResolution;
}

int TmaterialTexture::getFilterLevel(TdependNode& node) { return intValue(&node, "textureFilter", 1000); }

TglTextureObject* TmaterialTexture::getTexture(const TevaluateTextureInfo& info) {
    switch (fKind) {
        case kFile:
            if (!computeFile(info, false)) return nullptr;
            return textureObject(sCycleIndex(intValue(fNode, "frameExtension", 1), intValue(fNode, "startCycleExtension", 1),
                                             intValue(fNode, "endCycleExtension", 1), intValue(fNode, "byCycleIncrement", 1),
                                             fFlags & kCycling));
        case kSwatch:
            if ((fFlags & kSwatchDirty) && !fsDisableTextureCompute && !computeSwatch(info)) return nullptr;
            return textureObject(0);
        case kConvertSolid: {
            const std::string object = info.path.fullPathName();
            if ((fFlags & kSwatchDirty) && !fsDisableTextureCompute) fObjects.clear(), fConvertedFor.clear(), fFlags &= ~kSwatchDirty;
            auto at = std::find(fConvertedFor.begin(), fConvertedFor.end(), object);
            if (at == fConvertedFor.end()) {
                if (fsDisableTextureCompute || !computeConvertSolid(info)) return nullptr;
                at = fConvertedFor.end() - 1;
            }
            return textureObject(unsigned(at - fConvertedFor.begin()));
        }
        case kSwitch: {
            // The element whose shape is the object drawn, else its nearest
            // transform's, else the default: the renderer's choice.
            TmaterialTexture* chosen = nullptr;
            const std::vector<TdagNode*>& nodes = info.path.nodes();
            for (auto node = nodes.rbegin(); node != nodes.rend() && !chosen; ++node)
                for (size_t k = 0; k < fChildren.size() && !chosen; ++k)
                    if (fChildShapes[k] == *node) chosen = fChildren[k].get();
            for (size_t k = 0; k < fChildren.size() && !chosen; ++k)
                if (fChildElements[k] < 0) chosen = fChildren[k].get();
            return chosen ? chosen->getTexture(info) : nullptr;
        }
        case kLayered:
            if ((fFlags & kSwatchDirty) && !fsDisableTextureCompute && !computeLayered(info)) return nullptr;
            return fObjects.empty() ? nullptr : fObjects.front().get();
        case kCubeMap:
            if ((fFlags & kSwatchDirty) && !fsDisableTextureCompute && !computeCubeMap(info)) return nullptr;
            return textureObject(0);
        case kSphereMap:
            if ((fFlags & kSwatchDirty) && !fsDisableTextureCompute && !computeSphereMap(info)) return nullptr;
            return textureObject(0);
    }
    return nullptr;
}

bool TmaterialTexture::computeConvertSolid(const TevaluateTextureInfo& info) {
    if (!fNode || !info.surface) return false;
    const Tattribute* outColor = fPlug.attribute();
    if (!outColor || outColor->size() != sizeof(T3Float)) return false;
    const unsigned size = nodeResolution(*fNode);
    std::vector<TsurfaceTexel> texels;
    info.surface(size, texels);
    if (texels.size() != size_t(size) * size) return false;
    // The texture reads the surface through these, as a render sets them;
    // what the node holds is put back afterwards.
    struct Tinput {
        const Tattribute* attribute;
        std::vector<char> saved;
    };
    std::vector<Tinput> inputs;
    TbakeScope baking;
    for (const char* name :
         {"refPointObj", "pointObj", "refPointCamera", "pointCamera", "normalCamera", "matrixEyeToWorld", "xPixelAngle"}) {
        const Tattribute* a = fNode->attribute(Tstring(name));
        if (!a || isConnectedInput(fNode, name)) continue;
        Tinput in{a, std::vector<char>(a->size())};
        fNode->getAttributeValue(a, in.saved.data());
        inputs.push_back(std::move(in));
    }
    const TfltMatrix eyeToWorld = convertMatrix<float>(info.eyeToWorld);
    // A texel stands for a patch of surface wider than a pixel of the
    // picture: the texture is filtered to the larger of the two, or a fine
    // pattern aliases in the bake.
    auto texelAngle = [&](size_t i) {
        const TsurfaceTexel& t = texels[i];
        float across = 0;
        for (size_t j : {i + 1, i + size})
            if (j < texels.size() && texels[j].covered) across = std::max(across, length(texels[j].pointCamera - t.pointCamera));
        const float depth = length(t.pointCamera);
        return depth > 0 ? std::max(info.pixelAngle, across / depth) : info.pixelAngle;
    };
    auto set = [&](const Tinput& in, const TsurfaceTexel& t) {
        const std::string& name = in.attribute->longName().str();
        if (name == "matrixEyeToWorld") fNode->setAttributeValue(in.attribute, &eyeToWorld);
        else if (name == "xPixelAngle") {
            const float angle = texelAngle(size_t(&t - texels.data()));
            fNode->setAttributeValue(in.attribute, &angle);
        }
        else if (name == "refPointObj" || name == "pointObj") fNode->setAttributeValue(in.attribute, &t.pointObj);
        else if (name == "normalCamera") fNode->setAttributeValue(in.attribute, &t.normalCamera);
        else fNode->setAttributeValue(in.attribute, &t.pointCamera);
    };
    std::vector<T3Float> colours(texels.size());
    std::vector<char> known(texels.size(), 0);
    for (size_t i = 0; i < texels.size(); ++i) {
        if (!texels[i].covered) continue;
        for (const Tinput& in : inputs) set(in, texels[i]);
        fNode->getAttributeValue(outColor, &colours[i]);
        known[i] = 1;
    }
    for (const Tinput& in : inputs) fNode->setAttributeValue(in.attribute, in.saved.data());
    // Texels no surface reaches take a covered neighbour's colour, so that
    // filtering at a UV seam does not pull in black.
    for (int pass = 0; pass < 2; ++pass) {
        std::vector<char> next = known;
        for (unsigned y = 0; y < size; ++y)
            for (unsigned x = 0; x < size; ++x) {
                const size_t i = size_t(y) * size + x;
                if (known[i]) continue;
                for (auto [dx, dy] : {std::pair{-1, 0}, {1, 0}, {0, -1}, {0, 1}}) {
                    const int nx = int(x) + dx, ny = int(y) + dy;
                    if (nx < 0 || ny < 0 || nx >= int(size) || ny >= int(size) || !known[size_t(ny) * size + unsigned(nx)]) continue;
                    colours[i] = colours[size_t(ny) * size + unsigned(nx)];
                    next[i] = 1;
                    break;
                }
            }
        known.swap(next);
    }
    auto map = std::make_shared<TpixelMap>(int(size), int(size), 3);
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x) {
            const T3Float& c = colours[size_t(y) * size + x];
            uint8_t* p = map->pixel(int(x), int(y));
            p[0] = toByte(c.x), p[1] = toByte(c.y), p[2] = toByte(c.z);
        }
    if (!setTextureObject(std::move(map), unsigned(fObjects.size()))) return false;
    fConvertedFor.push_back(info.path.fullPathName());
    return true;
}

bool TmaterialTexture::addSwitchInput(unsigned element) {
    const Tattribute* input = fNode ? fNode->attribute(Tstring("input")) : nullptr;
    const Tattribute* shape = fNode ? fNode->attribute(Tstring("inShape")) : nullptr;
    if (!input || !shape) return false;
    removeSwitchInput(element);
    // The value is the input's child that is not the shape.
    for (unsigned c = 0; c < input->childCount(); ++c) {
        const Tattribute* value = input->child(c);
        if (value == shape) continue;
        const Tplug* source = fNode->sourceOf(Tplug(fNode, value, int(element)));
        const Tplug* object = fNode->sourceOf(Tplug(fNode, shape, int(element)));
        if (!source) return false;  // a plain colour: the material's own shows
        addChild(std::make_unique<TmaterialTexture>(fOwner, *source), int(element), object ? object->node() : nullptr);
        return true;
    }
    return false;
}

bool TmaterialTexture::removeSwitchInput(unsigned element) {
    for (size_t k = 0; k < fChildren.size(); ++k)
        if (fChildElements[k] == int(element)) {
            fChildren.erase(fChildren.begin() + long(k));
            fChildElements.erase(fChildElements.begin() + long(k));
            fChildShapes.erase(fChildShapes.begin() + long(k));
            return true;
        }
    return false;
}

bool TmaterialTexture::addSwitchDefault() {
    const Tattribute* fallback = fNode ? fNode->attribute(Tstring("default")) : nullptr;
    const Tplug* source = fallback ? fNode->sourceOf(Tplug(fNode, fallback)) : nullptr;
    if (!source) return false;
    addChild(std::make_unique<TmaterialTexture>(fOwner, *source), -1, nullptr);
    return true;
}

void TmaterialTexture::initAsLayeredTexture() {
    fKind = kLayered;
    fChildren.clear(), fChildElements.clear(), fChildShapes.clear();
    TuInt32Array elements;
    fNode->getExistingMultiAttributeIndices(Tplug(fNode, &TdnLayeredTexture::saInputs(), true), elements);
    for (unsigned e = 0; e < elements.length(); ++e) {
        Tplug colour(fNode, &TdnLayeredTexture::saColor(), int(elements[e]));
        const Tplug* source = fNode->sourceOf(colour);
        if (source) addChild(std::make_unique<TmaterialTexture>(fOwner, *source), int(elements[e]));
    }
    fFlags |= kSwatchDirty;
}

bool TmaterialTexture::computeLayered(const TevaluateTextureInfo& info) {
    if (!fNode || !fNode->cast(TdnLayeredTexture::sMetaclass())) return false;
    struct Tlayer {
        TpixelMap image;  // empty: the colour
        T3Float colour;
        float alpha = 1;
        short mode = 0;
    };
    std::vector<Tlayer> layers;
    TuInt32Array elements;
    fNode->getExistingMultiAttributeIndices(Tplug(fNode, &TdnLayeredTexture::saInputs(), true), elements);
    for (unsigned e = 0; e < elements.length(); ++e) {
        const unsigned element = elements[e];
        bool visible = true;
        fNode->getAttributeValue(&TdnLayeredTexture::saIsVisible(), &visible, element);
        if (!visible) continue;
        Tlayer layer;
        fNode->getAttributeValue(&TdnLayeredTexture::saAlpha(), &layer.alpha, element);
        fNode->getAttributeValue(&TdnLayeredTexture::saBlendMode(), &layer.mode, element);
        fNode->getAttributeValue(&TdnLayeredTexture::saColor(), &layer.colour, element);
        for (size_t k = 0; k < fChildren.size(); ++k) {
            if (fChildElements[k] != int(element)) continue;
            TglTextureObject* object = fChildren[k]->getTexture(info);
            if (const TpixelMap* image = fChildren[k]->lastImage()) {
                layer.image = *image;
            } else if (object && !object->isCube()) {
                // A shared object keeps no image here: OpenGL has it, bottom row first.
                std::vector<uint8_t> pixels;
                if (object->getTexImage(pixels)) {
                    layer.image.setImage(object->width(), object->height(), object->channels(), pixels.data());
                    layer.image.verticalFlip();
                }
            }
        }
        layers.push_back(std::move(layer));
    }
    const unsigned size = nodeResolution(*fNode);
    auto map = std::make_shared<TpixelMap>(int(size), int(size), 3);
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x) {
            T3Float colour{0, 0, 0};
            float alpha = 0;
            for (auto layer = layers.rbegin(); layer != layers.rend(); ++layer) {
                T3Float c = layer->colour;
                if (!layer->image.isEmpty()) {
                    const TpixelMap& im = layer->image;
                    const uint8_t* p = im.pixel(int(x * unsigned(im.width()) / size), int(y * unsigned(im.height()) / size));
                    const bool grey = im.channels() < 3;
                    c = {p[0] / 255.0f, p[grey ? 0 : 1] / 255.0f, p[grey ? 0 : 2] / 255.0f};
                }
                blendLayer(layer->mode, c, layer->alpha, colour, alpha);
            }
            uint8_t* p = map->pixel(int(x), int(y));
            p[0] = toByte(colour.x), p[1] = toByte(colour.y), p[2] = toByte(colour.z);
        }
    fObjects.clear();
    if (!setTextureObject(std::move(map), 0)) return false;
    fFlags &= ~kSwatchDirty;
    return true;
}

bool TmaterialTexture::computeFile(const TevaluateTextureInfo& info, bool force) {
    bool cycling = intValue(fNode, "useFrameExtension", 0) && intValue(fNode, "useHardwareTextureCycling", 0);
    fFlags = cycling ? (fFlags | kCycling) : (fFlags & ~kCycling);
    unsigned index = sCycleIndex(intValue(fNode, "frameExtension", 1), intValue(fNode, "startCycleExtension", 1),
                                 intValue(fNode, "endCycleExtension", 1), intValue(fNode, "byCycleIncrement", 1), cycling);
    if (fsDisableTextureCompute) return textureObject(index) != nullptr;
    if (fFlags & kDropCache) {
        fFlags &= ~kDropCache;
        fObjects.clear();
    }
    if ((fFlags & kFileDirty) || force) {
        fFlags &= ~kFileDirty;
        for (auto& o : fObjects) o.reset();
    }
    if (index < fObjects.size() && fObjects[index]) return true;
    return computeFileWithIndex(info, index);
}

bool TmaterialTexture::computeFileWithIndex(const TevaluateTextureInfo&, unsigned index) {
    auto* file = static_cast<TdnFileTexture*>(fNode ? fNode->cast(TdnFileTexture::sMetaclass()) : nullptr);
    if (!file) return false;
    bool cycling = intValue(fNode, "useFrameExtension", 0) && intValue(fNode, "useHardwareTextureCycling", 0);
    fFlags = cycling ? (fFlags | kCycling) : (fFlags & ~kCycling);
    Tstring name;
    if (!file->getExactTextureName(name)) return false;
    if (cycling) {
        int start = intValue(fNode, "startCycleExtension", 1), end = intValue(fNode, "endCycleExtension", 1);
        int step = intValue(fNode, "byCycleIncrement", 1);
        if (step == 0) return false;
        unsigned steps = unsigned(std::labs(long(end - start) / step)) + 1;
        setTextureCacheSize(steps);
        int frame = start + step * int(index);
        if ((step > 0 && frame > end) || (step < 0 && frame < end)) return false;
        name = Tstring(TdnFileTexture::sFrameFileName(name.str(), frame));
    }
    Tstring why;
    std::shared_ptr<const TpixelMap> image = readFileImage(name, why);
    if (!image) file->warnCannotRead(name, why);
    if (!image || image->isEmpty()) return false;  // drawn untextured
    auto map = std::make_shared<TpixelMap>(*image);
    computeFileAlpha(*map, isFileAlpha());
    return setTextureObject(std::move(map), index);
}

Tplug TmaterialTexture::transparencySource() const {
    TdependNode* material = fOwner ? fOwner->material() : nullptr;
    if (!material) return {};
    for (const char* input : {"transparency", "outTransparency"}) {
        const Tattribute* a = material->attribute(Tstring(input));
        if (!a) continue;
        const Tplug* s = material->sourceOf(Tplug(material, a));
        for (unsigned i = 0; !s && i < a->childCount(); ++i) s = material->sourceOf(Tplug(material, a->child(i)));
        if (s) return *s;
    }
    return {};
}

bool TmaterialTexture::isFileAlpha() const {
    Tplug source = transparencySource();
    return !source.isNull() && source.node() && source.node()->cast(TdnFileTexture::sMetaclass());
}

bool TmaterialTexture::alphaColorConnectionsDiffer() const {
    Tplug source = transparencySource();
    return !source.isNull() && source.node() != fNode;
}

namespace {
uint8_t luminanceOf(const uint8_t* p, int channels) {
    return channels < 3 ? p[0] : uint8_t((299 * p[0] + 587 * p[1] + 114 * p[2]) / 1000);
}
}  // namespace

void TmaterialTexture::computeFileAlpha(TpixelMap& map, bool keepAlpha) const {
    // Without a use for it, an alpha channel would only make the material
    // draw as transparent.
    if (!keepAlpha) {
        if (map.channels() == 4) map.setChannels(3);
        else if (map.channels() == 2) map.setChannels(1);
        return;
    }
    Tplug source = transparencySource();
    TdependNode* node = source.node();
    std::shared_ptr<const TpixelMap> other;
    const TpixelMap* alphaImage = &map;
    if (node != fNode) {
        // Colour and transparency from different files: the second one's
        // image gives the alpha, sampled at the nearest texel.
        auto* file = static_cast<TdnFileTexture*>(node->cast(TdnFileTexture::sMetaclass()));
        Tstring name;
        if (!file || !file->getExactTextureName(name) || !(other = TfilePixelMapCache::theCache().pixelMap(name))) {
            computeFileAlpha(map, false);
            return;
        }
        alphaImage = other.get();
    }
    // The material's transparency is the file's outTransparency (one minus
    // its alpha: the alpha channel, the luminance when alphaIsLuminance,
    // else opaque) or, through outColor, the colour's luminance itself.
    const bool fromColour = source.attribute() && source.attribute()->rootParent()->longName().str() == "outColor";
    const bool luminanceAlpha = unconnectedNumber(node, "alphaIsLuminance").value_or(0) != 0;
    TpixelMap out(map.width(), map.height(), 4);
    const int c = map.channels(), ac = alphaImage->channels();
    for (int y = 0; y < map.height(); ++y)
        for (int x = 0; x < map.width(); ++x) {
            const uint8_t* p = map.pixel(x, y);
            uint8_t* q = out.pixel(x, y);
            for (int k = 0; k < 3; ++k) q[k] = p[c < 3 ? 0 : k];
            const uint8_t* a = alphaImage->pixel(x * alphaImage->width() / map.width(), y * alphaImage->height() / map.height());
            if (fromColour) q[3] = uint8_t(255 - luminanceOf(a, ac));
            else if (luminanceAlpha) q[3] = luminanceOf(a, ac);
            else q[3] = (ac == 2 || ac == 4) ? a[ac - 1] : 255;
        }
    map = std::move(out);
}

bool TmaterialTexture::setTextureObject(std::shared_ptr<TpixelMap> map, unsigned index) {
    auto* tx = static_cast<TdnTx2D*>(fNode ? fNode->cast(TdnTx2D::sMetaclass()) : nullptr);
    if (tx && fKind == kFile) {
        // Gains and offsets are the file's own colour correction; a baked
        // swatch already has them.
        T3Float gain{1, 1, 1}, offset{0, 0, 0};
        if (auto g = unconnectedColor(fNode, "colorGain")) gain = *g;
        if (auto o = unconnectedColor(fNode, "colorOffset")) offset = *o;
        if (gain.x != 1 || gain.y != 1 || gain.z != 1 || offset.x != 0 || offset.y != 0 || offset.z != 0) {
            int c = map->channels();
            for (int y = 0; y < map->height(); ++y)
                for (int x = 0; x < map->width(); ++x)
                    for (int k = 0; k < std::min(c, 3); ++k) {
                        uint8_t* p = map->pixel(x, y) + k;
                        float g = k == 0 ? gain.x : k == 1 ? gain.y : gain.z;
                        float o = k == 0 ? offset.x : k == 1 ? offset.y : offset.z;
                        *p = toByte(*p / 255.0f * g + o);
                    }
        }
    }
    auto object = std::make_shared<TglTextureObject>();
    ++fUploads;
    if (!object->texImage2D(*map, fNode ? getFilterLevel(*fNode) : 1000)) return false;
    if (index >= fObjects.size()) fObjects.resize(index + 1);
    fObjects[index] = std::move(object);
    fLastImage = std::move(map);
    return true;
}

TdependNode* TmaterialTexture::placementNode() const {
    // The first node upstream whose UV is its own to set: the placement of
    // a texture, or the texture itself without one. Depth first through
    // every input, so a texture behind a colour utility is found too.
    std::vector<TdependNode*> stack{fNode}, seen;
    while (!stack.empty()) {
        TdependNode* node = stack.back();
        stack.pop_back();
        if (!node || std::find(seen.begin(), seen.end(), node) != seen.end()) continue;
        seen.push_back(node);
        if (node->attribute(Tstring("uvCoord")) && !isConnectedInput(node, "uvCoord")) return node;
        std::vector<std::pair<Tplug, Tplug>> incoming;
        node->allIncoming(incoming);
        for (auto it = incoming.rbegin(); it != incoming.rend(); ++it) stack.push_back(it->first.node());
    }
    return nullptr;
}

bool TmaterialTexture::computeSwatch(const TevaluateTextureInfo&) {
    if (!fNode) return false;
    if (auto shared = TmaterialInfo::sFindShared(*this)) {
        fObjects.assign(1, shared);
        fFlags &= ~kSwatchDirty;
        return true;
    }
    const Tattribute* outColor = fPlug.attribute();
    if (!outColor || outColor->size() != sizeof(T3Float)) return false;
    // The pattern is baked as the surface shows it: through the placement
    // when one drives the texture, so that its repeat is in the image. A
    // network that reads no UV is one colour, and two pixels hold it.
    TdependNode* target = placementNode();
    const Tattribute* uvAttribute = target ? target->attribute(Tstring("uvCoord")) : nullptr;
    unsigned size = uvAttribute ? nodeResolution(*fNode) : 2;
    T2Float saved{0, 0};
    TbakeScope baking;
    if (uvAttribute) target->getAttributeValue(uvAttribute, &saved);
    auto map = std::make_shared<TpixelMap>(int(size), int(size), 3);
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x) {
            // Pixel centres; the top row is v = 1.
            T2Float uv{(x + 0.5f) / size, 1 - (y + 0.5f) / size};
            T3Float c{0, 0, 0};
            if (uvAttribute) target->setAttributeValue(uvAttribute, &uv);
            fNode->getAttributeValue(outColor, &c);
            uint8_t* p = map->pixel(int(x), int(y));
            p[0] = toByte(c.x), p[1] = toByte(c.y), p[2] = toByte(c.z);
        }
    if (uvAttribute) target->setAttributeValue(uvAttribute, &saved);
    fObjects.clear();
    if (!setTextureObject(std::move(map), 0)) return false;
    fFlags &= ~kSwatchDirty;
    return true;
}

T3Float TmaterialTexture::sCubeFaceDirection(int face, float s, float t) {
    const float sc = 2 * s - 1, tc = 2 * t - 1;
    switch (face) {
        case 0: return {1, -tc, -sc};
        case 1: return {-1, -tc, sc};
        case 2: return {sc, 1, tc};
        case 3: return {sc, -1, -tc};
        case 4: return {sc, -tc, 1};
        default: return {-sc, -tc, -1};
    }
}

void TmaterialTexture::sCubeFaceView(int face, const T3Float& centre, float view[16]) {
    // The face's axes follow from its directions, so the draw and the
    // lookup cannot disagree about a face's layout.
    const T3Float look = sCubeFaceDirection(face, 0.5f, 0.5f);
    const T3Float right = sCubeFaceDirection(face, 1, 0.5f) - look, up = sCubeFaceDirection(face, 0.5f, 1) - look;
    const T3Float rows[3] = {right, up, look * -1.0f};
    for (int r = 0; r < 3; ++r) {
        view[0 + r] = rows[r].x, view[4 + r] = rows[r].y, view[8 + r] = rows[r].z;
        view[12 + r] = -dot(rows[r], centre);
        view[3 + 4 * r] = 0;
    }
    view[15] = 1;
}

void TmaterialTexture::initAsCubeMap(TcubeMapSource source) {
    fKind = kCubeMap;
    fCubeSource = std::move(source);
    fFlags |= kSwatchDirty;
}

bool TmaterialTexture::computeCubeMap(const TevaluateTextureInfo& info) {
    T3dPort* port = info.port ? info.port : T3dPort::current();
    if (!port || !fCubeSource.draw || fCubeSource.size < 1) return false;
    auto cube = std::make_shared<TglTextureObject>();
    ++fUploads;
    if (!cube->texImageCube(int(fCubeSource.size))) return false;
    // A 90 degree frustum per face; the near plane is small against any
    // scene a viewport shows, the far one beyond it.
    constexpr float kNear = 0.01f, kFar = 1.0e5f;
    const float projection[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -(kFar + kNear) / (kFar - kNear), -1,
                                  0, 0, -2 * kFar * kNear / (kFar - kNear), 0};
    bool ok = true;
    for (int face = 0; face < 6 && ok; ++face) {
        float view[16];
        sCubeFaceView(face, fCubeSource.centre, view);
        ok = port->bindCubeFaceTarget(*cube, face);
        if (ok) fCubeSource.draw(view, projection);
    }
    port->bindTarget();
    if (!ok) return false;
    fObjects.assign(1, std::move(cube));
    fFlags &= ~kSwatchDirty;
    return true;
}

void TmaterialTexture::initAsSphereMap(unsigned size, std::unique_ptr<TmaterialTexture> cube) {
    fKind = kSphereMap;
    fSphereSize = std::max(2u, size);
    fChildren.clear();
    if (cube) fChildren.push_back(std::move(cube));
    fFlags |= kSwatchDirty;
}

bool TmaterialTexture::computeSphereMap(const TevaluateTextureInfo& info) {
    TglTextureObject* cube = fChildren.empty() ? nullptr : fChildren.front()->getTexture(info);
    if (!cube || !cube->isCube()) return false;
    std::vector<float> faces[6];
    for (int f = 0; f < 6; ++f)
        if (!cube->getCubeFace(f, faces[f])) return false;
    const int n = cube->width();
    // The nearest texel of the face a direction leaves the cube through.
    auto lookup = [&](const T3Float& d) {
        const float ax = std::fabs(d.x), ay = std::fabs(d.y), az = std::fabs(d.z);
        int face;
        float sc, tc, m;
        if (ax >= ay && ax >= az) face = d.x > 0 ? 0 : 1, m = ax, sc = d.x > 0 ? -d.z : d.z, tc = -d.y;
        else if (ay >= az) face = d.y > 0 ? 2 : 3, m = ay, sc = d.x, tc = d.y > 0 ? d.z : -d.z;
        else face = d.z > 0 ? 4 : 5, m = az, sc = d.z > 0 ? d.x : -d.x, tc = -d.y;
        const int x = std::clamp(int((sc / m + 1) / 2 * float(n)), 0, n - 1);
        const int y = std::clamp(int((tc / m + 1) / 2 * float(n)), 0, n - 1);
        return &faces[face][(size_t(y) * n + x) * 4];
    };
    const int size = int(fSphereSize);
    auto map = std::make_shared<TpixelMap>(size, size, 3);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            // The ball's normal at the texel; the eye looks down -z, and a
            // texel outside the ball shows what is straight behind it.
            const float nx = 2 * (x + 0.5f) / float(size) - 1, ny = 1 - 2 * (y + 0.5f) / float(size);
            const float r2 = nx * nx + ny * ny;
            T3Float d{0, 0, -1};
            if (r2 <= 1) {
                const float nz = std::sqrt(1 - r2);
                d = {2 * nz * nx, 2 * nz * ny, 2 * nz * nz - 1};
            }
            const float* c = lookup(d);
            uint8_t* p = map->pixel(x, y);
            p[0] = toByte(c[0]), p[1] = toByte(c[1]), p[2] = toByte(c[2]);
        }
    fObjects.clear();
    if (!setTextureObject(std::move(map), 0)) return false;
    fFlags &= ~kSwatchDirty;
    return true;
}

TglTextureObject* TmaterialTexture::textureObject(unsigned i) const {
    if (fKind == kSwitch || fKind == kLayered) {
        for (auto& child : fChildren) {
            unsigned n = child->textureObjectsCount();
            if (i < n) return child->textureObject(i);
            i -= n;
        }
        return nullptr;
    }
    return i < fObjects.size() ? fObjects[i].get() : nullptr;
}

unsigned TmaterialTexture::textureObjectsCount() const {
    if (fKind == kSwitch || fKind == kLayered) {
        unsigned n = 0;
        for (auto& child : fChildren) n += child->textureObjectsCount();
        return n;
    }
    return unsigned(fObjects.size());
}

TglTextureObject* TmaterialTexture::find(const TmaterialTexture& other) const {
    if (&other == this || fKind > kSphereMap) return nullptr;
    if (fKind == kSwatch) {
        if (other.fKind != kSwatch || other.fPlug != fPlug || (fFlags & kSwatchDirty) || fObjects.empty()) return nullptr;
        return fObjects.front().get();
    }
    if (fKind >= kSwitch)
        for (auto& child : fChildren)
            if (TglTextureObject* o = child->find(other)) return o;
    return nullptr;
}

void TmaterialTexture::setDirty() {
    // Every bake (converted solid, layered composite, cube and sphere map)
    // keeps the swatch bit; a switch has nothing of its own.
    if (fKind == kFile) fFlags |= kFileDirty;
    else if (fKind != kSwitch) fFlags |= kSwatchDirty;
    for (auto& child : fChildren) child->setDirty();
}

void TmaterialTexture::dirty(const Tplug& changed) {
    if (changed.isNull()) return;
    const Tstring& name = changed.attribute()->longName();
    // Turning cycling on or off changes the cache's layout, not just its pixels.
    if (fKind == kFile && (name.str() == "useHardwareTextureCycling" || name.str() == "useFrameExtension" ||
                           name.str().find("CycleExtension") != std::string::npos || name.str() == "byCycleIncrement"))
        fFlags |= kDropCache;
    setDirty();
    if (fOwner && T3dPort::fsTexturePort && !fsDisableTextureCompute) fOwner->transformsDirty();
}

bool TmaterialTexture::nodeChanged(const Tplug& changed) {
    TdependNode* node = changed.node();
    if (!node) return false;
    bool childs = false;
    for (auto& child : fChildren) childs |= child->nodeChanged(changed);
    if (childs) {
        // Only the changed layer is made again; the composite is redone.
        if (fKind == kLayered) {
            fFlags |= kSwatchDirty;
            if (fOwner && T3dPort::fsTexturePort && !fsDisableTextureCompute) fOwner->transformsDirty();
        }
        return true;
    }
    bool ours = node == fNode;
    if (!ours && fChildren.empty()) {
        std::vector<TdependNode*> stack{fNode}, seen;
        while (!stack.empty() && !ours) {
            TdependNode* at = stack.back();
            stack.pop_back();
            if (!at || std::find(seen.begin(), seen.end(), at) != seen.end()) continue;
            seen.push_back(at);
            ours = at == node;
            std::vector<std::pair<Tplug, Tplug>> incoming;
            at->allIncoming(incoming);
            for (auto& link : incoming) stack.push_back(link.first.node());
        }
    }
    if (ours) dirty(changed);
    return ours;
}

bool TmaterialTexture::forceToCreateTextureObject(unsigned index) {
    if (fKind != kFile) return textureObject(index) != nullptr;
    if (index < fObjects.size() && fObjects[index]) return true;
    return computeFileWithIndex(TevaluateTextureInfo(), index);
}

void TmaterialTexture::setTextureCacheSize(unsigned size) {
    if (fObjects.size() != size) fObjects.resize(size);
}

bool TmaterialTexture::getDefaultColor(const TdagPath&, T3Float& colour) const {
    auto c = unconnectedColor(fNode, "defaultColor");
    if (c) colour = *c;
    return c.has_value();
}

void TmaterialTexture::purge() {
    fObjects.clear();
    fLastImage.reset();
    for (auto& child : fChildren) child->purge();
}

bool TmaterialTexture::getUvRange(const TdagPath&, float& uMin, float& vMin, float& uMax, float& vMax) const {
    TdependNode* place = fKind == kFile ? fNode : placementNode();
    uMin = vMin = 0, uMax = vMax = 1;
    if (!place) return false;
    float tu = float(unconnectedNumber(place, "translateFrameU").value_or(0));
    float tv = float(unconnectedNumber(place, "translateFrameV").value_or(0));
    float cu = float(unconnectedNumber(place, "coverageU").value_or(1));
    float cv = float(unconnectedNumber(place, "coverageV").value_or(1));
    uMin = tu, vMin = tv, uMax = tu + cu, vMax = tv + cv;
    return true;
}

bool TmaterialTexture::getTextureTransform(const TdagPath&, float& repeatU, float& repeatV, float& offsetU, float& offsetV,
                                           float& rotate) const {
    TdependNode* place = fKind == kFile ? fNode : placementNode();
    repeatU = repeatV = 1, offsetU = offsetV = rotate = 0;
    if (!place) return false;
    repeatU = float(unconnectedNumber(place, "repeatU").value_or(1));
    repeatV = float(unconnectedNumber(place, "repeatV").value_or(1));
    offsetU = float(unconnectedNumber(place, "offsetU").value_or(0));
    offsetV = float(unconnectedNumber(place, "offsetV").value_or(0));
    rotate = float(unconnectedNumber(place, "rotateUV").value_or(0));
    return true;
}
