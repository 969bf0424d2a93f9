#include "volumes/light_fog_material.h"

#include <algorithm>

#include "materials/light_reader.h"
#include "materials/material_support.h"
#include "shading/render_pass_control.h"
#include "shading/shading_types.h"

SN_REGISTER_NODE_CLASS(TdnLightFogMaterial)

TdnVSLightFogMaterial::TdnVSLightFogMaterial() {
    declareSampleInput(filterSize);
    lightDataArray.setMulti(true);
    lightDataArray.makeImplicitInput();
    color.setDefault(1, 1, 1);
    density.setNativeDefaultData(1.0);
    density.setSoftMin(0);
    density.setSoftMax(1);
    colorBasedTransparency.setNativeDefaultData(1.0);
}

bool TdnVSLightFogMaterial::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&filterSize.whole, &lightDataArray, &color.whole, &density, &fastDropOff, &colorBasedTransparency,
                &io.matteOpacityMode, &io.matteOpacity},
            {io.outputs[0], io.outputs[1], io.outputs[2]});
    return true;
}

void TdnLightFogMaterial::computeOutColor(TdataBlock& block, const Tattribute& lights, unsigned first, unsigned count,
                                          const T3Float* color, const float* opacity, T3Float* out) {
    for (unsigned k = 0; k < count; ++k) out[k] = {0, 0, 0};
    TlightReader reader(block, lights);
    for (unsigned l = 0; l < reader.count(); ++l)
        for (unsigned k = 0; k < count; ++k) {
            const TlightData& d = reader.record(l, first + k);
            // A light that feeds both terms counts twice: deliberate.
            const float times = float(d.lightAmbient) + float(d.lightDiffuse);
            if (times == 0) continue;
            const T3Float& c = color[k];
            const T3Float& li = d.lightIntensity;
            const float o = opacity[k] * times;
            out[k] = out[k] + T3Float(li.x * c.x * o, li.y * c.y * o, li.z * c.z * o);
        }
}

bool TdnLightFogMaterial::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    const TdnVSLightFogMaterial& vs = *fsVs;
    if (a != &vs.io.outColor.whole && a != &vs.io.outTransparency.whole && a != &vs.io.outMatteOpacity.whole)
        return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle outColor = block.outputValue(vs.io.outColor.whole, first, count);
    TdataHandle outTransparency = block.outputValue(vs.io.outTransparency.whole, first, count);
    const int pass = currentRenderPassControl;
    if (pass == kPassSpecularOnly || pass == kPassShadow) {
        // Neither the specular nor the shadow pass carries fog.
        for (unsigned i = first; i < first + count; ++i) {
            outColor.asFloat3(i) = {0, 0, 0};
            outTransparency.asFloat3(i) = {1, 1, 1};
        }
    } else {
        TdataHandle filter = block.inputValue(vs.filterSize.whole, first, count);
        TdataHandle color = block.inputValue(vs.color.whole, first, count);
        TdataHandle density = block.inputValue(vs.density, first, count);
        TdataHandle fast = block.inputValue(vs.fastDropOff, first, count);
        TdataHandle byColor = block.inputValue(vs.colorBasedTransparency, first, count);
        for (unsigned start = first; start < first + count; start += kBatchSize) {
            const unsigned n = std::min(first + count - start, kBatchSize);
            float opacity[kBatchSize];
            T3Float colors[kBatchSize], out[kBatchSize];
            for (unsigned k = 0; k < n; ++k) {
                const unsigned i = start + k;
                const float rho = density.asFloat(i);
                opacity[k] = fast.asBool(i) ? fogOpacity(rho * filter.asFloat3(i).z) : rho;
                colors[k] = color.asFloat3(i);
            }
            computeOutColor(block, vs.lightDataArray, start, n, colors, opacity, out);
            for (unsigned k = 0; k < n; ++k) {
                const unsigned i = start + k;
                outColor.asFloat3(i) = out[k];
                const float o = opacity[k];
                outTransparency.asFloat3(i) = byColor.asBool(i) ? T3Float(1 - out[k].x, 1 - out[k].y, 1 - out[k].z) : T3Float(1 - o, 1 - o, 1 - o);
            }
        }
    }
    if (writeFogMatte(block, vs.io, first, count)) {
        TdataHandle mode = block.inputValue(vs.io.matteOpacityMode, first, count);
        for (unsigned i = first; i < first + count; ++i)
            if (mode.asShort(i) == kFogBlackHole) outColor.asFloat3(i) = outTransparency.asFloat3(i) = {0, 0, 0};
    }
    for (const Tattribute* out : vs.io.outputs) block.setClean(*out);
    return true;
}
