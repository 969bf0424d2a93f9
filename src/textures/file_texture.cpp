#include "textures/file_texture.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <mutex>

#include "framework/host/command_engine.h"
#include "memory/global_render_cache.h"
#include "memory/render_cache.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/filter_zoom.h"
#include "textures/pyramid/pyramid.h"
#include "textures/pyramid/pyramid_inventory.h"

SN_REGISTER_NODE_CLASS(TdnFileTexture)

namespace {

const TcatalogueEntry kMissingFileTexture2{"s_TrenderNodeStrings.rMissingFileTexture2",
                                           "File texture ^1s has no file name (^2s)"};
const TcatalogueEntry kBadFileTexture{"s_TrenderNodeStrings.rBadFileTexture",
                                      "File texture ^1s cannot read ^2s: ^3s"};
const TcatalogueEntry kDamagedFileTexture{"s_TrenderNodeStrings.rDamagedFileTexture",
                                          "File texture ^1s: ^2s is damaged and parts of it may show wrong: ^3s"};
const TcatalogueEntry kFileTextureTooBig{"s_TrenderNodeStrings.rFileTextureTooBig",
                                         "File texture ^1s: ^2s is larger than 8192 pixels; it is read at a reduced size"};
const TcatalogueEntry kMipmapWithNoise{"s_TfileTextureStrings.rMipmapWithNoise",
                                       "File texture ^1s: the area filter cannot follow noiseUV; its footprint ignores the noise"};

// Images wider or taller than this are read at a reduced size.
constexpr int kLargestSide = 0x2000;
// colour / 255, as the pyramid's bytes are read.
constexpr float kByteToUnit = 0.0039215684f;

// A UV that is NaN, or infinite after overflowing on its way here, names no
// texel: such a sample shades black instead of reading outside the image.
bool isFiniteUv(const T2Float& uv) { return std::isfinite(uv.x) && std::isfinite(uv.y); }

std::atomic<bool> sSwatchMode{false};
std::mutex sSettingsMutex;
TcameraInfoWrapper sCamera;
std::string sSceneDirectory;
// The footprint of the last pixel filtered in a batch. Samples of one pixel
// on one primitive share the footprint, and so the colour. Kept per batch,
// not per thread: what a thread filtered before depends on how tiles fell
// to threads, and a pixel of a tile's margin is shaded in two tiles.
struct TfilterSampleIdentity {
    int32_t primitive = 0;
    int32_t x = 0, y = 0;
    bool operator==(const TfilterSampleIdentity&) const = default;
};
struct TfilterSample {
    TfilterSampleIdentity identity;
    bool valid = false;
    T3Float colour;
    float alpha = 1;
};

// Pyramids take their memory from the render cache, so that its budget and
// eviction count them. The global cache lives as long as the process, as
// pyramids in the inventory may.
void usePyramidsFromRenderCache() {
    static std::once_flag once;
    std::call_once(once, [] {
        TrenderCache* cache = TpyramidInventory::renderCache();
        if (!cache) cache = theGlobalRenderCache();
        if (!cache) return;
        TpyramidInventory::init(cache);
        TpyramidInventory::setAllocator(&cache->asArenaAllocator());
    });
}

bool fileExists(const std::string& path) {
    struct stat s {};
    return ::stat(path.c_str(), &s) == 0 && S_ISREG(s.st_mode);
}

// A block-ordered file that stands beside the image: photo.png → photo.bot.
std::string besideBotName(const std::string& image) {
    std::filesystem::path p(image);
    if (p.extension() == ".bot") return {};
    return p.replace_extension(".bot").string();
}

}  // namespace

