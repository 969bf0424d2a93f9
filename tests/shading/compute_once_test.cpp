// A node that produces several wanted outputs in one compute runs once per
// batch; an output it did not mark as produced still gets its own compute.
#include <gtest/gtest.h>

#include "shading/engine_fixture.h"
#include "shading/shading_frames.h"
#include "support/expect_near.h"

namespace {
struct TengineTestPairVS : TdependNodeVS {
    TcolorAttribute color{"color", "c", TiffTag("EPCO")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("EPOC")};
    TcolorAttribute outTransparency{"outTransparency", "ot", TiffTag("EPOT")};
    TengineTestPairVS() {
        outColor.setFlag(kAttrWritable, false);
        outTransparency.setFlag(kAttrWritable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&color.whole}, {&outColor.whole, &outTransparency.whole});
        return true;
    }
};

// outColor = 2 * color, outTransparency = 1 - color. With `together` both
// come from one compute and both are marked; otherwise each compute writes
// and marks only the output it was asked for.
class TengineTestPair : public TnodeClass<TengineTestPair, TrenderNode, TengineTestPairVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TengineTestPair", 9120, "kEngineTestPair", "engineTestPair", "EPAI", "shader/surface"};
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, outTransparency)
    TengineCounters counters;
    bool together = true;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override {
        const Tattribute* a = plug.attribute()->rootParent();
        if (a != &attrOutColor() && a != &attrOutTransparency()) return TrenderNode::vectorComputePlug(plug, block, first, count);
        TdataHandle in = block.inputValue(attrColor(), first, count);
        const bool color = together || a == &attrOutColor(), transparency = together || a == &attrOutTransparency();
        if (color) {
            TdataHandle out = block.outputValue(attrOutColor(), first, count);
            for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = in.asFloat3(i) * 2.0f;
            block.setClean(attrOutColor());
        }
        if (transparency) {
            TdataHandle out = block.outputValue(attrOutTransparency(), first, count);
            for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = T3Float(1, 1, 1) - in.asFloat3(i);
            block.setClean(attrOutTransparency());
        }
        counters.count(count);
        return true;
    }
};
SN_REGISTER_NODE_CLASS(TengineTestPair)

T2Float coordAt(unsigned i) { return T2Float{float(i) * 0.013f, 0.9f - float(i) * 0.011f}; }

struct PairNetwork : TengineNetwork {
    TengineTestUv* uv = make<TengineTestUv>("engineTestUv");
    TengineTestPair* pair = make<TengineTestPair>("engineTestPair");
    PairNetwork() {
        connect(uv, TengineTestUv::saOutColor(), pair, TengineTestPair::saColor());
        toSurfaceShader(pair, TengineTestPair::saOutColor());
    }
};
}  // namespace

TEST(ComputeOnce, OutputsProducedTogetherComputeOncePerBatch) {
    struct Case {
        bool together;
        int computesPerBatch;
    };
    for (Case c : {Case{true, 1}, Case{false, 2}}) {
        SCOPED_TRACE(c.together ? "together" : "one at a time");
        PairNetwork net;
        net.pair->together = c.together;
        TshadingOpus* opus = net.analyse();
        ASSERT_NE(opus, nullptr);
        // Batch after batch on one program, on the stack and in a frame the
        // thread keeps: a batch whose marks carried into the next would skip
        // its computes there or keep its values.
        TshadingFrames frames;
        for (TshadingFrames* kept : {static_cast<TshadingFrames*>(nullptr), &frames}) {
            TshadingFramesScope scope(kept);
            for (unsigned count : {1u, 37u, 64u}) {
                TtestSamples batch(net.group, count);
                ASSERT_TRUE(batch.samples[0]->hasItem(kItemOutTransparency));
                for (unsigned i = 0; i < count; ++i) batch.samples[i]->setUvCoord(coordAt(i + count));
                const int before = net.pair->counters.computes, samplesBefore = net.pair->counters.samples;
                batch.shade(opus);
                EXPECT_EQ(net.pair->counters.computes - before, c.computesPerBatch) << count;
                EXPECT_EQ(net.pair->counters.samples - samplesBefore, c.computesPerBatch * int(count));
                // Both outputs hold their values whichever compute wrote them.
                for (unsigned i = 0; i < count; ++i) {
                    T2Float p = coordAt(i + count);
                    T3Float in(p.x, p.y, p.x * p.y);
                    expectNear(*batch.samples[i]->outColor(), in * 2.0f, "colour " + std::to_string(i));
                    expectNear(*batch.samples[i]->outTransparency(), T3Float(1, 1, 1) - in, "transparency " + std::to_string(i));
                }
            }
        }
    }
}
