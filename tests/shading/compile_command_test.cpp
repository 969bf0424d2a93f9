// shadenet compile: the program of a group in a scene file, as the user sees
// it, and clear refusals of unknown groups and options.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cctype>
#include <fstream>
#include <sstream>

#include "support/temp_dir.h"

namespace {
struct ProgramRun {
    int status = -1;
    std::string out, err;
};

std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

ProgramRun run(TtestTempDir& dir, const std::string& arguments) {
    const std::string out = dir.file("out.txt"), err = dir.file("err.txt");
    const std::string command = std::string("'") + SHADENET_CLI + "' " + arguments + " >'" + out + "' 2>'" + err + "'";
    int raw = std::system(command.c_str());
    ProgramRun r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = slurp(out);
    r.err = slurp(err);
    return r;
}

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
    for (const char* option : {"", " --option surfaceColorTransparency", " --option kSurfaceColorTransparency", " --option 0"}) {
        SCOPED_TRACE(option);
        ProgramRun r = run(dir, "compile '" + scene + "' boardSG" + option);
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
        ProgramRun r = run(dir, "compile '" + scene + "' " + group);
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

TEST(CompileCommand, RefusesUnknownGroupsAndOptions) {
    TtestTempDir dir;
    std::string scene = writeScene(dir);
    struct {
        std::string arguments;
        int status;
        const char* message;
    } cases[] = {
        {"compile '" + scene + "' noSuchSG", 2, "no shading group named 'noSuchSG'"},
        {"compile '" + scene + "' darken", 2, "not a shading group"},
        {"compile '" + scene + "' boardSG --option sideways", 2, "unknown option 'sideways'"},
        {"compile '" + dir.file("missing.json") + "' boardSG", 1, "missing.json"},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        ProgramRun r = run(dir, c.arguments);
        EXPECT_EQ(r.status, c.status);
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_EQ(r.out.find("instructions:"), std::string::npos);
    }
}

TEST(CompileCommand, AnOptionNoNetworkAnswersSaysSo) {
    TtestTempDir dir;
    ProgramRun r = run(dir, "compile '" + writeScene(dir) + "' boardSG --option volumeColorTransparency");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("nothing to shade"), std::string::npos) << r.out;
}
