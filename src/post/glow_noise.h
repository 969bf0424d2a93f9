#pragma once
// The smooth periodic value noise of the glow effects and the radial star
// and noise pattern built on it. Each post node keeps a table of its own.
#include <cstddef>
#include <vector>

class TglowNoise {
public:
    static constexpr int kTableSize = 65535;
    static constexpr int kLattice = 32;
    static constexpr unsigned kSeed = 2413;

    TglowNoise();
    // Period 1 in both coordinates; about -0.5..0.5.
    double noise(double x, double y) const;
    // The angular pattern around (0, 0): a star of `points` rays of depth
    // `star`, darkened by noise along the angle. 1 where neither is asked.
    double radialGlowNoise(double x, double y, double star, double points, double noiseLevel, double frequency,
                           double rotation) const;
    const std::vector<double>& table() const { return fTable; }

private:
    double lattice(int ix, int iy) const { return fTable[std::size_t((iy & (kLattice - 1)) * kLattice + (ix & (kLattice - 1)))]; }
    std::vector<double> fTable;
};
