// Network analysis: the program and sample layout a small network compiles to.
#include <gtest/gtest.h>

#include <algorithm>

#include "shading/engine_fixture.h"
#include "shading/shading_frames.h"

namespace {
int blockOf(const TshadingOpus& opus, const TdependNode* node) {
    const auto& p = opus.program();
    for (unsigned b = 0; b < p.blockCount; ++b)
        if (p.blocks[b].node == node) return int(b);
    return -1;
}
}  // namespace

TEST(NetworkAnalysis, TheSurfaceOptionRequestsItsFourOutputs) {
    TbitField64 r = TDNshadingEngine::requestedForOption(kSurfaceColorTransparency);
    for (const char* item : {"outColor", "outTransparency", "outGlowColor", "outMatteOpacity"})
        EXPECT_TRUE(r.test(unsigned(Tsample::sItemIndex(item)))) << item;
}

TEST(NetworkAnalysis, UnconnectedGroupGivesNoProgram) {
    TengineNetwork net;
    TbitField64 result(0xFFull);
    EXPECT_FALSE(net.group->analyse(kSurfaceColorTransparency, &result, nullptr, nullptr, nullptr));
    EXPECT_TRUE(result.isEmpty());
    EXPECT_EQ(net.group->option(kSurfaceColorTransparency).opus, nullptr);
    EXPECT_EQ(TshadingCatalog::find(net.group, kSurfaceColorTransparency), nullptr);
}

TEST(NetworkAnalysis, ChainFromSampleItemToOutColor) {
    TengineNetwork net;
    auto* uv = net.make<TengineTestUv>("engineTestUv");
    auto* surface = net.make<TengineTestSurface>("engineTestSurface");
    net.connect(uv, TengineTestUv::saOutColor(), surface, TengineTestSurface::saColor());
    net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
    TbitField64 result;
    TshadingOpus* opus = net.analyse(kSurfaceColorTransparency, &result);
    ASSERT_NE(opus, nullptr);
    // Found: outColor only; transparency is the constant 0 and counts as not found.
    EXPECT_EQ(result.bits(), 1ull << kItemOutColor);
    EXPECT_TRUE(net.group->transparencyConstant());
    // The network reads uvCoord from the sample.
    EXPECT_TRUE(opus->needs().test(kItemUvCoord));
    EXPECT_TRUE(net.group->needs(kSurfaceColorTransparency, kItemUvCoord));

    const auto& p = opus->program();
    EXPECT_EQ(p.blockCount, 2u);
    EXPECT_EQ(p.segmentCount, 1u);
    EXPECT_EQ(countOps(*opus, kOpSetUpBlock), 2u);
    // The colour goes across blocks without a copy (the order of computes and
    // the copies to the sample are checked on the compile command's listing).
    EXPECT_EQ(countOps(*opus, kOpLinkBlock), 1u);
    int surfaceBlock = blockOf(*opus, surface);
    EXPECT_EQ(p.blocks[surfaceBlock].info[TengineTestSurface::saColor().index()].kind, TdataBlockRendering::kVarPresentOtherDB);
    // The texture reads uvCoord in the sample records and the surface writes outColor there.
    EXPECT_EQ(p.blocks[blockOf(*opus, uv)].info[TengineTestUv::saUvCoord().index()].kind, TdataBlockRendering::kVarPresentOtherDB);
    EXPECT_EQ(p.blocks[surfaceBlock].info[TengineTestSurface::saOutColor().index()].kind, TdataBlockRendering::kVarPresentOtherDB);

    // The sample layout holds exactly what is read and written, and the object.
    const unsigned* fields = net.group->fieldOffsetTable(kSurfaceColorTransparency);
    for (unsigned i = 0; i < kSampleItemCount; ++i) {
        bool present = i == kItemUvCoord || i == kItemOutColor || i == kItemObjectId;
        EXPECT_EQ(fields[i] != 0, present) << Tsample::fDataItem[i];
    }
    EXPECT_EQ(net.group->sampleSize(kSurfaceColorTransparency) % 8, 0u);
    EXPECT_GE(net.group->sampleSize(kSurfaceColorTransparency), fields[kSampleItemCount]);
}

TEST(NetworkAnalysis, ConstantInputsAreReadAtAnalysisOnly) {
    TengineNetwork net;
    auto* uv = net.make<TengineTestUv>("engineTestUv");
    auto* surface = net.make<TengineTestSurface>("engineTestSurface");
    T3Float tint(2, 3, 4);
    uv->setAttributeValue(&TengineTestUv::saTint(), &tint);
    net.connect(uv, TengineTestUv::saOutColor(), surface, TengineTestSurface::saColor());
    net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    const auto& p = opus->program();
    const TSEblockLayout& block = p.blocks[blockOf(*opus, uv)];
    const auto& info = block.info[TengineTestUv::saTint().index()];
    EXPECT_EQ(info.kind, TdataBlockRendering::kConstPresent);
    T3Float stored;
    std::memcpy(&stored, p.constants + block.constantOffset + info.offset, sizeof stored);
    EXPECT_EQ(stored.x, 2.0f);
    EXPECT_EQ(stored.z, 4.0f);
    // An edit after analysis does not reach the program.
    T3Float other(9, 9, 9);
    uv->setAttributeValue(&TengineTestUv::saTint(), &other);
    std::memcpy(&stored, p.constants + block.constantOffset + info.offset, sizeof stored);
    EXPECT_EQ(stored.y, 3.0f);
}

