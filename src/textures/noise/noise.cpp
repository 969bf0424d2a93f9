#include "textures/noise/noise.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

#include "framework/host/environment.h"
#include "framework/host/threads.h"

// ---------------------------------------------------------------------------
// Tables

// The old form: s(0) = 4426, s(i+1) = (s(i) * 25173 + 13849) AND 0xFFFF,
// entry i = 2 s(i) / 65535 - 1. Made at compile time so that it is ready
// before any static initialiser can read it.
static constexpr TrandomTableStorage sMakeOldRandomTable() {
    TrandomTableStorage table{};
    uint32_t s = 4426;
    for (int i = 0; i < kRandomTableSize; ++i) {
        table[kRandomTableFront + i] = float(2.0 * double(s) / 65535.0 - 1.0);
        s = (s * 25173u + 13849u) & 0xFFFFu;
    }
    return table;
}
alignas(64) constexpr TrandomTableStorage kOldRandomTableStorage = sMakeOldRandomTable();

// Constant-initialised to the default form; the switch below runs at load.
const float* Tnoise::fsTable = kDefaultRandomTableStorage.data() + kRandomTableFront;

[[maybe_unused]] static const bool sRandomTableChosen = [] {
    if (TenvironmentVariable("TOVI_RENDERER_OLD_RANDOM_TABLE").asInt32(0) != 0)
        Tnoise::fsTable = Tnoise::sOldRandomTable();
    return true;
}();

const uint8_t Tnoise::fsPermutation[256] = {
    225, 155, 210, 108, 175, 199, 221, 144, 203, 116, 70,  213, 69,  158, 33,  252,
    5,   82,  173, 133, 222, 139, 174, 27,  9,   71,  90,  246, 75,  130, 91,  191,
    169, 138, 2,   151, 194, 235, 81,  7,   25,  113, 228, 159, 205, 253, 134, 142,
    248, 65,  224, 217, 22,  121, 229, 63,  89,  103, 96,  104, 156, 17,  201, 129,
    36,  8,   165, 110, 237, 117, 231, 56,  132, 211, 152, 20,  181, 111, 239, 218,
    170, 163, 51,  172, 157, 47,  80,  212, 176, 250, 87,  49,  99,  242, 136, 189,
    162, 115, 44,  43,  124, 94,  150, 16,  141, 247, 32,  10,  198, 223, 255, 72,
    53,  131, 84,  57,  220, 197, 58,  50,  208, 11,  241, 28,  3,   192, 62,  202,
    18,  215, 153, 24,  76,  41,  15,  179, 39,  46,  55,  6,   128, 167, 23,  188,
    106, 34,  187, 140, 164, 73,  112, 182, 244, 195, 227, 13,  35,  77,  196, 185,
    26,  200, 226, 119, 31,  123, 168, 125, 249, 68,  183, 230, 177, 135, 160, 180,
    12,  1,   243, 148, 102, 166, 38,  238, 251, 37,  240, 126, 64,  74,  161, 40,
    184, 149, 171, 178, 101, 66,  29,  59,  146, 61,  254, 107, 42,  86,  154, 4,
    236, 232, 120, 21,  233, 209, 45,  98,  193, 114, 78,  19,  206, 14,  118, 127,
    48,  79,  147, 85,  30,  207, 219, 54,  88,  234, 190, 122, 95,  67,  143, 109,
    137, 214, 145, 93,  92,  100, 245, 0,   216, 186, 60,  83,  105, 97,  204, 52,
};

// The library mutex: it guards the table makers and the random list.
static TmtRecursiveMutex& sLibraryMutex() {
    static TmtRecursiveMutex mutex;
    return mutex;
}

static TmtRefCounter sInstances;
static std::atomic<const T3Float*> sGradients{nullptr};
static std::atomic<const float*> sList{nullptr};
static int sListIndex = 0;  // guarded by the library mutex

