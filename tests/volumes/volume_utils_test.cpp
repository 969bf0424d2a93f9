// Closed-form volume integration along a ray, checked against Beer-Lambert,
// against a fine ray march written here, and on the rules for edge cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "shading/sample.h"
#include "support/alloc_counter.h"
#include "support/expect_near.h"
#include "volumes/volume_utils.h"

struct TvolumeUtilsProbe {
    static int compare(const void* a, const void* b) { return TvolumeUtils::compareTEntries(a, b); }
};

namespace {

const T3Float kZero(0, 0, 0), kOne(1, 1, 1);
const float kNoMatte = TvolumeUtils::kNoMatte;

// What a test says about one sample of a ray.
struct Tspec {
    bool surface = false;
    float factor = 1;  // blobbySurfaceFactor of a surface
    float enter = 0, exit = 0, weight = 0;
    char objectType = 0;
    T3Float color, transparency{1, 1, 1}, glow, matte{0, 0, 0};
};

Tspec surface(float t, T3Float transparency, T3Float color, T3Float glow = {}, float factor = 1) {
    return {true, factor, t, 0, 0, 0, color, transparency, glow, kOne - transparency};
}

Tspec interval(float enter, float exit, T3Float transparency, T3Float color, T3Float glow = {}) {
    return {false, 0, enter, exit, 0, 0, color, transparency, glow, kOne - transparency};
}

Tspec particle(float enter, float exit, T3Float extinction, T3Float color, float weight, T3Float glow = {}) {
    return {false, 0, enter, exit, weight, 4, color, extinction, glow, kOne - extinction};
}

// Samples laid out with just the items the integrators read.
class Tray {
public:
    explicit Tray(const std::vector<Tspec>& layout) : fTable(Tsample::sFieldTableLength(0)) {
        TbitField64 needed;
        for (unsigned i : {kItemBlobbySurfaceFactor, kItemParticleEntryParam, kItemParticleExitParam,
                           kItemParticleWeight, kItemObjectType, kItemOutColor, kItemOutTransparency,
                           kItemOutGlowColor, kItemOutMatteOpacity})
            needed.set(i);
        fSize = Tsample::sBuildFieldOffsets(needed, fTable.data());
        fStorage.assign(layout.size() * fSize / 8 + 1, 0);
        for (size_t i = 0; i < layout.size(); ++i) {
            const Tspec& p = layout[i];
            Tsample* s = Tsample::sCreate(reinterpret_cast<char*>(fStorage.data()) + i * fSize, fSize, fTable.data());
            s->setBlobbySurfaceFactor(p.surface ? p.factor : (p.factor > 0 ? 0 : p.factor));
            s->setParticleEntryParam(p.enter);
            s->setParticleExitParam(p.exit);
            s->setParticleWeight(p.weight);
            s->setObjectType(p.objectType);
            s->setOutColor(p.color);
            s->setOutTransparency(p.transparency);
            s->setOutGlowColor(p.glow);
            s->setOutMatteOpacity(p.matte);
            fSamples.addLast(s);
        }
    }
    TsampleArray* samples() { return &fSamples; }
    int last() const { return int(fSamples.length()) - 1; }

private:
    std::vector<unsigned> fTable;
    unsigned fSize = 0;
    std::vector<uint64_t> fStorage;
    TsampleArray fSamples;
};

struct Tout {
    T3Float color, transparency, glow, matte;
};

Tout eas(Tray& ray, int start, int end) {
    Tout o;
    TvolumeUtils().integrateEAS(ray.samples(), start, end, o.color, o.transparency, o.glow, o.matte);
    return o;
}
Tout eas(Tray& ray) { return eas(ray, 0, ray.last()); }

// Reference: march the ray with a fine step. Volume media are averaged over
// the part of each step they cover; surface points split the step exactly.
Tout march(const std::vector<Tspec>& layout, double step) {
    double color[3] = {0, 0, 0}, glow[3] = {0, 0, 0}, tr[3] = {1, 1, 1};
    struct Tmedium { double enter, exit, sigma[3], color[3], glow[3], weight; bool particle; };
    std::vector<Tmedium> media;
    std::vector<const Tspec*> points;
    double far = 0;
    for (const Tspec& s : layout) {
        if (s.surface) {
            points.push_back(&s);
            far = std::max(far, double(s.enter));
            continue;
        }
        Tmedium m{s.enter, s.exit, {}, {}, {}, s.weight, s.objectType == 4};
        for (int c = 0; c < 3; ++c) {
            if (m.particle) {
                m.sigma[c] = s.transparency[c];
                m.color[c] = s.color[c];
                m.glow[c] = s.glow[c];
            } else {
                double t = std::clamp(double(s.transparency[c]), 0.00001, 0.99999);
                m.sigma[c] = -std::log(t) / (s.exit - s.enter);
                m.color[c] = s.color[c] / (1 - t) * m.sigma[c];
                m.glow[c] = s.glow[c] / (1 - t) * m.sigma[c];
            }
        }
        media.push_back(m);
        far = std::max(far, double(s.exit));
    }
    std::sort(points.begin(), points.end(), [](const Tspec* a, const Tspec* b) { return a->enter < b->enter; });
    size_t nextPoint = 0;
    double s = 0;
    while (s < far + step) {
        double end = s + step;
        if (nextPoint < points.size() && points[nextPoint]->enter < end) end = std::max(s, double(points[nextPoint]->enter));
        const double len = end - s;
        if (len > 0) {
            double sigma[3] = {0, 0, 0}, emit[3] = {0, 0, 0}, emitGlow[3] = {0, 0, 0}, particleColor[3] = {0, 0, 0},
                   particleGlow[3] = {0, 0, 0}, weight = 0;
            bool anyParticle = false;
            for (const Tmedium& m : media) {
                double cover = std::max(0.0, std::min(end, m.exit) - std::max(s, m.enter)) / len;
                if (cover <= 0) continue;
                for (int c = 0; c < 3; ++c) {
                    sigma[c] += m.sigma[c] * cover;
                    if (m.particle) {
                        particleColor[c] += m.color[c] * cover;
                        particleGlow[c] += m.glow[c] * cover;
                    } else {
                        emit[c] += m.color[c] * cover;
                        emitGlow[c] += m.glow[c] * cover;
                    }
                }
                if (m.particle) {
                    weight += m.weight * cover;
                    anyParticle = true;
                }
            }
            const double w = anyParticle ? (weight > 0 ? 1 / weight : 1) : 0;
            for (int c = 0; c < 3; ++c) {
                const double a = std::exp(-sigma[c] * len);
                const double absorbed = tr[c] * (1 - a);
                // Emission per unit extinction, integrated exactly over the step.
                if (sigma[c] > 0) {
                    color[c] += absorbed * (emit[c] / sigma[c] + particleColor[c] * w);
                    glow[c] += absorbed * (emitGlow[c] / sigma[c] + particleGlow[c] * w);
                }
                tr[c] *= a;
            }
        }
        s = end;
        while (nextPoint < points.size() && points[nextPoint]->enter <= s) {
            const Tspec& p = *points[nextPoint++];
            const bool forced = p.factor > 1.5f;
            const double g = forced ? p.factor - 2 : p.factor;
            for (int c = 0; c < 3; ++c) {
                const double scale = g < 1 ? g : 1;
                color[c] += tr[c] * p.color[c] * scale;
                glow[c] += tr[c] * p.glow[c] * scale;
                double t = p.transparency[c];
                if (g < 1) t = 1 - (1 - t) * g;
                tr[c] *= forced ? 0 : t;
            }
        }
    }
    Tout o;
    for (int c = 0; c < 3; ++c) {
        o.color[c] = float(color[c]);
        o.glow[c] = float(glow[c]);
        o.transparency[c] = float(tr[c]);
    }
    return o;
}

}  // namespace

