// Running a compiled program over batches: engine results against the host
// graph's scalar pull, computes per batch, lazy runs, frames without heap,
// on the stack or kept by the thread between batches.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "shading/engine_fixture.h"
#include "shading/shading_frames.h"
#include "support/alloc_counter.h"

namespace {
// uv -> scale(value = u + v, factor 3, offset 0.5) -> surface.colorR
// uv.outColor.G -> surface.colorG; surface.colorB keeps its stored value.
// The scale's value may come from a child of the uv's colour instead, which
// it reads in the uv's block as it reads a whole value.
struct ChainNetwork : TengineNetwork {
    TengineTestUv* uv = make<TengineTestUv>("engineTestUv");
    TengineTestScale* scale = make<TengineTestScale>("engineTestScale");
    TengineTestSurface* surface = make<TengineTestSurface>("engineTestSurface");
    explicit ChainNetwork(const Tattribute& valueSource = TengineTestUv::saOutAlpha()) {
        float factor = 3, offset = 0.5f;
        scale->setAttributeValue(&TengineTestScale::saFactor(), &factor);
        scale->setAttributeValue(&TengineTestScale::saOffset(), &offset);
        T3Float tint(0.5f, 2.0f, 1.0f), color(0, 0, 0.75f);
        uv->setAttributeValue(&TengineTestUv::saTint(), &tint);
        surface->setAttributeValue(&TengineTestSurface::saColor(), &color);
        connect(uv, valueSource, scale, TengineTestScale::saValue());
        connect(scale, TengineTestScale::saOutValue(), surface, TengineTestSurface::saColorR());
        connect(uv, TengineTestUv::saOutColorG(), surface, TengineTestSurface::saColorG());
        toSurfaceShader(surface, TengineTestSurface::saOutColor());
    }
    // The same value through the host graph, one sample at a time.
    T3Float scalar(float u, float v) {
        T2Float coord{u, v};
        uv->setAttributeValue(&TengineTestUv::saUvCoord(), &coord);
        T3Float out;
        surface->getAttributeValue(&TengineTestSurface::saOutColor(), &out);
        return out;
    }
};

T2Float coordOf(unsigned i) { return T2Float{float(i) * 0.037f - 0.6f, 1.0f / float(i + 3)}; }

void fill(TtestSamples& batch) {
    for (unsigned i = 0; i < batch.size(); ++i) batch.samples[i]->setUvCoord(coordOf(i));
}

bool sameBits(const T3Float& a, const T3Float& b) { return std::memcmp(&a, &b, sizeof a) == 0; }
}  // namespace

