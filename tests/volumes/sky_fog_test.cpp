// The physical fog model: phase functions and shaping helpers, and each fog
// type against closed forms or numerical integrals computed here.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>

#include "volumes/sky_fog.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Simpson's rule over [a, b] with n (even) intervals.
double simpson(const std::function<double(double)>& f, double a, double b, int n) {
    const double h = (b - a) / n;
    double sum = f(a) + f(b);
    for (int i = 1; i < n; ++i) sum += f(a + i * h) * (i % 2 ? 4 : 2);
    return sum * h / 3;
}

double extinction(double opacity, double density) { return -std::log(1 - opacity) * density; }

T3Double gray(double v) { return {v, v, v}; }

}  // namespace

TEST(SkyFogPhase, PhaseFunctionsIntegrateToOneOverTheSphere) {
    // Over the sphere, d(solid angle) = 2 pi d(cos).
    const double rayleigh = simpson([](double c) { return 2 * kPi * TskyFog::rayleigh(c); }, -1, 1, 2000);
    EXPECT_NEAR(rayleigh, 1.0, 1e-9);
    for (double g : {-0.8, -0.3, 0.0, 0.2, 0.6, 0.9}) {
        const double total = simpson([g](double c) { return 2 * kPi * TskyFog::henyeyScatter(c, g); }, -1, 1, 200000);
        EXPECT_NEAR(total, 1.0, 1e-6) << "g " << g;
    }
    // Forward scattering for positive g, isotropic at 0.
    EXPECT_GT(TskyFog::henyeyScatter(1, 0.5), TskyFog::henyeyScatter(-1, 0.5));
    EXPECT_DOUBLE_EQ(TskyFog::henyeyScatter(0.3, 0), TskyFog::henyeyScatter(-0.9, 0));
}

TEST(SkyFogHelpers, ApplyBiasFixesEndsAndBendsBetween) {
    for (double x : {0.0, 0.2, 0.5, 0.9, 1.0}) {
        EXPECT_EQ(TskyFog::applyBias(x, 0), x);
        EXPECT_EQ(TskyFog::applyBias(x, 1), 1.0);
        EXPECT_EQ(TskyFog::applyBias(x, -1), 0.0);
    }
    for (double b : {-0.9, -0.5, -0.1, 0.1, 0.5, 0.9}) {
        EXPECT_NEAR(TskyFog::applyBias(0, b), 0, 1e-12) << b;
        EXPECT_NEAR(TskyFog::applyBias(1, b), 1, 1e-12) << b;
        double previous = 0;
        for (double x = 0.05; x <= 1.0; x += 0.05) {
            const double v = TskyFog::applyBias(x, b);
            EXPECT_GT(v, previous) << "b " << b << " x " << x;
            previous = v;
        }
        // A positive bias lifts the middle, a negative one lowers it.
        EXPECT_EQ(TskyFog::applyBias(0.5, b) > 0.5, b > 0) << b;
    }
}

TEST(SkyFogHelpers, DropoffFallsFromTheSurfaceToTheTop) {
    const double radius = 100, height = 10;
    struct Case { double distanceFromCentre, bias, expected; };
    const Case cases[] = {
        {50, 0, 1},                     // below the surface: full
        {100, 0.3, 1},                  // at the surface
        {105, 0, 0.5},                  // halfway, no bias
        {110, 0.3, 0},                  // at the top
        {150, -0.2, 0},                 // above it
        {150, 1, 1},                    // a bias of 1 is full everywhere
        {105, 0.5, TskyFog::applyBias(0.5, 0.5)},
    };
    for (const Case& c : cases) {
        const T4dDblPoint p(0, c.distanceFromCentre * 0.6, c.distanceFromCentre * 0.8);
        EXPECT_NEAR(TskyFog::dropoffFunc(p, height, radius, c.bias), c.expected, 1e-12) << c.distanceFromCentre;
    }
}

