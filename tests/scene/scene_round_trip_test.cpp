// Scene files: what is written reads back to the same graph and the same
// text, and only what differs from the defaults is written.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <random>
#include <set>

#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"
#include "scene/plug_text.h"
#include "scene/scene_loader.h"
#include "scene/scene_paths.h"
#include "scene/scene_test_node.h"
#include "scene/scene_writer.h"
#include "scene/value_codec.h"
#include "shading/shading_engine.h"
#include "support/temp_dir.h"

namespace {
using T = TsceneTestNode;

template <typename V>
void set(TdependNode* node, const Tattribute& a, V value, unsigned index = 0) {
    ASSERT_TRUE(node->setAttributeValue(&a, &value, index)) << a.longName().str();
}

void connect(TdependGraph& graph, const std::string& from, const std::string& to) {
    Tplug source, destination;
    ASSERT_TRUE(graph.findPlug(from, source)) << from;
    ASSERT_TRUE(graph.findPlug(to, destination)) << to;
    ASSERT_EQ(graph.connect(source, destination), TconnectStatus::kOk) << from << " -> " << to;
}

TdagNode* dag(TdependGraph& graph, const char* name) {
    return static_cast<TdagNode*>(graph.findNode(name)->cast(TdagNode::sMetaclass()));
}

// A graph with a value of every kind away from its default, elements with
// gaps, an element left at its default, connections into plain, child and
// element plugs, an instanced hierarchy and two sets.
void buildRichGraph(TdependGraph& graph) {
    TdependNode* a = graph.createNode("sceneTestNode", "alpha");
    TdependNode* b = graph.createNode("sceneTestNode", "beta");
    set(a, T::saGain(), 0.1f);
    set(a, T::saWeight(), -2.75e-7);
    set(a, T::saSteps(), int16_t(-1234));
    set(a, T::saSeed(), int32_t(2000000001));
    set(a, T::saLevel(), int8_t(-7));
    set(a, T::saEnabled(), false);
    set(a, T::saMode(), int16_t(7));
    set(a, T::saFileName(), Tstring("textures/wood \"oak\".png"));
    Tmatrix m = Tmatrix::translation(1, 2, 3) * Tmatrix::scaling(0.5, 0.25, 2);
    set(a, T::saPlacement(), m);
    TfltMatrix uv = TfltMatrix::scaling(2, 3, 1);
    uv.m[3][0] = 0.3f;
    set(a, T::saUvMatrix(), uv);
    set(a, T::saColor(), T3Float(0.9f, 0.1f, 0.3f));
    set(a, T::saValues(), 1.5f, 0);
    set(a, T::saValues(), 0.0f, 2);  // at its default: its being there still counts
    set(a, T::saValues(), -3.0f, 9);
    set(a, T::saValues(), 7.0f, 1234567890);  // an index of ten digits, as a connection may name
    set(a, T::saRamp(), T3Float(1, 0, 0), 0);
    set(a, T::saRampG(), 0.5f, 4);
    set(a, T::saLayerColorB(), 0.125f);
    set(a, T::saLayerVisible(), false);
    T2Float offset{0.25f, -4};
    set(a, T::saOffset(), offset);
    set(b, T::saMode(), int16_t(5));  // between fields: written as a number
    set(b, T::saSteps(), int16_t(3));

    connect(graph, "alpha.gain", "beta.weight");
    connect(graph, "alpha.color", "beta.color");
    connect(graph, "alpha.layerOpacity", "beta.values[3]");
    connect(graph, "alpha.gain", "beta.ramp[2].rampB");
    connect(graph, "alpha.values[9]", "beta.layerOpacity");
    connect(graph, "alpha.outValue", "beta.gain");

    graph.createNode("transform", "world");
    graph.createNode("transform", "table");
    graph.createNode("transform", "cup");
    dag(graph, "world")->addChild(dag(graph, "table"));
    dag(graph, "table")->addChild(dag(graph, "cup"));
    dag(graph, "world")->addChild(dag(graph, "cup"));  // a second instance
    T3Float t{1, 2, 3};
    set(graph.findNode("table"), Ttransform::saTranslate(), t);
    set(graph.findNode("cup"), Ttransform::saRotateY(), 45.0f);

    auto* group = static_cast<TobjectSet*>(graph.createNode("shadingEngine", "cupSG")->cast(TobjectSet::sMetaclass()));
    for (const TdagPath& path : dag(graph, "cup")->allPaths()) group->addMember(path);
    set(static_cast<TdependNode*>(graph.findNode("cupSG")), TDNshadingEngine::sVsData().miContourWidth, 2.5f);
    auto* set2 = static_cast<TobjectSet*>(graph.createNode("objectSet", "things")->cast(TobjectSet::sMetaclass()));
    set2->addMember(dag(graph, "table")->allPaths()[0]);
    connect(graph, "table.visibility", "cup.visibility");
}

std::set<std::pair<std::string, std::string>> connectionsOf(TdependGraph& graph) {
    std::set<std::pair<std::string, std::string>> out;
    for (TdependNode* n : graph.nodes()) {
        std::vector<std::pair<Tplug, Tplug>> incoming;
        n->allIncoming(incoming);
        for (auto& [s, d] : incoming) out.emplace(plugText(s), plugText(d));
    }
    return out;
}

std::vector<unsigned> elementsOf(TdependNode* n, const Tattribute* a) {
    TuInt32Array found;
    n->getExistingMultiAttributeIndices(Tplug(n, a, true), found);
    std::vector<unsigned> out;
    for (unsigned i = 0; i < found.length(); ++i) out.push_back(found[i]);
    return out;
}

// Compares two graphs node by node without going through text: types,
// stored values of every saved attribute not set by a connection, elements,
// parents, set members and connections.
void expectSameGraph(TdependGraph& expected, TdependGraph& actual) {
    ASSERT_EQ(expected.nodeCount(), actual.nodeCount());
    for (TdependNode* e : expected.nodes()) {
        TdependNode* a = actual.findNode(e->name());
        ASSERT_NE(a, nullptr) << e->name().str();
        EXPECT_EQ(a->typeName(), e->typeName());
        for (unsigned i = 0; i < e->staticAttributeCount(); ++i) {
            const Tattribute* attr = e->attribute(i);
            if (attr->childCount() || !isSavedAttribute(*attr)) continue;
            const bool multi = attr->rootParent()->isArray();
            std::vector<unsigned> indices = multi ? elementsOf(e, attr) : std::vector<unsigned>{0};
            if (multi) {
                EXPECT_EQ(elementsOf(a, attr), indices) << plugText(*e, *attr, -1);
            }
            for (unsigned index : indices) {
                int element = multi ? int(index) : Tplug::kNoIndex;
                bool driven = false;
                for (const Tattribute* p = attr; p; p = p->parent()) driven |= e->sourceOf(Tplug(e, p, element)) != nullptr;
                if (driven) continue;
                EXPECT_TRUE(attr->valuesEqual(e->storage(attr, index), a->storage(attr, index))) << plugText(*e, *attr, element);
            }
        }
        auto* ed = static_cast<TdagNode*>(e->cast(TdagNode::sMetaclass()));
        auto* ad = static_cast<TdagNode*>(a->cast(TdagNode::sMetaclass()));
        ASSERT_EQ(ed == nullptr, ad == nullptr);
        if (ed) {
            ASSERT_EQ(ed->parents().size(), ad->parents().size());
            for (size_t i = 0; i < ed->parents().size(); ++i) EXPECT_EQ(ed->parents()[i]->name(), ad->parents()[i]->name());
        }
        auto* es = static_cast<TobjectSet*>(e->cast(TobjectSet::sMetaclass()));
        auto* as = static_cast<TobjectSet*>(a->cast(TobjectSet::sMetaclass()));
        if (es) {
            ASSERT_NE(as, nullptr);
            ASSERT_EQ(es->members().size(), as->members().size());
            for (size_t i = 0; i < es->members().size(); ++i)
                EXPECT_EQ(es->members()[i].fullPathName(), as->members()[i].fullPathName());
        }
    }
    EXPECT_EQ(connectionsOf(expected), connectionsOf(actual));
}

TsceneJson parsed(const std::string& text) { return TsceneJson::parse(text); }

const TsceneJson& entryNamed(const TsceneJson& doc, const std::string& name) {
    for (const auto& n : doc["nodes"])
        if (n["name"] == name) return n;
    static const TsceneJson none;
    return none;
}

std::string loadAndSave(const std::string& text) {
    TdependGraph graph;
    TsceneLoader loader;
    bool ok = loader.loadText(text, "case.json", graph);
    EXPECT_TRUE(ok) << (loader.errors().empty() ? "" : loader.errors()[0].text());
    return TsceneWriter::toText(graph);
}
}  // namespace

