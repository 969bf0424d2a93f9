#pragma once
// The class table of the library, held as data: type name, IFF tag and
// classification of every node class, and the classes whose compute must not
// run on several threads at once. A class takes its facts from here when it
// declares itself (renderNodeInfo), so the table is the one place to look
// them up and to list them.
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

#include "framework/host/node_class.h"

struct TnodeClassFacts {
    const char* className;
    const char* typeName;
    const char* iffTag;
    const char* classification;  // empty: none
};

namespace node_registry_detail {
inline constexpr TnodeClassFacts kClassTable[] = {
    {"TdnLambert", "lambert", "RLAM", "shader/surface"},
    {"TdnPhong", "phong", "RPHO", "shader/surface"},
    {"TdnPhongE", "phongE", "RPHE", "shader/surface"},
    {"TdnBlinn", "blinn", "RBLN", "shader/surface"},
    {"TdnAnisotropy", "anisotropic", "RANI", "shader/surface"},
    {"TdnRampShader", "rampShader", "RRPS", "shader/surface"},
    {"TdnLayeredShader", "layeredShader", "LYRS", "shader/surface"},
    {"TdnShadingMap", "shadingMap", "SDMP", "shader/surface"},
    {"TdnUseBackground", "useBackground", "USBG", "shader/surface"},
    {"TdnHairTubeShader", "hairTubeShader", "RHTB", "shader/surface"},
    {"TdnOceanShader", "oceanShader", "ROPS", "shader/surface"},
    {"TdnMaterialFacade", "materialFacade", "RMFC", "shader/surface"},
    {"TdnSurfaceShader", "surfaceShader", "RSSH", "shader/surface/utility"},
    {"TdnDisplacementShader", "displacementShader", "RDSH", "shader/displacement"},
    {"TdnVolumeFog", "volumeFog", "RVFG", "shader/volume/fog"},
    {"TdnLightFogMaterial", "lightFog", "RFOG", "shader/volume/fog"},
    {"TdnEnvFogMaterial", "envFog", "REFG", "shader/volume/fog"},
    {"TdnVolumeShader", "volumeShader", "RVSH", "shader/volume/utility"},
    {"TdnParticleCloud", "particleCloud", "PCLD", "shader/volume/particle"},
    {"TdnBulge", "bulge", "RTBU", "texture/2d"},
    {"TdnChecker", "checker", "RTCH", "texture/2d"},
    {"TdnCloth", "cloth", "RTCL", "texture/2d"},
    {"TdnFractal", "fractal", "RT2F", "texture/2d"},
    {"TdnGrid", "grid", "RTGD", "texture/2d"},
    {"TdnMountain", "mountain", "RTMT", "texture/2d"},
    {"TdnNoise", "noise", "RTN3", "texture/2d"},
    {"TdnOcean", "ocean", "RTOC", "texture/2d"},
    {"TdnRamp", "ramp", "RTRA", "texture/2d"},
    {"TdnWater", "water", "RTWA", "texture/2d"},
    {"TdnFileTexture", "file", "RTFT", "texture/2d"},
    {"TdnPsdFileTexture", "psdFileTex", "PSDT", "texture/2d"},
    {"TdnMovieTexture", "movie", "RTMV", "texture/2d"},
    {"TdnBrownian", "brownian", "RFBM", "texture/3d"},
    {"TdnCloud", "cloud", "RTCD", "texture/3d"},
    {"TdnCrater", "crater", "RS40", "texture/3d"},
    {"TdnGranite", "granite", "RTGR", "texture/3d"},
    {"TdnLeather", "leather", "RTLE", "texture/3d"},
    {"TdnMarble", "marble", "RTMR", "texture/3d"},
    {"TdnRock", "rock", "RTRK", "texture/3d"},
    {"TdnSnow", "snow", "RTSN", "texture/3d"},
    {"TdnSolidFractal", "solidFractal", "RTF3", "texture/3d"},
    {"TdnStucco", "stucco", "RS60", "texture/3d"},
    {"TdnVolumeNoise", "volumeNoise", "RTV3", "texture/3d"},
    {"TdnWood", "wood", "RTWD", "texture/3d"},
    {"TdnEnvBall", "envBall", "REBL", "texture/environment"},
    {"TdnEnvChrome", "envChrome", "RECH", "texture/environment"},
    {"TdnEnvCube", "envCube", "RECB", "texture/environment"},
    {"TdnEnvSky", "envSky", "RESK", "texture/environment"},
    {"TdnEnvSphere", "envSphere", "RESP", "texture/environment"},
    {"TdnEnvFacade", "envFacade", "REFC", "texture/environment"},
    {"TdnSTGEnvFacade", "STGEnvFacade", "REFV", "texture/environment"},
    {"TdnLayeredTexture", "layeredTexture", "LYRT", "texture/other"},
    {"TdnBlendColors", "blendColors", "RBL2", "utility/color"},
    {"TdnClampColor", "clamp", "RCL3", "utility/color"},
    {"TdnContrast", "contrast", "RCON", "utility/color"},
    {"TdnGammaCorrect", "gammaCorrect", "RGAM", "utility/color"},
    {"TdnHsvToRgb", "hsvToRgb", "RH2R", "utility/color"},
    {"TdnRgbToHsv", "rgbToHsv", "RR2H", "utility/color"},
    {"TdnLuminance", "luminance", "RLUM", "utility/color"},
    {"TdnSurfaceLuminance", "surfaceLuminance", "RSLU", "utility/color"},
    {"TdnRemapColor", "remapColor", "RMCL", "utility/color"},
    {"TdnRemapHsv", "remapHsv", "RMHS", "utility/color"},
    {"TdnRemapValue", "remapValue", "RMVL", "utility/color"},
    {"TdnCondition", "condition", "RCND", "utility/general"},
    {"TdnHeightField", "heightField", "OCPP", "utility/general"},
    {"TdnLightInfo", "lightInfo", "RLIN", "utility/general"},
    {"TdnMultiplyDivide", "multiplyDivide", "RMDI", "utility/general"},
    {"TdnPlusMinusAverage", "plusMinusAverage", "RPMA", "utility/general"},
    {"TdnProjection", "projection", "RPRJ", "utility/general"},
    {"TdnReverse", "reverse", "RRVS", "utility/general"},
    {"TdnSamplerInfo", "samplerInfo", "RSIN", "utility/general"},
    {"TdnSetRange", "setRange", "RRNG", "utility/general"},
    {"TdnStencil", "stencil", "RTST", "utility/general"},
    {"TdnVectorProduct", "vectorProduct", "RVEC", "utility/general"},
    {"TdnBump", "bump2d", "RBUM", "utility/general/bump"},
    {"TdnBump3d", "bump3d", "RBU3", "utility/general/bump"},
    {"TdnPlace2dTx", "place2dTexture", "RPL2", "utility/general/placement/2d"},
    {"TdnUvChooser", "uvChooser", "UVCH", "utility/general/placement/2d"},
    {"TdnPlace3dTxDag", "place3dTexture", "RPLD", "utility/general/placement/3d"},
    {"TdnParticleSamplerInfo", "particleSamplerInfo", "PSIN", "utility/particle"},
    {"TdnSingleSwitch", "singleShadingSwitch", "SWH1", "utility/switch"},
    {"TdnDoubleSwitch", "doubleShadingSwitch", "SWH2", "utility/switch"},
    {"TdnTripleSwitch", "tripleShadingSwitch", "SWH3", "utility/switch"},
    {"TdnQuadSwitch", "quadShadingSwitch", "SWH4", "utility/switch"},
    {"TambientLightShape", "ambientLight", "AMBL", "light"},
    {"TareaLightShape", "areaLight", "ARLT", "light"},
    {"TdirectionalLightShape", "directionalLight", "DIRL", "light"},
    {"TpointLightShape", "pointLight", "POIT", "light"},
    {"TspotLightShape", "spotLight", "SPTL", "light"},
    {"TvolumeLightShape", "volumeLight", "VOLL", "light"},
    {"TrenderLightShape", "renderLight", "RLSN", "rendernode"},
    {"TnonAmbientLightShape", "nonAmbientLightShapeNode", "NAMB", "rendernode"},
    {"TnonExtendedLightShape", "nonExtendedLightShapeNode", "NEXT", "rendernode"},
    {"TdnReflect", "reflect", "RFLC", "rendernode"},
    {"TdnTx2D", "texture2d", "RTX2", "rendernode"},
    {"TdnTx3D", "texture3d", "RTX3", "rendernode"},
    {"TdnTxEnv", "textureEnv", "RTXE", "rendernode"},
    {"TdnBaseSwitch", "baseShadingSwitch", "BSWH", "rendernode"},
    {"TdnRenderGlobals", "renderGlobals", "RGLB", "rendernode"},
    {"TdnMentalRayTx", "mentalrayTexture", "RMTX", "rendernode/mentalray/texture"},
    {"TdnShaderGlow", "shaderGlow", "SHGL", "postprocess/glow"},
    {"TdnOpticalFX", "opticalFX", "OPFX", "postprocess/opticalFX"},
    {"TdnRenderQuality", "renderQuality", "RQUA", "renderGlobal/quality"},
    {"TdnResolution", "resolution", "RLTN", "renderGlobal/resolution"},
    {"TDNshadingEngine", "shadingEngine", "SHAD", "shadingEngine"},
    {"TmaterialInfo", "materialInfo", "DMTI", ""},
    {"TdnHwReflectionMap", "hwReflectionMap", "HWRM", ""},
    {"TdnHardwareRenderGlobals", "hwRenderGlobals", "YHRD", ""},
    {"TdnHwRenderGlobals", "hardwareRenderGlobals", "HWRG", ""},
    {"TrenderSphereShape", "renderSphere", "RNSP", ""},
    {"TrenderRectShape", "renderRect", "RRCT", ""},
    {"TrenderConeShape", "renderCone", "RNCO", ""},
    {"TrenderBoxShape", "renderBox", "RNBX", ""},
    {"TenvFogShape", "environmentFog", "ENVF", ""},
    {"TdirectedDiscShape", "directedDisc", "DDSC", ""},
    {"TconeShape", "implicitCone", "FICO", ""},
    {"TdnBakeSet", "bakeSet", "BAKE", ""},
    {"TdnTextureBakeSet", "textureBakeSet", "TBAK", ""},
    {"TdnVertexBakeSet", "vertexBakeSet", "VBAK", ""},
    {"TdnDOF", "dof", "DOFD", ""},
    {"TdnMultilisterLight", "multilisterLight", "MULL", ""},
    {"TdnDefaultLightList", "defaultLightList", "DEFL", ""},
    {"TdnLightList", "lightList", "LLST", ""},
    {"TdnLightLink", "lightLinker", "RLLK", ""},
    {"TdnShaderList", "defaultShaderList", "RDSL", ""},
    {"TdnTextureList", "defaultTextureList", "RDTL", ""},
    {"TdnRenderUtilityList", "defaultRenderUtilityList", "DRUL", ""},
    {"TdnPostProcessList", "postProcessList", "PPST", ""},
    {"TdnHwShader", "hwShader", "RHWS", ""},
    {"TsimpleVolumeShader", "simpleVolumeShader", "SVSH", ""},
    {"TdnParticleAgeMapper", "particleAgeMapper", "PAMA", ""},
    {"TdnParticleColorMapper", "particleColorMapper", "PCMA", ""},
    {"TdnParticleIncandMapper", "particleIncandMapper", "PIMA", ""},
    {"TdnParticleTranspMapper", "particleTranspMapper", "PTMA", ""},
    {"TdnRenderGlobalsList", "renderGlobalsList", "RDGL", ""},
};

// That TdnWater is here and TdnOcean is not, and that TdnBaseSwitch is here
// while its four subclasses are not, is deliberate.
inline constexpr const char* kMpUnsafe[] = {
    "TnonExtendedLightShape", "TdnRenderGlobals", "TdnRenderQuality", "TdnResolution", "TmaterialInfo",
    "TrenderRectShape", "TdnHwReflectionMap", "TdnBaseSwitch", "TenvFogShape", "TdnHardwareRenderGlobals",
    "TdirectedDiscShape", "TconeShape", "TrenderSphereShape", "TrenderConeShape", "TrenderBoxShape",
    "TdnShaderGlow", "TdnDOF", "TdnHwRenderGlobals", "TdnBakeSet", "TdnTextureBakeSet", "TdnVertexBakeSet",
    "TdnOpticalFX", "TdnHeightField", "TdnWater",
};

constexpr bool same(const char* a, const char* b) { return std::string_view(a) == std::string_view(b); }
}  // namespace node_registry_detail

