// Nodes that choose: blend and condition compute each input only for the
// samples that need it, and each render reads its own settled values; the
// vector product's zero-length guard; remap curves.
#include <algorithm>
#include <cmath>
#include <string>

#include "framework/host/command_engine.h"
#include "shading/program_listing.h"
#include "utilities/arithmetic.h"
#include "utilities/blend_colors.h"
#include "utilities/color_correct.h"
#include "utilities/condition.h"
#include "utilities/remap.h"
#include "utilities/utility_fixture.h"

namespace {
// Runs of 5 samples whose point.x cycles through 0, 1 and 0.3.
std::vector<TprobeSample> cyclingSamples() {
    auto in = rampSamples(64);
    const float weights[3] = {0.0f, 1.0f, 0.3f};
    for (unsigned i = 0; i < in.size(); ++i) in[i].point.x = weights[(i / 5) % 3];
    return in;
}

// The group's program as the listing command prints it.
std::string listingOf(TutilityNetwork& net) {
    std::string listing, error;
    EXPECT_TRUE(shadingProgramListing(net.graph, "test", net.group->name().asC(), "surfaceColorTransparency", listing, error)) << error;
    return listing;
}

size_t occurrences(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}
}  // namespace

// A blender driven per sample reads each colour for the samples that weigh
// it only. A constant blender takes one loop for the whole batch: at 0 and 1
// the colour it does not weigh is never computed, and between them both
// colours run in the straight-line program, with no segment computed on
// demand. The result has the bits of the scalar pull in every case.
TEST(LazyInputs, BlendReadsEachColourOnlyWhereItsWeightIsNotZero) {
    for (float blender : {-1.0f, 0.0f, 1.0f, 0.3f}) {
        const bool driven = blender < 0;
        SCOPED_TRACE(driven ? "blender per sample" : std::to_string(blender));
        TutilityNetwork net;
        TdependNode* blend = net.make("blendColors");
        TutilityTestSource *first = net.source(), *second = net.source();
        if (driven)
            net.connect(net.source(), TutilityTestSource::saOutAX(), blend, TdnBlendColors::saBlender());
        else
            net.set(blend, TdnBlendColors::saBlender(), blender);
        net.connect(first, TutilityTestSource::saOutB(), blend, TdnBlendColors::saColor1());
        net.connect(second, TutilityTestSource::saOutA(), blend, TdnBlendColors::saColor2());
        net.toColor(blend, TdnBlendColors::saOutput());
        auto in = driven ? cyclingSamples() : rampSamples(64);
        auto weight = [&](unsigned i) { return driven ? in[i].point.x : blender; };
        auto out = net.shade(in);
        int needFirst = 0, needSecond = 0;
        for (unsigned i = 0; i < in.size(); ++i) {
            needFirst += weight(i) != 0.0f;
            needSecond += weight(i) != 1.0f;
        }
        EXPECT_EQ(first->samples, needFirst);
        EXPECT_EQ(second->samples, needSecond);
        if (driven) {
            EXPECT_LT(needFirst + needSecond, 2 * 64) << "the samples must leave some colour unread";
        } else {
            const std::string listing = listingOf(net);
            EXPECT_EQ(listing.find("segments: 1\n") != std::string::npos, needFirst && needSecond) << listing;
        }
        expectSameBits(out, net.pull(in));
        ASSERT_EQ(out.size(), in.size());
        for (unsigned i = 0; i < in.size(); ++i) {
            T3Float want = in[i].normal * weight(i) + in[i].point * (1 - weight(i));
            for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(out[i].color[c], want[c]) << "sample " << i;
        }
    }
}

