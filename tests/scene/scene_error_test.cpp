// Scene files with problems: each kind of problem is reported with the line
// and column of the value at fault, and the graph loaded into is untouched.
#include <gtest/gtest.h>

#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"
#include "scene/json_positions.h"
#include "scene/scene_loader.h"
#include "scene/scene_test_node.h"
#include "scene/scene_writer.h"

namespace {
// The line and column of the first character of `marker` in `text`, or of
// the end of the text for an empty marker, found independently of the
// loader's own bookkeeping.
std::pair<unsigned, unsigned> placeOf(const std::string& text, const std::string& marker, size_t occurrence = 0) {
    size_t at = marker.empty() ? text.size() : text.find(marker);
    for (size_t i = 0; i < occurrence && at != std::string::npos; ++i) at = text.find(marker, at + 1);
    EXPECT_NE(at, std::string::npos) << marker;
    unsigned line = 1, column = 1;
    for (size_t i = 0; i < at; ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return {line, column};
}

// A graph that already holds something, to check that failures leave it be.
struct Populated {
    TdependGraph graph;
    std::string before;
    Populated() {
        TdependNode* existing = graph.createNode("sceneTestNode", "existing");
        float gain = 4;
        existing->setAttributeValue(&TsceneTestNode::saGain(), &gain);
        graph.createNode("transform", "holder");
        before = TsceneWriter::toText(graph);
    }
};

struct Case {
    const char* what;
    std::string text;
    std::string marker;  // where the error must point
    std::string message; // a part of the message
    size_t occurrence = 0;
};

std::string node(const std::string& body) { return "    {" + body + "}"; }
std::string scene(const std::vector<std::string>& nodes, const std::string& connections = "") {
    std::string text = "{\n  \"format\": \"shadenet-scene\",\n  \"nodes\": [\n";
    for (size_t i = 0; i < nodes.size(); ++i) text += nodes[i] + (i + 1 < nodes.size() ? ",\n" : "\n");
    text += "  ]";
    if (!connections.empty()) text += ",\n  \"connections\": [\n" + connections + "\n  ]";
    return text + "\n}\n";
}
const std::string kTwo = R"("type": "sceneTestNode", "name": "a")";
const std::string kB = R"("type": "sceneTestNode", "name": "b")";

void expectRejected(const Case& c) {
    SCOPED_TRACE(c.what);
    Populated p;
    TsceneLoader loader;
    EXPECT_FALSE(loader.loadText(c.text, "bad.json", p.graph));
    ASSERT_FALSE(loader.errors().empty());
    const TsceneError& e = loader.errors()[0];
    auto [line, column] = placeOf(c.text, c.marker, c.occurrence);
    EXPECT_EQ(e.file, "bad.json");
    EXPECT_EQ(e.line, line) << e.text();
    EXPECT_EQ(e.column, column) << e.text();
    EXPECT_NE(e.message.find(c.message), std::string::npos) << e.text();
    EXPECT_EQ(e.text(), "bad.json:" + std::to_string(line) + ":" + std::to_string(column) + ": " + e.message);
    // Nothing of the file reached the graph.
    EXPECT_EQ(p.graph.nodeCount(), 2u);
    EXPECT_EQ(TsceneWriter::toText(p.graph), p.before);
    EXPECT_TRUE(loader.nodes().empty());
}
}  // namespace

TEST(SceneErrors, MalformedJsonPointsAtTheOffendingCharacter) {
    const Case cases[] = {
        {"missing comma", "{\n  \"nodes\": [\n    {\"type\": \"transform\" \"name\": \"x\"}\n  ]\n}\n", "\"name\"",
         "malformed JSON"},
        {"bad literal", "{\"nodes\": [\n  tru\n]}", "\n]", "invalid literal"},
        {"cut short", "{\"nodes\": [\n", "", "unexpected end of input"},
        {"trailing comma", "{\"nodes\": [],\n}", "}", "malformed JSON"},
        {"duplicate key", "{\"nodes\": [\n  {\"type\": \"transform\", \"name\": \"x\",\n   \"name\": \"y\"}]}", "\"name\"",
         "duplicate key 'name'", 1},
        {"duplicate key spelled with an escape", "{\"nodes\": [], \"n\\u006fdes\": []}", "\"n\\u", "duplicate key 'nodes'"},
        {"number beyond a double", "{\"nodes\": [\n  {\"type\": \"transform\", \"name\": \"x\", \"attributes\": {\"tx\": -1e400}}]}",
         "-1e400", "the number -1e400 is beyond the range of a double"},
    };
    for (const Case& c : cases) expectRejected(c);
}

TEST(SceneErrors, NodesTypesAndNames) {
    const Case cases[] = {
        {"unknown type", scene({node(R"("type": "noSuchType", "name": "x")")}), "\"noSuchType\"", "unknown node type 'noSuchType'"},
        {"duplicate name in the file", scene({node(kTwo), node(R"("type": "transform", "name": "a")")}), "\"a\"",
         "duplicate node name 'a' (first used at line 4)", 1},
        {"name taken in the graph", scene({node(R"("type": "transform", "name": "existing")")}), "\"existing\"",
         "a node named 'existing' already exists in the graph"},
        {"bad name", scene({node(R"("type": "transform", "name": "a.b")")}), "\"a.b\"", "bad node name 'a.b'"},
        {"missing type", scene({node(R"("name": "x")")}), "{\"name\"", "a node needs a \"type\""},
        {"type not a string", scene({node(R"("type": 3, "name": "x")")}), "3", "'type' must be a string, not a whole number"},
        {"unknown key in a node", scene({node(R"("type": "transform", "name": "x", "atributes": {})")}), "\"atributes\"",
         "unknown key 'atributes'"},
        {"unknown top-level key", "{\"nodes\": [], \"conections\": []}", "\"conections\"", "unknown key 'conections'"},
        {"newer version", "{\"version\": 2, \"nodes\": []}", "2", "version 2 is newer"},
        {"wrong format", "{\"format\": \"other\", \"nodes\": []}", "\"other\"", "'format' must be \"shadenet-scene\""},
        {"not an object", "[1, 2]", "[", "a scene file holds one JSON object"},
    };
    for (const Case& c : cases) expectRejected(c);
}

TEST(SceneErrors, AttributeValues) {
    auto with = [](const std::string& attributes) { return scene({node(kTwo + R"(, "attributes": {)" + attributes + "}")}); };
    const Case cases[] = {
        {"unknown attribute", with(R"("gain": 1, "gian": 2)"), "\"gian\"", "node 'a' of type 'sceneTestNode' has no attribute 'gian'"},
        {"one attribute by both its names", with(R"("gain": 1, "g": 2)"), "\"g\"", "'g' and 'gain' name the same attribute 'a.gain'"},
        {"string for a number", with(R"("gain": "loud")"), "\"loud\"", "'a.gain' (float) takes a number, not a string"},
        {"number for a string", with(R"("fileName": 3)"), "3", "'a.fileName' (string) takes a string"},
        {"fraction for a whole number", with(R"("steps": 2.5)"), "2.5", "takes a whole number, not 2.5"},
        {"out of range", with(R"("level": 300)"), "300", "out of range -128..127"},
        {"unknown enum field", with(R"("mode": "overlay")"), "\"overlay\"", "has no field 'overlay' (fields: add=0, multiply=3, screen=7)"},
        {"compound of the wrong size", with(R"("color": [1, 2])"), "[1, 2]", "'a.color' has 3 children and takes an array of 3 values"},
        {"unknown child", with(R"("color": {"colorR": 1, "colorA": 1})"), "\"colorA\"", "'a.color' has no child 'colorA'"},
        {"bad child value deep in a multi", with(R"("ramp": {"2": {"rampG": 0.5, "rampB": "x"}})"), "\"x\"",
         "'a.ramp[2].rampB' (float) takes a number"},
        {"bad element index", with(R"("values": {"-1": 3})"), "\"-1\"", "element index '-1' is not a whole number"},
        {"one element by two indices", with(R"("values": {"1": 3, "2": 4, "01": 5})"), "\"01\"",
         "'a.values' is a multi: element indices '01' and '1' name the same element 1; give it once"},
        {"multi given a number", with(R"("values": 3)"), "3", "is a multi and takes an object of index to value or an array"},
        {"child of a multi outside an element", with(R"("rampR": 1)"), "\"rampR\"", "lies in the multi 'ramp'"},
        {"computed output", with(R"("outValue": 1)"), "1", "'a.outValue' is a computed output and cannot be given a value"},
        {"not stored", with(R"("scratch": 1)"), "1", "'a.scratch' is not stored in scene files"},
        {"port without a value", with(R"("input": 1)"), "1", "which has no value in a scene file"},
        {"matrix row too short", with(R"("placement": [[1,0,0,0],[0,1,0],[0,0,1,0],[0,0,0,1]])"), "[[1", "row 1 takes an array of 4 numbers"},
        {"attributes not an object", scene({node(kTwo + R"(, "attributes": [1])")}), "[1]", "'attributes' must be an object"},
    };
    for (const Case& c : cases) expectRejected(c);
}

TEST(SceneErrors, ConnectionsCarryTheGraphsReason) {
    auto with = [](const std::string& pair) { return scene({node(kTwo), node(kB)}, "    " + pair); };
    const Case cases[] = {
        {"into a computed output", with(R"(["a.gain", "b.outValue"])"), "[\"a.gain\"",
         "cannot connect 'a.gain' to 'b.outValue': the destination attribute is not writable"},
        {"incompatible types", with(R"(["a.fileName", "b.gain"])"), "[\"a.fileName\"", "the attribute types are not compatible"},
        {"array source without an index", with(R"(["a.values", "b.gain"])"), "[\"a.values\"", "an array source needs an element index"},
        {"second source", with("[\"a.gain\", \"b.weight\"],\n    [\"a.steps\", \"b.weight\"]"), "[\"a.steps\"",
         "the destination already has an incoming connection"},
        {"child under a connected parent", with("[\"a.color\", \"b.color\"],\n    [\"a.gain\", \"b.colorR\"]"), "[\"a.gain\"",
         "already has an incoming connection"},
        {"unknown node", with(R"(["a.gain", "c.gain"])"), "\"c.gain\"", "bad plug 'c.gain': no node named 'c'"},
        {"unknown attribute", with(R"(["a.gian", "b.gain"])"), "\"a.gian\"", "bad plug 'a.gian': node 'a' has no attribute 'gian'"},
        {"not a pair", with(R"(["a.gain"])"), "[\"a.gain\"]", "a connection is a pair"},
    };
    for (const Case& c : cases) expectRejected(c);
}

TEST(SceneErrors, ParentsAndMembers) {
    const std::string transformX = R"("type": "transform", "name": "x")";
    const Case cases[] = {
        {"unknown parent", scene({node(R"("type": "transform", "name": "x", "parent": "nobody")")}), "\"nobody\"",
         "unknown parent 'nobody'"},
        {"parent not a DAG node", scene({node(kTwo), node(R"("type": "transform", "name": "x", "parent": ["a"])")}), "\"a\"]",
         "parent 'a' is a sceneTestNode, not a DAG node"},
        {"child not a DAG node", scene({node(transformX), node(kTwo + R"(, "parent": "x")")}), "\"x\"}",
         "'a' is a sceneTestNode, not a DAG node, and cannot have a parent", 1},
        {"cycle", scene({node(R"("type": "transform", "name": "x", "parent": "y")"), node(R"("type": "transform", "name": "y", "parent": "x")")}),
         "\"x\"}", "would make a cycle"},
        {"parent listed twice", scene({node(transformX), node(R"("type": "transform", "name": "y", "parent": ["x", "x"])")}),
         "\"x\"]", "listed twice"},
        {"unknown member", scene({node(R"("type": "objectSet", "name": "s", "members": ["ghost"])")}), "\"ghost\"",
         "unknown member 'ghost'"},
        {"member path off the hierarchy", scene({node(transformX), node(R"("type": "transform", "name": "y")"),
                                                 node(R"("type": "objectSet", "name": "s", "members": ["|x|y"])")}),
         "\"|x|y\"", "'y' is not a child of 'x'"},
        {"member path not from the top", scene({node(transformX), node(R"("type": "transform", "name": "y", "parent": "x")"),
                                                node(R"("type": "objectSet", "name": "s", "members": ["|y"])")}),
         "\"|y\"", "'y' is not at the top of the hierarchy"},
        {"instanced member named without a path",
         scene({node(transformX), node(R"("type": "transform", "name": "y")"),
                node(R"("type": "transform", "name": "z", "parent": ["x", "y"])"),
                node(R"("type": "shadingEngine", "name": "s", "members": ["z"])")}),
         "\"z\"]", "member 'z' has 2 instances; name one by its path (|x|z)"},
        {"member not a DAG object", scene({node(kTwo), node(R"("type": "objectSet", "name": "s", "members": ["a"])")}), "\"a\"]",
         "member 'a' is a sceneTestNode, not a DAG object"},
        {"members on a node that is not a set", scene({node(R"("type": "transform", "name": "x", "members": [])")}), "[]",
         "'x' is a transform, not a set, and cannot have members"},
        {"member listed twice", scene({node(transformX), node(R"("type": "objectSet", "name": "s", "members": ["x", "|x"])")}),
         "\"|x\"", "member '|x' is listed twice"},
    };
    for (const Case& c : cases) expectRejected(c);
}

TEST(SceneErrors, EveryProblemIsReportedOnceInFileOrder) {
    const std::string text = scene({node(R"("type": "noSuchType", "name": "ghost")"),
                                    node(kTwo + R"(, "attributes": {"gain": "x", "mode": "nope"})"),
                                    node(R"("type": "transform", "name": "t", "parent": "ghost")")},
                                   R"(    ["ghost.out", "a.gain"], ["a.gain", "a.outValue"])");
    Populated p;
    TsceneLoader loader;
    ASSERT_FALSE(loader.loadText(text, "many.json", p.graph));
    // The node that could not be made is not reported again where it is used.
    ASSERT_EQ(loader.errors().size(), 4u);
    const char* expected[] = {"unknown node type", "'a.gain' (float)", "'a.mode' (enum)", "cannot connect 'a.gain' to 'a.outValue'"};
    for (size_t i = 0; i < 4; ++i) EXPECT_NE(loader.errors()[i].message.find(expected[i]), std::string::npos) << loader.errors()[i].text();
    for (size_t i = 1; i < loader.errors().size(); ++i)
        EXPECT_LE(loader.errors()[i - 1].line, loader.errors()[i].line);
    EXPECT_EQ(TsceneWriter::toText(p.graph), p.before);

    // Loading a good file afterwards works and forgets the old problems.
    ASSERT_TRUE(loader.loadText(scene({node(kTwo)}), "good.json", p.graph));
    EXPECT_TRUE(loader.errors().empty());
    EXPECT_EQ(p.graph.nodeCount(), 3u);
}

TEST(JsonPositions, EveryValueAndKeyIsWhereTheTextHasIt) {
    const std::string text = "\xEF\xBB\xBF{\"a\": [1, {\"b\\\"c\": true}],\r\n\t\"d\": \"x\\\\\",\n \"e\": null}";
    TjsonPositions root;
    ASSERT_TRUE(TjsonPositions::index(text, root));
    auto expectAt = [&](const TtextPosition& p, const std::string& marker) {
        auto [line, column] = placeOf(text, marker);
        EXPECT_EQ(p.line, line) << marker;
        EXPECT_EQ(p.column, column) << marker;
    };
    expectAt(root.at, "{\"a\"");
    ASSERT_EQ(root.items.size(), 3u);
    EXPECT_EQ(root.names, (std::vector<std::string>{"a", "d", "e"}));
    expectAt(root.keys[1], "\"d\"");
    expectAt(root.items[0].at, "[1");
    expectAt(root.items[0].items[0].at, "1,");
    expectAt(root.items[0].items[1].at, "{\"b");
    EXPECT_EQ(root.items[0].items[1].names[0], "b\"c");
    expectAt(root.items[0].items[1].items[0].at, "true");
    expectAt(root.items[1].at, "\"x");
    expectAt(root.items[2].at, "null");

    TtextPosition duplicateAt;
    std::string key;
    const std::string twice = "{\"k\": 1,\n \"\\u006b\": 2}";
    EXPECT_FALSE(TjsonPositions::index(twice, root, &duplicateAt, &key));
    EXPECT_EQ(key, "k");
    EXPECT_EQ(duplicateAt.line, 2u);
    EXPECT_EQ(duplicateAt.column, 2u);

    // Offsets to places, across lines, and clamped at the end.
    EXPECT_EQ(textPositionOf("ab\ncd", 4).line, 2u);
    EXPECT_EQ(textPositionOf("ab\ncd", 4).column, 2u);
    EXPECT_EQ(textPositionOf("ab\ncd", 99).column, 3u);
}
