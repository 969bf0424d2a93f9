// Tiles for placements drawn by texture repeat, checked pixel by pixel
// against where the placement puts the image.
#include <gtest/gtest.h>

#include <string>

#include "display/tilable_texture_cache.h"
#include "framework/host/depend_graph.h"
#include "gl_test_port.h"
#include "textures/file_texture.h"

namespace {
// A 3x2 image whose every pixel is distinct.
TpixelMap numbered() {
    TpixelMap map(3, 2, 3);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) map.setPixel(x, y, 0, uint8_t(10 + 10 * (y * 3 + x))), map.setPixel(x, y, 1, 7), map.setPixel(x, y, 2, 9);
    return map;
}

void setFloat(TdependNode* node, const char* name, float v) {
    const Tattribute* a = node->attribute(Tstring(name));
    ASSERT_NE(a, nullptr) << name;
    ASSERT_TRUE(node->setAttributeValue(a, &v)) << name;
}
}  // namespace

TEST(TilableTextureCache, CoverageLeavesTheDefaultColourAroundTheImage) {
    testPort();
    TdependGraph g;
    auto* file = static_cast<TdnFileTexture*>(g.createNode("file", "f")->cast(TdnFileTexture::sMetaclass()));
    setFloat(file, "coverageU", 0.5f);
    setFloat(file, "translateFrameU", 0.25f);
    T3Float grey{0.2f, 0.4f, 0.6f};
    ASSERT_TRUE(file->setAttributeValue(file->attribute(Tstring("defaultColor")), &grey));
    TtilableTextureCache cache;
    ASSERT_TRUE(TtilableTextureCache::isTilable(file));
    ASSERT_TRUE(cache.updatePlacement(file));
    TpixelMap image = numbered();
    ASSERT_TRUE(cache.tileTexture(image, true));
    const TpixelMap& tile = cache.tile();
    ASSERT_EQ(tile.width(), 6);
    ASSERT_EQ(tile.height(), 2);
    // The frame starts a quarter of the tile in: texels 2..4 hold the image.
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 6; ++x) {
            bool inside = x >= 2 && x < 5;
            uint8_t expected = inside ? image.getPixel(x - 2, y, 0) : uint8_t(51);
            EXPECT_EQ(tile.getPixel(x, y, 0), expected) << x << "," << y;
        }
    EXPECT_NE(cache.getHWTexture(), nullptr);

    setFloat(file, "coverageV", 0.0f);
    EXPECT_FALSE(TtilableTextureCache::isTilable(file));
    EXPECT_FALSE(cache.updatePlacement(file));
}

TEST(TilableTextureCache, MirrorWithoutHardwareWritesFlippedCopies) {
    testPort();
    TdependGraph g;
    auto* file = static_cast<TdnFileTexture*>(g.createNode("file", "f")->cast(TdnFileTexture::sMetaclass()));
    bool on = true;
    file->setAttributeValue(file->attribute(Tstring("mirrorU")), &on);
    file->setAttributeValue(file->attribute(Tstring("mirrorV")), &on);
    setFloat(file, "repeatU", 4);
    TpixelMap image = numbered();
    for (bool hardware : {true, false}) {
        TtilableTextureCache cache;
        ASSERT_TRUE(cache.updatePlacement(file));
        ASSERT_TRUE(cache.tileTexture(image, hardware));
        const TpixelMap& tile = cache.tile();
        if (hardware) {
            EXPECT_EQ(tile.width(), 3);
            EXPECT_FLOAT_EQ(cache.scale[0], 4);
            continue;
        }
        ASSERT_EQ(tile.width(), 6);
        ASSERT_EQ(tile.height(), 4);
        EXPECT_FLOAT_EQ(cache.scale[0], 2) << "two tiles in the map along u";
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 6; ++x) {
                int sx = x < 3 ? x : 5 - x, sy = y < 2 ? y : 3 - y;
                EXPECT_EQ(tile.getPixel(x, y, 0), image.getPixel(sx, sy, 0)) << x << "," << y;
            }
    }
}