TEST(SkyFogHelpers, IntSphereFindsTheNearestForwardHit) {
    struct Case { T4dDblPoint p; T4dDblVector d; double radius, expected; };
    const Case cases[] = {
        {{0, 0, 0}, {0, 0, 1}, 2, 2},    // from the centre
        {{0, 0, -5}, {0, 0, 1}, 1, 4},   // from outside, towards
        {{0, 0, -5}, {0, 0, 2}, 1, 2},   // parameter in units of the direction
        {{0, 0, 0.5}, {0, 0, -1}, 1, 1.5},
    };
    for (const Case& c : cases) EXPECT_NEAR(TskyFog::intSphere(c.p, c.d, c.radius), c.expected, 1e-12);
    EXPECT_LT(TskyFog::intSphere({0, 0, -5}, {0, 0, -1}, 1), 0);  // pointing away: two negative roots
    EXPECT_LT(TskyFog::intSphere({0, 3, -5}, {0, 0, 1}, 1), 0);   // passing by

    std::mt19937 random(5);
    std::uniform_real_distribution<double> u(-1, 1);
    for (int i = 0; i < 100; ++i) {
        const T4dDblPoint p(u(random), u(random), u(random));
        const T4dDblVector d(u(random), u(random), u(random) + 0.01);
        const double t = TskyFog::intSphere(p, d, 3);
        ASSERT_GE(t, 0);
        EXPECT_NEAR((p + d * t).length(), 3, 1e-9);  // the hit lies on the sphere
    }
}

TEST(SkyFogPresence, WhichDensitiesCountAsFog) {
    struct Case { int type; double fog, air, water; bool expected; };
    const Case cases[] = {
        {kSkyFog, 0, 0, 0, false}, {kConstantFog, 0.1, 0, 0, true}, {kAtmosFog, 0, 0.2, 0, true},
        {kWater, 0, 0, 0.5, true}, {kWaterFog, 0, 0, 0.5, false},  // water counts only for type 3
    };
    for (const Case& c : cases) {
        TskyFog fog;
        fog.setFogType(c.type);
        fog.setFogDensity(c.fog);
        fog.setAirDensity(c.air);
        fog.setWaterDensity(c.water);
        fog.init();
        EXPECT_EQ(fog.hasSomeFog(), c.expected) << c.type;
        T3Double inOut(0.25, 0.5, 0.75);
        // Down from just above the ground and the water surface, through both.
        EXPECT_EQ(fog.applyFog({0, 1, 0}, {0.6, -0.8, 0}, 10, inOut), c.expected);
        if (!c.expected) EXPECT_EQ(inOut, T3Double(0.25, 0.5, 0.75));
        else EXPECT_NE(inOut, T3Double(0.25, 0.5, 0.75));
    }
}

TEST(SkyFogUniform, BeerLambertOverTheClippedDistance) {
    TskyFog fog;
    fog.setFogDensity(0.2);
    fog.setFogOpacity({0.5, 0.3, 0.9});
    fog.setAirDensity(0.05);
    fog.setAirOpacity(gray(0.4));
    fog.setFogColor({0.2, 0.4, 0.6});
    fog.setAirColor({1, 0.5, 0.25});
    fog.setSunIntensity(2);
    fog.init();
    const double fogOpacity[3] = {0.5, 0.3, 0.9};
    struct Case { bool clip; double nearClip, farClip, distance, effective; };
    const Case cases[] = {{false, 0, 0, 30, 30}, {true, 0, 10, 30, 10}, {true, 3, 10, 30, 7}, {true, 3, 100, 5, 2}};
    for (const Case& c : cases) {
        fog.setClip(c.clip);
        fog.setNearClip(c.nearClip);
        fog.setFarClip(c.farClip);
        T3Double color, transparency;
        ASSERT_TRUE(fog.getFog({0, 0, 0}, {0, 0, 1}, c.distance, color, transparency));
        for (int k = 0; k < 3; ++k) {
            const double sf = extinction(fogOpacity[k], 0.2), sa = extinction(0.4, 0.05);
            const double t = std::exp(-(sf + sa) * c.effective);
            EXPECT_NEAR(transparency[k], t, 1e-12);
            const double airColor[3] = {1, 0.5, 0.25}, fogColor[3] = {0.2, 0.4, 0.6};
            EXPECT_NEAR(color[k], (fogColor[k] * sf + airColor[k] * sa) * 2 / (sf + sa) * (1 - t), 1e-12);
        }
    }
    // A near clip that eats the whole segment leaves no fog.
    fog.setNearClip(40);
    T3Double color, transparency;
    EXPECT_FALSE(fog.getFog({0, 0, 0}, {0, 0, 1}, 30, color, transparency));
    EXPECT_EQ(transparency, gray(1));
    EXPECT_EQ(color, gray(0));
}

