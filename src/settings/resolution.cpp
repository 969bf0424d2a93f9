#include "settings/resolution.h"

TdnVSResolution::TdnVSResolution() {
    addSettingFields(fields, {{"None", "kNoFields"},
                              {"Odd", "kOddFields"},
                              {"Even", "kEvenFields"},
                              {"Both, Interlaced", "kAllFields"},
                              {"Both, Separate", "kAllFieldsSeparate"}});
    addSettingFields(zerothScanline, {{"At Top", "kAtTop"}, {"At Bottom", "kAtBottom"}});
    addSettingFields(imageSizeUnits, {{"pixels", "kImagePixels"},
                                      {"inches", "kImageInches"},
                                      {"cm", "kImageCm"},
                                      {"mm", "kImageMm"},
                                      {"points", "kImagePoints"},
                                      {"picas", "kImagePicas"}});
    addSettingFields(pixelDensityUnits, {{"pixels/inch", "kDotsPerInch"}, {"pixels/cm", "kDotsPerCm"}});

    // 640 by 480 square pixels on a 4:3 device, at 72 dots per inch.
    width.setNativeDefaultData(640.0);
    height.setNativeDefaultData(480.0);
    pixelAspect.setNativeDefaultData(1.0);
    deviceAspectRatio.setNativeDefaultData(640.0 / 480.0);
    dotsPerInch.setNativeDefaultData(72.0);
    oddFieldFirst.setNativeDefaultData(1.0);
}

SN_REGISTER_NODE_CLASS(TdnResolution)
