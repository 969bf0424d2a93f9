#pragma once
// Collapses the shaded samples one ray has collected into a single result.
// Each sample is a surface point or an interval of a volume; intervals may
// overlap each other and the surfaces freely. The samples become entry and
// exit events, sorted along the ray and swept front to back; emission and
// absorption are integrated in closed form over every stretch on which the
// set of active intervals does not change. No ray marching, no step size.
//
// All working memory lives on the caller's stack: about 136 bytes per sample
// on a 64-bit build. Nothing is allocated from the heap and nothing shared is
// touched, so any number of render threads may call at once.
#include "framework/host/math.h"
#include "volumes/volume_arrays.h"

class TvolumeUtils {
public:
    // Colour, transparency, glow and matte opacity of samples[start..end].
    void integrateEAS(TsampleArray* samples, int start, int end, T3Float& color, T3Float& transparency,
                      T3Float& glow, T3Float& matteOpacity) const;
    // The same without a matte.
    void integrateRT(TsampleArray* samples, int start, int end, T3Float& color, T3Float& transparency,
                     T3Float& glow) const;
    // Transmittance only, for shadow rays.
    void integrateShadow(TsampleArray* samples, int start, int end, T3Float& transparency) const;

    // One event along the ray.
    enum TEntryKind : int32_t {
        kSurfacePoint = 0,
        kVolumeEnter = 1,
        kVolumeExit = 2,
        kParticleEnter = 3,
        kParticleExit = 4,
    };
    struct TEntry {
        int32_t kind;
        float t;
        float weight;             // particleWeight, particle events only
        T3Float extinction;       // per unit length; a surface point's transmittance
        T3Float matteExtinction;  // the same for the matte
        T3Float colorDensity;     // colour per unit of extinction; a surface point's colour
        T3Float glowDensity;      // glow likewise
    };

    // Marks an unknown matte in outMatteOpacity's red channel and in the result.
    static constexpr float kNoMatte = -1000000.0f;

private:
    friend struct TvolumeUtilsProbe;
    // qsort-style comparison of two TEntry pointers by t; NaN differences give -1.
    static int compareTEntries(const void* first, const void* second);
};