TEST(VolumeIntegrate, ParticleIntervalFollowsBeerLambert) {
    // A particle's transparency is its extinction coefficient itself.
    struct Case { float enter, exit, weight; T3Float sigma, color; };
    const Case cases[] = {
        {1, 3, 1, {0.5f, 1.0f, 2.0f}, {0.2f, 0.4f, 0.8f}},
        {0.5f, 0.75f, 4, {3, 0.1f, 0.01f}, {1, 1, 1}},
        {2, 12, 0, {0.05f, 0.2f, 0.7f}, {0.3f, 0.6f, 0.9f}},  // weight 0: colour not rescaled
    };
    for (const Case& c : cases) {
        Tray ray({particle(c.enter, c.exit, c.sigma, c.color, c.weight, c.color * 0.5f)});
        const Tout o = eas(ray);
        const float length = c.exit - c.enter;
        const float w = c.weight > 0 ? 1 / c.weight : 1;
        for (int k = 0; k < 3; ++k) {
            const float expected = std::exp(-c.sigma[k] * length);
            EXPECT_NEAR(o.transparency[k], expected, 1e-6f);
            EXPECT_NEAR(o.color[k], (1 - expected) * c.color[k] * w, 1e-6f);
            EXPECT_NEAR(o.glow[k], (1 - expected) * c.color[k] * 0.5f * w, 1e-6f);
            EXPECT_NEAR(o.matte[k], 1 - expected, 1e-6f);
        }
    }
}

