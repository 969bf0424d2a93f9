// Every subcommand speaks in one form, "shadenet <command>: error: <what>",
// and exits 2 when the request itself is wrong, 1 when the work fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "support/program_run.h"
#include "support/temp_dir.h"

namespace {
const std::regex kMessageForm("shadenet( [a-z]+)*: (error|warning): .+");

std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// Rewrites the channel count of a BOT file's header (byte 7), which must
// hold `from`.
void setBotChannels(const std::string& path, int from, int to) {
    std::string bytes = readBytes(path);
    ASSERT_GT(bytes.size(), 14u);
    ASSERT_EQ(int(bytes[7]), from);
    bytes[7] = char(to);
    writeBytes(path, bytes);
}

// A plane filling an 8 by 8 view, lit by its file texture "photo".
std::string texturedScene(const std::string& image) {
    return R"({"nodes": [
        {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 10, 0], "rotate": [-90, 0, 0]}},
        {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 4}},
        {"type": "resolution", "name": "defaultResolution", "attributes": {"width": 8, "height": 8}},
        {"type": "transform", "name": "floorXf"},
        {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 4, "height": 4}},
        {"type": "file", "name": "photo", "attributes": {"fileTextureName": ")" + image + R"("}},
        {"type": "lambert", "name": "mat", "attributes": {"color": [0, 0, 0]}},
        {"type": "shadingEngine", "name": "floorSG", "members": ["|floorXf|floor"]},
        {"type": "ambientLight", "name": "fill"}],
      "connections": [["photo.outColor", "mat.incandescence"], ["mat.outColor", "floorSG.surfaceShader"]]})";
}
}  // namespace