TEST(SceneRoundTrip, GraphSurvivesSaveAndLoadAndTextIsStable) {
    TdependGraph original;
    buildRichGraph(original);
    const std::string first = TsceneWriter::toText(original);

    TdependGraph loaded;
    TsceneLoader loader;
    ASSERT_TRUE(loader.loadText(first, "rich.json", loaded)) << loader.errors()[0].text();
    EXPECT_EQ(loader.nodes().size(), original.nodeCount());
    EXPECT_EQ(loader.connectionCount(), connectionsOf(original).size());
    expectSameGraph(original, loaded);
    EXPECT_EQ(TsceneWriter::toText(loaded), first);

    // The loaded graph evaluates like the original through its connections.
    float expectedGain = 0, loadedGain = 0;
    original.findNode("beta")->getAttributeValue(&T::saGain(), &expectedGain);
    loaded.findNode("beta")->getAttributeValue(&T::saGain(), &loadedGain);
    EXPECT_FLOAT_EQ(loadedGain, 0.1f * float(-2.75e-7));
    EXPECT_EQ(loadedGain, expectedGain);
    // The instanced cup's two paths keep their matrices.
    auto paths = dag(loaded, "cup")->allPaths();
    auto originalPaths = dag(original, "cup")->allPaths();
    ASSERT_EQ(paths.size(), 2u);
    for (size_t i = 0; i < paths.size(); ++i)
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                EXPECT_DOUBLE_EQ(paths[i].inclusiveMatrix().m[r][c], originalPaths[i].inclusiveMatrix().m[r][c]);
}