TEST(VolumeIntegrate, HomogeneousIntervalCutBySurfacesFollowsBeerLambert) {
    // A volume of transparency T over [a, b], cut at fraction f by a half
    // transparent surface point and closed by an opaque one. The first part
    // of the volume passes T^f, the second T^(1-f).
    const T3Float t(0.5f, 0.25f, 0.8f), k(0.3f, 0.6f, 0.9f), back(0.1f, 0.2f, 0.3f), split(0.05f, 0.1f, 0.15f);
    const float a = 1, b = 5, cutTransparency = 0.5f;
    for (float f : {0.1f, 0.5f, 0.9f}) {
        const float cut = a + f * (b - a);
        Tray ray({interval(a, b, t, k), surface(cut, T3Float(cutTransparency, cutTransparency, cutTransparency), split),
                  surface(b + 1, kZero, back)});
        const Tout o = eas(ray);
        for (int c = 0; c < 3; ++c) {
            const double first = std::pow(double(t[c]), double(f));  // transmittance up to the cut
            const double emission = k[c] / (1 - double(t[c]));         // emitted per unit of absorption
            const double expected = emission * (1 - first) + first * split[c] +
                                    cutTransparency * emission * (first - t[c]) + cutTransparency * t[c] * back[c];
            EXPECT_NEAR(o.color[c], expected, 2e-6) << "f " << f << " channel " << c;
            EXPECT_EQ(o.transparency[c], 0.0f);
        }
        T3Float shadow;
        TvolumeUtils().integrateShadow(ray.samples(), 0, 1, shadow);  // the volume and the cut only
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(shadow[c], t[c] * cutTransparency, 1e-6f);
    }
}

TEST(VolumeIntegrate, OverlappingIntervalsAndSurfacesAgreeWithAFineRayMarch) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> unit(0.05f, 0.95f), place(0.0f, 6.0f), len(0.2f, 3.0f);
    for (int round = 0; round < 8; ++round) {
        std::vector<Tspec> layout;
        const int volumes = 2 + round % 4;
        for (int i = 0; i < volumes; ++i) {
            const float enter = place(random);
            T3Float t(unit(random), unit(random), unit(random)), k(unit(random), unit(random), unit(random));
            layout.push_back(interval(enter, enter + len(random), t, k, k * 0.25f));
        }
        if (round % 2) {
            const float enter = place(random);
            layout.push_back(particle(enter, enter + len(random), T3Float(unit(random), unit(random), unit(random)),
                                     T3Float(unit(random), unit(random), unit(random)), 0.5f + unit(random)));
        }
        for (int i = 0; i < 1 + round % 3; ++i) {
            const float factor = i == 1 ? 0.5f : 1.0f;  // one half-strength point in some rays
            layout.push_back(surface(place(random), T3Float(unit(random), unit(random), unit(random)),
                                    T3Float(unit(random), unit(random), unit(random)), T3Float(0.1f, 0.1f, 0.1f),
                                    factor));
        }
        std::shuffle(layout.begin(), layout.end(), random);
        Tray ray(layout);
        const Tout o = eas(ray);
        const Tout reference = march(layout, 2e-5);
        expectNear(o.color, reference.color, "colour", 1e-4f);
        expectNear(o.transparency, reference.transparency, "transparency", 1e-4f);
        expectNear(o.glow, reference.glow, "glow", 1e-4f);
    }
}

TEST(VolumeIntegrate, EmptyRangeGivesTheNeutralResult) {
    Tray ray({interval(0, 1, T3Float(0.5f, 0.5f, 0.5f), kOne)});
    const Tout o = eas(ray, 1, 0);
    EXPECT_EQ(o.color, kZero);
    EXPECT_EQ(o.transparency, kOne);
    EXPECT_EQ(o.glow, kZero);
    EXPECT_EQ(o.matte, kZero);
    T3Float c(9, 9, 9), t(9, 9, 9), g(9, 9, 9);
    TvolumeUtils().integrateRT(ray.samples(), 1, 0, c, t, g);
    EXPECT_EQ(c, kZero);
    EXPECT_EQ(t, kOne);
    TvolumeUtils().integrateShadow(ray.samples(), 1, 0, t);
    EXPECT_EQ(t, kOne);
}

