// Generated networks of utility nodes shaded two ways: batches run by the
// engine on two threads against the host graph's scalar pull, one sample at
// a time. Both roads do the same arithmetic, so they must agree bit for bit.
#include <random>
#include <thread>

#include "utilities/utility_fixture.h"

namespace {
// One node type: its colour and float inputs, an optional enumeration with
// the values worth drawing, and its output.
struct TnodeKind {
    const char* type;
    std::vector<const char*> colors;
    std::vector<const char*> floats;
    const char* operation;
    std::vector<short> operations;
    const char* output;
    bool multi;  // colours go into elements 0 and 2 of the first colour input
};

const std::vector<TnodeKind>& kinds() {
    static const std::vector<TnodeKind> table = {
        {"multiplyDivide", {"input1", "input2"}, {}, "operation", {0, 1, 2}, "output", false},
        {"blendColors", {"color1", "color2"}, {"blender"}, nullptr, {}, "output", false},
        {"condition", {"colorIfTrue", "colorIfFalse"}, {"firstTerm", "secondTerm"}, "operation", {0, 1, 2, 3, 4, 5}, "outColor", false},
        {"clamp", {"input", "min", "max"}, {}, nullptr, {}, "output", false},
        {"reverse", {"input"}, {}, nullptr, {}, "output", false},
        {"setRange", {"value", "min", "max", "oldMin", "oldMax"}, {}, nullptr, {}, "outValue", false},
        {"luminance", {"value"}, {}, nullptr, {}, "outValue", false},
        {"gammaCorrect", {"value", "gamma"}, {}, nullptr, {}, "outValue", false},
        {"rgbToHsv", {"inRgb"}, {}, nullptr, {}, "outHsv", false},
        {"plusMinusAverage", {"input3D"}, {}, "operation", {1, 2, 3}, "output3D", true},
    };
    return table;
}

struct Built {
    TdependNode* node;
    const Tattribute* output;
};

// An output that can feed a float: the output itself, or one channel of it.
const Tattribute* floatOf(const Tattribute* output, std::mt19937& rng) {
    if (output->size() == 4) return output;
    return output->child(unsigned(rng() % output->childCount()));
}
const Tattribute* colorOf(const Tattribute* output) { return output->size() == 12 ? output : nullptr; }

// Builds a random network into `net`; returns the number of connections made.
unsigned generate(TutilityNetwork& net, std::mt19937& rng) {
    std::uniform_real_distribution<float> value(0.05f, 1.5f);
    std::vector<Built> built;
    std::vector<Built> sources;
    for (int s = 0; s < 2; ++s) {
        TutilityTestSource* source = net.source();
        sources.push_back({source, &TutilityTestSource::saOutA()});
        sources.push_back({source, &TutilityTestSource::saOutB()});
    }
    unsigned connections = 0;
    const unsigned nodeCount = 3 + rng() % 8;
    for (unsigned n = 0; n < nodeCount; ++n) {
        const TnodeKind& kind = kinds()[rng() % kinds().size()];
        TdependNode* node = net.make(kind.type);
        if (kind.operation) {
            short op = kind.operations[rng() % kind.operations.size()];
            node->setAttributeValue(node->attribute(Tstring(kind.operation)), &op);
        }
        // Draws where one input's value comes from: a constant, a sample-driven
        // source, or an earlier node (which may thereby be shared).
        auto feed = [&](const Tattribute* input, int element) {
            unsigned road = rng() % 3;
            if (road == 1 || (road == 2 && built.empty())) {
                const Built& from = sources[rng() % sources.size()];
                const Tattribute* out = input->size() == 4 ? floatOf(from.output, rng) : from.output;
                if (net.graph.connect(Tplug(from.node, out), Tplug(node, input, element)) == TconnectStatus::kOk) ++connections;
                return;
            }
            if (road == 2) {
                const Built& from = built[rng() % built.size()];
                const Tattribute* out = input->size() == 4 ? floatOf(from.output, rng) : colorOf(from.output);
                if (out && net.graph.connect(Tplug(from.node, out), Tplug(node, input, element)) == TconnectStatus::kOk) {
                    ++connections;
                    return;
                }
            }
            if (input->size() == 4) {
                float v = value(rng);
                node->setAttributeValue(input, &v, element < 0 ? 0 : unsigned(element));
            } else {
                T3Float v(value(rng), value(rng), value(rng));
                node->setAttributeValue(input, &v, element < 0 ? 0 : unsigned(element));
            }
        };
        for (const char* name : kind.colors) {
            const Tattribute* input = node->attribute(Tstring(name));
            if (kind.multi) {
                feed(input, 0);
                feed(input, 2);
            } else {
                feed(input, -1);
            }
        }
        for (const char* name : kind.floats) feed(node->attribute(Tstring(name)), -1);
        built.push_back({node, node->attribute(Tstring(kind.output))});
    }
    net.toColor(built.back().node, *built.back().output);
    const Built& other = built[rng() % built.size()];
    net.toTransparency(other.node, *other.output);
    return connections;
}

std::vector<TprobeSample> varied(unsigned count, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> value(0.0f, 1.25f);
    std::vector<TprobeSample> out(count);
    for (auto& s : out) {
        s.point = T3Float(value(rng), value(rng), value(rng));
        s.normal = T3Float(value(rng), value(rng), value(rng));
    }
    return out;
}

// Shades `in` with the group's program, in batches of 64, on the calling thread.
void shadeBatches(TDNshadingEngine* group, const std::vector<TprobeSample>& in, std::vector<TprobeResult>& out) {
    TshadingOpus* opus = group->option(kSurfaceColorTransparency).opus;
    out.clear();
    for (size_t start = 0; start < in.size(); start += kBatchSize) {
        TtestSamples batch = probeSamples(group, in.data() + start, std::min<size_t>(kBatchSize, in.size() - start));
        batch.shade(opus);
        for (Tsample* sample : batch.samples) out.push_back(probeResult(*sample));
    }
}
}  // namespace

