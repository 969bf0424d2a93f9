#include "textures/brownian.h"

#include <algorithm>
#include <cmath>

#include "textures/noise/noise.h"

SN_REGISTER_NODE_CLASS(TdnBrownian)

TdnVSBrownian::TdnVSBrownian() {
    lacunarity.setNativeDefaultData(4.0);
    lacunarity.setSoftMin(1);
    lacunarity.setSoftMax(5);
    increment.setNativeDefaultData(0.1);
    increment.setSoftMin(0);
    increment.setSoftMax(1);
    octaves.setNativeDefaultData(3.0);
    octaves.setSoftMin(1);
    octaves.setSoftMax(5);
    weight3d.setDefault(1, 1, 1);
}

bool TdnVSBrownian::setupDependencies(TdependencyMatrix& m) {
    if (!TdnVSSolidView::setupDependencies(m)) return false;
    TdnVSTx3D::affectsOutputs(m, {&lacunarity, &increment, &octaves, &weight3d.whole});
    return true;
}

float TdnBrownian::sValue(const TbrownianParams& b, const T3Float& point, float w) {
    float levels = std::clamp(-std::log(w) / 0.6931f, 0.0f, std::min(b.octaves, kMaxLevels));
    T3Float p(point.x * b.weight3d.x, point.y * b.weight3d.y, point.z * b.weight3d.z);
    float sum = 0.0f, f = 1.0f, weight = 1.0f;
    auto term = [&] { return Tnoise::gNoise3(p.x, p.y, p.z) * weight; };
    // The first octave always counts; the next while the level count
    // reaches it, and the fraction weights the one after.
    for (int i = 1;; ++i) {
        sum += term();
        f *= b.lacunarity;
        p = p * b.lacunarity;
        weight = std::pow(f, -b.increment);
        // A lacunarity at or below 0, or one so small that the frequency
        // underflows, leaves the next octave no finite weight: the sum ends.
        if (!std::isfinite(weight)) return sum * 0.5f + 0.5f;
        if (float(i + 1) > levels) break;
    }
    sum += (levels - std::floor(levels)) * term();
    return sum * 0.5f + 0.5f;
}

bool TdnBrownian::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isColorOutput(plug)) return TdnTx3D::vectorComputePlug(plug, block, first, count);
    TdataHandle lacunarity = block.inputValue(attrLacunarity(), first, count),
                increment = block.inputValue(attrIncrement(), first, count),
                octaves = block.inputValue(attrOctaves(), first, count), weight = block.inputValue(attrWeight3d(), first, count),
                normal = block.inputValue(attrNormalCamera(), first, count),
                pixelAngle = block.inputValue(attrXPixelAngle(), first, count);
    computeSolidValue(*this, block, first, count, [&](unsigned i, const T3Float& p, const Ttx3dBatch<0>& batch) {
        TbrownianParams b{lacunarity.asFloat(i), increment.asFloat(i), octaves.asFloat(i), weight.asFloat3(i)};
        return sValue(b, p, batch.pixelFootprint(i, normal.asFloat3(i), pixelAngle.asFloat(i)));
    });
    return true;
}
