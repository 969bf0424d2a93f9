// The lens effects of a light, against closed forms of their falloffs and
// the geometry of the image plane.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "framework/host/depend_graph.h"
#include "post/optical_fx.h"
#include "post/post_messages.h"
#include "short_image.h"

namespace {
// Half the tangent of the default camera's horizontal view: its film back
// over twice its focal length, in inches.
const double kTanHalf = 1.417 / (2 * 35 * 0.03937);

struct TopticalFixture : ::testing::Test {
    TdependGraph graph;
    TdnOpticalFX* fx = nullptr;
    TopticalFXview view;  // a camera at the origin looking down -Z
    TopticalFXlight light;
    void SetUp() override {
        fx = static_cast<TdnOpticalFX*>(graph.createNode(Tstring("opticalFX"), Tstring("fx")));
        ASSERT_NE(fx, nullptr);
        light.name = "lamp";
        light.position = {1, 0.5, -10};
        // Plain effects: no noise, no star, no flare unless a test asks.
        set("glowType", short(1));
        set("haloType", short(0));
    }
    void TearDown() override { setPostMessageSink(nullptr); }
    template <class T>
    void set(const char* name, T v) {
        ASSERT_TRUE(fx->setAttributeValue(fx->attribute(Tstring(name)), &v)) << name;
    }

    // A grey image of w x h, effects added, in 16-bit pixels.
    std::vector<unsigned char> render(int w, int h, float grey = 20) {
        std::vector<unsigned char> image = shortImage(w, h, grey, 255);
        fx->reset(view, light, nullptr);
        EXPECT_TRUE(fx->addOpticalFXtoArray(light, {0, 0, w, h}, (unsigned short)w, (unsigned short)h, image.data(), false,
                                            kPostShortPixels));
        return image;
    }
};

// Blocks the ray to the light's centre and to three of the eight points around it.
struct ThalfBlocked final : TopticalFXoccluders {
    mutable int calls = 0;
    T3Float transmission(const T3Double&, const T3Double&) const override {
        return (calls++ % 2 == 0) ? T3Float(0, 0, 0) : T3Float(1, 1, 1);
    }
};
}  // namespace

TEST_F(TopticalFixture, PixelDirectionsAreUnitAndFieldsDoubleTheRowStep) {
    fx->reset(view, light, nullptr);
    std::vector<unsigned char> row(64 * 8);
    ASSERT_TRUE(fx->addOpticalFXtoScanline(light, {0, 0, 64, 48}, 64, 48, 3, row.data(), false, kPostShortPixels));
    for (auto [x, y] : {std::pair{0, 0}, {63, 47}, {31, 20}, {10, 40}}) {
        const T3Float d = fx->pixelDirection(x, y);
        // The exact direction: through the pixel centre on a plane at distance 1.
        const double nx = (2 * (x + 0.5) / 64 - 1) * kTanHalf, ny = (1 - 2 * (y + 0.5) / 48) * 0.75 * kTanHalf;
        const double n = std::sqrt(nx * nx + ny * ny + 1);
        EXPECT_NEAR(d.x, nx / n, 2e-6);
        EXPECT_NEAR(d.y, ny / n, 2e-6);
        EXPECT_NEAR(d.z, 1 / n, 2e-6);
    }
    // Field row y is frame row 2y: the two images agree there.
    std::vector<unsigned char> frame = render(32, 24), field = shortImage(32, 12, 20, 255);
    ASSERT_TRUE(fx->addOpticalFXtoArray(light, {0, 0, 32, 24}, 32, 24, field.data(), true, kPostShortPixels));
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 32; x += 5)
            EXPECT_NEAR(postReadPixel(&field[size_t(y * 32 + x) * 8], kPostShortPixels).g,
                        postReadPixel(&frame[size_t(2 * y * 32 + x) * 8], kPostShortPixels).g, 1.01);
}

