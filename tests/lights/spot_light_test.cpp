// The spot light on the scalar road and through the engine: decay regions,
// the cone ramp against its closed form in the cosine, dropoff, barn doors on
// each side of the light's frame, decay, light fog, hard ranges and the
// messages of a changed cone.
#include <gtest/gtest.h>

#include <cmath>

#include "lights/light_fixture.h"
#include "lights/spot_light.h"

namespace {
constexpr double kDeg = 3.14159265358979323846 / 180;

// A unit direction at `theta` from the light's axis (local -Z), turned by
// `phi` from the light's +X towards its +Y; all in degrees, local space.
T3Float localDirection(double theta, double phi) {
    double t = theta * kDeg, p = phi * kDeg;
    return {float(std::sin(t) * std::cos(p)), float(std::sin(t) * std::sin(p)), float(-std::cos(t))};
}

// The closed form of the cone: 1 inside the inner edge, 0 beyond the outer
// one, linear in the cosine between them.
double coneRamp(double theta, double coneDeg, double penumbraDeg) {
    double half = coneDeg / 2, outer = half + std::max(penumbraDeg, 0.0), inner = half + std::min(penumbraDeg, 0.0);
    double c = std::cos(theta * kDeg), co = std::cos(outer * kDeg), ci = std::cos(inner * kDeg);
    return c >= ci ? 1 : c <= co ? 0 : (c - co) / (ci - co);
}

struct TspotScene : TlightScene {
    TspotLightShape* spot;
    explicit TspotScene(const T3Float& position = {0, 0, 0}, const T3Float& rotate = {0, 0, 0})
        : spot(light<TspotLightShape>("spotLight", position, rotate)) {}
    template <class V>
    void set(const Tattribute& a, V value) {
        EXPECT_TRUE(spot->setAttributeValue(&a, &value)) << a.longName().asC();
    }
    void cone(double coneDeg, double penumbraDeg) {
        set(TspotLightShape::saConeAngle(), coneDeg * kDeg);
        set(TspotLightShape::saPenumbraAngle(), penumbraDeg * kDeg);
    }
    // Intensity (red) arriving at `point`.
    float at(const T3Float& point) { return TlightScene::at(spot, point).lightIntensity.x; }
};

TEST(SpotLight, IlluminationRegions) {
    using R = TspotLightShape::TdecayRegions;
    const R standard{{1, 3, 8}, {2, 6, 10}};
    const R secondLow{{20, 0.25f, 30}, {21, 0.75f, 31}};
    const R firstLow{{0.25f, 20, 30}, {0.75f, 21, 31}};
    const R thirdLow{{20, 30, 0.25f}, {21, 31, 0.75f}};
    const R secondToOne{{20, 0.5f, 30}, {21, 1.0f, 31}};
    const R reversed{{5, 20, 30}, {4, 21, 31}};
    struct Case {
        const char* what;
        R regions;
        float distance;
        bool lit;
    };
    const Case cases[] = {
        {"start of region 1", standard, 1.0f, true},     {"end of region 1", standard, 2.0f, true},
        {"between 1 and 2", standard, 2.5f, false},      {"start of region 2", standard, 3.0f, true},
        {"end of region 2", standard, 6.0f, true},       {"between 2 and 3", standard, 7.0f, false},
        {"start of region 3", standard, 8.0f, true},     {"end of region 3", standard, 10.0f, true},
        {"beyond region 3", standard, 10.5f, false},     {"before region 1", standard, 0.9f, false},
        {"region 2 below unit distance", secondLow, 0.5f, false},
        {"region 1 below unit distance", firstLow, 0.5f, true},
        {"region 3 below unit distance", thirdLow, 0.5f, false},
        {"region 2 ending at exactly 1", secondToOne, 1.0f, false},
        {"a region whose end is before its start", reversed, 4.5f, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        // Through the light's record, on its axis.
        TspotScene scene;
        scene.set(TspotLightShape::saUseDecayRegions(), true);
        const Tattribute* starts[3] = {&TspotLightShape::saStartDistance1(), &TspotLightShape::saStartDistance2(),
                                       &TspotLightShape::saStartDistance3()};
        const Tattribute* ends[3] = {&TspotLightShape::saEndDistance1(), &TspotLightShape::saEndDistance2(),
                                     &TspotLightShape::saEndDistance3()};
        for (int k = 0; k < 3; ++k) {
            scene.set(*starts[k], c.regions.start[k]);
            scene.set(*ends[k], c.regions.end[k]);
        }
        EXPECT_EQ(scene.at({0, 0, -c.distance}), c.lit ? 1.0f : 0.0f);
    }
    TspotScene off;
    EXPECT_EQ(off.at({0, 0, -2.5f}), 1.0f) << "regions only count when they are used";
}

// The record is the cone's ramp times the dropoff's power of the cosine to
// the axis times the decay, which is flat within unit distance.
TEST(SpotLight, ConeRampDropoffAndDecayMultiply) {
    struct Case {
        double cone, penumbra, dropoff;
        short decay;
        float distance;
    };
    // Linear in the angle instead would be off by up to 0.09 in the widest ramps.
    const Case cases[] = {{40, 10, 0, 0, 3},    {40, -10, 0, 0, 3}, {30, 20, 0, 0, 3},   {90, 5, 0, 0, 3},
                          {120, -30, 0, 0, 3},  {10, 3, 0, 0, 3},   {80, 0, 1, 0, 1.5f}, {80, 0, 30, 0, 1.5f},
                          {80, 0, 255, 0, 1.5f}, {40, 5, 5, 2, 2},  {40, 5, 2, 2, 0.5f}, {40, 5, 0, 2, 4},
                          {40, 5, 0, 1, 4},     {40, 5, 0, 3, 2},   {40, 5, 0, 0, 7},    {40, 5, 0, 1, 0.8f}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "cone " << c.cone << ", penumbra " << c.penumbra << ", dropoff " << c.dropoff << ", decay "
                                        << c.decay << " at " << c.distance);
        TspotScene scene;
        scene.cone(c.cone, c.penumbra);
        scene.set(TspotLightShape::saDropoff(), c.dropoff);
        scene.spot->setRateOfDecay(c.decay);
        const double decay = c.distance > 1 ? std::pow(double(c.distance), -c.decay) : 1;
        const double outer = c.cone / 2 + std::max(c.penumbra, 0.0);
        int inRamp = 0;
        for (double theta = 0; theta <= outer + 5; theta += 0.25)
            for (double phi : {0.0, 130.0}) {
                if (c.penumbra == 0 && theta == c.cone / 2) continue;  // the hair-wide ramp of a sharp edge
                const double ramp = coneRamp(theta, c.cone, c.penumbra);
                const double want = ramp * std::pow(std::cos(theta * kDeg), c.dropoff) * decay;
                EXPECT_NEAR(scene.at(localDirection(theta, phi) * c.distance), want, 2e-5 + 1e-4 * want) << theta;
                inRamp += ramp > 0.05 && ramp < 0.95;
            }
        if (c.penumbra != 0) {
            EXPECT_GT(inRamp, 4) << "the ramp was sampled";
        }
    }
}

TEST(SpotLight, NoPenumbraLeavesANarrowRampAndNoDivisionByZero) {
    for (double cone : {40.0, 0.0001 / kDeg, 179.9}) {
        TspotScene scene;
        scene.cone(cone, 0);
        const double half = cone / 2 * kDeg;
        scene.at({0, 0, -1});
        EXPECT_NEAR(scene.spot->outerHalfAngle() - scene.spot->innerHalfAngle(), TspotLightShape::kMinPenumbraGap, 1e-12);
        for (double theta : {half - 0.002, half - 0.00005, half + 0.002}) {
            if (theta < 0) continue;
            float got = scene.at(localDirection(theta / kDeg, 45) * 2.0f);
            EXPECT_GE(got, 0.0f) << cone << " at " << theta;  // and not NaN
            EXPECT_LE(got, 1.0f);
            if (theta > half) {
                EXPECT_EQ(got, 0.0f) << cone;
            }
        }
    }
    TspotScene scene;
    scene.cone(40, 0);
    EXPECT_EQ(scene.at(localDirection(19.8, 10) * 2.0f), 1.0f);
    float edge = scene.at(localDirection(20 - 0.00005 / kDeg, 10) * 2.0f);
    EXPECT_GT(edge, 0.2f) << "inside the 0.0001 ramp";
    EXPECT_LT(edge, 0.8f);
}

TEST(SpotLight, BarnDoorsAtOrBeyondTheHalfConeLeaveTheConeAlone) {
    const double doorSets[][4] = {{20, 20, 20, 20}, {25, 30, 45, 89}, {20, 60, 21, 20.5}};
    for (const auto& doors : doorSets) {
        TspotScene open, closed;
        for (TspotScene* s : {&open, &closed}) s->cone(40, 6);
        closed.set(TspotLightShape::saBarnDoors(), true);
        const Tattribute* attrs[4] = {&TspotLightShape::saLeftBarnDoor(), &TspotLightShape::saRightBarnDoor(),
                                      &TspotLightShape::saTopBarnDoor(), &TspotLightShape::saBottomBarnDoor()};
        for (int k = 0; k < 4; ++k) closed.set(*attrs[k], doors[k] * kDeg);
        for (double theta = 0; theta < 30; theta += 1.5)
            for (double phi = 0; phi < 360; phi += 22.5) {
                T3Float p = localDirection(theta, phi) * 2.0f;
                EXPECT_EQ(closed.at(p), open.at(p)) << doors[0] << " at " << theta << ", " << phi;
            }
    }
}

TEST(SpotLight, EachBarnDoorCutsItsOwnSideOfTheLightsFrame) {
    // The light is turned a quarter about Z: its +X is the world's +Y, its
    // +Y the world's -X. A door mixed up with another, or a frame taken in
    // the wrong space, lights the wrong side.
    auto toWorld = [](const T3Float& v) { return T3Float(-v.y, v.x, v.z); };
    struct Side {
        const char* name;
        const Tattribute* door;
        double phi;  // the side's direction in the light's frame
    };
    const Side sides[] = {{"left", &TspotLightShape::saLeftBarnDoor(), 180},
                          {"right", &TspotLightShape::saRightBarnDoor(), 0},
                          {"top", &TspotLightShape::saTopBarnDoor(), 90},
                          {"bottom", &TspotLightShape::saBottomBarnDoor(), 270}};
    for (const Side& side : sides) {
        SCOPED_TRACE(side.name);
        TspotScene scene({0, 0, 0}, {0, 0, 90});
        scene.cone(60, 0);
        scene.set(TspotLightShape::saBarnDoors(), true);
        for (const Side& other : sides) scene.set(*other.door, (other.door == side.door ? 10 : 25) * kDeg);
        struct Probe {
            double theta, phi;
            bool lit;
        };
        // Along a side the angle from the axis is the door's angle itself.
        const Probe probes[] = {{9.5, side.phi, true},        {10.5, side.phi, false},    {20, side.phi + 180, true},
                                {26, side.phi + 180, false},  {20, side.phi + 90, true},  {20, side.phi - 90, true},
                                {0, 0, true}};
        for (const Probe& p : probes) {
            float got = scene.at(toWorld(localDirection(p.theta, p.phi)) * 2.0f);
            EXPECT_EQ(got, p.lit ? 1.0f : 0.0f) << p.theta << " at " << p.phi;
        }
    }
}

TEST(SpotLight, TheDeepestDoorRampsLinearlyInTheSideTangent) {
    // Cone 60 with penumbra -10: edges at 20 and 30 degrees, so each door
    // ramps over 10 degrees inward from its own angle.
    TspotScene scene;
    scene.cone(60, -10);
    scene.set(TspotLightShape::saBarnDoors(), true);
    scene.set(TspotLightShape::saLeftBarnDoor(), 15 * kDeg);
    scene.set(TspotLightShape::saTopBarnDoor(), 12 * kDeg);
    scene.set(TspotLightShape::saRightBarnDoor(), 40 * kDeg);
    scene.set(TspotLightShape::saBottomBarnDoor(), 40 * kDeg);
    auto ramp = [](double tangent, double doorDeg) {
        double outer = std::tan(doorDeg * kDeg), inner = std::tan((doorDeg - 10) * kDeg);
        return std::clamp((outer - tangent) / (outer - inner), 0.0, 1.0);
    };
    struct Case {
        double left, top;  // side tangents towards each door, as angles
    };
    const Case cases[] = {{7, 0}, {10, 0}, {12, 0}, {14.5, -5}, {11, 9}, {4, 11}, {0, 2}};
    for (const Case& c : cases) {
        double tl = std::tan(c.left * kDeg), tt = std::tan(c.top * kDeg);
        T3Float d = normalize(T3Float(float(-tl), float(tt), -1));
        double theta = std::atan(std::hypot(tl, tt)) / kDeg;
        double want = std::min(ramp(tl, 15), ramp(tt, 12)) * coneRamp(theta, 60, -10);
        EXPECT_NEAR(scene.at(d * 2.0f), want, 2e-4) << c.left << ", " << c.top;
    }
}

TEST(SpotLight, OwnFogSamplesTakeTheFogWeight) {
    // The light hangs at y = 5 looking down: its local (x, y, z) is the
    // world's (x, 5 + z, -y).
    auto toWorld = [](const T3Float& v) { return T3Float(v.x, 5 + v.z, -v.y); };
    struct Case {
        float spread;
        short decay;
        T3Float a, b;  // light space
        float fade;    // expected edge fade
    };
    const double outer = 20 * kDeg;
    const float t = float(std::tan(0.9 * outer));
    const Case cases[] = {
        {1, 0, {-0.2f, 0, -1}, {0.2f, 0, -1}, 0},          // across the axis
        {2, 0, {-0.2f, 0, -1}, {0.2f, 0, -1}, 0},
        {1, 2, {0, -0.3f, -2}, {0, 0.3f, -2}, 0},
        {0.5f, 1, {t - 0.01f, 0, -1}, {t + 0.01f, 0, -1}, 2 * (0.9f - 0.45f) * (1 - 0.45f)},  // near the edge
        {4, 0, {t - 0.01f, 0, -1}, {t + 0.01f, 0, -1}, 0},  // an edge beyond 1: no fade
    };
    for (const Case& c : cases) {
        TspotScene scene({0, 5, 0}, {-90, 0, 0});
        scene.cone(40, 0);
        scene.spot->setRateOfDecay(c.decay);
        int fogObject = 0;
        void* id = &fogObject;
        scene.spot->setFogObject(&fogObject);
        scene.set(TspotLightShape::saObjectId(), id);
        scene.set(TspotLightShape::saPointWorld(), toWorld(c.a));
        scene.set(TspotLightShape::saFarPointWorld(), toWorld(c.b));
        scene.set(TspotLightShape::saFogSpread(), c.spread);
        scene.set(TspotLightShape::saFogIntensity(), 3.0f);
        double cosine = dot(normalize(c.a), normalize(c.b));
        double x = 1 - (1 + cosine) / 2;
        double w = std::min(x / (2 - 2 * std::cos(outer)), 1.0);
        double want = std::pow(w, (c.decay + 1) / c.spread) * (1 - c.fade) * 3;
        // Far outside the cone and at decaying distance: neither applies to fog.
        float got = scene.at({40, 0, 0});
        EXPECT_NEAR(got, want, 1e-4 * want + 1e-7) << c.spread << " " << c.decay;
        EXPECT_GT(got, 0.0f);
    }
}

TEST(SpotLight, HardRangesAndModifiedMessages) {
    TspotScene scene;
    std::vector<TspotModifiedMsg::Kind> heard;
    unsigned id = scene.spot->addModifiedClient([&](const TspotModifiedMsg& m) {
        EXPECT_EQ(m.light, scene.spot);
        heard.push_back(m.kind);
    });
    using K = TspotModifiedMsg::Kind;
    struct Case {
        const Tattribute* attribute;
        double value, kept;
        int kind;  // -1: no message
    };
    const double maxCone = 3.1414927, maxDoor = 1.5707463;
    const Case cases[] = {
        {&TspotLightShape::saConeAngle(), 1.0, 1.0, K::kConeAngle},
        {&TspotLightShape::saConeAngle(), 4.0, maxCone, K::kConeAngle},
        {&TspotLightShape::saConeAngle(), 0.0, 0.0001, K::kConeAngle},
        {&TspotLightShape::saPenumbraAngle(), -4.0, -maxCone, K::kPenumbraAngle},
        {&TspotLightShape::saPenumbraAngle(), 0.5, 0.5, K::kPenumbraAngle},
        {&TspotLightShape::saDropoff(), -2.0, 0.0, K::kDropoff},
        {&TspotLightShape::saDropoff(), 1000.0, 1000.0, K::kDropoff},
        {&TspotLightShape::saLeftBarnDoor(), 2.0, maxDoor, K::kBarnDoors},
        {&TspotLightShape::saBottomBarnDoor(), -2.0, -maxDoor, K::kBarnDoors},
        {&TspotLightShape::saBarnDoors(), 1, 1, K::kBarnDoors},
        {&TspotLightShape::saPsIllumSamples(), 0, 1, -1},
        {&TspotLightShape::saPsIllumSamples(), 80, 50, -1},
        {&TlightShape::saIntensity(), 7, 7, -1},
        {&TspotLightShape::saFogSpread(), 9, 9, -1},
    };
    for (const Case& c : cases) {
        heard.clear();
        const Tattribute& a = *c.attribute;
        std::vector<unsigned char> bytes(a.size());
        a.setNumericValue(bytes.data(), c.value);
        ASSERT_TRUE(scene.spot->setAttributeValue(&a, bytes.data()));
        ASSERT_TRUE(scene.spot->getAttributeValue(&a, bytes.data()));
        EXPECT_NEAR(a.numericValue(bytes.data()), c.kept, 1e-9) << a.longName().asC();
        if (c.kind < 0) {
            EXPECT_TRUE(heard.empty()) << a.longName().asC();
        } else {
            ASSERT_EQ(heard.size(), 1u) << a.longName().asC();
            EXPECT_EQ(heard[0], c.kind);
        }
    }
    scene.spot->removeModifiedClient(id);
    heard.clear();
    scene.set(TspotLightShape::saConeAngle(), 0.5);
    EXPECT_TRUE(heard.empty()) << "a removed client hears nothing";
}

TEST(SpotLight, EngineBatchesAgreeWithTheScalarRoad) {
    // 100 samples: a full batch and a partial one, over the lit patch, the
    // ramps and the dark, with doors, dropoff and decay all on.
    TlitNetwork net;
    auto* spot = net.addLight<TspotLightShape>("spotLight", T3Float(0.3f, 3, 0.2f), T3Float(-80, 10, 15));
    setValue(spot, TspotLightShape::saConeAngle(), 70 * kDeg);
    setValue(spot, TspotLightShape::saPenumbraAngle(), 8 * kDeg);
    setValue(spot, TspotLightShape::saDropoff(), 4.0);
    setValue(spot, TspotLightShape::saBarnDoors(), true);
    setValue(spot, TspotLightShape::saTopBarnDoor(), 15 * kDeg);
    setValue(spot, TspotLightShape::saLeftBarnDoor(), 25 * kDeg);
    spot->setRateOfDecay(1);
    net.useLights();
    std::vector<TsurfaceSample> samples;
    for (int k = 0; k < 100; ++k) samples.push_back({{float(k % 10) * 0.6f - 3, 0, float(k / 10) * 0.6f - 3}, {0, 1, 0}});
    // The engine shades at most one batch per call.
    auto engine = net.shade(std::vector<TsurfaceSample>(samples.begin(), samples.begin() + 64));
    auto rest = net.shade(std::vector<TsurfaceSample>(samples.begin() + 64, samples.end()));
    engine.insert(engine.end(), rest.begin(), rest.end());
    ASSERT_EQ(engine.size(), samples.size());
    int lit = 0, dark = 0;
    for (size_t k = 0; k < samples.size(); ++k) {
        TlightData d = TlightScene::at(spot, samples[k].point);
        float want = d.lightIntensity.x * std::max(dot(samples[k].normal, d.lightDirection), 0.0f);
        EXPECT_NEAR(engine[k].color.x, want, 1e-5f) << k;
        lit += want > 0.01f;
        dark += want == 0;
    }
    EXPECT_GT(lit, 10);
    EXPECT_GT(dark, 10);
}

}  // namespace
