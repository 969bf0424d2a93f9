#include "lights/shadow_map.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "framework/host/command_engine.h"
#include "lights/depth_map_file.h"
#include "memory/global_render_cache.h"
#include "memory/render_cache.h"

namespace {
const TcatalogueEntry kNotFindShadowMap{"s_TuseShadowMapStrings.rNotFindShadowMap", "Cannot find the shadow map ^1s"};
const TcatalogueEntry kCallbackShadowMap{"s_TuseShadowMapStrings.rCallbackShadowMap",
                                         "Calling the shadow map macro to make it: ^1s"};
const TcatalogueEntry kCallbackShadowMapFail{"s_TuseShadowMapStrings.rCallbackShadowMapFail",
                                             "The shadow map macro failed: ^1s"};
const TcatalogueEntry kFailedOpenShadowMap{"s_TuseShadowMapStrings.rFailedOpenShadowMap",
                                           "Cannot open the shadow map ^1s as a depth image"};
const TcatalogueEntry kNotLoadShadowMap{"s_TuseShadowMapStrings.rNotLoadShadowMap",
                                        "The shadow map ^1s is not loaded; the light renders without it"};
const TcatalogueEntry kReadingShadowMap{"s_TuseShadowMapStrings.rReadingShadowMap", "Reading shadow map ^1s"};
const TcatalogueEntry kResolutionShadowMap{"s_TuseShadowMapStrings.rResolutionShadowMap",
                                           "The shadow map ^1s is ^2s texels square, but the light asks for ^3s"};
const TcatalogueEntry kReuseShadowMap{"s_TuseShadowMapStrings.rReuseShadowMap",
                                      "The shadow map ^1s cannot be reused; the light renders without it"};
const TcatalogueEntry kZbufferShadowMap{"s_TuseShadowMapStrings.rZbufferShadowMap",
                                        "Cannot convert the shadow map ^1s to depths"};
const TcatalogueEntry kResolution2ShadowMap{"s_TuseShadowMapStrings.rResolution2ShadowMap",
                                            "The mid-distance map ^1s is ^2s texels square, but the light asks for ^3s"};
const TcatalogueEntry kNotLoad2ShadowMap{"s_TuseShadowMapStrings.rNotLoad2ShadowMap",
                                         "The mid-distance map ^1s is not loaded; the light renders without it"};
const TcatalogueEntry kWriteShadowMap{"s_TuseShadowMapStrings.rWriteShadowMap", "Cannot write the shadow map ^1s: ^2s"};

// Differences at most this large mean "the same value again".
constexpr double kRepeatThreshold = 1e-7;
constexpr int kMaxRun = 127;
constexpr int kRepeatFlag = 128;
// Taps of the held-band set of one sampleShadow call.
constexpr int kMaxHeld = 16;

bool sameBits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// What the decoder makes of one step of a repeat run.
float repeatStep(float previous, float d) { return std::fabs(double(d)) > kRepeatThreshold ? previous + d : previous; }

void putFloat(unsigned char* out, float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    for (int i = 0; i < 4; ++i) out[i] = uint8_t(bits >> (8 * i));
}
float getFloat(const unsigned char* in) {
    uint32_t bits = uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
    float v;
    std::memcpy(&v, &bits, 4);
    return v;
}

// Render-cache storage by name; the name shows in the cache's trace.
void* mmapAlloc(TrenderCache& cache, size_t size, const char* name) {
    void* p = size <= 0xFFFFFFFFu ? cache.allocate(unsigned(size)) : nullptr;
    if (TrenderCache::sTraceEnabled()) std::fprintf(stderr, "TuseShadowMap: %zu bytes for \"%s\" at %p\n", size, name, p);
    return p;
}
void mmapFree(TrenderCache& cache, void* p) {
    if (p) cache.deallocate(p);
}

// A load buffer in the render cache, given back when it goes.
class TcacheBuffer {
public:
    TcacheBuffer(TrenderCache& cache, size_t count, const char* name)
        : fCache(cache), fData(static_cast<float*>(mmapAlloc(cache, count * sizeof(float), name))) {}
    ~TcacheBuffer() { mmapFree(fCache, fData); }
    TcacheBuffer(const TcacheBuffer&) = delete;
    TcacheBuffer& operator=(const TcacheBuffer&) = delete;
    float* data() const { return fData; }

private:
    TrenderCache& fCache;
    float* fData;
};

TrenderCache& cacheOrGlobal(TrenderCache* cache) {
    if (cache) return *cache;
    static std::unique_ptr<TrenderCache> privateCache;
    return *globalOrPrivateRenderCache(privateCache);
}

Tmatrix frame(const T3Float& origin, const T3Float& axis, const T3Float& up) {
    // The view looks down its -Z: +Z points back against the axis.
    T3Float z = normalize(axis) * -1.0f;
    T3Float x = cross(up, z);
    if (dot(x, x) < 1e-12f) x = cross(std::fabs(z.y) < 0.9f ? T3Float(0, 1, 0) : T3Float(1, 0, 0), z);
    x = normalize(x);
    T3Float y = cross(z, x);
    Tmatrix m;
    const T3Float rows[4] = {x, y, z, origin};
    for (int i = 0; i < 4; ++i) {
        m.m[i][0] = rows[i].x, m.m[i][1] = rows[i].y, m.m[i][2] = rows[i].z;
        m.m[i][3] = i == 3 ? 1 : 0;
    }
    return m;
}
}  // namespace