TEST(VolumeIntegrate, SingleSampleShortCutCopiesUnlessParticleTyped) {
    struct Case { float factor; char objectType; bool copied; };
    const Case cases[] = {
        {1.0f, 0, true}, {2.5f, 0, true}, {0.25f, 1, true}, {-1.0f, 2, true},  // whatever the factor
        {1.0f, 3, false}, {0.0f, 4, false},
    };
    for (const Case& c : cases) {
        Tspec s = interval(1, 2, T3Float(0.5f, 0.6f, 0.7f), T3Float(0.2f, 0.3f, 0.4f), T3Float(0.1f, 0.1f, 0.1f));
        s.surface = c.factor > 0;
        s.factor = c.factor;
        s.objectType = c.objectType;
        s.matte = T3Float(kNoMatte, 0, 0);
        Tray ray({s});
        const Tout o = eas(ray);
        if (c.copied) {
            EXPECT_EQ(o.color, s.color);
            EXPECT_EQ(o.transparency, s.transparency);
            EXPECT_EQ(o.glow, s.glow);
            EXPECT_EQ(o.matte.x, kNoMatte);  // the sentinel passes through
            T3Float shadow;
            TvolumeUtils().integrateShadow(ray.samples(), 0, 0, shadow);
            EXPECT_EQ(shadow, s.transparency);
        } else {
            // Integrated: the sentinel sets matte-unset, but the matte still follows transparency.
            expectNear(o.matte, kOne - o.transparency, "integrated matte", 1e-6f);
        }
    }
}

// Short rays whose result is known exactly or in closed form.
TEST(VolumeIntegrate, ShortRaysWithKnownResults) {
    const T3Float t(0.5f, 0.25f, 0.9f), k(0.4f, 0.2f, 0.6f), back(0.3f, 0.5f, 0.7f), half(0.5f, 0.5f, 0.5f);
    const T3Float spent(0.00005f, 0.00005f, 0.00005f), quarter(0.25f, 0.25f, 0.25f);
    struct Case {
        const char* name;
        std::vector<Tspec> layout;
        T3Float color, transparency;
        float tolerance;
    };
    const Case cases[] = {
        // One interval's colour over twice the extinction, k (1 + t), and t^2.
        {"coincident intervals add extinction and density", {interval(1, 3, t, k), interval(1, 3, t, k)}, {0.6f, 0.25f, 1.14f},
         {0.25f, 0.0625f, 0.81f}, 1e-6f},
        // Events 0.000005 apart are closer than a stretch needs: nothing but the surface shows.
        {"a stretch too short to count", {interval(1, 1.000005f, T3Float(0.1f, 0.1f, 0.1f), kOne), surface(2, kZero, back)}, back,
         kZero, 0},
        {"a huge transparency in all channels blocks", {surface(1, half, kZero), surface(2, T3Float(2e7f, 2e7f, 2e7f), kZero)}, kZero,
         kZero, 0},
        {"a huge transparency in two channels does not", {surface(1, half, kZero), surface(2, T3Float(2e7f, 2e7f, 0.5f), kZero)},
         kZero, {1e7f, 1e7f, 0.25f}, 0},
        // Were the sweep to go on, the second point would multiply the
        // transparency back up and the third would add its colour.
        {"the sweep stops once the ray is spent",
         {surface(1, spent, quarter), surface(2, T3Float(1e6f, 1e6f, 1e6f), kOne), surface(3, kZero, kOne)}, quarter, spent, 0},
        {"one channel above the limit keeps it going", {surface(1, T3Float(0.00005f, 0.00005f, 0.5f), quarter), surface(3, kZero, kOne)},
         {0.25005f, 0.25005f, 0.75f}, kZero, 1e-6f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Tray ray(c.layout);
        const Tout o = eas(ray);
        expectNear(o.color, c.color, "colour", c.tolerance);
        expectNear(o.transparency, c.transparency, "transparency", c.tolerance);
    }
}

TEST(VolumeIntegrate, ClearIntervalsKeepAFiniteDensityAndShadowsHaveNoLowerClamp) {
    // A transparency of 1 is clamped to 0.99999: the density stays finite and
    // the colour arrives (to float precision of 1 - exp(-tiny)). The extinction
    // sum is held at 0.00001 or more, which is what the transparency shows.
    const T3Float k(0.2f, 0.4f, 0.6f);
    Tray clear({interval(0, 2, kOne, k), interval(5, 6, kOne, kZero)});
    const Tout o = eas(clear);
    for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(o.color[c], k[c], k[c] * 0.005f) << c;
        EXPECT_NEAR(o.transparency[c], std::exp(-0.00001 * 2) * std::exp(-0.00001 * 1), 1e-6) << c;
    }
    // Shadows are not clamped below: a transparency of 0 shadows exactly.
    Tray ray({interval(1, 2, T3Float(0, 0.5f, 1), kOne), interval(3, 4, T3Float(0.5f, 0.5f, 0.5f), kOne)});
    T3Float shadow;
    TvolumeUtils().integrateShadow(ray.samples(), 0, 1, shadow);
    EXPECT_EQ(shadow.x, 0.0f);  // infinite extinction, exact zero
    EXPECT_NEAR(shadow.y, 0.25f, 1e-6f);
    EXPECT_NEAR(shadow.z, 0.99999f * 0.5f, 1e-6f);
    EXPECT_GT(eas(ray).transparency.x, 0.0f);  // the full integration clamps at 0.00001
}

