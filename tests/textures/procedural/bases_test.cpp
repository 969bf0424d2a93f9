// The solid and environment texture bases, the 3D placement, the UV set
// chooser, and the baking and lookup helpers of the 2D base.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <tuple>

#include "framework/host/dag.h"
#include "support/expect_near.h"
#include "support/set_value.h"
#include "textures/checker.h"
#include "textures/mountain.h"
#include "textures/noise/noise.h"
#include "textures/place_2d.h"
#include "textures/place_3d.h"
#include "textures/procedural/texture_test_nodes.h"
#include "textures/texture_3d.h"
#include "textures/texture_env.h"
#include "textures/uv_chooser.h"

// The blend's law (a product of raised cosines per axis) is checked through
// the engine in solid_textures_test; here its ends, two axes at once and
// its off switch.
TEST(Texture3d, BlendIsOneOnAFaceAndOffForATinyBlend) {
    struct {
        T3Float p;
        float blend, want;
    } cases[] = {
        {{0, 0, 0}, 0.5f, 0},
        {{0, -1, 0}, 0.5f, 1},
        // Two axes half way: 1 - 0.5 * 0.5.
        {{0.75f, -0.75f, 0.2f}, 0.5f, 0.75f},
        // A blend of 0, or below 1e-05, has no effect even on a face.
        {{1, 1, 1}, 0.0f, 0},
        {{1, 0, 0}, 0.5e-5f, 0},
    };
    for (auto& c : cases) EXPECT_NEAR(TdnTx3D::sComputeBlend(c.p, c.blend), c.want, 1e-6f) << c.p.x << "," << c.p.y;
}

TEST(Texture3d, OutsideOnlyWithWrapOff) {
    struct {
        T3Float p;
        bool wrap, outside;
    } cases[] = {{{0.5f, 0.5f, 0.5f}, false, false}, {{1, -1, 1}, false, false}, {{1.01f, 0, 0}, false, true},
                 {{0, -1.5f, 0}, false, true},       {{0, 0, 7}, true, false}};
    for (auto& c : cases) EXPECT_EQ(TdnTx3D::sOutside(c.p, c.wrap), c.outside) << c.p.x << "," << c.p.y << "," << c.p.z;
}

TEST(Texture3d, ColourEffectsThenTheBlendTowardsTheDefault) {
    Ttx3dEffects e;
    e.invert = true;
    e.gain = T3Float(2, 1, 0.5f);
    e.offset = T3Float(0, 0.1f, 0);
    e.alphaGain = 0.5f;
    e.alphaOffset = 0.25f;
    e.defaultColor = T3Float(1, 0, 0);
    T3Float c(0.2f, 0.4f, 0.6f);
    float a = 0.8f;
    TdnTx3D::sColorEffects(e, 0.0f, c, a);
    expectNear(c, T3Float(1.6f, 0.7f, 0.2f), "no blend");
    EXPECT_NEAR(a, 0.35f, 1e-6f);
    T3Float d(0.2f, 0.4f, 0.6f);
    float b = 0.8f;
    TdnTx3D::sColorEffects(e, 0.25f, d, b);
    expectNear(d, T3Float(0.25f + 1.6f * 0.75f, 0.7f * 0.75f, 0.2f * 0.75f), "a quarter towards the default");
    EXPECT_NEAR(b, 0.35f * 0.75f, 1e-6f);
    EXPECT_FLOAT_EQ(TdnTx3D::filteredSize({0.1f, 0.4f, 0.2f}, -2.0f, 0.05f), 0.05f);
    EXPECT_FLOAT_EQ(TdnTx3D::filteredSize({0.1f, 0.4f, 0.2f}, 0.5f, -0.3f), 0.1f);
}

TEST(Texture3d, PlacementOfThePoint) {
    TfltMatrix eyeToWorld = TfltMatrix::translation(0, 0, -5);
    TfltMatrix placement = TfltMatrix::scaling(0.5f, 0.5f, 0.5f);
    T3Float local = TdnTx3D::sPlacePoint({1, 2, 3}, {4, 6, 8}, true, eyeToWorld, placement);
    EXPECT_EQ(local, T3Float(0.5f, 1, 1.5f));
    T3Float world = TdnTx3D::sPlacePoint({1, 2, 3}, {4, 6, 8}, false, eyeToWorld, placement);
    EXPECT_EQ(world, T3Float(2, 3, 1.5f));
}

