#include "framework/host/depend_graph.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>

namespace {
struct TypeRegistry {
    std::mutex mutex;
    std::map<std::string, TdependNodeMetaClass*> types;
    std::vector<TdependGraph::DefaultNodeHook> defaultHooks;
};
TypeRegistry& registry() {
    static TypeRegistry* r = new TypeRegistry;  // outlives every static that deregisters at exit
    return *r;
}

struct ClassificationTable {
    std::mutex mutex;
    std::unordered_map<std::string, std::string> byType;
};
ClassificationTable& classifications() {
    static ClassificationTable* t = new ClassificationTable;
    return *t;
}

// Splits "name5" into ("name", 5); no trailing number gives -1.
std::pair<std::string, long> splitTrailingNumber(const std::string& s) {
    size_t i = s.size();
    while (i > 0 && std::isdigit(static_cast<unsigned char>(s[i - 1]))) --i;
    if (i == s.size() || i == 0) return {s, -1};
    return {s.substr(0, i), std::stol(s.substr(i))};
}
}  // namespace

const char* connectStatusText(TconnectStatus status) {
    switch (status) {
        case TconnectStatus::kOk: return "connected";
        case TconnectStatus::kNotReadable: return "the source attribute is not readable";
        case TconnectStatus::kNotWritable: return "the destination attribute is not writable";
        case TconnectStatus::kIncompatible: return "the attribute types are not compatible";
        case TconnectStatus::kAlreadyConnected: return "the destination already has an incoming connection";
        case TconnectStatus::kRefused: return "the node refused the connection";
        case TconnectStatus::kNeedsIndex: return "an array source needs an element index";
        case TconnectStatus::kSamePlug: return "a plug cannot be connected to itself";
        case TconnectStatus::kNotConnected: return "the plugs are not connected";
    }
    return "?";
}

TdependGraph::TdependGraph() = default;

TdependGraph::~TdependGraph() {
    // Connections first, so that no node sees a dangling peer.
    for (auto& n : fNodes) {
        n->fIncoming.clear();
        n->fOutgoing.clear();
    }
    while (!fNodes.empty()) fNodes.pop_back();
}

bool TdependGraph::registerNodeType(TdependNodeMetaClass* type) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    const std::string name = type->fTypeName().str();
    if (r.types.count(name)) return false;
    r.types[name] = type;
    type->fRegistered = true;
    return true;
}

bool TdependGraph::deregisterNodeType(TdependNodeMetaClass* type) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    auto it = r.types.find(type->fTypeName().str());
    if (it == r.types.end() || it->second != type) return false;
    r.types.erase(it);
    type->fRegistered = false;
    return true;
}

TdependNodeMetaClass* TdependGraph::findNodeType(const Tstring& typeName) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    auto it = r.types.find(typeName.str());
    return it == r.types.end() ? nullptr : it->second;
}

std::vector<TdependNodeMetaClass*> TdependGraph::nodeTypes() {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    std::vector<TdependNodeMetaClass*> out;
    for (auto& [name, type] : r.types) out.push_back(type);
    return out;
}

Tstring TdependGraph::uniqueName(const Tstring& wanted, const Tstring& typeName) const {
    std::string base = wanted.isEmpty() ? typeName.str() + "1" : wanted.str();
    if (!fByName.count(base)) return base;
    auto [stem, number] = splitTrailingNumber(base);
    for (long n = std::max(number + 1, 1L);; ++n) {
        std::string candidate = stem + std::to_string(n);
        if (!fByName.count(candidate)) return candidate;
    }
}

TdependNode* TdependGraph::createNode(const Tstring& typeName, const Tstring& name) {
    TdependNodeMetaClass* type = findNodeType(typeName);
    if (!type || !type->fMeta) return nullptr;
    if (type->fInitialize) type->fInitialize();
    auto* node = static_cast<TdependNode*>(type->fMeta->construct());
    if (!node) return nullptr;
    return addNode(std::unique_ptr<TdependNode>(node), name);
}

TdependNode* TdependGraph::addNode(std::unique_ptr<TdependNode> node, const Tstring& name) {
    node->fName = uniqueName(name, node->typeName());
    node->fGraph = this;
    TdependNode* raw = node.get();
    fByName[raw->fName.str()] = raw;
    fNodes.push_back(std::move(node));
    return raw;
}

