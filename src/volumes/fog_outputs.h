#pragma once
// What the three fog nodes share: their outputs and matte settings, the
// matte rule, and the opacity a thickness of fog gives.
#include <cmath>

#include "framework/host/attribute_groups.h"
#include "framework/host/data_block.h"

// The matte modes every fog node offers.
enum TfogMatteMode : short { kFogBlackHole = 0, kFogSolidMatte = 1, kFogOpacityGain = 2 };

// Past this optical thickness 1 - exp(-x) no longer differs from 1 in float.
inline constexpr float kFogSaturated = 15.0f;
// 1 - exp(-x), exact for small x.
inline float fogOpacity(float x) { return x < kFogSaturated ? float(-std::expm1(double(-x))) : 1.0f; }

// The outputs of a fog node and its matte settings, declared under its
// description with the node's own tags.
struct TfogOutputs {
    TfogOutputs(TiffTag colorTag, TiffTag transparencyTag, TiffTag matteTag, TiffTag modeTag, TiffTag gainTag);
    TcolorAttribute outColor;
    TcolorAttribute outTransparency;
    TcolorAttribute outMatteOpacity;
    TattributeEnum matteOpacityMode;
    TattributeFloat matteOpacity;
    // The three outputs, for dependency lists.
    Tattribute* const outputs[3];
};

// outMatteOpacity of samples [first, first + count) by the node's matte mode,
// from the transparencies already written. True for a black hole, which
// the light fog also answers by clearing colour and transparency.
bool writeFogMatte(TdataBlock& block, const TfogOutputs& io, unsigned first, unsigned count);