TdnVSFileTexture::TdnVSFileTexture() {
    frameExtension.setNativeDefaultData(1.0);
    startCycleExtension.setNativeDefaultData(1.0);
    endCycleExtension.setNativeDefaultData(1.0);
    byCycleIncrement.setNativeDefaultData(1.0);
    byCycleIncrement.setSoftMin(1);
    const char* filters[] = {"Off", "Mipmap", "Box", "Quadratic", "Quartic", "Gaussian"};
    for (short i = 0; i < 6; ++i) filterType.addField(filters[i], filters[i], i);
    filterType.setNativeDefaultData(double(kFilterQuadratic));
    filterWidth.setNativeDefaultData(0.707);
    filterWidth.setSoftMin(0.35);
    filterWidth.setSoftMax(1.05);
    preFilterRadius.setNativeDefaultData(2.0);
    preFilterRadius.setSoftMin(1);
    preFilterRadius.setSoftMax(10);
    miEllipticalMaxMinor.setNativeDefaultData(8.0);
    miEllipticalMaxMinor.setSoftMin(1);
    miEllipticalMaxMinor.setSoftMax(20);
    coverage.setDefault(1, 1);
    repeatUV.setDefault(1, 1);
    doTransform.setNativeDefaultData(1.0);
    wrapU.setNativeDefaultData(1.0);
    wrapV.setNativeDefaultData(1.0);
    blurPixelation.setNativeDefaultData(1.0);
    const char* mappings[] = {"Clamp", "Linear", "Exponential"};
    for (short i = 0; i < 3; ++i) hdrMapping.addField(mappings[i], mappings[i], i);
    hdrMapping.setNativeDefaultData(1.0);
    hdrExposure.setSoftMin(-10);
    hdrExposure.setSoftMax(10);
    for (Tattribute* a : std::initializer_list<Tattribute*>{&vertexCameraOne, &vertexCameraTwo, &vertexCameraThree, &vertexUvOne,
                                                            &vertexUvTwo, &vertexUvThree, &objectType, &rayDepth, &primitiveId,
                                                            &pixelCenter, &infoBits}) {
        a->makeImplicitInput();
        a->setFlag(kAttrHidden, true);
    }
    for (Tattribute* a : std::initializer_list<Tattribute*>{&outSize.whole, &outSize.c0, &outSize.c1, &fileHasAlpha,
                                                            &outTransparency.whole, &outTransparency.c0,
                                                            &outTransparency.c1, &outTransparency.c2})
        a->setFlag(kAttrWritable, false);
}

bool TdnVSFileTexture::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    const std::initializer_list<const Tattribute*> inputs = {
        &fileTextureName, &disableFileLoad, &useFrameExtension, &frameExtension, &frameOffset, &filterType,
        &filterWidth, &useCache, &coverage.whole, &translateFrame.whole, &rotateFrame, &doTransform, &mirrorU,
        &mirrorV, &stagger, &wrapU, &wrapV, &repeatUV.whole, &offset.whole, &rotateUV, &noiseUV.whole,
        &blurPixelation, &vertexCameraOne, &vertexCameraTwo, &vertexCameraThree, &vertexUvOne, &vertexUvTwo,
        &vertexUvThree, &objectType, &rayDepth, &primitiveId, &pixelCenter, &infoBits, &hdrMapping, &hdrExposure};
    TdnVSTx2D::affectsOutputs(m, inputs);
    TdnVSTx2D& base = TdnTx2D::sVsData();
    for (const Tattribute* in : inputs) affects(m, {in}, {&outTransparency.whole});
    affects(m, {&base.uvCoord.whole, &base.uvFilterSize.whole, &base.filter, &base.filterOffset, &base.invert,
                &base.alphaIsLuminance, &base.alphaGain, &base.alphaOffset, &base.colorGain.whole,
                &base.colorOffset.whole, &base.defaultColor.whole},
            {&outTransparency.whole});
    for (const Tattribute* in : std::initializer_list<const Tattribute*>{&fileTextureName, &useFrameExtension, &frameExtension, &frameOffset,
                                 &disableFileLoad})
        affects(m, {in}, {&outSize.whole, &fileHasAlpha});
    return true;
}

TdnFileTexture::~TdnFileTexture() { freePyramids(); }

// ---- settings of the process ----

