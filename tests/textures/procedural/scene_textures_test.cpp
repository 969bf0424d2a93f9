// Every procedural texture and placement is usable from a scene file by its
// type name, with its attributes (enumerations by label, curve multis) and
// connections, and computes from the loaded values.
#include <gtest/gtest.h>

#include "framework/host/depend_graph.h"
#include "scene/scene_loader.h"
#include "textures/fractal.h"
#include "textures/ocean.h"
#include "textures/place_2d.h"
#include "textures/procedural/texture_test_nodes.h"
#include "textures/water.h"

TEST(TextureScene, LoadsAndComputesFromTheFile) {
    const char* text = R"({
      "nodes": [
        {"type": "place2dTexture", "name": "p", "attributes": {"repeatUV": [2, 2], "uvCoord": [0.3, 0.2]}},
        {"type": "fractal", "name": "f", "attributes": {"levelMax": 1, "amplitude": 0.5}},
        {"type": "noise", "name": "n", "attributes": {"noiseType": "Wave", "numWaves": 7}},
        {"type": "ocean", "name": "o", "attributes": {"colorMode": "FoamOnWaves", "foamEmission": 1.5,
          "waveHeight": [{"waveHeight_Position": 0, "waveHeight_FloatValue": 0.5, "waveHeight_Interp": "Smooth"}]}},
        {"type": "water", "name": "w", "attributes": {"numberOfWaves": 3, "reflectionBox": true}},
        {"type": "bulge", "name": "b", "attributes": {"uWidth": 0.3}},
        {"type": "mountain", "name": "m", "attributes": {"snowColor": [1, 0.9, 0.8]}},
        {"type": "stencil", "name": "s", "attributes": {"keyMasking": true, "colorKey": [0, 1, 0]}},
        {"type": "uvChooser", "name": "c", "attributes": {"uvSets": ["map1"]}},
        {"type": "place3dTexture", "name": "box", "attributes": {"translate": [1, 0, 0]}}
      ],
      "connections": [["p.outUV", "f.uvCoord"], ["f.outColor", "s.image"]]
    })";
    TdependGraph graph;
    TsceneLoader loader;
    ASSERT_TRUE(loader.loadText(text, "textures.json", graph)) << loader.errors()[0].text();
    EXPECT_EQ(loader.nodes().size(), 10u);

    auto* fractal = static_cast<TdnFractal*>(graph.findNode("f"));
    T3Float colour;
    ASSERT_TRUE(fractal->getAttributeValue(&TdnTx2D::saOutColor(), &colour));
    TfractalParams p;
    p.levelMax = 1;
    p.amplitude = 0.5f;
    EXPECT_NEAR(colour.x, TdnFractal::sValue(p, 0.6f, 0.4f, 0), 1e-6f) << "through the placement's repeat";

    auto* ocean = graph.findNode("o");
    ToceanCurve height, none;
    height.add(0, 0.5f, ToceanCurve::kSmooth);
    ToceanWaves w;
    w.build(ToceanParams{}, height, none, none);
    TtexResult r = pullTexture(ocean, {0.4f, 0.1f});
    float h01 = (w.height(0.4f, 0.1f) + 1) * 0.5f;
    EXPECT_NEAR(r.colour.x, TdnOcean::sShown(TdnOcean::kFoamOnWaves, h01, ToceanWaves::foam(h01, 1.5f, 0.51f)), 1e-5f);

    TwaveListKey key;
    key.count = 3;
    TwaveList list;
    TdnWater::sMakeWaveList(key, list);
    TrippleParams ripple;
    ripple.reflectionBox = true;
    r = pullTexture(graph.findNode("w"), {0.2f, 0.7f});
    EXPECT_NEAR(r.colour.x, 0.5f - 0.05f * TdnWater::sWaves(list, 0.2f, 0.7f, 0, 1) - TdnWater::sRipple(ripple, 0.2f, 0.7f), 1e-5f);
}
