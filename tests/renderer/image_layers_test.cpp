// Layers beside the rendered image: what the renderer puts in them, and how
// the writer lays them out in an EXR (one file, data window, header) or
// beside another format.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <cmath>
#include <filesystem>

#include "renderer/image_output.h"
#include "renderer/render_fixture.h"
#include "renderer/renderer_test_surface.h"
#include "support/temp_dir.h"
#include "support/test_image.h"

namespace {
// A value per pixel and channel that no two places share.
float sourceValue(int x, int y, int c) { return 0.25f * float(x) + 0.0625f * float(y) + 0.5f * float(c); }

TframeBuffer patternImage(int w, int h) {
    TframeBuffer image;
    image.resize(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c) image.pixel(x, y)[c] = sourceValue(x, y, c);
    TimageLayer& depth = image.addLayer("depth", {"Z"}, false);
    TimageLayer& id = image.addLayer("objectId", {"id"}, false);
    for (int i = 0; i < w * h; ++i) {
        depth.pixels[size_t(i)] = 10.0f + float(i);
        id.pixels[size_t(i)] = 4097.0f + float(i);  // odd and above 2048: half floats would round it
    }
    image.worldToCamera.assign(16, 0.0f);
    for (int i = 0; i < 16; ++i) image.worldToCamera[size_t(i)] = float(i) - 3.5f;
    return image;
}
}  // namespace

TEST(ImageLayers, AnExrHoldsEveryLayerInItsWindowWithTheHeader) {
    TtestTempDir dir;
    const int W = 12, H = 9;
    const TframeBuffer image = patternImage(W, H);
    struct Tcase {
        const char* name;
        bool half, region, crop;
        const char* compression;
    };
    const Tcase cases[] = {
        {"float, whole", false, false, false, ""},
        {"half, data window", true, true, false, "piz"},
        {"float, cropped", false, true, true, "dwaa"},
    };
    const int x0 = 3, y0 = 2, x1 = 10, y1 = 7;
    for (const Tcase& c : cases) {
        SCOPED_TRACE(c.name);
        TimageOutputOptions options;
        options.half = c.half;
        options.compression = c.compression;
        options.useRegion = c.region, options.crop = c.crop;
        options.x0 = x0, options.y0 = y0, options.x1 = x1, options.y1 = y1;
        options.renderSeconds = 2.5;
        options.text.emplace_back("shadenet:scene", "/shots/a.json");
        const std::string path = dir.file(std::string(c.name) + ".exr");
        std::vector<std::string> written;
        std::string error;
        ASSERT_TRUE(writeRenderImage(image, path, options, written, error)) << error;
        EXPECT_EQ(written, std::vector<std::string>{path});

        OIIO::ImageSpec s;
        const TtestImage f = readTestImage(path, &s);
        ASSERT_GT(f.width, 0);
        const int wx0 = c.region ? x0 : 0, wy0 = c.region ? y0 : 0, wx1 = c.region ? x1 : W, wy1 = c.region ? y1 : H;
        EXPECT_EQ(s.width, wx1 - wx0);
        EXPECT_EQ(s.height, wy1 - wy0);
        // A data window sits inside the full frame; a crop is a frame of its own.
        const bool window = c.region && !c.crop;
        EXPECT_EQ(s.x, window ? x0 : 0);
        EXPECT_EQ(s.y, window ? y0 : 0);
        EXPECT_EQ(s.full_width, window ? W : s.width);
        EXPECT_EQ(s.full_height, window ? H : s.height);
        EXPECT_EQ(s.channelnames, (std::vector<std::string>{"R", "G", "B", "A", "depth.Z", "objectId.id"}));
        EXPECT_EQ(s.get_string_attribute("compression"), *c.compression ? c.compression : "zip");
        EXPECT_EQ(s.get_string_attribute("shadenet:scene"), "/shots/a.json");
        EXPECT_FALSE(s.get_string_attribute("shadenet:version").empty());
        EXPECT_FLOAT_EQ(s.get_float_attribute("shadenet:renderSeconds"), 2.5f);
        const OIIO::ParamValue* matrix = s.find_attribute("worldToCamera", OIIO::TypeMatrix);
        ASSERT_NE(matrix, nullptr);
        for (int i = 0; i < 16; ++i) EXPECT_EQ(static_cast<const float*>(matrix->data())[i], float(i) - 3.5f);

        const float tolerance = c.half ? 4e-3f : 0.0f;  // values up to 8: half keeps 11 bits
        for (int y = wy0; y < wy1; ++y)
            for (int x = wx0; x < wx1; ++x) {
                const float* p = &f.pixels[(size_t(y - wy0) * size_t(s.width) + size_t(x - wx0)) * 6];
                for (int k = 0; k < 4; ++k) EXPECT_NEAR(p[k], sourceValue(x, y, k), tolerance) << x << "," << y;
                const int i = y * W + x;
                EXPECT_NEAR(p[4], 10.0f + float(i), c.half ? 0.07f : 0.0f);
                EXPECT_EQ(p[5], 4097.0f + float(i)) << "ids are whole in every precision";
            }
    }
}

