// The layered texture over a batch and by scalar pull: layers put together
// from the bottom up by their blend modes, a hidden layer left out, a layer
// driven per sample.
#include <cmath>

#include "textures/layered_texture.h"
#include "utilities/utility_fixture.h"

TEST(LayeredTexture, StacksFromTheBottomUpPerSample) {
    TutilityNetwork net;
    TdependNode* stack = net.make("layeredTexture");
    TutilityTestSource* driver = net.source();
    auto layer = [&](unsigned element, TlayerBlendMode mode, float alpha, const T3Float& colour) {
        short m = short(mode);
        EXPECT_TRUE(stack->setAttributeValue(&TdnLayeredTexture::saBlendMode(), &m, element));
        EXPECT_TRUE(stack->setAttributeValue(&TdnLayeredTexture::saAlpha(), &alpha, element));
        EXPECT_TRUE(stack->setAttributeValue(&TdnLayeredTexture::saColor(), &colour, element));
    };
    layer(0, TlayerBlendMode::kDifference, 1.0f, {0, 0, 0});
    layer(1, TlayerBlendMode::kNone, 1.0f, {9, 9, 9});
    bool hidden = false;
    ASSERT_TRUE(stack->setAttributeValue(&TdnLayeredTexture::saIsVisible(), &hidden, 1));
    layer(2, TlayerBlendMode::kAdd, 0.5f, {0.2f, 0.2f, 0.2f});
    layer(3, TlayerBlendMode::kOver, 1.0f, {0.4f, 0.3f, 0.2f});
    net.connect(driver, TutilityTestSource::saOutA(), stack, TdnLayeredTexture::saColor(), 0);
    net.toColor(stack, TdnLayeredTexture::saOutColor());
    auto in = rampSamples(64);
    auto out = shadeBothWays(net, in);
    ASSERT_EQ(out.size(), in.size());
    for (unsigned i = 0; i < in.size(); ++i) {
        // Over the bottom colour, add half of 0.2, then |top - below|.
        const T3Float below{0.5f, 0.4f, 0.3f};
        const T3Float& p = in[i].point;
        const T3Float expected{std::fabs(p.x - below.x), std::fabs(p.y - below.y), std::fabs(p.z - below.z)};
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(out[i].color[c], expected[c], 1e-6f) << "sample " << i << " channel " << c;
    }
}