// Each colour is read once a batch for the samples that take it, which lie
// in several runs: a colour wired whole is computed through the engine's
// segment marks, and its source writes straight into outColor; one wired
// channel by channel goes through the block's own road. A source that a
// second condition reads too (with the opposite test, the two blended) runs
// for other samples as well, so it must keep its own value.
TEST(LazyInputs, ConditionReadsEachColourOnlyForItsRuns) {
    enum Wiring { kWhole, kByChannel, kTwoReaders };
    for (Wiring wiring : {kWhole, kByChannel, kTwoReaders}) {
        SCOPED_TRACE(wiring == kWhole ? "colours wired whole" : wiring == kByChannel ? "colours wired by channel" : "two readers");
        TutilityNetwork net;
        TutilityTestSource *terms = net.source(), *yes = net.source(), *no = net.source();
        auto condition = [&](short operation) {
            TdependNode* cond = net.make("condition");
            net.connect(terms, TutilityTestSource::saOutAX(), cond, TdnCondition::saFirstTerm());
            net.set(cond, TdnCondition::saSecondTerm(), 0.3f);
            net.set(cond, TdnCondition::saOperation(), operation);
            if (wiring == kByChannel) {
                net.connect(yes, TutilityTestSource::saOutBX(), cond, TdnCondition::saColorIfTrueR());
                net.connect(yes, TutilityTestSource::saOutBY(), cond, TdnCondition::saColorIfTrueG());
                net.connect(yes, TutilityTestSource::saOutBZ(), cond, TdnCondition::saColorIfTrueB());
                net.connect(no, TutilityTestSource::saOutAX(), cond, TdnCondition::saColorIfFalseR());
                net.connect(no, TutilityTestSource::saOutAY(), cond, TdnCondition::saColorIfFalseG());
                net.connect(no, TutilityTestSource::saOutAZ(), cond, TdnCondition::saColorIfFalseB());
            } else {
                net.connect(yes, TutilityTestSource::saOutB(), cond, TdnCondition::saColorIfTrue());
                net.connect(no, TutilityTestSource::saOutA(), cond, TdnCondition::saColorIfFalse());
            }
            return cond;
        };
        TdependNode* cond = condition(TdnCondition::kGreaterEqual);
        if (wiring == kTwoReaders) {
            TdependNode* blend = net.make("blendColors");
            net.set(blend, TdnBlendColors::saBlender(), 0.5f);
            net.connect(cond, TdnCondition::saOutColor(), blend, TdnBlendColors::saColor1());
            net.connect(condition(TdnCondition::kLessThan), TdnCondition::saOutColor(), blend, TdnBlendColors::saColor2());
            net.toColor(blend, TdnBlendColors::saOutput());
        } else {
            net.toColor(cond, TdnCondition::saOutColor());
        }
        const std::string listing = listingOf(net);
        EXPECT_EQ(occurrences(listing, "writes into"), wiring == kWhole ? 2u : 0u) << listing;

        auto in = cyclingSamples();
        auto out = net.shade(in);
        int trueCount = 0;
        for (auto& s : in) trueCount += s.point.x >= 0.3f;
        EXPECT_EQ(yes->samples, wiring == kTwoReaders ? 64 : trueCount);
        EXPECT_EQ(no->samples, wiring == kTwoReaders ? 64 : 64 - trueCount);
        for (unsigned i = 0; i < in.size(); ++i) {
            const T3Float chosen = in[i].point.x >= 0.3f ? in[i].normal : in[i].point;
            if (wiring == kTwoReaders) {
                for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(out[i].color[c], 0.5f * (in[i].normal[c] + in[i].point[c])) << i;
            } else {
                EXPECT_TRUE(sameBits(out[i].color, chosen)) << i;
            }
        }
        expectSameBits(out, net.pull(in));
    }
}

