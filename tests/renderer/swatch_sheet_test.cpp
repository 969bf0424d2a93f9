// The swatch command for every texture and material type and the contact
// sheet of the 2D textures. Everything runs through the shadenet program, as
// a user would.
#include <gtest/gtest.h>

#include <cmath>

#include <nlohmann/json.hpp>

#include <algorithm>

#include "renderer/render_fixture.h"
#include "support/program_run.h"
#include "support/temp_dir.h"
#include "support/test_image.h"

namespace {
// A channel of an 8-bit file as its code value.
int code(const TtestImage& image, int x, int y, int c) { return int(std::lround(image.at(x, y, c) * 255)); }
int luma(const TtestImage& image, int x, int y) { return (code(image, x, y, 0) * 3 + code(image, x, y, 1) * 6 + code(image, x, y, 2)) / 10; }

// Spread of the channels over a rectangle: the largest max - min of the three.
int spread(const TtestImage& image, int x0, int y0, int x1, int y1) {
    int lo[3] = {255, 255, 255}, hi[3] = {0, 0, 0};
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            for (int c = 0; c < 3; ++c) lo[c] = std::min(lo[c], code(image, x, y, c)), hi[c] = std::max(hi[c], code(image, x, y, c));
    return std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]});
}

double meanLuma(const TtestImage& image, int x0, int y0, int x1, int y1) {
    double sum = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) sum += luma(image, x, y);
    return sum / double((x1 - x0) * (y1 - y0));
}

// The registered types the program knows, with their classifications.
std::vector<std::pair<std::string, std::string>> programTypes() {
    TprogramRun r = shadenet({"nodes", "--json"});
    EXPECT_EQ(r.status, 0) << r.err;
    std::vector<std::pair<std::string, std::string>> types;
    for (const auto& t : nlohmann::json::parse(r.out)) types.emplace_back(t["type"].get<std::string>(), t["classification"].get<std::string>());
    return types;
}

const std::vector<std::string> kFamily2d = {"checker", "grid",     "bulge",   "cloth", "ramp", "fractal",
                                            "noise",   "mountain", "stencil", "water", "ocean", "file"};

bool under(const std::string& classification, const std::string& prefix) {
    return classification.compare(0, prefix.size(), prefix) == 0 && (classification.size() == prefix.size() || classification[prefix.size()] == '/');
}
}  // namespace

// Every registered texture type's swatch shows a pattern, and every surface
// material's a lit ball.
TEST(Swatches, EveryTextureAndMaterialTypeShowsItsSubject) {
    TtestTempDir dir;
    constexpr int kSize = 40;
    unsigned textures = 0, materials = 0;
    for (const auto& [type, classification] : programTypes()) {
        const bool texture = under(classification, "texture") || std::find(kFamily2d.begin(), kFamily2d.end(), type) != kFamily2d.end();
        const bool material = classification == "shader/surface";
        // A layered texture is its layers: made afresh it has none to show.
        if ((!texture && !material) || type == "layeredTexture") continue;
        SCOPED_TRACE(type + " (" + classification + ")");
        const std::string file = dir.file(type + ".png");
        TprogramRun r = shadenet({"swatch", type, "-o", file, "--size", std::to_string(kSize), "--spp", "1"});
        if (r.status != 0 && r.err.find("cannot make a node") != std::string::npos) continue;  // an abstract base
        EXPECT_EQ(r.status, 0) << r.err;
        const TtestImage image = readTestImage(file);
        EXPECT_EQ(image.width, kSize);
        EXPECT_EQ(image.height, kSize);
        if (image.width != kSize || image.height != kSize) continue;
        if (texture) {
            // The card fills the view: the pattern is everywhere, and varies
            // (by 16 display-encoded steps: the sRGB curve narrows the fine,
            // light-grey noise of a rock to about 20).
            EXPECT_GT(spread(image, 0, 0, kSize, kSize), 16);
            EXPECT_GT(meanLuma(image, 0, 0, kSize, kSize), 8.0);
            ++textures;
        } else {
            // The middle of the ball: lit, so neither black nor one flat tone.
            const int a = kSize * 3 / 8, b = kSize * 5 / 8;
            EXPECT_GT(spread(image, a, a, b, b), 4);
            EXPECT_GT(meanLuma(image, a, a, b, b), 8.0);
            ++materials;
        }
    }
    EXPECT_GE(textures, 11u);  // at least the 2D family
    EXPECT_GE(materials, 1u);
}

