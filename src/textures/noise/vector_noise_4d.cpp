#include "textures/noise/vector_noise_4d.h"

#include <fftw3.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <new>

#include "textures/noise/noise.h"

double T4dVectorNoise::fsGaussAdd = 0.0;
double T4dVectorNoise::fsGaussFactor = 0.0;

static std::mutex& sTableMutex() {
    static std::mutex mutex;
    return mutex;
}
// The transform planner is not re-entrant; every plan is made under this.
static std::mutex& sPlannerMutex() {
    static std::mutex mutex;
    return mutex;
}

static std::atomic<const T4dVectorNoise::Tcell*> sTable{nullptr};
static float sScale = 0.0f;  // written before sTable is published
static bool sTried = false;  // guarded by sTableMutex

// ---------------------------------------------------------------------------
// Synthesis

void T4dVectorNoise::InitGauss() {
    // The sum of 8 uniforms has mean 4 and variance 2/3; these make it N(0, 1).
    fsGaussAdd = 4.89898;
    fsGaussFactor = 1.224745;
}

double T4dVectorNoise::NGauss(unsigned short state[3]) {
    double sum = 0.0;
    for (int i = 0; i < 8; ++i) sum += Tnoise::erand48_r(state);
    return sum * fsGaussFactor - fsGaussAdd;
}

// Energy density at spatial frequency k and temporal frequency w: a k^-1/2
// spatial falloff, and a Gaussian in time whose width grows with k, so that
// fine detail changes faster than coarse.
double T4dVectorNoise::E(double k, double w) {
    if (k < 1.0) return 0.0;  // below the table's smallest frequency
    double s = 0.5 * k * k;
    if (!(s > 0.0)) s = 0.001;
    return (1.5 / std::sqrt(k)) * std::exp(-w * w / (2.0 * s)) / std::sqrt(2.0 * M_PI * s);
}

// The spectrum tensor: the transverse projection times E over the shell area.
double T4dVectorNoise::S(int m, int n, const double kv[3], double w) {
    double k2 = kv[0] * kv[0] + kv[1] * kv[1] + kv[2] * kv[2];
    if (k2 <= 0.0) return 0.0;
    double k = std::sqrt(k2);
    double projection = (m == n ? 1.0 : 0.0) - kv[m] * kv[n] / k2;
    return projection * E(k, w) / (4.0 * M_PI * k2);
}

// The projection is idempotent, so the square root of S is the projection
// times the square root of the scalar part: S(m, n) / sqrt(E / 4 pi k^2).
static void sShape(const double kv[3], double w, const std::complex<double> g[3], std::complex<double> out[3],
                   double (*spectrum)(int, int, const double*, double), double scalar) {
    for (int m = 0; m < 3; ++m) {
        out[m] = 0.0;
        if (scalar <= 0.0) continue;
        double root = std::sqrt(scalar);
        for (int n = 0; n < 3; ++n) out[m] += spectrum(m, n, kv, w) / root * g[n];
    }
}

void T4dVectorNoise::CalcField(Tfield field[3], int x, int y, int z, int t, unsigned short state[3]) {
    const double kv[3] = {double(sFrequency(x)), double(sFrequency(y)), double(sFrequency(z))};
    const double w = sFrequency(t);
    std::complex<double> g[3], f[3];
    for (auto& c : g) {
        double re = NGauss(state);
        c = {re, NGauss(state)};
    }
    const double k2 = kv[0] * kv[0] + kv[1] * kv[1] + kv[2] * kv[2];
    const double scalar = k2 > 0 ? E(std::sqrt(k2), w) / (4.0 * M_PI * k2) : 0.0;
    sShape(kv, w, g, f, &S, scalar);
    const int here = sIndex(x, y, z, t);
    const int mirror = sIndex((kGridSize - x) % kGridSize, (kGridSize - y) % kGridSize, (kGridSize - z) % kGridSize,
                              (kGridSize - t) % kGridSize);
    for (int m = 0; m < 3; ++m) {
        field[m][here] = std::complex<float>(f[m]);
        field[m][mirror] = std::conj(std::complex<float>(f[m]));  // so that the field is real
    }
}