// ---------------------------------------------------------------- views

TshadowMapView TshadowMapView::sPerspective(const T3Float& position, const T3Float& axis, const T3Float& up, float halfAngleTangent,
                                            int resolution, float nearClip, float farClip) {
    TshadowMapView v;
    v.worldToView = frame(position, axis, up).inverse();
    v.halfWidth = halfAngleTangent;
    v.resolution = resolution;
    v.nearClip = nearClip;
    v.farClip = farClip;
    return v;
}

TshadowMapView TshadowMapView::sOrthographic(const T3Float& origin, const T3Float& axis, const T3Float& up, float halfWidth,
                                             int resolution, float nearClip, float farClip) {
    TshadowMapView v = sPerspective(origin, axis, up, halfWidth, resolution, nearClip, farClip);
    v.orthographic = true;
    return v;
}

void TshadowMapView::texelRay(const Tmatrix& viewToWorld, int column, int row, T3Float& origin, T3Float& direction) const {
    float x = (2.0f * (float(column) + 0.5f) / float(resolution) - 1.0f) * halfWidth;
    float y = (1.0f - 2.0f * (float(row) + 0.5f) / float(resolution)) * halfWidth;
    if (orthographic) {
        origin = viewToWorld.transformPoint({x, y, 0});
        direction = normalize(viewToWorld.transformVector({0, 0, -1}));
    } else {
        origin = viewToWorld.transformPoint({0, 0, 0});
        direction = normalize(viewToWorld.transformVector({x, y, -1}));
    }
}

void TworldBox::add(const T3Float& p) {
    min = {std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z)};
    max = {std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z)};
}

// ---------------------------------------------------------------- bands

// A band of rows of one map: compressed in the render cache for the whole
// render, decompressed while the tile cache holds it.
class TdepthMapTile : public TcacheProxy {
public:
    TdepthMapTile(TrenderCache& cache, unsigned char* compressed, int bytes, int count)
        : fCache(cache), fCompressed(compressed), fBytes(bytes), fCount(count) {}
    ~TdepthMapTile() override { release(); }

    int enterCache(void*) override {
        fValues = static_cast<float*>(mmapAlloc(fCache, size_t(fCount) * sizeof(float), "depth map tile"));
        if (!fValues) return -1;
        TuseShadowMap::floatArrayUncompressConvertFromDiff(fCompressed, fCount, fValues);
        return 0;
    }
    int leaveCache(void*) override {
        mmapFree(fCache, fValues);
        fValues = nullptr;
        return 0;
    }
    void release() {
        fCache.removeProxy(*this);
        mmapFree(fCache, fValues);
        fValues = nullptr;
        mmapFree(fCache, fCompressed);
        fCompressed = nullptr;
    }
    const float* values() const { return fValues; }
    int bytes() const { return fBytes; }
    TrenderCache& cache() const { return fCache; }

private:
    TrenderCache& fCache;
    unsigned char* fCompressed;
    int fBytes, fCount;
    float* fValues = nullptr;
};