void TdnFileTexture::setCamera(const TcameraInfoWrapper& camera) {
    std::lock_guard lock(sSettingsMutex);
    sCamera = camera;
}
const TcameraInfoWrapper& TdnFileTexture::camera() { return sCamera; }
void TdnFileTexture::setSceneDirectory(const std::string& directory) {
    std::lock_guard lock(sSettingsMutex);
    sSceneDirectory = directory;
}
void TdnFileTexture::setSwatchMode(bool on) { sSwatchMode = on; }

// ---- names ----

std::string TdnFileTexture::sFrameFileName(const std::string& name, int frame) {
    // The digits are looked for in the file's own name, never in a folder.
    const size_t slash = name.find_last_of('/');
    const size_t start = slash == std::string::npos ? 0 : slash + 1;
    size_t end = name.size();
    while (end > start && !std::isdigit(static_cast<unsigned char>(name[end - 1]))) --end;
    if (end == start) return name;
    size_t begin = end;
    while (begin > start && std::isdigit(static_cast<unsigned char>(name[begin - 1]))) --begin;
    std::string digits = std::to_string(frame < 0 ? -frame : frame);
    const size_t width = end - begin;
    if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
    if (frame < 0) digits.insert(0, 1, '-');
    return name.substr(0, begin) + digits + name.substr(end);
}

bool TdnFileTexture::getRawFileTextureName(Tstring& name) {
    return getAttributeValue(&attrFileTextureName(), &name) && !name.str().empty();
}

bool TdnFileTexture::useFrameExtension() {
    bool on = false;
    getAttributeValue(&attrUseFrameExtension(), &on);
    return on;
}

bool TdnFileTexture::disableFileLoad() {
    bool on = false;
    getAttributeValue(&attrDisableFileLoad(), &on);
    return on;
}

bool TdnFileTexture::getExactTextureName(Tstring& name) {
    Tstring raw;
    if (!getRawFileTextureName(raw)) return false;
    std::string file = raw.str();
    if (useFrameExtension()) {
        int frame = 1, offset = 0;
        getAttributeValue(&attrFrameExtension(), &frame);
        getAttributeValue(&attrFrameOffset(), &offset);
        file = sFrameFileName(file, frame + offset);
    }
    std::string directory;
    {
        std::lock_guard lock(sSettingsMutex);
        directory = sSceneDirectory;
    }
    if (!directory.empty() && !file.empty() && file[0] != '/') file = (std::filesystem::path(directory) / file).string();
    name = Tstring(file);
    return true;
}

bool TdnFileTexture::fileHasAlpha() const { return fPyramid && fPyramid->channels() == 4; }
bool TdnFileTexture::hasBOTFile() const { return fPyramid && fPyramid->isBOTfile(); }

// ---- bump ----

void TdnFileTexture::getBumpValues(const Tpyramid& pyramid, const T2Float& uv, const T2Float& filterSize,
                                   T2Float points[3]) {
    const float du = std::max(filterSize.x, 1.0f / float(pyramid.width()));
    const float dv = std::max(filterSize.y, 1.0f / float(pyramid.height()));
    points[0] = uv;
    points[1] = {uv.x + du, uv.y};
    points[2] = {uv.x, uv.y + dv};
}

float TdnFileTexture::getBumpHeight(const TfileTextureWrapper& w, const T2Float& uv, float width) {
    Tpyramid& p = *w.pyramid;
    // The level whose texels are about as wide as the filter.
    int level = p.getMaxLevel();
    while (level > 0 && float(p.levelWidth(level)) * width > 1.0f) --level;
    const float sx = 1.0f / float(p.levelWidth(level)), sy = 1.0f / float(p.levelHeight(level));
    // A tent of half-texel steps: weights 1 2 1 by 1 2 1 over bilinear reads.
    float sum = 0.0f;
    for (int j = -1; j <= 1; ++j)
        for (int i = -1; i <= 1; ++i) {
            const float weight = float((2 - std::abs(i)) * (2 - std::abs(j)));
            const float u = uv.x + 0.5f * float(i) * sx, v = uv.y + 0.5f * float(j) * sy;
            if (p.channels() == 1) {
                sum += weight * p.levelVal(w, level, u, v);
            } else {
                T3Float c;
                float a;
                p.levelCol(w, level, u, v, c, a);
                sum += weight * luminance(c);
            }
        }
    return sum / (16.0f * 255.0f);
}