TEST(CommandLineMessages, EveryFailureHasTheFormTheReasonAndItsStatus) {
    TtestTempDir dir;
    const std::string scene = std::string(SHADENET_SOURCE_DIR) + "/examples/renderer-smoke.json";
    const std::string folder = dir.file("folder"), missing = dir.file("nosuch.json");
    std::filesystem::create_directories(folder);
    const std::string noImage = dir.file("nosuch.png"), noBot = dir.file("nosuch.bot"), out = dir.file("out.png");
    const std::string noMesh = dir.file("nomesh.json"), broken = dir.file("broken.json");
    std::ofstream(noMesh) << R"({"nodes": [{"type": "camera", "name": "cam"}, {"type": "mesh", "name": "m", "attributes": {"fileName": "lost.obj"}}]})";
    std::ofstream(broken) << "{\"nodes\": [}";
    // A texture file cut inside its last block: the header and index are whole.
    const std::string cutBot = dir.file("cut.bot");
    ASSERT_EQ(shadenet({"swatch", "checker", "--size", "64", "-o", dir.file("checker.png")}).status, 0);
    ASSERT_EQ(shadenet({"bot", "convert", dir.file("checker.png"), "-o", cutBot}).status, 0);
    std::filesystem::resize_file(cutBot, std::filesystem::file_size(cutBot) - 8);
    // Texture files whose header says fewer channels than the blocks hold:
    // the checker's PNG has 4, its JPEG 3.
    const std::string fewerBot = dir.file("fewer.bot"), fewestBot = dir.file("fewest.bot");
    ASSERT_EQ(shadenet({"swatch", "checker", "--size", "64", "-o", dir.file("checker.jpg")}).status, 0);
    ASSERT_EQ(shadenet({"bot", "convert", dir.file("checker.png"), "-o", fewerBot}).status, 0);
    ASSERT_EQ(shadenet({"bot", "convert", dir.file("checker.jpg"), "-o", fewestBot}).status, 0);
    setBotChannels(fewerBot, 4, 3);
    setBotChannels(fewestBot, 3, 1);
    struct Tcase {
        std::vector<std::string> args;
        int status;
        std::string firstError;  // what the first error line of stderr starts with (warnings may come before it)
    };
    const Tcase cases[] = {
        // The request itself is wrong: 2.
        {{"frobnicate"}, 2, "shadenet: error: unknown subcommand 'frobnicate'"},
        {{"bot", "frob"}, 2, "shadenet bot: error: unknown subcommand 'frob'"},
        {{"bot"}, 2, "shadenet bot: error: a subcommand is required"},
        {{}, 2, "shadenet: error: a subcommand is required"},
        {{"render", scene, "--threads", "0"}, 2, "shadenet render: error: --threads: must be at least 1"},
        {{"render", scene, "--threads", "many"}, 2,
         "shadenet render: error: --threads: 'many' is not a whole number; it must be at least 1"},
        {{"render", scene, "--spp", "65"}, 2, "shadenet render: error: --spp: must be between 1 and 64"},
        {{"render", scene, "--depth", "16"}, 2, "shadenet render: error: --depth: must be between 0 and 15"},
        {{"render", scene, "--resolution", "0", "8"}, 2, "shadenet render: error: --resolution: must be between 1 and 32768"},
        {{"swatch", "checker", "--size", "4"}, 2, "shadenet swatch: error: --size: must be between 8 and 4096"},
        {{"swatch", "checker", "--spp", "0"}, 2, "shadenet swatch: error: --spp: must be between 1 and 64"},
        {{"swatch", "-o", out}, 2, "shadenet swatch: error: give either a node type (or FILE:NODE) or --sheet NAME"},
        {{"swatch", "checker", "--sheet", "textures-2d", "-o", out}, 2, "shadenet swatch: error: give either a node type"},
        {{"swatch", "--sheet", "textures-9d", "-o", out}, 2,
         "shadenet swatch: error: unknown contact sheet 'textures-9d' (known: textures-2d, textures-3d)"},
        {{"render", scene, "-o", out, "--frames", "5-1"}, 2, "shadenet render: error: --frames '5-1' holds no frame"},
        {{"render", scene, "-o", out, "--frames", "1-10:0"}, 2, "shadenet render: error: --frames '1-10:0' holds no frame"},
        {{"render", scene, "-o", out, "--frames", "a-b"}, 2, "shadenet render: error: --frames 'a-b' is not FIRST-LAST[:STEP]"},
        {{"render", scene, "-o", out, "--frames", "1-3", "--frame", "2"}, 2,
         "shadenet render: error: --frame and --frames both name frames"},
        {{"name", "%s", "--frame", "2000000"}, 2, "shadenet name: error: --frame: must be between -1000000 and 1000000"},
        {{"bot", "extract", noBot, "--level", "14", "-o", out}, 2,
         "shadenet bot extract: error: --level: must be between 0 and 13"},
        {{"bot", "convert", noImage}, 2, "shadenet bot convert: error: --output is required"},
        {{"nodes", "noSuchType"}, 2, "shadenet nodes: error: unknown node type 'noSuchType'"},
        // An empty value is no value, for every option that takes one.
        {{"render", scene, "--frames", ""}, 2, "shadenet render: error: --frames: needs a value and was given an empty one"},
        {{"render", scene, "--colorspace", ""}, 2, "shadenet render: error: --colorspace: needs a value and was given an empty one"},
        {{"render", scene, "--view", ""}, 2, "shadenet render: error: --view: needs a value and was given an empty one"},
        {{"render", scene, "--pass", ""}, 2, "shadenet render: error: --pass: needs a value and was given an empty one"},
        {{"render", scene, "--set", ""}, 2, "shadenet render: error: --set: needs a value and was given an empty one"},
        {{"render", scene, "-o", ""}, 2, "shadenet render: error: --output: needs a value and was given an empty one"},
        {{"render", ""}, 2, "shadenet render: error: scene: needs a value and was given an empty one"},
        {{"check", scene, "--camera", ""}, 2, "shadenet check: error: --camera: needs a value and was given an empty one"},
        {{"preview", scene, "-o", ""}, 2, "shadenet preview: error: --output: needs a value and was given an empty one"},
        {{"swatch", "checker", "-o", ""}, 2, "shadenet swatch: error: --output: needs a value and was given an empty one"},
        {{"bot", "convert", noImage, "-o", ""}, 2, "shadenet bot convert: error: --output: needs a value and was given an empty one"},
        {{"name", "%s", "--scene", ""}, 2, "shadenet name: error: --scene: needs a value and was given an empty one"},
        // The work fails: 1, with the system's or the library's reason.
        {{"render", missing}, 1, "shadenet render: error: " + missing + ": No such file or directory"},
        {{"render", folder}, 1, "shadenet render: error: " + folder + ": is a directory"},
        {{"render", broken, "-o", out}, 1, "shadenet render: error: " + broken + ":1:12: malformed JSON"},
        {{"render", noMesh, "-o", out}, 1,
         "shadenet render: error: " + noMesh + ": node 'm' attribute 'fileName': " + dir.file("lost.obj") + ": mesh file not found"},
        {{"check", folder}, 1, "shadenet check: error: " + folder + ": is a directory"},
        {{"compile", folder, "group"}, 1, "shadenet compile: error: " + folder + ": is a directory"},
        {{"swatch", missing + ":node"}, 1, "shadenet swatch: error: " + missing + ": No such file or directory"},
        {{"bot", "convert", noImage, "-o", dir.file("a.bot")}, 1,
         "shadenet bot convert: error: cannot read image " + noImage + ": No such file or directory"},
        {{"bot", "convert", folder, "-o", dir.file("a.bot")}, 1,
         "shadenet bot convert: error: cannot read image " + folder + ": is a directory"},
        {{"bot", "info", noBot}, 1, "shadenet bot info: error: " + noBot + ": No such file or directory"},
        {{"bot", "extract", folder, "-o", out}, 1, "shadenet bot extract: error: " + folder + ": is a directory"},
        {{"bot", "extract", cutBot, "-o", out}, 1,
         "shadenet bot extract: error: Corrupted data found in block ordered texture file " + cutBot +
             ": the file ends before its last block"},
        {{"bot", "info", fewerBot}, 1,
         "shadenet bot info: error: Corrupted data found in block ordered texture file " + fewerBot +
             ": block 0 of level 6 cannot be read with the header's 3 channels: data is left after the last channel"},
        {{"bot", "extract", fewestBot, "-o", out}, 1,
         "shadenet bot extract: error: Corrupted data found in block ordered texture file " + fewestBot +
             ": block 0 of level 6 cannot be read with the header's 1 channel: data is left after the last channel"},
    };
    for (const Tcase& c : cases) {
        std::string what;
        for (const std::string& a : c.args) what += " " + a;
        SCOPED_TRACE("shadenet" + what);
        const TprogramRun r = shadenet(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_EQ(r.out, "");
        const std::vector<std::string> lines = linesOf(r.err);
        auto error = std::find_if(lines.begin(), lines.end(), [](const std::string& l) { return l.find(": error: ") != std::string::npos; });
        ASSERT_NE(error, lines.end()) << r.err;
        EXPECT_EQ(error->substr(0, c.firstError.size()), c.firstError);
        for (const std::string& line : lines) EXPECT_TRUE(std::regex_match(line, kMessageForm)) << line;
    }
}

TEST(CommandLineMessages, AnImageTheLibraryCannotDecodeGetsTheLibrarysReason) {
    TtestTempDir dir;
    const std::string image = dir.file("text.png");
    std::ofstream(image) << "this is not a picture";
    const TprogramRun r = shadenet({"bot", "convert", image, "-o", dir.file("a.bot")});
    EXPECT_EQ(r.status, 1);
    const std::string lead = "shadenet bot convert: error: cannot read image " + image + ": ";
    ASSERT_EQ(r.err.substr(0, lead.size()), lead) << r.err;
    EXPECT_GT(r.err.size(), lead.size() + 1) << "the reason is empty: " << r.err;
}

// A texture the image library reads only in part renders on, its trouble
// named in one warning: a JPEG cut short (the library fills in what is
// missing and says so only when asked), and a PNG whose header claims
// 999999 by 999999 pixels of four channels.
TEST(CommandLineMessages, ATextureReadInPartIsNamedInAWarning) {
    TtestTempDir dir;
    const std::string jpeg = dir.file("photo.jpg"), png = dir.file("photo.png");
    ASSERT_EQ(shadenet({"swatch", "checker", "--size", "128", "-o", jpeg}).status, 0);
    std::string bytes;
    {
        std::ifstream in(jpeg, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    std::ofstream(jpeg, std::ios::binary | std::ios::trunc) << bytes.substr(0, bytes.size() * 2 / 3);
    const char huge[] =
        "\x89PNG\r\n\x1a\n\x00\x00\x00\x0dIHDR\x00\x0f\x42\x3f\x00\x0f\x42\x3f\x08\x06\x00\x00\x00\xa1\x5b\x59\x7c"
        "\x00\x00\x00\x0cIDAT\x78\x9c\x63\x60\xa0\x3d\x00\x00\x00\x64\x00\x01\x86\x64\x3c\x35"
        "\x00\x00\x00\x00IEND\xae\x42\x60\x82";
    std::ofstream(png, std::ios::binary).write(huge, sizeof huge - 1);
    const struct {
        const char* image;
        std::string warning;
    } cases[] = {
        {"photo.jpg", "File texture photo: " + jpeg + " is damaged"},
        {"photo.png", "File texture photo cannot read " + png + ": the image is 999999x999999 with 4 channels"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.image);
        const std::string scene = dir.file("scene.json");
        std::ofstream(scene) << texturedScene(c.image);
        const TprogramRun r = shadenet({"render", scene, "-q", "-o", dir.file("out.png")});
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.err.find("shadenet render: warning: " + c.warning), std::string::npos) << r.err;
    }
}

TEST(CommandLineMessages, ATextureThatCannotBeReadWarnsOnceAndTheRenderGoesOn) {
    TtestTempDir dir;
    const std::string png = dir.file("checker.png");
    ASSERT_EQ(shadenet({"swatch", "checker", "--size", "64", "-o", png}).status, 0);
    // Its channel count lowered: the file is refused when it is opened.
    const std::string fewer = dir.file("fewer.bot");
    ASSERT_EQ(shadenet({"bot", "convert", png, "-o", fewer}).status, 0);
    setBotChannels(fewer, 4, 3);
    // Every block but the first of the top level, which is read when the
    // file is opened, overwritten: the damage shows only as the render reads.
    // 64 x 64 has levels 0 to 6, one block each below the top, four in it.
    const std::string damaged = dir.file("damaged.bot");
    ASSERT_EQ(shadenet({"bot", "convert", png, "-o", damaged}).status, 0);
    {
        std::string bytes = readBytes(damaged);
        auto offset = [&](int entry) {
            uint32_t v = 0;
            for (int k = 0; k < 4; ++k) v |= uint32_t(uint8_t(bytes[size_t(14 + 4 * entry + k)])) << (8 * k);
            return size_t(v);
        };
        for (int block = 0; block < 10; ++block)
            if (block != 6)
                for (size_t i = offset(block); i < offset(block + 1); ++i) bytes[i] = char(0xFF);
        writeBytes(damaged, bytes);
    }
    struct Tcase {
        std::string file, warning;
    };
    const Tcase cases[] = {
        {dir.file("nosuch.png"), "shadenet render: warning: File texture photo cannot read " + dir.file("nosuch.png") +
                                     ": No such file or directory"},
        {fewer, "shadenet render: warning: File texture photo cannot read " + fewer +
                    ": block 0 of level 6 cannot be read with the header's 3 channels: data is left after the last channel"},
        {damaged, "shadenet render: warning: Decode error in block ordered texture file " + damaged + ": "},
    };
    for (const Tcase& c : cases) {
        SCOPED_TRACE(c.file);
        const std::string scene = dir.file("scene.json");
        std::ofstream(scene, std::ios::trunc) << texturedScene(c.file);
        // Two frames: each starts from the file again.
        const TprogramRun r = shadenet({"render", scene, "-q", "--frames", "1-2", "-o", dir.file("out.#.png")});
        EXPECT_EQ(r.status, 0) << r.err;
        const std::vector<std::string> lines = linesOf(r.err);
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](const std::string& l) { return l.find(": error: ") != std::string::npos; }), 0)
            << r.err;
        ASSERT_EQ(lines.size(), 1u) << r.err;
        EXPECT_EQ(lines[0].substr(0, c.warning.size()), c.warning);
        EXPECT_TRUE(std::filesystem::exists(dir.file("out.0002.png")));
    }
}

TEST(CommandLineMessages, HelpAndVersionStillGoToStandardOutput) {
    for (const char* flag : {"--help", "--version"}) {
        const TprogramRun r = shadenet({flag});
        EXPECT_EQ(r.status, 0) << flag;
        EXPECT_NE(r.out, "") << flag;
        EXPECT_EQ(r.err, "") << flag;
    }
}