TEST(Texture3d, RecurrenceWarps) {
    T3Float p(0.31f, 0.47f, 0.12f);
    EXPECT_EQ(TdnTx3D::recurrence(p, 0.0f, 0.5f), 0.0f);
    EXPECT_EQ(TdnTx3D::recurrence(p, 1.0f, 0.5f), Tnoise::noise3(p.x, p.y, p.z)) << "one octave is the noise";
    // The second octave reads at 2p pushed by the first.
    float n0 = Tnoise::noise3(p.x, p.y, p.z);
    float n1 = Tnoise::noise3(2 * p.x + n0, 2 * p.y + n0, 2 * p.z + n0);
    EXPECT_NEAR(TdnTx3D::recurrence(p, 1.5f, 0.6f), n0 + 0.5f * 0.6f * n1, 1e-6f);
    EXPECT_EQ(TdnTx3D::recurrenceN(p, 3), TdnTx3D::recurrence(p, 3.0f, 0.5f));
    for (float x = 0.0f; x < 2; x += 0.13f) {
        float r = TdnTx3D::recurrence({x, 0.2f, 0.7f}, 5.5f, 0.5f);
        EXPECT_LE(std::fabs(r), 2.0f * 1.1f) << "within the sum of the amplitudes";
    }
    T3Float v = TdnTx3D::recurrence3(p, 3, 0.5f);
    EXPECT_EQ(v.x, TdnTx3D::recurrence(p, 3, 0.5f));
    EXPECT_NE(v.x, v.y);
    EXPECT_NE(v.y, v.z);
}

TEST(TextureEnv, RayDirectionInPlacementSpace) {
    // A quarter turn about z: x goes to y.
    TfltMatrix turn;
    turn.m[0][0] = 0;
    turn.m[0][1] = 1;
    turn.m[1][0] = -1;
    turn.m[1][1] = 0;
    expectNear(TdnTxEnv::sPlacedDirection({3, 0, 0}, turn, TfltMatrix::scaling(1, 2, 1)), T3Float(0, 1, 0), "quarter turn");
    T3Float e = TdnTxEnv::sPlacedDirection({1, 1, 1}, TfltMatrix(), TfltMatrix::translation(5, 5, 5));
    EXPECT_NEAR(e.x, 1 / std::sqrt(3.0f), 1e-6f) << "a direction ignores translation";
    EXPECT_EQ(TdnTxEnv::sPlacedDirection({0, 0, 0}, TfltMatrix(), TfltMatrix()), T3Float(0, 0, 1));
}

TEST(Place3d, UnitCubeAndItsInverseMatrix) {
    T3Float edges[12][2];
    ASSERT_EQ(TdnPlace3dTxDag::cubeEdges(edges), 12u);
    std::set<std::tuple<float, float, float, float, float, float>> distinct;
    for (auto& e : edges) {
        T3Float d = e[1] - e[0];
        EXPECT_FLOAT_EQ(std::fabs(d.x) + std::fabs(d.y) + std::fabs(d.z), 2.0f) << "an edge runs along one axis";
        distinct.insert({e[0].x, e[0].y, e[0].z, e[1].x, e[1].y, e[1].z});
    }
    EXPECT_EQ(distinct.size(), 12u);

    TdependGraph graph;
    auto* place = static_cast<TdnPlace3dTxDag*>(graph.createNode("place3dTexture"));
    ASSERT_NE(place, nullptr);
    const T3Float t(1, 2, 3);
    setValue(place, Ttransform::saTranslate(), t);
    setValue(place, Ttransform::saScale(), T3Float(2, 2, 2));
    TfltMatrix m;
    ASSERT_TRUE(place->getAttributeValue(&TdnPlace3dTxDag::saWorldInverseMatrix(), &m));
    expectNear(m.transformPoint(t), T3Float(0, 0, 0), "the translation is the cube's centre");
    EXPECT_NEAR(m.transformPoint({3, 2, 3}).x, 1, 1e-6f) << "two units of world are one of the cube";
    // An edit is seen by the next pull.
    setValue(place, Ttransform::saTranslate(), T3Float(0, 0, 0));
    ASSERT_TRUE(place->getAttributeValue(&TdnPlace3dTxDag::saWorldInverseMatrix(), &m));
    EXPECT_NEAR(m.transformPoint({2, 0, 0}).x, 1, 1e-6f);
}

