#include "display/material_info_mgr.h"

#include <cstdlib>
#include <map>
#include <string>

#include "display/material_values.h"
#include "framework/host/depend_graph.h"
#include "framework/host/depend_node.h"

namespace {
// Made on first use: registrations come from static initialisers of other files.
std::map<std::string, TmaterialInfoFunctions>& generators() {
    static std::map<std::string, TmaterialInfoFunctions> map;
    return map;
}
std::map<std::string, std::string>& nodeTypes() {
    static std::map<std::string, std::string> map;
    return map;
}

TportColor portColor(const T3Float& c, float a = 1) { return {c.x, c.y, c.z, a}; }

TmaterialInfoFactory* createMr(TdependNode* node) { return new TmaterialmrFactory(node); }

// The external renderer's shaders register under their classification.
const bool sMrRegistered = [] {
    TmaterialInfoMgr::registerMaterialInfoGen("mrShader", TmaterialInfoFunctions{createMr});
    return TmaterialInfoMgr::registerNodeMaterialInfo("rendernode/mentalray/material", "mrShader");
}();
}  // namespace

bool TmaterialInfoMgr::registerMaterialInfoGen(const Tstring& name, const TmaterialInfoFunctions& functions) {
    if (name.isEmpty() || !functions.create) return false;
    return generators().emplace(name.str(), functions).second;
}

bool TmaterialInfoMgr::unregisterMaterialInfoGen(const Tstring& name) { return generators().erase(name.str()) != 0; }

bool TmaterialInfoMgr::registerNodeMaterialInfo(const Tstring& nodeType, const Tstring& name) {
    if (nodeType.isEmpty() || name.isEmpty()) return false;
    nodeTypes()[nodeType.str()] = name.str();
    return true;
}

const TmaterialInfoFunctions* TmaterialInfoMgr::getObjectCreator(TdependNode* node) {
    if (!node) return nullptr;
    auto lookup = [](const std::string& key) -> const TmaterialInfoFunctions* {
        auto type = nodeTypes().find(key);
        if (type == nodeTypes().end()) return nullptr;
        auto gen = generators().find(type->second);
        return gen == generators().end() ? nullptr : &gen->second;
    };
    std::string classification = TclassificationMgr::getClassification(node->typeName()).str();
    if (!classification.empty())
        if (auto* f = lookup(classification)) return f;
    return lookup(node->typeName().str());
}

TmaterialInfoFactory* TmaterialInfoMgr::createMatInfoFactory(TdependNode* node) {
    const TmaterialInfoFunctions* f = getObjectCreator(node);
    if (!f) return nullptr;
    if (f->create == createMr && !TmaterialmrFactory::sEnabled()) return nullptr;
    return f->create(node);
}

bool TmaterialmrFactory::sEnabled() {
    static const bool enabled = std::getenv("TOVI_DISABLE_VIEWPORT_MR_SHADERS") == nullptr;
    return enabled;
}

bool TmaterialmrFactory::computeMaterial(TmaterialInputData& data) {
    if (!fNode) return false;
    if (auto c = unconnectedColor(fNode, "diffuse")) data.diffuse = portColor(*c);
    if (auto c = unconnectedColor(fNode, "ambient")) data.ambient = portColor(*c);
    else if (auto c = unconnectedColor(fNode, "ambience")) data.ambient = portColor(*c);
    if (auto c = unconnectedColor(fNode, "transp")) data.alpha = 1 - (c->x + c->y + c->z) / 3;
    if (auto c = unconnectedColor(fNode, "incandescence")) data.emission = portColor(*c);
    if (auto c = unconnectedColor(fNode, "specular")) data.specular = portColor(*c);
    if (auto s = unconnectedNumber(fNode, "shiny")) data.shininess = float(*s);
    else if (auto s = unconnectedNumber(fNode, "exponent")) data.shininess = float(*s);
    return true;
}

bool TmaterialmrFactory::connectAsTexture(const Tplug& plug) {
    if (plug.isNull()) return false;
    fTexturePlug = plug;
    return true;
}

void TmaterialmrFactory::textureDisconnected(const Tplug& plug) {
    if (plug == fTexturePlug) fTexturePlug = Tplug();
}