TEST(SceneRoundTrip, FileOnDiskRoundTripsAndExampleLoads) {
    TtestTempDir dir;
    TdependGraph original;
    buildRichGraph(original);
    TsceneWriter writer;
    ASSERT_TRUE(writer.save(original, dir.file("rich.json"))) << writer.error();
    TdependGraph loaded;
    TsceneLoader loader;
    ASSERT_TRUE(loader.load(dir.file("rich.json"), loaded));
    expectSameGraph(original, loaded);

    EXPECT_FALSE(writer.save(original, dir.file("no/such/folder/x.json")));
    EXPECT_NE(writer.error().find("no/such/folder/x.json"), std::string::npos);
    // A device that takes no data: the lost bytes must be reported, not
    // dropped with a good return.
    EXPECT_FALSE(writer.save(original, "/dev/full"));
    EXPECT_NE(writer.error().find("No space left"), std::string::npos) << writer.error();

    TdependGraph example;
    ASSERT_TRUE(loader.load(std::string(SHADENET_SOURCE_DIR) + "/examples/basic.json", example))
        << loader.errors()[0].text();
    const std::string text = TsceneWriter::toText(example);
    EXPECT_EQ(loadAndSave(text), text);
}

TEST(SceneRoundTrip, OnlyStoredValuesAwayFromTheirDefaultsAreWritten) {
    TdependGraph graph;
    TdependNode* n = graph.createNode("sceneTestNode", "n");
    // Set to what they already are: nothing to write.
    set(n, T::saGain(), 1.0f);
    set(n, T::saMode(), int16_t(3));
    set(n, T::saColor(), T3Float(0.5f, 0.25f, 1.0f));
    set(n, T::saFileName(), Tstring("default.png"));
    // Not stored, or computed: never written, whatever they hold.
    set(n, T::saScratch(), 42.0f);
    *static_cast<float*>(n->storage(&T::saOutValue())) = 9.0f;
    EXPECT_FALSE(entryNamed(parsed(TsceneWriter::toText(graph)), "n").contains("attributes"));

    // One child of a compound away from its default writes the whole colour;
    // one child of a compound of named children writes just that child.
    set(n, T::saColorG(), 0.75f);
    set(n, T::saLayerOpacity(), 0.5f);
    const TsceneJson attributes = entryNamed(parsed(TsceneWriter::toText(graph)), "n")["attributes"];
    EXPECT_EQ(attributes.size(), 2u);
    EXPECT_EQ(attributes["color"], TsceneJson::parse("[0.5, 0.75, 1.0]"));
    EXPECT_EQ(attributes["layer"], TsceneJson::parse(R"({"layerOpacity": 0.5})"));
}