TEST_F(TopticalFixture, NothingIsAddedWhereNoEffectCanShow) {
    struct Case {
        const char* what;
        short glow, halo;
        bool flare;
        T3Float colour;
        T3Double position;
    };
    const Case cases[] = {
        {"no glow, no halo, no flare", 0, 0, false, {1, 1, 1}, {1, 0.5, -10}},
        {"a black light", 1, 1, true, {0, 0, 0}, {1, 0.5, -10}},
        {"a light behind the camera", 1, 1, true, {1, 1, 1}, {0.2, 0.1, 10}},
    };
    for (const Case& c : cases) {
        set("glowType", c.glow);
        set("haloType", c.halo);
        set("lensFlare", c.flare);
        set("glowIntensity", 50.0f);
        set("haloIntensity", 50.0f);
        light.color = c.colour;
        light.position = c.position;
        EXPECT_EQ(render(40, 30), shortImage(40, 30, 20, 255)) << c.what;
    }
}

TEST_F(TopticalFixture, GlowAndHaloFallByTheirLawsAroundTheLight) {
    set("glowIntensity", 0.01f);  // stays far below the clamp
    set("glowSpread", 2.0f);
    fx->reset(view, light, nullptr);
    const T3Double& p = fx->lightOnImage();
    EXPECT_NEAR(p.x, 1 / 10.0 / kTanHalf, 1e-6);
    EXPECT_NEAR(p.y, 0.5 / 10.0 / kTanHalf, 1e-6);
    const double k = fx->glowSpreadConstant();
    const double s = 2 * 0.02;
    EXPECT_NEAR(k, 1 / (s * s * s - 1), 1e-12);
    const double lx = 1 / std::sqrt(101.25), ly = 0.5 / std::sqrt(101.25), lz = 10 / std::sqrt(101.25);
    auto expected = [&](const T3Float& d) {
        const double c = d.x * lx + d.y * ly + d.z * lz;
        return 0.01 * 4 * (1 + k) / (c + k) * 255;
    };
    // Symmetric pairs about the light's direction give equal glow, and each
    // pixel the closed form.
    for (double angle : {0.002, 0.01, 0.05}) {
        for (int turn = 0; turn < 4; ++turn) {
            const double a = turn * 1.5707963;
            // A direction at `angle` from the light's, around it.
            const T3Float u = normalize(T3Float(float(lz), 0, float(-lx)));
            const T3Float v = normalize(T3Float(float(ly * -lx), float(lz * lz + lx * lx), float(-ly * lz)));
            const T3Float l{float(lx), float(ly), float(lz)};
            const T3Float d = normalize(l * float(std::cos(angle)) + (u * float(std::cos(a)) + v * float(std::sin(a))) * float(std::sin(angle)));
            QV_Rgba out;
            ASSERT_TRUE(fx->glowEffect(d, &out, light));
            EXPECT_NEAR(out.g, expected(d), 1e-3 * expected(d) + 1e-4) << "angle " << angle << " turn " << turn;
        }
    }
    // The halo falls with the squared closeness.
    set("glowType", short(0));
    set("haloType", short(1));
    set("haloIntensity", 0.01f);
    fx->reset(view, light, nullptr);
    const double kh = fx->haloSpreadConstant();
    const T3Float d = fx->pixelDirection(20, 20);
    const double c = d.x * lx + d.y * ly + d.z * lz;
    QV_Rgba out;
    ASSERT_TRUE(fx->glowEffect(d, &out, light));
    EXPECT_NEAR(out.r, 0.01 * 4 * (1 + kh) / (c * c + kh) * 255, 1e-3);
    // The fog veil falls as the halo does, with a spread a quarter unit wide.
    set("haloType", short(0));
    set("fogType", short(1));
    set("fogIntensity", 0.01f);
    fx->reset(view, light, nullptr);
    const double kf = 1 / (0.25 * 0.25 - 1);
    ASSERT_TRUE(fx->glowEffect(d, &out, light));
    EXPECT_NEAR(out.b, 0.01 * 2 * (1 + kf) / (c * c + kf) * 255, 1e-3);
}