TEST(UvChooser, CopiesTheShapeSetUnlessAnotherIsConnected) {
    TdependGraph graph;
    auto* chooser = static_cast<TdnUvChooser*>(graph.createNode("uvChooser"));
    ASSERT_NE(chooser, nullptr);
    const T2Float uv{0.2f, 0.3f}, vt{0.1f, 0.9f};
    setValue(chooser, TdnUvChooser::saUvCoord(), uv);
    setValue(chooser, TdnUvChooser::saStCoord(), T2Float{0.7f, 0.8f});
    setValue(chooser, TdnUvChooser::saVertexUvTwo(), vt);
    T2Float out;
    ASSERT_TRUE(chooser->getAttributeValue(&TdnUvChooser::saOutUv(), &out));
    EXPECT_EQ(out, uv);
    ASSERT_TRUE(chooser->getAttributeValue(&TdnUvChooser::saOutVertexUvTwo(), &out));
    EXPECT_EQ(out, vt);
    EXPECT_EQ(chooser->source(), TdnUvChooser::kShapeSet);

    auto* place = static_cast<TdnPlace2dTx*>(graph.createNode("place2dTexture"));
    setValue(place, TdnPlace2dTx::saUvCoord(), T2Float{0.25f, 0.5f});
    setValue(place, TdnPlace2dTx::saOffset(), T2Float{0.5f, 0.0f});
    ASSERT_EQ(graph.connect(Tplug(place, &TdnPlace2dTx::saOutUV()), Tplug(chooser, &TdnUvChooser::saStCoord())), TconnectStatus::kOk);
    chooser->endOfRender(nullptr);
    EXPECT_TRUE(chooser->isShapeConnected());
    ASSERT_TRUE(chooser->getAttributeValue(&TdnUvChooser::saOutUv(), &out));
    EXPECT_FLOAT_EQ(out.x, 0.75f) << "the connected set, through the placement";
    EXPECT_FLOAT_EQ(out.y, 0.5f);
}

TEST(Texture2d, BakingHelpersOfTheBase) {
    TdependGraph graph;
    auto* checker = static_cast<TdnChecker*>(graph.createNode("checker"));
    TdoubleArray u{0.25, 0.75}, v{0.25, 0.25};
    T4dDblVectorArray colours;
    TdoubleArray alphas;
    TplugArray plugs;
    // The base's own answer knows no pattern.
    ASSERT_TRUE(checker->TdnTx2D::mapUVtoClr(plugs, &colours, &alphas, u, v));
    ASSERT_EQ(colours.length(), 2u);
    for (unsigned i = 0; i < 2; ++i) {
        EXPECT_EQ(colours[i].x + colours[i].y + colours[i].z, 0.0);
        EXPECT_EQ(colours[i].w, 1.0);
        EXPECT_EQ(alphas[i], 0.0);
    }
    // The checker's: white then black, opaque then clear.
    ASSERT_TRUE(checker->mapUVtoClr(plugs, &colours, &alphas, u, v));
    EXPECT_EQ(colours[0].x, 1.0);
    EXPECT_EQ(colours[1].x, 0.0);
    EXPECT_EQ(alphas[0], 1.0);
    EXPECT_EQ(colours[1].w, 1.0);

    auto* mountain = static_cast<TdnMountain*>(graph.createNode("mountain"));
    Tplug snow(mountain, &TdnMountain::saSnowColor());
    EXPECT_EQ(TdnTx2D::getInputTxNode(snow), nullptr);
    ASSERT_EQ(graph.connect(Tplug(checker, &TdnTx2D::saOutColor()), snow), TconnectStatus::kOk);
    EXPECT_EQ(TdnTx2D::getInputTxNode(snow), checker);
    setValue(checker, TdnTx2D::saUvCoord(), T2Float{0.75f, 0.25f});
    T3Float seen;
    ASSERT_TRUE(TdnTx2D::getColorAttrValue(mountain, TdnMountain::saSnowColor(), seen));
    EXPECT_EQ(seen, T3Float(0, 0, 0)) << "read through the connection";
    // A driven UV cannot be set for a bake.
    auto* place = graph.createNode("place2dTexture");
    ASSERT_EQ(graph.connect(Tplug(place, &TdnPlace2dTx::saOutUV()), Tplug(checker, &TdnTx2D::saUvCoord())), TconnectStatus::kOk);
    T3Float c;
    float a;
    EXPECT_FALSE(checker->mapUVtoColor(0.1f, 0.1f, c, a));
}
