#include "scene/scene_loader.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"
#include "scene/json_positions.h"
#include "scene/plug_text.h"
#include "scene/value_codec.h"

namespace {
// A JSON value with the place it came from.
struct Value {
    const TsceneJson& json;
    const TjsonPositions& pos;

    TtextPosition at() const { return pos.at; }
    Value item(size_t i) const { return {json[i], i < pos.items.size() ? pos.items[i] : pos}; }
    // Members of an object in text order, with where each key stands.
    template <typename F>
    void forEachMember(F&& f) const {
        size_t i = 0;
        for (auto it = json.begin(); it != json.end(); ++it, ++i) {
            TtextPosition keyAt = i < pos.keys.size() ? pos.keys[i] : pos.at;
            f(it.key(), keyAt, Value{it.value(), i < pos.items.size() ? pos.items[i] : pos});
        }
    }
    std::optional<Value> find(const std::string& key) const {
        size_t i = 0;
        for (auto it = json.begin(); it != json.end(); ++it, ++i)
            if (it.key() == key) return Value{it.value(), i < pos.items.size() ? pos.items[i] : pos};
        return std::nullopt;
    }
};

std::string inQuotes(const std::string& s) { return "'" + s + "'"; }

bool validNodeName(const std::string& name) {
    if (name.empty()) return false;
    for (char c : name)
        if (c == '.' || c == '|' || c == '[' || c == ']' || c == ' ' || c == '\t' || c == '\n') return false;
    return true;
}

TdagNode* asDag(TdependNode* node) { return static_cast<TdagNode*>(node->cast(TdagNode::sMetaclass())); }
TobjectSet* asSet(TdependNode* node) { return static_cast<TobjectSet*>(node->cast(TobjectSet::sMetaclass())); }

// Storage for one value of an attribute, constructed and destroyed the way
// the attribute wants (strings need it).
class ValueBuffer {
public:
    explicit ValueBuffer(const Tattribute& a) : fAttribute(a), fBytes(std::max(a.size(), 1u)) {
        a.constructValue(fBytes.data());
        a.copyDefaultValue(fBytes.data());
    }
    ~ValueBuffer() { fAttribute.destructValue(fBytes.data()); }
    ValueBuffer(const ValueBuffer&) = delete;
    ValueBuffer& operator=(const ValueBuffer&) = delete;
    void* data() { return fBytes.data(); }

private:
    const Tattribute& fAttribute;
    std::vector<unsigned char> fBytes;
};

// Builds the nodes, values, hierarchy, set members and connections of one
// parsed file in one graph.
class Builder {
public:
    Builder(Value doc, const std::string& file, TdependGraph& graph, const TdependGraph* existing,
            std::vector<TsceneError>& errors)
        : fDoc(doc), fFile(file), fGraph(graph), fExisting(existing), fErrors(errors) {}

    void run();
    // One member of a node's "attributes" object.
    void attributeEntry(TdependNode* node, const std::string& key, TtextPosition keyAt, Value v);
    std::vector<TdependNode*> created;
    unsigned connections = 0;

private:
    struct Entry {
        TdependNode* node = nullptr;
        TtextPosition at;
    };
    void error(TtextPosition at, std::string message) {
        if (fErrors.size() < TsceneLoader::kMaxErrors) fErrors.push_back({fFile, at.line, at.column, std::move(message)});
    }
    std::optional<std::string> stringOf(Value v, const char* what) {
        if (v.json.is_string()) return v.json.get<std::string>();
        error(v.at(), std::string(what) + " must be a string, not " + describeJsonType(v.json));
        return std::nullopt;
    }

    void header();
    void makeNode(Value entry);
    void assign(TdependNode* node, const Tattribute* a, Value v, int element);
    void assignLeaf(TdependNode* node, const Tattribute* a, Value v, int element);
    void parents(Value entry, TdependNode* node);
    void members(Value entry, TdependNode* node);
    void connect(Value pair);
    // A node of the file by name; null, with an error unless the name
    // belongs to a node that already failed, when there is none.
    TdependNode* reference(const std::string& name, TtextPosition at, const char* what);
    std::optional<TdagPath> memberPath(const std::string& text, TtextPosition at);

