// shadenet compile: the program of a group in a scene file, as the user sees
// it, and clear refusals of unknown groups and options.
#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <sstream>

#include "support/program_run.h"
#include "support/temp_dir.h"

namespace {
// checker (reads the sample's uvCoord) -> multiplyDivide -> remapColor -> group.
const char* const kScene = R"({
  "format": "shadenet-scene",
  "nodes": [
    {"type": "checker", "name": "board"},
    {"type": "multiplyDivide", "name": "darken", "attributes": {"operation": 1, "input2": [0.5, 0.5, 0.5]}},
    {"type": "remapColor", "name": "pick"},
    {"type": "shadingEngine", "name": "boardSG"}
  ],
  "connections": [
    ["board.outColor", "darken.input1"],
    ["darken.output", "pick.color"],
    ["pick.outColor", "boardSG.surfaceShader"]
  ]
})";

// The index of the first line that contains all the words, or -1.
int lineWith(const std::string& text, std::initializer_list<const char*> words) {
    std::stringstream lines(text);
    int n = 0;
    for (std::string line; std::getline(lines, line); ++n) {
        bool all = true;
        for (const char* w : words) all = all && line.find(w) != std::string::npos;
        if (all) return n;
    }
    return -1;
}

std::string writeScene(TtestTempDir& dir) {
    std::string path = dir.file("board.json");
    std::ofstream(path) << kScene;
    return path;
}
}  // namespace

TEST(CompileCommand, PrintsInstructionsInDependencyOrderWithLayouts) {
    TtestTempDir dir;
    std::string scene = writeScene(dir);
    for (const char* option : {"", "surfaceColorTransparency", "kSurfaceColorTransparency", "0"}) {
        SCOPED_TRACE(option);
        std::vector<std::string> args = {"compile", scene, "boardSG"};
        if (*option) args.insert(args.end(), {"--option", option});
        TprogramRun r = shadenet(args);
        ASSERT_EQ(r.status, 0) << r.err;
        int board = lineWith(r.out, {"compute", "board", "outColor"});
        int darken = lineWith(r.out, {"compute", "darken", "output"});
        int pick = lineWith(r.out, {"compute", "pick", "outColor"});
        ASSERT_GE(board, 0) << r.out;
        EXPECT_LT(board, darken) << r.out;
        EXPECT_LT(darken, pick) << r.out;
        // The result is written into the sample records where they lie, and
        // copied there after the compute when they are not evenly spaced.
        EXPECT_GE(lineWith(r.out, {"linkSample", "pick.outColor -> sample.outColor, written in place"}), 0) << r.out;
        EXPECT_GT(lineWith(r.out, {"copy", "pick.outColor -> sample.outColor", "only when the records are not evenly spaced"}), pick)
            << r.out;
        // The checker's coordinates come from the sample.
        EXPECT_GE(lineWith(r.out, {"sample.uvCoord ->", "board."}), 0) << r.out;
        EXPECT_GE(lineWith(r.out, {"segments: 1"}), 0) << r.out;
        EXPECT_GE(lineWith(r.out, {"block", "darken: element"}), 0) << r.out;
        EXPECT_GE(lineWith(r.out, {"uvCoord at"}), 0) << r.out;
        EXPECT_GE(lineWith(r.out, {"outColor at"}), 0) << r.out;
        EXPECT_EQ(lineWith(r.out, {"outTransparency at"}), -1) << r.out;
    }
}

// Every instruction of a real scene's programs, lit materials included,
// prints under its opcode's name.
TEST(CompileCommand, EveryInstructionOfTheShowcaseHasANamedOpcode) {
    TtestTempDir dir;
    const std::string scene = std::string(SHADENET_SOURCE_DIR) + "/examples/showcase.json";
    bool sawLights = false;
    for (const char* group : {"floorSG", "wallSG", "ballSG", "chromeSG", "crateSG", "poolSG", "gemSG"}) {
        SCOPED_TRACE(group);
        TprogramRun r = shadenet({"compile", scene, group});
        ASSERT_EQ(r.status, 0) << r.err;
        std::stringstream lines(r.out);
        int instructions = 0;
        for (std::string line; std::getline(lines, line);) {
            std::stringstream words(line);
            unsigned index;
            std::string opcode;
            if (line.rfind("  ", 0) != 0 || !(words >> index >> opcode)) continue;
            ++instructions;
            EXPECT_TRUE(opcode != "?" && !(opcode.size() > 2 && opcode.rfind("op", 0) == 0 && std::isdigit(opcode[2])))
                << line;
            sawLights = sawLights || opcode == "lightArray";
        }
        EXPECT_GT(instructions, 0) << r.out;
    }
    EXPECT_TRUE(sawLights);
}

TEST(CompileCommand, RefusesUnknownGroupsAndOptionsAndSaysWhenNothingShades) {
    TtestTempDir dir;
    std::string scene = writeScene(dir);
    struct {
        std::vector<std::string> arguments;
        int status;
        const char* message;  // on stderr, or stdout for a success
    } cases[] = {
        {{"compile", scene, "noSuchSG"}, 2, "no shading group named 'noSuchSG'"},
        {{"compile", scene, "darken"}, 2, "not a shading group"},
        {{"compile", scene, "boardSG", "--option", "sideways"}, 2, "unknown option 'sideways'"},
        {{"compile", dir.file("missing.json"), "boardSG"}, 1, "missing.json"},
        {{"compile", scene, "boardSG", "--option", "volumeColorTransparency"}, 0, "nothing to shade"},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.message);
        TprogramRun r = shadenet(c.arguments);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE((c.status ? r.err : r.out).find(c.message), std::string::npos) << r.out << r.err;
        EXPECT_EQ(r.out.find("instructions:"), std::string::npos);
    }
}
