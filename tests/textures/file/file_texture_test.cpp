// The file texture node in a shading program: which road a sample takes,
// the per-pixel reuse of the footprint, frame numbers, and failures that
// keep the render going with one message.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "framework/host/command_engine.h"
#include "support/set_value.h"
#include "support/temp_dir.h"
#include "textures/file_texture.h"
#include "textures/procedural/texture_test_nodes.h"
#include "textures/pyramid/file_pixel_map_cache.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/pyramid.h"
#include "../pyramid/pyramid_test_support.h"

namespace {

// An orthographic camera of 64 by 64 pixels over a unit square at z = -2
// whose UVs run with x and y: one pixel is `texelsPerPixel` texels of a
// 64-texel image.
struct TfileSampleSetup {
    T2Float pixel;
    int depth = 0;
    char objectType = TdnFileTexture::kPolygonSurface;
    int primitive = 0;
    bool bump = false;
    T2Float shift{0, 0};  // added to the pixel's own UV
};

TcameraInfoWrapper orthoCamera(float texelsPerPixel) {
    TcameraInfoWrapper c;
    c.perspective = false;
    c.scale = texelsPerPixel / 64.0f;
    c.centreX = c.centreY = 32;
    return c;
}

T2Float uvOfPixel(const TcameraInfoWrapper& c, T2Float pixel) {
    return {(pixel.x - c.centreX) * c.scale + 0.5f, (pixel.y - c.centreY) * c.scale + 0.5f};
}

struct TfileNetwork {
    TtextureNetwork net;
    TdnFileTexture* file = net.make<TdnFileTexture>("file");
    TcameraInfoWrapper camera = orthoCamera(3);

    TfileNetwork(const std::string& path, short filterType) {
        net.show(file, TdnFileTexture::saOutColor());
        setValue(file, TdnFileTexture::saFileTextureName(), Tstring(path));
        setValue(file, TdnFileTexture::saFilterType(), filterType);
        TdnFileTexture::setSceneDirectory("");
    }
    // Shades the samples in batches of `batch`, in order, as one render.
    std::vector<T3Float> shade(const std::vector<TfileSampleSetup>& setups, unsigned batch = kBatchSize) {
        TdnFileTexture::setCamera(camera);
        TshadingOpus* opus = net.analyse();
        EXPECT_NE(opus, nullptr);
        if (!opus) return {};
        TtestSamples samples(net.group, setups.size());
        for (size_t i = 0; i < setups.size(); ++i) {
            const TfileSampleSetup& setup = setups[i];
            Tsample& s = samples[i];
            const T2Float uv = uvOfPixel(camera, setup.pixel);
            s.setUvCoord(T2Float{uv.x + setup.shift.x, uv.y + setup.shift.y});
            s.setUvFilterSize(T2Float{camera.scale, camera.scale});
            s.setRayDepth(int32_t(setup.depth));
            s.setObjectType(setup.objectType);
            s.setPrimitiveId(int32_t(setup.primitive));
            s.setPixelCenter(setup.pixel);
            s.setInfoBits(uint32_t(setup.bump ? 1 : 0));
            s.setVertexCameraOne(T3Float(-0.5f, -0.5f, -2));
            s.setVertexCameraTwo(T3Float(0.5f, -0.5f, -2));
            s.setVertexCameraThree(T3Float(-0.5f, 0.5f, -2));
            s.setVertexUvOne(T2Float{0, 0});
            s.setVertexUvTwo(T2Float{1, 0});
            s.setVertexUvThree(T2Float{0, 1});
        }
        for (size_t first = 0; first < setups.size(); first += batch)
            opus->shade(unsigned(std::min<size_t>(batch, setups.size() - first)), samples.samples.data() + first);
        std::vector<T3Float> out;
        for (Tsample* s : samples.samples) out.push_back(*s->outColor());
        return out;
    }
};

void writeImage(const std::string& path, const TpixelMap& map) {
    Tstring why;
    ASSERT_TRUE(TfilePixelMapCache::saveIMFPixelMap(Tstring(path), map, why)) << why.str();
}

TpixelMap flatImage(int w, int h, uint8_t value) {
    TpixelMap map(w, h, 3);
    for (size_t i = 0; i < map.byteCount(); ++i) map.pixels()[i] = value;
    return map;
}

bool near(const T3Float& a, const T3Float& b, float tolerance) {
    return std::fabs(a.x - b.x) <= tolerance && std::fabs(a.y - b.y) <= tolerance && std::fabs(a.z - b.z) <= tolerance;
}

}  // namespace

