// Nodes that map one vector to another channel by channel: closed-form
// values, and the engine's batch against the host graph's scalar pull.
#include <cmath>
#include <functional>

#include "framework/host/command_engine.h"
#include "utilities/arithmetic.h"
#include "utilities/color_conversion.h"
#include "utilities/color_correct.h"
#include "framework/render_utilities.h"
#include "utilities/utility_fixture.h"

namespace {
struct UnaryCase {
    const char* type;
    const char* input;   // fed by source.outA (the sample's point)
    const char* output;  // read into probe.color
    std::function<void(TutilityNetwork&, TdependNode*)> setUp;
    std::function<T3Float(const T3Float&)> expected;
};

T3Float each(const T3Float& v, float (*f)(float)) { return {f(v.x), f(v.y), f(v.z)}; }

const Tattribute& attr(TdependNode* node, const char* name) {
    const Tattribute* a = node->attribute(Tstring(name));
    EXPECT_NE(a, nullptr) << name;
    return *a;
}
}  // namespace

TEST(PerChannelNodes, BatchAndScalarPullAgreeWithClosedForms) {
    const UnaryCase cases[] = {
        {"reverse", "input", "output", nullptr, [](const T3Float& p) { return T3Float(1 - p.x, 1 - p.y, 1 - p.z); }},
        {"gammaCorrect", "value", "outValue", [](TutilityNetwork& n, TdependNode* x) { n.set(x, attr(x, "gamma"), T3Float(2, 0.5f, 1)); },
         [](const T3Float& p) { return T3Float(std::sqrt(p.x), p.y * p.y, p.z); }},
        {"contrast", "value", "outValue", nullptr,  // bias 0.5 leaves x = value; contrast 2
         [](const T3Float& p) {
             return each(p, [](float x) { return x >= 0.5f ? 1 - 0.5f * (2 * (1 - x)) * (2 * (1 - x)) : 0.5f * (2 * x) * (2 * x); });
         }},
        {"setRange", "value", "outValue",
         [](TutilityNetwork& n, TdependNode* x) {
             n.set(x, attr(x, "min"), T3Float(10, 0, -1));
             n.set(x, attr(x, "max"), T3Float(20, 1, 1));
             n.set(x, attr(x, "oldMin"), T3Float(0, 0.25f, 0));
             n.set(x, attr(x, "oldMax"), T3Float(1, 0.75f, 1));
         },
         [](const T3Float& p) {
             float y = std::fmin(std::fmax(p.y, 0.25f), 0.75f);
             return T3Float(10 + p.x * 10, (y - 0.25f) * 2, -1 + p.z * 2);
         }},
        // Old bounds that meet in one channel pass the whole value through.
        {"setRange", "value", "outValue",
         [](TutilityNetwork& n, TdependNode* x) {
             n.set(x, attr(x, "max"), T3Float(9, 9, 9));
             n.set(x, attr(x, "oldMax"), T3Float(1, 0, 1));
         },
         [](const T3Float& p) { return p; }},
    };
    for (const UnaryCase& c : cases) {
        SCOPED_TRACE(c.type);
        TutilityNetwork net;
        TdependNode* node = net.make(c.type);
        ASSERT_NE(node, nullptr);
        net.connect(net.source(), TutilityTestSource::saOutA(), node, attr(node, c.input));
        net.toColor(node, attr(node, c.output));
        if (c.setUp) c.setUp(net, node);
        auto in = rampSamples(64);
        auto out = shadeBothWays(net, in);
        ASSERT_EQ(out.size(), in.size());
        for (unsigned i = 0; i < in.size(); ++i) {
            T3Float want = c.expected(in[i].point);
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(out[i].color[k], want[k], 1e-5f) << i;
        }
    }
}

TEST(PerChannelNodes, EdgeValues) {
    // Gamma 0 passes the value; negative values are held at 0 first.
    EXPECT_EQ(TdnGammaCorrect::sGamma(0.3f, 0), 0.3f);
    EXPECT_EQ(TdnGammaCorrect::sGamma(-0.3f, 2), 0.0f);
    // A bias of 0.5 and a contrast of 1 is the identity.
    for (float v : {0.1f, 0.5f, 0.9f}) EXPECT_NEAR(TdnContrast::sContrast(v, 1, 0.5f), v, 1e-6f);
}

TEST(ColorConversions, KnownColoursAndRoundTrip) {
    struct {
        T3Float rgb, hsv;
    } known[] = {{{1, 0, 0}, {0, 1, 1}},     {{0, 1, 0}, {120, 1, 1}},      {{0, 0, 1}, {240, 1, 1}},
                 {{1, 1, 0}, {60, 1, 1}},    {{0.5f, 0.5f, 0.5f}, {0, 0, 0.5f}}, {{1, 0, 1}, {300, 1, 1}},
                 {{0.2f, 0.4f, 0.4f}, {180, 0.5f, 0.4f}}};
    for (auto& k : known) {
        T3Float hsv = TrenderUtilities::RGBtoHSV(k.rgb), rgb = TrenderUtilities::HSVtoRGB(k.hsv);
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(hsv[c], k.hsv[c], 1e-5f);
            EXPECT_NEAR(rgb[c], k.rgb[c], 1e-6f);
        }
    }
    // hsvToRgb after rgbToHsv through the graph gives the colour back.
    TutilityNetwork net;
    TdependNode* toHsv = net.make("rgbToHsv");
    TdependNode* toRgb = net.make("hsvToRgb");
    TdependNode* luminance = net.make("luminance");
    TutilityTestSource* source = net.source();
    net.connect(source, TutilityTestSource::saOutA(), toHsv, TdnRgbToHsv::saInRgb());
    net.connect(toHsv, TdnRgbToHsv::saOutHsv(), toRgb, TdnHsvToRgb::saInHsv());
    net.toColor(toRgb, TdnHsvToRgb::saOutRgb());
    net.connect(source, TutilityTestSource::saOutA(), luminance, TdnLuminance::saValue());
    net.toTransparency(luminance, TdnLuminance::saOutValue());
    auto in = rampSamples(64);
    auto out = shadeBothWays(net, in);
    for (unsigned i = 0; i < in.size(); ++i) {
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(out[i].color[c], in[i].point[c], 1e-5f) << i;
        const T3Float& p = in[i].point;
        EXPECT_NEAR(out[i].transparency.x, 0.3f * p.x + 0.59f * p.y + 0.11f * p.z, 1e-6f) << i;
    }
}

