#pragma once
// T4dVectorNoise: a field of vectors over x, y, z and time, tiled with 16
// cells on each axis. It is synthesised once in the frequency domain from a
// transverse spectrum (so it swirls rather than spreads), brought back by a
// four-dimensional inverse transform and kept packed in four bytes a cell.
#include <complex>
#include <cstdint>
#include <vector>

#include "framework/host/math.h"

class T4dVectorNoise {
public:
    static constexpr int kGridSize = 16;
    static constexpr int kHalfGrid = kGridSize / 2;
    static constexpr int kCellCount = kGridSize * kGridSize * kGridSize * kGridSize;
    static constexpr long kSeed = 5;

    // A cell: direction times 127 as three signed bytes, then the length over
    // the table's largest length times 255.
    struct Tcell {
        int8_t direction[3];
        uint8_t length;
    };

    // One complex array of kCellCount per component, index ((t*16 + z)*16 + y)*16 + x.
    using Tfield = std::vector<std::complex<float>>;

    // Linear interpolation of the 16 corners around (p, t). Zero when the
    // table could not be made.
    static T3Float getNoise(T3Float p, float t);
    // Cubic B-spline weights over 4 cells in x, y and z; linear in t.
    static T3Float getNoiseSmooth(T3Float p, float t);
    // Cubic B-spline weights over 4 cells on all four axes.
    static T3Float getNoiseSmoothTime(T3Float p, float t);

    // Makes the shared table if it is not there yet; the first caller makes
    // it and the others wait.
    static void initTable();
    static const Tcell* table();  // null until made, or if making it failed
    static float tableScale();

    // The steps of making a table, public so that a caller can make its own.
    // fillSpectrum: the random spectrum for the seed, Hermitian so that its
    // transform is real. inverseTransform: in place, per component; false if
    // the transform could not be planned. pack: the cells and the scale.
    static void fillSpectrum(Tfield field[3]);
    static bool inverseTransform(Tfield field[3]);
    static float pack(const Tfield field[3], Tcell* cells);
    // All three steps into `cells`; false (and cells untouched) on failure.
    static bool buildTable(Tcell* cells, float& scale);

    // Signed frequency of index i on an axis: 0..7, then -8..-1.
    static int sFrequency(int i) { return i < kHalfGrid ? i : i - kGridSize; }
    static int sIndex(int x, int y, int z, int t) { return ((t * kGridSize + z) * kGridSize + y) * kGridSize + x; }

private:
    static void InitGauss();
    static double NGauss(unsigned short state[3]);
    static double E(double k, double w);
    static double S(int m, int n, const double kv[3], double w);
    static void CalcField(Tfield field[3], int x, int y, int z, int t, unsigned short state[3]);
    static void CalcSymField(Tfield field[3], int x, int y, int z, int t, unsigned short state[3]);

    static double fsGaussAdd;
    static double fsGaussFactor;
};
