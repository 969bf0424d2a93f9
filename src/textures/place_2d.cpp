#include "textures/place_2d.h"

#include <bit>
#include <cmath>

#include "framework/driven_inputs.h"
#include "textures/noise/noise.h"
#include "textures/texture_2d.h"

SN_REGISTER_NODE_CLASS(TdnPlace2dTx)

TdnVSPlace2dTx::TdnVSPlace2dTx() {
    coverage.setDefault(1, 1);
    wrapU.setNativeDefaultData(1.0);
    wrapV.setNativeDefaultData(1.0);
    repeatUV.setDefault(1, 1);
    doTransform.setNativeDefaultData(1.0);
    for (Tattribute* a : {static_cast<Tattribute*>(&outUV.whole), static_cast<Tattribute*>(&outUV.c0), static_cast<Tattribute*>(&outUV.c1),
                          static_cast<Tattribute*>(&outUvFilterSize.whole), static_cast<Tattribute*>(&outUvFilterSize.c0),
                          static_cast<Tattribute*>(&outUvFilterSize.c1), static_cast<Tattribute*>(&doTransform)})
        a->setFlag(kAttrWritable, false);
}

bool TdnVSPlace2dTx::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    std::initializer_list<const Tattribute*> placement = {&coverage.whole, &translateFrame.whole, &rotateFrame, &mirrorU, &mirrorV,
                                                          &stagger, &wrapU, &wrapV, &repeatUV.whole, &offset.whole, &rotateUV,
                                                          &noiseUV.whole};
    affects(m, placement, {&outUV.whole, &doTransform});
    affects(m, {&uvCoord.whole}, {&outUV.whole});
    affects(m, {&uvFilterSize.whole, &coverage.whole, &repeatUV.whole}, {&outUvFilterSize.whole});
    return true;
}

void TdnPlace2dTx::setOutside(float& u, float& v) {
    u = kOutsideUv;
    v = kOutsideUv;
}

// Rotation about the centre of the unit square.
static void sRotateAboutCentre(double angle, float& u, float& v) {
    float c = float(std::cos(angle)), s = float(std::sin(angle));
    float du = u - 0.5f, dv = v - 0.5f;
    u = c * du + 0.5f - s * dv;
    v = c * dv + 0.5f + s * du;
}

// One axis of the frame: coverage c, translate t, wrap w. False when the
// coordinate falls outside the frame.
static bool sFrameAxis(float& x, float c, float t, bool w) {
    float f;
    if (c < 1.0f) {
        if (!w) {
            f = (x - t) / c;
        } else {
            if (x > 1.0f) x -= std::trunc(x);
            if (x < 0.0f) x += 1.0f - std::trunc(x);
            f = x - t + std::trunc(t);
            if (f > c) f -= 1.0f;
            if (f < 0.0f) f += 1.0f;
            f /= c;
        }
        if (f < 0.0f || f > 1.0f) return false;
    } else {
        f = x - t;
        if (c != 1.0f) f /= c;
        if (!w && (f < 0.0f || f > 1.0f)) return false;
    }
    x = f;
    return true;
}

static bool sOdd(float x) { return (long long)std::floor(x) % 2 != 0; }