// ---- messages ----

void TdnFileTexture::displayOnce(TstringId id, std::initializer_list<Tstring> args) {
    std::string seen = id.key;
    for (const Tstring& a : args) seen += '\n' + a.str();
    if (std::find(fShown.begin(), fShown.end(), seen) != fShown.end()) return;
    fShown.push_back(seen);
    theCommandEngine().displayWarning(id, args);
}

void TdnFileTexture::warnCannotRead(const Tstring& file, const Tstring& why) { displayOnce(kBadFileTexture, {name(), file, why}); }

// ---- life cycle ----

void TdnFileTexture::freePyramids() {
    // The inventory keeps the pyramid for other nodes and later renders;
    // the node only lets go of it.
    fPyramid = nullptr;
    fPyramidFile.clear();
}

bool TdnFileTexture::initTexture(Tplug&, TdataBlock&) {
    const Tstring nodeName = name();
    Tstring exact;
    if (!getExactTextureName(exact)) {
        freePyramids();
        if (useFrameExtension()) {
            int frame = 1;
            getAttributeValue(&attrFrameExtension(), &frame);
            displayOnce(kMissingFileTexture2, {nodeName, Tstring("frame " + std::to_string(frame))});
        } else {
            displayOnce(kMissingFileTexture2, {nodeName, Tstring("no file")});
        }
        return false;
    }
    if (fPyramid && fPyramidFile != exact.str()) freePyramids();

    const bool swatch = sSwatchMode;
    short mappingValue = 1;
    float exposure = 0;
    getAttributeValue(&attrHdrMapping(), &mappingValue);
    getAttributeValue(&attrHdrExposure(), &exposure);
    const ThdrMapping mapping = ThdrMapping(std::clamp<short>(mappingValue, 0, 2));
    Tstring id = Tpyramid::getUniqueIdentifier(exact, swatch, false, 0);
    if (mapping != ThdrMapping::kLinear || exposure != 0.0f)
        id = Tstring(id.str() + "__" + ThdrExposure::mappingName(mapping) + std::to_string(exposure));

    TpyramidInventory::TfindResult found = TpyramidInventory::findPyramid(id, swatch);
    if (found.found()) {
        fPyramid = found.pyramid;
        fPyramidFile = exact.str();
        fPyramid->setNeeded();
        return true;
    }
    if (disableFileLoad()) return false;
    usePyramidsFromRenderCache();

    Tpyramid* pyramid = nullptr;
    // A block-ordered file in place of the image, or beside it.
    const std::string beside = besideBotName(exact.str());
    Tstring botWhy;
    if (!beside.empty() && fileExists(beside)) {
        pyramid = Tpyramid::openBOT(Tstring(beside), swatch, id, &botWhy);
        // A damaged file beside the image is passed over for the image.
        if (!pyramid && !botWhy.isEmpty()) displayOnce(kBadFileTexture, {nodeName, Tstring(beside), botWhy});
    }
    if (!pyramid) {
        botWhy = Tstring();
        pyramid = Tpyramid::openBOT(exact, swatch, id, &botWhy);
        if (!pyramid && !botWhy.isEmpty()) {
            displayOnce(kBadFileTexture, {nodeName, exact, botWhy});
            return false;
        }
    }
    if (!pyramid) {
        TpixelMap map;
        Tstring why, damage;
        if (!TfilePixelMapCache::loadIMFPixelMap(exact, map, why, mapping, exposure, &damage)) {
            displayOnce(kBadFileTexture, {nodeName, exact, why});
            return false;
        }
        if (!damage.isEmpty()) displayOnce(kDamagedFileTexture, {nodeName, exact, damage});
        if (map.width() > kLargestSide || map.height() > kLargestSide) {
            displayOnce(kFileTextureTooBig, {nodeName, exact});
            // The reduced read: the whole image, scaled to fit, aspect kept.
            const double s = double(kLargestSide) / std::max(map.width(), map.height());
            const int w = std::max(1, int(map.width() * s)), h = std::max(1, int(map.height() * s));
            TpixelMap reduced(w, h, map.channels());
            filterZoom(map.channels(), map.width(), map.height(), w, h, map.pixels(), reduced.pixels());
            map = std::move(reduced);
        }
        const short rows = TfileTextureCache::kThreadRows;
        if (swatch)
            pyramid = new TpyramidSwatch(id, exact, map.width(), map.height(), map.channels(), rows, false);
        else
            pyramid = new TpyramidNonSwatch(id, exact, map.width(), map.height(), map.channels(), rows, false);
        if (!pyramid->buildPyramidFromPixelMap(map)) {
            delete pyramid;
            displayOnce(kBadFileTexture, {nodeName, exact, Tstring("out of memory for its pyramid")});
            return false;
        }
        bool useCache = false;
        getAttributeValue(&attrUseCache(), &useCache);
        // A failed conversion warns by itself and leaves the pyramid in memory.
        if (useCache && !swatch) static_cast<TpyramidNonSwatch*>(pyramid)->remapPyramidToBlocks(nullptr, false);
    }
    TpyramidInventory::registerPyramid(pyramid, found);
    pyramid->resetCacheFlags(TfileTextureCache::kThreadRows);
    pyramid->setNeeded();
    fPyramid = pyramid;
    fPyramidFile = exact.str();
    return true;
}