TshadowMapInfo::TshadowMapInfo() = default;
TshadowMapInfo::~TshadowMapInfo() { releaseFLC(); }

void TshadowMapInfo::releaseFLC() {
    for (auto& tile : tiles) tile->release();
    tiles.clear();
}

// ---------------------------------------------------------------- TuseShadowMap

TuseShadowMap::TuseShadowMap(bool directional, const T3Float& lightPosition, TrenderCache* cache)
    : fDirectional(directional), fLightPosition(lightPosition), fCache(&cacheOrGlobal(cache)), fMaps(std::make_shared<Tmaps>()) {}

TuseShadowMap::~TuseShadowMap() = default;

void TuseShadowMap::setWorldToCamera(const Tmatrix& worldToCamera) {
    fCameraToWorld = worldToCamera.inverse();
    for (auto& m : *fMaps) m->cameraToView = convertMatrix<float>(fCameraToWorld * m->view.worldToView);
}

bool TuseShadowMap::initMap(const TshadowMapView& view, const float* depth) {
    auto info = std::make_unique<TshadowMapInfo>();
    info->view = view;
    info->cameraToView = convertMatrix<float>(fCameraToWorld * view.worldToView);
    info->texelsPerUnit = float(view.resolution) / (2.0f * view.halfWidth);
    info->tileRows = kTileRows;
    const int res = view.resolution;
    std::vector<unsigned char> scratch(size_t(sMaxCompressedSize(res * kTileRows)));
    for (int row = 0; row < res; row += kTileRows) {
        int count = std::min(kTileRows, res - row) * res;
        int bytes = floatArrayCompress(depth + size_t(row) * size_t(res), count, scratch.data());
        auto* stored = static_cast<unsigned char*>(mmapAlloc(*fCache, size_t(bytes), "loaded depth map"));
        if (!stored) return false;
        std::memcpy(stored, scratch.data(), size_t(bytes));
        info->tiles.push_back(std::make_unique<TdepthMapTile>(*fCache, stored, bytes, count));
    }
    fMaps->push_back(std::move(info));
    // Room for the whole map decompressed beside what the cache holds: below
    // that, bands would push each other out on every lookup. The cap only rises.
    const uint64_t wanted = uint64_t(fCache->allocatedMemory()) + uint64_t(res) * uint64_t(res) * sizeof(float);
    fCache->setMaximumMemorySize(unsigned(std::min<uint64_t>(wanted, 0xFFFFFFFFu)));
    return true;
}

bool TuseShadowMap::depthBuffer(int mapIndex, float* depth) const {
    if (mapIndex < 0 || mapIndex >= mapCount()) return false;
    const TshadowMapInfo& info = map(mapIndex);
    const int res = info.view.resolution;
    for (size_t t = 0; t < info.tiles.size(); ++t) {
        TdepthMapTile& tile = *info.tiles[t];
        if (fCache->lock(tile) != 0) return false;
        int rows = std::min(info.tileRows, res - int(t) * info.tileRows);
        std::memcpy(depth + t * size_t(info.tileRows) * size_t(res), tile.values(), size_t(rows) * size_t(res) * sizeof(float));
        fCache->unlock(tile);
    }
    return true;
}

size_t TuseShadowMap::compressedBytes() const {
    size_t sum = 0;
    for (const auto& m : *fMaps)
        for (const auto& t : m->tiles) sum += size_t(t->bytes());
    return sum;
}