// The stream that drand48() would give in this process had the table makers
// seeded and drawn from the C library's global state, as they once did: it
// starts where that state stands when the library loads (the C library's
// default), and a maker that seeds leaves it where its draws ended. Kept
// privately so that nobody else's drand48() is disturbed. Guarded by the
// library mutex.
static unsigned short sStream[3];
static const bool sStreamCaptured = [] {
    // seed48 hands back the state it replaces; putting it back leaves the C
    // library as it was.
    unsigned short probe[3] = {0, 0, 0};
    const unsigned short* was = seed48(probe);
    unsigned short held[3] = {was[0], was[1], was[2]};
    seed48(held);
    std::copy(held, held + 3, sStream);
    return true;
}();

std::atomic<Tnoise::TnoiseFn> Tnoise::fsNoise3{&Tnoise::sFirstNoise3};

Tnoise::Tnoise() {
    sInstances.add();
    fsNoise3.store(&computeNoise3, std::memory_order_relaxed);
}

Tnoise::~Tnoise() { sInstances.remove(); }

int Tnoise::sInstanceCount() { return sInstances.count(); }

float Tnoise::sFirstNoise3(float x, float y, float z) {
    fsNoise3.store(&computeNoise3, std::memory_order_relaxed);
    return computeNoise3(x, y, z);
}

// ---------------------------------------------------------------------------
// Cell location

// c - floor(c), for any float. Beyond 2^31 every float is whole, so the
// fraction is 0; infinities and NaN also give 0 rather than an index from
// nowhere.
static inline float sFraction(float c) {
    if (!(c > -2147483648.0f && c < 2147483648.0f)) return 0.0f;
    float whole = float(int32_t(c));
    if (!(c > 0) && whole != c) whole -= 1.0f;
    return c - whole;
}

static inline double sFraction(double c) {
    if (!(c > -9.2e18 && c < 9.2e18)) return 0.0;
    double whole = double(int64_t(c));
    if (!(c > 0) && whole != c) whole -= 1.0;
    return c - whole;
}

// floor(c) modulo 256 and the fraction, for the gradient lattice. Floats of
// 2^31 and beyond are multiples of 256.
static inline float sSplit256(float c, int& cell) {
    if (!(c > -2147483648.0f && c < 2147483648.0f)) {
        cell = 0;
        return 0.0f;
    }
    int64_t whole = int64_t(c);
    if (!(c > 0) && float(whole) != c) whole -= 1;
    cell = int(whole & 255);
    return c - float(whole);
}

// Lattice cell of a value-noise coordinate: the three neighbour indices and
// the fraction within the middle cell.
struct TlatticeAxis {
    unsigned lo, mid, hi;
    float f;
};

static inline TlatticeAxis sAxis(float c) {
    float p = sFraction(c) * float(Tnoise::kCellsPerUnit);
    unsigned i = unsigned(p);
    return {(i + 31) & 31, i & 31, (i + 1) & 31, p - float(i)};
}

static inline float sOverRangeToZero(float c) { return c > Tnoise::kMaxCoordinate ? 0.0f : c; }

// Doubled uniform quadratic B-spline through A, B, C at fraction f.
static inline float sQ(float a, float b, float c, float f) {
    return (a + b) + ((a - 2.0f * b + c) * f - 2.0f * (a - b)) * f;
}

static inline double sQ(double a, double b, double c, double f) {
    return (a + b) + ((a - 2.0 * b + c) * f - 2.0 * (a - b)) * f;
}

// ---------------------------------------------------------------------------
// Value noise

float Tnoise::noise1(float x) {
    x = sOverRangeToZero(x);
    float p = sFraction(x) * float(kCellsPerUnit);
    // Deliberate: the first cell extrapolates (f runs from -1 to 0) and the
    // indices do not wrap at 32; older scenes depend on both.
    unsigned i = p < 1.0f ? 1u : unsigned(p);
    float f = p - float(i);
    const float* t = fsTable;
    float a = t[(i - 1) % kTableSize], b = t[i % kTableSize], c = t[(i + 1) % kTableSize];
    // Deliberate: a quarter, not a half, so noise1 spans half the range of the others.
    return sQ(a, b, c, f) * 0.25f;
}