TEST(SkyFogUniform, FullScatterNeedsNoSunAndUsesTheMeanColour) {
    TskyFog fog;
    fog.setFogColor({0.3, 0.6, 0.9});
    fog.setSunIntensity(1);
    fog.setSunElevation(45);
    fog.init();
    EXPECT_EQ(fog.sunDirection(), gray(0));
    T3Double color, transparency;
    fog.getFog({0, 0, 0}, {1, 0, 0}, 4, color, transparency);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(color[k], fog.meanFogColor()[k] * (1 - transparency[k]), 1e-12);

    fog.setFogLightScatter(0.5);  // partial scatter wants the sun
    fog.init();
    const T3Double& s = fog.sunDirection();
    EXPECT_NEAR(std::sqrt(s.x * s.x + s.y * s.y + s.z * s.z), 1, 1e-12);
    // Looking towards the sun scatters more than looking away with a forward bias below 1.
    T3Double towards, away;
    fog.getFog({0, 0, 0}, {s.x, s.y, s.z}, 4, towards, transparency);
    fog.getFog({0, 0, 0}, {-s.x, -s.y, -s.z}, 4, away, transparency);
    EXPECT_GT(towards.x, away.x);
}

TEST(SkyFogSun, DirectionPerAxisKeepsTheMinusXAsymmetry) {
    struct Case { int axis; T3Double expected; };
    const Case cases[] = {
        {kAxisX, {1, 0, 0}}, {kAxisNegX, {1, 0, 0}},  // the sign of the elevation stays on -X
        {kAxisY, {0, 1, 0}}, {kAxisNegY, {0, -1, 0}}, {kAxisZ, {0, 0, 1}}, {kAxisNegZ, {0, 0, 1}},
    };
    for (const Case& c : cases) {
        TskyFog fog;
        fog.setFogType(kSkyFog);
        fog.setAxis(c.axis);
        fog.setSunElevation(90);
        fog.init();
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(fog.sunDirection()[k], c.expected[k], 1e-12) << c.axis;
    }
    // On the horizon with azimuth 90 on the Y axis the sun lies along +X.
    TskyFog fog;
    fog.setFogType(kSkyFog);
    fog.setSunElevation(0);
    fog.setSunAzimuth(90);
    fog.init();
    EXPECT_NEAR(fog.sunDirection().x, 1, 1e-12);
    EXPECT_NEAR(fog.sunDirection().z, 0, 1e-12);
}

