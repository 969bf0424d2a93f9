// A file texture through `shadenet render`, as a user runs it: a card of
// colour blocks filling an orthographic view at one sample per pixel. Every
// filter kind must show each block's own colour inside it, which only holds
// when the renderer's pixel centres, camera, triangles and UVs reach the
// filter as it expects; a BOT file beside the image replaces it.
#include <gtest/gtest.h>

#include <string>

#include "framework/host/pixel_map.h"
#include "support/scene_render.h"
#include "textures/pyramid/file_pixel_map_cache.h"

namespace {
constexpr int kTexels = 64, kBlocks = 4, kPixels = 32;  // 8 pixels to a block

// The colour of block (bx, by), rows of blocks from the top, in 0..255.
int blockValue(int bx, int by, int channel, int variant) { return 10 + 40 * bx + 8 * channel + (25 * by + 20 * variant) % 80; }

TpixelMap blockImage(int variant) {
    TpixelMap map(kTexels, kTexels, 3);
    const int side = kTexels / kBlocks;
    for (int y = 0; y < kTexels; ++y)
        for (int x = 0; x < kTexels; ++x)
            for (int c = 0; c < 3; ++c) map.setPixel(x, y, c, uint8_t(blockValue(x / side, y / side, c, variant)));
    return map;
}

// `moreNodes` and `moreConnections`, each ending in a comma, join the scene's.
std::string sceneText(int filterType, const std::string& moreNodes = "", const std::string& moreConnections = "") {
    return R"({"format": "shadenet-scene", "version": 1, "nodes": [
      {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 5]}},
      {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 2}},
      {"type": "transform", "name": "cardXf", "attributes": {"rotate": [90, 0, 0]}},
      {"type": "plane", "name": "card", "parent": "cardXf", "attributes": {"width": 2, "height": 2}},
      {"type": "file", "name": "blocks", "attributes": {"fileTextureName": "images/blocks.png", "filterType": )" +
           std::to_string(filterType) + R"(}},)" + moreNodes + R"(
      {"type": "lambert", "name": "unlit", "attributes": {"color": [0, 0, 0], "diffuse": 0}},
      {"type": "shadingEngine", "name": "cardSG", "members": ["|cardXf|card"]},
      {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1}}],
    "connections": [)" + moreConnections + R"(["blocks.outColor", "unlit.incandescence"], ["unlit.outColor", "cardSG.surfaceShader"]]})";
}

// Block colours of `variant` written as images/blocks.png in `dir`.
void writeBlocks(const TtestTempDir& dir, int variant) {
    std::filesystem::create_directories(dir.path() / "images");
    Tstring why;
    ASSERT_TRUE(TfilePixelMapCache::saveIMFPixelMap(Tstring(dir.file("images/blocks.png")), blockImage(variant), why)) << why.asC();
}

// The card rendered `pixels` wide with the given filter, one sample a pixel.
// Raw: the PNG keeps the texture's own code values, not display-encoded ones.
TtestImage renderBlocks(const TtestTempDir& dir, int filterType, int pixels) {
    const TsceneRender r = renderSceneFile(dir, "scene" + std::to_string(filterType), sceneText(filterType),
                                           {"--spp", "1", "--resolution", std::to_string(pixels), std::to_string(pixels), "-q", "--colorspace", "Raw"}, "png");
    EXPECT_EQ(r.run.status, 0) << r.run.err;
    return r.image;
}
}  // namespace

TEST(FileTextureRender, EachFilterShowsEveryBlockInItsOwnColour) {
    TtestTempDir dir;
    writeBlocks(dir, 0);
    struct Tcase {
        const char* what;
        int filterType;
        bool botBeside;
    } cases[] = {{"Off", 0, false},       {"Mipmap", 1, false},  {"Box", 2, false},      {"Quadratic", 3, false},
                 {"Quartic", 4, false},   {"Gaussian", 5, false}, {"Box, BOT beside", 2, true}};
    for (const Tcase& c : cases) {
        SCOPED_TRACE(c.what);
        int variant = 0;
        if (c.botBeside) {
            // The BOT file holds the blocks; the image beside it another set.
            ASSERT_EQ(shadenet({"bot", "convert", dir.file("images/blocks.png"), "-o", dir.file("images/blocks.bot")}).status, 0);
            writeBlocks(dir, 1);
        }
        const TtestImage image = renderBlocks(dir, c.filterType, kPixels);
        ASSERT_EQ(image.width, kPixels);
        // The two middle pixels of each block in each direction: their
        // footprints, filter squares included, stay inside the block.
        const int per = kPixels / kBlocks;
        for (int by = 0; by < kBlocks; ++by)
            for (int bx = 0; bx < kBlocks; ++bx)
                for (int y = by * per + per / 2 - 1; y <= by * per + per / 2; ++y)
                    for (int x = bx * per + per / 2 - 1; x <= bx * per + per / 2; ++x)
                        for (int ch = 0; ch < 3; ++ch)
                            EXPECT_NEAR(image.at(x, y, ch) * 255, blockValue(bx, by, ch, variant), 1.01)
                                << "block " << bx << "," << by << " pixel " << x << "," << y;
    }
}

