// Files the program writes appear whole or not at all: a write that fails
// (a full disk, a file-size limit) is reported with the file's name, exits
// 1 and leaves the earlier file and its folder as they were.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "support/program_run.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace {
std::string bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename().string());
    return names;
}

// A noisy image written straight through the image library, so that the
// input does not depend on the writer under test; noise keeps it from
// compressing below the size limit.
void writeNoiseImage(const std::string& path, int side) {
    std::vector<unsigned char> pixels(size_t(side) * side * 3);
    unsigned state = 12345;
    for (unsigned char& p : pixels) p = (state = state * 1103515245u + 12345u) >> 24;
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(out);
    ASSERT_TRUE(out->open(path, OIIO::ImageSpec(side, side, 3, OIIO::TypeDesc::UINT8)));
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::UINT8, pixels.data()));
    ASSERT_TRUE(out->close());
}

// Far below any of the outputs below and above the messages on stderr.
constexpr uint64_t kSizeLimit = 300;
}  // namespace

TEST(OutputFiles, AFailedWriteIsReportedAndLeavesTheEarlierFile) {
    TtestTempDir dir;
    const std::string scene = std::string(SHADENET_SOURCE_DIR) + "/examples/renderer-smoke.json";
    const std::string input = dir.file("input.png"), texture = dir.file("input.bot");
    writeNoiseImage(input, 96);
    ASSERT_EQ(shadenet({"bot", "convert", input, "-o", texture}).status, 0);
    struct Tcase {
        const char* name;
        std::string file;
        std::vector<std::string> args;  // the output's name goes last
    };
    const Tcase cases[] = {
        {"render", "render.png", {"render", scene, "--resolution", "64", "48", "--spp", "1", "--threads", "2", "-q", "-o"}},
        {"render exr", "render.exr", {"render", scene, "--resolution", "16", "16", "--spp", "1", "-q", "-o"}},
        {"swatch", "swatch.png", {"swatch", "noise", "--size", "64", "--spp", "1", "-o"}},
        {"preview", "preview.png", {"preview", scene, "--resolution", "160", "120", "-o"}},
        {"bot convert", "copy.bot", {"bot", "convert", input, "-o"}},
        {"bot extract", "level.png", {"bot", "extract", texture, "-o"}},
    };
    std::set<std::string> expected = namesIn(dir.path());
    for (const Tcase& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string target = dir.file(c.file);
        auto args = c.args;
        args.push_back(target);
        const TprogramRun first = shadenet(args);
        ASSERT_EQ(first.status, 0) << first.err;
        const std::string before = bytesOf(target);
        ASSERT_GT(before.size(), kSizeLimit);
        expected.insert(c.file);

        // A file-size limit: the second write fails part-way.
        const TprogramRun limited = shadenet(args, {kSizeLimit});
        EXPECT_EQ(limited.status, 1) << limited.err;
        EXPECT_NE(limited.err.find("error: "), std::string::npos) << limited.err;
        EXPECT_NE(limited.err.find(target + ": "), std::string::npos) << limited.err;
        EXPECT_NE(limited.err.find("File too large"), std::string::npos) << limited.err;
        EXPECT_EQ(bytesOf(target), before) << "the earlier file was touched";
        EXPECT_EQ(namesIn(dir.path()), expected) << "a temporary file was left behind";

        // A full disk, reached through a link: reported, and the link stays.
        const std::string full = dir.file(std::string("full-") + c.file);
        fs::create_symlink("/dev/full", full);
        expected.insert(fs::path(full).filename().string());
        args.back() = full;
        const TprogramRun onFull = shadenet(args);
        EXPECT_EQ(onFull.status, 1) << onFull.err;
        EXPECT_NE(onFull.err.find(full + ": "), std::string::npos) << onFull.err;
        EXPECT_NE(onFull.err.find("No space left on device"), std::string::npos) << onFull.err;
        EXPECT_TRUE(fs::is_symlink(full));
        EXPECT_EQ(fs::read_symlink(full), "/dev/full");
        EXPECT_EQ(namesIn(dir.path()), expected);
    }
}

// An output that is an input of the same command, however it is spelled, or
// preview object numbers written over the picture itself: refused as a
// usage error before anything is written.
TEST(OutputFiles, AnOutputThatIsAnotherFileOfTheCommandIsRefused) {
    TtestTempDir dir;
    const std::string image = dir.file("a.png"), texture = dir.file("a.bot"), picture = dir.file("preview.png");
    const std::string scene = std::string(SHADENET_SOURCE_DIR) + "/examples/renderer-smoke.json";
    writeNoiseImage(image, 32);
    ASSERT_EQ(shadenet({"bot", "convert", image, "-o", texture}).status, 0);
    fs::create_directories(dir.path() / "sub");
    fs::create_symlink(image, dir.file("link.png"));
    const std::string imageBytes = bytesOf(image), textureBytes = bytesOf(texture);
    const std::string isInput = ": the output is the input file", isPicture = ": --object-ids names the same file as the picture (-o)";
    const struct {
        std::vector<std::string> args;
        std::string named, reason;
    } cases[] = {
        {{"bot", "convert", image, "-o", image}, image, isInput},
        {{"bot", "convert", image, "-o", dir.file("sub/../a.png")}, dir.file("sub/../a.png"), isInput},
        {{"bot", "convert", image, "-o", dir.file("./a.png")}, dir.file("./a.png"), isInput},
        {{"bot", "convert", image, "-o", dir.file("link.png")}, dir.file("link.png"), isInput},
        {{"bot", "convert", dir.file("link.png"), "-o", image}, image, isInput},
        {{"bot", "extract", texture, "-o", texture}, texture, isInput},
        {{"bot", "extract", texture, "-o", dir.file("sub/../a.bot")}, dir.file("sub/../a.bot"), isInput},
        {{"preview", scene, "-o", picture, "--object-ids", picture, "--resolution", "16", "16"}, picture, isPicture},
        {{"preview", scene, "-o", picture, "--object-ids", dir.file("./preview.png"), "--resolution", "16", "16"},
         dir.file("./preview.png"), isPicture},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args[0] + " " + c.args[1] + " " + c.args[2] + " -> " + c.named);
        const TprogramRun r = shadenet(c.args);
        EXPECT_EQ(r.status, 2) << r.err;
        EXPECT_NE(r.err.find("error: " + c.named + c.reason), std::string::npos) << r.err;
        EXPECT_EQ(bytesOf(image), imageBytes);
        EXPECT_EQ(bytesOf(texture), textureBytes);
        EXPECT_TRUE(fs::is_symlink(dir.file("link.png")));
        EXPECT_FALSE(fs::exists(picture));
    }
}
