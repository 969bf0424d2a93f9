#pragma once
// The cell field under the leather and granite textures: a grid of 20 cells
// to each `pitch` in every axis, repeating after it, with one jittered
// centre per cell whose position, size and tone come from fixed entries of
// the noise library's random table.
#include "framework/host/math.h"

struct TcellSample {
    float nearest = 1e30f;  // distance to the nearest centre, in cells
    float second = 1e30f;   // to the second nearest
    unsigned key = 0;       // table index of the nearest cell's entries
};

class TsolidCells {
public:
    static constexpr int kCells = 20;
    // Table entries per cell: three for the centre, one each for size and tone.
    static constexpr unsigned kEntriesPerCell = 5;

    // The two nearest centres about p. `randomness` 0 puts every centre in
    // the middle of its cell, 1 anywhere within it.
    static TcellSample sNearest(const T3Float& p, float pitch, float randomness);
    // Entry `which` (3: size, 4: tone) of a cell, 0 to 1.
    static float sEntry(unsigned key, unsigned which);
    // A smooth fall-off from 1 at distance 0 to 0 at 1, read from a table of
    // 256 steps: the profile of a spot.
    static float sFalloff(float d);
};