bool TdnPlace2dTx::sMapUV(const Tplace2dParams& p, float u, float v, float& outU, float& outV) {
    if (!(u > kOutsideUvTest || v > kOutsideUvTest) || !(p.coverage.x > 0.0f && p.coverage.y > 0.0f)) {
        outU = u;
        outV = v;
        return true;
    }
    if (std::fabs(p.noise.x) > 1e-5f || std::fabs(p.noise.y) > 1e-5f) {
        float nu = u + p.noise.x * Tnoise::noise2(u, v);
        float nv = v + p.noise.y * Tnoise::noise2(u + 0.5f, v + 0.5f);
        u = nu;
        v = nv;
    }
    const float almostOne = std::bit_cast<float>(kAlmostOneBits);
    if (u == 1.0f) u = almostOne;
    if (v == 1.0f) v = almostOne;
    if (p.rotateFrame != 0.0) sRotateAboutCentre(p.rotateFrame, u, v);
    if (!sFrameAxis(u, p.coverage.x, p.translate.x, p.wrapU) || !sFrameAxis(v, p.coverage.y, p.translate.y, p.wrapV)) {
        setOutside(outU, outV);
        return false;
    }
    u = u * p.repeat.x + p.offset.x;
    v = v * p.repeat.y + p.offset.y;
    if (p.stagger && sOdd(v)) u += 0.5f;
    if (p.mirrorU && sOdd(u)) u = 1.0f - u + 2.0f * std::floor(u);
    if (p.mirrorV && sOdd(v)) v = 1.0f - v + 2.0f * std::floor(v);
    if (p.rotateUV != 0.0) sRotateAboutCentre(p.rotateUV, u, v);
    // A repeat or offset large enough to leave the float range puts the
    // sample in no frame: outside, rather than infinite coordinates that the
    // textures' patterns turn into NaN.
    if (!std::isfinite(u) || !std::isfinite(v)) {
        setOutside(outU, outV);
        return false;
    }
    outU = u;
    outV = v;
    return true;
}

void TdnPlace2dTx::mapBatch(const Tplace2dParams& p, bool transform, TdataBlock& block, unsigned first, unsigned count) {
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle out = block.outputValue(attrOutUV(), first, count);
    if (transform)
        for (unsigned i = first; i < first + count; ++i) {
            const T2Float in = uv.asFloat2(i);
            T2Float mapped;
            sMapUV(p, in.x, in.y, mapped.x, mapped.y);
            out.asFloat2(i) = mapped;
        }
    else
        for (unsigned i = first; i < first + count; ++i) out.asFloat2(i) = uv.asFloat2(i);
    block.setClean(attrOutUV());
}

bool TdnPlace2dTx::computeDoTransform(const Tplace2dParams& p) {
    auto small = [](float x) { return std::fabs(x) < 1e-5f; };
    bool identity = p.coverage.x == 1.0f && p.coverage.y == 1.0f && p.repeat.x == 1.0f && p.repeat.y == 1.0f &&
                    !p.mirrorU && !p.mirrorV && !p.stagger && p.wrapU && p.wrapV && std::fabs(p.rotateFrame) <= 1e-10 &&
                    std::fabs(p.rotateUV) <= 1e-10 && small(p.translate.x) && small(p.translate.y) && small(p.offset.x) &&
                    small(p.offset.y) && small(p.noise.x) && small(p.noise.y);
    return !identity;
}

// Repeat over coverage, with a coverage near 0 standing for a huge ratio.
static float sFilterScale(float repeat, float coverage) {
    return coverage < 1e-6f ? repeat * 1000000.0f : repeat / coverage;
}

Tplace2dParams TdnPlace2dTx::params() {
    Tplace2dParams p;
    getAttributeValue(&attrCoverage(), &p.coverage);
    getAttributeValue(&attrTranslateFrame(), &p.translate);
    getAttributeValue(&attrRepeatUV(), &p.repeat);
    getAttributeValue(&attrOffset(), &p.offset);
    getAttributeValue(&attrNoiseUV(), &p.noise);
    getAttributeValue(&attrRotateFrame(), &p.rotateFrame);
    getAttributeValue(&attrRotateUV(), &p.rotateUV);
    getAttributeValue(&attrMirrorU(), &p.mirrorU);
    getAttributeValue(&attrMirrorV(), &p.mirrorV);
    getAttributeValue(&attrStagger(), &p.stagger);
    getAttributeValue(&attrWrapU(), &p.wrapU);
    getAttributeValue(&attrWrapV(), &p.wrapV);
    return p;
}