    Value fDoc;
    const std::string& fFile;
    TdependGraph& fGraph;
    const TdependGraph* fExisting;
    std::vector<TsceneError>& fErrors;
    std::map<std::string, Entry> fByName;
    std::set<std::string> fFailed;  // names of nodes that could not be made
};

void Builder::run() {
    if (!fDoc.json.is_object()) {
        error(fDoc.at(), "a scene file holds one JSON object, not " + describeJsonType(fDoc.json));
        return;
    }
    header();
    auto nodes = fDoc.find("nodes");
    if (nodes && !nodes->json.is_array()) {
        error(nodes->at(), "'nodes' must be an array, not " + describeJsonType(nodes->json));
        nodes.reset();
    }
    std::vector<std::pair<Value, TdependNode*>> made;
    if (nodes) {
        for (size_t i = 0; i < nodes->json.size(); ++i) {
            size_t before = created.size();
            makeNode(nodes->item(i));
            made.emplace_back(nodes->item(i), created.size() > before ? created.back() : nullptr);
        }
    }
    // The hierarchy first, so that members may name nodes by path.
    for (auto& [entry, node] : made)
        if (node) parents(entry, node);
    for (auto& [entry, node] : made)
        if (node) members(entry, node);
    if (auto list = fDoc.find("connections")) {
        if (!list->json.is_array()) {
            error(list->at(), "'connections' must be an array, not " + describeJsonType(list->json));
            return;
        }
        for (size_t i = 0; i < list->json.size(); ++i) connect(list->item(i));
    }
}

void Builder::header() {
    fDoc.forEachMember([&](const std::string& key, TtextPosition keyAt, Value v) {
        if (key == "format") {
            if (!v.json.is_string() || v.json.get<std::string>() != TsceneLoader::kFormatName)
                error(v.at(), std::string("'format' must be \"") + TsceneLoader::kFormatName + "\"");
        } else if (key == "version") {
            if (!v.json.is_number_integer() || v.json.get<long long>() < 1)
                error(v.at(), "'version' must be a whole number from 1");
            else if (v.json.get<long long>() > TsceneLoader::kFormatVersion)
                error(v.at(), "version " + v.json.dump() + " is newer than this program reads (" +
                                  std::to_string(TsceneLoader::kFormatVersion) + ")");
        } else if (key != "nodes" && key != "connections") {
            error(keyAt, "unknown key " + inQuotes(key) + " (a scene has format, version, nodes and connections)");
        }
    });
}

void Builder::makeNode(Value entry) {
    if (!entry.json.is_object()) {
        error(entry.at(), "a node must be an object, not " + describeJsonType(entry.json));
        return;
    }
    entry.forEachMember([&](const std::string& key, TtextPosition keyAt, Value) {
        if (key != "type" && key != "name" && key != "parent" && key != "attributes" && key != "members")
            error(keyAt, "unknown key " + inQuotes(key) + " in a node (a node has type, name, parent, attributes and members)");
    });
    auto typeValue = entry.find("type");
    auto nameValue = entry.find("name");
    if (!typeValue || !nameValue) {
        error(entry.at(), std::string("a node needs a ") + (typeValue ? "\"name\"" : "\"type\""));
        return;
    }
    auto type = stringOf(*typeValue, "'type'");
    auto name = stringOf(*nameValue, "'name'");
    if (!type || !name) return;
    if (!validNodeName(*name)) {
        error(nameValue->at(), "bad node name " + inQuotes(*name) + ": a name is not empty and has no '.', '|', '[', ']' or spaces");
        return;
    }
    if (auto it = fByName.find(*name); it != fByName.end()) {
        error(nameValue->at(), "duplicate node name " + inQuotes(*name) + " (first used at line " + std::to_string(it->second.at.line) + ")");
        return;
    }
    auto fail = [&](TtextPosition at, std::string message) {
        error(at, std::move(message));
        fFailed.insert(*name);
    };
    if (fExisting && fExisting->findNode(*name)) return fail(nameValue->at(), "a node named " + inQuotes(*name) + " already exists in the graph");
    TdependNodeMetaClass* meta = TdependGraph::findNodeType(*type);
    if (!meta) return fail(typeValue->at(), "unknown node type " + inQuotes(*type));
    TdependNode* node = fGraph.createNode(*type, *name);
    if (!node) return fail(typeValue->at(), "node type " + inQuotes(*type) + " is abstract and cannot be made");
    if (node->name().str() != *name) {
        // Only when the caller's graph changed between the two passes.
        fGraph.deleteNode(node);
        return fail(nameValue->at(), "a node named " + inQuotes(*name) + " already exists in the graph");
    }
    created.push_back(node);
    fByName[*name] = {node, nameValue->at()};

    auto attributes = entry.find("attributes");
    if (!attributes) return;
    if (!attributes->json.is_object()) {
        error(attributes->at(), "'attributes' must be an object, not " + describeJsonType(attributes->json));
        return;
    }
    // An attribute given by its long and its short name would have the later
    // value win without a word.
    std::map<const Tattribute*, std::string> given;
    attributes->forEachMember([&](const std::string& key, TtextPosition keyAt, Value v) {
        if (const Tattribute* a = node->attribute(Tstring(key))) {
            auto [first, added] = given.emplace(a, key);
            if (!added) {
                error(keyAt, inQuotes(key) + " and " + inQuotes(first->second) + " name the same attribute " +
                                 inQuotes(plugText(*node, *a, Tplug::kNoIndex)) + "; give it once");
                return;
            }
        }
        attributeEntry(node, key, keyAt, v);
    });
}

void Builder::attributeEntry(TdependNode* node, const std::string& key, TtextPosition keyAt, Value v) {
    const Tattribute* a = node->attribute(Tstring(key));
    if (!a) {
        error(keyAt, "node " + inQuotes(node->name().str()) + " of type " + inQuotes(node->typeName().str()) +
                         " has no attribute " + inQuotes(key));
        return;
    }
    if (a->parent() && a->rootParent()->isArray()) {
        error(keyAt, inQuotes(key) + " lies in the multi " + inQuotes(a->rootParent()->longName().str()) +
                         "; give its value inside an element of it");
        return;
    }
    assign(node, a, v, Tplug::kNoIndex);
}

void Builder::assign(TdependNode* node, const Tattribute* a, Value v, int element) {
    const std::string where = inQuotes(plugText(*node, *a, element));
    if (!isSavedAttribute(*a)) {
        std::string why = a->isComputed()                  ? "is a computed output"
                          : !isFileValueType(*a)           ? std::string("is of type ") + valueTypeName(a->valueType()) + ", which has no value in a scene file"
                          : !(a->flags() & kAttrStorable)  ? "is not stored in scene files"
                                                           : "has no stored children";
        error(v.at(), where + " " + why + " and cannot be given a value");
        return;
    }
    if (a->isArray() && a->parent()) {
        error(v.at(), where + " is a multi inside a compound, which scene files do not hold");
        return;
    }
    if (a->isArray() && element == Tplug::kNoIndex) {
        // The elements: an object of index -> value, or an array from 0.
        if (v.json.is_array()) {
            for (size_t i = 0; i < v.json.size(); ++i) assign(node, a, v.item(i), int(i));
        } else if (v.json.is_object()) {
            // "1" and "01" are different keys to JSON but one element here:
            // the later would overwrite the earlier without a word.
            std::map<int, std::string> given;
            v.forEachMember([&](const std::string& key, TtextPosition keyAt, Value item) {
                bool digits = !key.empty() && std::all_of(key.begin(), key.end(), [](char c) { return c >= '0' && c <= '9'; });
                if (!digits) {
                    error(keyAt, where + " is a multi: element index " + inQuotes(key) + " is not a whole number from 0");
                    return;
                }
                // Any index a connection can name, so that a saved file reads back.
                int index = 0;
                if (std::from_chars(key.data(), key.data() + key.size(), index).ec != std::errc()) {
                    error(keyAt, where + " is a multi: element index " + inQuotes(key) + " is larger than the largest, " +
                                     std::to_string(std::numeric_limits<int>::max()));
                    return;
                }
                auto [first, added] = given.emplace(index, key);
                if (!added) {
                    error(keyAt, where + " is a multi: element indices " + inQuotes(key) + " and " + inQuotes(first->second) +
                                     " name the same element " + std::to_string(index) + "; give it once");
                    return;
                }
                assign(node, a, item, index);
            });
        } else {
            error(v.at(), where + " is a multi and takes an object of index to value or an array, not " + describeJsonType(v.json));
        }
        return;
    }
    if (element != Tplug::kNoIndex) node->storage(a->rootParent(), unsigned(element));  // the element exists even when empty
    if (a->childCount() == 0) {
        assignLeaf(node, a, v, element);
        return;
    }
    if (v.json.is_array()) {
        if (v.json.size() != a->childCount()) {
            error(v.at(), where + " has " + std::to_string(a->childCount()) + " children and takes an array of " +
                              std::to_string(a->childCount()) + " values, not " + describeJsonType(v.json));
            return;
        }
        for (unsigned i = 0; i < a->childCount(); ++i) assign(node, a->child(i), v.item(i), element);
    } else if (v.json.is_object()) {
        v.forEachMember([&](const std::string& key, TtextPosition keyAt, Value item) {
            for (unsigned i = 0; i < a->childCount(); ++i) {
                const Tattribute* c = a->child(i);
                if (c->longName() == key || c->shortName() == key) {
                    assign(node, c, item, element);
                    return;
                }
            }
            std::string names;
            for (unsigned i = 0; i < a->childCount(); ++i) names += (i ? ", " : "") + a->child(i)->longName().str();
            error(keyAt, where + " has no child " + inQuotes(key) + " (children: " + names + ")");
        });
    } else {
        error(v.at(), where + " is a compound and takes an array of its " + std::to_string(a->childCount()) +
                          " children or an object of them by name, not " + describeJsonType(v.json));
    }
}

void Builder::assignLeaf(TdependNode* node, const Tattribute* a, Value v, int element) {
    ValueBuffer buffer(*a);
    std::string why;
    if (!decodeLeafValue(*a, v.json, buffer.data(), why)) {
        error(v.at(), inQuotes(plugText(*node, *a, element)) + " (" + valueTypeName(a->valueType()) + ") " + why);
        return;
    }
    node->setAttributeValue(a, buffer.data(), unsigned(std::max(element, 0)));
}

TdependNode* Builder::reference(const std::string& name, TtextPosition at, const char* what) {
    auto it = fByName.find(name);
    if (it != fByName.end()) return it->second.node;
    if (!fFailed.count(name)) error(at, std::string("unknown ") + what + " " + inQuotes(name) + ": no node of that name in the file");
    return nullptr;
}

void Builder::parents(Value entry, TdependNode* node) {
    auto list = entry.find("parent");
    if (!list) return;
    std::vector<Value> names;
    if (list->json.is_string()) {
        names.push_back(*list);
    } else if (list->json.is_array() && !list->json.empty()) {
        for (size_t i = 0; i < list->json.size(); ++i) names.push_back(list->item(i));
    } else {
        error(list->at(), "'parent' must be a node name or a list of them, not " + describeJsonType(list->json));
        return;
    }
    TdagNode* child = asDag(node);
    if (!child) {
        error(list->at(), inQuotes(node->name().str()) + " is a " + node->typeName().str() + ", not a DAG node, and cannot have a parent");
        return;
    }
    for (Value v : names) {
        auto name = stringOf(v, "a parent");
        if (!name) continue;
        TdependNode* parentNode = reference(*name, v.at(), "parent");
        if (!parentNode) continue;
        TdagNode* parent = asDag(parentNode);
        if (!parent) {
            error(v.at(), "parent " + inQuotes(*name) + " is a " + parentNode->typeName().str() + ", not a DAG node");
            continue;
        }
        bool repeat = std::count(parent->children().begin(), parent->children().end(), child) != 0;
        if (!parent->addChild(child))
            error(v.at(), "cannot place " + inQuotes(node->name().str()) + " under " + inQuotes(*name) +
                              (repeat ? ": that parent is listed twice" : ": it would make a cycle"));
    }
}

std::optional<TdagPath> Builder::memberPath(const std::string& text, TtextPosition at) {
    if (text.find('|') == std::string::npos) {
        TdependNode* node = reference(text, at, "member");
        if (!node) return std::nullopt;
        TdagNode* dag = asDag(node);
        if (!dag) {
            error(at, "member " + inQuotes(text) + " is a " + node->typeName().str() + ", not a DAG object; sets hold DAG objects");
            return std::nullopt;
        }
        auto paths = dag->allPaths();
        if (paths.size() != 1) {
            error(at, "member " + inQuotes(text) + " has " + std::to_string(paths.size()) + " instances; name one by its path (" +
                          paths[0].fullPathName() + ")");
            return std::nullopt;
        }
        return paths[0];
    }
    // "|a|b|c": a root, then a child of each in turn.
    std::vector<std::string> parts;
    std::stringstream in(text[0] == '|' ? text.substr(1) : text);
    for (std::string part; std::getline(in, part, '|');) parts.push_back(part);
    std::vector<TdagNode*> nodes;
    for (size_t i = 0; i < parts.size(); ++i) {
        auto it = fByName.find(parts[i]);
        TdagNode* dag = it == fByName.end() ? nullptr : asDag(it->second.node);
        if (!dag) {
            if (!fFailed.count(parts[i])) error(at, "member path " + inQuotes(text) + ": no DAG node named " + inQuotes(parts[i]));
            return std::nullopt;
        }
        bool fits = i == 0 ? dag->parents().empty()
                           : std::count(nodes.back()->children().begin(), nodes.back()->children().end(), dag) != 0;
        if (!fits) {
            error(at, "member path " + inQuotes(text) + ": " + inQuotes(parts[i]) +
                          (i == 0 ? " is not at the top of the hierarchy" : " is not a child of " + inQuotes(parts[i - 1])));
            return std::nullopt;
        }
        nodes.push_back(dag);
    }
    if (nodes.empty()) {
        error(at, "empty member path");
        return std::nullopt;
    }
    return TdagPath(std::move(nodes));
}

void Builder::members(Value entry, TdependNode* node) {
    auto list = entry.find("members");
    if (!list) return;
    TobjectSet* set = asSet(node);
    if (!set) {
        error(list->at(), inQuotes(node->name().str()) + " is a " + node->typeName().str() + ", not a set, and cannot have members");
        return;
    }
    if (!list->json.is_array()) {
        error(list->at(), "'members' must be an array of DAG paths or node names, not " + describeJsonType(list->json));
        return;
    }
    for (size_t i = 0; i < list->json.size(); ++i) {
        Value v = list->item(i);
        auto text = stringOf(v, "a member");
        if (!text) continue;
        auto path = memberPath(*text, v.at());
        if (path && !set->addMember(*path)) error(v.at(), "member " + inQuotes(*text) + " is listed twice");
    }
}

void Builder::connect(Value pair) {
    if (!pair.json.is_array() || pair.json.size() != 2 || !pair.json[0].is_string() || !pair.json[1].is_string()) {
        error(pair.at(), "a connection is a pair [\"source.plug\", \"destination.plug\"], not " + describeJsonType(pair.json));
        return;
    }
    Tplug ends[2];
    for (size_t i = 0; i < 2; ++i) {
        const std::string text = pair.json[i].get<std::string>();
        std::string why;
        if (fGraph.findPlug(text, ends[i], &why)) continue;
        size_t dot = text.find('.');
        if (dot != std::string::npos && fFailed.count(text.substr(0, dot))) return;  // already reported
        error(pair.item(i).at(), "bad plug " + inQuotes(text) + ": " + why);
        return;
    }
    TconnectStatus status = fGraph.connect(ends[0], ends[1]);
    if (status != TconnectStatus::kOk) {
        error(pair.at(), "cannot connect " + inQuotes(pair.json[0].get<std::string>()) + " to " +
                             inQuotes(pair.json[1].get<std::string>()) + ": " + connectStatusText(status));
        return;
    }
    ++connections;
}

// The parser reports the last character it read. When it stopped after a
// whole token it did not expect, the token's first character is the better
// place to point at.
size_t tokenStart(std::string_view text, size_t last) {
    if (last >= text.size()) return last;
    if (text[last] == '"') {
        for (size_t i = last; i-- > 0;) {
            if (text[i] != '"') continue;
            size_t slashes = 0;
            while (i > slashes && text[i - 1 - slashes] == '\\') ++slashes;
            if (slashes % 2 == 0) return i;
        }
        return last;
    }
    auto inToken = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.'; };
    if (!inToken(text[last])) return last;
    while (last > 0 && inToken(text[last - 1])) --last;
    return last;
}

// The parser refuses a number beyond a double without saying where; the
// place is found in the text.
TsceneError numberBeyondDouble(std::string_view text, const std::string& fileName) {
    std::string number;
    TtextPosition at = firstNumberBeyondDouble(text, &number);
    return {fileName, at.line, at.column,
            "the number " + number + " is beyond the range of a double (about 1.8e308); write \"inf\" or \"-inf\" for an infinite value"};
}

std::string parseMessage(const std::string& what) {
    // "[json.exception.parse_error.101] parse error at line 1, column 2: <reason>": keep the reason.
    size_t column = what.find("column ");
    size_t colon = column == std::string::npos ? std::string::npos : what.find(": ", column);
    return colon == std::string::npos ? what : what.substr(colon + 2);
}
}  // namespace