bool TdependGraph::deleteNode(TdependNode* node) {
    auto it = std::find_if(fNodes.begin(), fNodes.end(), [&](auto& n) { return n.get() == node; });
    if (it == fNodes.end()) return false;
    node->aboutToDelete();
    std::vector<std::pair<Tplug, Tplug>> links;
    node->allIncoming(links);
    for (auto& [key, dest] : node->fOutgoing) links.emplace_back(Tplug(node, node->attribute(key.first), key.second), dest);
    for (auto& [src, dst] : links) disconnect(src, dst);
    fByName.erase(node->fName.str());
    fNodes.erase(it);
    return true;
}

TdependNode* TdependGraph::findNode(const Tstring& name) const {
    auto it = fByName.find(name.str());
    return it == fByName.end() ? nullptr : it->second;
}

bool TdependGraph::renameNode(TdependNode* node, const Tstring& name) {
    if (name.isEmpty() || fByName.count(name.str())) return false;
    fByName.erase(node->fName.str());
    node->fName = name;
    fByName[name.str()] = node;
    return true;
}

std::vector<TdependNode*> TdependGraph::nodes() const {
    std::vector<TdependNode*> out;
    for (auto& n : fNodes) out.push_back(n.get());
    return out;
}

TconnectStatus TdependGraph::legalConnection(const Tplug& source, const Tplug& destination) const {
    if (source == destination) return TconnectStatus::kSamePlug;
    const Tattribute& from = *source.attribute();
    const Tattribute& to = *destination.attribute();
    if (!from.isReadable()) return TconnectStatus::kNotReadable;
    if (!to.isWritable()) return TconnectStatus::kNotWritable;
    if (source.arrayAttribute() && !source.hasIndex()) return TconnectStatus::kNeedsIndex;
    if (!attributesCompatible(from, to)) return TconnectStatus::kIncompatible;
    if (destination.hasIndex() || !destination.arrayAttribute())
        for (const Tattribute* a = &to; a; a = a->parent())
            if (destination.node()->fIncoming.count({a->index(), destination.index()})) return TconnectStatus::kAlreadyConnected;
    // Either node may overrule the default answer.
    bool legal = true;
    bool sourceLegal = legal, destinationLegal = legal;
    if (source.node()->legalConnection(source, destination, true, sourceLegal) && !sourceLegal) return TconnectStatus::kRefused;
    if (destination.node()->legalConnection(destination, source, false, destinationLegal) && !destinationLegal)
        return TconnectStatus::kRefused;
    return TconnectStatus::kOk;
}

TconnectStatus TdependGraph::connect(const Tplug& source, const Tplug& destinationIn) {
    Tplug destination = destinationIn;
    if (destination.arrayAttribute() && !destination.hasIndex()) {
        // The next element past every existing one.
        TuInt32Array used;
        destination.node()->getExistingMultiAttributeIndices(destination, used);
        destination.setMultiIndex(destination.arrayAttribute(), used.isEmpty() ? 0 : used[used.length() - 1] + 1);
    }
    TconnectStatus status = legalConnection(source, destination);
    if (status != TconnectStatus::kOk) return status;
    destination.node()->fIncoming[TdependNode::keyOf(destination)] = source;
    source.node()->fOutgoing.emplace(TdependNode::keyOf(source), destination);
    destination.node()->storage(destination.attribute(), unsigned(std::max(destination.index(), 0)));
    source.node()->connectionMade(source, destination, true);
    destination.node()->connectionMade(destination, source, false);
    destination.node()->markDirty(destination.attribute());
    return TconnectStatus::kOk;
}

