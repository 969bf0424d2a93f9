#include "textures/volume_noise.h"

#include <cmath>

SN_REGISTER_NODE_CLASS(TdnVolumeNoise)

TdnVSVolumeNoise::TdnVSVolumeNoise() { scale.setDefault(1, 1, 1); }

bool TdnVSVolumeNoise::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolid::setupDependencies(m)) return false;
    for (const Tattribute* a : noise.all()) TdnVSTx3D::affectsOutputs(m, {a});
    TdnVSTx3D::affectsOutputs(m, {&scale.whole, &origin.whole, &implodeCenter.whole});
    return true;
}

T3Float TdnVolumeNoise::sNoisePoint(const T3Float& p, const T3Float& origin, const T3Float& scale) {
    auto away = [](float s) { return std::fabs(s) < 1e-05f ? (s < 0.0f ? -1e-05f : 1e-05f) : s; };
    return T3Float((p.x - origin.x) / away(scale.x), (p.y - origin.y) / away(scale.y), (p.z - origin.z) / away(scale.z));
}

bool TdnVolumeNoise::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TnoiseParamHandles params(block, fsVs->noise, first, count);
    TdataHandle scale = block.inputValue(attrScale(), first, count), origin = block.inputValue(attrOrigin(), first, count),
                centre = block.inputValue(attrImplodeCenter(), first, count);
    computeSolidValue(*this, block, first, count, [&](unsigned i, const T3Float& p, const Ttx3dBatch<0>&) {
        TnoiseParams n;
        params.read(i, n);
        return TdnNoise::sSolidValue(n, sNoisePoint(p, origin.asFloat3(i), scale.asFloat3(i)), centre.asFloat3(i));
    });
    return true;
}
