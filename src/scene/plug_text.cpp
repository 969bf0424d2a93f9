#include "scene/plug_text.h"

#include <vector>

#include "framework/host/depend_node.h"

std::string plugText(const TdependNode& node, const Tattribute& attribute, int index) {
    const Tattribute* root = attribute.rootParent();
    if (!root->isArray()) return node.name().str() + "." + attribute.longName().str();
    std::vector<const Tattribute*> chain;
    for (const Tattribute* a = &attribute; a != root; a = a->parent()) chain.push_back(a);
    std::string text = node.name().str() + "." + root->longName().str();
    if (index != Tplug::kNoIndex) text.append(1, '[').append(std::to_string(index)).append(1, ']');
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) text += "." + (*it)->longName().str();
    return text;
}

std::string plugText(const Tplug& plug) { return plugText(*plug.node(), *plug.attribute(), plug.index()); }
