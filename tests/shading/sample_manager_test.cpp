// The render side: threads initialise groups, samples gather into batches of
// 64 per (render group, program), shaded batches reach the deep raster.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "shading/engine_fixture.h"
#include "shading/render_thread.h"
#include "shading/sample_manager.h"

namespace {
// Keeps what it receives: per batch, its group and the samples' red and u.
struct TtestRaster : TbaseDeepRaster {
    struct Batch {
        TrenderGroupBase* group;
        std::vector<float> red, u;
    };
    std::vector<Batch> batches;
    void receiveSamples(TSEoption, TrenderGroupBase* group, Tsample** samples, unsigned count) override {
        Batch b{group, {}, {}};
        for (unsigned i = 0; i < count; ++i) {
            b.red.push_back(samples[i]->outColor()->x);
            b.u.push_back(samples[i]->uvCoord()->x);
        }
        batches.push_back(std::move(b));
    }
};

// uv.outColor straight into the surface: red = u.
struct RenderNetwork : TengineNetwork {
    TengineTestUv* uv = make<TengineTestUv>("engineTestUv");
    TengineTestSurface* surface = make<TengineTestSurface>("engineTestSurface");
    RenderNetwork() {
        connect(uv, TengineTestUv::saOutColor(), surface, TengineTestSurface::saColor());
        toSurfaceShader(surface, TengineTestSurface::saOutColor());
    }
    ~RenderNetwork() { TrenderThreadBase::resetShadingGroups(); }
};

void dispatch(TsampleManager& manager, TDNshadingEngine* group, TrenderGroupBase* renderGroup, unsigned count, float base) {
    std::vector<Tsample*> samples(count, nullptr);
    manager.allocateSamples(group, kSurfaceColorTransparency, renderGroup, count, samples.data());
    for (unsigned i = 0; i < count; ++i) {
        ASSERT_NE(samples[i], nullptr);
        samples[i]->setUvCoord(base + float(i), 0.5f);
    }
    manager.dispatchSamples(count, samples.data());
}
}  // namespace

TEST(SampleManager, EachRenderGroupKeepsABatchShadedExactlyAtSixtyFour) {
    RenderNetwork net;
    TtestRaster raster;
    TframeConstants constants;
    constants.setDeepRaster(&raster);
    TrenderThreadBase thread(&constants);
    EXPECT_TRUE(thread.initShadingGroup(net.group));
    EXPECT_FALSE(thread.initShadingGroup(net.group));
    TtestRenderGroup object(3, false), other(4);
    TbitField64 found = thread.startSampling(net.group, kSurfaceColorTransparency, &object, nullptr);
    EXPECT_TRUE(found.test(kItemOutColor));
    TsampleManager& manager = *thread.sampleManager();
    EXPECT_EQ(manager.batchSize(), 64u);

    dispatch(manager, net.group, &object, 63, 0);
    EXPECT_TRUE(raster.batches.empty());
    EXPECT_EQ(manager.pendingSamples(), 63u);
    dispatch(manager, net.group, &object, 1, 63);
    ASSERT_EQ(raster.batches.size(), 1u);
    EXPECT_EQ(manager.pendingSamples(), 0u);
    const auto& b = raster.batches[0];
    EXPECT_EQ(b.group, &object);
    ASSERT_EQ(b.red.size(), 64u);
    for (unsigned i = 0; i < 64; ++i) {
        EXPECT_EQ(b.u[i], float(i));  // dispatch order
        EXPECT_EQ(b.red[i], float(i));
    }
    // Two render groups interleaved: 40 + 40 of each gives one full batch
    // per group, never mixed; the partial ones wait for the flush.
    thread.startSampling(net.group, kSurfaceColorTransparency, &other, nullptr);
    EXPECT_EQ(manager.batchCount(), 2u);
    dispatch(manager, net.group, &object, 40, 100);
    dispatch(manager, net.group, &other, 40, 1000);
    EXPECT_EQ(raster.batches.size(), 1u);
    dispatch(manager, net.group, &object, 40, 140);
    dispatch(manager, net.group, &other, 40, 1040);
    ASSERT_EQ(raster.batches.size(), 3u);
    for (size_t k = 1; k < 3; ++k) {
        const float base = raster.batches[k].group == &object ? 100.0f : 1000.0f;
        for (unsigned i = 0; i < raster.batches[k].u.size(); ++i) EXPECT_EQ(raster.batches[k].u[i], base + float(i));
    }
    EXPECT_EQ(manager.pendingSamples(), 32u);
    manager.flushDispatchedSamples();
    ASSERT_EQ(raster.batches.size(), 5u);
    for (size_t k = 3; k < 5; ++k) {
        ASSERT_EQ(raster.batches[k].red.size(), 16u);
        EXPECT_EQ(raster.batches[k].red[15], raster.batches[k].group == &object ? 179.0f : 1079.0f);
    }
}

