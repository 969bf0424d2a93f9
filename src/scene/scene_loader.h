#pragma once
// Reads a scene file (see docs/scene-format.md) into a graph. A file is all
// or nothing: it is first built in a graph of its own, and only when that
// succeeds is it built again in the caller's graph, so a bad file leaves the
// caller's graph exactly as it was. Every problem found is kept, with the
// line and column of the value at fault.
#include <string>
#include <string_view>
#include <vector>

#include "scene/scene_error.h"

class TdependGraph;
class TdependNode;

class TsceneLoader {
public:
    // The format name and the newest version this code reads and writes.
    static constexpr const char* kFormatName = "shadenet-scene";
    static constexpr int kFormatVersion = 1;
    // Past this many problems the rest of a file is not reported.
    static constexpr unsigned kMaxErrors = 100;
    // Deepest nesting of arrays and objects a file may have; a scene needs
    // a handful of levels.
    static constexpr unsigned kMaxDepth = 256;

    bool load(const std::string& path, TdependGraph& graph);
    // `fileName` is only used in messages.
    bool loadText(std::string_view text, const std::string& fileName, TdependGraph& graph);

    // Gives one attribute of `node` (a long or short name, or a child such
    // as "colorR") a value, JSON text as in a node's "attributes" object,
    // with the same checks and messages as a file; errors() name `origin` in
    // place of a file. A refused value changes nothing.
    bool assignAttribute(TdependNode& node, const std::string& attribute, std::string_view valueText,
                         const std::string& origin);

    // Problems of the last load, in file order; empty after a success.
    const std::vector<TsceneError>& errors() const { return fErrors; }
    // The nodes the last successful load made, in file order, and the number
    // of connections it made.
    const std::vector<TdependNode*>& nodes() const { return fNodes; }
    unsigned connectionCount() const { return fConnections; }

private:
    std::vector<TsceneError> fErrors;
    std::vector<TdependNode*> fNodes;
    unsigned fConnections = 0;
};