TEST(VolumeIntegrate, SurfaceFactorScalesOrForcesOpacity) {
    struct Case { float factor; float scale; bool opaque; };
    const Case cases[] = {
        {2.5f, 0.5f, true},   // opaque at half strength
        {1.5f, 1.0f, false},  // exactly 1.5 is not forced, and 1.5 scales nothing
        {0.5f, 0.5f, false},
        {1.0f, 1.0f, false},
    };
    const T3Float t(0.4f, 0.6f, 0.8f), k(0.2f, 0.4f, 0.6f), g(0.1f, 0.2f, 0.3f);
    for (const Case& c : cases) {
        Tray ray({surface(1, t, k, g, c.factor), surface(2, kOne, kZero)});
        const Tout o = eas(ray);
        expectNear(o.color, k * c.scale, "colour", 1e-6f);
        expectNear(o.glow, g * c.scale, "glow", 1e-6f);
        for (int ch = 0; ch < 3; ++ch) {
            const float expected = c.opaque ? 0 : 1 - (1 - t[ch]) * std::min(c.scale, 1.0f);
            EXPECT_NEAR(o.transparency[ch], expected, 1e-6f) << c.factor;
        }
        T3Float shadow;
        TvolumeUtils().integrateShadow(ray.samples(), 0, 1, shadow);
        expectNear(shadow, o.transparency, "shadow of the same points", 1e-6f);
    }
}

TEST(VolumeIntegrate, MattePrecedence) {
    const T3Float t(0.5f, 0.5f, 0.5f);
    Tspec unknown = surface(1, t, kZero);
    unknown.matte = T3Float(kNoMatte, 0, 0);
    Tspec agreeing = interval(2, 3, T3Float(0.8f, 0.7f, 0.6f), kZero);
    Tspec disagreeing = surface(4, t, kZero);
    disagreeing.matte = T3Float(0.9f, 0.9f, 0.9f);

    // A sentinel among agreeing mattes: matte follows transparency.
    Tray agree({unknown, agreeing});
    Tout o = eas(agree);
    expectNear(o.matte, kOne - o.transparency, "matte from transparency", 1e-6f);

    // Add one that disagrees: no matte is known.
    Tray unknownResult({unknown, agreeing, disagreeing});
    o = eas(unknownResult);
    EXPECT_EQ(o.matte, T3Float(kNoMatte, kNoMatte, kNoMatte));

    // Without the sentinel the matte is tracked separately: 1 - product of matte transmittances.
    Tspec volumeMatte = interval(2, 3, T3Float(0.8f, 0.7f, 0.6f), kZero);
    volumeMatte.matte = T3Float(0.5f, 0.25f, 0.75f);
    Tray tracked({volumeMatte, disagreeing});
    o = eas(tracked);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(o.matte[c], 1 - (1 - volumeMatte.matte[c]) * 0.1f, 1e-5f) << c;
}

