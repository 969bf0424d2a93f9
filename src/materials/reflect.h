#pragma once
// TdnReflect: a Lambert surface with a mirror reflection and the attributes
// of a specular surface. It is abstract in use: the lobe classes derive from
// it and add the highlight (materials/specular.h).
#include "materials/lambert.h"

struct TdnVSReflect : TdependNodeVS {
    TattributeInt16 reflectionLimit{"reflectionLimit", "fll", TiffTag("RFLL")};
    TcolorAttribute specularColor{"specularColor", "sc", TiffTag("SPC3")};
    TattributeFloat reflectivity{"reflectivity", "rfl", TiffTag("RFLT")};
    TcolorAttribute reflectedColor{"reflectedColor", "rc", TiffTag("RFC3")};
    TvectorAttribute triangleNormalCamera{"triangleNormalCamera", "tnc", TiffTag("TNC3")};
    TattributeFloat reflectionSpecularity{"reflectionSpecularity", "rsp", TiffTag("RSPC")};
    // Carried for an external renderer; never read here.
    TattributeFloat miReflectionBlur{"miReflectionBlur", "mircb", TiffTag("MRCB")};
    TattributeFloat miShinyness{"miShinyness", "mis", TiffTag("MISH")};
    TcolorAttribute miSpecularColor{"miSpecularColor", "misc", TiffTag("MSC3")};
    TattributeFloat miReflectivity{"miReflectivity", "mirf", TiffTag("MIRF")};
    TattributeInt16 miReflectionRays{"miReflectionRays", "mirr", TiffTag("MIRR")};

    TdnVSReflect();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnReflect : public TnodeClass<TdnReflect, TsettlingNode<TdnReflect, TdnLambert>, TdnVSReflect> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnReflect", 0x16A, "kReflect", true);

    SN_ATTRIBUTE(ReflectionLimit, reflectionLimit)
    SN_COLOR_ATTRIBUTE(SpecularColor, specularColor)
    SN_ATTRIBUTE(Reflectivity, reflectivity)
    SN_COLOR_ATTRIBUTE(ReflectedColor, reflectedColor)
    SN_VECTOR_ATTRIBUTE(TriangleNormalCamera, triangleNormalCamera)
    SN_ATTRIBUTE(ReflectionSpecularity, reflectionSpecularity)

    void getSpecularColor(T3Float& value);
    // Decided once per render: reflectivity is driven or non-zero, and the
    // render has a ray sampler.
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;
    bool needsReflectionRays() const { return fNeedsReflectionRays; }
    // The inputs every batch of a specular surface reads, settled per
    // render when nothing drives them (Lambert's are settled beneath).
    template <class F>
    void forEachSettled(F&& f) {
        f(fReflectivity, attrReflectivity());
        f(fSpecularity, attrReflectionSpecularity());
        f(fReflectedColor, attrReflectedColor());
        f(fSpecularColor, attrSpecularColor());
    }

protected:
    // The reflected colour of each sample into outColor, as scratch: the
    // traced radiance of its mirror ray, or reflectedColor where no ray was
    // formed or there is no ray sampler.
    void computeReflection(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count);
    // The whole colour of a specular surface over at most kChunk samples:
    // reflection, Lambert, the highlight of `lobe` for each specular light,
    // hide source, glow and black hole. Defined where the lobes live.
    template <class Lobe>
    void shadeSpecular(const Tplug& plug, TdataBlock& block, unsigned start, unsigned count, const Lobe& lobe);

    TsettledInput<float> fReflectivity, fSpecularity;
    TsettledInput<T3Float> fReflectedColor, fSpecularColor;

private:
    bool fNeedsReflectionRays = true;
};