TEST(ShadingOpus, BatchEqualsTheScalarPullBitForBitWhateverTheRecordsLayout) {
    // Inputs fed by a sample item read it in the records when they lie at a
    // fixed spacing, and from a copy otherwise. Records one after another,
    // in reverse order, and scattered give the scalar pull's bits, and the
    // items the network reads stay as they were; so they do when one frame
    // kept by the thread sees batch after batch of another size and layout
    // (records evenly spaced at one spacing, then at twice it, then not
    // evenly spaced), and when the scale reads a child of the uv's colour in
    // the uv's block. The records may follow the program's own sample
    // layout or another that carries more items (as a material's records
    // are to a light's program): two of those, of one size with the uv in
    // different places, follow each other in the same memory, and through
    // one table rebuilt in place, as a recompiled group's may be.
    enum Layout { kInOrder, kSpaced, kReversed, kScattered };
    for (const Tattribute* valueSource : {&TengineTestUv::saOutAlpha(), &TengineTestUv::saOutColorB()}) {
        ChainNetwork net(*valueSource);
        TshadingOpus* opus = net.analyse();
        ASSERT_NE(opus, nullptr);
        const auto& p = opus->program();
        for (unsigned b = 0; b < p.blockCount; ++b) {
            if (p.blocks[b].node == net.scale) {
                EXPECT_EQ(p.blocks[b].info[TengineTestScale::saValue().index()].kind, TdataBlockRendering::kVarPresentOtherDB);
            }
        }
        unsigned* own = net.group->fieldOffsetTable(kSurfaceColorTransparency);
        std::vector<unsigned> before(Tsample::sFieldTableLength(0)), after(Tsample::sFieldTableLength(0));
        TbitField64 withBefore, withAfter;
        for (unsigned item = 0; item < kSampleItemCount; ++item)
            if (own[item]) {
                withBefore.set(item);
                withAfter.set(item);
            }
        withBefore.set(kItemPointObj);             // ahead of the uv
        withAfter.set(kItemTriangleNormalCamera);  // behind it, of the same size
        const unsigned size = Tsample::sBuildFieldOffsets(withBefore, before.data());
        ASSERT_EQ(Tsample::sBuildFieldOffsets(withAfter, after.data()), size);
        ASSERT_NE(before[kItemUvCoord], after[kItemUvCoord]);
        std::vector<unsigned> rebuilt(before.size());
        ASSERT_GE(size, net.group->sampleSize(kSurfaceColorTransparency));
        std::vector<uint64_t> memory(size_t(size / 8) * 64 * 2, 0);
        TshadingFrames frames;
        for (bool keep : {false, true})
            for (unsigned count : {1u, 2u, 3u, 7u, 63u, 64u})
                for (Layout layout : {kInOrder, kSpaced, kReversed, kScattered})
                    for (int which : {0, 1, 2}) {
                        const std::vector<unsigned>* other = which == 0 ? nullptr : which == 1 ? &before : &after;
                        SCOPED_TRACE(testing::Message() << valueSource->longName().asC() << ", layout " << layout << ", " << count
                                                        << " samples, frame kept " << keep << ", sample layout "
                                                        << (!other ? "own" : other == &before ? "more before" : "more after"));
                        if (other) rebuilt = *other;
                        unsigned* fields = other ? rebuilt.data() : own;
                        TshadingFramesScope scope(keep ? &frames : nullptr);
                        const unsigned spacing = fields == own ? net.group->sampleSize(kSurfaceColorTransparency) : size;
                        std::vector<Tsample*> samples(count);
                        for (unsigned i = 0; i < count; ++i) {
                            // Scattered: odd samples in the second half, so three or
                            // more records have no fixed spacing.
                            const unsigned slot = layout == kInOrder    ? i
                                                  : layout == kSpaced   ? 2 * i
                                                  : layout == kReversed ? count - 1 - i
                                                                        : (i % 2 ? count + i : i);
                            samples[i] = Tsample::sCreate(memory.data() + size_t(slot) * (spacing / 8), spacing, fields);
                        }
                        for (unsigned i = 0; i < count; ++i) samples[i]->setUvCoord(coordOf(i));
                        opus->shade(count, samples.data());
                        for (unsigned i = 0; i < count; ++i) {
                            const T2Float c = coordOf(i);
                            const T3Float& got = *samples[i]->outColor();
                            EXPECT_TRUE(sameBits(got, net.scalar(c.x, c.y))) << i << ": " << got.x << " " << got.y << " " << got.z;
                            EXPECT_EQ(std::memcmp(samples[i]->uvCoord(), &c, sizeof c), 0) << i;
                            // And by hand, for what the scalar pull might share with the
                            // batch: red = (u + v or u * v) * 3 + 0.5, green = v * 2.
                            const float value = valueSource == &TengineTestUv::saOutAlpha() ? c.x + c.y : c.x * c.y;
                            EXPECT_FLOAT_EQ(got.x, value * 3.0f + 0.5f) << i;
                            EXPECT_FLOAT_EQ(got.y, c.y * 2.0f) << i;
                            EXPECT_FLOAT_EQ(got.z, 0.75f) << i;
                        }
                    }
        EXPECT_EQ(frames.framesMade(), 1u);
        EXPECT_EQ(frames.framesReused(), 71u);
    }
}

TEST(ShadingOpus, ANeededItemSamplesLackTakeItsDefault) {
    // Every sample but one carries its uv, or none does; one that does not
    // holds stale bytes, which the run must replace with the item's default
    // whichever place in the batch the sample has.
    ChainNetwork net;
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    TtestSamples reference(net.group, 1);
    reference.samples[0]->confirmSet(opus->needs());
    const T2Float byDefault = *reference.samples[0]->uvCoord();
    constexpr int kEvery = -1;
    for (int lacking : {0, 5, 63, kEvery}) {
        SCOPED_TRACE(lacking);
        TtestSamples batch(net.group, 64);
        const T2Float stale{7.0f, -3.0f};
        auto lacks = [&](unsigned i) { return lacking == kEvery || int(i) == lacking; };
        for (unsigned i = 0; i < batch.size(); ++i)
            if (lacks(i))
                std::memcpy(const_cast<T2Float*>(batch.samples[i]->uvCoord()), &stale, sizeof stale);
            else
                batch.samples[i]->setUvCoord(coordOf(i));
        batch.shade(opus);
        for (unsigned i = 0; i < batch.size(); ++i) {
            const T2Float c = lacks(i) ? byDefault : coordOf(i);
            EXPECT_TRUE(sameBits(*batch.samples[i]->outColor(), net.scalar(c.x, c.y))) << i;
        }
    }
}