float Tnoise::noise2(float x, float y) {
    // Deliberate: noise2 clamps an over-range coordinate where the others reset it to 0.
    if (x > kMaxCoordinate) x = kMaxCoordinate;
    if (y > kMaxCoordinate) y = kMaxCoordinate;
    TlatticeAxis ax = sAxis(x), ay = sAxis(y);
    const float* t = fsTable;
    float row[3];
    const unsigned rows[3] = {ay.lo << 5, ay.mid << 5, ay.hi << 5};
    for (int r = 0; r < 3; ++r)
        row[r] = sQ(t[ax.lo | rows[r]], t[ax.mid | rows[r]], t[ax.hi | rows[r]], ax.f);
    return sQ(row[0], row[1], row[2], ay.f) * 0.25f;
}

float Tnoise::computeNoise3(float x, float y, float z) {
    TlatticeAxis ax = sAxis(sOverRangeToZero(x));
    TlatticeAxis ay = sAxis(sOverRangeToZero(y));
    TlatticeAxis az = sAxis(sOverRangeToZero(z));
    const float* t = fsTable;
    const unsigned ys[3] = {ay.lo << 5, ay.mid << 5, ay.hi << 5};
    const unsigned zs[3] = {az.lo << 10, az.mid << 10, az.hi << 10};
    float plane[3];
    for (int k = 0; k < 3; ++k) {
        float row[3];
        for (int j = 0; j < 3; ++j) {
            unsigned base = ys[j] | zs[k];
            row[j] = sQ(t[ax.lo | base], t[ax.mid | base], t[ax.hi | base], ax.f);
        }
        plane[k] = sQ(row[0], row[1], row[2], ay.f);
    }
    return sQ(plane[0], plane[1], plane[2], az.f) * 0.125f;
}

static inline float sFrac(float v) { return v - std::trunc(v); }

float Tnoise::noise4(float x, float y, float z, float time, int period) {
    // A period above 60000 acts as 60000; a negative one as 0 (no change over time).
    int steps = period < 0 ? 0 : (period > kMaxTimePeriod ? kMaxTimePeriod : period);
    float q = sFraction(time) * float(steps);
    int i = int(q);
    float ft = q - float(i);
    const float* t = fsTable;
    // Deliberate: these rotation constants fix the look of animated noise.
    const float a = (t[i] + 1.0f) * 21568.16f;
    const float b = (t[i + 1] + 1.0f) * 21568.16f;
    const float c = (t[i + 2] + 1.0f) * 21568.16f;

    TlatticeAxis ax = sAxis(sOverRangeToZero(x));
    TlatticeAxis ay = sAxis(sOverRangeToZero(y));
    TlatticeAxis az = sAxis(sOverRangeToZero(z));
    const unsigned xs[3] = {ax.lo, ax.mid, ax.hi};
    const unsigned ys[3] = {ay.lo << 5, ay.mid << 5, ay.hi << 5};
    const unsigned zs[3] = {az.lo << 10, az.mid << 10, az.hi << 10};
    float plane[3];
    for (int k = 0; k < 3; ++k) {
        float row[3];
        for (int j = 0; j < 3; ++j) {
            float v[3];
            for (int n = 0; n < 3; ++n) {
                float r = t[xs[n] | ys[j] | zs[k]] + 2.0f;
                v[n] = sQ(sFrac(a * r), sFrac(b * r), sFrac(c * r), ft);
            }
            row[j] = sQ(v[0], v[1], v[2], ax.f);
        }
        plane[k] = sQ(row[0], row[1], row[2], ay.f);
    }
    return sQ(plane[0], plane[1], plane[2], az.f) * 0.125f - 1.0f;
}

