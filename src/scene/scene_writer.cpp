#include "scene/scene_writer.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "framework/host/atomic_file.h"
#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"
#include "scene/plug_text.h"
#include "scene/scene_loader.h"
#include "scene/value_codec.h"

namespace {
// A value set by a connection is the connection's, not the file's.
bool drivenWhole(TdependNode& node, const Tattribute& a, int element) {
    for (const Tattribute* p = &a; p; p = p->parent())
        if (node.sourceOf(Tplug(&node, p, element))) return true;
    return false;
}

bool drivenBelow(TdependNode& node, const Tattribute& a, int element) {
    for (unsigned i = 0; i < a.childCount(); ++i)
        if (node.sourceOf(Tplug(&node, a.child(i), element)) || drivenBelow(node, *a.child(i), element)) return true;
    return false;
}

// The file form of what the node holds for `a` beyond its default, or null.
TsceneJson storedValue(TdependNode& node, const Tattribute& a, int element) {
    if (!isSavedAttribute(a) || drivenWhole(node, a, element)) return nullptr;
    const void* value = node.storage(&a, unsigned(std::max(element, 0)));
    if (a.childCount() == 0) return a.isDefaultValue(value) ? TsceneJson() : encodeLeafValue(a, value);
    if (compoundAsArray(a) && !drivenBelow(node, a, element))
        return a.isDefaultValue(value) ? TsceneJson() : encodeWholeValue(a, value);
    TsceneJson children = TsceneJson::object();
    for (unsigned i = 0; i < a.childCount(); ++i) {
        TsceneJson c = storedValue(node, *a.child(i), element);
        if (!c.is_null()) children[a.child(i)->longName().str()] = std::move(c);
    }
    return children.empty() ? TsceneJson() : children;
}

// Every element the node holds. An element at its default is still written
// (whole), since its being there can matter; one that exists only through
// its connections is left to them.
TsceneJson multiValue(TdependNode& node, const Tattribute& a) {
    TsceneJson elements = TsceneJson::object();
    TuInt32Array indices;
    node.getExistingMultiAttributeIndices(Tplug(&node, &a, true), indices);
    for (unsigned i = 0; i < indices.length(); ++i) {
        int index = int(indices[i]);
        if (!node.hasMultiElement(&a, unsigned(index)) || drivenWhole(node, a, index)) continue;
        TsceneJson v = storedValue(node, a, index);
        if (v.is_null()) {
            if (drivenBelow(node, a, index)) continue;
            if (a.childCount() == 0 || compoundAsArray(a)) v = encodeWholeValue(a, node.storage(&a, unsigned(index)));
            else v = TsceneJson::object();
        }
        elements[std::to_string(index)] = std::move(v);
    }
    return elements.empty() ? TsceneJson() : elements;
}

TsceneJson nodeEntry(TdependNode& node) {
    TsceneJson entry = TsceneJson::object();
    entry["type"] = node.typeName().str();
    entry["name"] = node.name().str();
    if (auto* dag = static_cast<TdagNode*>(node.cast(TdagNode::sMetaclass())); dag && !dag->parents().empty()) {
        if (dag->parents().size() == 1) {
            entry["parent"] = dag->parents()[0]->name().str();
        } else {
            TsceneJson list = TsceneJson::array();
            for (TdagNode* p : dag->parents()) list.push_back(p->name().str());
            entry["parent"] = std::move(list);
        }
    }
    TsceneJson attributes = TsceneJson::object();
    // Only the class's own attributes: dynamic ones have no declaration in
    // the file to be made from.
    for (unsigned i = 0; i < node.staticAttributeCount(); ++i) {
        const Tattribute* a = node.attribute(i);
        if (a->parent()) continue;
        TsceneJson v = a->isArray() ? multiValue(node, *a) : storedValue(node, *a, Tplug::kNoIndex);
        if (!v.is_null()) attributes[a->longName().str()] = std::move(v);
    }
    if (!attributes.empty()) entry["attributes"] = std::move(attributes);
    if (auto* set = static_cast<TobjectSet*>(node.cast(TobjectSet::sMetaclass())); set && !set->members().empty()) {
        TsceneJson list = TsceneJson::array();
        for (const TdagPath& path : set->members()) list.push_back(path.fullPathName());
        entry["members"] = std::move(list);
    }
    return entry;
}

std::string scalarText(const TsceneJson& v) { return v.dump(-1, ' ', false, TsceneJson::error_handler_t::replace); }

bool isScalar(const TsceneJson& v) { return !v.is_array() && !v.is_object(); }

// Objects one member per line; arrays of plain values on one line, so that
// colours, matrix rows and connections read as one item each.
void print(const TsceneJson& v, unsigned indent, std::string& out) {
    const std::string inner(indent + 2, ' ');
    if (v.is_object()) {
        if (v.empty()) {
            out += "{}";
            return;
        }
        out += "{\n";
        size_t i = 0;
        for (auto it = v.begin(); it != v.end(); ++it, ++i) {
            out += inner + scalarText(it.key()) + ": ";
            print(it.value(), indent + 2, out);
            out += i + 1 < v.size() ? ",\n" : "\n";
        }
        out += std::string(indent, ' ') + "}";
    } else if (v.is_array()) {
        bool flat = std::all_of(v.begin(), v.end(), isScalar);
        if (flat) {
            out += "[";
            for (size_t i = 0; i < v.size(); ++i) out += (i ? ", " : "") + scalarText(v[i]);
            out += "]";
            return;
        }
        out += "[\n";
        for (size_t i = 0; i < v.size(); ++i) {
            out += inner;
            print(v[i], indent + 2, out);
            out += i + 1 < v.size() ? ",\n" : "\n";
        }
        out += std::string(indent, ' ') + "]";
    } else {
        out += scalarText(v);
    }
}
}  // namespace

std::string TsceneWriter::toText(const TdependGraph& graph) {
    TsceneJson doc = TsceneJson::object();
    doc["format"] = TsceneLoader::kFormatName;
    doc["version"] = TsceneLoader::kFormatVersion;
    TsceneJson nodes = TsceneJson::array();
    TsceneJson connections = TsceneJson::array();
    for (TdependNode* node : graph.nodes()) {
        nodes.push_back(nodeEntry(*node));
        std::vector<std::pair<Tplug, Tplug>> incoming;
        node->allIncoming(incoming);
        for (auto& [source, destination] : incoming) connections.push_back({plugText(source), plugText(destination)});
    }
    doc["nodes"] = std::move(nodes);
    doc["connections"] = std::move(connections);
    std::string text;
    print(doc, 0, text);
    return text + "\n";
}

bool TsceneWriter::save(const TdependGraph& graph, const std::string& path) {
    fError.clear();
    const std::string text = toText(graph);
    // A failed save (full disc, interrupted program) must leave the user's
    // earlier scene as it was: write beside it, then rename over it.
    TatomicFile file(path);
    if (!file.open(fError)) return false;
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = ::write(file.descriptor(), text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            fError = TatomicFile::errorText(path, n < 0 ? errno : ENOSPC);
            return false;  // `file` discards the temporary
        }
        done += size_t(n);
    }
    return file.commit(fError);
}