TEST(Differential, GeneratedNetworksAgreeWithTheScalarPullOnTwoThreads) {
    unsigned totalConnections = 0;
    for (unsigned seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        TutilityNetwork net;
        std::mt19937 rng(seed);
        totalConnections += generate(net, rng);
        net.session.emplace(net.group);
        ASSERT_NE(net.session->program(), nullptr);
        // Two threads, each with its own samples, batches of 64 and a tail.
        std::vector<TprobeSample> in[2] = {varied(64 * 2 + 9, seed * 2), varied(64 + 33, seed * 2 + 1)};
        std::vector<TprobeResult> engine[2];
        std::thread a(shadeBatches, net.group, std::cref(in[0]), std::ref(engine[0]));
        std::thread b(shadeBatches, net.group, std::cref(in[1]), std::ref(engine[1]));
        a.join();
        b.join();
        for (int t = 0; t < 2; ++t) {
            SCOPED_TRACE(testing::Message() << "thread " << t);
            expectSameBits(engine[t], net.pull(in[t]));
        }
    }
    // The generator did connect nodes, not just set constants.
    EXPECT_GT(totalConnections, 100u);
}

TEST(Differential, FeedbackThroughALazyInputShadesAndTerminates) {
    // blend.output -> multiplyDivide.input1 -> blend.color2: a loop, read
    // only where the blender is below 1.
    TutilityNetwork net;
    TdependNode* blend = net.make("blendColors");
    TdependNode* times = net.make("multiplyDivide");
    TutilityTestSource* source = net.source();
    net.connect(source, TutilityTestSource::saOutAX(), blend, *blend->attribute(Tstring("blender")));
    net.connect(source, TutilityTestSource::saOutB(), blend, *blend->attribute(Tstring("color1")));
    net.connect(blend, *blend->attribute(Tstring("output")), times, *times->attribute(Tstring("input1")));
    net.connect(times, *times->attribute(Tstring("output")), blend, *blend->attribute(Tstring("color2")));
    net.set(times, *times->attribute(Tstring("input2")), T3Float(0.5f, 0.5f, 0.5f));
    net.toColor(blend, *blend->attribute(Tstring("output")));
    auto in = rampSamples(64);
    for (unsigned i = 0; i < in.size(); ++i) in[i].point.x = (i / 4) % 2 ? 1.0f : 0.5f;
    auto out = net.shade(in);
    ASSERT_EQ(out.size(), in.size());
    for (unsigned i = 0; i < in.size(); ++i) {
        const T3Float& c = out[i].color;
        if (in[i].point.x == 1.0f) {
            EXPECT_EQ(c, in[i].normal) << i;  // the loop is not read at all
        } else {
            // The loop reads the blend's output as it stands when color2 is
            // read, which is color1's share o: o + (o * 0.5) * (1 - 0.5).
            for (int k = 0; k < 3; ++k) {
                float o = in[i].normal[k] * 0.5f;
                EXPECT_EQ(c[k], o + (o * 0.5f) * 0.5f) << i << " " << k;
            }
        }
    }
}
