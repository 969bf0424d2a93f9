#pragma once
// Shadow depth maps. TuseShadowMap holds one light's maps for a render: one
// for a spot or directional light, up to six cube faces for a point light.
// Each map is a square buffer of depths along its view's axis, cut into
// bands of rows that are kept compressed in the render cache and brought in
// on demand as TdepthMapTile entries of its tile cache, so that idle bands
// can be thrown out under memory pressure. sampleShadow answers, per point,
// the fraction in shadow over a percentage-closer filter; it runs on every
// render thread at once and only reads.
//
// A map is built from distances along rays from the light (what a tracer or
// a depth file gives): iffBufferToZbuffer turns them into depths along the
// view, and with mid-distance maps mergeDepthBuffers puts each texel halfway
// between the first and the second surface, so that lit surfaces do not
// shadow themselves.
#include <cfloat>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "framework/host/math.h"

class TrenderCache;
class TdepthMapTile;

// How one map looks at the scene. The view looks down its -Z axis; a texel
// (column, row) has its centre at (column + 0.5, row + 0.5), rows from the top.
struct TshadowMapView {
    Tmatrix worldToView;
    bool orthographic = false;
    // Orthographic: half the side of the map in world units. Perspective:
    // the tangent of the half angle.
    float halfWidth = 1;
    float nearClip = 0.001f, farClip = 1.0e30f;
    int resolution = 512;

    // A perspective map from `position` along `axis` (world space), `up`
    // giving the map's rows; for spot lights and cube faces.
    static TshadowMapView sPerspective(const T3Float& position, const T3Float& axis, const T3Float& up, float halfAngleTangent,
                                       int resolution, float nearClip, float farClip);
    // An orthographic map whose centre is `origin`, looking along `axis`.
    static TshadowMapView sOrthographic(const T3Float& origin, const T3Float& axis, const T3Float& up, float halfWidth, int resolution,
                                        float nearClip, float farClip);

    // The world-space ray through the centre of texel (column, row): unit
    // direction; for a perspective map the origin is the light.
    // `viewToWorld` is the inverse of worldToView, made once by the caller.
    void texelRay(const Tmatrix& viewToWorld, int column, int row, T3Float& origin, T3Float& direction) const;
};

// A world-space box around a shadow caster, for fitting maps.
struct TworldBox {
    T3Float min{FLT_MAX, FLT_MAX, FLT_MAX}, max{-FLT_MAX, -FLT_MAX, -FLT_MAX};
    void add(const T3Float& p);
    bool isEmpty() const { return min.x > max.x; }
};

// A point projected into a map: continuous texel coordinates and its depth
// along the view.
struct TmapValues {
    float column = 0, row = 0, depth = 0;
};

// One map of a light: its view, and where the view puts camera-space points.
struct TshadowMapInfo {
    TshadowMapView view;
    TfltMatrix cameraToView;
    float texelsPerUnit = 0;  // map texels per unit of the view plane
    int tileRows = 0;         // rows per band
    std::vector<std::unique_ptr<TdepthMapTile>> tiles;

    TshadowMapInfo();
    ~TshadowMapInfo();
    // Releases the bands' decompressed and compressed storage.
    void releaseFLC();
};

// The light-side description of a point that the catalogue messages of the
// map macro need.
struct TdmapCallback {
    std::string macro;           // dmapUseMacro; empty: none
    std::string lightName, pathName, midMapName;
    std::string readAnimExtName, currentAnimExtName, lastDumpAnimExtName;
    int frame = 1;
};

class TuseShadowMap {
public:
    // A texel that sees nothing: it shadows nothing.
    static constexpr float kNoSurface = FLT_MAX;
    // Rows per compressed band.
    static constexpr int kTileRows = 16;

    // `cache` holds the bands; null takes the global render cache (or a
    // private one when that is switched off).
    TuseShadowMap(bool directional, const T3Float& lightPosition, TrenderCache* cache = nullptr);
    ~TuseShadowMap();
    // Copies share the maps.
    TuseShadowMap(const TuseShadowMap&) = default;
    TuseShadowMap& operator=(const TuseShadowMap&) = default;

