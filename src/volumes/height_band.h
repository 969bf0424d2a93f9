#pragma once
// The horizontal band of a height fog: how much of a ray lies between two
// heights, and how the fog thins towards the band's edges. Shared by the
// simple height fog of the sky-fog model and the environment fog node.

// The top given to a band whose maximum lies below its minimum.
inline constexpr double kOpenBandTop = 100000;

// Length of the part of a ray, starting at height y with vertical slope dy
// (unit direction) and `distance` long, that lies within [low, high]. A ray
// whose |dy| is at most `flat` counts as level and, inside the band, takes
// the band's height as its length (deliberate). 0 or less: the ray misses.
double heightBandLength(double y, double dy, double distance, double low, double high, double flat);

// At height y: 0 outside the band or on its edges; inside, 1 times
// (y - low) / blend within `blend` of the bottom and, if that left a
// non-zero factor, times (high - y) / blend within `blend` of the top.
// A blend of 0 or less ramps nothing.
double heightBandFactor(double y, double low, double high, double blend);