TEST(ShadingOpus, ARunNestedInItsOwnProgramKeepsBothBatchesApart) {
    // A material whose traced ray hits itself shades a second batch inside
    // its own run: the outer run holds the kept frame, so the inner one
    // takes a frame of its own, and each batch gets its own scalar pull.
    ChainNetwork net;
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    TshadingFrames frames;
    TshadingFramesScope scope(&frames);
    auto inner = [](unsigned i) { return T2Float{0.3f - float(i) * 0.011f, float(i) * 0.02f}; };
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        TtestSamples outer(net.group, kBatchSize), nested(net.group, 9);
        fill(outer);
        for (unsigned i = 0; i < nested.size(); ++i) nested.samples[i]->setUvCoord(inner(i));
        net.scale->reenter = [&] { nested.shade(opus); };
        outer.shade(opus);
        ASSERT_FALSE(net.scale->reenter);
        for (unsigned i = 0; i < outer.size(); ++i) {
            const T2Float c = coordOf(i);
            EXPECT_TRUE(sameBits(*outer.samples[i]->outColor(), net.scalar(c.x, c.y))) << i;
        }
        for (unsigned i = 0; i < nested.size(); ++i) {
            const T2Float c = inner(i);
            EXPECT_TRUE(sameBits(*nested.samples[i]->outColor(), net.scalar(c.x, c.y))) << i;
        }
    }
    EXPECT_EQ(frames.framesMade(), 1u);
}

TEST(ShadingFrames, FramesAreFoundByProgramAndDroppedTogetherWhenFull) {
    TshadingFrames frames(1024);
    int a = 0, b = 0;
    bool fresh = false;
    TshadingFrames::Tframe* first = frames.acquire(&a, 1, 300, fresh);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(fresh);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(first->memory) % 16, 0u);
    unsigned char* memoryOfA = first->memory;
    // Busy: a nested run of the same program gets none.
    EXPECT_EQ(frames.acquire(&a, 1, 300, fresh), nullptr);
    TshadingFrames::release(first);
    TshadingFrames::Tframe* again = frames.acquire(&a, 1, 300, fresh);
    ASSERT_NE(again, nullptr);
    EXPECT_FALSE(fresh);
    EXPECT_EQ(again->memory, memoryOfA);
    TshadingFrames::release(again);
    // Another plan of the same program is another frame.
    TshadingFrames::Tframe* rebuilt = frames.acquire(&a, 2, 300, fresh);
    ASSERT_NE(rebuilt, nullptr);
    EXPECT_TRUE(fresh);
    EXPECT_NE(rebuilt->memory, memoryOfA);
    // Larger than the set: never kept.
    EXPECT_EQ(frames.acquire(&b, 1, 2000, fresh), nullptr);
    // Full while a frame is busy: none, and nothing is dropped.
    EXPECT_EQ(frames.acquire(&b, 1, 600, fresh), nullptr);
    EXPECT_EQ(frames.frameCount(), 2u);
    TshadingFrames::release(rebuilt);
    // Full with none busy: everything goes, and carving starts over.
    TshadingFrames::Tframe* big = frames.acquire(&b, 1, 600, fresh);
    ASSERT_NE(big, nullptr);
    EXPECT_TRUE(fresh);
    EXPECT_EQ(big->memory, memoryOfA);
    EXPECT_EQ(frames.frameCount(), 1u);
    TshadingFrames::release(big);
    frames.acquire(&a, 1, 300, fresh);
    EXPECT_TRUE(fresh);
    EXPECT_EQ(frames.framesMade(), 4u);
    EXPECT_EQ(frames.framesReused(), 1u);
}