// Nested conditions: the inner one's colours run only for the samples both
// tests send them, and the outer one takes the inner one's output in place;
// the inner one's own output holds a reference, so nothing writes into it.
TEST(LazyInputs, NestedConditionsComputeEachColourForItsSamplesOnly) {
    TutilityNetwork net;
    TutilityTestSource *terms = net.source(), *yes = net.source(), *no = net.source(), *other = net.source();
    auto condition = [&](float threshold, const Tplug& ifTrue, const Tplug& ifFalse) {
        TdependNode* cond = net.make("condition");
        net.connect(terms, TutilityTestSource::saOutAX(), cond, TdnCondition::saFirstTerm());
        net.set(cond, TdnCondition::saSecondTerm(), threshold);
        net.set(cond, TdnCondition::saOperation(), short(TdnCondition::kGreaterEqual));
        net.connect(ifTrue.node(), *ifTrue.attribute(), cond, TdnCondition::saColorIfTrue());
        net.connect(ifFalse.node(), *ifFalse.attribute(), cond, TdnCondition::saColorIfFalse());
        return cond;
    };
    TdependNode* inner = condition(0.6f, Tplug(yes, &TutilityTestSource::saOutB()), Tplug(no, &TutilityTestSource::saOutA()));
    TdependNode* outer = condition(0.3f, Tplug(inner, &TdnCondition::saOutColor()), Tplug(other, &TutilityTestSource::saOutA()));
    net.toColor(outer, TdnCondition::saOutColor());
    const std::string listing = listingOf(net);
    EXPECT_EQ(occurrences(listing, "writes into " + std::string(inner->name().asC())), 0u) << listing;
    EXPECT_EQ(occurrences(listing, "writes into " + std::string(outer->name().asC())), 2u) << listing;

    // x cycles through 1, 0.3 and 0: the first sample is the inner true colour's.
    auto in = cyclingSamples();
    std::rotate(in.begin(), in.begin() + 5, in.end());
    auto out = net.shade(in);
    int ones = 0, thirds = 0;
    for (auto& s : in) {
        ones += s.point.x == 1.0f;
        thirds += s.point.x == 0.3f;
    }
    EXPECT_EQ(yes->samples, ones);
    EXPECT_EQ(no->samples, thirds);
    EXPECT_EQ(other->samples, 64 - ones - thirds);
    for (unsigned i = 0; i < in.size(); ++i)
        EXPECT_TRUE(sameBits(out[i].color, in[i].point.x >= 0.6f ? in[i].normal : in[i].point)) << i;
    expectSameBits(out, net.pull(in));
}

// A source read lazily by one branch and for every sample by the straight
// line is computed in the straight line, ahead of everything: here the
// condition comes first and its true branch reads the source before the
// blend's second colour would have it computed.
TEST(LazyInputs, SourceTheStraightLineReadsRunsFirstNotOnDemand) {
    TutilityNetwork net;
    TdependNode* cond = net.make("condition");
    TdependNode* flip = net.make("reverse");
    TdependNode* blend = net.make("blendColors");
    TutilityTestSource *terms = net.source(), *shared = net.source(), *no = net.source();
    net.connect(terms, TutilityTestSource::saOutAX(), cond, TdnCondition::saFirstTerm());
    net.set(cond, TdnCondition::saSecondTerm(), 0.3f);
    net.set(cond, TdnCondition::saOperation(), short(TdnCondition::kGreaterEqual));
    net.connect(shared, TutilityTestSource::saOutA(), flip, TdnReverse::saInput());
    net.connect(flip, TdnReverse::saOutput(), cond, TdnCondition::saColorIfTrue());
    net.connect(no, TutilityTestSource::saOutB(), cond, TdnCondition::saColorIfFalse());
    net.set(blend, TdnBlendColors::saBlender(), 0.5f);
    net.connect(cond, TdnCondition::saOutColor(), blend, TdnBlendColors::saColor1());
    net.connect(shared, TutilityTestSource::saOutA(), blend, TdnBlendColors::saColor2());
    net.toColor(blend, TdnBlendColors::saOutput());

    const std::string listing = listingOf(net);
    // The two branches stay on demand; the shared source does not.
    EXPECT_NE(listing.find("segments: 3\n"), std::string::npos) << listing;

    auto in = cyclingSamples();
    auto out = net.shade(in);
    EXPECT_EQ(shared->samples, 64);
    for (unsigned i = 0; i < in.size(); ++i) {
        const T3Float p = in[i].point, chosen = p.x >= 0.3f ? T3Float(1, 1, 1) - p : in[i].normal;
        for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(out[i].color[c], chosen[c] * 0.5f + p[c] * 0.5f) << "sample " << i;
    }
    expectSameBits(out, net.pull(in));
}

