#pragma once
// Small shared types of the shading engine.
#include <cstdint>

// What is wanted of a shading group: one compiled program per option.
enum TSEoption : unsigned {
    kSurfaceColorTransparency = 0,
    kVolumeColorTransparency = 1,
    kDisplacementOption = 2,
    kSurfaceShadows = 3,
    kVolumeTransparency = 4,
    kVolumeEmission = 5,
    kSurfaceParticleColor = 6,
    kSurfaceParticleTransparency = 7,
    kSurfaceBasic = 8,
    kSurfacePreLight = 9,
    kSurfaceLightAtPoint = 10,
    kSingleLight = 11,
};
constexpr unsigned kTSEoptionCount = 12;

// Samples shaded together.
constexpr unsigned kBatchSize = 64;

class TshadingOpus;
class TbaseDeepRaster;
class TvariantArena;
struct TframeSampleData;