T2Float TdnPlace2dTx::sStretch(const Tplace2dParams& p) {
    // sMapUV passes a UV through unchanged under a coverage that is not positive.
    if (!(p.coverage.x > 0.0f && p.coverage.y > 0.0f)) return {1, 1};
    // The frame's rotation turns a step before the per-axis scale of
    // repeat over coverage; the UV rotation after it keeps lengths.
    const double a = p.rotateFrame, c = std::cos(a), s = std::sin(a);
    const double sx = double(p.repeat.x) / double(p.coverage.x), sy = double(p.repeat.y) / double(p.coverage.y);
    return {float(std::hypot(sx * c, sy * s)), float(std::hypot(sx * s, sy * c))};
}

bool TdnPlace2dTx::placementDriven() const {
    const Tattribute* const placement[] = {&attrCoverage(), &attrTranslateFrame(), &attrRepeatUV(), &attrOffset(),
                                           &attrNoiseUV(),  &attrRotateFrame(),    &attrRotateUV(), &attrMirrorU(),
                                           &attrMirrorV(),  &attrStagger()};
    for (const Tattribute* a : placement) {
        Tplug plug(const_cast<TdnPlace2dTx*>(this), a);
        if (plug.isDestination() || plug.isChildDestination()) return true;
    }
    return false;
}

void TdnPlace2dTx::mapToTxUV(const TdoubleArray& u, const TdoubleArray& v, TdoubleArray& outU, TdoubleArray& outV, T2Float& filter) {
    Tplace2dParams p = params();
    unsigned n = std::min(u.length(), v.length());
    outU.setLength(n);
    outV.setLength(n);
    for (unsigned i = 0; i < n; ++i) {
        float mu, mv;
        sMapUV(p, float(u[i]), float(v[i]), mu, mv);
        outU[i] = mu;
        outV[i] = mv;
    }
    filter = T2Float{sFilterScale(p.repeat.x, p.coverage.x) * kBakeFilterScale, sFilterScale(p.repeat.y, p.coverage.y) * kBakeFilterScale};
}

namespace {
// The twelve placement inputs over a run.
struct Tplace2dHandles {
    TdataHandle coverage, translate, repeat, offset, noise, rotateFrame, rotateUV, mirrorU, mirrorV, stagger, wrapU, wrapV;
    Tplace2dHandles(TdataBlock& block, const TdnVSPlace2dTx& vs, unsigned first, unsigned count)
        : coverage(block.inputValue(vs.coverage.whole, first, count)),
          translate(block.inputValue(vs.translateFrame.whole, first, count)),
          repeat(block.inputValue(vs.repeatUV.whole, first, count)),
          offset(block.inputValue(vs.offset.whole, first, count)),
          noise(block.inputValue(vs.noiseUV.whole, first, count)),
          rotateFrame(block.inputValue(vs.rotateFrame, first, count)),
          rotateUV(block.inputValue(vs.rotateUV, first, count)),
          mirrorU(block.inputValue(vs.mirrorU, first, count)),
          mirrorV(block.inputValue(vs.mirrorV, first, count)),
          stagger(block.inputValue(vs.stagger, first, count)),
          wrapU(block.inputValue(vs.wrapU, first, count)),
          wrapV(block.inputValue(vs.wrapV, first, count)) {}
    // One placement for every sample of the run.
    bool constant() const {
        for (const TdataHandle* h : {&coverage, &repeat, &translate, &rotateFrame, &mirrorU, &mirrorV, &stagger, &wrapU, &wrapV, &offset,
                                     &rotateUV, &noise})
            if (h->isVariable()) return false;
        return true;
    }
    Tplace2dParams at(unsigned i) const {
        Tplace2dParams p;
        p.coverage = coverage.asFloat2(i);
        p.translate = translate.asFloat2(i);
        p.repeat = repeat.asFloat2(i);
        p.offset = offset.asFloat2(i);
        p.noise = noise.asFloat2(i);
        p.rotateFrame = rotateFrame.as<double>(i);
        p.rotateUV = rotateUV.as<double>(i);
        p.mirrorU = mirrorU.asBool(i);
        p.mirrorV = mirrorV.asBool(i);
        p.stagger = stagger.asBool(i);
        p.wrapU = wrapU.asBool(i);
        p.wrapV = wrapV.asBool(i);
        return p;
    }
};
}  // namespace

