// Files that are not scenes at all or that would exhaust the loader: each is
// refused with a message and a place, and the graph stays empty.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "framework/host/depend_graph.h"
#include "scene/scene_loader.h"
#include "support/temp_dir.h"

namespace {
std::string repeated(const std::string& s, unsigned n) {
    std::string out;
    for (unsigned i = 0; i < n; ++i) out += s;
    return out;
}

// `depth` arrays nested as the value of "nodes", inside the top object.
std::string nested(unsigned depth) { return "{\"nodes\": " + repeated("[", depth) + repeated("]", depth) + "}"; }

bool mentionsDepth(const std::vector<TsceneError>& errors) {
    return std::any_of(errors.begin(), errors.end(), [](const TsceneError& e) { return e.message.find("nested deeper") != std::string::npos; });
}
}  // namespace

TEST(SceneLimits, NestingPastTheLimitIsRefusedAtTheBracketThatCrossesIt) {
    const unsigned limit = TsceneLoader::kMaxDepth;
    struct Case {
        std::string text;
        bool tooDeep;
        unsigned column;  // of the first bracket past the limit (line 1)
    };
    // The top object is one level, so "nodes" may hold limit - 1 arrays.
    const Case cases[] = {
        {nested(limit - 1), false, 0},
        {nested(limit), true, unsigned(std::string("{\"nodes\": ").size() + limit)},
        {nested(100000), true, unsigned(std::string("{\"nodes\": ").size() + limit)},
        // Brackets inside strings are text, not nesting.
        {"{\"nodes\": [{\"type\": \"transform\", \"name\": \"" + repeated("[{", 400) + "\"}]}", false, 0},
        {repeated("{\"a\": ", 100000), true, unsigned(limit * 6 + 1)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 60));
        TdependGraph graph;
        TsceneLoader loader;
        EXPECT_FALSE(loader.loadText(c.text, "deep.json", graph));  // none is a valid scene
        ASSERT_FALSE(loader.errors().empty());
        EXPECT_EQ(mentionsDepth(loader.errors()), c.tooDeep) << loader.errors()[0].text();
        if (c.tooDeep) {
            ASSERT_EQ(loader.errors().size(), 1u);
            EXPECT_EQ(loader.errors()[0].line, 1u);
            EXPECT_EQ(loader.errors()[0].column, c.column);
        }
        EXPECT_TRUE(graph.nodes().empty());
    }
}

TEST(SceneLimits, FoldersAndEmptyFilesAreNamedAsSuch) {
    TtestTempDir dir;
    std::filesystem::create_directories(dir.file("folder.json"));
    std::ofstream(dir.file("empty.json")) << " \n\t\n";
    struct Case {
        std::string path, message;
    };
    const Case cases[] = {
        {dir.file("folder.json"), "is a folder, not a scene file"},
        {dir.file("empty.json"), "the file is empty"},
        {dir.file("missing.json"), "cannot open the file"},
    };
    for (const Case& c : cases) {
        TdependGraph graph;
        TsceneLoader loader;
        EXPECT_FALSE(loader.load(c.path, graph));
        ASSERT_EQ(loader.errors().size(), 1u) << c.path;
        EXPECT_EQ(loader.errors()[0].file, c.path);
        EXPECT_NE(loader.errors()[0].message.find(c.message), std::string::npos) << loader.errors()[0].text();
        // No line or column: the fault is the file's, not a place in it.
        EXPECT_EQ(loader.errors()[0].text(), c.path + ": " + loader.errors()[0].message);
    }
}
