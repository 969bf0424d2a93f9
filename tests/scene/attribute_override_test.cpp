// NODE.ATTR=VALUE edits: each one lands exactly as the same value written in
// a scene file would, and is refused with the file's own message otherwise.
#include <gtest/gtest.h>

#include "framework/host/depend_graph.h"
#include "scene/attribute_override.h"
#include "scene/scene_loader.h"
#include "scene/scene_test_node.h"
#include "scene/scene_writer.h"

namespace {
// The graph a file with one node "n" holding `attributes` loads into; false
// with the loader's first message when the file is refused.
bool loadFile(const std::string& attributes, TdependGraph& graph, std::string& message) {
    TsceneLoader loader;
    if (loader.loadText(sceneTestNodeFile(attributes), "f", graph)) return true;
    message = loader.errors().front().message;
    return false;
}
}  // namespace

TEST(AttributeOverride, SplitsNodeAttributeAndValueOrSaysWhatIsMissing) {
    struct Case {
        const char* text;
        bool ok;
        const char* node;
        const char* attribute;
        const char* value;  // or the reason when refused
    };
    const Case cases[] = {
        {"n.gain=0.5", true, "n", "gain", "0.5"},
        {"n.layer.layerOpacity=1", true, "n", "layer.layerOpacity", "1"},  // the first dot splits
        {"n.fileName=a=b.png", true, "n", "fileName", "a=b.png"},           // the first '=' splits
        {"n.color=[1, 0, 0]", true, "n", "color", "[1, 0, 0]"},
        {"ngain=1", false, "", "", "expected NODE.ATTRIBUTE=VALUE"},
        {"n.gain", false, "", "", "expected NODE.ATTRIBUTE=VALUE"},
        {"n=x.y", false, "", "", "expected NODE.ATTRIBUTE=VALUE"},
        {".gain=1", false, "", "", "no node name before '.'"},
        {"n.=1", false, "", "", "no attribute name between '.' and '='"},
        {"n.gain= ", false, "", "", "no value after '='"},
    };
    for (const Case& c : cases) {
        TattributeOverride parsed;
        std::string why;
        ASSERT_EQ(parseAttributeOverride(c.text, parsed, why), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(parsed.node, c.node) << c.text;
            EXPECT_EQ(parsed.attribute, c.attribute) << c.text;
            EXPECT_EQ(parsed.value, c.value) << c.text;
        } else {
            EXPECT_EQ(why, c.value) << c.text;
        }
    }
}

// Each edit against the same value in a file: an accepted one must give the
// text the file gives once saved, a refused one the file's message.
TEST(AttributeOverride, AgreesWithTheSameValueInAFile) {
    struct Case {
        const char* attribute;
        const char* value;      // as given after '='
        const char* fileValue;  // the same value written in a file
    };
    const Case cases[] = {
        {"gain", "0.25", "0.25"},
        {"g", "-3", "-3"},  // short name
        {"steps", "12", "12"},
        {"enabled", "false", "false"},
        {"mode", "screen", "\"screen\""},  // a bare word is a string
        {"mode", "7", "7"},
        {"fileName", "maps/wood 2.png", "\"maps/wood 2.png\""},
        {"fileName", "\"quoted\"", "\"quoted\""},
        {"color", "[1, 0.5, 0]", "[1, 0.5, 0]"},
        {"color", "{\"colorG\": 0.75}", "{\"colorG\": 0.75}"},
        {"colorB", "0.125", "0.125"},
        {"layerOpacity", "0.5", "0.5"},  // a child of a plain compound on its own
        {"values", "{\"3\": 2.5}", "{\"3\": 2.5}"},
        {"layer", "{\"layerOpacity\": 0.5}", "{\"layerOpacity\": 0.5}"},
        // Refused, each for its own reason.
        {"gian", "1", "1"},
        {"gain", "loud", "\"loud\""},
        {"steps", "1e9", "1e9"},
        {"gain", "1e400", "1e400"},  // JSON but for its size: refused as a number, not read as a word
        {"mode", "divide", "\"divide\""},
        {"color", "[1, 2]", "[1, 2]"},
        {"outValue", "1", "1"},
        {"scratch", "1", "1"},
        {"values", "true", "true"},
    };
    for (const Case& c : cases) {
        const std::string text = std::string("n.") + c.attribute + "=" + c.value;
        TdependGraph fromFile, edited;
        std::string fileMessage;
        const bool fileOk = loadFile(std::string("\"") + c.attribute + "\": " + c.fileValue, fromFile, fileMessage);
        ASSERT_TRUE(loadFile("", edited, fileMessage) || !fileOk) << text;
        std::vector<std::string> errors;
        const bool ok = applyAttributeOverrides(edited, {text}, "--set", errors);
        ASSERT_EQ(ok, fileOk) << text << (errors.empty() ? "" : errors[0]);
        if (ok) {
            EXPECT_EQ(TsceneWriter::toText(edited), TsceneWriter::toText(fromFile)) << text;
        } else {
            ASSERT_EQ(errors.size(), 1u) << text;
            EXPECT_EQ(errors[0], "--set " + text + ": " + fileMessage);
        }
    }
}

TEST(AttributeOverride, RefusedEditsChangeNothingAndEveryProblemIsReported) {
    TdependGraph graph;
    std::string message;
    ASSERT_TRUE(loadFile("\"color\": [0.1, 0.2, 0.3]", graph, message)) << message;
    const std::string before = TsceneWriter::toText(graph);
    std::vector<std::string> errors;
    // The first two children of the array are fine; the third is not.
    EXPECT_FALSE(applyAttributeOverrides(graph,
                                         {"n.color=[0.9, 0.9, \"x\"]", "m.gain=1", "n.values={\"0\": 1, \"b\": 2}", "nonsense"},
                                         "--set", errors));
    EXPECT_EQ(TsceneWriter::toText(graph), before);
    ASSERT_EQ(errors.size(), 4u);
    EXPECT_EQ(errors[1], "--set m.gain=1: no node named 'm' in the scene");
    EXPECT_EQ(errors[3], "--set nonsense: expected NODE.ATTRIBUTE=VALUE");

    // Later edits of the same attribute win, as on a command line.
    errors.clear();
    EXPECT_TRUE(applyAttributeOverrides(graph, {"n.gain=2", "n.gain=3"}, "--set", errors));
    float gain = 0;
    graph.findNode("n")->getAttributeValue(graph.findNode("n")->attribute("gain"), &gain, 0);
    EXPECT_EQ(gain, 3.0f);
}
