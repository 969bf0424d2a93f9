#pragma once
// TdependGraph: the registry of node types (process-wide) and one graph of
// nodes with unique names and the connections between their plugs.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/host/depend_node.h"

enum class TconnectStatus {
    kOk,
    kNotReadable,       // the source may not be read
    kNotWritable,       // the destination may not be written
    kIncompatible,      // the value types do not match
    kAlreadyConnected,  // the destination has a source already
    kRefused,           // one of the nodes refused the connection
    kNeedsIndex,        // an array source without an element index
    kSamePlug,
    kNotConnected,
};
const char* connectStatusText(TconnectStatus status);

class TdependGraph {
public:
    TdependGraph();
    ~TdependGraph();
    TdependGraph(const TdependGraph&) = delete;
    TdependGraph& operator=(const TdependGraph&) = delete;

    // Node types, shared by every graph of the process.
    static bool registerNodeType(TdependNodeMetaClass* type);
    static bool deregisterNodeType(TdependNodeMetaClass* type);
    static TdependNodeMetaClass* findNodeType(const Tstring& typeName);
    static std::vector<TdependNodeMetaClass*> nodeTypes();  // sorted by type name

    // Makes a node of the type; the name is made unique ("lambert1" when
    // empty, a trailing number is raised when taken). Null for an unknown
    // or abstract type.
    TdependNode* createNode(const Tstring& typeName, const Tstring& name = Tstring());
    // Takes over a node made elsewhere (tests, classes without a type entry).
    TdependNode* addNode(std::unique_ptr<TdependNode> node, const Tstring& name);
    bool deleteNode(TdependNode* node);
    TdependNode* findNode(const Tstring& name) const;
    bool renameNode(TdependNode* node, const Tstring& name);
    std::vector<TdependNode*> nodes() const;  // in creation order
    unsigned nodeCount() const { return unsigned(fNodes.size()); }

    // Connections. An array destination plug without an index takes the next
    // free element.
    TconnectStatus legalConnection(const Tplug& source, const Tplug& destination) const;
    TconnectStatus connect(const Tplug& source, const Tplug& destination);
    TconnectStatus disconnect(const Tplug& source, const Tplug& destination);
    // Plug from text: "node.attr", "node.attr[3]", "node.attr[3].child".
    bool findPlug(const std::string& text, Tplug& plug, std::string* error = nullptr) const;

    // Default nodes that exist in every new graph are made by hooks that
    // subsystems register at load.
    using DefaultNodeHook = void (*)(TdependGraph&);
    static void addDefaultNodeHook(DefaultNodeHook hook);
    void createDefaultNodes();

private:
    Tstring uniqueName(const Tstring& wanted, const Tstring& typeName) const;
    std::vector<std::unique_ptr<TdependNode>> fNodes;
    std::map<std::string, TdependNode*> fByName;
};

// Classification strings per node type ("shader/surface", "texture/2d").
class TclassificationMgr {
public:
    static bool registerClassification(const Tstring& typeName, const Tstring& classification);
    static bool deregisterClassification(const Tstring& typeName);
    static Tstring getClassification(const Tstring& typeName);
    // True when the type's classification is `prefix` or lies under it.
    static bool isClassified(const Tstring& typeName, const Tstring& prefix);
};
