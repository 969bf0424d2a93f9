#pragma once
// A graph with one shading group, and what the engine tests share around
// it: opcode counts of its program and render objects. Samples laid out for
// it come from the shared test samples.
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "framework/host/depend_graph.h"
#include "shading/engine_test_nodes.h"
#include "shading/render_bases.h"
#include "shading/sample.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"
#include "shading/shading_session.h"
#include "support/test_samples.h"

struct TengineNetwork {
    TdependGraph graph;
    TDNshadingEngine* group = static_cast<TDNshadingEngine*>(graph.createNode("shadingEngine"));

    template <class T>
    T* make(const char* type) {
        return static_cast<T*>(graph.createNode(type));
    }
    void connect(TdependNode* from, const Tattribute& out, TdependNode* to, const Tattribute& in) {
        ASSERT_EQ(graph.connect(Tplug(from, &out), Tplug(to, &in)), TconnectStatus::kOk) << out.longName().asC() << " -> " << in.longName().asC();
    }
    void toSurfaceShader(TdependNode* material, const Tattribute& out) { connect(material, out, group, TDNshadingEngine::saSurfaceShader()); }

    // The group's program, through the render's life cycle: the first call
    // starts the session that lasts until end() or the network's end.
    TshadingOpus* analyse(TSEoption option = kSurfaceColorTransparency, TbitField64* result = nullptr) {
        if (!session) session.emplace(group);
        return session->program(option, result);
    }
    // Ends the render: endOfRender on every node, programs dropped.
    void end() { session.reset(); }
    std::optional<TshadingSession> session;
};

// How many instructions of the program have the opcode.
inline unsigned countOps(const TshadingOpus& opus, uint32_t opcode) {
    unsigned n = 0;
    for (unsigned k = 0; k < opus.program().instructionCount; ++k) n += opus.program().instructions[k].opcode == opcode;
    return n;
}

// An object of the render as the engine sees it.
struct TtestRenderGroup : TrenderGroupBase {
    explicit TtestRenderGroup(unsigned n, bool receive = true) : number(n), receive(receive) {}
    unsigned objectNumber() const override { return number; }
    const TgeoManagerBase* geometryManager() const override { return nullptr; }
    bool receiveShadows() const override { return receive; }
    unsigned number;
    bool receive;
};