bool TuseShadowMap::projectPointCheckBounds(const T3Float* point, const TshadowMapInfo* info, TmapValues& values) {
    const TshadowMapView& v = info->view;
    T3Float p = info->cameraToView.transformPoint(*point);
    values.depth = -p.z;
    float scale = 0.5f * float(v.resolution) / v.halfWidth;
    if (!v.orthographic) {
        if (values.depth <= 0) return false;
        scale /= values.depth;
    }
    float half = 0.5f * float(v.resolution);
    values.column = half + p.x * scale;
    values.row = half - p.y * scale;
    return values.depth > 0 && values.column >= 0 && values.column < float(v.resolution) && values.row >= 0 &&
           values.row < float(v.resolution);
}

bool TuseShadowMap::projectPointCheckBounds(const T3Float* point, const TshadowMapInfo* info, TmapValues& values, int filterSize) {
    if (!projectPointCheckBounds(point, info, values)) return false;
    float reach = 0.5f * float(std::max(filterSize, 0));
    float res = float(info->view.resolution);
    return values.column - reach >= 0 && values.column + reach <= res && values.row - reach >= 0 && values.row + reach <= res;
}

void TuseShadowMap::sampleShadow(unsigned count, const T3Float* pointCamera, float bias, short filterSize, float* fraction,
                                 bool* skip) const {
    // Bands this call has locked, released at the end: neighbouring points
    // of a batch fall in the same few bands.
    struct Held {
        const TshadowMapInfo* map;
        int band;
        TdepthMapTile* tile;
    };
    Held held[kMaxHeld];
    int heldCount = 0;
    auto bandValues = [&](const TshadowMapInfo& m, int band) -> const float* {
        for (int h = 0; h < heldCount; ++h)
            if (held[h].map == &m && held[h].band == band) return held[h].tile->values();
        TdepthMapTile* tile = m.tiles[size_t(band)].get();
        if (heldCount == kMaxHeld) {
            for (int h = 0; h < heldCount; ++h) fCache->unlock(*held[h].tile);
            heldCount = 0;
        }
        if (fCache->lock(*tile) != 0) return nullptr;
        held[heldCount++] = {&m, band, tile};
        return tile->values();
    };
    const int maps = mapCount();
    const int width = std::max<int>(filterSize, 0);
    for (unsigned i = 0; i < count; ++i) {
        fraction[i] = 0;
        // The first map whose filter fits around the point, else the first
        // that holds the point at all (its edge texels then repeat).
        const TshadowMapInfo* chosen = nullptr;
        TmapValues at;
        for (int m = 0; m < maps && !chosen; ++m)
            if (projectPointCheckBounds(&pointCamera[i], &map(m), at, width)) chosen = &map(m);
        for (int m = 0; m < maps && !chosen; ++m)
            if (projectPointCheckBounds(&pointCamera[i], &map(m), at)) chosen = &map(m);
        if (skip) skip[i] = !chosen;
        if (!chosen) continue;
        const int res = chosen->view.resolution;
        const float depth = at.depth - bias;
        // One row of the map, edge rows repeating; null when its band cannot be had.
        auto rowOf = [&](int row) -> const float* {
            row = std::clamp(row, 0, res - 1);
            const float* band = bandValues(*chosen, row / chosen->tileRows);
            return band ? band + (row % chosen->tileRows) * res : nullptr;
        };
        if (width == 0) {
            const float* line = rowOf(int(at.row));
            fraction[i] = line && depth > line[std::clamp(int(at.column), 0, res - 1)] ? 1.0f : 0.0f;
            continue;
        }
        // A box `width` texels wide over the texel grid, each texel weighed
        // by the area it shares with the box.
        const float half = 0.5f * float(width);
        const float x0 = at.column - half, x1 = at.column + half, y0 = at.row - half, y1 = at.row + half;
        float sum = 0;
        for (int row = int(std::floor(y0)); float(row) < y1; ++row) {
            float wy = std::min(y1, float(row + 1)) - std::max(y0, float(row));
            const float* line = wy > 0 ? rowOf(row) : nullptr;
            if (!line) continue;
            float across = 0;
            for (int column = int(std::floor(x0)); float(column) < x1; ++column) {
                float wx = std::min(x1, float(column + 1)) - std::max(x0, float(column));
                if (wx > 0 && depth > line[std::clamp(column, 0, res - 1)]) across += wx;
            }
            sum += wy * across;
        }
        fraction[i] = std::clamp(sum / (float(width) * float(width)), 0.0f, 1.0f);
    }
    for (int h = 0; h < heldCount; ++h) fCache->unlock(*held[h].tile);
}

