// The swatch command for every texture and material type and the contact
// sheet of the 2D textures. Everything runs through the shadenet program, as
// a user would.
#include <gtest/gtest.h>

#include <cmath>

#include <OpenImageIO/imageio.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>

#include "renderer/render_fixture.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

namespace {
// An 8-bit RGB image as read back from a file.
struct Timage {
    int width = 0, height = 0;
    std::vector<uint8_t> rgb;
    const uint8_t* at(int x, int y) const { return &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3]; }
    int luma(int x, int y) const { return (at(x, y)[0] * 3 + at(x, y)[1] * 6 + at(x, y)[2]) / 10; }
};

Timage readImage(const std::string& path) {
    Timage image;
    auto in = OIIO::ImageInput::open(path);
    if (!in) return image;
    const OIIO::ImageSpec header = in->spec_dimensions(0);
    image.width = header.width, image.height = header.height;
    image.rgb.resize(size_t(image.width) * size_t(image.height) * 3);
    if (!in->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, image.rgb.data())) image = Timage{};
    return image;
}

// Spread of the channels over a rectangle: the largest max - min of the three.
int spread(const Timage& image, int x0, int y0, int x1, int y1) {
    int lo[3] = {255, 255, 255}, hi[3] = {0, 0, 0};
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            for (int c = 0; c < 3; ++c) lo[c] = std::min(lo[c], int(image.at(x, y)[c])), hi[c] = std::max(hi[c], int(image.at(x, y)[c]));
    return std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]});
}

double meanLuma(const Timage& image, int x0, int y0, int x1, int y1) {
    double sum = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) sum += image.luma(x, y);
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

// Renders the swatch of every registered texture type (or, with
// `materials`, of every surface material) and checks it shows a pattern;
// returns how many were checked.
unsigned checkEverySwatch(bool materials) {
    TtestTempDir dir;
    constexpr int kSize = 40;
    unsigned checked = 0;
    for (const auto& [type, classification] : programTypes()) {
        const bool texture = under(classification, "texture") || std::find(kFamily2d.begin(), kFamily2d.end(), type) != kFamily2d.end();
        const bool material = classification == "shader/surface";
        if (materials ? !material : !texture) continue;
        // A layered texture is its layers: made afresh it has none to show.
        if (type == "layeredTexture") continue;
        SCOPED_TRACE(type + " (" + classification + ")");
        const std::string file = dir.file(type + ".png");
        TprogramRun r = shadenet({"swatch", type, "-o", file, "--size", std::to_string(kSize), "--spp", "1"});
        if (r.status != 0 && r.err.find("cannot make a node") != std::string::npos) continue;  // an abstract base
        EXPECT_EQ(r.status, 0) << r.err;
        Timage image = readImage(file);
        EXPECT_EQ(image.width, kSize);
        EXPECT_EQ(image.height, kSize);
        if (image.width != kSize || image.height != kSize) continue;
        if (texture) {
            // The card fills the view: the pattern is everywhere, and varies
            // (by 16 display-encoded steps: the sRGB curve narrows the fine,
            // light-grey noise of a rock to about 20).
            EXPECT_GT(spread(image, 0, 0, kSize, kSize), 16);
            EXPECT_GT(meanLuma(image, 0, 0, kSize, kSize), 8.0);
        } else {
            // The middle of the ball: lit, so neither black nor one flat tone.
            const int a = kSize * 3 / 8, b = kSize * 5 / 8;
            EXPECT_GT(spread(image, a, a, b, b), 4);
            EXPECT_GT(meanLuma(image, a, a, b, b), 8.0);
        }
        ++checked;
    }
    return checked;
}

TEST(Swatches, EveryTextureTypeShowsAPattern) {
    EXPECT_GE(checkEverySwatch(false), 11u);  // at least the 2D family
}

TEST(Swatches, EveryMaterialTypeShowsALitBall) {
    EXPECT_GE(checkEverySwatch(true), 1u);
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
    Timage image = readImage(file);
    ASSERT_EQ(image.width, 32);
    // Every pixel is a mix of the two colours: no green, no backdrop grey.
    unsigned reds = 0, blues = 0;
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x) {
            const uint8_t* p = image.at(x, y);
            EXPECT_EQ(p[1], 0) << x << "," << y;
            // The file is sRGB-encoded; the mix is linear.
            auto linear = [](uint8_t v) {
                const float e = float(v) / 255.0f;
                return e <= 0.04045f ? e / 12.92f : std::pow((e + 0.055f) / 1.055f, 2.4f);
            };
            EXPECT_NEAR(linear(p[0]) + linear(p[2]), 1.0f, 0.02f) << x << "," << y;
            reds += p[0] > 200, blues += p[2] > 200;
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
    Timage images[2];
    int k = 0;
    for (const char* name : {"plain", "linked"}) {
        const std::string file = dir.file(std::string(name) + ".png");
        TprogramRun r = shadenet({"swatch", dir.file(std::string(name) + ".json") + ":clay", "-o", file, "--size", "32", "--spp", "1"});
        ASSERT_EQ(r.status, 0) << name << ": " << r.err;
        images[k] = readImage(file);
        ASSERT_EQ(images[k].width, kSize) << name;
        ++k;
    }
    const int a = kSize * 3 / 8, b = kSize * 5 / 8;
    EXPECT_GT(meanLuma(images[1], a, a, b, b), 40.0) << "the ball's centre is lit";
    for (int y = a; y < b; ++y)
        for (int x = a; x < b; ++x)
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(images[1].at(x, y)[c], images[0].at(x, y)[c], 1) << x << "," << y;
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
    Timage sheet = readImage(sheetFile);
    ASSERT_GT(sheet.width, 4 * kSize);
    // Each type's own swatch appears in the sheet, pixel for pixel, once.
    std::vector<std::pair<int, int>> found;
    for (const std::string& type : types) {
        SCOPED_TRACE(type);
        const std::string own = dir.file(type + ".png");
        ASSERT_EQ(shadenet({"swatch", type, "-o", own, "--size", size, "--spp", "1"}).status, 0);
        Timage swatch = readImage(own);
        ASSERT_EQ(swatch.width, kSize);
        std::vector<std::pair<int, int>> at;
        for (int y = 0; y + kSize <= sheet.height; ++y)
            for (int x = 0; x + kSize <= sheet.width; ++x) {
                bool same = true;
                for (int j = 0; j < kSize && same; ++j)
                    same = std::equal(swatch.at(0, j), swatch.at(0, j) + kSize * 3, sheet.at(x, y + j));
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
                if (sheet.luma(x, y) > 200) left = std::min(left, x), right = std::max(right, x);
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