TEST(NetworkAnalysis, ConstantSubnetworkIsFoldedIntoTheSample) {
    TengineNetwork net;
    auto* scale = net.make<TengineTestScale>("engineTestScale");
    auto* surface = net.make<TengineTestSurface>("engineTestSurface");
    float v = 0.25f;
    scale->setAttributeValue(&TengineTestScale::saValue(), &v);
    net.connect(scale, TengineTestScale::saOutValue(), surface, TengineTestSurface::saTransparencyG());
    T3Float color(0.1f, 0.2f, 0.3f);
    surface->setAttributeValue(&TengineTestSurface::saColor(), &color);
    net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
    TbitField64 result;
    TshadingOpus* opus = net.analyse(kSurfaceColorTransparency, &result);
    ASSERT_NE(opus, nullptr);
    // Nothing varies: no blocks, no computes, two constants copied out.
    EXPECT_TRUE(result.test(kItemOutColor));
    EXPECT_TRUE(result.test(kItemOutTransparency));
    EXPECT_EQ(opus->program().blockCount, 0u);
    EXPECT_EQ(countOps(*opus, kOpCompute), 0u);
    EXPECT_EQ(countOps(*opus, kOpCopy), 2u);
    TtestSamples batch(net.group, 3);
    batch.shade(opus);
    for (Tsample* s : batch.samples) {
        EXPECT_EQ(s->outColor()->y, 0.2f);
        EXPECT_EQ(s->outTransparency()->y, 0.5f);  // 0.25 * 2 through the host graph
        EXPECT_EQ(s->outTransparency()->x, 0.0f);
    }
}

TEST(NetworkAnalysis, FeedbackLoopIsCutAndTerminates) {
    TengineNetwork net;
    auto* a = net.make<TengineTestScale>("engineTestScale");
    auto* b = net.make<TengineTestScale>("engineTestScale");
    auto* uv = net.make<TengineTestUv>("engineTestUv");
    auto* surface = net.make<TengineTestSurface>("engineTestSurface");
    net.connect(uv, TengineTestUv::saOutAlpha(), a, TengineTestScale::saOffset());
    net.connect(b, TengineTestScale::saOutValue(), a, TengineTestScale::saValue());
    net.connect(a, TengineTestScale::saOutValue(), b, TengineTestScale::saValue());
    net.connect(a, TengineTestScale::saOutValue(), surface, TengineTestSurface::saColorR());
    net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    EXPECT_GE(opus->program().segmentCount, 2u);  // the loop lives in a segment of its own
    EXPECT_TRUE(opus->program().zeroVariables);
    TtestSamples batch(net.group, 5);
    for (unsigned i = 0; i < batch.size(); ++i) batch.samples[i]->setUvCoord(float(i), 1.0f);
    // On the stack, then twice in a frame the thread keeps: each run starts
    // the loop from zero, not from what the last run left.
    TshadingFrames frames;
    for (int run = 0; run < 3; ++run) {
        SCOPED_TRACE(run);
        TshadingFramesScope scope(run ? &frames : nullptr);
        batch.shade(opus);
        // One trip round the loop per sample, from zero: b = 0, a = 0 * 2 + (u + 1).
        for (unsigned i = 0; i < batch.size(); ++i) EXPECT_EQ(batch.samples[i]->outColor()->x, float(i) + 1.0f) << i;
    }
    EXPECT_EQ(frames.framesReused(), 1u);
    EXPECT_EQ(a->counters.samples, 15);
    EXPECT_EQ(b->counters.samples, 15);
}

TEST(NetworkAnalysis, SecondAnalysisFindsTheProgramAndCountsAUse) {
    TengineNetwork net;
    auto* surface = net.make<TengineTestSurface>("engineTestSurface");
    auto* uv = net.make<TengineTestUv>("engineTestUv");
    net.connect(uv, TengineTestUv::saOutColor(), surface, TengineTestSurface::saColor());
    net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
    TshadingOpus* first = net.analyse();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(TshadingCatalog::uses(net.group, kSurfaceColorTransparency), 1u);
    EXPECT_EQ(net.analyse(), first);
    EXPECT_EQ(TshadingCatalog::uses(net.group, kSurfaceColorTransparency), 2u);
    EXPECT_EQ(TshadingCatalog::find(net.group, kSurfaceColorTransparency), first);
    // Releasing both uses removes the entry and clears the group's slot.
    TshadingCatalog::deleteOpus(net.group, kSurfaceColorTransparency, false);
    EXPECT_EQ(net.group->option(kSurfaceColorTransparency).opus, first);
    TshadingCatalog::deleteOpus(net.group, kSurfaceColorTransparency, false);
    EXPECT_EQ(TshadingCatalog::find(net.group, kSurfaceColorTransparency), nullptr);
    EXPECT_EQ(net.group->option(kSurfaceColorTransparency).opus, nullptr);
}