constexpr const TnodeClassFacts* findNodeClassFacts(std::string_view className) {
    for (const auto& f : node_registry_detail::kClassTable)
        if (className == f.className) return &f;
    return nullptr;
}

// False for the classes whose vectorComputePlug runs under the node's mutex.
constexpr bool nodeClassIsMpSafe(std::string_view className) {
    for (const char* c : node_registry_detail::kMpUnsafe)
        if (className == c) return false;
    return true;
}

// The declaration facts of a class in the table; a class missing from the
// table does not compile.
consteval TnodeClassInfo renderNodeInfo(const char* className, unsigned apiType, const char* apiTypeName,
                                        bool abstractClass = false, uint32_t registrationFlags = 0x20) {
    // Looked up by index: pointer tests in constant expressions trip the
    // sanitizer builds.
    unsigned found = ~0u;
    for (unsigned i = 0; i < std::size(node_registry_detail::kClassTable); ++i)
        if (std::string_view(node_registry_detail::kClassTable[i].className) == className) found = i;
    if (found == ~0u) throw "node class missing from the class table";
    const TnodeClassFacts& facts = node_registry_detail::kClassTable[found];
    TnodeClassInfo info{className, apiType, apiTypeName};
    info.typeName = facts.typeName;
    info.iffTag = facts.iffTag;
    info.classification = facts.classification;
    info.abstractClass = abstractClass;
    info.registrationFlags = registrationFlags;
    info.mpSafe = nodeClassIsMpSafe(className);
    return info;
}

inline std::span<const TnodeClassFacts> nodeClassTable() { return node_registry_detail::kClassTable; }
inline std::span<const char* const> mpUnsafeClasses() { return node_registry_detail::kMpUnsafe; }