TEST(Condition, ComparisonsAndTheEqualityTolerance) {
    struct {
        short op;
        float a, b;
        bool result;
    } cases[] = {
        {TdnCondition::kEqual, 1.0f, 1.000001f, true},         {TdnCondition::kEqual, 1.0f, 1.0001f, false},
        {TdnCondition::kNotEqual, 1.0f, 1.000001f, false},     {TdnCondition::kNotEqual, 2.0f, 1.0f, true},
        {TdnCondition::kGreaterEqual, 1.0f, 1.000001f, false}, {TdnCondition::kGreaterEqual, 1.000001f, 1.0f, true},
        {TdnCondition::kGreaterThan, 1.0f, 1.0f, false},       {TdnCondition::kLessThan, 1.0f, 1.000001f, true},
        {TdnCondition::kLessEqual, 1.0f, 1.0f, true},          {TdnCondition::kLessEqual, 1.5f, 1.0f, false},
    };
    for (auto& c : cases) {
        EXPECT_EQ(TdnCondition::sTest(c.op, c.a, c.b), c.result) << c.op << " " << c.a << " " << c.b;
        // The same through the graph, with the default colours (0 true, 1 false).
        TdependGraph graph;
        TdependNode* node = graph.createNode("condition");
        node->setAttributeValue(&TdnCondition::saOperation(), &c.op);
        node->setAttributeValue(&TdnCondition::saFirstTerm(), &c.a);
        node->setAttributeValue(&TdnCondition::saSecondTerm(), &c.b);
        T3Float out;
        ASSERT_TRUE(node->getAttributeValue(&TdnCondition::saOutColor(), &out));
        EXPECT_EQ(out, c.result ? T3Float(0, 0, 0) : T3Float(1, 1, 1));
    }
}

TEST(VectorProduct, ProductsNormalisationAndZeroLength) {
    TfltMatrix m = TfltMatrix::scaling(2, 3, 4);
    m.m[3][0] = 10;
    m.m[3][1] = 20;
    m.m[3][2] = 30;
    struct {
        short op;
        bool normalize;
        std::function<T3Float(const T3Float&, const T3Float&)> f;
    } cases[] = {
        {TdnVectorProduct::kNoOperation, true, [](const T3Float& a, const T3Float&) { return a; }},
        {TdnVectorProduct::kDotProduct, false, [](const T3Float& a, const T3Float& b) { float d = dot(a, b); return T3Float(d, d, d); }},
        {TdnVectorProduct::kCrossProduct, false, [](const T3Float& a, const T3Float& b) { return cross(a, b); }},
        {TdnVectorProduct::kCrossProduct, true, [](const T3Float& a, const T3Float& b) { return normalize(cross(a, b)); }},
        {TdnVectorProduct::kVectorMatrix, false, [](const T3Float& a, const T3Float&) { return T3Float(2 * a.x, 3 * a.y, 4 * a.z); }},
        {TdnVectorProduct::kPointMatrix, false,
         [](const T3Float& a, const T3Float&) { return T3Float(2 * a.x + 10, 3 * a.y + 20, 4 * a.z + 30); }},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.op << " " << c.normalize);
        TutilityNetwork net;
        TdependNode* node = net.make("vectorProduct");
        TutilityTestSource* source = net.source();
        net.connect(source, TutilityTestSource::saOutA(), node, TdnVectorProduct::saInput1());
        net.connect(source, TutilityTestSource::saOutB(), node, TdnVectorProduct::saInput2());
        net.set(node, TdnVectorProduct::saOperation(), c.op);
        net.set(node, TdnVectorProduct::saNormalizeOutput(), c.normalize);
        net.set(node, TdnVectorProduct::saMatrix(), m);
        net.toColor(node, TdnVectorProduct::saOutput());
        auto in = rampSamples(64);
        auto out = shadeBothWays(net, in);
        for (unsigned i = 0; i < in.size(); ++i) {
            T3Float want = c.f(in[i].point, in[i].normal);
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(out[i].color[k], want[k], 1e-4f) << i;
        }
    }
    // Parallel inputs, cross product, normalised: (0, 0, 1) and one warning
    // naming the node.
    TutilityNetwork net;
    TdependNode* node = net.make("vectorProduct");
    net.set(node, TdnVectorProduct::saOperation(), short(TdnVectorProduct::kCrossProduct));
    net.set(node, TdnVectorProduct::saNormalizeOutput(), true);
    net.set(node, TdnVectorProduct::saInput1(), T3Float(1, 2, 3));
    net.set(node, TdnVectorProduct::saInput2(), T3Float(2, 4, 6));
    TcommandCapture capture;
    T3Float out;
    ASSERT_TRUE(node->getAttributeValue(&TdnVectorProduct::saOutput(), &out));
    EXPECT_EQ(out, T3Float(0, 0, 1));
    ASSERT_EQ(capture.count(TmessageSeverity::kWarning), 1u);
    EXPECT_EQ(capture.messages()[0].text, node->name().str() + ": found a zero-length output vector. Result is unpredictable.");
}