TconnectStatus TdependGraph::disconnect(const Tplug& source, const Tplug& destination) {
    TdependNode* dn = destination.node();
    auto in = dn->fIncoming.find(TdependNode::keyOf(destination));
    if (in == dn->fIncoming.end() || in->second != source) return TconnectStatus::kNotConnected;
    // Option 1 keeps the value the connection gave; otherwise the default returns.
    const Tattribute* a = destination.attribute();
    unsigned index = unsigned(std::max(destination.index(), 0));
    if (a->disconnectOption() == 1) dn->valuePointer(a, index);
    dn->fIncoming.erase(in);
    auto range = source.node()->fOutgoing.equal_range(TdependNode::keyOf(source));
    for (auto it = range.first; it != range.second; ++it)
        if (it->second == destination) {
            source.node()->fOutgoing.erase(it);
            break;
        }
    if (a->disconnectOption() != 1) a->copyDefaultValue(dn->storage(a, index));
    source.node()->connectionBroken(source, destination, true);
    dn->connectionBroken(destination, source, false);
    dn->markDirty(a);
    dn->markClean(a);
    return TconnectStatus::kOk;
}

bool TdependGraph::findPlug(const std::string& text, Tplug& plug, std::string* error) const {
    auto fail = [&](const std::string& why) {
        if (error) *error = why;
        return false;
    };
    size_t dot = text.find('.');
    if (dot == std::string::npos || dot == 0) return fail("expected node.attribute in '" + text + "'");
    TdependNode* node = findNode(text.substr(0, dot));
    if (!node) return fail("no node named '" + text.substr(0, dot) + "'");
    const Tattribute* attr = nullptr;
    int index = Tplug::kNoIndex;
    size_t pos = dot + 1;
    while (pos <= text.size()) {
        size_t end = text.find_first_of(".[", pos);
        std::string name = text.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        const Tattribute* next = node->attribute(name);
        if (!next) return fail("node '" + node->name().str() + "' has no attribute '" + name + "'");
        if (attr && next->parent() != attr) return fail("'" + name + "' is not a child of '" + attr->longName().str() + "'");
        if (!attr && next->parent() && !next->parent()->isArray()) {
            // A child named directly: fine, as long as no array index is skipped.
        } else if (!attr && next->parent() && next->parent()->isArray()) {
            return fail("'" + name + "' lies in an array; name the element: " + next->parent()->longName().str() + "[i]." + name);
        }
        attr = next;
        pos = end;
        if (pos == std::string::npos) break;
        if (text[pos] == '[') {
            size_t close = text.find(']', pos);
            if (close == std::string::npos) return fail("missing ']' in '" + text + "'");
            if (!attr->isArray()) return fail("'" + attr->longName().str() + "' is not an array");
            try {
                index = std::stoi(text.substr(pos + 1, close - pos - 1));
            } catch (...) {
                return fail("bad index in '" + text + "'");
            }
            if (index < 0) return fail("negative index in '" + text + "'");
            pos = close + 1;
            if (pos >= text.size()) break;
        }
        if (text[pos] != '.') return fail("unexpected '" + std::string(1, text[pos]) + "' in '" + text + "'");
        ++pos;
    }
    plug = Tplug(node, attr, index);
    return true;
}

void TdependGraph::addDefaultNodeHook(DefaultNodeHook hook) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    r.defaultHooks.push_back(hook);
}

void TdependGraph::createDefaultNodes() {
    std::vector<DefaultNodeHook> hooks;
    {
        auto& r = registry();
        std::lock_guard lock(r.mutex);
        hooks = r.defaultHooks;
    }
    for (auto hook : hooks) hook(*this);
}

bool TclassificationMgr::registerClassification(const Tstring& typeName, const Tstring& classification) {
    auto& t = classifications();
    std::lock_guard lock(t.mutex);
    t.byType[typeName.str()] = classification.str();
    return true;
}

bool TclassificationMgr::deregisterClassification(const Tstring& typeName) {
    auto& t = classifications();
    std::lock_guard lock(t.mutex);
    return t.byType.erase(typeName.str()) != 0;
}

Tstring TclassificationMgr::getClassification(const Tstring& typeName) {
    auto& t = classifications();
    std::lock_guard lock(t.mutex);
    auto it = t.byType.find(typeName.str());
    return it == t.byType.end() ? Tstring() : Tstring(it->second);
}

bool TclassificationMgr::isClassified(const Tstring& typeName, const Tstring& prefix) {
    std::string c = getClassification(typeName).str();
    const std::string& p = prefix.str();
    return !c.empty() && c.compare(0, p.size(), p) == 0 && (c.size() == p.size() || c[p.size()] == '/');
}
