#include "settings/render_quality.h"

TdnVSRenderQuality::TdnVSRenderQuality() {
    addSettingFields(edgeAntiAliasing, {{"Highest Quality", "kHighestAA"},
                                        {"High Quality", "kHighAA"},
                                        {"Medium Quality", "kMediumAA"},
                                        {"Low Quality", "kLowAA"}});
    addSettingFields(pixelFilterType, {{"Box Filter", "kBoxPixelFilter"},
                                       {"Triangle Filter", "kTrianglePixelFilter"},
                                       {"Gaussian Filter", "kGaussianPixelFilter"},
                                       {"Quadratic B-Spline Filter", "kQuadraticBSplinePixelFilter"},
                                       {"Plug in Filter", "kPlugInPixelFilter"}});

    // A quick first render: low anti-aliasing, one sample, no ray tracing;
    // when ray tracing is turned on, one reflection, six refractions and two
    // shadow bounces.
    edgeAntiAliasing.setNativeDefaultData(TdnRenderQuality::kLowAA);
    pixelFilterType.setNativeDefaultData(TdnRenderQuality::kTrianglePixelFilter);
    reflections.setNativeDefaultData(1.0);
    refractions.setNativeDefaultData(6.0);
    shadows.setNativeDefaultData(2.0);
    for (TattributeInt16* one : {&shadingSamples, &maxShadingSamples, &visibilitySamples, &maxVisibilitySamples,
                                 &volumeSamples, &particleSamples})
        one->setNativeDefaultData(1.0);
    pixelFilterWidthX.setNativeDefaultData(2.2);
    pixelFilterWidthY.setNativeDefaultData(2.2);
    plugInFilterWeight.setNativeDefaultData(1.0);
    redThreshold.setNativeDefaultData(0.4);
    greenThreshold.setNativeDefaultData(0.3);
    blueThreshold.setNativeDefaultData(0.6);
    coverageThreshold.setNativeDefaultData(0.125);
    for (TattributeFloat* threshold : {&redThreshold, &greenThreshold, &blueThreshold, &coverageThreshold}) {
        threshold->setSoftMin(0);
        threshold->setSoftMax(1);
    }
}

SN_REGISTER_NODE_CLASS(TdnRenderQuality)
