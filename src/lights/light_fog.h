#pragma once
// What lights with light fog (point and spot) share.
#include "lights/render_light.h"

// The sample items of a light's fog: without a connection on `fogGeometry` the
// fog's items are dropped; with one, depth-map shadows in the fog need the ray
// instance.
void analyzeLightFog(TnonExtendedLightShape& light, const Tattribute& fogGeometry, TbitField64& mask);

// The most points along a fog segment whose shadow is sampled.
inline constexpr unsigned kMaxFogShadowPoints = 16;
