#include "volumes/fog_outputs.h"

#include "volumes/volume_utils.h"

namespace {
void makeComputed(TtripleAttribute& a) { a.setFlag(kAttrWritable | kAttrStorable | kAttrKeyable, false); }
}  // namespace

TfogOutputs::TfogOutputs(TiffTag colorTag, TiffTag transparencyTag, TiffTag matteTag, TiffTag modeTag, TiffTag gainTag)
    : outColor("outColor", "oc", colorTag),
      outTransparency("outTransparency", "ot", transparencyTag),
      outMatteOpacity("outMatteOpacity", "omo", matteTag),
      matteOpacityMode("matteOpacityMode", "mom", modeTag),
      matteOpacity("matteOpacity", "mog", gainTag),
      outputs{&outColor.whole, &outTransparency.whole, &outMatteOpacity.whole} {
    makeComputed(outColor);
    makeComputed(outTransparency);
    makeComputed(outMatteOpacity);
    matteOpacityMode.addField("kBlackHoleM", "Black Hole", kFogBlackHole);
    matteOpacityMode.addField("kSolidMatte", "Solid Matte", kFogSolidMatte);
    matteOpacityMode.addField("kOpacityGain", "Opacity Gain", kFogOpacityGain);
    matteOpacityMode.setNativeDefaultData(kFogOpacityGain);
    matteOpacity.setNativeDefaultData(1.0);
    matteOpacity.setSoftMin(0);
    matteOpacity.setSoftMax(1);
}

bool writeFogMatte(TdataBlock& block, const TfogOutputs& io, unsigned first, unsigned count) {
    TdataHandle mode = block.inputValue(io.matteOpacityMode, first, count);
    TdataHandle gain = block.inputValue(io.matteOpacity, first, count);
    TdataHandle transparency = block.outputValue(io.outTransparency.whole, first, count);
    TdataHandle matte = block.outputValue(io.outMatteOpacity.whole, first, count);
    bool blackHole = false;
    for (unsigned i = first; i < first + count; ++i) {
        const float g = gain.asFloat(i);
        switch (mode.asShort(i)) {
            case kFogBlackHole:
                matte.asFloat3(i) = {TvolumeUtils::kNoMatte, TvolumeUtils::kNoMatte, TvolumeUtils::kNoMatte};
                blackHole = true;
                break;
            case kFogSolidMatte: matte.asFloat3(i) = {g, g, g}; break;
            default: {
                const T3Float t = transparency.asFloat3(i);
                matte.asFloat3(i) = {(1 - t.x) * g, (1 - t.y) * g, (1 - t.z) * g};
            }
        }
    }
    return blackHole;
}
