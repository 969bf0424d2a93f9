#pragma once
// TrenderUtilities: small colour helpers shared by the node classes.
#include "framework/host/math.h"

class TrenderUtilities {
public:
    // Hue in degrees, 0 to 360; saturation and value 0 to 1. A grey has hue 0.
    static T3Float RGBtoHSV(const T3Float& rgb);
    // The hue is taken modulo 360.
    static T3Float HSVtoRGB(const T3Float& hsv);
    static float luminance(const T3Float& rgb) { return 0.3f * rgb.x + 0.59f * rgb.y + 0.11f * rgb.z; }
};