TEST(RemapCurves, InterpolationsThroughTheirKeys) {
    TcurveKeys keys;
    keys.count = 3;
    keys.keys[0] = {0.5f, T3Float(1, 1, 1), TcurveKey::kLinear};  // out of order on purpose
    keys.keys[1] = {0.0f, T3Float(0, 0, 0), TcurveKey::kLinear};
    keys.keys[2] = {1.0f, T3Float(0, 0, 0), TcurveKey::kLinear};
    keys.sort();
    EXPECT_FLOAT_EQ(keys.evaluate(0.25f, 0), 0.5f);
    EXPECT_FLOAT_EQ(keys.evaluate(0.75f, 0), 0.5f);
    EXPECT_FLOAT_EQ(keys.evaluate(-1, 0), 0.0f);
    keys.keys[0].interp = TcurveKey::kNone;
    EXPECT_FLOAT_EQ(keys.evaluate(0.4f, 0), 0.0f);
    keys.keys[0].interp = TcurveKey::kSmooth;
    EXPECT_FLOAT_EQ(keys.evaluate(0.125f, 0), 0.25f * 0.25f * (3 - 0.5f));
    for (short interp : {TcurveKey::kSpline, TcurveKey::kSmooth, TcurveKey::kLinear}) {
        for (auto& k : keys.keys) k.interp = interp;
        for (unsigned k = 0; k < keys.count; ++k) EXPECT_FLOAT_EQ(keys.evaluate(keys.keys[k].position, 0), keys.keys[k].value.x);
    }
    TcurveKeys empty;
    EXPECT_EQ(empty.evaluate(0.3f, 0), 0.3f);
}

