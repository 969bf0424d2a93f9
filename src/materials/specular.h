#pragma once
// The specular family: each class is a reflecting Lambert surface with one
// highlight shape (materials/specular_lobes.h). They share one shading
// skeleton, TdnReflect::shadeSpecular; a class adds its attributes and the
// lobe that reads them.
#include "materials/reflect.h"

// ---------------------------------------------------------------- phong

struct TdnVSPhong : TdependNodeVS {
    TattributeFloat cosinePower{"cosinePower", "cp", TiffTag("CPOW")};
    TdnVSPhong();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnPhong : public TnodeClass<TdnPhong, TsettlingNode<TdnPhong, TdnReflect>, TdnVSPhong> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnPhong", 0x16B, "kPhong");
    SN_ATTRIBUTE(CosinePower, cosinePower)
    void getCosPower(float& value);
    // The lobe's input, settled per render when nothing drives it.
    template <class F>
    void forEachSettled(F&& f) {
        f(fPower, attrCosinePower());
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) override;

private:
    TsettledInput<float> fPower;
};

// ---------------------------------------------------------------- phongE

struct TdnVSPhongE : TdependNodeVS {
    TattributeFloat roughness{"roughness", "rn", TiffTag("RUFF")};
    TattributeFloat highlightSize{"highlightSize", "hls", TiffTag("HLSZ")};
    TcolorAttribute whiteness{"whiteness", "wn", TiffTag("WHT3")};
    TcolorAttribute miWhiteness{"miWhiteness", "miwn", TiffTag("MWH3")};
    TdnVSPhongE();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnPhongE : public TnodeClass<TdnPhongE, TsettlingNode<TdnPhongE, TdnReflect>, TdnVSPhongE> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnPhongE", 0x16C, "kPhongExplorer");
    SN_ATTRIBUTE(Roughness, roughness)
    SN_ATTRIBUTE(HighlightSize, highlightSize)
    SN_COLOR_ATTRIBUTE(Whiteness, whiteness)
    // The lobe's inputs, settled per render when nothing drives them.
    template <class F>
    void forEachSettled(F&& f) {
        f(fRoughness, attrRoughness());
        f(fSize, attrHighlightSize());
        f(fWhiteness, attrWhiteness());
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) override;

private:
    TsettledInput<float> fRoughness, fSize;
    TsettledInput<T3Float> fWhiteness;
};

// ---------------------------------------------------------------- blinn

struct TdnVSBlinn : TdependNodeVS {
    TattributeFloat eccentricity{"eccentricity", "ec", TiffTag("ECCN")};
    TattributeFloat specularRollOff{"specularRollOff", "sro", TiffTag("SROF")};
    TattributeBoolean reflectionRolloff{"reflectionRolloff", "rro", TiffTag("RROF")};
    TdnVSBlinn();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnBlinn : public TnodeClass<TdnBlinn, TsettlingNode<TdnBlinn, TdnReflect>, TdnVSBlinn> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnBlinn", 0x16D, "kBlinn");
    SN_ATTRIBUTE(Eccentricity, eccentricity)
    SN_ATTRIBUTE(SpecularRollOff, specularRollOff)
    SN_ATTRIBUTE(ReflectionRolloff, reflectionRolloff)
    void getEccentricity(float& value);
    void setEccentricity(float& value);
    // The lobe's inputs, settled per render when nothing drives them.
    template <class F>
    void forEachSettled(F&& f) {
        f(fEccentricity, attrEccentricity());
        f(fRollOff, attrSpecularRollOff());
        f(fReflectionRolloff, attrReflectionRolloff());
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) override;
    void computeBlinn(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);

private:
    TsettledInput<float> fEccentricity, fRollOff;
    TsettledInput<bool> fReflectionRolloff;
};

// ---------------------------------------------------------------- anisotropic