void T4dVectorNoise::CalcSymField(Tfield field[3], int x, int y, int z, int t, unsigned short state[3]) {
    const double kv[3] = {double(sFrequency(x)), double(sFrequency(y)), double(sFrequency(z))};
    const double w = sFrequency(t);
    std::complex<double> g[3], f[3];
    for (auto& c : g) c = NGauss(state);  // its own conjugate: real
    const double k2 = kv[0] * kv[0] + kv[1] * kv[1] + kv[2] * kv[2];
    const double scalar = k2 > 0 ? E(std::sqrt(k2), w) / (4.0 * M_PI * k2) : 0.0;
    sShape(kv, w, g, f, &S, scalar);
    const int here = sIndex(x, y, z, t);
    for (int m = 0; m < 3; ++m) field[m][here] = std::complex<float>(float(f[m].real()), 0.0f);
}

void T4dVectorNoise::fillSpectrum(Tfield field[3]) {
    InitGauss();
    unsigned short state[3];
    Tnoise::seed48State(state, kSeed);
    for (int m = 0; m < 3; ++m) field[m].assign(kCellCount, std::complex<float>(0.0f, 0.0f));
    for (int t = 0; t < kGridSize; ++t)
        for (int z = 0; z < kGridSize; ++z)
            for (int y = 0; y < kGridSize; ++y)
                for (int x = 0; x < kGridSize; ++x) {
                    const int here = sIndex(x, y, z, t);
                    const int mirror = sIndex((kGridSize - x) % kGridSize, (kGridSize - y) % kGridSize,
                                              (kGridSize - z) % kGridSize, (kGridSize - t) % kGridSize);
                    if (here < mirror)
                        CalcField(field, x, y, z, t, state);
                    else if (here == mirror)
                        CalcSymField(field, x, y, z, t, state);
                    // here > mirror: written as the mirror of an earlier cell
                }
    Tnoise::continueStream(state);
}

bool T4dVectorNoise::inverseTransform(Tfield field[3]) {
    const int n[4] = {kGridSize, kGridSize, kGridSize, kGridSize};
    for (int m = 0; m < 3; ++m) {
        if (field[m].size() != size_t(kCellCount)) return false;
        auto* data = reinterpret_cast<fftwf_complex*>(field[m].data());
        fftwf_plan plan;
        {
            std::lock_guard<std::mutex> lock(sPlannerMutex());
            plan = fftwf_plan_dft(4, n, data, data, FFTW_BACKWARD, FFTW_ESTIMATE);
        }
        if (!plan) return false;
        fftwf_execute(plan);
        std::lock_guard<std::mutex> lock(sPlannerMutex());
        fftwf_destroy_plan(plan);
    }
    return true;
}

float T4dVectorNoise::pack(const Tfield field[3], Tcell* cells) {
    double largest = 0.0;
    for (int i = 0; i < kCellCount; ++i) {
        double x = field[0][i].real(), y = field[1][i].real(), z = field[2][i].real();
        largest = std::max(largest, std::sqrt(x * x + y * y + z * z));
    }
    for (int i = 0; i < kCellCount; ++i) {
        double v[3] = {field[0][i].real(), field[1][i].real(), field[2][i].real()};
        double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        Tcell& c = cells[i];
        if (len == 0.0 || largest == 0.0) {
            c = Tcell{{0, 0, 0}, 0};
            continue;
        }
        for (int m = 0; m < 3; ++m) c.direction[m] = int8_t(std::lround(v[m] / len * 127.0));
        c.length = uint8_t(std::lround(len / largest * 255.0));
    }
    return float(largest);
}

bool T4dVectorNoise::buildTable(Tcell* cells, float& scale) {
    Tfield field[3];
    try {
        fillSpectrum(field);
    } catch (const std::bad_alloc&) {
        return false;  // no table: lookups give the zero vector
    }
    if (!inverseTransform(field)) return false;
    scale = pack(field, cells);
    return true;
}

void T4dVectorNoise::initTable() {
    if (sTable.load(std::memory_order_acquire)) return;
    std::lock_guard<std::mutex> lock(sTableMutex());
    if (sTried) return;
    sTried = true;  // a failure is not retried on every lookup
    auto* cells = new (std::nothrow) Tcell[kCellCount];
    if (!cells) return;
    float scale = 0.0f;
    if (!buildTable(cells, scale)) {
        delete[] cells;
        return;
    }
    sScale = scale;
    sTable.store(cells, std::memory_order_release);  // stands until the process ends
}

