#include "scene/attribute_override.h"

#include "framework/host/depend_graph.h"
#include "scene/scene_loader.h"
#include "scene/value_codec.h"

bool parseAttributeOverride(const std::string& text, TattributeOverride& parsed, std::string& why) {
    parsed = {};
    parsed.text = text;
    const size_t equals = text.find('=');
    const size_t dot = text.find('.');
    if (equals == std::string::npos || dot == std::string::npos || dot > equals) {
        why = "expected NODE.ATTRIBUTE=VALUE";
        return false;
    }
    parsed.node = text.substr(0, dot);
    parsed.attribute = text.substr(dot + 1, equals - dot - 1);
    parsed.value = text.substr(equals + 1);
    if (parsed.node.empty() || parsed.attribute.empty()) {
        why = parsed.node.empty() ? "no node name before '.'" : "no attribute name between '.' and '='";
        return false;
    }
    if (parsed.value.find_first_not_of(" \t") == std::string::npos) {
        why = "no value after '='";
        return false;
    }
    return true;
}

namespace {
bool refusedForANumberTooLarge(const std::string& text) {
    try {
        const TsceneJson parsed = TsceneJson::parse(text);
        static_cast<void>(parsed);
    } catch (const TsceneJson::out_of_range&) {
        return true;
    } catch (const TsceneJson::exception&) {
    }
    return false;
}
}  // namespace

bool applyAttributeOverride(TdependGraph& graph, const TattributeOverride& edit, const std::string& origin,
                            std::vector<std::string>& errors) {
    const std::string where = origin + " " + edit.text;
    TdependNode* node = graph.findNode(Tstring(edit.node));
    if (!node) {
        errors.push_back(where + ": no node named '" + edit.node + "' in the scene");
        return false;
    }
    // Bare words are strings; anything JSON reads is taken as JSON, and so is
    // JSON refused only for a number too large, so that the message says so.
    std::string valueText = edit.value;
    if (!TsceneJson::accept(valueText) && !refusedForANumberTooLarge(valueText)) valueText = TsceneJson(edit.value).dump();
    TsceneLoader loader;
    if (loader.assignAttribute(*node, edit.attribute, valueText, where)) return true;
    for (const TsceneError& e : loader.errors()) errors.push_back(e.text());
    return false;
}

bool applyAttributeOverrides(TdependGraph& graph, const std::vector<std::string>& edits, const std::string& origin,
                             std::vector<std::string>& errors) {
    bool ok = true;
    for (const std::string& text : edits) {
        TattributeOverride edit;
        std::string why;
        if (!parseAttributeOverride(text, edit, why)) {
            errors.push_back(origin + " " + text + ": " + why);
            ok = false;
            continue;
        }
        ok = applyAttributeOverride(graph, edit, origin, errors) && ok;
    }
    return ok;
}