TEST(FileTexture, FrameNumbersReplaceTheLastDigitsKeepingTheirWidth) {
    struct Tcase {
        const char* name;
        int frame;
        const char* expected;
    } cases[] = {
        {"tex.0001.png", 12, "tex.0012.png"},     {"tex.0001.png", 12345, "tex.12345.png"},
        {"seq/shot2/tex.7.exr", 31, "seq/shot2/tex.31.exr"}, {"dir9/tex.png", 4, "dir9/tex.png"},
        {"plate_010", 3, "plate_003"},            {"a1b22.tif", 5, "a1b05.tif"},
    };
    for (const Tcase& c : cases) EXPECT_EQ(TdnFileTexture::sFrameFileName(c.name, c.frame), c.expected) << c.name;
}

// Three frames of different greys: each frame and offset reads its own file.
TEST(FileTexture, FrameSequenceReadsTheFileOfEachFrame) {
    TtestTempDir dir;
    for (int f = 1; f <= 3; ++f) writeImage(dir.file("grey.00" + std::to_string(f) + ".png"), flatImage(8, 8, uint8_t(60 * f)));
    struct Tcase {
        int frame, offset, expectedFile;
    } cases[] = {{1, 0, 1}, {2, 0, 2}, {2, 1, 3}, {3, -2, 1}};
    for (const Tcase& c : cases) {
        TfileNetwork n(dir.file("grey.001.png"), kFilterMipmap);
        setValue(n.file, TdnFileTexture::saUseFrameExtension(), true);
        setValue(n.file, TdnFileTexture::saFrameExtension(), c.frame);
        setValue(n.file, TdnFileTexture::saFrameOffset(), c.offset);
        const std::vector<T3Float> out = n.shade({{{20.5f, 20.5f}}});
        ASSERT_EQ(out.size(), 1u);
        EXPECT_NEAR(out[0].x, 60.0f * c.expectedFile / 255.0f, 1e-4) << c.frame << " + " << c.offset;
    }
}

// The area filter runs only for first-hit polygon samples; everything else
// reads the mip road, exactly the pyramid's getMapColor.
TEST(FileTexture, OnlyFirstHitPolygonSamplesTakeTheFootprintFilter) {
    TtestTempDir dir;
    const std::string path = dir.file("noise.png");
    writeImage(path, noiseImage(64, 64, 3, 21));
    TfileNetwork n(path, kFilterQuadratic);
    struct Tcase {
        const char* what;
        TfileSampleSetup setup;
        bool footprint;
    } cases[] = {
        {"first hit", {{10.5f, 40.5f}}, true},
        {"reflection", {{11.5f, 40.5f}, 1}, false},
        {"not a polygon", {{40.5f, 40.5f}, 0, 0}, false},
        {"bump", {{13.5f, 40.5f}, 0, TdnFileTexture::kPolygonSurface, 0, true}, false},
    };
    std::vector<TfileSampleSetup> setups;
    for (const Tcase& c : cases) setups.push_back(c.setup);
    const std::vector<T3Float> out = n.shade(setups);
    ASSERT_EQ(out.size(), setups.size());
    Tpyramid* pyramid = n.file->pyramid();
    ASSERT_NE(pyramid, nullptr);
    TfileTextureWrapper w;
    w.pyramid = pyramid;
    for (size_t i = 0; i < setups.size(); ++i) {
        const T2Float raw = uvOfPixel(n.camera, setups[i].pixel);
        const T2Float uv{wrapToUnit(raw.x), wrapToUnit(raw.y)};
        T3Float mip;
        float alpha;
        pyramid->getMapColor(w, uv.x, uv.y, mip, false, alpha, n.camera.scale);
        TfootprintQuery q;
        q.uv = uv;
        q.pixelCenter = setups[i].pixel;
        q.triangle.camera[0] = {-0.5f, -0.5f, -2}, q.triangle.camera[1] = {0.5f, -0.5f, -2};
        q.triangle.camera[2] = {-0.5f, 0.5f, -2};
        q.triangle.uv[0] = {0, 0}, q.triangle.uv[1] = {1, 0}, q.triangle.uv[2] = {0, 1};
        T3Float exact;
        ASSERT_EQ(filterFootprint(w, n.file->filterRecord(), n.camera, q, exact, alpha), TfootprintResult::kFiltered);
        // The two roads differ on noise, so each sample shows which it took.
        ASSERT_FALSE(near(mip, exact, 2.0f)) << cases[i].what;
        EXPECT_TRUE(near(out[i], (cases[i].footprint ? exact : mip) * (1.0f / 255), 1e-4f)) << cases[i].what;
    }
}

