// The shadenet program itself: nodes listings against the classes they
// describe, and check on good and bad files.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "framework/host/depend_graph.h"
#include "scene/value_codec.h"
#include "shading/shading_engine.h"
#include "support/program_run.h"
#include "support/temp_dir.h"

namespace {
TprogramRun run(const std::vector<std::string>& arguments) { return runProgram(SHADENET_CLI, arguments); }

std::vector<std::vector<std::string>> rowsOf(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::stringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::stringstream words(line);
        std::vector<std::string> row;
        for (std::string w; words >> w;) row.push_back(w);
        if (!row.empty()) rows.push_back(row);
    }
    return rows;
}

// The library's own node types: the ones the program knows too.
const char* const kLibraryTypes[] = {"objectSet", "shadingEngine", "transform"};
}  // namespace

TEST(CommandLineNodes, ListsEveryTypeWithItsTagAndFacts) {
    TprogramRun r = run({"nodes"});
    ASSERT_EQ(r.status, 0) << r.err;
    TprogramRun json = run({"nodes", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    const auto rows = rowsOf(r.out);
    TsceneJson list = TsceneJson::parse(json.out);
    ASSERT_TRUE(list.is_array());
    for (const char* name : kLibraryTypes) {
        SCOPED_TRACE(name);
        TdependNodeMetaClass* type = TdependGraph::findNodeType(name);
        ASSERT_NE(type, nullptr);
        auto row = std::find_if(rows.begin(), rows.end(), [&](const std::vector<std::string>& w) { return w[0] == name; });
        ASSERT_NE(row, rows.end());
        ASSERT_GE(row->size(), 5u);
        EXPECT_EQ((*row)[1], type->fIffTag().asString());
        EXPECT_EQ((*row)[3], type->fApiTypeName);
        EXPECT_EQ(row->back(), type->fMpSafe() ? "yes" : "no");
        auto entry = std::find_if(list.begin(), list.end(), [&](const TsceneJson& e) { return e["type"] == name; });
        ASSERT_NE(entry, list.end());
        EXPECT_EQ((*entry)["tag"], type->fIffTag().asString());
        EXPECT_EQ((*entry)["apiTypeNumber"], type->fApiType);
        EXPECT_EQ((*entry)["mpSafe"], type->fMpSafe());
    }
    // An unknown type is a usage error in this form too, with no list at all.
    TprogramRun unknown = run({"nodes", "noSuchType", "--json"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("unknown node type 'noSuchType'"), std::string::npos) << unknown.err;
    EXPECT_TRUE(unknown.out.empty());
}

TEST(CommandLineNodes, ShadingEngineShowsDefaultShadowsWithChildrenAndTags) {
    TprogramRun r = run({"nodes", "shadingEngine", "--details"});
    ASSERT_EQ(r.status, 0) << r.err;
    auto rows = rowsOf(r.out);
    const Tattribute& shadows = TDNshadingEngine::saDefaultShadows();
    ASSERT_EQ(shadows.childCount(), 8u);
    auto rowFor = [&](const Tattribute& a) -> const std::vector<std::string>* {
        for (auto& row : rows)
            if (row[0] == a.longName().str()) return &row;
        return nullptr;
    };
    const auto* root = rowFor(shadows);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ((*root)[2], "SDSL");
    for (unsigned i = 0; i < shadows.childCount(); ++i) {
        const Tattribute& c = *shadows.child(i);
        const auto* row = rowFor(c);
        ASSERT_NE(row, nullptr) << c.longName().str();
        EXPECT_EQ((*row)[1], c.shortName().str());
        EXPECT_EQ((*row)[2], c.tag().asString());
        EXPECT_EQ((*row)[3], valueTypeName(c.valueType()));
        EXPECT_EQ(row->back(), "defaultShadows");
    }

    // The JSON form lists the class's whole attribute table in order.
    TprogramRun json = run({"nodes", "shadingEngine", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    TsceneJson doc = TsceneJson::parse(json.out);
    EXPECT_EQ(doc["tag"], "SHAD");
    const TattributeList& table = TDNshadingEngine::sVsData().attributes();
    ASSERT_EQ(doc["attributes"].size(), table.length());
    for (unsigned i = 0; i < table.length(); ++i) {
        const TsceneJson& e = doc["attributes"][i];
        EXPECT_EQ(e["long"], table[i]->longName().str());
        EXPECT_EQ(e["tag"], table[i]->tag().asString());
        EXPECT_EQ(e["flagWord"], table[i]->flags());
        EXPECT_EQ(e["parent"], table[i]->parent() ? TsceneJson(table[i]->parent()->longName().str()) : TsceneJson());
    }
    auto width = std::find_if(doc["attributes"].begin(), doc["attributes"].end(),
                              [](const TsceneJson& e) { return e["long"] == "miContourWidth"; });
    ASSERT_NE(width, doc["attributes"].end());
    EXPECT_EQ((*width)["default"], 1.0);
}

TEST(CommandLineCheck, GoodFilesPassAndBadOnesNameTheirPlace) {
    const std::string example = std::string(SHADENET_SOURCE_DIR) + "/examples/basic.json";
    TprogramRun good = run({"check", example});
    EXPECT_EQ(good.status, 0) << good.err;
    EXPECT_NE(good.out.find("ok, 6 nodes, 1 connection\n"), std::string::npos) << good.out;

    TtestTempDir dir;
    const std::string bad = dir.file("bad.json");
    std::ofstream(bad) << "{\n  \"nodes\": [\n    {\"type\": \"transform\", \"name\": \"t\"},\n"
                          "    {\"type\": \"lamp\", \"name\": \"l\"}\n  ],\n"
                          "  \"connections\": [[\"t.visibility\", \"t.nothing\"]]\n}\n";
    TprogramRun r = run({"check", bad});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find(bad + ":4:14: unknown node type 'lamp'"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(bad + ":6:36: bad plug 't.nothing'"), std::string::npos) << r.err;

    TprogramRun missing = run({"check", dir.file("missing.json")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("No such file or directory"), std::string::npos);
    // One bad file among good ones fails the whole run.
    EXPECT_EQ(run({"check", example, bad}).status, 1);
}