bool TsceneLoader::load(const std::string& path, TdependGraph& graph) {
    fErrors.clear();
    fNodes.clear();
    fConnections = 0;
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
        fErrors.push_back({path, 0, 0, "is a folder, not a scene file"});
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fErrors.push_back({path, 0, 0, "cannot open the file"});
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    if (in.bad()) {
        fErrors.push_back({path, 0, 0, "cannot read the file"});
        return false;
    }
    return loadText(text.str(), path, graph);
}

bool TsceneLoader::loadText(std::string_view text, const std::string& fileName, TdependGraph& graph) {
    fErrors.clear();
    fNodes.clear();
    fConnections = 0;
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        fErrors.push_back({fileName, 0, 0, "the file is empty; a scene file holds one JSON object"});
        return false;
    }
    // The parser and the position index recurse once per level; a file
    // nested past any real scene's depth would exhaust the stack.
    if (TtextPosition at = firstTooDeep(text, kMaxDepth); at.line) {
        fErrors.push_back({fileName, at.line, at.column,
                           "malformed JSON: arrays and objects nested deeper than " + std::to_string(kMaxDepth) + " levels"});
        return false;
    }
    TsceneJson doc;
    try {
        doc = TsceneJson::parse(text.begin(), text.end());
    } catch (const TsceneJson::parse_error& e) {
        const std::string message = parseMessage(e.what());
        size_t offset = e.byte > 0 ? e.byte - 1 : 0;
        if (message.find("unexpected") != std::string::npos && message.find("last read") == std::string::npos)
            offset = tokenStart(text, offset);
        TtextPosition at = textPositionOf(text, offset);
        fErrors.push_back({fileName, at.line, at.column, "malformed JSON: " + message});
        return false;
    } catch (const TsceneJson::out_of_range&) {
        fErrors.push_back(numberBeyondDouble(text, fileName));
        return false;
    }
    TjsonPositions positions;
    TtextPosition duplicateAt;
    std::string duplicateKey;
    if (!TjsonPositions::index(text, positions, &duplicateAt, &duplicateKey)) {
        fErrors.push_back({fileName, duplicateAt.line, duplicateAt.column, "duplicate key '" + duplicateKey + "'"});
        return false;
    }
    Value root{doc, positions};

    // A trial in a graph of its own: whatever it finds, the caller's graph
    // has not been touched.
    {
        TdependGraph trial;
        Builder builder(root, fileName, trial, &graph, fErrors);
        builder.run();
    }
    if (!fErrors.empty()) {
        std::stable_sort(fErrors.begin(), fErrors.end(), [](const TsceneError& a, const TsceneError& b) {
            return std::tie(a.line, a.column) < std::tie(b.line, b.column);
        });
        return false;
    }
    Builder builder(root, fileName, graph, nullptr, fErrors);
    builder.run();
    if (!fErrors.empty()) {
        // The trial and the real build differ only if the graph refused
        // something it accepted a moment ago; undo what was made.
        for (auto it = builder.created.rbegin(); it != builder.created.rend(); ++it) graph.deleteNode(*it);
        return false;
    }
    fNodes = builder.created;
    fConnections = builder.connections;
    return true;
}

bool TsceneLoader::assignAttribute(TdependNode& node, const std::string& attribute, std::string_view valueText,
                                   const std::string& origin) {
    fErrors.clear();
    TsceneJson value;
    try {
        value = TsceneJson::parse(valueText.begin(), valueText.end());
    } catch (const TsceneJson::out_of_range&) {
        TsceneError e = numberBeyondDouble(valueText, origin);
        fErrors.push_back({origin, 0, 0, e.message});
        return false;
    } catch (const TsceneJson::exception&) {
        fErrors.push_back({origin, 0, 0, "malformed JSON value"});
        return false;
    }
    // The value has no place in a file: messages name the origin alone.
    TjsonPositions nowhere;
    Value v{value, nowhere};
    // A trial on a fresh node of the same type first, so that a compound
    // refused half way does not leave the real node half set.
    TdependGraph trialGraph;
    TdependNode* trial = trialGraph.createNode(node.typeName().str(), node.name().str());
    for (TdependNode* target : {trial, &node}) {
        if (!target) continue;
        Builder builder(v, origin, trialGraph, nullptr, fErrors);
        builder.attributeEntry(target, attribute, nowhere.at, v);
        if (!fErrors.empty()) return false;
    }
    return true;
}