void Tnoise::DNoise2(double x, double y, float out[3]) {
    if (x > double(kMaxCoordinate)) x = 0;
    if (y > double(kMaxCoordinate)) y = 0;
    const double px = sFraction(x) * kCellsPerUnit, py = sFraction(y) * kCellsPerUnit;
    const unsigned ix = unsigned(px), iy = unsigned(py);
    const double f = px - ix, g = py - iy;
    const unsigned xs[3] = {(ix + 31) & 31, ix & 31, (ix + 1) & 31};
    const unsigned ys[3] = {((iy + 31) & 31) << 5, (iy & 31) << 5, ((iy + 1) & 31) << 5};
    const float* t = fsTable;
    double d[3], p[3];
    for (int r = 0; r < 3; ++r) {
        double a = t[xs[0] | ys[r]], b = t[xs[1] | ys[r]], c = t[xs[2] | ys[r]];
        d[r] = (a - 2 * b + c) * f - (a - b);
        p[r] = sQ(a, b, c, f);
    }
    out[0] = float(sQ(d[0], d[1], d[2], g));
    out[1] = float((p[0] - 2 * p[1] + p[2]) * g - (p[0] - p[1]));
    out[2] = float((p[0] + p[1] + (4 * (p[1] - p[0]) + (p[0] - 2 * p[1] + p[2]) * g) * g) * 0.25);
}

// ---------------------------------------------------------------------------
// Gradient noise

// The 48-bit state srand48(seed) would set, on a private copy, so that table
// makers neither race on nor disturb the C library's global state.
void Tnoise::seed48State(unsigned short state[3], long seed) {
    state[0] = 0x330E;
    state[1] = (unsigned short)(seed & 0xFFFF);
    state[2] = (unsigned short)((seed >> 16) & 0xFFFF);
}

void Tnoise::initGradientNoiseTable() {
    TmtLock lock(sLibraryMutex());
    if (sGradients.load(std::memory_order_acquire)) return;
    auto* table = new T3Float[kTableSize];
    unsigned short state[3];
    seed48State(state, 1);
    for (int i = 0; i < kTableSize; ++i) {
        double z = 1.0 - 2.0 * erand48_r(state);
        double r = std::sqrt(1.0 - z * z);
        double a = 2.0 * M_PI * erand48_r(state);
        table[i] = T3Float(float(r * std::cos(a)), float(r * std::sin(a)), float(z));
    }
    continueStream(state);
    sGradients.store(table, std::memory_order_release);  // stands until the process ends
}

const T3Float* Tnoise::sGradientTable() {
    const T3Float* g = sGradients.load(std::memory_order_acquire);
    if (!g) {
        initGradientNoiseTable();
        g = sGradients.load(std::memory_order_acquire);
    }
    return g;
}

static inline int sHash(int ix, int iy, int iz) {
    const uint8_t* p = Tnoise::fsPermutation;
    return p[(p[(p[iz & 255] + iy) & 255] + ix) & 255];
}

float Tnoise::gLattice(int ix, int iy, int iz, float fx, float fy, float fz) {
    const T3Float& g = sGradientTable()[sHash(ix, iy, iz)];
    return g.x * fx + g.y * fy + g.z * fz;
}

static inline float sFade(float f) { return f * f * (3.0f - 2.0f * f); }
static inline float sLerp(float w, float a, float b) { return a + w * (b - a); }

float Tnoise::gNoise3(float x, float y, float z) {
    const T3Float* grad = sGradientTable();
    int ix, iy, iz;
    const float fx = sSplit256(sOverRangeToZero(x), ix);
    const float fy = sSplit256(sOverRangeToZero(y), iy);
    const float fz = sSplit256(sOverRangeToZero(z), iz);
    const uint8_t* p = fsPermutation;
    // Hash the z and y corners once; the x corners share them.
    float corner[8];
    for (int dz = 0; dz < 2; ++dz) {
        const int hz = p[(iz + dz) & 255];
        for (int dy = 0; dy < 2; ++dy) {
            const int hy = p[(hz + iy + dy) & 255];
            for (int dx = 0; dx < 2; ++dx) {
                const T3Float& g = grad[p[(hy + ix + dx) & 255]];
                corner[dz * 4 + dy * 2 + dx] = g.x * (fx - dx) + g.y * (fy - dy) + g.z * (fz - dz);
            }
        }
    }
    const float wx = sFade(fx), wy = sFade(fy), wz = sFade(fz);
    const float y0 = sLerp(wy, sLerp(wx, corner[0], corner[1]), sLerp(wx, corner[2], corner[3]));
    const float y1 = sLerp(wy, sLerp(wx, corner[4], corner[5]), sLerp(wx, corner[6], corner[7]));
    return sLerp(wz, y0, y1);
}