// Samples of one pixel and primitive share the first one's colour, whatever
// their own UVs; another primitive or pixel computes afresh, and so does the
// next batch: what a thread shaded before must not leak into a batch, since
// a pixel of a tile's margin is shaded in two tiles, on any thread.
TEST(FileTexture, SamplesOfOnePixelReuseTheFirstFootprintWithinTheirBatch) {
    TtestTempDir dir;
    const std::string path = dir.file("photo.png");
    writeImage(path, photoLikeImage(64, 64, 3, 4));
    TfileNetwork n(path, kFilterBox);
    const T2Float away{0.25f, 0.125f};
    const std::vector<T3Float> out = n.shade({{{20.5f, 30.5f}, 0, 1, 7},
                                              {{20.5f, 30.5f}, 0, 1, 7, false, away},
                                              {{20.5f, 30.5f}, 0, 1, 8, false, away},
                                              {{44.5f, 30.5f}, 0, 1, 7},
                                              {{44.5f, 30.5f}, 0, 1, 7, false, away}},
                                             4);
    ASSERT_EQ(out.size(), 5u);
    EXPECT_EQ(out[1], out[0]);
    // Another primitive in the same pixel filters at its own UV.
    EXPECT_FALSE(near(out[2], out[0], 1.0f / 255));
    EXPECT_FALSE(near(out[3], out[0], 1.0f / 255));
    // The next batch starts on the pixel and primitive the last one ended
    // on, at another UV: it filters there, as it would on a fresh thread.
    const std::vector<T3Float> alone = n.shade({{{44.5f, 30.5f}, 0, 1, 7, false, away}});
    ASSERT_EQ(alone.size(), 1u);
    EXPECT_FALSE(near(alone[0], out[3], 1.0f / 255));
    EXPECT_EQ(out[4], alone[0]);
}

// An image wider than 8192 pixels is read reduced, with one message however
// many renders and batches read it; a missing file renders black with one
// message, and so does a node with no file name.
TEST(FileTexture, FailuresKeepTheRenderGoingWithOneMessageEach) {
    TtestTempDir dir;
    const std::string wide = dir.file("wide.png");
    writeImage(wide, flatImage(8193, 2, 128));
    TcommandCapture capture;
    {
        TfileNetwork n(wide, kFilterMipmap);
        for (int render = 0; render < 2; ++render) {
            n.net.session.reset();
            std::vector<TfileSampleSetup> setups(kBatchSize, TfileSampleSetup{{5.5f, 5.5f}});
            const std::vector<T3Float> out = n.shade(setups);
            ASSERT_EQ(out.size(), size_t(kBatchSize));
            EXPECT_NEAR(out.back().x, 128.0f / 255, 1e-3);
        }
        ASSERT_NE(n.file->pyramid(), nullptr);
        EXPECT_LE(n.file->pyramid()->width(), Tpyramid::kMaxSide);
    }
    EXPECT_EQ(capture.countKey("s_TrenderNodeStrings.rFileTextureTooBig"), 1u);

    {
        TfileNetwork missing(dir.file("nowhere.png"), kFilterQuadratic);
        for (int render = 0; render < 2; ++render) {
            missing.net.session.reset();
            const std::vector<T3Float> out = missing.shade({{{5.5f, 5.5f}}, {{6.5f, 5.5f}}});
            ASSERT_EQ(out.size(), 2u);
            EXPECT_TRUE(near(out[1], T3Float(0, 0, 0), 0));
        }
        TfileNetwork unnamed("", kFilterQuadratic);
        unnamed.shade({{{5.5f, 5.5f}}});
    }
    EXPECT_EQ(capture.countKey("s_TrenderNodeStrings.rBadFileTexture"), 1u);
    EXPECT_EQ(capture.countKey("s_TrenderNodeStrings.rMissingFileTexture2"), 1u);
}
