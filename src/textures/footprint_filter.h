#pragma once
// The exact footprint filter of the file texture. A pixel's filter, a radial
// polynomial 1 + c1 r^2 + c2 r^4 + c3 r^6 over a square about the pixel
// centre (r and the square in pixels), is integrated exactly over each texel
// as that texel's image in the pixel frame: the texel's corners go through
// the triangle's plane and the camera's projection, are clipped to the near
// plane and then to the filter square (Sutherland-Hodgman), and the
// polynomial is integrated over what is left. The texel weights so found
// average the texels. Nothing here allocates or throws.
#include <cstdint>

#include "framework/host/math.h"

class Tpyramid;
struct TfileTextureWrapper;

enum TfilterKind : int {
    kFilterOff = 0,
    kFilterMipmap = 1,
    kFilterBox = 2,
    kFilterQuadratic = 3,
    kFilterQuartic = 4,
    kFilterGaussian = 5,
};
inline bool isAreaFilter(int kind) { return kind >= kFilterBox && kind <= kFilterGaussian; }

// Six floats in this order. The radii are in pixels.
struct TfilterRecord {
    float width = 0.707f;
    float c1 = 0, c2 = 0, c3 = 0;
    float innerRadius = 2, outerRadius = 3;
    int kind = kFilterBox;  // not part of the six: which square the polynomial covers
};

// The record of a kind at a filterWidth. The Gaussian (sigma = width / 2)
// is the cubic in r^2 closest to exp(-r^2 / (2 sigma^2)) in least squares
// over the filter square; that polynomial is what gets integrated, exactly.
TfilterRecord makeFilterRecord(int kind, float width);
// Half the side of the square the filter covers, in pixels: 0.5 for the box
// (the pixel itself), the inner radius for the polynomial kinds, 1.5 sigma
// for the Gaussian.
float filterHalfSide(const TfilterRecord& filter);
// The filter's value at distance^2 `r2` from the centre.
inline float filterValue(const TfilterRecord& f, float r2) { return 1.0f + r2 * (f.c1 + r2 * (f.c2 + r2 * f.c3)); }

// Outcode bits of a point against the square [-h, h]^2: set when inside the
// edge. All four set (15) is inside.
enum : unsigned { kInsideLeft = 1, kInsideRight = 2, kInsideBottom = 4, kInsideTop = 8, kInsideAll = 15 };
unsigned makeOutCodes(const T2Float& p, float h);
// One Sutherland-Hodgman pass against the vertical line x = edge, keeping
// the side where (x - edge) * side >= 0. Returns the vertex count of `out`,
// which needs room for n + 1 vertices... and more: n * 2 is always enough.
int xLineClip(const T2Float* in, int n, float edge, float side, T2Float* out);
int yLineClip(const T2Float* in, int n, float edge, float side, T2Float* out);

// The exact integral of the filter polynomial over a convex polygon (any
// orientation), by a fan from its last vertex.
double intArea(const TfilterRecord& filter, int n, const T2Float* polygon);
// The polygon clipped to the filter square, integrated. `n` up to kMaxPolygon.
float getWeight(const TfilterRecord& filter, int n, const T2Float* polygon);
inline constexpr int kMaxPolygon = 8;

// What the filter knows of the camera: a pixel (x, y), counted from the
// image's left and bottom edges, lies on the plane z = -1 (perspective) or
// z = 0 (orthographic) at ((x - centreX) * scale, (y - centreY) * scale).
// The camera looks down -z.
struct TcameraInfoWrapper {
    bool perspective = true;
    float scale = 0.0f;  // 0: no camera known, the filter is not used
    float centreX = 0, centreY = 0;
    float nearPlane = 0.01f;
    bool valid() const { return scale > 0.0f; }
};

// The triangle a sample lies on.
struct TfootprintTriangle {
    T3Float camera[3];
    T2Float uv[3];
};

// One sample of the footprint filter.
struct TfootprintQuery {
    TfootprintTriangle triangle;
    T2Float uv;            // the texture UV of the sample, wrapped into 0..1
    T2Float uvScale{1, 1};  // texture UV per triangle UV, per axis (repeats)
    T2Float pixelCenter;   // the sample's pixel centre, image pixels from the bottom left
    float filter = 1, filterOffset = 0;  // the texture's own width controls
    bool blurPixelation = true;
};

enum class TfootprintResult {
    kFiltered,   // the integral
    kFallback,   // no plane or no projection: the caller reads getMapColor
};

// The filtered colour (0..255) and alpha (0..1) of the footprint of one
// pixel. Reads the pyramid through the wrapper's cache.
TfootprintResult filterFootprint(const TfileTextureWrapper& w, const TfilterRecord& filter,
                                 const TcameraInfoWrapper& camera, const TfootprintQuery& q, T3Float& colour,
                                 float& alpha);

// The camera-to-UV map of a triangle: the plane (a, b, c, d) with
// a x + b y + c z = d, and UV = rows . (x, y, z, 1). False for a triangle
// with no area in space or in UV.
struct TplaneMap {
    float a, b, c, d;
    float u[4], v[4];
};
bool initTextureTransfMaps(const TfootprintTriangle& t, TplaneMap& map);
