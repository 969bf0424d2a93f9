#pragma once
// Colour helpers shared by the render nodes: HSV conversions with hue in
// degrees (0 to 360) and the luminance weights.
#include "framework/host/math.h"

struct TrenderUtilities {
    static T3Float HSVtoRGB(const T3Float& hsv);
    static T3Float RGBtoHSV(const T3Float& rgb);
    static float luminance(const T3Float& rgb) { return 0.3f * rgb.x + 0.59f * rgb.y + 0.11f * rgb.z; }
};