TEST(SceneRoundTrip, ValuesOfEveryWidthKeepTheirBits) {
    std::mt19937 random(7);
    std::uniform_int_distribution<uint32_t> bits;
    std::vector<float> floats = {0.1f, -0.0f, 1e-45f, 3.4028235e38f, 16777217.0f, INFINITY, -INFINITY, NAN};
    std::vector<double> doubles = {0.1, -0.0, 5e-324, 1.7976931348623157e308, 1.0 / 3.0, INFINITY, NAN};
    for (int i = 0; i < 200; ++i) {
        uint32_t b = bits(random);
        float f;
        std::memcpy(&f, &b, sizeof f);
        floats.push_back(f);
        uint64_t wide = (uint64_t(bits(random)) << 32) | bits(random);
        double d;
        std::memcpy(&d, &wide, sizeof d);
        doubles.push_back(d);
    }
    for (size_t i = 0; i < std::max(floats.size(), doubles.size()); ++i) {
        TdependGraph graph;
        TdependNode* n = graph.createNode("sceneTestNode", "n");
        float f = floats[i % floats.size()];
        double d = doubles[i % doubles.size()];
        set(n, T::saGain(), f);
        set(n, T::saWeight(), d);
        set(n, T::saValues(), f, 3);
        TdependGraph loaded;
        TsceneLoader loader;
        ASSERT_TRUE(loader.loadText(TsceneWriter::toText(graph), "bits.json", loaded)) << loader.errors()[0].text();
        TdependNode* m = loaded.findNode("n");
        float g = *static_cast<float*>(m->storage(&T::saGain()));
        double w = *static_cast<double*>(m->storage(&T::saWeight()));
        float v = *static_cast<float*>(m->storage(&T::saValues(), 3));
        if (std::isnan(f)) {
            EXPECT_TRUE(std::isnan(g) && std::isnan(v));
        } else {
            EXPECT_EQ(std::memcmp(&g, &f, sizeof f), 0) << f;
            EXPECT_EQ(std::memcmp(&v, &f, sizeof f), 0) << f;
        }
        if (std::isnan(d)) {
            EXPECT_TRUE(std::isnan(w));
        } else {
            EXPECT_EQ(std::memcmp(&w, &d, sizeof d), 0) << d;
        }
    }
}

TEST(SceneRoundTrip, EveryAcceptedSpellingReadsAsTheWrittenOne) {
    // Each row: two spellings of the same values, which must load to graphs
    // that write the same text.
    struct Case {
        const char* what;
        std::string a, b;
    } cases[] = {
        {"enum by name, label and number", R"("mode": "screen")", R"("mode": 7)"},
        {"enum by label", R"("mode": "Screen")", R"("mode": "screen")"},
        {"short attribute names", R"("g": 0.5, "md": "add")", R"("gain": 0.5, "mode": 0)"},
        {"compound as object of children, short or long", R"("c": {"cr": 0.1, "colorB": 0.2})", R"("color": [0.1, 0.25, 0.2])"},
        {"child named directly", R"("colorG": 0.8)", R"("color": [0.5, 0.8, 1])"},
        {"multi as array", R"("values": [1, 2, 3])", R"("values": {"0": 1, "1": 2, "2": 3})"},
        {"multi of compounds", R"("ramp": [[1, 0, 0], {"rampG": 1}])", R"("ramp": {"1": [0, 1, 0], "0": {"rampR": 1}})"},
        {"nested compound", R"("layer": {"layerColor": [0, 0, 0.5]})", R"("layer": {"lc": {"layerColorB": 0.5}})"},
        {"matrix flat or in rows", R"("placement": [1,0,0,0, 0,1,0,0, 0,0,1,0, 4,5,6,1])",
         R"("placement": [[1,0,0,0],[0,1,0,0],[0,0,1,0],[4,5,6,1]])"},
        {"boolean as number", R"("enabled": 0)", R"("enabled": false)"},
        {"infinity as text", R"("gain": "inf", "weight": "-inf")", R"("weight": "-inf", "gain": "inf")"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(loadAndSave(sceneTestNodeFile(c.a)), loadAndSave(sceneTestNodeFile(c.b))) << c.what;
    }
    // Values between enumeration fields are kept as numbers.
    EXPECT_EQ(entryNamed(parsed(loadAndSave(sceneTestNodeFile(R"("mode": 5)"))), "n")["attributes"]["mode"], 5);
    EXPECT_EQ(entryNamed(parsed(loadAndSave(sceneTestNodeFile(R"("mode": 0)"))), "n")["attributes"]["mode"], "add");
}

TEST(SceneRoundTrip, StoredPathsStayAsWrittenAndResolveBesideTheScene) {
    const std::string text = loadAndSave(sceneTestNodeFile(R"("fileName": "../maps/wood.png")"));
    EXPECT_EQ(entryNamed(parsed(text), "n")["attributes"]["fileName"], "../maps/wood.png");
    struct Case {
        const char* scene;
        const char* stored;
        const char* resolved;
    } cases[] = {
        {"/work/scenes/room.json", "maps/wood.png", "/work/scenes/maps/wood.png"},
        {"/work/scenes/room.json", "../maps/wood.png", "/work/maps/wood.png"},
        {"/work/scenes/room.json", "/abs/wood.png", "/abs/wood.png"},
        {"room.json", "wood.png", "wood.png"},
        {"/work/scenes/room.json", "", ""},
    };
    for (const Case& c : cases) EXPECT_EQ(resolveScenePath(c.scene, c.stored), c.resolved) << c.stored;
}
