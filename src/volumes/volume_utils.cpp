#include "volumes/volume_utils.h"

#include <alloca.h>

#include <cmath>
#include <cstdint>
#include <utility>

#include "shading/sample.h"

namespace {

using TEntry = TvolumeUtils::TEntry;
using Tcompare = int (*)(const void*, const void*);

enum Tmode { kModeEAS, kModeRT, kModeShadow };

constexpr float kShortest = 0.00001f;       // shorter stretches and intervals count as zero length
constexpr float kLeastExtinction = 0.00001f;
constexpr float kMatteTolerance = 0.00001f;
constexpr float kLowestTransparency = 0.00001f;
constexpr float kHighestTransparency = 0.99999f;
constexpr float kZeroLengthExtinction = 0.99999f;  // deliberately a constant, not a function of T
constexpr float kOpaqueLimit = 10000000.0f;         // a point blocks the ray only when all channels exceed it
constexpr float kRayDone = 0.0001f;                 // the sweep stops once every channel is below this
constexpr float kFirstPrevious = 0.0001f;

// exp and ln in double on float arguments, rounded back to float.
inline float expF(float x) { return float(std::exp(double(x))); }
inline float logF(float x) { return float(std::log(double(x))); }

// In-place sort of pointers with a qsort-style comparison. It never leaves
// the array, whatever the comparison answers (a NaN position answers -1 both
// ways), and it allocates nothing: insertion sort for short runs, quicksort
// with a depth limit, heapsort past it.
void insertionSort(const void** a, int lo, int hi, Tcompare cmp) {
    for (int i = lo + 1; i <= hi; ++i) {
        const void* x = a[i];
        int j = i;
        while (j > lo && cmp(&x, &a[j - 1]) < 0) {
            a[j] = a[j - 1];
            --j;
        }
        a[j] = x;
    }
}

void siftDown(const void** a, int root, int n, Tcompare cmp) {
    for (;;) {
        int child = 2 * root + 1;
        if (child >= n) return;
        if (child + 1 < n && cmp(&a[child], &a[child + 1]) < 0) ++child;
        if (cmp(&a[root], &a[child]) >= 0) return;
        std::swap(a[root], a[child]);
        root = child;
    }
}

void heapSort(const void** a, int n, Tcompare cmp) {
    for (int i = n / 2 - 1; i >= 0; --i) siftDown(a, i, n, cmp);
    for (int end = n - 1; end > 0; --end) {
        std::swap(a[0], a[end]);
        siftDown(a, 0, end, cmp);
    }
}

void sortPointers(const void** a, int n, Tcompare cmp) {
    int depth = 0;
    for (int m = n; m > 1; m >>= 1) depth += 2;
    int lo = 0, hi = n - 1;
    // Recurse on the smaller part and loop on the larger one.
    struct Tframe { int lo, hi, depth; };
    Tframe stack[64];
    int top = 0;
    for (;;) {
        while (hi - lo > 16) {
            if (depth-- <= 0) {
                heapSort(a + lo, hi - lo + 1, cmp);
                lo = hi;
                break;
            }
            int mid = lo + (hi - lo) / 2;
            if (cmp(&a[mid], &a[lo]) < 0) std::swap(a[mid], a[lo]);
            if (cmp(&a[hi], &a[mid]) < 0) std::swap(a[hi], a[mid]);
            if (cmp(&a[mid], &a[lo]) < 0) std::swap(a[mid], a[lo]);
            const void* pivot = a[mid];
            int i = lo, j = hi;
            while (i <= j) {
                while (i <= hi && cmp(&a[i], &pivot) < 0) ++i;
                while (j >= lo && cmp(&pivot, &a[j]) < 0) --j;
                if (i <= j) std::swap(a[i++], a[j--]);
            }
            if (j - lo < hi - i) {
                if (top < 64) stack[top++] = {i, hi, depth};
                else heapSort(a + i, hi - i + 1, cmp);
                hi = j;
            } else {
                if (top < 64) stack[top++] = {lo, j, depth};
                else heapSort(a + lo, j - lo + 1, cmp);
                lo = i;
            }
        }
        if (hi > lo) insertionSort(a, lo, hi, cmp);
        if (top == 0) return;
        --top;
        lo = stack[top].lo;
        hi = stack[top].hi;
        depth = stack[top].depth;
    }
}

struct Tflags {
    bool matteUnset = false;
    bool matteEqualsTransparency = true;
};

// Whether any channel of 1 - M differs from T by more than the tolerance.
bool matteDisagrees(const T3Float& oneMinusM, const T3Float& t) {
    for (int c = 0; c < 3; ++c)
        if (std::fabs(oneMinusM[c] - t[c]) > kMatteTolerance) return true;
    return false;
}

template <Tmode mode>
void addInterval(const Tsample& s, TEntry*& out, Tflags& flags) {
    const float enter = *s.particleEntryParam(), exit = *s.particleExitParam();
    const T3Float t = *s.outTransparency();
    TEntry& e = *out++;
    e.weight = 0;
    e.matteExtinction = T3Float();
    e.colorDensity = T3Float();
    e.glowDensity = T3Float();

    bool matteAgrees = true;
    T3Float x;  // 1 - matte opacity
    if constexpr (mode == kModeEAS) {
        const T3Float m = *s.outMatteOpacity();
        if (std::fabs(m.x - TvolumeUtils::kNoMatte) <= kMatteTolerance) {
            flags.matteUnset = true;
        } else {
            x = T3Float(1, 1, 1) - m;
            if (matteDisagrees(x, t)) {
                matteAgrees = false;
                flags.matteEqualsTransparency = false;
            }
        }
    }

    if (*s.objectType() == 4) {
        e.kind = TvolumeUtils::kParticleEnter;
        e.weight = *s.particleWeight();
        e.extinction = t;
        e.matteExtinction = t;
        if constexpr (mode != kModeShadow) {
            e.colorDensity = *s.outColor();
            e.glowDensity = *s.outGlowColor();
        }
    } else {
        e.kind = TvolumeUtils::kVolumeEnter;
        const float length = exit - enter;
        if (length < kShortest) {
            e.extinction = T3Float(kZeroLengthExtinction, kZeroLengthExtinction, kZeroLengthExtinction);
            e.matteExtinction = e.extinction;
        } else {
            T3Float k, g;
            if constexpr (mode != kModeShadow) {
                k = *s.outColor();
                g = *s.outGlowColor();
            }
            for (int c = 0; c < 3; ++c) {
                float tc = t[c] > kHighestTransparency ? kHighestTransparency : t[c];
                if constexpr (mode != kModeShadow) {
                    // Shadow rays keep no lower bound: a T of 0 is an infinite extinction and an exact zero.
                    if (tc < kLowestTransparency) tc = kLowestTransparency;
                }
                const float sigma = -logF(tc) / length;
                e.extinction[c] = sigma;
                if constexpr (mode != kModeShadow) {
                    e.colorDensity[c] = k[c] / (1 - tc) * sigma;
                    e.glowDensity[c] = g[c] / (1 - tc) * sigma;
                }
            }
            if constexpr (mode == kModeEAS) {
                if (!flags.matteUnset) {
                    if (matteAgrees) {
                        e.matteExtinction = e.extinction;
                    } else {
                        for (int c = 0; c < 3; ++c) {
                            const float xc = std::fabs(x[c]) <= kShortest ? kShortest : x[c];
                            e.matteExtinction[c] = -logF(xc) / length;
                        }
                    }
                }
            }
        }
    }
    e.t = enter;
    TEntry& leave = *out++;
    leave = e;
    leave.kind = e.kind + 1;
    leave.t = exit;
}

template <Tmode mode>
void addSurface(const Tsample& s, float factor, TEntry*& out, Tflags& flags) {
    TEntry& e = *out++;
    e.kind = TvolumeUtils::kSurfacePoint;
    e.t = *s.particleEntryParam();
    e.weight = 0;
    e.matteExtinction = T3Float(1, 1, 1);
    const bool forced = factor > 1.5f;
    const float g = forced ? factor - 2 : factor;
    T3Float t = *s.outTransparency();
    if constexpr (mode == kModeEAS) {
        const T3Float m = *s.outMatteOpacity();
        if (m.x == TvolumeUtils::kNoMatte) {
            flags.matteUnset = true;
        } else {
            e.matteExtinction = T3Float(1, 1, 1) - m;
            if (matteDisagrees(e.matteExtinction, t)) flags.matteEqualsTransparency = false;
        }
    }
    if (g < 1)
        for (int c = 0; c < 3; ++c) t[c] = 1 - (1 - t[c]) * g;
    if (forced) t = T3Float();
    e.extinction = t;
    if constexpr (mode != kModeShadow) {
        e.colorDensity = *s.outColor();
        e.glowDensity = *s.outGlowColor();
        if (g < 1) {
            e.colorDensity = e.colorDensity * g;
            e.glowDensity = e.glowDensity * g;
        }
    } else {
        e.colorDensity = T3Float();
        e.glowDensity = T3Float();
    }
}

// Multiplies `value` by a point's transmittance, or zeroes it when all three
// channels exceed the opaque limit.
inline void passPoint(T3Float& value, const T3Float& transmittance) {
    if (transmittance.x <= kOpaqueLimit || transmittance.y <= kOpaqueLimit || transmittance.z <= kOpaqueLimit) {
        for (int c = 0; c < 3; ++c) value[c] *= transmittance[c];
    } else {
        value = T3Float();
    }
}

struct Tresult {
    T3Float color;
    T3Float transparency{1, 1, 1};
    T3Float glow;
    T3Float matteTransmittance{1, 1, 1};
};

template <Tmode mode>
void sweep(TEntry* const* order, int count, bool matteTracking, Tresult& r) {
    int active = 0, particles = 0;
    T3Float extinction, volumeColor, volumeGlow, particleColor, particleGlow, matteExtinction;
    float weightSum = 0;
    float previous = kFirstPrevious;
    for (int k = 0; k < count; ++k) {
        const TEntry& e = *order[k];
        const float d = e.t - previous;
        previous = e.t;

        if (active >= 1 && d > kShortest) {
            float w = 0;
            if constexpr (mode != kModeShadow) {
                if (particles > 0) w = weightSum > 0 ? 1 / weightSum : 1;
            }
            for (int c = 0; c < 3; ++c) {
                const float sum = extinction[c];
                const float a = expF(-d * sum);
                if constexpr (mode != kModeShadow) {
                    const float reach = r.transparency[c] * (1 - a);
                    r.color[c] += reach * (volumeColor[c] / sum + particleColor[c] * w);
                    r.glow[c] += reach * (volumeGlow[c] / sum + particleGlow[c] * w);
                }
                r.transparency[c] *= a;
                if constexpr (mode == kModeEAS) {
                    if (matteTracking) r.matteTransmittance[c] *= expF(-d * matteExtinction[c]);
                }
            }
        }

        switch (e.kind) {
        case TvolumeUtils::kVolumeEnter:
        case TvolumeUtils::kParticleEnter:
            extinction = extinction + e.extinction;
            ++active;
            if constexpr (mode != kModeShadow) {
                if (e.kind == TvolumeUtils::kVolumeEnter) {
                    volumeColor = volumeColor + e.colorDensity;
                    volumeGlow = volumeGlow + e.glowDensity;
                } else {
                    particleColor = particleColor + e.colorDensity;
                    particleGlow = particleGlow + e.glowDensity;
                    weightSum += e.weight;
                    ++particles;
                }
            }
            break;
        case TvolumeUtils::kVolumeExit:
        case TvolumeUtils::kParticleExit:
            extinction = extinction - e.extinction;
            --active;
            if constexpr (mode != kModeShadow) {
                if (e.kind == TvolumeUtils::kVolumeExit) {
                    volumeColor = volumeColor - e.colorDensity;
                    volumeGlow = volumeGlow - e.glowDensity;
                } else {
                    particleColor = particleColor - e.colorDensity;
                    particleGlow = particleGlow - e.glowDensity;
                    weightSum -= e.weight;
                    --particles;
                }
            }
            break;
        default:  // a surface point
            if constexpr (mode != kModeShadow) {
                for (int c = 0; c < 3; ++c) {
                    r.color[c] += r.transparency[c] * e.colorDensity[c];
                    r.glow[c] += r.transparency[c] * e.glowDensity[c];
                }
            }
            passPoint(r.transparency, e.extinction);
            break;
        }

        // Keep the sums sane: nothing active means no extinction; otherwise
        // a division by the sum must stay finite.
        if (active <= 0) {
            extinction = T3Float();
        } else if (e.kind != TvolumeUtils::kSurfacePoint) {
            for (int c = 0; c < 3; ++c)
                if (extinction[c] < kLeastExtinction) extinction[c] = kLeastExtinction;
        }

        if constexpr (mode == kModeEAS) {
            if (matteTracking) {
                if (e.kind == TvolumeUtils::kSurfacePoint) {
                    passPoint(r.matteTransmittance, e.matteExtinction);
                } else {
                    const bool enters = e.kind == TvolumeUtils::kVolumeEnter || e.kind == TvolumeUtils::kParticleEnter;
                    matteExtinction = enters ? matteExtinction + e.matteExtinction : matteExtinction - e.matteExtinction;
                    for (int c = 0; c < 3; ++c)
                        if (matteExtinction[c] < kLeastExtinction) matteExtinction[c] = kLeastExtinction;
                }
            }
        }

        if (r.transparency.x < kRayDone && r.transparency.y < kRayDone && r.transparency.z < kRayDone) break;
    }
}

// Builds, sorts and sweeps the entries of samples[start..end] in `memory`,
// which holds room for 2 * count entries and as many pointers.
template <Tmode mode>
Tflags integrate(TsampleArray& samples, int start, int end, void* memory, Tcompare cmp, Tresult& r) {
    Tflags flags;
    const int count = end >= start ? end - start + 1 : 0;
    TEntry* entries = static_cast<TEntry*>(memory);
    TEntry** order = reinterpret_cast<TEntry**>(entries + 2 * count);
    TEntry* out = entries;
    for (int i = start; i <= end; ++i) {
        const Tsample& s = *samples[unsigned(i)];
        const float factor = *s.blobbySurfaceFactor();
        if (factor > 0)
            addSurface<mode>(s, factor, out, flags);
        else
            addInterval<mode>(s, out, flags);
    }
    const int made = int(out - entries);
    for (int k = 0; k < made; ++k) order[k] = entries + k;
    sortPointers(const_cast<const void**>(reinterpret_cast<void**>(order)), made, cmp);
    const bool matteTracking = mode == kModeEAS && !flags.matteUnset && !flags.matteEqualsTransparency;
    sweep<mode>(order, made, matteTracking, r);
    return flags;
}

// Stack bytes for the entries and pointers of `count` samples, with room to
// align the block to 16.
inline size_t workspaceBytes(int start, int end) {
    const size_t count = end >= start ? size_t(end - start + 1) : 0;
    return count * 2 * (sizeof(TEntry) + sizeof(TEntry*)) + 16;
}
inline void* align16(void* p) { return reinterpret_cast<void*>((reinterpret_cast<uintptr_t>(p) + 15) & ~uintptr_t(15)); }

inline bool takesShortCut(const TsampleArray& samples, int start, int end) {
    if (start != end) return false;
    const char type = *samples[unsigned(start)]->objectType();
    return type != 3 && type != 4;
}

}  // namespace