// remapValue, its input driven per sample and mapped from [0, 2] onto
// [0, 1], its output from [0, 1] onto [10, 20]. Colour curve: (0, black)
// linear to (1, (1, 0.5, 0)). Value curve: (0, 0) linear to a key whose
// position and value are children driven per sample, so each sample of the
// batch must read its own key.
TEST(RemapCurves, RemapValueRangesAndKeysDrivenPerSample) {
    TutilityNetwork net;
    TdependNode* node = net.make("remapValue");
    TutilityTestSource* driver = net.source();
    net.connect(driver, TutilityTestSource::saOutAX(), node, TdnRemapValue::saInputValue());
    net.set(node, TdnRemapValue::saInputMax(), 2.0f);
    net.set(node, TdnRemapValue::saOutputMin(), 10.0f);
    net.set(node, TdnRemapValue::saOutputMax(), 20.0f);
    const short linear = TcurveKey::kLinear;
    const float positions[2] = {0, 1}, zero = 0;
    const T3Float colours[2] = {T3Float(0, 0, 0), T3Float(1, 0.5f, 0)};
    for (unsigned e = 0; e < 2; ++e) {
        ASSERT_TRUE(node->setAttributeValue(&TdnRemapValue::saColorPosition(), &positions[e], e));
        ASSERT_TRUE(node->setAttributeValue(&TdnRemapValue::saColorColor(), &colours[e], e));
        ASSERT_TRUE(node->setAttributeValue(&TdnRemapValue::saColorInterp(), &linear, e));
        ASSERT_TRUE(node->setAttributeValue(&TdnRemapValue::saValueInterp(), &linear, e));
    }
    ASSERT_TRUE(node->setAttributeValue(&TdnRemapValue::saValuePosition(), &zero, 0));
    ASSERT_TRUE(node->setAttributeValue(&TdnRemapValue::saValueFloatValue(), &zero, 0));
    net.connect(driver, TutilityTestSource::saOutAY(), node, TdnRemapValue::saValueFloatValue(), 1);
    net.connect(driver, TutilityTestSource::saOutBZ(), node, TdnRemapValue::saValuePosition(), 1);
    net.toColor(node, TdnRemapValue::saOutColor());
    net.toTransparency(node, TdnRemapValue::saOutValue());
    auto in = rampSamples(64);
    for (unsigned i = 0; i < in.size(); ++i) in[i].normal.z = 0.6f + 0.4f * float(i % 5) / 4.0f;
    auto out = shadeBothWays(net, in);
    ASSERT_EQ(out.size(), in.size());
    for (unsigned i = 0; i < in.size(); ++i) {
        // t stays below the driven key's position: on the line from (0, 0).
        const float t = in[i].point.x / 2;
        EXPECT_NEAR(out[i].transparency.x, 10 + 10 * in[i].point.y * t / in[i].normal.z, 1e-5f) << i;
        EXPECT_NEAR(out[i].color.x, 10 + 10 * t, 1e-5f) << i;
        EXPECT_NEAR(out[i].color.y, 10 + 5 * t, 1e-5f) << i;
        EXPECT_NEAR(out[i].color.z, 10.0f, 1e-5f) << i;
    }
}

