#pragma once
// Factories that say how a material type fills its viewport record, found
// by the node's classification first and its type name second.
#include "display/material_input_data.h"
#include "framework/host/plug.h"
#include "framework/host/tstring.h"

class TdependNode;

class TmaterialInfoFactory {
public:
    explicit TmaterialInfoFactory(TdependNode* node) : fNode(node) {}
    virtual ~TmaterialInfoFactory() = default;
    virtual bool useMaterialAsTexture() { return false; }
    // Fills `data`; false leaves the defaults.
    virtual bool computeMaterial(TmaterialInputData& data) = 0;
    virtual bool connectAsTexture(const Tplug&) { return false; }
    virtual void textureDisconnected(const Tplug&) {}
    TdependNode* node() const { return fNode; }

protected:
    TdependNode* fNode;
};

struct TmaterialInfoFunctions {
    TmaterialInfoFactory* (*create)(TdependNode* node) = nullptr;
};

// For the external renderer's shader family: diffuse, ambient (or ambience),
// transp, incandescence, specular and shiny (or exponent) as they are set.
class TmaterialmrFactory : public TmaterialInfoFactory {
public:
    using TmaterialInfoFactory::TmaterialInfoFactory;
    bool computeMaterial(TmaterialInputData& data) override;
    bool connectAsTexture(const Tplug& plug) override;
    void textureDisconnected(const Tplug& plug) override;
    // False when TOVI_DISABLE_VIEWPORT_MR_SHADERS is set.
    static bool sEnabled();

private:
    Tplug fTexturePlug;
};

class TmaterialInfoMgr {
public:
    static bool registerMaterialInfoGen(const Tstring& name, const TmaterialInfoFunctions& functions);
    static bool unregisterMaterialInfoGen(const Tstring& name);
    static bool registerNodeMaterialInfo(const Tstring& nodeType, const Tstring& name);
    // A new factory for `node`, or null when nothing is registered for it.
    static TmaterialInfoFactory* createMatInfoFactory(TdependNode* node);

protected:
    static const TmaterialInfoFunctions* getObjectCreator(TdependNode* node);
};