void TuseShadowMap::mergeDepthBuffers(int width, int height, const float* depth, const float* second, float* merged) {
    const size_t n = size_t(std::max(width, 0)) * size_t(std::max(height, 0));
    for (size_t i = 0; i < n; ++i)
        merged[i] = depth[i] >= kNoSurface || second[i] >= kNoSurface ? kNoSurface : 0.5f * (depth[i] + second[i]);
}

TfltMatrix TuseShadowMap::sProjection(const TshadowMapView& view) {
    return TfltMatrix::scaling(1.0f / view.halfWidth, 1.0f / view.halfWidth, 1.0f);
}

int TuseShadowMap::iffBufferToZbuffer(int width, int height, const TfltMatrix& projection, bool orthographic, const float* source,
                                      float* target) {
    if (height < 1 || width < 1) return 0;
    if (std::fabs(projection.determinant()) < 0.00001) return 0;
    TfltMatrix inverse = projection.inverse();
    T3Float low = inverse.transformPoint({-1, -1, 0}), high = inverse.transformPoint({1, 1, 0});
    const float sx = 0.5f * (high.x - low.x), sy = 0.5f * (high.y - low.y);
    for (int row = 0; row < height; ++row) {
        const float y = (1.0f - 2.0f * (float(row) + 0.5f) / float(height)) * sy;
        for (int column = 0; column < width; ++column) {
            const size_t i = size_t(row) * size_t(width) + size_t(column);
            const float s = source[i];
            if (orthographic || s >= kNoSurface) {
                target[i] = s;
                continue;
            }
            // The texel's ray meets the view plane z = -1 at (x, y): its
            // length there turns distance along the ray into depth.
            const float x = (2.0f * (float(column) + 0.5f) / float(width) - 1.0f) * sx;
            target[i] = s / std::sqrt(x * x + y * y + 1.0f);
        }
    }
    return 1;
}

// ---------------------------------------------------------------- files

int TuseShadowMap::readZmap(const std::string& mapFile, const std::string& midMapFile, int resolution, const TdmapCallback& callback) {
    TcommandEngine& engine = theCommandEngine();
    if (!TdepthMapFile::sExists(mapFile) && !callback.macro.empty()) {
        engine.displayWarning(kNotFindShadowMap, {mapFile});
        char frame[32];
        std::snprintf(frame, sizeof frame, "%d", callback.frame);
        std::string command = callback.macro + " " + frame + " mapname=" + mapFile + ",middistmapname=" + midMapFile +
                              ",lightname=" + callback.lightName + ",pathname=" + callback.pathName +
                              ",readanimextname=" + callback.readAnimExtName + ",curranimextname=" + callback.currentAnimExtName +
                              ",lastdumpanimextname=" + callback.lastDumpAnimExtName + "\n";
        engine.displayWarning(kCallbackShadowMap, {command});
        if (!engine.executeCommand(command)) engine.displayError(kCallbackShadowMapFail, {command});
    }

    // Steps 2 to 5 for one file: its distances in `buffer`, converted.
    auto readOne = [&](const std::string& file, const TcatalogueEntry& wrongSize, const TcatalogueEntry& notLoaded,
                       const char* bufferName, float* depth, TshadowMapView& view) -> bool {
        TdepthMapFile reader;
        if (!reader.open(file) || !(reader.type() == TdepthMapFile::kForm)) {
            engine.displayWarning(kFailedOpenShadowMap, {file});
            engine.displayWarning(notLoaded, {file});
            return false;
        }
        engine.displayInfo(kReadingShadowMap, {file});
        int w = 0, h = 0;
        reader.getSize(w, h);
        if (w != resolution || h != resolution) {
            engine.displayWarning(wrongSize, {file, std::to_string(w), std::to_string(resolution)});
            engine.displayWarning(kReuseShadowMap, {file});
            reader.close();
            return false;
        }
        view = reader.view();
        TcacheBuffer loaded(*fCache, size_t(w) * size_t(h), bufferName);
        bool ok = loaded.data() && reader.load(loaded.data()) &&
                  iffBufferToZbuffer(w, h, sProjection(view), view.orthographic, loaded.data(), depth) == 1;
        reader.close();
        if (!ok) engine.displayWarning(kZbufferShadowMap, {file});
        return ok;
    };

    const size_t texels = size_t(resolution) * size_t(resolution);
    const bool mid = !midMapFile.empty();
    TcacheBuffer depth(*fCache, texels, mid ? "IFF map" : "loaded iff depth map");
    if (!depth.data()) return 0;
    TshadowMapView view;
    if (!readOne(mapFile, kResolutionShadowMap, kNotLoadShadowMap, "loaded iff depth map", depth.data(), view)) return 0;
    if (mid) {
        TcacheBuffer second(*fCache, texels, "Mid Dist Map");
        TshadowMapView secondView;
        if (!second.data() ||
            !readOne(midMapFile, kResolution2ShadowMap, kNotLoad2ShadowMap, "loaded iff depth map", second.data(), secondView))
            return 0;
        mergeDepthBuffers(resolution, resolution, depth.data(), second.data(), depth.data());
    }
    return initMap(view, depth.data()) ? 1 : 0;
}

