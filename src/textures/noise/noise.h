#pragma once
// Tnoise: the noise library's shared tables and the stateless functions over
// them. Value noise is a lattice of 32 cells to the unit that repeats after
// every unit, smoothed by a quadratic B-spline; callers scale their
// coordinates down. The same table is the library's source of fixed random
// numbers. Gradient noise hashes through a 256-entry permutation.
//
// Every function may be called from any thread. Tables made on first use are
// made under one library mutex.
#include <atomic>
#include <cstdint>

#include "framework/host/math.h"
#include "textures/noise/random_table.h"

class Tnoise {
public:
    static constexpr int kTableSize = kRandomTableSize;
    static constexpr int kCellsPerUnit = 32;
    static constexpr int kRandomListSize = 3731;
    // Coordinates beyond this are out of range (see the cell functions).
    static constexpr float kMaxCoordinate = 1e9f;
    // noise4 never steps through more time cells than this.
    static constexpr int kMaxTimePeriod = 60000;

    // The random table in use, fixed at load by TOVI_RENDERER_OLD_RANDOM_TABLE.
    static const float* fsTable;
    // A fixed permutation of 0 to 255.
    static const uint8_t fsPermutation[256];

    // Counts live instances; fills the noise3 pointer.
    Tnoise();
    ~Tnoise();
    Tnoise(const Tnoise&) = delete;
    Tnoise& operator=(const Tnoise&) = delete;

    // Value noise.
    static float noise1(float x);
    static float noise2(float x, float y);
    static float noise3(float x, float y, float z) {
        return fsNoise3.load(std::memory_order_relaxed)(x, y, z);
    }
    static float computeNoise3(float x, float y, float z);
    static float noise4(float x, float y, float z, float t, int period);
    // The noise2 lattice in double precision: d/dx, d/dy and the value.
    static void DNoise2(double x, double y, float out[3]);

    // Gradient noise.
    static float gNoise3(float x, float y, float z);
    static float gLattice(int ix, int iy, int iz, float fx, float fy, float fz);
    static void initGradientNoiseTable();

    // Fixed random numbers from the table.
    static double randomNoise(int i);
    static float fastRandomNoiseFloat(int i);
    static float reallyFastRandomNoiseFloat(int i) { return fsTable[i]; }
    static T3Float valuesInNoiseTable(unsigned i);

    // Generators.
    static float nFrand(int& seed);
    static double nDrand(int& seed);
    static double erand48_r(unsigned short state[3]);
    // The state srand48(seed) sets.
    static void seed48State(unsigned short state[3], long seed);
    // A table maker that seeded its own state hands the state its draws left,
    // so that the random list goes on from there as drand48() would.
    static void continueStream(const unsigned short state[3]);
    // One erand48 step on a state of three 16-bit values held in 32-bit words.
    static void nextRE(uint32_t state[3]);
    static float rRand();
    static void initNoiseState();
    static int initialSeedValue() { return 2413; }
    static void purge() {}

    // Views for callers that want the tables themselves.
    static const float* sDefaultRandomTable() { return kDefaultRandomTableStorage.data() + kRandomTableFront; }
    static const float* sOldRandomTable() { return kOldRandomTableStorage.data() + kRandomTableFront; }
    static const T3Float* sGradientTable();  // made on first use
    static const float* sRandomList();       // made on first use
    static int sInstanceCount();

private:
    using TnoiseFn = float (*)(float, float, float);
    static float sFirstNoise3(float x, float y, float z);
    static std::atomic<TnoiseFn> fsNoise3;
};
