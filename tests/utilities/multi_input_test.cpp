// Multis whose elements vary per sample: each sample of a batch must see
// its own element values, folded in index order over sparse indices.
#include "utilities/arithmetic.h"
#include "utilities/utility_fixture.h"

TEST(VaryingMultis, PlusMinusAverageFoldsEachSamplesOwnElementsInIndexOrder) {
    // 3D: a constant at 0, the point at 2, the normal at 5; 1D: the point's
    // x at 1 before a constant at 3; 2D: constants at 0, 3 and 7.
    const T3Float fixed(1.0f, 2.0f, 3.0f);
    const float half = 0.5f;
    const float pairY[] = {50, 20, 5};
    // The reference fold: the first element, then the others one by one.
    auto fold = [](short op, std::initializer_list<float> values) {
        float r = *values.begin();
        if (op == TdnPlusMinusAverage::kNoOperation) return r;
        for (auto v = values.begin() + 1; v != values.end(); ++v) r = op == TdnPlusMinusAverage::kSubtract ? r - *v : r + *v;
        return op == TdnPlusMinusAverage::kAverage ? r / float(values.size()) : r;
    };
    for (short op : {TdnPlusMinusAverage::kNoOperation, TdnPlusMinusAverage::kSum, TdnPlusMinusAverage::kSubtract,
                     TdnPlusMinusAverage::kAverage}) {
        SCOPED_TRACE(op);
        TutilityNetwork net;
        TdependNode* node = net.make("plusMinusAverage");
        net.set(node, TdnPlusMinusAverage::saOperation(), op);
        TutilityTestSource* points = net.source();
        TutilityTestSource* normals = net.source();
        ASSERT_TRUE(node->setAttributeValue(&TdnPlusMinusAverage::saInput3D(), &fixed, 0));
        net.connect(points, TutilityTestSource::saOutA(), node, TdnPlusMinusAverage::saInput3D(), 2);
        net.connect(normals, TutilityTestSource::saOutB(), node, TdnPlusMinusAverage::saInput3D(), 5);
        net.connect(points, TutilityTestSource::saOutAX(), node, TdnPlusMinusAverage::saInput1D(), 1);
        ASSERT_TRUE(node->setAttributeValue(&TdnPlusMinusAverage::saInput1D(), &half, 3));
        const unsigned pairAt[] = {0, 3, 7};
        for (unsigned e = 0; e < 3; ++e) {
            T2Float w{1.0f, pairY[e]};
            ASSERT_TRUE(node->setAttributeValue(&TdnPlusMinusAverage::saInput2D(), &w, pairAt[e]));
        }
        net.toColor(node, TdnPlusMinusAverage::saOutput3D());
        net.toTransparency(node, TdnPlusMinusAverage::saOutput1D());
        net.connect(node, TdnPlusMinusAverage::saOutput2Dy(), net.probe, TtestPassThroughSurface::saTransparencyG());
        auto in = rampSamples(64);
        auto out = shadeBothWays(net, in);
        ASSERT_EQ(out.size(), in.size());
        for (unsigned i = 0; i < in.size(); ++i) {
            const T3Float& p = in[i].point;
            const T3Float& n = in[i].normal;
            for (int k = 0; k < 3; ++k) EXPECT_EQ(out[i].color[k], fold(op, {fixed[k], p[k], n[k]})) << "sample " << i << " channel " << k;
            EXPECT_EQ(out[i].transparency.x, fold(op, {p.x, half})) << "sample " << i;
            EXPECT_EQ(out[i].transparency.y, fold(op, {pairY[0], pairY[1], pairY[2]})) << "sample " << i;
        }
        EXPECT_GE(points->samples.load(), 64) << "the source ran over every sample";
    }
}