TEST(SampleManager, EndSamplingReleasesTheProgramUse) {
    RenderNetwork net;
    TframeConstants constants;
    TrenderThreadBase thread(&constants);
    thread.initShadingGroup(net.group);
    TtestRenderGroup one(1), two(2);
    thread.startSampling(net.group, kSurfaceColorTransparency, &one, nullptr);
    thread.startSampling(net.group, kSurfaceColorTransparency, &two, nullptr);
    EXPECT_EQ(TshadingCatalog::uses(net.group, kSurfaceColorTransparency), 2u);
    thread.endSampling(net.group, kSurfaceColorTransparency, &one);
    EXPECT_EQ(thread.sampleManager()->batchCount(), 1u);
    EXPECT_EQ(TshadingCatalog::uses(net.group, kSurfaceColorTransparency), 1u);
    // A pair without a batch still gives its use back.
    TtestRenderGroup stranger(9);
    thread.endSampling(net.group, kSurfaceColorTransparency, &stranger);
    EXPECT_EQ(TshadingCatalog::find(net.group, kSurfaceColorTransparency), nullptr);
    EXPECT_EQ(net.group->option(kSurfaceColorTransparency).opus, nullptr);
}

TEST(SampleManager, ReuseKeepsRecordsAndAllocateMakesNewOnes) {
    RenderNetwork net;
    TframeConstants constants;
    TrenderThreadBase thread(&constants);
    thread.initShadingGroup(net.group);
    TtestRenderGroup object(1);
    thread.startSampling(net.group, kSurfaceColorTransparency, &object, nullptr);
    TsampleManager& manager = *thread.sampleManager();
    Tsample* samples[4] = {};
    manager.allocateSamples(net.group, kSurfaceColorTransparency, &object, 4, samples);
    Tsample* kept[4];
    std::copy(samples, samples + 4, kept);
    samples[0]->setUvCoord(1, 2);
    manager.reuseSamples(net.group, kSurfaceColorTransparency, &object, 4, samples);
    for (unsigned i = 0; i < 4; ++i) EXPECT_EQ(samples[i], kept[i]);
    EXPECT_FALSE(samples[0]->isSet(kItemUvCoord));
    manager.allocateSamples(net.group, kSurfaceColorTransparency, &object, 4, samples);
    for (unsigned i = 0; i < 4; ++i) EXPECT_EQ(std::count(kept, kept + 4, samples[i]), 0) << i;
    // Released records come back before new ones are made, in the order
    // they were first taken: one after another at a fixed spacing, which
    // the engine reads and writes in place.
    Tsample* released[4];
    std::copy(kept, kept + 4, released);
    manager.releaseSamples(4, kept);
    Tsample* again[4] = {};
    manager.allocateSamples(net.group, kSurfaceColorTransparency, &object, 4, again);
    const auto at = [](const Tsample* s) { return reinterpret_cast<uintptr_t>(s); };
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(again[i], released[i]) << i;
        if (i) {
            EXPECT_EQ(at(again[i]) - at(again[i - 1]), at(again[1]) - at(again[0])) << i;
        }
    }
    EXPECT_GT(at(again[1]), at(again[0]));
}

TEST(SampleManager, ThreadsShadeOneGroupTogether) {
    RenderNetwork net;
    constexpr unsigned kThreads = 4, kSamples = 64 * 25 + 17;
    std::vector<TtestRaster> rasters(kThreads);
    std::vector<TframeConstants> constants(kThreads);
    TrenderThreadBase first(&constants[0]);
    ASSERT_TRUE(first.initShadingGroup(net.group));  // one thread first, as a renderer must
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            constants[t].setDeepRaster(&rasters[t]);
            TrenderThreadBase thread(&constants[t]);
            thread.initShadingGroup(net.group);
            TtestRenderGroup object(t);
            thread.startSampling(net.group, kSurfaceColorTransparency, &object, nullptr);
            for (unsigned done = 0; done < kSamples; done += 50)
                dispatch(*thread.sampleManager(), net.group, &object, std::min(50u, kSamples - done), float(t * 100000 + done));
            thread.sampleManager()->flushDispatchedSamples();
            thread.endSampling(net.group, kSurfaceColorTransparency, &object);
        });
    for (auto& th : threads) th.join();
    for (unsigned t = 0; t < kThreads; ++t) {
        unsigned total = 0, wrong = 0, full = 0;
        for (const auto& b : rasters[t].batches) {
            total += unsigned(b.u.size());
            full += b.u.size() == 64;
            for (unsigned i = 0; i < b.u.size(); ++i) wrong += b.red[i] != b.u[i];
        }
        EXPECT_EQ(total, kSamples) << t;
        EXPECT_EQ(full, kSamples / 64) << t;
        EXPECT_EQ(wrong, 0u) << t;
    }
    // Every thread gave its use of the program back; only the first thread's
    // analysis use would remain, and it never sampled.
    EXPECT_EQ(TshadingCatalog::find(net.group, kSurfaceColorTransparency), nullptr);
}