TEST(ShadingOpus, EachNodeComputesOncePerBatch) {
    // uv feeds two scales; both feed the surface: uv still runs once.
    TengineNetwork net;
    auto* uv = net.make<TengineTestUv>("engineTestUv");
    auto* a = net.make<TengineTestScale>("engineTestScale");
    auto* b = net.make<TengineTestScale>("engineTestScale");
    auto* surface = net.make<TengineTestSurface>("engineTestSurface");
    net.connect(uv, TengineTestUv::saOutAlpha(), a, TengineTestScale::saValue());
    net.connect(uv, TengineTestUv::saOutAlpha(), b, TengineTestScale::saOffset());
    net.connect(a, TengineTestScale::saOutValue(), surface, TengineTestSurface::saColorR());
    net.connect(b, TengineTestScale::saOutValue(), surface, TengineTestSurface::saColorB());
    net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    TtestSamples batch(net.group, kBatchSize);
    fill(batch);
    // The surface's constant transparency was pulled once through the host at analysis.
    const int surfaceBefore = surface->counters.computes;
    EXPECT_EQ(uv->counters.computes, 0);
    for (int round = 1; round <= 3; ++round) {
        batch.shade(opus);
        EXPECT_EQ(uv->counters.computes, round);
        EXPECT_EQ(uv->counters.samples, round * 64);
        EXPECT_EQ(a->counters.computes, round);
        EXPECT_EQ(surface->counters.computes, surfaceBefore + round);
    }
    for (unsigned i = 0; i < kBatchSize; ++i) {
        T2Float c = coordOf(i);
        EXPECT_FLOAT_EQ(batch.samples[i]->outColor()->x, (c.x + c.y) * 2.0f) << i;
        EXPECT_FLOAT_EQ(batch.samples[i]->outColor()->z, c.x + c.y) << i;  // b: 0 * 2 + alpha
    }
}

namespace {
// weight = u + v from the samples; color1 and color2 from two textures.
struct MixNetwork : TengineNetwork {
    TengineTestUv* weight = make<TengineTestUv>("engineTestUv");
    TengineTestUv* first = make<TengineTestUv>("engineTestUv");
    TengineTestUv* second = make<TengineTestUv>("engineTestUv");
    TengineTestMix* mix = make<TengineTestMix>("engineTestMix");
    explicit MixNetwork(bool lazy) {
        mix->lazy = lazy;
        T3Float red(1, 0, 0);
        second->setAttributeValue(&TengineTestUv::saTint(), &red);
        connect(weight, TengineTestUv::saOutAlpha(), mix, TengineTestMix::saWeight());
        connect(first, TengineTestUv::saOutColor(), mix, TengineTestMix::saColor1());
        connect(second, TengineTestUv::saOutColor(), mix, TengineTestMix::saColor2());
        toSurfaceShader(mix, TengineTestMix::saOutColor());
    }
};
// Runs of 5 samples alternate between the inputs: 7 runs choose color1
// (6 of 5 samples and the last of 4) and 6 runs choose color2.
T2Float alternating(unsigned i) { return T2Float{(i / 5) % 2 == 0 ? 0.75f : 0.125f, 0.125f}; }
int choosingFirst() {
    int n = 0;
    for (unsigned i = 0; i < kBatchSize; ++i) n += alternating(i).x + alternating(i).y >= 0.5f;
    return n;
}
}  // namespace

TEST(ShadingOpus, LazyInputsComputeOnlyForTheirRuns) {
    struct {
        bool lazy;
        int firstSamples, secondSamples;
    } cases[] = {{true, choosingFirst(), 64 - choosingFirst()}, {false, 64, 64}};
    // A kept frame starts each batch with nothing computed, as a new one does.
    TshadingFrames frames;
    TshadingFramesScope scope(&frames);
    for (auto& c : cases) {
        MixNetwork net(c.lazy);
        TshadingOpus* opus = net.analyse();
        ASSERT_NE(opus, nullptr);
        EXPECT_EQ(opus->program().segmentCount > 1, c.lazy);
        TtestSamples batch(net.group, kBatchSize);
        for (unsigned i = 0; i < kBatchSize; ++i) batch.samples[i]->setUvCoord(alternating(i));
        for (int round = 1; round <= 2; ++round) batch.shade(opus);
        EXPECT_EQ(net.first->counters.samples, 2 * c.firstSamples) << c.lazy;
        EXPECT_EQ(net.second->counters.samples, 2 * c.secondSamples) << c.lazy;
        if (c.lazy) {
            EXPECT_EQ(net.first->counters.computes, 14);
        }
        for (unsigned i = 0; i < kBatchSize; ++i) {
            T2Float p = alternating(i);
            bool one = p.x + p.y >= 0.5f;
            const T3Float& out = *batch.samples[i]->outColor();
            EXPECT_FLOAT_EQ(out.x, p.x) << i;
            EXPECT_FLOAT_EQ(out.y, one ? p.y : 0.0f) << i;
            EXPECT_FLOAT_EQ(out.z, one ? p.x * p.y : 0.0f) << i;
        }
    }
}

