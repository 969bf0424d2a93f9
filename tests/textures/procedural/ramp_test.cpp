// The ramp: its lookup between keys (none, one, ties, outside the keys), each
// interpolation against its closed form rising and falling, the values the
// types make of a UV, and the same numbers through the graph and the engine.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "support/expect_near.h"
#include "support/set_value.h"
#include "textures/procedural/texture_checks.h"
#include "textures/ramp.h"

namespace {
TrampKeys keysOf(std::initializer_list<std::pair<float, T3Float>> list) {
    TrampKeys keys;
    for (auto& [p, c] : list) {
        keys.position[keys.count] = p;
        keys.colour[keys.count] = c;
        ++keys.count;
    }
    return keys;
}
T3Float at(short interp, float value, const TrampKeys& keys) {
    T3Float out(-7, -7, -7);
    TdnRamp::getRampColourAtValue(interp, value, keys, out);
    return out;
}
const T3Float kLow(0.1f, 0.2f, 0.3f), kHigh(0.9f, 0.6f, 0.5f);
}  // namespace

TEST(Ramp, EdgesOfTheKeyListShowOneKeyWhateverTheInterpolation) {
    const T3Float only(0.3f, 0.6f, 0.9f), red(1, 0, 0), blue(0, 0, 1), black, white(1, 1, 1);
    const TrampKeys tie = keysOf({{0.0f, black}, {0.5f, red}, {0.5f, blue}, {1.0f, white}});
    struct {
        const char* name;
        TrampKeys keys;
        std::vector<float> values;
        T3Float want;
    } cases[] = {
        {"no key is black", keysOf({}), {-0.5f, 0.0f, 0.4f, 1.0f, 1.7f}, black},
        {"one key is its colour", keysOf({{0.4f, only}}), {-0.5f, 0.0f, 0.4f, 1.0f, 1.7f}, only},
        // List order is not position order.
        {"below and on the first key", keysOf({{0.7f, kHigh}, {0.2f, kLow}}), {0.1f, 0.2f}, kLow},
        {"above the last key", keysOf({{0.7f, kHigh}, {0.2f, kLow}}), {0.9f}, kHigh},
        {"at a tie the first key of the pair is both lower and upper", tie, {0.5f}, red},
        {"only a tied pair: no division anywhere", keysOf({{0.5f, red}, {0.5f, blue}}), {0.0f, 0.5f, 1.0f}, red},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (short interp = 0; interp <= 6; ++interp)
            for (float value : c.values) expectNear(at(interp, value, c.keys), c.want, "interp " + std::to_string(interp));
    }
    for (short interp = 0; interp <= 6; ++interp)
        for (float value : {0.4999f, 0.5001f}) {
            T3Float c = at(interp, value, tie);
            EXPECT_TRUE(std::isfinite(c.x) && std::isfinite(c.y) && std::isfinite(c.z)) << "beside the tie";
        }
    // With no interpolation each side shows its lower key: a step at 0.5.
    expectNear(at(TdnRamp::kNoInterp, 0.49f, tie), black, "below the step");
    expectNear(at(TdnRamp::kNoInterp, 0.51f, tie), red, "above the step");
    // A position above 1 counts as 1.
    TrampKeys clamped = keysOf({{0.0f, kLow}, {3.0f, kHigh}});
    expectNear(at(TdnRamp::kLinearInterp, 0.5f, clamped), (kLow + kHigh) * 0.5f, "position held to 1");
}

namespace {
double easeOut(double t) { return std::sin(t * std::numbers::pi / 2); }
double easeIn(double t) { return 1 - std::cos(t * std::numbers::pi / 2); }
}  // namespace

TEST(Ramp, EachInterpolationFollowsItsCurve) {
    struct {
        short interp;
        double (*s)(double);
    } cases[] = {
        {TdnRamp::kNoInterp, [](double) { return 0.0; }},
        {TdnRamp::kLinearInterp, [](double t) { return t; }},
        {TdnRamp::kExpUpInterp, [](double t) { return t * t; }},
        {TdnRamp::kExpDnInterp, [](double t) { return t * (2 - t); }},
        {TdnRamp::kSmoothInterp, [](double t) { return 0.5 - 0.5 * std::cos(t * std::numbers::pi); }},
        {TdnRamp::kBumpInterp, nullptr},
        {TdnRamp::kSpikeInterp, nullptr},
    };
    // Bump bulges towards the brighter key and Spike dips towards the
    // darker, brightness being the channel sum: falling, the two trade
    // curves, and at equal sums both ease in.
    struct {
        const char* name;
        T3Float lower, upper;
        double (*bump)(double);
        double (*spike)(double);
    } pairs[] = {
        {"rising", kLow, kHigh, easeOut, easeIn},
        {"falling", kHigh, kLow, easeIn, easeOut},
        {"rising in green only", {0.5f, 0.1f, 0.5f}, {0.5f, 0.9f, 0.5f}, easeOut, easeIn},
        {"equal sums", {0, 0.5f, 0}, {0.5f, 0, 0}, easeIn, easeIn},
    };
    for (auto& p : pairs) {
        SCOPED_TRACE(p.name);
        TrampKeys keys = keysOf({{0.2f, p.lower}, {0.7f, p.upper}});
        for (auto& c : cases)
            for (double t : {0.0, 0.1, 0.25, 0.5, 0.8, 0.97}) {
                double (*s)(double) = c.interp == TdnRamp::kBumpInterp ? p.bump : c.interp == TdnRamp::kSpikeInterp ? p.spike : c.s;
                T3Float want = p.lower + (p.upper - p.lower) * float(s(t));
                expectNear(at(c.interp, float(0.2 + 0.5 * t), keys), want, "interp " + std::to_string(c.interp) + " t " + std::to_string(t), 2e-6f);
            }
    }
}