TEST(Swatches, ATextureOfASceneFileFillsTheCardWithItsOwnSettings) {
    TtestTempDir dir;
    // Red and blue checks through the file's own placement; a ball in the
    // file that must stay out of the preview.
    writeFile(dir.file("checks.json"),
              sceneText(R"({"type": "checker", "name": "checks", "attributes": {"color1": [1, 0, 0], "color2": [0, 0, 1]}},
                           {"type": "place2dTexture", "name": "p", "attributes": {"repeatUV": [2, 2]}},
                           {"type": "transform", "name": "ballXf", "attributes": {"translate": [0, 0, 2]}},
                           {"type": "sphere", "name": "ball", "parent": "ballXf"})",
                        R"(["p.outUV", "checks.uvCoord"])"));
    const std::string file = dir.file("checks.png");
    TprogramRun r = shadenet({"swatch", dir.file("checks.json") + ":checks", "-o", file, "--size", "32", "--spp", "1"});
    ASSERT_EQ(r.status, 0) << r.err;
    const TtestImage image = readTestImage(file);
    ASSERT_EQ(image.width, 32);
    // Every pixel is a mix of the two colours: no green, no backdrop grey.
    // The file is sRGB-encoded; the mix is linear.
    auto linear = [](float e) { return e <= 0.04045f ? e / 12.92f : std::pow((e + 0.055f) / 1.055f, 2.4f); };
    unsigned reds = 0, blues = 0;
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x) {
            EXPECT_EQ(code(image, x, y, 1), 0) << x << "," << y;
            EXPECT_NEAR(linear(image.at(x, y, 0)) + linear(image.at(x, y, 2)), 1.0f, 0.02f) << x << "," << y;
            reds += code(image, x, y, 0) > 200, blues += code(image, x, y, 2) > 200;
        }
    // Repeat 2 makes 4 by 4 checks: half of each colour, away from edges.
    EXPECT_GT(reds, 350u);
    EXPECT_GT(blues, 350u);
}

// A file's light links are about the file's objects: the swatch's own rig
// lights the ball all the same. The same material from a file with a link
// node (its lamp linked to the file's ball only) and from one without
// swatches alike, and the ball's centre is lit.
TEST(Swatches, AMaterialOfAFileWithLightLinksSwatchesAsWithout) {
    TtestTempDir dir;
    const std::string common =
        R"({"type": "lambert", "name": "clay", "attributes": {"color": [0.8, 0.5, 0.3]}},
           {"type": "transform", "name": "ballXf"}, {"type": "sphere", "name": "ball", "parent": "ballXf"},
           {"type": "shadingEngine", "name": "claySG", "members": ["|ballXf|ball"]},
           {"type": "transform", "name": "lampXf", "attributes": {"translate": [2, 2, 2]}},
           {"type": "pointLight", "name": "lamp", "parent": "lampXf"})";
    const std::string shading = R"(["clay.outColor", "claySG.surfaceShader"])";
    writeFile(dir.file("plain.json"), sceneText(common, shading));
    writeFile(dir.file("linked.json"),
              sceneText(common + R"(, {"type": "lightLinker", "name": "lightLinker1"})",
                        shading + R"(, ["lamp.message", "lightLinker1.link[0].light"], ["claySG.message", "lightLinker1.link[0].object"])"));
    constexpr int kSize = 32;
    TtestImage images[2];
    for (int k = 0; k < 2; ++k) {
        const std::string name = k ? "linked" : "plain", file = dir.file(name + ".png");
        TprogramRun r = shadenet({"swatch", dir.file(name + ".json") + ":clay", "-o", file, "--size", "32", "--spp", "1"});
        ASSERT_EQ(r.status, 0) << name << ": " << r.err;
        images[k] = readTestImage(file);
        ASSERT_EQ(images[k].width, kSize) << name;
    }
    const int a = kSize * 3 / 8, b = kSize * 5 / 8;
    EXPECT_GT(meanLuma(images[1], a, a, b, b), 40.0) << "the ball's centre is lit";
    for (int y = a; y < b; ++y)
        for (int x = a; x < b; ++x)
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(images[1].at(x, y, c), images[0].at(x, y, c), 1.01f / 255) << x << "," << y;
}