TEST(ShadingOpus, ACutNodeReadByTwoConsumersComputesEachSampleOnce) {
    // Two mixes read the same texture lazily; the texture's segment keeps
    // track of what it has done in this run.
    TengineNetwork net;
    auto* weight = net.make<TengineTestUv>("engineTestUv");
    auto* shared = net.make<TengineTestUv>("engineTestUv");
    auto* mixA = net.make<TengineTestMix>("engineTestMix");
    auto* mixB = net.make<TengineTestMix>("engineTestMix");
    auto* surface = net.make<TengineTestSurface>("engineTestSurface");
    for (TengineTestMix* m : {mixA, mixB}) {
        net.connect(weight, TengineTestUv::saOutAlpha(), m, TengineTestMix::saWeight());
        net.connect(shared, TengineTestUv::saOutColor(), m, TengineTestMix::saColor1());
    }
    net.connect(mixA, TengineTestMix::saOutColor(), surface, TengineTestSurface::saColor());
    net.connect(mixB, TengineTestMix::saOutColor(), surface, TengineTestSurface::saTransparency());
    net.toSurfaceShader(surface, TengineTestSurface::saOutColor());
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    TtestSamples batch(net.group, kBatchSize);
    for (unsigned i = 0; i < kBatchSize; ++i) batch.samples[i]->setUvCoord(alternating(i));
    batch.shade(opus);
    EXPECT_EQ(shared->counters.samples, choosingFirst());
    ASSERT_TRUE(batch.samples[0]->hasItem(kItemOutTransparency));
    for (unsigned i = 0; i < kBatchSize; ++i) EXPECT_EQ(batch.samples[i]->outColor()->x, batch.samples[i]->outTransparency()->x) << i;
}

TEST(ShadingOpus, ShadeTouchesNoHeap) {
    MixNetwork net(true);
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    TtestSamples batch(net.group, kBatchSize);
    for (unsigned i = 0; i < kBatchSize; ++i) batch.samples[i]->setUvCoord(alternating(i));
    batch.shade(opus);  // first run: on-demand steps
    // Room for one frame and a half: the two programs' kept frames are
    // dropped and carved again in turn.
    TshadingFrames frames(opus->keptFrameSize() * 3 / 2);
    MixNetwork other(true);
    TshadingOpus* second = other.analyse();
    ASSERT_NE(second, nullptr);
    batch.shade(second);
    TallocationCounter counter;
    for (TshadingFrames* kept : {static_cast<TshadingFrames*>(nullptr), &frames}) {
        TshadingFramesScope scope(kept);
        for (int round = 0; round < 4; ++round) {
            opus->shade(unsigned(batch.size()) - round, batch.samples.data());
            batch.shade(second);
        }
    }
    EXPECT_EQ(counter.allocations(), 0u);
    EXPECT_EQ(frames.framesMade(), 8u);
}

TEST(ShadingOpus, ThreadsShareOneProgram) {
    ChainNetwork net;
    TshadingOpus* opus = net.analyse();
    ASSERT_NE(opus, nullptr);
    TtestSamples reference(net.group, kBatchSize);
    fill(reference);
    reference.shade(opus);
    constexpr unsigned kThreads = 4, kRounds = 200;
    std::vector<unsigned> mismatches(kThreads, 0);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            // Half the threads keep their frames, as render threads do.
            TshadingFrames frames;
            TshadingFramesScope scope(t % 2 ? &frames : nullptr);
            TtestSamples batch(net.group, kBatchSize);
            for (unsigned r = 0; r < kRounds; ++r) {
                fill(batch);
                batch.shade(opus);
                for (unsigned i = 0; i < kBatchSize; ++i)
                    mismatches[t] += !sameBits(*batch.samples[i]->outColor(), *reference.samples[i]->outColor());
            }
        });
    for (auto& th : threads) th.join();
    for (unsigned t = 0; t < kThreads; ++t) EXPECT_EQ(mismatches[t], 0u) << t;
    // Two outputs of the texture are read: two computes per batch.
    EXPECT_EQ(net.uv->counters.computes, int(2 * (1 + kThreads * kRounds)));
}
