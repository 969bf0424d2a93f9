#pragma once
// The material record the viewport draws a shading group with.
struct TportColor {
    float r = 0, g = 0, b = 0, a = 1;
};

constexpr TportColor kCblack{0, 0, 0, 1};
constexpr TportColor kCdarkgreen{0, 0.5f, 0, 1};

struct TmaterialInputData {
    float alpha = 1;
    TportColor ambient = kCblack;
    TportColor diffuse = kCdarkgreen;
    TportColor specular = kCblack;
    TportColor emission = kCblack;
    float shininess = 0;
};