TEST(Ramp, TypesMakeTheirValues) {
    struct {
        short type;
        float u, v, want;
    } cases[] = {
        {TdnRamp::kVRamp, 0.2f, 0.7f, 0.7f},          {TdnRamp::kURamp, 0.2f, 0.7f, 0.2f},
        {TdnRamp::kDiagRamp, 0.2f, 0.7f, 0.45f},      {TdnRamp::kRadialRamp, 0.5f, 1.0f, 0.5f},
        {TdnRamp::kRadialRamp, 1.0f, 0.5f, 0.75f},    {TdnRamp::kRadialRamp, 0.0f, 0.5f, 0.25f},
        {TdnRamp::kRadialRamp, 0.5f, 0.5f, 0.0f},     {TdnRamp::kCircularRamp, 0.5f, 0.5f, 0.0f},
        {TdnRamp::kCircularRamp, 1.0f, 1.0f, 0.5f * 1.414f * std::sqrt(2.0f)},
        {TdnRamp::kCircularRamp, 0.5f, 0.0f, 0.707f}, {TdnRamp::kBoxRamp, 0.6f, 0.1f, 0.8f},
        {TdnRamp::kBoxRamp, 0.5f, 0.5f, 0.0f},
    };
    for (auto& c : cases) EXPECT_NEAR(TdnRamp::sRampValue(c.type, c.u, c.v), c.want, 1e-5f) << c.type << " at " << c.u << "," << c.v;
}

namespace {
struct RampNode {
    TtextureNetwork net;
    TdnRamp* ramp = net.make<TdnRamp>("ramp");
    void keys(std::initializer_list<std::pair<float, T3Float>> list) {
        int i = 0;
        for (auto& [p, c] : list) ramp->setColourEntry(i++, p, c);
    }
};
}  // namespace

TEST(Ramp, DefaultKeysOnlyForAnEmptyRamp) {
    RampNode n;
    n.ramp->addDefaultValuesIfEmpty();
    float p;
    T3Float c;
    ASSERT_TRUE(n.ramp->getColourEntry(2, p, c));
    n.ramp->setPositionOfKey(2, 0.75f);
    n.ramp->addDefaultValuesIfEmpty();
    ASSERT_TRUE(n.ramp->getColourEntry(2, p, c));
    EXPECT_EQ(p, 0.75f) << "a ramp with keys keeps them";
    EXPECT_FALSE(n.ramp->getColourEntry(3, p, c));
}

TEST(Ramp, BatchEqualsTheScalarPullWithWavesAndNoise) {
    struct {
        short type, interp;
        float uWave, vWave, noise, hueNoise, valNoise;
    } cases[] = {
        {TdnRamp::kVRamp, TdnRamp::kLinearInterp, 0, 0, 0, 0, 0},
        {TdnRamp::kRadialRamp, TdnRamp::kSmoothInterp, 0.1f, 0.05f, 0, 0, 0},
        {TdnRamp::kCircularRamp, TdnRamp::kBumpInterp, 0, 0, 0.3f, 0.2f, 0.1f},
        {TdnRamp::kTartanRamp, TdnRamp::kSpikeInterp, 0.02f, 0, 0.1f, 0, 0.3f},
    };
    for (auto& c : cases) {
        RampNode n;
        n.keys({{0.1f, T3Float(0.9f, 0.1f, 0.1f)}, {0.5f, T3Float(0.1f, 0.8f, 0.2f)}, {0.9f, T3Float(0.2f, 0.3f, 0.95f)}});
        setValue(n.ramp, TdnRamp::saType(), c.type);
        setValue(n.ramp, TdnRamp::saInterpolation(), c.interp);
        setValue(n.ramp, TdnRamp::saUWave(), c.uWave);
        setValue(n.ramp, TdnRamp::saVWave(), c.vWave);
        setValue(n.ramp, TdnRamp::saNoise(), c.noise);
        setValue(n.ramp, TdnRamp::saHueNoise(), c.hueNoise);
        setValue(n.ramp, TdnRamp::saValNoise(), c.valNoise);
        n.net.show(n.ramp, TdnTx2D::saOutColor());
        const std::string what = "type " + std::to_string(c.type);
        expectBatchEqualsPull(n.net, n.ramp, batchUvs(), T2Float{0, 0}, what.c_str(), 1e-6f);
        expectNear(pullTexture(n.ramp, {-1e7f, -1e7f}).colour, T3Float(0.5f, 0.5f, 0.5f), "outside");
    }
}

