#include "utilities/surface_luminance.h"

#include <algorithm>

#include "shading/light_data.h"

SN_REGISTER_NODE_CLASS(TdnSurfaceLuminance)

bool TdnSurfaceLuminance::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (plug.attribute() != &attrOutValue()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    constexpr unsigned kMaxLights = 64;
    unsigned index[kMaxLights];
    unsigned n = std::min(block.multiIndices(attrLightDataArray(), index, kMaxLights), kMaxLights);
    TdataHandle normals = block.inputValue(attrNormalCamera(), first, count);
    TdataHandle out = block.outputValue(attrOutValue(), first, count);
    for (unsigned i = first; i < first + count; ++i) out.asFloat(i) = 0;
    for (unsigned k = 0; k < n; ++k) {
        TdataHandle h = block.elementValue(attrLightDataArray(), index[k]);
        if (h.isNull()) continue;
        for (unsigned i = first; i < first + count; ++i) {
            const TlightData& d = *static_cast<const TlightData*>(h.element(i));
            const T3Float& c = d.lightIntensity;
            float luminance = 0.3f * c.x + 0.59f * c.y + 0.11f * c.z;
            if (d.lightAmbient) out.asFloat(i) += luminance;
            if (d.lightDiffuse) out.asFloat(i) += luminance * std::max(dot(normals.asFloat3(i), d.lightDirection), 0.0f);
        }
    }
    block.setClean(attrOutValue());
    return true;
}
