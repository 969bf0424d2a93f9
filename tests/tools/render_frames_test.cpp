// Sequences through the render command: every frame gets the name the image
// naming gives it (the same as `shadenet name`), renders alone exactly as
// in the sequence, and a log hears how far each one is.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/program_run.h"
#include "support/temp_dir.h"
#include "support/test_image.h"

namespace {
// What `shadenet name` makes of `pattern` for one frame of scene `scene`.
std::string nameOf(const std::string& pattern, const std::string& scene, int frame, const std::string& ext = "png") {
    TprogramRun r = shadenet({"name", pattern, "--scene", scene, "--ext", ext, "--frame", std::to_string(frame), "--animated"});
    EXPECT_EQ(r.status, 0) << r.err;
    return r.out.substr(0, r.out.find('\n'));
}

const std::string kSmoke = std::string(SHADENET_SOURCE_DIR) + "/examples/renderer-smoke.json";
const std::vector<std::string> kSmall = {"--resolution", "16", "12", "--spp", "1", "--threads", "2"};

std::vector<std::string> join(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
}  // namespace

TEST(RenderFrames, ASequenceIsNamedFrameByFrameAsTheNameCommandSays) {
    TtestTempDir dir;
    struct Tcase {
        const char* name;
        std::string output;   // -o; empty for the render globals' name
        std::string pattern;  // the same names as a pattern for `shadenet name`
    };
    // A scene whose globals animate, with prefix and padding, in the
    // "name.#.ext" scheme: the pattern is prefix.%3n.%e, the format the
    // globals' default, IFF.
    const std::string globals = dir.file("globals.json");
    std::ofstream(globals) << R"({"nodes": [
      {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 5]}},
      {"type": "camera", "name": "cam", "parent": "camXf"},
      {"type": "renderGlobals", "name": "defaultRenderGlobals",
       "attributes": {"imageFilePrefix": ")" + dir.file("beauty/%s") + R"(", "animation": true, "putFrameBeforeExt": true,
                      "extensionPadding": 3}}]})";
    const Tcase cases[] = {
        {"pattern with #", dir.file("seq/shot.#.png"), dir.file("seq/shot.%4n.png")},
        {"pattern with tokens", dir.file("%s/%c_@@.png"), dir.file("%s/%c_%2n.png")},
        {"no frame token", dir.file("still.png"), dir.file("still.%4n.png")},
        {"render globals", "", dir.file("beauty/%s.%3n.%e")},
    };
    for (const Tcase& c : cases) {
        SCOPED_TRACE(c.name);
        const bool fromGlobals = c.output.empty();
        const std::string scene = fromGlobals ? globals : kSmoke;
        const std::string stem = fromGlobals ? "globals" : "renderer-smoke";
        std::vector<std::string> args = join({"render", scene, "--frames", "1-5:2", "-q"}, kSmall);
        if (!fromGlobals) args = join(args, {"-o", c.output});
        TprogramRun r = shadenet(args);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::vector<std::string> written = linesOf(r.out);
        ASSERT_EQ(written.size(), 3u) << r.out;
        std::vector<std::string> expected;
        for (int f : {1, 3, 5}) {
            // The camera token expands to the camera's name in both.
            std::string pattern = c.pattern;
            if (pattern.find("%c") != std::string::npos) pattern.replace(pattern.find("%c"), 2, "cam");
            expected.push_back(nameOf(pattern, stem, f, fromGlobals ? "iff" : "png"));
        }
        EXPECT_EQ(written, expected);
        for (const std::string& file : written) EXPECT_TRUE(std::filesystem::exists(file)) << file;
    }
    EXPECT_EQ(nameOf(dir.file("seq/shot.%4n.png"), "s", 3), dir.file("seq/shot.0003.png"));
}

TEST(RenderFrames, AFrameRenderedAloneIsTheSequencesFrame) {
    TtestTempDir dir;
    TprogramRun sequence = shadenet(join({"render", kSmoke, "--frames", "1-3", "-q", "-o", dir.file("seq.#.exr")}, kSmall));
    ASSERT_EQ(sequence.status, 0) << sequence.err;
    TprogramRun alone = shadenet(join({"render", kSmoke, "--frame", "2", "-q", "-o", dir.file("one.#.exr")}, kSmall));
    ASSERT_EQ(alone.status, 0) << alone.err;
    EXPECT_EQ(alone.out, dir.file("one.0002.exr") + "\n");
    const TtestImage a = readTestImage(dir.file("seq.0002.exr")), b = readTestImage(dir.file("one.0002.exr"));
    ASSERT_GT(a.width, 0);
    EXPECT_EQ(a.pixels, b.pixels);
    // No frame reads anything of another: the first equals the second too.
    EXPECT_EQ(readTestImage(dir.file("seq.0001.exr")).pixels, a.pixels);
}

TEST(RenderFrames, ALogGetsAProgressLinePerFrameUnlessQuiet) {
    TtestTempDir dir;
    // stderr is a file here, as under a farm's job runner.
    TprogramRun logged = shadenet(join({"render", kSmoke, "--frames", "4-5", "-o", dir.file("a.#.png")}, kSmall));
    ASSERT_EQ(logged.status, 0) << logged.err;
    EXPECT_NE(logged.err.find("frame 4 100%, 0:00 elapsed\n"), std::string::npos) << logged.err;
    EXPECT_NE(logged.err.find("frame 5 100%, 0:00 elapsed\n"), std::string::npos) << logged.err;
    EXPECT_EQ(logged.err.find('\r'), std::string::npos) << "a log gets no bar";
    TprogramRun quiet = shadenet(join({"render", kSmoke, "--frames", "4-5", "-q", "-o", dir.file("b.#.png")}, kSmall));
    ASSERT_EQ(quiet.status, 0) << quiet.err;
    EXPECT_EQ(quiet.err.find("100%"), std::string::npos) << quiet.err;
}

TEST(RenderFrames, AWarningIsGivenOnceForTheWholeSequence) {
    TtestTempDir dir;
    const std::string scene = std::string(SHADENET_SOURCE_DIR) + "/examples/textures.json";
    const TprogramRun r = shadenet(join({"render", scene, "-q", "-o", dir.file("t.%4n.png"), "--frames", "1-3", "--set",
                                         "photo.fileTextureName=lost.png"},
                                        kSmall));
    EXPECT_EQ(r.status, 0) << r.err;
    size_t count = 0;
    for (const std::string& line : linesOf(r.err)) count += line.find("warning: File texture photo cannot read") != std::string::npos;
    EXPECT_EQ(count, 1u) << r.err;
    for (int frame = 1; frame <= 3; ++frame) EXPECT_TRUE(std::filesystem::exists(dir.file("t.000" + std::to_string(frame) + ".png")));
}