void TdnPlace2dTx::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TnodeClass::shadingNodeOnDemand(plug, block);
    if (!fPlacement.undriven) return;
    // The placement as the program holds it.
    const Tplace2dHandles h(block, sVsData(), 0, 1);
    if (!h.constant()) return;
    fParams = h.at(0);
    fTransform = computeDoTransform(fParams);
    fFilterScale = T2Float{sFilterScale(fParams.repeat.x, fParams.coverage.x), sFilterScale(fParams.repeat.y, fParams.coverage.y)};
    fPlacement.settled = true;
}

bool TdnPlace2dTx::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    if (a != &attrOutUV() && a != &attrOutUvFilterSize() && a != &attrDoTransform())
        return TrenderNode::vectorComputePlug(plug, block, first, count);
    if (fPlacement.settled) {
        if (a == &attrOutUvFilterSize()) {
            TdataHandle size = block.inputValue(attrUvFilterSize(), first, count);
            TdataHandle out = block.outputValue(attrOutUvFilterSize(), first, count);
            const T2Float scale = fFilterScale;
            for (unsigned i = first; i < first + count; ++i) {
                const T2Float s = size.asFloat2(i);
                out.asFloat2(i) = T2Float{s.x * scale.x, s.y * scale.y};
            }
            block.setClean(attrOutUvFilterSize());
        } else if (a == &attrDoTransform()) {
            TdataHandle out = block.outputValue(attrDoTransform(), first, count);
            for (unsigned i = first; i < first + count; ++i) out.asBool(i) = fTransform;
            block.setClean(attrDoTransform());
        } else {
            mapBatch(fParams, fTransform, block, first, count);
        }
        return true;
    }
    if (a == &attrOutUvFilterSize()) {
        TdataHandle coverage = block.inputValue(attrCoverage(), first, count);
        TdataHandle repeat = block.inputValue(attrRepeatUV(), first, count);
        TdataHandle size = block.inputValue(attrUvFilterSize(), first, count);
        TdataHandle out = block.outputValue(attrOutUvFilterSize(), first, count);
        for (unsigned i = first; i < first + count; ++i) {
            T2Float s = size.asFloat2(i), c = coverage.asFloat2(i), r = repeat.asFloat2(i);
            out.asFloat2(i) = T2Float{s.x * sFilterScale(r.x, c.x), s.y * sFilterScale(r.y, c.y)};
        }
        block.setClean(attrOutUvFilterSize());
        return true;
    }
    const Tplace2dHandles h(block, sVsData(), first, count);
    if (a == &attrDoTransform()) {
        TdataHandle out = block.outputValue(attrDoTransform(), first, count);
        for (unsigned i = first; i < first + count; ++i) out.asBool(i) = computeDoTransform(h.at(i));
        block.setClean(attrDoTransform());
        return true;
    }
    if (h.constant()) {
        // One placement for the batch, as it usually is: decided once, and
        // the identity passes the coordinates through.
        const Tplace2dParams p = h.at(first);
        mapBatch(p, computeDoTransform(p), block, first, count);
        return true;
    }
    TdataHandle uv = block.inputValue(attrUvCoord(), first, count);
    TdataHandle out = block.outputValue(attrOutUV(), first, count);
    for (unsigned i = first; i < first + count; ++i) {
        T2Float in = uv.asFloat2(i);
        Tplace2dParams p = h.at(i);
        T2Float mapped;
        if (computeDoTransform(p))
            sMapUV(p, in.x, in.y, mapped.x, mapped.y);
        else
            mapped = in;
        out.asFloat2(i) = mapped;
    }
    block.setClean(attrOutUV());
    return true;
}