TEST(Ramp, KeysDrivenPerSampleAreReadForEachSample) {
    // V ramp, linear: key 0 is black at 0; key 1 has its position and/or
    // colour driven by a source of (u, v, 0.25) at the sample's own UV. Each
    // sample of the batch must see its own key 1.
    struct Case {
        const char* what;
        bool drivePosition, driveColour;
    } cases[] = {
        {"colour driven", false, true},
        {"position driven", true, false},
        {"both driven", true, true},
    };
    const float fixedPosition = 0.8f;
    const T3Float fixedColour(0.4f, 0.6f, 1.0f);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        RampNode n;
        n.keys({{0.0f, T3Float(0, 0, 0)}, {fixedPosition, fixedColour}});
        setValue(n.ramp, TdnRamp::saInterpolation(), short(TdnRamp::kLinearInterp));
        auto* source = n.net.make<TtexTestSource>("texTestSource");
        ASSERT_NE(source, nullptr);
        if (c.driveColour) {
            ASSERT_EQ(n.net.graph.connect(Tplug(source, &TtexTestSource::saOutColor()), Tplug(n.ramp, &TdnRamp::saColor(), 1)),
                      TconnectStatus::kOk);
        }
        if (c.drivePosition) {
            ASSERT_EQ(n.net.graph.connect(Tplug(source, &TtexTestSource::saOutColorR()), Tplug(n.ramp, &TdnRamp::saPosition(), 1)),
                      TconnectStatus::kOk);
        }
        n.net.show(n.ramp, TdnTx2D::saOutColor());
        // UVs inside the unit square, some with v below u (between the keys
        // when the position is u) and some above (past the last key).
        std::vector<T2Float> uvs;
        for (unsigned i = 0; i < kBatchSize; ++i) uvs.push_back(T2Float{0.05f + 0.9f * float(i % 11) / 10.0f, 0.03f + 0.9f * float(i % 7) / 6.0f});
        TtextureBatch batch = n.net.shade(uvs);
        unsigned between = 0, past = 0;
        for (unsigned i = 0; i < uvs.size(); ++i) {
            const float u = uvs[i].x, v = uvs[i].y;
            const float position = c.drivePosition ? u : fixedPosition;
            const T3Float colour = c.driveColour ? TtexTestSource::sColourAt(uvs[i]) : fixedColour;
            const T3Float want = v >= position ? colour : colour * (v / position);
            (v >= position ? past : between) += 1;
            expectNear(batch.colour(i), want, "sample " + std::to_string(i), 2e-6f);
        }
        // Both sides of key 1 were exercised.
        EXPECT_GT(between, 8u);
        EXPECT_GT(past, 8u);
    }
}

namespace {
// The reference colour of a settled ramp at a UV: the type's value and the
// scan of the keys in list order.
T3Float scannedColour(short type, short interp, T2Float uv, const TrampKeys& keys) {
    const float u = wrapToUnit(uv.x), v = wrapToUnit(uv.y);
    T3Float c;
    if (type == TdnRamp::kUVRamp || type == TdnRamp::kTartanRamp) {
        T3Float y = at(interp, 2.0f * std::fabs(v - 0.5f), keys), x = at(interp, 2.0f * std::fabs(u - 0.5f), keys);
        return type == TdnRamp::kUVRamp ? T3Float(y.x * x.x, y.y * x.y, y.z * x.z) : (y + x) * 0.5f;
    }
    if (type == TdnRamp::kFourRamp) {
        const float corner[4] = {(1 - u) * (1 - v), (1 - v) * u, (1 - u) * v, u * v};
        for (unsigned k = 0; k < 4 && k < keys.count; ++k) c = c + keys.colour[k] * corner[k];
        return c;
    }
    return at(interp, TdnRamp::sRampValue(type, u, v), keys);
}
}  // namespace

