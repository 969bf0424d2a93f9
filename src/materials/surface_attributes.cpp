#include "materials/surface_attributes.h"

#include "materials/material_support.h"

namespace {
void makeComputedOutput(TtripleAttribute& a) {
    a.setFlag(kAttrWritable | kAttrStorable | kAttrKeyable, false);
}
void setRange(Tattribute& a, double low, double high) {
    a.setSoftMin(low);
    a.setSoftMax(high);
}
}  // namespace

TlightDataArrayAttribute::TlightDataArrayAttribute(const Tstring& longName, const Tstring& shortName, TiffTag tag)
    : TattributeLightData(longName, shortName, tag) {
    // The record keeps its pointer at natural alignment, so it is larger
    // than the 32-bit layout on a 64-bit build.
    resizeValue(sizeof(TlightData));
    setMulti(true);
}

TsurfaceSettings::TsurfaceSettings() {
    setRange(translucence, 0, 1);
    translucenceFocus.setNativeDefaultData(0.5);
    setRange(translucenceFocus, 0, 1);
    translucenceDepth.setNativeDefaultData(0.5);
    setRange(translucenceDepth, 0, 5);
    setRange(opacityDepth, 0, 5);
    setRange(glowIntensity, 0, 1);
    matteOpacityMode.addField("kBlackHole", "Black Hole", 0);
    matteOpacityMode.addField("kSolidMatte", "Solid Matte", 1);
    matteOpacityMode.addField("kOpacityGain", "Opacity Gain", 2);
    matteOpacityMode.setNativeDefaultData(2);
    matteOpacity.setNativeDefaultData(1);
    setRange(matteOpacity, 0, 1);
    materialAlphaGain.setNativeDefaultData(1);
    setRange(materialAlphaGain, 0, 1);
    refractiveIndex.setNativeDefaultData(1);
    setRange(refractiveIndex, 0.01, 3);
    refractionLimit.setNativeDefaultData(6);
    setRange(refractionLimit, 0, 10);
    setRange(surfaceThickness, 0, 1);
    shadowAttenuation.setNativeDefaultData(0.5);
    setRange(shadowAttenuation, 0, 1);
    setRange(transparencyDepth, 0, 10);
    setRange(lightAbsorbance, 0, 10);
    for (Tattribute* a : std::initializer_list<Tattribute*>{&hideSource, &matteOpacityMode, &refractions, &chromaticAberration})
        a->setFlag(kAttrKeyable, false);
}

TsurfaceIO::TsurfaceIO() {
    for (TtripleAttribute* out : {static_cast<TtripleAttribute*>(&outColor), static_cast<TtripleAttribute*>(&outTransparency),
                                  &outGlowColor, static_cast<TtripleAttribute*>(&outMatteOpacity)})
        makeComputedOutput(*out);

    for (Tattribute* a : std::initializer_list<Tattribute*>{&objectId, &primitiveId, &raySampler, &rayDepth, &rayInstance,
                                                           &mediumRefractiveIndex})
        declareSampleInput(*a);
    mediumRefractiveIndex.setNativeDefaultData(1);
    for (TtripleAttribute* a : {&rayDirection, &pointCamera, static_cast<TtripleAttribute*>(&normalCamera)}) declareSampleInput(*a);
    rayDirection.setDefault(0, 0, 1);
    pointCamera.setDefault(1, 1, 1);
    normalCamera.setDefault(1, 1, 1);
    // The renderer stores its sampler here for the length of a render.
    raySampler.setFlag(kAttrWritable, true);

    lightAmbient.setNativeDefaultData(1);
    lightDiffuse.setNativeDefaultData(1);
    for (Tattribute* member : std::initializer_list<Tattribute*>{&lightDirection.whole, &lightIntensity.whole, &lightAmbient,
                                                                &lightDiffuse, &lightSpecular, &lightShadowFraction,
                                                                &preShadowIntensity, &lightBlindData})
        member->setParent(&lightDataArray);
    // The host lays compound children out by its own alignment rule, which
    // differs from the record's; the default is the record's, set last.
    TlightData record;
    lightDataArray.setDefaultBytes(&record, sizeof record);
    lightDataArray.setFlag(kAttrHidden | kAttrStorable | kAttrKeyable, false);
    for (Tattribute* a : std::initializer_list<Tattribute*>{&lightAmbient, &lightDiffuse, &lightSpecular}) a->setFlag(kAttrKeyable, false);
}

void TsurfaceDescription::declareSurfaceDependencies(TdependencyMatrix& m, const TsurfaceSettings& s, const TsurfaceIO& io) {
    affects(m,
               {&s.translucence, &s.translucenceFocus, &s.translucenceDepth, &s.opacityDepth, &s.glowIntensity, &s.hideSource,
                &s.matteOpacityMode, &s.matteOpacity, &s.materialAlphaGain, &s.refractions, &s.refractiveIndex, &s.refractionLimit,
                &s.surfaceThickness, &s.shadowAttenuation, &s.transparencyDepth, &s.lightAbsorbance, &s.chromaticAberration,
                &io.objectId, &io.primitiveId, &io.raySampler, &io.rayDepth, &io.rayInstance, &io.mediumRefractiveIndex,
                &io.rayDirection.whole, &io.pointCamera.whole, &io.normalCamera.whole, &io.lightDataArray},
               {&io.outColor.whole, &io.outGlowColor.whole});
    affects(m,
               {&s.refractions, &s.refractiveIndex, &io.mediumRefractiveIndex, &s.refractionLimit, &s.surfaceThickness,
                &s.chromaticAberration, &s.hideSource, &s.matteOpacityMode, &s.matteOpacity, &s.opacityDepth, &s.shadowAttenuation,
                &io.rayDirection.whole, &io.normalCamera.whole, &io.pointCamera.whole, &io.objectId, &io.primitiveId, &io.raySampler,
                &io.rayDepth, &io.rayInstance, &s.transparencyDepth, &s.lightAbsorbance},
               {&io.outTransparency.whole, &io.outMatteOpacity.whole});
}