TEST(ImageLayers, OtherFormatsGetALayerFileBesideTheImage) {
    TtestTempDir dir;
    TframeBuffer image = patternImage(6, 4);
    TimageLayer& specular = image.addLayer("specular", {"R", "G", "B", "A"}, true);
    for (float& v : specular.pixels) v = 0.5f;
    const std::string path = dir.file("shot.0007.png");
    std::vector<std::string> written;
    std::string error;
    ASSERT_TRUE(writeRenderImage(image, path, TimageOutputOptions(), written, error)) << error;
    // Data stays float; a colour pass follows the image's own format.
    EXPECT_EQ(written, (std::vector<std::string>{path, dir.file("shot.0007_depth.exr"), dir.file("shot.0007_objectId.exr"),
                                                 dir.file("shot.0007_specular.png")}));
    const TtestImage depth = readTestImage(dir.file("shot.0007_depth.exr"));
    ASSERT_EQ(depth.channels, 1);
    for (int i = 0; i < 24; ++i) EXPECT_EQ(depth.pixels[size_t(i)], 10.0f + float(i));
    // Asked for, even an EXR writes its layers apart.
    TimageOutputOptions apart;
    apart.separateLayers = true;
    ASSERT_TRUE(writeRenderImage(image, dir.file("b.exr"), apart, written, error)) << error;
    EXPECT_EQ(written.size(), 4u);
    EXPECT_EQ(readTestImage(dir.file("b.exr")).channels, 4);
}

TEST(ImageLayers, DataLayersDescribeTheHitNearestEachPixelCentre) {
    // An orthographic view 4 units wide from z = 5 down -z; a card facing
    // the camera at z = 1 covers the left half.
    std::string nodes = R"({"type": "transform", "name": "cardXf", "attributes": {"rotate": [90, 0, 0], "translate": [-1, 0, 1]}},
                           {"type": "plane", "name": "card", "parent": "cardXf", "attributes": {"width": 2, "height": 4}}, )" +
                        testGroup("surf", TrendererTestSurface::kFlat, R"("|cardXf|card")");
    TrenderOptions options = renderOptions(16, 16, 1, 4);
    options.passes = {"depth", "normal", "position", "objectId"};
    TrenderRun run = renderText(sceneText(nodes, testConnection("surf"), orthoCamera(4)), options);
    ASSERT_TRUE(run.ok) << run.error;
    const TimageLayer* depth = run.image.layer("depth");
    const TimageLayer* normal = run.image.layer("normal");
    const TimageLayer* position = run.image.layer("position");
    const TimageLayer* id = run.image.layer("objectId");
    ASSERT_TRUE(depth && normal && position && id);
    int covered = 0;
    for (int py = 0; py < 16; ++py)
        for (int px = 0; px < 16; ++px) {
            const size_t i = size_t(py * 16 + px);
            // Pixels off the card's edge column by a margin, as its samples may straddle it.
            if (px == 7 || px == 8) continue;
            const bool on = px < 8;
            covered += on;
            EXPECT_EQ(id->pixels[i], on ? 1.0f : 0.0f) << px << "," << py;
            EXPECT_NEAR(depth->pixels[i], on ? 4.0f : 0.0f, 1e-4f);
            EXPECT_NEAR(normal->pixels[i * 3 + 2], on ? 1.0f : 0.0f, 1e-5f);
            if (!on) continue;
            // The pixel's centre sample: every data value is read at the centre.
            const float x = (float(px) + 0.5f) / 16 * 4 - 2, y = 2 - (float(py) + 0.5f) / 16 * 4;
            EXPECT_NEAR(position->pixels[i * 3 + 0], x, 0.13f);  // within half a pixel
            EXPECT_NEAR(position->pixels[i * 3 + 1], y, 0.13f);
            EXPECT_NEAR(position->pixels[i * 3 + 2], 1.0f, 1e-4f);
        }
    EXPECT_EQ(covered, 7 * 16);
}