struct TdnVSAnisotropy : TdependNodeVS {
    TvectorAttribute tangentUCamera{"tangentUCamera", "utan", TiffTag("UTN3")};
    TvectorAttribute tangentVCamera{"tangentVCamera", "vtan", TiffTag("VTN3")};
    TattributeFloat spreadX{"spreadX", "sprx", TiffTag("SPRX")};
    TattributeFloat spreadY{"spreadY", "spry", TiffTag("SPRY")};
    TattributeFloat roughness{"roughness", "roug", TiffTag("ROUG")};
    TattributeFloat angle{"angle", "angl", TiffTag("ANGL")};
    TattributeFloat fresnelRefractiveIndex{"fresnelRefractiveIndex", "frfi", TiffTag("FRFI")};
    TattributeBoolean anisotropicReflectivity{"anisotropicReflectivity", "arfl", TiffTag("ARFL")};
    TattributeFloat miAngle{"miAngle", "mian", TiffTag("MIAN")};
    TattributeFloat miSpreadX{"miSpreadX", "misx", TiffTag("MISX")};
    TattributeFloat miSpreadY{"miSpreadY", "misy", TiffTag("MISY")};
    TdnVSAnisotropy();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnAnisotropy : public TnodeClass<TdnAnisotropy, TdnReflect, TdnVSAnisotropy> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnAnisotropy", 0x16E, "kAnisotropy");
    SN_VECTOR_ATTRIBUTE(TangentUCamera, tangentUCamera)
    SN_VECTOR_ATTRIBUTE(TangentVCamera, tangentVCamera)
    SN_ATTRIBUTE(SpreadX, spreadX)
    SN_ATTRIBUTE(SpreadY, spreadY)
    SN_ATTRIBUTE(Roughness, roughness)
    SN_ATTRIBUTE(Angle, angle)
    SN_ATTRIBUTE(FresnelRefractiveIndex, fresnelRefractiveIndex)
    SN_ATTRIBUTE(AnisotropicReflectivity, anisotropicReflectivity)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) override;
};

// ---------------------------------------------------------------- hair tube

struct TdnVSHairTubeShader : TdependNodeVS {
    TvectorAttribute tangentUCamera{"tangentUCamera", "utan", TiffTag("UTN3")};
    TvectorAttribute tangentVCamera{"tangentVCamera", "vtan", TiffTag("VTN3")};
    TpairAttribute uvCoord{"uvCoord", "uv", TiffTag("UVC2"), "uCoord", "u", TiffTag("UCRD"), "vCoord", "v", TiffTag("VCRD")};
    TattributeEnum tubeDirection{"tubeDirection", "tdr", TiffTag("TUBD")};
    // A scale curve along the strand: (position, value) keys over vCoord.
    TattributeCompound colorScale{"colorScale", "cls", TiffTag("CLSC")};
    TattributeFloat colorScalePosition{"colorScale_Position", "clsp", TiffTag("CLSP")};
    TattributeFloat colorScaleValue{"colorScale_FloatValue", "clsfv", TiffTag("CLSV")};
    TattributeFloat specularPower{"specularPower", "sp", TiffTag("SPPW")};
    TattributeFloat specularShift{"specularShift", "ssh", TiffTag("SPSH")};
    TattributeFloat scatterPower{"scatterPower", "scp", TiffTag("SCPW")};
    TattributeFloat scatter{"scatter", "sct", TiffTag("SCAT")};
    TdnVSHairTubeShader();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnHairTubeShader : public TnodeClass<TdnHairTubeShader, TdnReflect, TdnVSHairTubeShader> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnHairTubeShader", 0x16F, "kHairTubeShader");
    enum { kUTangent = 0, kVTangent = 1 };
    SN_VECTOR_ATTRIBUTE(TangentUCamera, tangentUCamera)
    SN_VECTOR_ATTRIBUTE(TangentVCamera, tangentVCamera)
    SN_PAIR_ATTRIBUTE(UvCoord, uvCoord, U, V)
    SN_ATTRIBUTE(TubeDirection, tubeDirection)
    SN_ATTRIBUTE(ColorScale, colorScale)
    SN_ATTRIBUTE(ColorScalePosition, colorScalePosition)
    SN_ATTRIBUTE(ColorScaleValue, colorScaleValue)
    SN_ATTRIBUTE(SpecularPower, specularPower)
    SN_ATTRIBUTE(SpecularShift, specularShift)
    SN_ATTRIBUTE(ScatterPower, scatterPower)
    SN_ATTRIBUTE(Scatter, scatter)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count) override;
};