TEST_F(TopticalFixture, FlareCirclesLieOnTheLineThroughTheLightAndTheCentre) {
    set("lensFlare", true);
    set("flareNumCircles", 15);
    for (T3Double position : {T3Double(1, 0.5, -10), T3Double(-3, 1, -6), T3Double(0.5, -2, -8)}) {
        light.position = position;
        fx->reset(view, light, nullptr);
        const T3Double& p = fx->lightOnImage();
        for (int i = 0; i < 15 + TdnOpticalFX::kFixedFlareCircles; ++i) {
            double cx, cy, r;
            ASSERT_TRUE(fx->flareCircle(i, cx, cy, r));
            // Collinear with the centre (0, 0) and the light: zero cross product.
            EXPECT_NEAR(cx * p.y - cy * p.x, 0.0, 1e-9) << "circle " << i;
            EXPECT_GT(r, 0);
            EXPECT_LE(r, 0.1 * 3.4 + 1e-9);
        }
        double cx, cy, r;
        EXPECT_FALSE(fx->flareCircle(15 + TdnOpticalFX::kFixedFlareCircles, cx, cy, r));
    }
    // A flare brightens pixels on that line away from the light and not
    // those across the image from it.
    set("glowType", short(0));
    light.position = {3, 1.5, -10};
    std::vector<unsigned char> image = render(64, 48, 0);
    fx->reset(view, light, nullptr);
    double onLine = 0, offLine = 0;
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x) {
            const T3Float d = fx->pixelDirection(x, y);
            const double px = d.x / d.z / kTanHalf, py = d.y / d.z / kTanHalf;
            const double cross = std::fabs(px * fx->lightOnImage().y - py * fx->lightOnImage().x);
            const float v = postReadPixel(&image[size_t(y * 64 + x) * 8], kPostShortPixels).g;
            // Circles reach at most 0.34 from the line, times |p| below 0.7.
            if (cross < 0.05) onLine += v;
            else if (cross > 0.5) offLine += v;
        }
    EXPECT_GT(onLine, 0);
    EXPECT_EQ(offLine, 0);
}

TEST_F(TopticalFixture, OcclusionAndIgnoreLightSetTheLightColour) {
    light.color = {1, 0.5, 0.25};
    light.intensity = 2;
    ThalfBlocked blocked;
    fx->reset(view, light, &blocked);
    EXPECT_EQ(blocked.calls, 9);  // the centre and eight around it
    EXPECT_NEAR(fx->glowVisibility(), 4.0 / 9, 1e-6);
    EXPECT_NEAR(fx->lightColour().y, 0.5 * 2 * 4.0 / 9, 1e-6);
    set("ignoreLight", true);
    fx->reset(view, light, nullptr);
    EXPECT_EQ(fx->lightColour().x, 1.0f);
    EXPECT_EQ(fx->lightColour().z, 1.0f);
}

TEST_F(TopticalFixture, ALightOfAnotherShapeIsReportedAndPlacedAtTheOrigin) {
    std::vector<std::string> lines;
    setPostMessageSink([&](const std::string& line) { lines.push_back(line); });
    light.fixedPosition = false;
    light.vertices = {{0, 0, -5}, {1, 0, -5}, {0, 1, -5}};
    view.worldToCamera = Tmatrix::translation(0, 0, -10);  // the origin lies ahead
    std::vector<unsigned char> image = render(32, 24);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "Can not cope with light lamp, has 3 vertices\n");
    EXPECT_NEAR(fx->lightOnImage().x, 0, 1e-9);
    EXPECT_NEAR(fx->lightOnImage().y, 0, 1e-9);
    // A quad is placed at its centre.
    lines.clear();
    light.vertices = {{2, 0, 0}, {4, 0, 0}, {4, 2, 0}, {2, 2, 0}};
    render(32, 24);
    EXPECT_TRUE(lines.empty());
    EXPECT_NEAR(fx->lightOnImage().x, 3 / 10.0 / kTanHalf, 1e-5);
    EXPECT_NEAR(fx->lightOnImage().y, 1 / 10.0 / kTanHalf, 1e-5);
}