// A pixel across a block edge: the box filter's result is the exact
// area-weighted mean of the box-shaped texels under it, which no mip lookup
// gives, so the render shows that the footprint filter ran with the
// renderer's pixel, camera and triangle.
TEST(FileTextureRender, BoxFilterAcrossABlockEdgeIsTheAreaWeightedMean) {
    TtestTempDir dir;
    writeBlocks(dir, 0);
    const int pixels = 30;  // block edges fall in the middle of pixels 7, 15 and 22
    const TtestImage image = renderBlocks(dir, 2, pixels);
    ASSERT_EQ(image.width, pixels);
    // Pixel 7 spans u * 64 from 14.93 to 17.07; texels 0 to 15 (block 0)
    // cover up to 15.5, as texel i lies at i.
    const double x0 = 64.0 * 7 / pixels, x1 = 64.0 * 8 / pixels, edge = 15.5;
    const double a = edge - x0, b = x1 - edge;
    for (int y : {3, 11, 26}) {
        const int by = y * kBlocks / pixels;
        for (int ch = 0; ch < 3; ++ch) {
            const double expected = (a * blockValue(0, by, ch, 0) + b * blockValue(1, by, ch, 0)) / (a + b);
            EXPECT_NEAR(image.at(7, y, ch) * 255, expected, 1.01) << "row " << y << " channel " << ch;
        }
    }
}

// A place2dTexture that magnifies the image four times, fed into the file as
// users connect it: the card shows the bottom-left block alone, under every
// filter. The exact footprint filters took their footprint from the
// triangle's own UVs and so averaged the whole image.
TEST(FileTextureRender, AConnectedPlacementMagnifiesUnderEveryFilter) {
    TtestTempDir dir;
    writeBlocks(dir, 0);
    const std::string place = R"({"type": "place2dTexture", "name": "place", "attributes": {"repeatUV": [0.25, 0.25]}},)";
    const std::string feed = R"(["place.outUV", "blocks.uvCoord"], ["place.outUvFilterSize", "blocks.uvFilterSize"],)";
    for (int filterType = 0; filterType <= 5; ++filterType) {
        SCOPED_TRACE(filterType);
        const TsceneRender r = renderSceneFile(dir, "placed" + std::to_string(filterType), sceneText(filterType, place, feed),
                                               {"--spp", "1", "--resolution", "16", "16", "-q", "--colorspace", "Raw"}, "png");
        ASSERT_EQ(r.run.status, 0) << r.run.err;
        ASSERT_EQ(r.image.width, 16);
        // The border pixels' filters reach the next block or wrap round.
        for (int y = 1; y < 15; ++y)
            for (int x = 1; x < 15; ++x)
                for (int ch = 0; ch < 3; ++ch)
                    EXPECT_NEAR(r.image.at(x, y, ch) * 255, blockValue(0, kBlocks - 1, ch, 0), 1.01) << "pixel " << x << "," << y;
    }
}

// A UV that overflowed on its way to the node, here the product of two large
// finite numbers, names no texel: every filter shades the card black, where
// the lookup read far outside the image and crashed the render.
TEST(FileTextureRender, AnOverflowedUvShadesBlack) {
    TtestTempDir dir;
    writeBlocks(dir, 0);
    const std::string far = R"({"type": "multiplyDivide", "name": "far", "attributes": {"input1": [1e30, 0.5, 0], "input2": [1e30, 1, 1]}},)";
    const std::string feed = R"(["far.outputX", "blocks.uCoord"], ["far.outputY", "blocks.vCoord"],)";
    for (int filterType : {0, 1, 2}) {
        SCOPED_TRACE(filterType);
        const TsceneRender r = renderSceneFile(dir, "far" + std::to_string(filterType), sceneText(filterType, far, feed),
                                               {"--spp", "1", "--resolution", "8", "8", "-q"});
        ASSERT_EQ(r.run.status, 0) << r.run.err;
        ASSERT_EQ(r.image.width, 8);
        ASSERT_EQ(r.image.channels, 4);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) {
                EXPECT_EQ(r.image.at(x, y, 3), 1.0f) << "the card covers pixel " << x << "," << y;
                for (int ch = 0; ch < 3; ++ch) EXPECT_EQ(r.image.at(x, y, ch), 0.0f) << "pixel " << x << "," << y;
            }
    }
}