int TvolumeUtils::compareTEntries(const void* first, const void* second) {
    const float d = (*static_cast<const TEntry* const*>(first))->t - (*static_cast<const TEntry* const*>(second))->t;
    if (!(d >= 0)) return -1;  // negative, or NaN
    return d > 0 ? 1 : 0;
}

void TvolumeUtils::integrateEAS(TsampleArray* samples, int start, int end, T3Float& color, T3Float& transparency,
                                T3Float& glow, T3Float& matteOpacity) const {
    if (takesShortCut(*samples, start, end)) {
        const Tsample& s = *(*samples)[unsigned(start)];
        color = *s.outColor();
        transparency = *s.outTransparency();
        glow = *s.outGlowColor();
        matteOpacity = *s.outMatteOpacity();
        return;
    }
    Tresult r;
    void* memory = align16(alloca(workspaceBytes(start, end)));
    const Tflags flags = integrate<kModeEAS>(*samples, start, end, memory, &compareTEntries, r);
    color = r.color;
    transparency = r.transparency;
    glow = r.glow;
    if (flags.matteEqualsTransparency)
        matteOpacity = T3Float(1, 1, 1) - r.transparency;
    else if (!flags.matteUnset)
        matteOpacity = T3Float(1, 1, 1) - r.matteTransmittance;
    else
        matteOpacity = T3Float(kNoMatte, kNoMatte, kNoMatte);
}

void TvolumeUtils::integrateRT(TsampleArray* samples, int start, int end, T3Float& color, T3Float& transparency,
                               T3Float& glow) const {
    if (takesShortCut(*samples, start, end)) {
        const Tsample& s = *(*samples)[unsigned(start)];
        color = *s.outColor();
        transparency = *s.outTransparency();
        glow = *s.outGlowColor();
        return;
    }
    Tresult r;
    void* memory = align16(alloca(workspaceBytes(start, end)));
    integrate<kModeRT>(*samples, start, end, memory, &compareTEntries, r);
    color = r.color;
    transparency = r.transparency;
    glow = r.glow;
}

void TvolumeUtils::integrateShadow(TsampleArray* samples, int start, int end, T3Float& transparency) const {
    if (takesShortCut(*samples, start, end)) {
        transparency = *(*samples)[unsigned(start)]->outTransparency();
        return;
    }
    Tresult r;
    void* memory = align16(alloca(workspaceBytes(start, end)));
    integrate<kModeShadow>(*samples, start, end, memory, &compareTEntries, r);
    transparency = r.transparency;
}
