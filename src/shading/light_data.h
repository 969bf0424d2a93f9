#pragma once
// The record a light writes for one sample: where the light comes from, how
// strong it is there, which terms it feeds and how much of it is shadowed.
// Producer and consumer address the members through one description, so the
// order below is fixed.
#include <cstddef>

#include "framework/host/math.h"

class TlightData {
public:
    T3Float lightDirection;          // unit vector from the sample towards the light, camera space
    T3Float lightIntensity;          // colour times intensity at the sample, shadow mixed in
    bool lightAmbient = true;        // feeds the ambient term
    bool lightDiffuse = true;        // feeds the diffuse term
    bool lightSpecular = false;      // feeds the specular term
    unsigned char fSpare = 0;        // one spare byte keeps the floats word-aligned
    float lightShadowFraction = 0;   // 0 unshadowed .. 1 fully shadowed
    float preShadowIntensity = 0;    // luminance before shadowing
    void* lightBlindData = nullptr;  // the light itself, for materials that call back; null otherwise
};

// 36 bytes of values and a pointer: 40 bytes with 32-bit pointers, 48 with
// 64-bit ones (the pointer keeps its natural alignment). Tables of records
// ("lightTable") use sizeof(TlightData) as their stride.
static_assert(offsetof(TlightData, lightAmbient) == 24);
static_assert(offsetof(TlightData, lightShadowFraction) == 28);
static_assert(offsetof(TlightData, preShadowIntensity) == 32);
static_assert(sizeof(TlightData) == (sizeof(void*) == 8 ? 48 : 40));

