// Nodes whose outputs stand in for a sample item while they compute: their
// on-demand inputs see the node's value of the item instead of the sample's,
// nested providers stack, and consumers outside see the sample again.
#include <gtest/gtest.h>

#include "shading/engine_fixture.h"
#include "shading/shading_frames.h"
#include "support/alloc_counter.h"
#include "utilities/arithmetic.h"

namespace {
T2Float coordAt(unsigned i) { return T2Float{0.1f + 0.013f * float(i), 0.9f - 0.007f * float(i)}; }
}  // namespace

TEST(ProviderOutputs, InputReadAtShiftedCoordinatesAndSampleUnchangedOutside) {
    TengineNetwork net;
    auto* texture = net.make<TengineTestUv>("engineTestUv");
    auto* offset = net.make<TengineTestOffset>("engineTestOffset");
    auto* surface = net.make<TengineTestSurface>("engineTestSurface");
    const float shift = 0.125f;
    offset->setAttributeValue(&TengineTestOffset::saShift(), &shift);
    net.connect(texture, TengineTestUv::saOutColor(), offset, TengineTestOffset::saColor());
    net.connect(offset, TengineTestOffset::saOutColor(), surface, TengineTestSurface::saColor());
    net.connect(texture, TengineTestUv::saOutColor(), surface, TengineTestSurface::saTransparency());
    net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    EXPECT_EQ(countOps(*opus, kOpInitStack), 1u);
    EXPECT_EQ(countOps(*opus, kOpPushProvider), 1u);
    EXPECT_EQ(countOps(*opus, kOpPopProvider), 1u);
    EXPECT_GE(countOps(*opus, kOpCopyFromStack), 2u);  // the seed and the texture's read

    for (unsigned count : {1u, 13u, 64u}) {
        SCOPED_TRACE(count);
        const int before = texture->counters.samples;
        TtestSamples batch(net.group, count);
        for (unsigned i = 0; i < count; ++i) batch.samples[i]->setUvCoord(coordAt(i));
        batch.shade(opus);
        // Twice inside the provider, once more for the transparency outside it.
        EXPECT_EQ(texture->counters.samples - before, int(3 * count));
        for (unsigned i = 0; i < count; ++i) {
            T2Float p = coordAt(i);
            float u = p.x + shift;
            const T3Float& color = *batch.samples[i]->outColor();
            EXPECT_EQ(color.x, u - p.x) << i;
            EXPECT_EQ(color.y, 0.0f) << i;
            EXPECT_EQ(color.z, u * p.y - p.x * p.y) << i;
            const T3Float& seen = *batch.samples[i]->outTransparency();
            EXPECT_EQ(seen.x, p.x) << i;
            EXPECT_EQ(seen.y, p.y) << i;
            EXPECT_EQ(seen.z, p.x * p.y) << i;
            // The sample's own item is left as the renderer set it.
            EXPECT_EQ(batch.samples[i]->uvCoord()->x, p.x) << i;
        }
    }
}

