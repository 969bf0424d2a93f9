#pragma once
// Writes a graph as a scene file (see docs/scene-format.md): every node with
// the stored values that differ from their defaults, its DAG parents and set
// members, then every connection. The text depends only on the graph, so
// writing what was read gives the same text again.
#include <string>

class TdependGraph;

class TsceneWriter {
public:
    static std::string toText(const TdependGraph& graph);
    // False, with error(), when the file cannot be written.
    bool save(const TdependGraph& graph, const std::string& path);
    const std::string& error() const { return fError; }

private:
    std::string fError;
};