TEST_F(TopticalFixture, OpacityReplacesThePixelAndBytePixelsWork) {
    set("glowOpacity", 5.0f);
    set("glowIntensity", 100.0f);
    light.position = {0, 0, -10};
    fx->reset(view, light, nullptr);
    std::vector<unsigned char> bytes(15 * 11 * 4, 90);
    ASSERT_TRUE(fx->addOpticalFXtoArray(light, {0, 0, 15, 11}, 15, 11, bytes.data(), false, kPostBytePixels));
    // At the light the glow amount is 1: alpha 5 covers the pixel, whose
    // colour becomes the glow's, clamped to white.
    const unsigned char* centre = &bytes[(5 * 15 + 7) * 4];
    EXPECT_EQ(centre[0], 255);
    EXPECT_EQ(centre[3], 255);
    // A corner far from the light keeps most of its colour under a faint tail.
    EXPECT_GE(bytes[0], 90);
    EXPECT_LT(bytes[0], 110);
}

TEST(OpticalFXFlare, HexagonsAreInscribedInTheirCirclesWithSixfoldSymmetry) {
    // Counted on a fine grid: a hexagon inscribed in a circle covers
    // 3 sqrt(3) / (2 pi) of it.
    int circle = 0, hexagon = 0;
    double d;
    for (int y = -400; y <= 400; ++y)
        for (int x = -400; x <= 400; ++x) {
            const double dx = x / 400.0, dy = y / 400.0;
            circle += TdnOpticalFX::insideFlareShape(dx, dy, 1, false, d);
            const bool in = TdnOpticalFX::insideFlareShape(dx, dy, 1, true, d);
            hexagon += in;
            const double c = std::cos(1.0471976), s = std::sin(1.0471976);
            if (std::fabs(std::hypot(dx, dy) - 0.93) < 0.02) {
                EXPECT_EQ(TdnOpticalFX::insideFlareShape(dx * c - dy * s, dx * s + dy * c, 1, true, d), in) << dx << " " << dy;
            }
        }
    EXPECT_NEAR(double(circle) / (3.14159265 * 400 * 400), 1.0, 1e-3);
    EXPECT_NEAR(double(hexagon) / circle, 3 * std::sqrt(3.0) / (2 * 3.14159265), 2e-3);
}

TEST(OpticalFXColour, HsvRoundTripsAndKnownHues) {
    for (QV_Rgb c : {QV_Rgb{255, 0, 0}, QV_Rgb{10, 200, 30}, QV_Rgb{90, 90, 90}, QV_Rgb{0, 20, 250}, QV_Rgb{250, 240, 10}}) {
        const QV_Rgb back = TdnOpticalFX::HSVtoRGB(TdnOpticalFX::RGBtoHSV(c));
        EXPECT_NEAR(back.r, c.r, 1e-3);
        EXPECT_NEAR(back.g, c.g, 1e-3);
        EXPECT_NEAR(back.b, c.b, 1e-3);
    }
    EXPECT_NEAR(TdnOpticalFX::RGBtoHSV({0, 255, 0}).h, 120, 1e-4);
    EXPECT_NEAR(TdnOpticalFX::RGBtoHSV({0, 0, 255}).h, 240, 1e-4);
    // Fixed circle sizes: the same index gives the same value every time.
    EXPECT_EQ(TdnOpticalFX::RandomNoise(4), TdnOpticalFX::RandomNoise(4));
    EXPECT_NE(TdnOpticalFX::RandomNoise(4), TdnOpticalFX::RandomNoise(5));
}
