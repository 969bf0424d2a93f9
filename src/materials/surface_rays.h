#pragma once
// What every surface material does with rays and mattes, written once for
// any material that holds the shared attribute groups
// (materials/surface_attributes.h): transparency with its matte, refraction
// rays and the light they bring back, mirror rays, and the black hole. The
// material gives its own per-sample transparency (Lambert's attribute, the
// ramp shader's curve), so that each reads its colours its own way.
//
// All functions work on at most kSurfaceChunk samples; temporaries live on
// the stack.
#include <algorithm>

#include "framework/driven_inputs.h"
#include "framework/host/array.h"
#include "framework/host/data_block.h"
#include "framework/host/math.h"
#include "framework/scratch_array.h"
#include "materials/surface_attributes.h"
#include "shading/ray_sampler.h"

inline constexpr unsigned kSurfaceChunk = 64;
// Ray slots per sample in a ray-index array: one per channel.
inline constexpr unsigned kSurfaceSlotsPerSample = 3;
// How many of the ray slots of a sample are used.
inline unsigned raySlotsOf(bool chromatic) { return chromatic ? 3u : 1u; }

// A chunk's triples on the stack, left unset.
using TchunkTriples = TscratchArray<T3Float, kSurfaceChunk>;

// Calls f(start, count) for each piece of at most kSurfaceChunk samples.
template <class F>
void forEachSurfaceChunk(unsigned start, unsigned count, F&& f) {
    for (unsigned s = start; s < start + count; s += kSurfaceChunk) f(s, std::min(kSurfaceChunk, start + count - s));
}

// The surface settings a material may settle per render (see
// TsettledInput): the ones every batch reads.
struct TsettledSurface {
    TsettledInput<bool> hideSource, refractions;
    TsettledInput<float> glowIntensity, matteOpacity;
    TsettledInput<short> matteOpacityMode;
    // Each with its attribute, for the material's own list (see TsettlingNode).
    template <class F>
    void forEachSettled(const TsurfaceSettings& s, F&& f) {
        f(hideSource, s.hideSource);
        f(refractions, s.refractions);
        f(glowIntensity, s.glowIntensity);
        f(matteOpacity, s.matteOpacity);
        f(matteOpacityMode, s.matteOpacityMode);
    }
};

struct TsurfaceAttributes {
    const TsurfaceSettings& settings;
    const TsurfaceIO& io;
    const TsettledSurface* settled = nullptr;  // none: every setting is read from the block
};

// A setting over a run: its settled value when the material has one.
template <class T>
TdataHandle surfaceSetting(const TsurfaceAttributes& a, TsettledInput<T> TsettledSurface::*settled, const Tattribute& attribute,
                           TdataBlock& block, unsigned start, unsigned count) {
    return a.settled ? settledOrRead(a.settled->*settled, block, attribute, start, count) : block.inputValue(attribute, start, count);
}

// The sampler on the node's input, else the calling render thread's.
TraySampler* surfaceRaySampler(TdataBlock& block, const TsurfaceIO& io, unsigned start, unsigned count);

// The sampler that traces the run's refraction rays, or null when none can
// be formed: refractions off for the whole run, or nothing to trace with.
// A material asks first and skips its refraction work on null; inline, as
// refractions are usually settled off for the render.
inline TraySampler* surfaceRefractionSampler(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count) {
    const TsettledInput<bool>* settled = a.settled ? &a.settled->refractions : nullptr;
    if (settled && settled->settled) {
        if (!settled->value) return nullptr;
    } else {
        TdataHandle refractions = block.inputValue(a.settings.refractions, start, count);
        if (!refractions.isVariable() && !refractions.asBool(start)) return nullptr;
    }
    return surfaceRaySampler(block, a.io, start, count);
}

// Writes rays from rays[rayCount] up. rayIndex holds kSurfaceSlotsPerSample
// entries per sample, of which a sample uses 3 with chromatic aberration and
// 1 without; a slot without a ray keeps -1. `transparency` is per sample,
// indexed from `start`.
void formSurfaceRefractiveRays(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count,
                               const T3Float* transparency, short* rayIndex, short& rayCount, TgenericRay** rays,
                               Tspectrum* radiance, Tspectrum* transmittance);

// Adds the attenuated refracted light (and the background where no ray was
// formed) times the transparency to the accumulator. `sampler` is the
// run's surfaceRefractionSampler, which the material asked first.
void accumulateSurfaceRefraction(TdependNode* node, const TsurfaceAttributes& a, TraySampler* sampler, TdataBlock& block,
                                 unsigned start, unsigned count, const T3Float* transparency, T3Float* accumulator);

// outTransparency (white under hideSource, times the refraction rays'
// transmittance) and, outside the shadow pass, outMatteOpacity by its mode.
// `uniform`: transparency[0] holds the one value of every sample.
void computeSurfaceTransparency(TdependNode* node, const TsurfaceAttributes& a, TdataBlock& block, unsigned start,
                                unsigned count, const T3Float* transparency, bool uniform = false);

// outTransparency and outMatteOpacity as computeSurfaceTransparency writes
// them for one transparency, when every setting they read is settled for
// the render and refractions are off: no handle to read. False, with
// nothing written, when the block must be asked.
bool writeSettledSurfaceTransparency(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count,
                                     const T3Float& transparency);

// Black colour and glow for samples whose matte mode is "Black Hole".
// Inline in front: a mode settled to another for the render needs no call.
void blackenSurfaceBlackHoles(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count);
inline void computeSurfaceBlackHole(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count);

// Hide source and glow intensity on the colour outputs, then the black hole.
void finishSurfaceColor(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count);

// Traces one mirror ray for each sample with a non-zero reflectivity, a ray
// depth below its reflection limit and hideSource clear, and stores its
// radiance in reflected[i - start]; other samples keep what is there.
void traceMirrorRays(TdependNode* node, const TsurfaceAttributes& a, const Tattribute& reflectionLimit, TraySampler* sampler,
                     TdataBlock& block, unsigned start, unsigned count, const float* reflectivity, T3Float* reflected);

// glowIntensity, but a driven attribute whose static value is 0 answers
// kDrivenGlow, so that a caller asking whether any glow can occur is told yes.
inline constexpr float kDrivenGlow = 1234.5677f;
float surfaceGlowIntensity(TdependNode& node, const Tattribute& glowIntensity);

// The outputs computed together with attr's: colour with glow, transparency
// with matte, and in the shadow pass the matte with the colours.
void groupSurfaceOutputs(const TsurfaceIO& io, const Tattribute* attr, TattributeArray& group);

// Stores a null sampler, so that no stale sampler survives the render.
void clearSurfaceRaySampler(TdependNode& node, const TsurfaceIO& io);

// The matte marker of a black-hole surface, for later stages.
inline constexpr float kBlackHoleMatte = -1000000.0f;
enum { kMatteBlackHole = 0, kMatteSolid = 1, kMatteOpacityGain = 2 };

inline void computeSurfaceBlackHole(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count) {
    const TsettledInput<short>* mode = a.settled ? &a.settled->matteOpacityMode : nullptr;
    if (mode && mode->settled && mode->value != kMatteBlackHole) return;
    blackenSurfaceBlackHoles(a, block, start, count);
}