    bool directional() const { return fDirectional; }
    const T3Float& lightPosition() const { return fLightPosition; }
    int mapCount() const { return int(fMaps->size()); }
    const TshadowMapInfo& map(int i) const { return *(*fMaps)[size_t(i)]; }

    // Camera space of the render; shading points arrive in it.
    void setWorldToCamera(const Tmatrix& worldToCamera);

    // Makes the render-cache entries of a new map from its depths along the
    // view (resolution squared floats). False when the cache gave nothing.
    bool initMap(const TshadowMapView& view, const float* depth);
    // A map's depths, decompressed into `depth` (resolution squared floats).
    bool depthBuffer(int mapIndex, float* depth) const;
    // Bytes the compressed bands of every map take.
    size_t compressedBytes() const;

    // The fraction in shadow, 0 to 1, of each camera-space point: the point's
    // depth minus `bias` against the stored depths under a box of
    // `filterSize` texels (0: the nearest texel). A point that no map covers
    // is lit and marked in `skip` when given. Allocates nothing; reads only.
    void sampleShadow(unsigned count, const T3Float* pointCamera, float bias, short filterSize, float* fraction, bool* skip) const;

    // Projects a camera-space point into a map; true when it lies in front of
    // the light and inside the map. The second form asks that a filter of
    // `filterSize` texels around it lie inside too.
    static bool projectPointCheckBounds(const T3Float* point, const TshadowMapInfo* info, TmapValues& values);
    static bool projectPointCheckBounds(const T3Float* point, const TshadowMapInfo* info, TmapValues& values, int filterSize);

    // Texel by texel the depth halfway between the first and the second
    // surface; where no second surface lies behind, nothing is shadowed.
    static void mergeDepthBuffers(int width, int height, const float* depth, const float* second, float* merged);
    // Distances along the texel rays of a map, as a depth file or a tracer
    // gives them, to depths along the view. `projection` maps the view plane
    // (z = -1 for perspective, 0 for orthographic) to the map's unit square.
    // 0 for a height below 1 or a singular projection, else 1.
    static int iffBufferToZbuffer(int width, int height, const TfltMatrix& projection, bool orthographic, const float* source,
                                  float* target);
    static TfltMatrix sProjection(const TshadowMapView& view);

    // Loads a map from a depth file (and with `midMapFile` its second-surface
    // partner), warning about every fault; 1 when the map is in place, 0 when
    // the render must go on without it. The map's view comes from the file;
    // `resolution` is the one wanted.
    int readZmap(const std::string& mapFile, const std::string& midMapFile, int resolution, const TdmapCallback& callback);
    // Writes distances along the texel rays of `view` as a depth file, through
    // a temporary file in the target folder renamed into place. Warns and
    // returns false when the file cannot be written.
    static bool writeZmap(const std::string& file, const TshadowMapView& view, const float* distances);

    // The depth-buffer codec. Runs of up to 127 values: a byte n below 128
    // then n little-endian floats (absolute values), or a byte 128 + n then one
    // float d: n values each the previous one plus d (or equal to it when
    // |d| is at most 1e-7). The previous value starts at 0.
    //
    // In place: each value becomes its difference from the one before.
    static void floatArrayConvertToDiff(float* values, int count);
    // Encodes `count` values; returns the bytes written. `out` needs at most
    // sMaxCompressedSize(count) bytes.
    static int floatArrayCompress(const float* values, int count, unsigned char* out);
    static int sMaxCompressedSize(int count) { return count * 4 + (count + 126) / 127 + 1; }
    // Decodes `count` values; returns the bytes read (0 for no input).
    static int floatArrayUncompressConvertFromDiff(const unsigned char* in, int count, float* out);

private:
    using Tmaps = std::vector<std::unique_ptr<TshadowMapInfo>>;
    bool fDirectional;
    T3Float fLightPosition;
    TrenderCache* fCache;
    Tmatrix fCameraToWorld;
    std::shared_ptr<Tmaps> fMaps;
};
