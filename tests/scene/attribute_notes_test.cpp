// Attribute notes: what nodes TYPE and the Python module tell a scene author.
// A type without notes still describes every attribute; a noted compound
// lends its unit and range to its children; a later note refines an earlier.
#include <gtest/gtest.h>

#include <sstream>

#include "framework/attribute_notes.h"
#include "framework/host/depend_graph.h"
#include "scene/scene_test_node.h"
#include "support/program_run.h"

namespace {
// Registered once for the test node, as a class file would: the family note
// first, then a refinement of one of its attributes.
const TattributeNotes kFamily{{"sceneTestNode"},
                              {{"gain", "Family gain", "stops", "0..4"},
                               {"color", "Tint", "colour", "0..1"},
                               {"notAnAttribute", "Ignored", "", ""}}};
const TattributeNotes kRefined{{"sceneTestNode"}, {{"gain", "Refined gain", "", ""}}};

const Tattribute& attributeOf(TdependNodeMetaClass& type, const char* name) {
    const TattributeList& list = type.fVs().attributes();
    for (unsigned i = 0; i < list.length(); ++i)
        if (list[i]->longName() == name) return *list[i];
    ADD_FAILURE() << name;
    return *list[0];
}

}  // namespace

TEST(AttributeNotes, NotesRefineAndChildrenShareTheirParentsUnitAndRange) {
    TdependNodeMetaClass* type = TdependGraph::findNodeType("sceneTestNode");
    ASSERT_NE(type, nullptr);
    if (type->fInitialize) type->fInitialize();
    struct Case {
        const char* attribute;
        const char* description;
        const char* unit;
        const char* range;
    };
    const Case cases[] = {
        // The refinement's empty unit and range do not fall back to the family's.
        {"gain", "Refined gain", "-", "-"},
        {"color", "Tint", "colour", "0..1"},
        {"colorG", "part of color", "colour", "0..1"},
        {"weight", "-", "-", "-"},
    };
    for (const Case& c : cases) {
        TattributeDescription d = describeAttribute(*type, attributeOf(*type, c.attribute));
        EXPECT_EQ(d.description, c.description) << c.attribute;
        EXPECT_EQ(d.unit, c.unit) << c.attribute;
        EXPECT_EQ(d.range, c.range) << c.attribute;
    }
}

TEST(AttributeNotes, TypesWithoutNotesStillListEveryAttributeWithItsSoftRange) {
    // Every registered type: one row per attribute, and where no note gives
    // a range the attribute's own soft range, written from its limits.
    for (TdependNodeMetaClass* type : TdependGraph::nodeTypes()) {
        if (type->fInitialize) type->fInitialize();
        const TattributeList& list = type->fVs().attributes();
        for (unsigned i = 0; i < list.length(); ++i) {
            const Tattribute& a = *list[i];
            TattributeDescription d = describeAttribute(*type, a);
            EXPECT_FALSE(d.description.empty() || d.unit.empty() || d.range.empty()) << type->fTypeName().str();
            if (d.description == "-" && (a.hasSoftMin() || a.hasSoftMax())) {
                std::ostringstream want;
                if (a.hasSoftMin()) want << a.softMin();
                want << "..";
                if (a.hasSoftMax()) want << a.softMax();
                EXPECT_EQ(d.range, want.str()) << type->fTypeName().str() << "." << a.longName().str();
            }
        }
    }
}

TEST(AttributeNotes, NodesCommandShowsMeaningUnitAndRange) {
    const std::string text = runProgram(SHADENET_CLI, {"nodes", "spotLight"}).out;
    std::stringstream lines(text);
    bool cone = false, child = false;
    for (std::string line; std::getline(lines, line);) {
        std::stringstream words(line);
        std::vector<std::string> row;
        for (std::string w; words >> w;) row.push_back(w);
        if (row.size() < 7) continue;
        if (row[0] == "coneAngle") {
            cone = true;
            EXPECT_EQ(row[2], "doubleAngle");
            EXPECT_EQ(row[4], "radians");
            EXPECT_EQ(row[5], "0..pi");
            EXPECT_NE(line.find("Full angle of the cone"), std::string::npos) << line;
        }
        if (row[0] == "colorR") {
            child = true;
            EXPECT_EQ(row[4], "colour");
            EXPECT_NE(line.find("part of color"), std::string::npos) << line;
        }
    }
    EXPECT_TRUE(cone && child) << text;
}