void TdnFileTexture::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TdnTx2D::shadingNodeOnDemand(plug, block);
    initTexture(plug, block);
    short kind = kFilterQuadratic;
    float width = 0.707f;
    getAttributeValue(&attrFilterType(), &kind);
    getAttributeValue(&attrFilterWidth(), &width);
    fFilterKind = std::clamp<int>(kind, kFilterOff, kFilterGaussian);
    fFilter = makeFilterRecord(fFilterKind, width);
    settleUvSource();
    if (isAreaFilter(fFilterKind)) {
        T2Float noise{0, 0};
        getAttributeValue(&attrNoiseUV(), &noise);
        if (noise.x != 0.0f || noise.y != 0.0f) displayOnce(kMipmapWithNoise, {name()});
    }
}

void TdnFileTexture::settleUvSource() {
    fFootprintKnown = true;
    fUvStretch = {1, 1};
    // Follow uvCoord up a chain of placements to the sample's own UV.
    TdependNode* node = this;
    const Tattribute* input = &saUvCoord();
    for (int hops = 0; hops < 64; ++hops) {
        Tplug plug(node, input);
        const Tplug* source = node->sourceOf(plug);
        if (!source) {
            // A u or v fed apart from the other is no placement we know.
            if (plug.isChildDestination()) fFootprintKnown = false;
            return;
        }
        auto* place = dynamic_cast<TdnPlace2dTx*>(source->node());
        if (!place || source->attribute() != &TdnPlace2dTx::saOutUV() || place->placementDriven()) break;
        const Tplace2dParams p = place->params();
        if (TdnPlace2dTx::computeDoTransform(p)) {
            const T2Float s = TdnPlace2dTx::sStretch(p);
            fUvStretch = {fUvStretch.x * s.x, fUvStretch.y * s.y};
        }
        node = place;
        input = &TdnPlace2dTx::saUvCoord();
    }
    fFootprintKnown = false;
}

