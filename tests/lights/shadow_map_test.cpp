// Shadow depth maps: the depth codec on hand-made streams and real buffers,
// projection into maps, the percentage-closer filter against closed forms,
// depth files with their warnings, and the file names.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "framework/host/command_engine.h"
#include "lights/depth_map_file.h"
#include "lights/render_light.h"
#include "lights/shadow_map.h"
#include "memory/render_cache.h"
#include "support/temp_dir.h"

namespace {
using Bytes = std::vector<unsigned char>;

void appendFloat(Bytes& b, float v) {
    unsigned char c[4];
    std::memcpy(c, &v, 4);  // the test machine is little-endian, as the stream is
    b.insert(b.end(), c, c + 4);
}

std::vector<float> decode(const Bytes& stream, int count) {
    std::vector<float> out(size_t(count), -99.0f);
    TuseShadowMap::floatArrayUncompressConvertFromDiff(stream.data(), count, out.data());
    return out;
}

bool bitsEqual(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

std::vector<float> roundTrip(const std::vector<float>& values, int* bytes = nullptr) {
    Bytes stream(size_t(TuseShadowMap::sMaxCompressedSize(int(values.size()))));
    int n = TuseShadowMap::floatArrayCompress(values.data(), int(values.size()), stream.data());
    if (bytes) *bytes = n;
    stream.resize(size_t(n));
    std::vector<float> out(values.size());
    int read = TuseShadowMap::floatArrayUncompressConvertFromDiff(stream.data(), int(values.size()), out.data());
    EXPECT_EQ(read, n) << "the decoder reads exactly what the encoder wrote";
    return out;
}

// Distances from a point light at the origin, looking down -Z with a
// 90-degree map, to a unit sphere at depth 4 with nothing behind it: an
// independent ray cast of a real scene.
std::vector<float> sphereAndWallDistances(int res) {
    std::vector<float> d(size_t(res) * size_t(res));
    for (int row = 0; row < res; ++row)
        for (int col = 0; col < res; ++col) {
            double x = 2.0 * (col + 0.5) / res - 1, y = 1 - 2.0 * (row + 0.5) / res;
            double len = std::sqrt(x * x + y * y + 1);
            double dz = -1 / len;
            // |t dir - c|^2 = 1 with c = (0, 0, -4).
            double b = dz * -4.0, disc = b * b - (16 - 1);
            d[size_t(row) * res + col] = disc >= 0 ? float(b - std::sqrt(disc)) : TuseShadowMap::kNoSurface;
        }
    return d;
}

TshadowMapView orthoView(int res, float halfWidth) {
    // Looking down world -Z from z = 0, rows along +Y.
    return TshadowMapView::sOrthographic({0, 0, 0}, {0, 0, -1}, {0, 1, 0}, halfWidth, res, 0, 100);
}
}  // namespace

// ---------------------------------------------------------------- codec

TEST(DepthCodec, DecodesHandMadeStreams) {
    // Runs of a header byte and its floats: below 128 a count of literal
    // values, from 128 up 128 + n repeats of one step.
    auto stream = [](std::initializer_list<std::pair<unsigned char, std::vector<float>>> runs) {
        Bytes b;
        for (const auto& [header, values] : runs) {
            b.push_back(header);
            for (float v : values) appendFloat(b, v);
        }
        return b;
    };
    const struct {
        const char* name;
        Bytes stream;
        std::vector<float> expected;
    } cases[] = {
        {"a literal run of absolute values", stream({{3, {1.5f, -2.0f, 7.25f}}}), {1.5f, -2.0f, 7.25f}},
        {"a repeat run steps from 0", stream({{128 + 4, {0.5f}}}), {0.5f, 1.0f, 1.5f, 2.0f}},
        {"d of 1e-8 repeats the last literal unchanged", stream({{2, {3.0f, 9.0f}}, {128 + 3, {1e-8f}}}),
         {3.0f, 9.0f, 9.0f, 9.0f, 9.0f}},
        {"repeat from the last literal, then a literal", stream({{1, {2.0f}}, {128 + 2, {-0.25f}}, {1, {40.0f}}}),
         {2.0f, 1.75f, 1.5f, 40.0f}},
        {"the decoder stops at the count", stream({{128 + 5, {1.0f}}}), {1.0f, 2.0f, 3.0f}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(decode(c.stream, int(c.expected.size())), c.expected);
    }
}

TEST(DepthCodec, DifferencesAndEmptyOrNullInputs) {
    std::vector<float> v{1, 3, 6, 6, 2};
    TuseShadowMap::floatArrayConvertToDiff(v.data(), int(v.size()));
    EXPECT_EQ(v, (std::vector<float>{1, 2, 3, 0, -4})) << "the first value, then differences";
    TuseShadowMap::floatArrayConvertToDiff(nullptr, 3);  // no crash

    float out[4] = {7, 7, 7, 7};
    EXPECT_EQ(TuseShadowMap::floatArrayUncompressConvertFromDiff(nullptr, 4, out), 0);
    const unsigned char stream[5] = {1, 0, 0, 0x80, 0x3F};
    EXPECT_EQ(TuseShadowMap::floatArrayUncompressConvertFromDiff(stream, 0, out), 0);
    for (float v : out) EXPECT_EQ(v, 7.0f);
    unsigned char bytes[8] = {};
    EXPECT_EQ(TuseShadowMap::floatArrayCompress(nullptr, 4, bytes), 0);
    EXPECT_EQ(TuseShadowMap::floatArrayCompress(out, 0, bytes), 0);
}

TEST(DepthCodec, EncodesRunsCappedAt127) {
    struct Case {
        const char* name;
        std::vector<float> values;
        Bytes expectedHeaders;  // the run bytes in order
        int expectedBytes;
    };
    std::vector<float> ramp{1, 2, 3, 4};
    std::vector<float> constant(300, 6.5f);
    std::vector<float> mixed{5, -1, 8, 8, 8, 8};
    std::mt19937 random(7);
    std::uniform_real_distribution<float> any(0, 100);
    std::vector<float> noise(400);
    for (float& v : noise) v = any(random);
    std::vector<Case> cases = {
        {"a ramp from 0 is one repeat run", ramp, {128 + 4}, 5},
        // The first value is a literal (0 + 6.5 then 13 does not repeat), then
        // runs of d = 0 of at most 127 values: 5 bytes per 127 values.
        {"a constant stretch", constant, {1, 128 + 127, 128 + 127, 128 + 45}, 5 + 3 * 5},
        {"literals, then a repeat of the last one", mixed, {3, 128 + 3}, 1 + 12 + 5},
        {"noise is literal runs of at most 127", noise, {127, 127, 127, 19}, 400 * 4 + 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes stream(size_t(TuseShadowMap::sMaxCompressedSize(int(c.values.size()))));
        int n = TuseShadowMap::floatArrayCompress(c.values.data(), int(c.values.size()), stream.data());
        EXPECT_EQ(n, c.expectedBytes);
        Bytes headers;
        for (int at = 0; at < n;) {
            unsigned char h = stream[size_t(at)];
            headers.push_back(h);
            at += 1 + (h < 128 ? 4 * h : 4);
        }
        EXPECT_EQ(headers, c.expectedHeaders);
        EXPECT_TRUE(bitsEqual(decode(Bytes(stream.begin(), stream.begin() + n), int(c.values.size())), c.values));
    }
}

TEST(DepthCodec, RoundTripsAreExactToTheBit) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> any(0.001f, 1000);
    std::vector<float> stretches;
    for (int block = 0; block < 40; ++block) {
        int kind = block % 4, length = 1 + int(random() % 300);
        float base = any(random), step = any(random) * 1e-3f;
        for (int i = 0; i < length; ++i)
            stretches.push_back(kind == 0 ? any(random) : kind == 1 ? base : kind == 2 ? base + step * float(i) : TuseShadowMap::kNoSurface);
    }
    stretches.push_back(-0.0f);
    stretches.push_back(0.0f);
    stretches.push_back(1e-30f);

    const int res = 64;
    std::vector<float> rendered = sphereAndWallDistances(res);
    std::vector<float> depth(rendered.size());
    TuseShadowMap::iffBufferToZbuffer(res, res, TfltMatrix::identity(), false, rendered.data(), depth.data());

    int bytes = 0;
    EXPECT_TRUE(bitsEqual(roundTrip(stretches), stretches));
    EXPECT_TRUE(bitsEqual(roundTrip(depth, &bytes), depth));
    // Where the light sees nothing the map collapses into repeat runs.
    EXPECT_LT(bytes, int(depth.size() * sizeof(float)) / 4) << "a quarter of the raw size";

    // And through the bands of the render cache.
    TrenderCache cache(1 << 20, TmallocAllocator::mallocAllocator());
    TuseShadowMap map(false, {0, 0, 0}, &cache);
    ASSERT_TRUE(map.initMap(TshadowMapView::sPerspective({0, 0, 0}, {0, 0, -1}, {0, 1, 0}, 1, res, 0.01f, 100), depth.data()));
    std::vector<float> back(depth.size());
    ASSERT_TRUE(map.depthBuffer(0, back.data()));
    EXPECT_TRUE(bitsEqual(back, depth));
    EXPECT_LT(map.compressedBytes(), depth.size() * sizeof(float) / 4);
}

// ---------------------------------------------------------------- geometry

TEST(ShadowMapProjection, PointsLandOnTheirTexelsAndBoundsWidenWithTheFilter) {
    TuseShadowMap map(false, {0, 0, 0});
    std::vector<float> far(64 * 64, 50.0f);
    map.initMap(orthoView(64, 4), far.data());   // 8 world units over 64 texels: 8 texels per unit
    map.initMap(TshadowMapView::sPerspective({0, 0, 0}, {0, 0, -1}, {0, 1, 0}, 1, 64, 0.01f, 100), far.data());
    struct Case {
        const char* name;
        int mapIndex;
        T3Float point;
        int filter;
        bool inside, insideFiltered;
        float column, row, depth;
    };
    const Case cases[] = {
        {"ortho centre", 0, {0, 0, -3}, 2, true, true, 32, 32, 3},
        {"ortho upper left", 0, {-3.5f, 3.5f, -1}, 2, true, true, 4, 4, 1},
        {"ortho half a texel from the right edge", 0, {3.9375f, 0, -2}, 2, true, false, 63.5f, 32, 2},
        {"ortho outside", 0, {4.5f, 0, -2}, 0, false, false, 68, 32, 2},
        {"perspective on the axis", 1, {0, 0, -5}, 2, true, true, 32, 32, 5},
        {"perspective at half the tangent up", 1, {0, 2.5f, -5}, 2, true, true, 32, 16, 5},
        {"perspective on the top edge", 1, {0, 5, -5}, 2, true, false, 32, 0, 5},
        {"perspective behind the light", 1, {0, 0, 5}, 0, false, false, 32, 32, -5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TmapValues v;
        EXPECT_EQ(TuseShadowMap::projectPointCheckBounds(&c.point, &map.map(c.mapIndex), v), c.inside);
        if (c.depth > 0) {
            EXPECT_NEAR(v.column, c.column, 1e-3);
            EXPECT_NEAR(v.row, c.row, 1e-3);
        }
        EXPECT_NEAR(v.depth, c.depth, 1e-4);
        EXPECT_EQ(TuseShadowMap::projectPointCheckBounds(&c.point, &map.map(c.mapIndex), v, c.filter), c.insideFiltered);
    }
}

TEST(ShadowMapProjection, PerspectiveDistancesBecomeDepthsAlongTheView) {
    // Distances along texel rays to the plane z = -d are d times the ray's
    // length to the view plane: every texel must come back as depth d.
    const int res = 8;
    const float d = 3.5f, tangent = 0.75f;
    std::vector<float> distances(res * res), depth(res * res);
    for (int row = 0; row < res; ++row)
        for (int col = 0; col < res; ++col) {
            double x = (2.0 * (col + 0.5) / res - 1) * tangent, y = (1 - 2.0 * (row + 0.5) / res) * tangent;
            distances[size_t(row * res + col)] = float(d * std::sqrt(x * x + y * y + 1));
        }
    TshadowMapView view = TshadowMapView::sPerspective({0, 0, 0}, {0, 0, -1}, {0, 1, 0}, tangent, res, 0.01f, 100);
    ASSERT_EQ(TuseShadowMap::iffBufferToZbuffer(res, res, TuseShadowMap::sProjection(view), false, distances.data(), depth.data()), 1);
    for (float z : depth) EXPECT_NEAR(z, d, 1e-5);
    EXPECT_EQ(TuseShadowMap::iffBufferToZbuffer(res, 0, TuseShadowMap::sProjection(view), false, distances.data(), depth.data()), 0);
    EXPECT_EQ(TuseShadowMap::iffBufferToZbuffer(res, res, TfltMatrix::scaling(0, 0, 1), false, distances.data(), depth.data()), 0);
}

TEST(ShadowMapProjection, MergedDepthLiesHalfwayOrShadowsNothing) {
    const float n = TuseShadowMap::kNoSurface;
    const float first[4] = {2, 2, n, 5}, second[4] = {4, n, n, 5.5f};
    float merged[4];
    TuseShadowMap::mergeDepthBuffers(2, 2, first, second, merged);
    EXPECT_EQ(merged[0], 3.0f);
    EXPECT_EQ(merged[1], n) << "no surface behind: a lone surface shadows nothing";
    EXPECT_EQ(merged[2], n);
    EXPECT_EQ(merged[3], 5.25f);
}

// ---------------------------------------------------------------- filtering

TEST(ShadowMapSampling, FractionsFollowTheBoxFilterOverAnEdge) {
    // Left half of the map holds a caster at depth 1, the right half nothing.
    const int res = 32;
    std::vector<float> depth(res * res);
    for (int row = 0; row < res; ++row)
        for (int col = 0; col < res; ++col) depth[size_t(row * res + col)] = col < res / 2 ? 1.0f : TuseShadowMap::kNoSurface;
    TuseShadowMap map(true, {0, 0, 0});
    map.initMap(orthoView(res, 16), depth.data());  // one texel per world unit, edge at x = 0
    struct Case {
        const char* name;
        T3Float point;
        short filter;
        float expected;
    };
    const Case cases[] = {
        {"deep in the shadow", {-8.5f, 0.5f, -5}, 1, 1},
        {"in front of the caster", {-8.5f, 0.5f, -0.5f}, 1, 0},
        {"on the caster itself, within the bias", {-8.5f, 0.5f, -1.0005f}, 1, 0},
        {"nearest texel, just left of the edge", {-0.1f, 0.5f, -5}, 0, 1},
        {"nearest texel, just right of the edge", {0.1f, 0.5f, -5}, 0, 0},
        // A box one texel wide centred 0.25 right of the edge covers a quarter of the shadowing texel.
        {"filter 1, a quarter over the edge", {0.25f, 0.5f, -5}, 1, 0.25f},
        {"filter 2, centred on the edge", {0.0f, 0.5f, -5}, 2, 0.5f},
        // Three texels wide, 0.5 right of the edge: 1 of 3 units in shadow.
        {"filter 3, half a texel right", {0.5f, 0.5f, -5}, 3, 1.0f / 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        float fraction = -1;
        bool skip = true;
        map.sampleShadow(1, &c.point, 0.001f, c.filter, &fraction, &skip);
        EXPECT_NEAR(fraction, c.expected, 1e-5);
        EXPECT_FALSE(skip);
    }
    T3Float outside(40, 0, -5);
    float fraction = -1;
    bool skip = false;
    map.sampleShadow(1, &outside, 0.001f, 1, &fraction, &skip);
    EXPECT_EQ(fraction, 0);
    EXPECT_TRUE(skip);
}

TEST(ShadowMapSampling, ABatchReadsBandsBeyondItsHeldSetAndLeavesThemIdle) {
    // Points spread over every band of several maps, more than a call holds at once.
    const int res = 256;
    TrenderCache cache(1 << 22, TmallocAllocator::mallocAllocator());
    TuseShadowMap map(false, {0, 0, 0}, &cache);
    std::vector<float> depth(size_t(res) * res);
    for (int m = 0; m < 3; ++m) {
        for (size_t i = 0; i < depth.size(); ++i) depth[i] = float(m + 1) + float(i % 7) * 0.01f;
        TshadowMapView v = orthoView(res, 128);
        v.worldToView = Tmatrix::translation(float(300 * m), 0, 0);
        map.initMap(v, depth.data());
    }
    const unsigned n = 64;
    T3Float points[n];
    float fraction[n];
    for (unsigned i = 0; i < n; ++i) {
        int m = int(i % 3);
        points[i] = {float(-300 * m) + 0.5f, 127.5f - float(i) * 4, -(float(m) + 1.5f)};
    }
    map.sampleShadow(n, points, 0.0f, 0, fraction, nullptr);
    for (unsigned i = 0; i < n; ++i) EXPECT_EQ(fraction[i], 1.0f) << i;
    EXPECT_EQ(cache.lruLength(), cache.idleCount());
    EXPECT_GT(cache.idleCount(), 16u) << "every band read went back to the idle list";
}

// ---------------------------------------------------------------- files

TEST(DepthMapFiles, WrittenMapsReadBackWithTheirViewExactlyAndFailedWritesAreReported) {
    TtestTempDir dir;
    const int res = 32;
    std::vector<float> distances = sphereAndWallDistances(res);
    TshadowMapView view = TshadowMapView::sPerspective({1, 2, 3}, {0.3f, -1, 0.2f}, {0, 0, 1}, 1.1f, res, 0.05f, 80);
    const std::string file = dir.file("key.iff");
    ASSERT_TRUE(TuseShadowMap::writeZmap(file, view, distances.data()));

    TdepthMapFile reader;
    ASSERT_TRUE(reader.open(file));
    EXPECT_EQ(reader.type(), TdepthMapFile::kForm);
    int w = 0, h = 0;
    reader.getSize(w, h);
    EXPECT_EQ(w, res);
    EXPECT_EQ(h, res);
    EXPECT_EQ(std::memcmp(&reader.view().worldToView, &view.worldToView, sizeof view.worldToView), 0);
    EXPECT_EQ(reader.view().halfWidth, view.halfWidth);
    std::vector<float> back(distances.size());
    ASSERT_TRUE(reader.load(back.data()));
    EXPECT_TRUE(bitsEqual(back, distances));

    // readZmap gives the same depths as converting in memory.
    TcommandCapture capture;
    TuseShadowMap map(false, {1, 2, 3});
    ASSERT_EQ(map.readZmap(file, "", res, {}), 1);
    std::vector<float> expected(distances.size()), loaded(distances.size());
    TuseShadowMap::iffBufferToZbuffer(res, res, TuseShadowMap::sProjection(view), false, distances.data(), expected.data());
    ASSERT_TRUE(map.depthBuffer(0, loaded.data()));
    EXPECT_TRUE(bitsEqual(loaded, expected));
    EXPECT_EQ(capture.countKey("s_TuseShadowMapStrings.rReadingShadowMap"), 1u);
    EXPECT_EQ(capture.count(TmessageSeverity::kWarning), 0u);

    // A write into a missing folder is reported, and neither write leaves a temporary file behind.
    EXPECT_FALSE(TuseShadowMap::writeZmap(dir.file("no/such/folder/map.iff"), view, distances.data()));
    EXPECT_EQ(capture.countKey("s_TuseShadowMapStrings.rWriteShadowMap"), 1u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST(DepthMapFiles, ReadZmapWarnsAndLeavesNoMapOnEachFault) {
    TtestTempDir dir;
    std::vector<float> distances(16 * 16, 4.0f);
    const std::string good = dir.file("good.iff"), notADepthMap = dir.file("other.iff");
    ASSERT_TRUE(TuseShadowMap::writeZmap(good, orthoView(16, 2), distances.data()));
    {
        TiffFile f;
        f.open(notADepthMap.c_str(), "wb");
        f.beginWriteGroup(TiffTag::kFOR4, TiffTag("CIMG"));
        f.endGroup();
    }
    struct Case {
        const char* name;
        std::string file, mid;
        int resolution;
        std::vector<const char*> keys;
    };
    const Case cases[] = {
        {"a missing file with no macro", dir.file("missing.iff"), "", 16,
         {"s_TuseShadowMapStrings.rFailedOpenShadowMap", "s_TuseShadowMapStrings.rNotLoadShadowMap"}},
        {"a file of another type", notADepthMap, "", 16,
         {"s_TuseShadowMapStrings.rFailedOpenShadowMap", "s_TuseShadowMapStrings.rNotLoadShadowMap"}},
        {"the wrong resolution", good, "", 32,
         {"s_TuseShadowMapStrings.rResolutionShadowMap", "s_TuseShadowMapStrings.rReuseShadowMap"}},
        {"a missing mid-distance partner", good, dir.file("missing_mid.iff"), 16,
         {"s_TuseShadowMapStrings.rFailedOpenShadowMap", "s_TuseShadowMapStrings.rNotLoad2ShadowMap"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TcommandCapture capture;
        TuseShadowMap map(true, {0, 0, 0});
        EXPECT_EQ(map.readZmap(c.file, c.mid, c.resolution, {}), 0);
        EXPECT_EQ(map.mapCount(), 0);
        EXPECT_EQ(capture.count(TmessageSeverity::kWarning), unsigned(c.keys.size()));
        for (const char* key : c.keys) EXPECT_EQ(capture.countKey(key), 1u) << key;
        EXPECT_EQ(capture.countKey("s_TuseShadowMapStrings.rNotFindShadowMap"), 0u);
        EXPECT_EQ(capture.count(TmessageSeverity::kError), 0u);
    }
}

TEST(DepthMapFiles, AMissingMapCallsTheMacroWithItsNames) {
    TtestTempDir dir;
    std::vector<std::string> seen;
    theCommandEngine().registerCommand("makeDmapForTest", [&](const std::vector<std::string>& args) {
        seen = args;
        return TscriptCmdResult{false, ""};
    });
    TcommandCapture capture;
    TdmapCallback callback;
    callback.macro = "makeDmapForTest";
    callback.lightName = "key";
    callback.pathName = dir.file("depthmap_key");
    callback.frame = 12;
    TuseShadowMap map(true, {0, 0, 0});
    EXPECT_EQ(map.readZmap(dir.file("depthmap_key.iff"), "", 16, callback), 0);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0], "12");
    EXPECT_EQ(seen[1], "mapname=" + dir.file("depthmap_key.iff") + ",middistmapname=,lightname=key,pathname=" + dir.file("depthmap_key") +
                           ",readanimextname=,curranimextname=,lastdumpanimextname=");
    EXPECT_EQ(capture.countKey("s_TuseShadowMapStrings.rNotFindShadowMap"), 1u);
    EXPECT_EQ(capture.countKey("s_TuseShadowMapStrings.rCallbackShadowMap"), 1u);
    EXPECT_EQ(capture.countKey("s_TuseShadowMapStrings.rCallbackShadowMapFail"), 1u);
    EXPECT_EQ(capture.count(TmessageSeverity::kError), 1u);
    EXPECT_EQ(capture.countKey("s_TuseShadowMapStrings.rFailedOpenShadowMap"), 1u);
}

TEST(DepthMapFiles, NamesFollowTheThreeFlags) {
    struct Case {
        const char* dmapName;
        bool light, scene, frame;
        const char* expected;
    };
    const Case cases[] = {
        {"", true, false, false, "depthmap_key"},
        {"", false, false, false, "depthmap"},
        {"maps/shadow", true, false, false, "maps/shadow_key"},
        {"shadow", false, true, false, "shot_shadow"},
        {"shadow", false, false, true, "shadow.7"},
        {"shadow", true, true, true, "shot_shadow_key.7"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(TnonExtendedLightShape::sDepthMapName(c.dmapName, "key", "shot", 7, c.light, c.scene, c.frame), c.expected);
    EXPECT_EQ(TnonExtendedLightShape::sDepthMapFileName("a/depthmap_key", -1, false), "a/depthmap_key.iff");
    EXPECT_EQ(TnonExtendedLightShape::sDepthMapFileName("depthmap_key", 3, true), "depthmap_key_yn_mid.iff");
}
