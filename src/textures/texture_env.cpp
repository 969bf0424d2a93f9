#include "textures/texture_env.h"

#include <cmath>

SN_REGISTER_NODE_CLASS(TdnTxEnv)

TdnVSTxEnv::TdnVSTxEnv() {
    const TfltMatrix identity;
    placementMatrix.setDefaultBytes(&identity, sizeof identity);
    matrixEyeToWorld.setDefaultBytes(&identity, sizeof identity);
    xPixelAngle.setNativeDefaultData(TdnTxEnv::kDefaultPixelAngle);
    normalCamera.setDefault(0, 0, 1);
    rayDirection.setDefault(0, 0, 1);
    outColor.setFlag(kAttrWritable, false);
    outAlpha.setFlag(kAttrWritable, false);
}

bool TdnVSTxEnv::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m,
            {&objectType, &placementMatrix, &matrixEyeToWorld, &xPixelAngle, &normalCamera.whole, &rayDirection.whole,
             &uvCoord.whole, &uvFilterSize.whole, &filterSize.whole},
            {&outColor.whole, &outAlpha});
    return true;
}

bool TdnTxEnv::isColorOutput(const Tplug& plug) {
    const Tattribute* a = plug.attribute();
    return a && (a->rootParent() == &saOutColor() || a == &saOutAlpha());
}

T3Float TdnTxEnv::sPlacedDirection(const T3Float& rayCamera, const TfltMatrix& eyeToWorld, const TfltMatrix& placement) {
    T3Float d = placement.transformVector(eyeToWorld.transformVector(rayCamera));
    float length = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
    if (!(length > 0.0f)) return T3Float(0, 0, 1);
    return d * (1.0f / length);
}