TEST(SkyFogAtmospheric, HeightIntegralMatchesNumericalIntegration) {
    // An exponential layer on a large planet: optical depth is the integral of
    // extinction * exp(-(height along the ray - min) / max height) / 0.5^decay.
    struct Case { double y0, dirY, distance, decay; };
    const Case cases[] = {{2, -0.3, 5, 0}, {1, 0.5, 15, 0}, {3, 0.1, 8, 1}, {4, 0, 30, 0}, {4, 1e-8, 30, 0.5}};
    for (const Case& c : cases) {
        TskyFog fog;
        fog.setFogType(kAtmosFog);
        fog.setFogDensity(0.3);
        fog.setFogOpacity(gray(0.6));
        fog.setFogMaxHeight(10);
        fog.setFogDecay(c.decay);
        fog.setPlanetRadius(1e7);
        fog.init();
        const double horizontal = std::sqrt(1 - c.dirY * c.dirY);
        T3Double color, transparency;
        ASSERT_TRUE(fog.getFog({0, c.y0, 0}, {horizontal, c.dirY, 0}, c.distance, color, transparency));
        const double sigma = extinction(0.6, 0.3);
        const double integral = simpson([&](double t) { return std::exp(-(c.y0 + c.dirY * t) / 10); }, 0, c.distance, 2000);
        const double expected = std::exp(-sigma * integral / std::pow(0.5, c.decay));
        EXPECT_NEAR(transparency.x, expected, 1e-9) << c.y0 << " " << c.dirY;
    }
}

TEST(SkyFogAtmospheric, RayStopsAtTheGround) {
    TskyFog fog;
    fog.setFogType(kAtmosFog);
    fog.setAirDensity(0.5);
    fog.setFogDensity(0);
    fog.setAirMaxHeight(10);
    fog.setPlanetRadius(1e9);
    fog.init();
    T3Double color, near, far;
    // Straight down from height 2: beyond distance 2 the ground cuts the path.
    fog.getFog({0, 2, 0}, {0, -1, 0}, 2, color, near);
    fog.getFog({0, 2, 0}, {0, -1, 0}, 50, color, far);
    EXPECT_NEAR(near.x, far.x, 1e-12);
    const double sigma = extinction(0.5, 0.5);
    EXPECT_NEAR(far.x, std::exp(-sigma * 10 * (std::exp(0.0) - std::exp(-0.2))), 1e-9);
}

TEST(SkyFogSky, ThinAtmosphereFromTheGroundUp) {
    TskyFog fog;
    fog.setFogType(kSkyFog);
    fog.setFogDensity(0);
    fog.setAirDensity(0.2);
    fog.setAirDecay(0.5);  // bias 0: density falls linearly with height
    fog.setAirMaxHeight(100);
    fog.setSunIntensity(1);
    fog.setSunElevation(90);
    fog.init();
    // Straight up from the ground through the whole layer: the midpoint is at
    // height 50, where a linear fall-off leaves half the density.
    T3Double color, transparency;
    ASSERT_TRUE(fog.getFog({0, 0, 0}, {0, 1, 0}, 1e6, color, transparency));
    const double sigma = extinction(0.5, 0.2);
    EXPECT_NEAR(transparency.x, std::exp(-sigma * 100 * 0.5 * 0.2), 1e-9);
    EXPECT_GT(color.x, 0);
    // A path that does not reach the sun's side keeps its colour finite.
    EXPECT_TRUE(std::isfinite(color.y));
}

// Water fills y < 0. Each ray runs `inAir` through the fog above the surface
// and `inWater` below it; the plain water type has no fog density.
TEST(SkyFogWater, RaysAttenuateByTheirPathsInAirAndInWater) {
    struct Case { int type; double fogDensity; T4dDblPoint p; T4dDblVector d; double distance, inAir, inWater; };
    const Case cases[] = {
        {kWater, 0, {0, 10, 0}, {0, -1, 0}, 30, 10, 20},  // down through the surface
        {kWater, 0, {0, -5, 0}, {1, 0, 0}, 7, 0, 7},      // level below it
        {kWater, 0, {0, 5, 0}, {1, 0, 0}, 7, 7, 0},       // level above: no fog at all
        {kWaterFog, 0.05, {0, 10, 0}, {0, -1, 0}, 30, 10, 20},
        {kWaterFog, 0.05, {0, -10, 0}, {0, 1, 0}, 30, 20, 10},  // up out of the water
    };
    const double water = extinction(0.5, 0.1);
    TskyFog fog;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.type) + " from height " + std::to_string(c.p.y));
        fog.setFogType(c.type);
        fog.setFogDensity(c.fogDensity);
        fog.setFogOpacity(gray(0.5));
        fog.setWaterDensity(0.1);
        fog.setWaterOpacity(gray(0.5));
        fog.setWaterColor({0.1, 0.3, 0.5});
        fog.setSunIntensity(1);
        fog.init();
        const double expected = std::exp(-extinction(0.5, c.fogDensity) * c.inAir - water * c.inWater);
        T3Double color, transparency;
        EXPECT_EQ(fog.getFog(c.p, c.d, c.distance, color, transparency), expected < 1);
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(transparency[k], expected, 1e-12);
    }
    // Types 7 to 9 do nothing and leave the outputs alone.
    fog.setFogType(8);
    T3Double color = gray(0.5), transparency;
    EXPECT_FALSE(fog.getFog({0, 10, 0}, {0, -1, 0}, 30, color, transparency));
    EXPECT_EQ(color, gray(0.5));
}

