#include "settings/render_globals.h"

#include <algorithm>
#include <string>

#include "settings/image_format.h"

TdnVSRenderGlobals::TdnVSRenderGlobals() {
    for (const TimageFormatInfo& f : TimageFormats::sAll()) imageFormat.addField(f.key, f.label, short(f.number));
    addSettingFields(animationRange, {{"Render Settings", "kUseGlobals"}, {"Start/End", "kUseStartEnd"}});
    addSettingFields(fieldExtControl,
                     {{".o and .e", "kDefaultFieldExt"}, {"None", "kNoFieldExt"}, {"User Input", "kArbFieldExt"}});
    addSettingFields(outFormatControl,
                     {{"As Output Format", "kDefaultOutputExt"}, {"None", "kNoOutputExt"}, {"User Input", "kArbOutputExt"}});
    addSettingFields(periodInExt, {{"No Period or Underscore in Extension", "kNothingInExt"},
                                   {"Period in Extension", "kPeriodInExt"},
                                   {"Underscore in Extension", "kUnderscoreInExt"}});
    addSettingFields(motionBlurType, {{"Motion Blur 2D", "kUseMotionBlur2D"}, {"Motion Blur 3D", "kUseMotionBlur3D"}});

    // What a new scene renders: one still frame, all of it, with shadows and
    // a default light when there is none.
    for (TattributeBoolean* on : {&renderAll, &ignoreFilmGate, &clipFinalShadedColor, &enableDepthMaps,
                                  &enableDefaultLight, &enableStrokeRender, &putFrameBeforeExt, &useFrameExt,
                                  &shadowsObeyLightLinking, &useFileCache, &optimizeInstances, &reuseTessellations,
                                  &matteOpacityUsesTransparency, &useBlur2DMemoryCap, &useDisplacementBoundingBox,
                                  &iprRenderShading, &iprRenderShadowMaps, &iprRenderMotionBlur, &jitterFinalColor,
                                  &raysSeeBackground})
        on->setNativeDefaultData(1.0);
    currentRenderer.setNativeDefaultData(Tstring(TdnRenderGlobals::kDefaultRenderer));
    imageFormat.setNativeDefaultData(TimageFormats::kIFF);
    periodInExt.setNativeDefaultData(TdnRenderGlobals::kPeriodInExt);
    oddFieldExt.setNativeDefaultData(Tstring("o"));
    evenFieldExt.setNativeDefaultData(Tstring("e"));
    for (TattributeFloat* one : {&gammaCorrection, &startFrame, &byFrame, &byFrameStep, &startExtension, &byExtension,
                                 &motionBlurByFrame, &blurLength, &blurSharpness})
        one->setNativeDefaultData(1.0);
    endFrame.setNativeDefaultData(10.0);
    extensionPadding.setNativeDefaultData(1.0);
    subdivisionPower.setNativeDefaultData(0.25);
    recursionDepth.setNativeDefaultData(2.0);
    leafPrimitives.setNativeDefaultData(200.0);
    subdivisionHashSize.setNativeDefaultData(5.0);
    geometryVector.setNativeDefaultData(20.0);
    shadingVector.setNativeDefaultData(60.0);
    maximumMemory.setNativeDefaultData(512.0);
    interruptFrequency.setNativeDefaultData(1.0);
    postFogBlur.setNativeDefaultData(1.0);
    smoothValue.setNativeDefaultData(2.0);
    blur2DMemoryCap.setNativeDefaultData(200.0);
    tileWidth.setNativeDefaultData(64.0);
    tileHeight.setNativeDefaultData(64.0);
    gammaCorrection.setSoftMin(0.1);
    gammaCorrection.setSoftMax(3.0);
}

SN_REGISTER_NODE_CLASS(TdnRenderGlobals)

Tstring TdnRenderGlobals::text(const Tattribute& a) {
    Tstring value;
    getAttributeValue(&a, &value);
    return value;
}

double TdnRenderGlobals::number(const Tattribute& a) {
    const void* p = valuePointer(&a);
    return p ? a.numericValue(p) : 0.0;
}

Tstring TdnRenderGlobals::fileFormatExtension() {
    TcommonRenderGlobalsData data;
    setCommonRenderGlobals(data);
    return data.fileFormatExtension();
}

Tstring TdnRenderGlobals::fileFormatString(short* format) {
    const short number = short(this->number(fsVs->imageFormat));
    if (format) *format = number;
    const TimageFormatInfo* info = TimageFormats::sFind(number);
    return info ? info->label : "";
}

unsigned TdnRenderGlobals::getMemoryCostRender() {
    return unsigned(std::max(0.0, number(fsVs->maximumMemory)));
}

void TdnRenderGlobals::setCommonRenderGlobals(TcommonRenderGlobalsData& data) {
    const TdnVSRenderGlobals& vs = *fsVs;
    const bool animated = number(vs.animation) != 0;
    const int outputExtension = int(number(vs.outFormatControl));
    data.setAnimated(animated);
    data.setFrameRange(float(number(vs.startFrame)), float(number(vs.endFrame)), float(number(vs.byFrame)));
    data.setExtensionModifier(number(vs.modifyExtension) != 0, float(number(vs.startExtension)),
                              float(number(vs.byExtension)));
    data.setVersionLabel(text(vs.renderVersion));
    data.setImfPluginKey(text(vs.imfPluginKey));
    data.setCustomExtension(outputExtension == kArbOutputExt ? text(vs.outFormatExt) : Tstring());
    data.setExtensionLeftOut(outputExtension == kNoOutputExt ? 1 : 0);

    // The scheme, from how the user asked for frame and extension.
    const bool withExtension = outputExtension != kNoOutputExt;
    const char* scheme = withExtension ? "name.ext" : "name";
    if (animated) {
        if (!withExtension)
            scheme = "name.#";
        else if (number(vs.putFrameBeforeExt) == 0)
            scheme = "name.ext.#";
        else
            switch (int(number(vs.periodInExt))) {
                case kNothingInExt: scheme = "name#.ext"; break;
                case kUnderscoreInExt: scheme = "name_#.ext"; break;
                default: scheme = "name.#.ext"; break;
            }
    }
    data.setImageFormat(Tstring(std::to_string(int(number(vs.imageFormat)))));
    data.setNamingConvention(scheme);
    data.setFramePadding(int(number(vs.extensionPadding)));
    data.setImageName(text(vs.imageFilePrefix));
}