TEST(MultiplyDivide, OperationsAndTheDivideByZeroMessage) {
    struct {
        short op;
        std::function<float(float, float)> f;
    } cases[] = {{TdnMultiplyDivide::kNoOperation, [](float a, float) { return a; }},
                 {TdnMultiplyDivide::kMultiply, [](float a, float b) { return a * b; }},
                 {TdnMultiplyDivide::kDivide, [](float a, float b) { return std::fabs(b) <= 1e-05f ? 100000.0f : a / b; }},
                 {TdnMultiplyDivide::kPower, [](float a, float b) { return std::pow(a, b); }}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.op);
        TutilityNetwork net;
        TdependNode* node = net.make("multiplyDivide");
        TutilityTestSource* source = net.source();
        net.connect(source, TutilityTestSource::saOutA(), node, TdnMultiplyDivide::saInput1());
        net.connect(source, TutilityTestSource::saOutB(), node, TdnMultiplyDivide::saInput2());
        net.set(node, TdnMultiplyDivide::saOperation(), c.op);
        net.toColor(node, TdnMultiplyDivide::saOutput());
        auto in = rampSamples(64);
        in[5].normal = T3Float(0, 1e-6f, -1e-5f);  // three divisors at or under the threshold
        TcommandCapture capture;
        auto engine = net.shade(in);
        const unsigned engineMessages = capture.messages().size();
        expectSameBits(engine, net.pull(in));
        ASSERT_EQ(engine.size(), in.size());
        for (unsigned i = 0; i < in.size(); ++i)
            for (int k = 0; k < 3; ++k) EXPECT_FLOAT_EQ(engine[i].color[k], c.f(in[i].point[k], in[i].normal[k])) << i << " " << k;
        if (c.op == TdnMultiplyDivide::kDivide) {
            EXPECT_EQ(engine[5].color, T3Float(100000.0f, 100000.0f, 100000.0f));
            // Once for the batch's compute, once for each scalar pull that saw a zero.
            unsigned pullsWithZero = 0;
            for (auto& s : in)
                pullsWithZero += std::fabs(s.normal.x) <= 1e-05f || std::fabs(s.normal.y) <= 1e-05f || std::fabs(s.normal.z) <= 1e-05f;
            EXPECT_GE(pullsWithZero, 1u);
            EXPECT_EQ(engineMessages, 1u);
            EXPECT_EQ(capture.messages().size(), 1u + pullsWithZero);
            for (auto& m : capture.messages()) EXPECT_EQ(m.text, TdnMultiplyDivide::kDivideByZeroMessage);
        } else {
            EXPECT_TRUE(capture.messages().empty());
        }
    }
}

TEST(PerChannelNodes, ClampKeepsTheScalarFormsTiesAndNaNs) {
    // The batch loop clamps a triple at once; it must pick the same operand
    // as std::min(std::max(x, lo), hi) where the two differ in bits: signed
    // zeros at a bound, a NaN input, and bounds that cross (the upper wins).
    // The bounds come per sample (normal) as well as constant.
    const float nan = std::nanf("");
    const T3Float lo(0.0f, -0.0f, 0.6f), hi(1.0f, 1.0f, 0.2f);
    const T3Float inputs[] = {{-0.0f, 0.0f, 0.4f}, {nan, nan, nan}, {0.0f, -0.0f, 0.7f}, {2.0f, -3.0f, 0.1f}};
    for (bool boundsPerSample : {false, true}) {
        SCOPED_TRACE(boundsPerSample ? "bounds per sample" : "constant bounds");
        TutilityNetwork net;
        TdependNode* node = net.make("clamp");
        TutilityTestSource* source = net.source();
        net.connect(source, TutilityTestSource::saOutA(), node, TdnClampColor::saInput());
        if (boundsPerSample)
            net.connect(source, TutilityTestSource::saOutB(), node, TdnClampColor::saMin());
        else
            net.set(node, TdnClampColor::saMin(), lo);
        net.set(node, TdnClampColor::saMax(), hi);
        net.toColor(node, TdnClampColor::saOutput());
        std::vector<TprobeSample> in;
        for (unsigned i = 0; i < 16; ++i) in.push_back({inputs[i % 4], lo});
        auto out = shadeBothWays(net, in);
        ASSERT_EQ(out.size(), in.size());
        for (unsigned i = 0; i < in.size(); ++i)
            for (int c = 0; c < 3; ++c) {
                const float want = std::min(std::max(in[i].point[c], lo[c]), hi[c]);
                EXPECT_EQ(std::memcmp(&out[i].color[c], &want, sizeof want), 0) << i << " " << c << ": " << out[i].color[c];
            }
    }
}
