#pragma once
// What a material or a light asks of the renderer's ray tracer: a ray record,
// a three-channel spectrum, and TraySampler, the renderer's tracing service.
// Rays are formed and read on the shading side in camera space; the renderer
// owns the geometry and shades what a ray hits through the same engine.
#include <cfloat>
#include <cstdint>

#include "framework/host/math.h"

class TdependNode;

// One ray. The leading word is the renderer's (a link or a tag); every other
// field is filled by whoever forms the ray. `distance` is FLT_MAX before
// tracing and the hit distance after it.
struct TgenericRay {
    void* link = nullptr;
    T3Float origin;     // camera space
    T3Float direction;  // camera space, unit length
    float distance = FLT_MAX;
    int32_t rayDepth = 0;
    float mediumRefractiveIndex = 1.0f;
    int32_t primitiveId = -1;
    int32_t objectId = -1;
    int32_t rayInstance = 0;
};

class Tspectrum {
public:
    constexpr Tspectrum() = default;
    constexpr Tspectrum(float r, float g, float b) : fR(r), fG(g), fB(b) {}
    virtual ~Tspectrum() = default;
    Tspectrum(const Tspectrum&) = default;
    Tspectrum& operator=(const Tspectrum&) = default;

    float r() const { return fR; }
    float g() const { return fG; }
    float b() const { return fB; }
    float operator[](unsigned i) const { return i == 0 ? fR : i == 1 ? fG : fB; }
    void set(float r, float g, float b) { fR = r, fG = g, fB = b; }
    T3Float asFloat3() const { return {fR, fG, fB}; }

private:
    float fR = 0, fG = 0, fB = 0;
};

extern const Tspectrum kBlackSpectrum;
extern const Tspectrum kWhiteSpectrum;
extern const Tspectrum kRedSpectrum;
extern const Tspectrum kGreenSpectrum;
extern const Tspectrum kBlueSpectrum;

// The fraction of light that passes to a point, per channel: white when
// nothing is in the way, black when an opaque object is.
class Treflectance : public Tspectrum {
public:
    using Tspectrum::Tspectrum;
    Treflectance() : Tspectrum(kWhiteSpectrum) {}
    Treflectance(const Tspectrum& s) : Tspectrum(s) {}
};

// Implemented by the renderer, one per render thread. All calls come from
// that thread while it shades a batch.
class TraySampler {
public:
    virtual ~TraySampler() = default;
    // Bytes of one ray record; a caller allocates rays of this size and may
    // use the bytes after a TgenericRay as the renderer's.
    virtual unsigned raySize() const = 0;
    // Shadow rays from surface points towards `light`: each ray's distance is
    // the distance to the light on entry. Fills `transmittance` per ray
    // (white: unoccluded; a transparent occluder lets its colour through).
    virtual void traceShadowRays(TdependNode* light, int n, TgenericRay** rays, Treflectance* transmittance) = 0;
    // A uniform number in [0, 1) from the thread's sequence, for soft shadows
    // and glossy rays; reproducible for one pixel whatever the thread.
    virtual float random() = 0;
    // Traces `n` secondary rays formed by `node` (reflection or refraction),
    // shading what they hit. Sets each ray's distance and fills the radiance
    // and transmittance seen along it. Rays deeper than the renderer's limit
    // come back black with the background's transmittance.
    virtual void traceRays(TdependNode* node, int n, TgenericRay** rays, Tspectrum* radiance, Tspectrum* transmittance) = 0;
    // The deepest ray depth the renderer traces.
    virtual int maxRayDepth() const = 0;
    // The environment colour for a ray that was not traced.
    virtual void background(Tspectrum& out) = 0;
};

// The tracer of the calling render thread: the renderer sets it on each
// worker while that worker shades (nested levels share their thread's
// tracer), and lights and materials use it when nothing else names one.
// Null outside a render.
TraySampler* currentRaySampler();
void setCurrentRaySampler(TraySampler* sampler);

// Sets the calling thread's tracer for a scope and restores the previous one.
class TcurrentRaySamplerScope {
public:
    explicit TcurrentRaySamplerScope(TraySampler* sampler) : fPrevious(currentRaySampler()) { setCurrentRaySampler(sampler); }
    ~TcurrentRaySamplerScope() { setCurrentRaySampler(fPrevious); }
    TcurrentRaySamplerScope(const TcurrentRaySamplerScope&) = delete;
    TcurrentRaySamplerScope& operator=(const TcurrentRaySamplerScope&) = delete;

private:
    TraySampler* fPrevious;
};