TEST(Ramp, SortedKeysGiveTheListScansColourBitForBit) {
    // Key sets in list order, with ties of different colours, positions
    // held to 1, at and below -1, a NaN position, and values on keys,
    // between, outside and NaN.
    const float nan = std::nanf("");
    const T3Float a(0.9f, 0.1f, 0.2f), b(0.1f, 0.8f, 0.3f), c(0.2f, 0.3f, 0.95f), d(0.5f, 0.5f, 0.0f);
    const TrampKeys sets[] = {
        keysOf({{0.7f, a}, {0.2f, b}, {0.45f, c}}),
        keysOf({{0.5f, a}, {0.5f, b}, {0.0f, c}, {1.0f, d}, {0.5f, d}}),
        keysOf({{3.0f, a}, {1.0f, b}, {-0.5f, c}, {0.25f, d}}),
        keysOf({{-1.0f, a}, {-2.0f, b}, {0.6f, c}}),
        keysOf({{nan, a}, {0.3f, b}, {0.8f, c}}),
        keysOf({{nan, a}}),
        keysOf({{-0.0f, a}, {0.0f, b}, {0.9f, c}}),
        keysOf({{-3.0f, a}, {-1.5f, b}}),
    };
    const float values[] = {-2.0f, -1.0f, -0.5f, -0.0f, 0.0f, 0.1f, 0.2f, 0.25f, 0.3f, 0.45f, 0.5f, 0.55f, 0.6f, 0.7f, 0.8f, 0.99f, 1.0f, 1.5f, nan};
    for (unsigned s = 0; s < std::size(sets); ++s) {
        TsortedRampKeys sorted;
        TdnRamp::sortKeys(sets[s], sorted);
        for (short interp = 0; interp <= 6; ++interp)
            for (float value : values) {
                T3Float got(-7, -7, -7);
                TdnRamp::getRampColourAtValue(interp, value, sorted, got);
                EXPECT_EQ(got, at(interp, value, sets[s])) << "set " << s << " interp " << interp << " value " << value;
            }
    }
}

TEST(Ramp, PulledAndSettledRampsShadeAsTheListScanAndTakeNewKeysNextRender) {
    // Each type and a few interpolations against the scan. Outside a render
    // nothing is settled: a pull takes the general road, with the luminance
    // as alpha, at UVs inside, past 1 and below 0. Nothing drives the ramp,
    // so a render reads its keys once; then the same ramp with other keys.
    const std::vector<std::pair<float, T3Float>> first = {
        {0.8f, T3Float(0.2f, 0.3f, 0.95f)}, {0.1f, T3Float(0.9f, 0.1f, 0.1f)}, {0.5f, T3Float(0.1f, 0.8f, 0.2f)}, {0.5f, T3Float(1, 1, 1)}};
    const std::vector<std::pair<float, T3Float>> second = {{0.0f, T3Float(0, 0, 0)}, {0.3f, T3Float(0.25f, 0.5f, 1.0f)}};
    const short interps[] = {TdnRamp::kNoInterp, TdnRamp::kLinearInterp, TdnRamp::kSmoothInterp, TdnRamp::kSpikeInterp};
    for (short type = TdnRamp::kVRamp; type <= TdnRamp::kTartanRamp; ++type) {
        RampNode n;
        setValue(n.ramp, TdnRamp::saType(), type);
        setValue(n.ramp, TdnRamp::saInterpolation(), interps[type % 4]);
        n.net.show(n.ramp, TdnTx2D::saOutColor());
        std::vector<T2Float> uvs = spreadUvs();
        uvs[5] = T2Float{-1e7f, -1e7f};
        for (const auto* list : {&first, &second}) {
            TrampKeys keys;
            for (unsigned k = 0; k < list->size(); ++k) {
                n.ramp->setColourEntry(int(k), (*list)[k].first, (*list)[k].second);
                keys.position[k] = (*list)[k].first;
                keys.colour[k] = (*list)[k].second;
            }
            keys.count = unsigned(list->size());
            if (list == &second)
                for (unsigned k = unsigned(second.size()); k < first.size(); ++k) n.ramp->removeMultiElement(&TdnRamp::saColorEntryList(), k);
            n.net.session.reset();  // the render ends
            for (T2Float uv : {T2Float{0.1f, 0.8f}, T2Float{0.4f, 1.25f}, T2Float{-0.3f, 0.45f}}) {
                const TtexResult r = pullTexture(n.ramp, uv);
                const T3Float want = scannedColour(type, interps[type % 4], uv, keys);
                expectNear(r.colour, want, "pulled, type " + std::to_string(type));
                EXPECT_NEAR(r.alpha, 0.3f * want.x + 0.59f * want.y + 0.11f * want.z, 1e-6f) << "type " << type;
            }
            TtextureBatch batch = n.net.shade(uvs);
            for (unsigned i = 0; i < uvs.size(); ++i) {
                const T3Float want = i == 5 ? T3Float(0.5f, 0.5f, 0.5f) : scannedColour(type, interps[type % 4], uvs[i], keys);
                EXPECT_EQ(batch.colour(i), want) << "type " << type << " keys " << keys.count << " sample " << i;
            }
        }
    }
}