TEST(ProviderOutputs, NestedProvidersAddTheirShifts) {
    // texture -> inner (shift b) -> outer (shift a) -> surface.
    struct {
        float a, b;
    } cases[] = {{0.25f, 0.0625f}, {0.5f, 0.5f}, {0.0f, 0.375f}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.a);
        TengineNetwork net;
        auto* texture = net.make<TengineTestUv>("engineTestUv");
        auto* inner = net.make<TengineTestOffset>("engineTestOffset");
        auto* outer = net.make<TengineTestOffset>("engineTestOffset");
        auto* surface = net.make<TengineTestSurface>("engineTestSurface");
        inner->setAttributeValue(&TengineTestOffset::saShift(), &c.b);
        outer->setAttributeValue(&TengineTestOffset::saShift(), &c.a);
        net.connect(texture, TengineTestUv::saOutColor(), inner, TengineTestOffset::saColor());
        net.connect(inner, TengineTestOffset::saOutColor(), outer, TengineTestOffset::saColor());
        net.connect(outer, TengineTestOffset::saOutColor(), surface, TengineTestSurface::saColor());
        net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
        TshadingOpus* opus = net.analyse();
        ASSERT_NE(opus, nullptr);
        EXPECT_EQ(countOps(*opus, kOpPushProvider), 2u);
        TtestSamples batch(net.group, kBatchSize);
        for (unsigned i = 0; i < kBatchSize; ++i) batch.samples[i]->setUvCoord(coordAt(i));
        batch.shade(opus);
        EXPECT_EQ(texture->counters.samples, int(4 * kBatchSize));
        EXPECT_EQ(inner->counters.samples, int(2 * kBatchSize));
        for (unsigned i = 0; i < kBatchSize; ++i) {
            float u = coordAt(i).x;
            float ua = u + c.a;
            // inner at x: (x + b) - x; outer: inner(u + a) - inner(u).
            float expected = ((ua + c.b) - ua) - ((u + c.b) - u);
            EXPECT_EQ(batch.samples[i]->outColor()->x, expected) << i;
        }
    }
}

TEST(ProviderOutputs, ProvidersAndVaryingMultisShadeWithoutTheHeap) {
    // A provider around a texture, and a sum whose elements vary per sample:
    // provider stacks and constructed values, made anew in a kept frame for
    // each batch, whatever its size.
    TengineNetwork net;
    auto* texture = net.make<TengineTestUv>("engineTestUv");
    auto* offset = net.make<TengineTestOffset>("engineTestOffset");
    auto* sum = net.make<TdnPlusMinusAverage>("plusMinusAverage");
    auto* surface = net.make<TengineTestSurface>("engineTestSurface");
    net.connect(texture, TengineTestUv::saOutColor(), offset, TengineTestOffset::saColor());
    ASSERT_EQ(net.graph.connect(Tplug(offset, &TengineTestOffset::saOutColor()), Tplug(sum, &TdnPlusMinusAverage::saInput3D(), 1)),
              TconnectStatus::kOk);
    ASSERT_EQ(net.graph.connect(Tplug(texture, &TengineTestUv::saOutColor()), Tplug(sum, &TdnPlusMinusAverage::saInput3D(), 4)),
              TconnectStatus::kOk);
    net.connect(sum, TdnPlusMinusAverage::saOutput3D(), surface, TengineTestSurface::saColor());
    net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    TtestSamples batch(net.group, kBatchSize);
    for (unsigned i = 0; i < kBatchSize; ++i) batch.samples[i]->setUvCoord(coordAt(i));
    batch.shade(opus);
    TshadingFrames frames;
    for (TshadingFrames* kept : {static_cast<TshadingFrames*>(nullptr), &frames})
        for (unsigned count : {64u, 5u, 1u, 64u}) {
            SCOPED_TRACE(testing::Message() << count << " samples, frame kept " << (kept != nullptr));
            TshadingFramesScope scope(kept);
            const T3Float unset(-1, -1, -1);
            for (unsigned i = 0; i < kBatchSize; ++i) batch.samples[i]->setOutColor(unset);
            {
                TallocationCounter counter;
                opus->shade(count, batch.samples.data());
                EXPECT_EQ(counter.allocations(), 0u);
            }
            // sum = (texture(u + s) - texture(u)) + texture(u), with the default shift.
            const float shift = 0.25f;
            for (unsigned i = 0; i < count; ++i) {
                T2Float p = coordAt(i);
                float u = p.x + shift;
                EXPECT_EQ(batch.samples[i]->outColor()->x, (u - p.x) + p.x) << i;
                EXPECT_EQ(batch.samples[i]->outColor()->z, (u * p.y - p.x * p.y) + p.x * p.y) << i;
            }
        }
    EXPECT_EQ(frames.framesReused(), 3u);
}