const T4dVectorNoise::Tcell* T4dVectorNoise::table() { return sTable.load(std::memory_order_acquire); }

float T4dVectorNoise::tableScale() { return table() ? sScale : 0.0f; }

// ---------------------------------------------------------------------------
// Lookups

// Grid cell (wrapped to 0..15) and fraction of p * 8 + 8.
static inline void sGridAxis(float p, int& cell, float& frac) {
    const float g = p * float(T4dVectorNoise::kHalfGrid) + float(T4dVectorNoise::kHalfGrid);
    if (!(g > -2147483648.0f && g < 2147483648.0f)) {  // whole, infinite or NaN
        cell = 0;
        frac = 0.0f;
        return;
    }
    int64_t whole = int64_t(g);
    if (!(g > 0) && float(whole) != g) whole -= 1;
    frac = g - float(whole);
    cell = int(whole % T4dVectorNoise::kGridSize);
    if (cell < 0) cell += T4dVectorNoise::kGridSize;
}

// Weights of an axis: `taps` cells from `first` (relative to the cell).
struct TaxisTaps {
    int cells[4];
    float weights[4];
    int taps;
};

static TaxisTaps sLinearTaps(float p) {
    TaxisTaps a{};
    int cell;
    float f;
    sGridAxis(p, cell, f);
    a.taps = 2;
    a.cells[0] = cell;
    a.cells[1] = (cell + 1) % T4dVectorNoise::kGridSize;
    a.weights[0] = 1.0f - f;
    a.weights[1] = f;
    return a;
}

// Uniform cubic B-spline over cells -1..2: smooth in value and slope.
static TaxisTaps sCubicTaps(float p) {
    TaxisTaps a{};
    int cell;
    float f;
    sGridAxis(p, cell, f);
    a.taps = 4;
    for (int i = 0; i < 4; ++i) a.cells[i] = (cell + i - 1 + T4dVectorNoise::kGridSize) % T4dVectorNoise::kGridSize;
    const float f2 = f * f, f3 = f2 * f, g = 1.0f - f;
    a.weights[0] = g * g * g / 6.0f;
    a.weights[1] = (3.0f * f3 - 6.0f * f2 + 4.0f) / 6.0f;
    a.weights[2] = (-3.0f * f3 + 3.0f * f2 + 3.0f * f + 1.0f) / 6.0f;
    a.weights[3] = f3 / 6.0f;
    return a;
}

static T3Float sGather(const TaxisTaps& ax, const TaxisTaps& ay, const TaxisTaps& az, const TaxisTaps& at) {
    const T4dVectorNoise::Tcell* table = T4dVectorNoise::table();
    if (!table) return T3Float(0, 0, 0);
    const float unit = T4dVectorNoise::tableScale() / 255.0f / 127.0f;
    float sx = 0, sy = 0, sz = 0;
    for (int it = 0; it < at.taps; ++it)
        for (int iz = 0; iz < az.taps; ++iz)
            for (int iy = 0; iy < ay.taps; ++iy) {
                const float wtzy = at.weights[it] * az.weights[iz] * ay.weights[iy];
                const int row = T4dVectorNoise::sIndex(0, ay.cells[iy], az.cells[iz], at.cells[it]);
                for (int ix = 0; ix < ax.taps; ++ix) {
                    const T4dVectorNoise::Tcell& c = table[row + ax.cells[ix]];
                    const float k = wtzy * ax.weights[ix] * float(c.length) * unit;
                    sx += k * float(c.direction[0]);
                    sy += k * float(c.direction[1]);
                    sz += k * float(c.direction[2]);
                }
            }
    return T3Float(sx, sy, sz);
}

T3Float T4dVectorNoise::getNoise(T3Float p, float t) {
    initTable();
    return sGather(sLinearTaps(p.x), sLinearTaps(p.y), sLinearTaps(p.z), sLinearTaps(t));
}

T3Float T4dVectorNoise::getNoiseSmooth(T3Float p, float t) {
    initTable();
    return sGather(sCubicTaps(p.x), sCubicTaps(p.y), sCubicTaps(p.z), sLinearTaps(t));
}

T3Float T4dVectorNoise::getNoiseSmoothTime(T3Float p, float t) {
    initTable();
    return sGather(sCubicTaps(p.x), sCubicTaps(p.y), sCubicTaps(p.z), sCubicTaps(t));
}