TEST(Swatches, TheContactSheetHoldsEachSwatchLabelledInReadingOrder) {
    TtestTempDir dir;
    const std::vector<std::string>& types = kFamily2d;
    constexpr int kSize = 20;  // narrower than the longer labels
    const std::string size = std::to_string(kSize);
    const std::string sheetFile = dir.file("sheet.png");
    TprogramRun r = shadenet({"swatch", "--sheet", "textures-2d", "-o", sheetFile, "--size", size, "--spp", "1"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, sheetFile + "\n");
    const TtestImage sheet = readTestImage(sheetFile);
    ASSERT_GT(sheet.width, 4 * kSize);
    // Each type's own swatch appears in the sheet, pixel for pixel, once.
    std::vector<std::pair<int, int>> found;
    for (const std::string& type : types) {
        SCOPED_TRACE(type);
        const std::string own = dir.file(type + ".png");
        ASSERT_EQ(shadenet({"swatch", type, "-o", own, "--size", size, "--spp", "1"}).status, 0);
        const TtestImage swatch = readTestImage(own);
        ASSERT_EQ(swatch.width, kSize);
        ASSERT_EQ(swatch.channels, sheet.channels);
        const size_t row = size_t(kSize * swatch.channels);
        std::vector<std::pair<int, int>> at;
        for (int y = 0; y + kSize <= sheet.height; ++y)
            for (int x = 0; x + kSize <= sheet.width; ++x) {
                bool same = true;
                for (int j = 0; j < kSize && same; ++j)
                    same = std::equal(&swatch.pixels[size_t(j) * row], &swatch.pixels[size_t(j) * row] + row,
                                      &sheet.pixels[(size_t(y + j) * size_t(sheet.width) + size_t(x)) * size_t(sheet.channels)]);
                if (same) at.emplace_back(x, y);
            }
        ASSERT_EQ(at.size(), 1u);
        found.push_back(at[0]);
        // Under the swatch, a light label about as wide as the type name
        // (5 pixel glyphs, 6 apart), centred under it.
        const auto [x0, y0] = at[0];
        int left = sheet.width, right = -1;
        for (int y = y0 + kSize; y < std::min(sheet.height, y0 + kSize + 14); ++y)
            for (int x = std::max(0, x0 - 16); x < std::min(sheet.width, x0 + kSize + 16); ++x)
                if (luma(sheet, x, y) > 200) left = std::min(left, x), right = std::max(right, x);
        ASSERT_GE(right, left) << "no label";
        const int width = right - left + 1, n = int(type.size());
        EXPECT_LE(width, 6 * n - 1);
        EXPECT_GE(width, 6 * n - 4);
        EXPECT_NEAR((left + right) / 2.0, x0 + kSize / 2.0, 3.0);
    }
    // Reading order: along a row left to right, rows top to bottom.
    for (size_t i = 1; i < found.size(); ++i) {
        const auto [px, py] = found[i - 1];
        const auto [x, y] = found[i];
        EXPECT_TRUE(y > py || (y == py && x > px)) << types[i];
    }
    // Four to a row: the fifth starts the second row under the first.
    EXPECT_EQ(found[3].second, found[0].second);
    EXPECT_GT(found[4].second, found[0].second);
    EXPECT_EQ(found[4].first, found[0].first);
}