TEST(VolumeIntegrate, ThreeOperationsAgreeWhereTheyOverlap) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> unit(0.05f, 0.95f), place(0.0f, 4.0f);
    for (int round = 0; round < 20; ++round) {
        std::vector<Tspec> layout;
        for (int i = 0; i < 6; ++i) {
            const float a = place(random);
            const T3Float t(unit(random), unit(random), unit(random)), k(unit(random), unit(random), unit(random));
            if (i % 3 == 2)
                layout.push_back(surface(a, t, k, k, 0.25f + 2.5f * unit(random)));
            else
                layout.push_back(i % 3 ? particle(a, a + unit(random), t, k, unit(random), k)
                                      : interval(a, a + unit(random), t, k, k));
        }
        Tray ray(layout);
        const Tout full = eas(ray);
        Tout rt;
        TvolumeUtils().integrateRT(ray.samples(), 0, ray.last(), rt.color, rt.transparency, rt.glow);
        T3Float shadow;
        TvolumeUtils().integrateShadow(ray.samples(), 0, ray.last(), shadow);
        EXPECT_EQ(rt.color, full.color);
        EXPECT_EQ(rt.glow, full.glow);
        EXPECT_EQ(rt.transparency, full.transparency);
        expectNear(shadow, full.transparency, "shadow", 1e-6f);
    }
}

TEST(VolumeIntegrate, CompareEntriesOrdersByPositionAndTreatsNanAsLess) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct Case { float a, b; int expected; };
    const Case cases[] = {{1, 2, -1}, {2, 1, 1}, {3, 3, 0}, {-0.0f, 0.0f, 0}, {nan, 1, -1}, {1, nan, -1}, {nan, nan, -1}};
    for (const Case& c : cases) {
        TvolumeUtils::TEntry a{}, b{};
        a.t = c.a;
        b.t = c.b;
        const TvolumeUtils::TEntry *pa = &a, *pb = &b;
        EXPECT_EQ(TvolumeUtilsProbe::compare(&pa, &pb), c.expected) << c.a << " vs " << c.b;
    }
}

TEST(VolumeIntegrate, LongRaysWithNanPositionsStayInBounds) {
    // Many events exercise the quicksort and heapsort paths; NaN positions
    // answer -1 both ways and must not lead the sort out of the array. With
    // NaN only at surface points every factor is at most 1, whatever the order.
    std::mt19937 random(3);
    std::uniform_real_distribution<float> place(0.0f, 100.0f);
    std::vector<Tspec> layout;
    for (int i = 0; i < 400; ++i) {
        const float a = i % 16 == 0 ? std::numeric_limits<float>::quiet_NaN() : place(random);
        layout.push_back(i % 2 ? interval(a, a + 0.5f, T3Float(0.99f, 0.99f, 0.99f), kOne)
                              : surface(a, T3Float(0.999f, 0.999f, 0.999f), T3Float(0.001f, 0.001f, 0.001f)));
    }
    Tray ray(layout);
    T3Float shadow;
    TvolumeUtils().integrateShadow(ray.samples(), 0, ray.last(), shadow);
    for (int c = 0; c < 3; ++c) {
        EXPECT_GE(shadow[c], 0.0f);
        EXPECT_LE(shadow[c], 1.0f);
    }

    // Without NaNs a long ray is independent of the input order.
    for (Tspec& s : layout)
        if (std::isnan(s.enter)) s.enter = s.exit = 50;
    Tray ordered(layout);
    std::shuffle(layout.begin(), layout.end(), random);
    Tray shuffled(layout);
    expectNear(eas(ordered).color, eas(shuffled).color, "long ray colour", 1e-4f);
    expectNear(eas(ordered).transparency, eas(shuffled).transparency, "long ray transparency", 1e-6f);
}

TEST(VolumeIntegrate, IntegratorsUseNoHeap) {
    std::vector<Tspec> layout;
    for (int i = 0; i < 32; ++i)
        layout.push_back(i % 2 ? interval(float(i), float(i) + 1.5f, T3Float(0.9f, 0.9f, 0.9f), kOne)
                              : surface(float(i), T3Float(0.95f, 0.95f, 0.95f), T3Float(0.01f, 0.01f, 0.01f)));
    Tray ray(layout);
    Tout o;
    TvolumeUtils utils;
    TallocationCounter counter;
    utils.integrateEAS(ray.samples(), 0, ray.last(), o.color, o.transparency, o.glow, o.matte);
    utils.integrateRT(ray.samples(), 0, ray.last(), o.color, o.transparency, o.glow);
    utils.integrateShadow(ray.samples(), 0, ray.last(), o.transparency);
    EXPECT_EQ(counter.allocations(), 0u);
    EXPECT_LT(o.transparency.x, 1.0f);  // the calls did integrate
}