TEST(SkyFogHeight, SimpleHeightFogThicknessBandAndRamps) {
    struct Case { double density; bool useHeight; T4dDblPoint p; T4dDblVector d; double distance, length; bool fogged; double decay = 0; };
    const Case cases[] = {
        {0.5, false, {0, 0, 0}, {0, 0, 1}, 10, 10, true},
        {0.5, true, {0, 5, 0}, {0, 1, 0}, 100, 5, true},  // leaves the band [0, 10] at its top
        {0.5, true, {0, 5, 0}, {1, 0, 0}, 2, 10, true},   // level in the band: the band's height, deliberately
        {0.5, true, {0, 20, 0}, {1, 0, 0}, 2, 0, false},  // level outside
        {0.5, true, {0, 20, 0}, {0, 1, 0}, 5, 0, false},  // going away from the band
        {0.5, true, {0, 1, 0}, {1, 0, 0}, 3, 2.5, true, 4},  // a quarter of the way up the ramp at the foot: a quarter of the band
        {0.5, true, {0, 5, 0}, {1, 0, 0}, 3, 10, true, 4},   // in the middle neither ramp applies
    };
    for (const Case& c : cases) {
        TskyFog fog;
        fog.setFogType(kSimpleHeightFog);
        fog.setFogDensity(c.density);
        fog.setFogColor({0.2, 0.5, 1});
        fog.setUseHeight(c.useHeight);
        fog.setFogDecay(c.decay);
        fog.init();
        T3Double color, transparency;
        const bool fogged = fog.getFog(c.p, c.d, c.distance, color, transparency);
        EXPECT_EQ(fogged, c.fogged);
        if (!fogged && c.density > 0) {
            EXPECT_EQ(transparency, gray(1));
            continue;
        }
        const double opacity = 1 - std::exp(-c.length * c.density);
        const double fogColor[3] = {0.2, 0.5, 1};
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(transparency[k], 1 - fogColor[k] * opacity, 1e-12) << c.p.y;
            EXPECT_NEAR(color[k], fogColor[k] * fogColor[k] * opacity, 1e-12) << c.p.y;
        }
    }
}

TEST(SkyFogHeight, ZeroDensityMeansInfiniteThicknessAndNoOpacity) {
    // getFog stops before the height fog when no density is above 0, so ask it directly.
    struct TheightFog : TskyFog {
        using TskyFog::getToviFog;
    } fog;
    fog.setFogType(kSimpleHeightFog);
    fog.setFogDensity(0);
    fog.setColorBasedTransp(false);
    fog.init();
    T3Double color, transparency;
    EXPECT_TRUE(fog.getToviFog({0, 0, 0}, {0, 0, 1}, 1e6, color, transparency));
    EXPECT_EQ(transparency, gray(1));
    EXPECT_EQ(color, gray(0));
    fog.setFogDensity(-1);
    EXPECT_FALSE(fog.getToviFog({0, 0, 0}, {0, 0, 1}, 1, color, transparency));
}