bool TuseShadowMap::writeZmap(const std::string& file, const TshadowMapView& view, const float* distances) {
    std::string reason;
    if (TdepthMapFile::sWriteAtomically(file, view, distances, reason)) return true;
    theCommandEngine().displayWarning(kWriteShadowMap, {file, reason});
    return false;
}

// ---------------------------------------------------------------- codec

void TuseShadowMap::floatArrayConvertToDiff(float* values, int count) {
    if (!values) return;
    for (int i = count - 1; i > 0; --i) values[i] -= values[i - 1];
}

int TuseShadowMap::floatArrayCompress(const float* values, int count, unsigned char* out) {
    if (!values || count <= 0) return 0;
    unsigned char* start = out;
    unsigned char* literalHeader = nullptr;  // the open literal run, if any
    float previous = 0;
    int i = 0;
    while (i < count) {
        // How far a repeat run from here reproduces the values exactly, as
        // the decoder will rebuild them.
        const float d = values[i] - previous;
        int run = 0;
        float p = previous;
        while (run < kMaxRun && i + run < count && sameBits(repeatStep(p, d), values[i + run])) {
            p = values[i + run];
            ++run;
        }
        // Two values or more are cheaper as a repeat run (5 bytes) than as literals.
        if (run >= 2) {
            literalHeader = nullptr;
            *out++ = uint8_t(kRepeatFlag + run);
            putFloat(out, d);
            out += 4;
            previous = p;
            i += run;
            continue;
        }
        if (!literalHeader || *literalHeader == kMaxRun) {
            literalHeader = out++;
            *literalHeader = 0;
        }
        ++*literalHeader;
        putFloat(out, values[i]);
        out += 4;
        previous = values[i];
        ++i;
    }
    return int(out - start);
}

int TuseShadowMap::floatArrayUncompressConvertFromDiff(const unsigned char* in, int count, float* out) {
    if (!in || !out || count <= 0) return 0;
    const unsigned char* start = in;
    float previous = 0;
    int i = 0;
    while (i < count) {
        const int header = *in++;
        if (header < kRepeatFlag) {
            for (int k = 0; k < header && i < count; ++k, in += 4) out[i++] = previous = getFloat(in);
        } else {
            const float d = getFloat(in);
            in += 4;
            for (int k = 0; k < header - kRepeatFlag && i < count; ++k) out[i++] = previous = repeatStep(previous, d);
        }
        if (header == 0 || header == kRepeatFlag) break;  // an empty run would never end
    }
    return int(in - start);
}