Tplace2dParams TdnFileTexture::placement(TdataBlock& block) {
    Tplace2dParams p;
    p.coverage = block.inputValue(attrCoverage()).asFloat2();
    p.translate = block.inputValue(attrTranslateFrame()).asFloat2();
    p.repeat = block.inputValue(attrRepeatUV()).asFloat2();
    p.offset = block.inputValue(attrOffset()).asFloat2();
    p.noise = block.inputValue(attrNoiseUV()).asFloat2();
    p.rotateFrame = block.inputValue(attrRotateFrame()).as<double>();
    p.rotateUV = block.inputValue(attrRotateUV()).as<double>();
    p.mirrorU = block.inputValue(attrMirrorU()).asBool();
    p.mirrorV = block.inputValue(attrMirrorV()).asBool();
    p.stagger = block.inputValue(attrStagger()).asBool();
    p.wrapU = block.inputValue(attrWrapU()).asBool();
    p.wrapV = block.inputValue(attrWrapV()).asBool();
    return p;
}

// ---- compute ----

bool TdnFileTexture::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute();
    const Tattribute* root = a ? a->rootParent() : nullptr;
    const bool transparency = root == &saOutTransparency();
    if (root == &saOutSize() || a == &saFileHasAlpha()) {
        TdataHandle size = block.outputValue(saOutSize(), first, count);
        TdataHandle hasAlpha = block.outputValue(saFileHasAlpha(), first, count);
        const T2Float s = fPyramid ? T2Float{float(fPyramid->originalWidth()), float(fPyramid->originalHeight())}
                                   : T2Float{0, 0};
        for (unsigned i = first; i < first + count; ++i) {
            size.asFloat2(i) = s;
            hasAlpha.asBool(i) = fileHasAlpha();
        }
        block.setClean(saOutSize());
        block.setClean(saFileHasAlpha());
        return true;
    }
    if (!isColorOutput(plug) && !transparency) return TdnTx2D::vectorComputePlug(plug, block, first, count);

    TdataHandle outColor = block.outputValue(saOutColor(), first, count);
    TdataHandle outAlpha = block.outputValue(saOutAlpha(), first, count);
    TdataHandle outTransparency = block.outputValue(saOutTransparency(), first, count);
    auto finish = [&] {
        block.setClean(saOutColor());
        block.setClean(saOutAlpha());
        block.setClean(saOutTransparency());
        return true;
    };
    if (!fPyramid) {
        for (unsigned i = first; i < first + count; ++i) {
            outColor.asFloat3(i) = T3Float(0, 0, 0);
            outAlpha.asFloat(i) = 1.0f;
            outTransparency.asFloat3(i) = T3Float(0, 0, 0);
        }
        return finish();
    }

    TdataHandle uvIn = block.inputValue(saUvCoord(), first, count);
    TdataHandle sizeIn = block.inputValue(saUvFilterSize(), first, count);
    TdataHandle filterIn = block.inputValue(saFilter(), first, count);
    TdataHandle offsetIn = block.inputValue(saFilterOffset(), first, count);
    TdataHandle fallback = block.inputValue(saDefaultColor(), first, count);
    TdataHandle depth = block.inputValue(attrRayDepth(), first, count);
    TdataHandle type = block.inputValue(attrObjectType(), first, count);
    TdataHandle primitive = block.inputValue(attrPrimitiveId(), first, count);
    TdataHandle pixel = block.inputValue(attrPixelCenter(), first, count);
    TdataHandle info = block.inputValue(attrInfoBits(), first, count);
    TdataHandle vc[3] = {block.inputValue(attrVertexCameraOne(), first, count),
                         block.inputValue(attrVertexCameraTwo(), first, count),
                         block.inputValue(attrVertexCameraThree(), first, count)};
    TdataHandle vt[3] = {block.inputValue(attrVertexUvOne(), first, count),
                         block.inputValue(attrVertexUvTwo(), first, count),
                         block.inputValue(attrVertexUvThree(), first, count)};
    TdataHandle blur = block.inputValue(attrBlurPixelation(), first, count);
    Ttx2dEffects effects(block, first, count, this);

    // The node's own placement, read once for the batch: its settings are
    // attributes of the node, not per-sample values.
    const bool transform = block.inputValue(attrDoTransform()).asBool();
    const Tplace2dParams place = placement(block);
    const bool placed = transform && TdnPlace2dTx::computeDoTransform(place);
    // How far the placement carries a step of UV, for the footprint: the
    // same for every sample of the batch.
    const T2Float stretch = placed ? TdnPlace2dTx::sStretch(place) : T2Float{1, 1};

    TfileTextureWrapper w;
    w.pyramid = fPyramid;
    w.cache = &TfileTextureCache::threadCache();
    w.wrapU = place.wrapU;
    w.wrapV = place.wrapV;
    w.noFilter = fFilterKind == kFilterOff;
    const TcameraInfoWrapper& cam = sCamera;
    TfilterSample previous;
    const int channels = fPyramid->channels();

    for (unsigned i = first; i < first + count; ++i) {
        T2Float uv = uvIn.asFloat2(i);
        T3Float colour;
        float alpha = 1.0f;
        if (isOutsideUv(uv)) {
            colour = fallback.asFloat3(i);
            alpha = luminance(colour);
        } else if (!isFiniteUv(uv)) {
            colour = T3Float(0, 0, 0);
            alpha = 1.0f;
        } else {
            if (placed) {
                float u, v;
                TdnPlace2dTx::sMapUV(place, uv.x, uv.y, u, v);
                uv = {u, v};
            }
            if (isOutsideUv(uv)) {
                colour = fallback.asFloat3(i);
                alpha = luminance(colour);
            } else {
                uv = {wrapToUnit(uv.x), wrapToUnit(uv.y)};
                const T2Float fs = sizeIn.asFloat2(i);
                const float width =
                    filteredSize(T2Float{fs.x * stretch.x, fs.y * stretch.y}, filterIn.asFloat(i), offsetIn.asFloat(i));
                const bool bump = (uint32_t(info.asInt(i)) & 1u) != 0;
                bool done = false;
                if (isAreaFilter(fFilterKind) && fFootprintKnown && !bump && depth.asInt(i) < 1 &&
                    type.as<char>(i) == kPolygonSurface) {
                    const T2Float pc = pixel.asFloat2(i);
                    const TfilterSampleIdentity id{primitive.asInt(i), int32_t(std::floor(pc.x)), int32_t(std::floor(pc.y))};
                    if (previous.valid && previous.identity == id) {
                        colour = previous.colour;
                        alpha = previous.alpha;
                        done = true;
                    } else {
                        TfootprintQuery q;
                        for (int k = 0; k < 3; ++k) {
                            q.triangle.camera[k] = vc[k].asFloat3(i);
                            q.triangle.uv[k] = vt[k].asFloat2(i);
                        }
                        q.uv = uv;
                        q.uvScale = {stretch.x * fUvStretch.x, stretch.y * fUvStretch.y};
                        q.pixelCenter = pc;
                        q.filter = std::max(0.0f, filterIn.asFloat(i));
                        q.filterOffset = offsetIn.asFloat(i);
                        q.blurPixelation = blur.asBool(i);
                        done = filterFootprint(w, fFilter, cam, q, colour, alpha) == TfootprintResult::kFiltered;
                        previous.identity = id;
                        previous.valid = done;
                        if (done) {
                            previous.colour = colour;
                            previous.alpha = alpha;
                        }
                    }
                }
                if (!done) fPyramid->getMapColor(w, uv.x, uv.y, colour, false, alpha, width);
                colour = colour * kByteToUnit;

                // A grey image's alpha is its value; a colour image without
                // alpha is opaque, so that a photo used as a surface does not
                // turn see-through where it is dark.
                if (channels == 1 || effects.alphaIsLuminance.asBool(i)) alpha = luminance(colour);
                else if (channels == 3) alpha = 1.0f;
                // A bump reads the height from outAlpha.
                if (bump) alpha = getBumpHeight(w, uv, width);
            }
        }
        effects.apply(i, colour, alpha);
        outColor.asFloat3(i) = colour;
        outAlpha.asFloat(i) = alpha;
        outTransparency.asFloat3(i) = T3Float(1.0f - alpha, 1.0f - alpha, 1.0f - alpha);
    }
    return finish();
}
