// shadenet bot convert on sources wider than 8 bits: one warning that names
// the precision lost, and floating-point pixels mapped by the exposure
// options exactly as the closed forms say.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <cmath>
#include <string>
#include <vector>

#include "support/program_run.h"
#include "support/temp_dir.h"
#include "support/test_image.h"

namespace {
// A one-row image of `values` (grey) in the given pixel type.
void writeRow(const std::string& path, const std::vector<float>& values, OIIO::TypeDesc type) {
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(out);
    OIIO::ImageSpec header(int(values.size()), 1, 1, type);
    ASSERT_TRUE(out->open(path, header));
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::FLOAT, values.data()));
    out->close();
}
}  // namespace

TEST(BotConvert, WiderSourcesWarnOnceAndFloatsFollowTheExposureMapping) {
    TtestTempDir dir;
    const std::vector<float> values = {0.0f, 0.1f, 0.25f, 0.6f, 1.5f, 3.0f, 0.05f, 0.9f};
    struct Tcase {
        const char* file;
        OIIO::TypeDesc type;
        std::vector<std::string> options;
        const char* warning;  // empty: none
    } cases[] = {
        {"byte.png", OIIO::TypeDesc::UINT8, {}, ""},
        {"short.png", OIIO::TypeDesc::UINT16, {}, "holds 16-bit integer channels; the BOT file keeps 8 bits per channel (scaled)"},
        {"half.exr", OIIO::TypeDesc::HALF, {"--hdr-mapping", "exponential", "--exposure", "1"},
         "holds 16-bit float channels; the BOT file keeps 8 bits per channel (mapped exponential, exposure +1 stops)"},
        {"float.exr", OIIO::TypeDesc::FLOAT, {"--hdr-mapping", "clamp", "--exposure", "-1"},
         "(mapped clamp, exposure -1 stops)"},
    };
    for (const Tcase& c : cases) {
        SCOPED_TRACE(c.file);
        const std::string source = dir.file(c.file), bot = dir.file(std::string(c.file) + ".bot");
        writeRow(source, values, c.type);
        std::vector<std::string> args = {"bot", "convert", source, "-o", bot};
        args.insert(args.end(), c.options.begin(), c.options.end());
        const TprogramRun run = runProgram(SHADENET_CLI, args);
        ASSERT_EQ(run.status, 0) << run.err;
        const std::string warning = c.warning;
        if (warning.empty()) {
            EXPECT_EQ(run.err.find("warning"), std::string::npos) << run.err;
        } else {
            EXPECT_NE(run.err.find(warning), std::string::npos) << run.err;
            EXPECT_EQ(run.err.find("warning"), run.err.rfind("warning")) << "one warning: " << run.err;
        }
        // The top level read back against the mapping.
        const std::string top = dir.file(std::string(c.file) + ".png");
        ASSERT_EQ(runProgram(SHADENET_CLI, {"bot", "extract", bot, "-o", top}).status, 0);
        const TtestImage image = readTestImage(top);
        ASSERT_EQ(image.width, int(values.size()));
        for (size_t i = 0; i < values.size(); ++i) {
            const float v = values[i];
            float expected = std::min(v, 1.0f);  // integer sources hold 0..1
            if (c.type == OIIO::TypeDesc::HALF) expected = 1 - std::exp(-v * 2);
            if (c.type == OIIO::TypeDesc::FLOAT) expected = std::min(v * 0.5f, 1.0f);
            EXPECT_NEAR(image.at(int(i), 0), expected, 1.0f / 255 + 1e-3f) << i;
        }
    }
}