// ---------------------------------------------------------------------------
// Fixed random numbers

double Tnoise::randomNoise(int i) {
    unsigned u = i < 0 ? 0u - unsigned(i) : unsigned(i);
    return fsTable[u % kTableSize];
}

float Tnoise::fastRandomNoiseFloat(int i) {
    // Deliberately no check for negative i: callers pass indices they made.
    if (i >= kTableSize) i %= kTableSize;
    return fsTable[i];
}

T3Float Tnoise::valuesInNoiseTable(unsigned i) {
    const int s = int(i);
    const float* t = fsTable;
    if (s < -2 || s > kTableSize - 3) {
        i %= kTableSize;
        unsigned j = i + 1 >= unsigned(kTableSize) ? i + 1 - kTableSize : i + 1;
        unsigned k = i + 2 >= unsigned(kTableSize) ? i + 2 - kTableSize : i + 2;
        return {t[i], t[j], t[k]};
    }
    // -2 and -1 are left alone and read the guard zeros in front of the table.
    return {t[s], t[s + 1], t[s + 2]};
}

static inline int sNextSeed(int seed) { return int((unsigned(seed) * 25173u + 13849u) & 0xFFFFu); }

float Tnoise::nFrand(int& seed) {
    seed = sNextSeed(seed);
    return float(seed) / 65535.0f;
}

double Tnoise::nDrand(int& seed) {
    seed = sNextSeed(seed);
    return double(seed) / 65535.0;
}

void Tnoise::nextRE(uint32_t state[3]) {
    uint64_t x = (uint64_t(state[2] & 0xFFFF) << 32) | (uint64_t(state[1] & 0xFFFF) << 16) | (state[0] & 0xFFFF);
    x = (x * 0x5DEECE66DULL + 0xB) & 0xFFFFFFFFFFFFULL;
    state[0] = uint32_t(x & 0xFFFF);
    state[1] = uint32_t((x >> 16) & 0xFFFF);
    state[2] = uint32_t((x >> 32) & 0xFFFF);
}

double Tnoise::erand48_r(unsigned short state[3]) {
    uint32_t words[3] = {state[0], state[1], state[2]};
    nextRE(words);
    state[0] = (unsigned short)words[0];
    state[1] = (unsigned short)words[1];
    state[2] = (unsigned short)words[2];
    return std::ldexp(double(words[2]), -16) + std::ldexp(double(words[1]), -32) + std::ldexp(double(words[0]), -48);
}

const float* Tnoise::sRandomList() {
    const float* list = sList.load(std::memory_order_acquire);
    if (list) return list;
    TmtLock lock(sLibraryMutex());
    list = sList.load(std::memory_order_relaxed);
    if (!list) {
        auto* made = new float[kRandomListSize];
        for (int i = 0; i < kRandomListSize; ++i) made[i] = float(erand48_r(sStream));
        sList.store(made, std::memory_order_release);  // stands until the process ends
        list = made;
    }
    return list;
}

float Tnoise::rRand() {
    const float* list = sRandomList();
    TmtLock lock(sLibraryMutex());
    if (++sListIndex >= kRandomListSize) sListIndex = 0;
    return list[sListIndex];
}

void Tnoise::continueStream(const unsigned short state[3]) {
    TmtLock lock(sLibraryMutex());
    std::copy(state, state + 3, sStream);
}

void Tnoise::initNoiseState() {
    TmtLock lock(sLibraryMutex());
    sListIndex = 0;
}
