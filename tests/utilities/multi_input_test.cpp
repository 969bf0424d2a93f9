// Multis whose elements vary per sample: each sample of a batch must see
// its own element values, whether a whole element or only a child of one
// (a key of a curve) is driven.
#include "utilities/arithmetic.h"
#include "utilities/remap.h"
#include "utilities/utility_fixture.h"

TEST(VaryingMultis, SumsSeeEachSamplesOwnElements) {
    struct {
        short op;
    } cases[] = {{TdnPlusMinusAverage::kSum}, {TdnPlusMinusAverage::kSubtract}, {TdnPlusMinusAverage::kAverage}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.op);
        TutilityNetwork net;
        TdependNode* node = net.make("plusMinusAverage");
        net.set(node, TdnPlusMinusAverage::saOperation(), c.op);
        TutilityTestSource* points = net.source();
        TutilityTestSource* normals = net.source();
        const T3Float fixed(1.0f, 2.0f, 3.0f);
        const float half = 0.5f;
        ASSERT_TRUE(node->setAttributeValue(&TdnPlusMinusAverage::saInput3D(), &fixed, 0));
        ASSERT_EQ(net.graph.connect(Tplug(points, &TutilityTestSource::saOutA()), Tplug(node, &TdnPlusMinusAverage::saInput3D(), 2)),
                  TconnectStatus::kOk);
        ASSERT_EQ(net.graph.connect(Tplug(normals, &TutilityTestSource::saOutB()), Tplug(node, &TdnPlusMinusAverage::saInput3D(), 5)),
                  TconnectStatus::kOk);
        // 1D: a varying element before a constant one.
        ASSERT_EQ(net.graph.connect(Tplug(points, &TutilityTestSource::saOutAX()), Tplug(node, &TdnPlusMinusAverage::saInput1D(), 1)),
                  TconnectStatus::kOk);
        ASSERT_TRUE(node->setAttributeValue(&TdnPlusMinusAverage::saInput1D(), &half, 3));
        net.toColor(node, TdnPlusMinusAverage::saOutput3D());
        net.toTransparency(node, TdnPlusMinusAverage::saOutput1D());
        auto in = rampSamples(64);
        auto out = shadeBothWays(net, in);
        ASSERT_EQ(out.size(), in.size());
        for (unsigned i = 0; i < in.size(); ++i) {
            const T3Float& p = in[i].point;
            const T3Float& n = in[i].normal;
            for (int k = 0; k < 3; ++k) {
                float expected = c.op == TdnPlusMinusAverage::kSubtract ? fixed[k] - p[k] - n[k] : fixed[k] + p[k] + n[k];
                if (c.op == TdnPlusMinusAverage::kAverage) expected /= 3.0f;
                EXPECT_EQ(out[i].color[k], expected) << "sample " << i << " channel " << k;
            }
            float expected1 = c.op == TdnPlusMinusAverage::kSubtract ? p.x - half : p.x + half;
            if (c.op == TdnPlusMinusAverage::kAverage) expected1 /= 2.0f;
            EXPECT_EQ(out[i].transparency.x, expected1) << "sample " << i;
        }
        // Both sources ran once for the batch, over every sample.
        EXPECT_GE(points->samples.load(), 64);
    }
}

TEST(VaryingMultis, CurveKeysWithDrivenChildren) {
    // value curve: (0, 0) and (position from the sample, value from the
    // sample), both linear; the input sits at 0.5.
    TutilityNetwork net;
    TdependNode* node = net.make("remapValue");
    TutilityTestSource* driver = net.source();
    net.set(node, TdnRemapValue::saInputValue(), 0.5f);
    const short linear = TcurveKey::kLinear;
    const float zero = 0.0f;
    for (unsigned e = 0; e < 2; ++e) ASSERT_TRUE(node->setAttributeValue(&TdnRemapValue::saValueInterp(), &linear, e));
    ASSERT_TRUE(node->setAttributeValue(&TdnRemapValue::saValuePosition(), &zero, 0));
    ASSERT_TRUE(node->setAttributeValue(&TdnRemapValue::saValueFloatValue(), &zero, 0));
    ASSERT_EQ(net.graph.connect(Tplug(driver, &TutilityTestSource::saOutAX()), Tplug(node, &TdnRemapValue::saValueFloatValue(), 1)),
              TconnectStatus::kOk);
    ASSERT_EQ(net.graph.connect(Tplug(driver, &TutilityTestSource::saOutBZ()), Tplug(node, &TdnRemapValue::saValuePosition(), 1)),
              TconnectStatus::kOk);
    net.toTransparency(node, TdnRemapValue::saOutValue());
    // The colour output reads the other curve, which nothing drives.
    net.toColor(node, TdnRemapValue::saOutColor());
    auto in = rampSamples(64);
    for (unsigned i = 0; i < in.size(); ++i) in[i].normal.z = 0.6f + 0.4f * float(i % 5) / 4.0f;
    auto out = shadeBothWays(net, in);
    ASSERT_EQ(out.size(), in.size());
    for (unsigned i = 0; i < in.size(); ++i) {
        // Linear from (0, 0) to (position, value), read at 0.5.
        float expected = in[i].point.x * (0.5f / in[i].normal.z);
        EXPECT_NEAR(out[i].transparency.x, expected, 1e-6f) << "sample " << i;
    }
}