TEST(SettledInputs, EachRenderShadesWithTheValuesItStartsWith) {
    // Inputs nothing drives are read once per render. One node per case,
    // fed the sample's point, rendered three times with its constant inputs
    // changed in between: each render must follow its own values (a value
    // kept from an earlier render is off by far more than rounding).
    struct Render {
        short operation;
        float scalar;
        T3Float colour;
    };
    struct Case {
        const char* type;
        const Tattribute* input;  // fed the sample's point
        Render renders[3];
        // The expected colour of a sample at point p under render r.
        T3Float (*want)(const Render& r, const T3Float& p);
        void (*wire)(TutilityNetwork& net, TdependNode* node, const Render& r);
    } cases[] = {
        {"multiplyDivide", &TdnMultiplyDivide::saInput1(),
         {{TdnMultiplyDivide::kMultiply, 0, T3Float(0.5f, 2.0f, 3.0f)},
          {TdnMultiplyDivide::kMultiply, 0, T3Float(-1.0f, 0.25f, 1.5f)},
          {TdnMultiplyDivide::kDivide, 0, T3Float(4.0f, 0.5f, 2.0f)}},
         [](const Render& r, const T3Float& p) {
             return r.operation == TdnMultiplyDivide::kMultiply ? T3Float(p.x * r.colour.x, p.y * r.colour.y, p.z * r.colour.z)
                                                                : T3Float(p.x / r.colour.x, p.y / r.colour.y, p.z / r.colour.z);
         },
         [](TutilityNetwork& net, TdependNode* node, const Render& r) {
             net.set(node, TdnMultiplyDivide::saOperation(), r.operation);
             net.set(node, TdnMultiplyDivide::saInput2(), r.colour);
         }},
        {"clamp", &TdnClampColor::saInput(),
         {{0, 0.2f, T3Float(0.6f, 0.6f, 0.6f)}, {0, -1.0f, T3Float(0.3f, 0.9f, 0.4f)}, {0, 0.5f, T3Float(0.1f, 0.1f, 0.1f)}},
         [](const Render& r, const T3Float& p) {
             auto c = [&](float x, float hi) { return std::min(std::max(x, r.scalar), hi); };
             return T3Float(c(p.x, r.colour.x), c(p.y, r.colour.y), c(p.z, r.colour.z));
         },
         [](TutilityNetwork& net, TdependNode* node, const Render& r) {
             net.set(node, TdnClampColor::saMin(), T3Float(r.scalar, r.scalar, r.scalar));
             net.set(node, TdnClampColor::saMax(), r.colour);
         }},
        {"blendColors", &TdnBlendColors::saColor1(),
         {{0, 0.3f, T3Float(0.1f, 0.9f, 0.5f)}, {0, 1.0f, T3Float(0.7f, 0.2f, 0.4f)}, {0, 0.0f, T3Float(0.6f, 0.3f, 0.8f)}},
         [](const Render& r, const T3Float& p) { return p * r.scalar + r.colour * (1.0f - r.scalar); },
         [](TutilityNetwork& net, TdependNode* node, const Render& r) {
             net.set(node, TdnBlendColors::saBlender(), r.scalar);
             net.set(node, TdnBlendColors::saColor2(), r.colour);
         }},
        {"condition", &TdnCondition::saColorIfTrue(),
         {{TdnCondition::kGreaterThan, 0.5f, T3Float(0.1f, 0.2f, 0.3f)},
          {TdnCondition::kLessEqual, 0.2f, T3Float(0.9f, 0.8f, 0.7f)},
          {TdnCondition::kEqual, 0.0f, T3Float(0.4f, 0.4f, 0.4f)}},
         [](const Render& r, const T3Float& p) { return TdnCondition::sTest(r.operation, p.x, r.scalar) ? p : r.colour; },
         [](TutilityNetwork& net, TdependNode* node, const Render& r) {
             net.set(node, TdnCondition::saOperation(), r.operation);
             net.set(node, TdnCondition::saSecondTerm(), r.scalar);
             net.set(node, TdnCondition::saColorIfFalse(), r.colour);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type);
        TutilityNetwork net;
        TdependNode* node = net.make(c.type);
        TutilityTestSource* source = net.source();
        const bool condition = std::string(c.type) == "condition";
        net.connect(source, TutilityTestSource::saOutA(), node, *c.input);
        if (condition) net.connect(source, TutilityTestSource::saOutAX(), node, TdnCondition::saFirstTerm());
        net.toColor(node, *node->attribute(Tstring(condition ? "outColor" : "output")));
        auto samples = rampSamples(64);
        for (unsigned r = 0; r < 3; ++r) {
            c.wire(net, node, c.renders[r]);
            auto engine = net.shade(samples);
            ASSERT_EQ(engine.size(), samples.size());
            unsigned differs = 0;  // samples where this render's values matter
            for (unsigned i = 0; i < samples.size(); ++i) {
                const T3Float want = c.want(c.renders[r], samples[i].point);
                for (int k = 0; k < 3; ++k) EXPECT_FLOAT_EQ(engine[i].color[k], want[k]) << "render " << r << " sample " << i;
                differs += !(want == c.want(c.renders[(r + 2) % 3], samples[i].point));
            }
            EXPECT_GT(differs, 8u) << "render " << r << " must differ from the one before";
        }
    }
}
