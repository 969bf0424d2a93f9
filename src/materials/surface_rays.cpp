#include "materials/surface_rays.h"

#include <alloca.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

#include "materials/shading_math.h"
#include "shading/render_pass_control.h"

namespace {
// Named once: constants that are part of the surfaces' behaviour.
constexpr float kTransparentFloor = 0.00001f;    // a channel at or below it lets nothing through
constexpr float kNoRefractionMarker = 1234.567f;  // a medium index of minus this marks "no refraction"
constexpr float kMarkerTolerance = 0.001f;
constexpr float kMinIndex = 0.01f, kMaxThickIndex = 3.0f;
constexpr float kChromaticStep = 0.06f;          // index step between the three channels' rays
constexpr float kAttenuationFloor = 0.000001f;

constexpr unsigned kMaxSlots = kSurfaceChunk * kSurfaceSlotsPerSample;

// Ray records of the renderer's size with their spectra, on the caller's
// stack (the memory comes from alloca in the caller's frame).
struct TrayBatch {
    TgenericRay* rays[kMaxSlots];
    Tspectrum radiance[kMaxSlots];
    Tspectrum transmittance[kMaxSlots];
    short rayIndex[kMaxSlots];
    short rayCount = 0;

    void setUp(void* memory, unsigned raySize, unsigned slots) {
        auto* bytes = static_cast<unsigned char*>(memory);
        for (unsigned r = 0; r < slots; ++r) rays[r] = new (bytes + size_t(r) * raySize) TgenericRay();
        for (short& s : rayIndex) s = -1;
    }
};

unsigned recordSize(TraySampler* sampler) { return std::max<unsigned>(sampler->raySize(), sizeof(TgenericRay)); }

void* alignedRecords(void* memory) {
    auto aligned = (reinterpret_cast<uintptr_t>(memory) + alignof(std::max_align_t) - 1) & ~(uintptr_t(alignof(std::max_align_t)) - 1);
    return reinterpret_cast<void*>(aligned);
}
}  // namespace

// alloca must run in the frame that uses the memory, so each caller sizes
// and places the records itself.
#define SN_ALLOCATE_RAYS(batch, sampler, slots)                                                                  \
    do {                                                                                                          \
        unsigned rayBytes = recordSize(sampler);                                                                  \
        void* rayMemory = alloca(size_t(rayBytes) * ((slots) ? (slots) : 1) + alignof(std::max_align_t));         \
        (batch).setUp(alignedRecords(rayMemory), rayBytes, (slots));                                              \
    } while (0)

TraySampler* surfaceRaySampler(TdataBlock& block, const TsurfaceIO& io, unsigned start, unsigned count) {
    TdataHandle h = block.inputValue(io.raySampler, start, count);
    TraySampler* sampler = h.isNull() ? nullptr : static_cast<TraySampler*>(h.as<void*>(start));
    // Nothing feeds the input in a plain render: the thread's tracer serves.
    return sampler ? sampler : currentRaySampler();
}

namespace {
bool letsNothingThrough(const T3Float& t) { return t.x <= kTransparentFloor && t.y <= kTransparentFloor && t.z <= kTransparentFloor; }

// Ray slots for the samples that may refract: refractions on, the source
// not hidden, some light through. No ray is formed elsewhere.
unsigned refractionSlots(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count, const TdataHandle& hide,
                         const T3Float* transparency, bool uniform) {
    TdataHandle refractions = block.inputValue(a.settings.refractions, start, count);
    if (!refractions.isVariable() && !refractions.asBool(start)) return 0;
    if (uniform && letsNothingThrough(transparency[0])) return 0;
    TdataHandle chromatic = block.inputValue(a.settings.chromaticAberration, start, count);
    unsigned slots = 0;
    for (unsigned i = start; i < start + count; ++i)
        if (refractions.asBool(i) && !hide.asBool(i) && !letsNothingThrough(transparency[uniform ? 0 : i - start]))
            slots += raySlotsOf(chromatic.asBool(i));
    return slots;
}

// The matte of a sample by its mode, gain and transparency.
T3Float matte(short m, float g, const T3Float& t) {
    return m == kMatteBlackHole ? splat(kBlackHoleMatte) : m == kMatteSolid ? splat(g) : oneMinus(t) * g;
}

// One value into every sample of a run, or once into a constant.
void fillTriples(const TdataHandle& h, unsigned start, unsigned count, const T3Float& value) {
    auto* p = static_cast<unsigned char*>(h.element(start));
    const size_t stride = h.stride;
    if (!h.isVariable()) count = 1;
    for (unsigned k = 0; k < count; ++k, p += stride) std::memcpy(p, &value, sizeof value);
}

void writeMatteOpacity(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count, const T3Float* result,
                       bool uniform) {
    const TsurfaceSettings& s = a.settings;
    TdataHandle mode = surfaceSetting(a, &TsettledSurface::matteOpacityMode, s.matteOpacityMode, block, start, count);
    TdataHandle gain = surfaceSetting(a, &TsettledSurface::matteOpacity, s.matteOpacity, block, start, count);
    TdataHandle outMatte = block.outputValue(a.io.outMatteOpacity.whole, start, count);
    if (!mode.isVariable() && !gain.isVariable()) {
        // One mode and gain for the batch.
        const short m = mode.asShort(start);
        const float g = gain.asFloat(start);
        if (uniform || m == kMatteBlackHole || m == kMatteSolid) {
            fillTriples(outMatte, start, count, matte(m, g, result[0]));
        } else {
            for (unsigned i = start; i < start + count; ++i) outMatte.asFloat3(i) = oneMinus(result[i - start]) * g;
        }
        return;
    }
    for (unsigned i = start; i < start + count; ++i) outMatte.asFloat3(i) = matte(mode.asShort(i), gain.asFloat(i), result[uniform ? 0 : i - start]);
}

}  // namespace

bool writeSettledSurfaceTransparency(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count,
                                     const T3Float& transparency) {
    const TsettledSurface* settled = a.settled;
    if (!settled || !settled->hideSource.settled || !settled->refractions.settled || settled->refractions.value ||
        !settled->matteOpacityMode.settled || !settled->matteOpacity.settled)
        return false;
    const T3Float result = settled->hideSource.value ? splat(1) : transparency;
    fillTriples(block.outputValue(a.io.outTransparency.whole, start, count), start, count, result);
    if (currentRenderPassControl != kPassShadow)
        fillTriples(block.outputValue(a.io.outMatteOpacity.whole, start, count), start, count,
                    matte(settled->matteOpacityMode.value, settled->matteOpacity.value, result));
    return true;
}

void computeSurfaceTransparency(TdependNode* node, const TsurfaceAttributes& a, TdataBlock& block, unsigned start,
                                unsigned count, const T3Float* transparency, bool uniform) {
    const TsurfaceSettings& s = a.settings;
    TdataHandle hide = surfaceSetting(a, &TsettledSurface::hideSource, s.hideSource, block, start, count);
    TraySampler* sampler = surfaceRefractionSampler(a, block, start, count);
    const unsigned slots = sampler ? refractionSlots(a, block, start, count, hide, transparency, uniform) : 0;
    const bool shadowPass = currentRenderPassControl == kPassShadow;
    if (uniform && !hide.isVariable() && slots == 0) {
        // One transparency for the batch and nothing to refract: the usual
        // material, opaque or evenly clear.
        const T3Float result = hide.asBool(start) ? splat(1) : transparency[0];
        fillTriples(block.outputValue(a.io.outTransparency.whole, start, count), start, count, result);
        if (!shadowPass) writeMatteOpacity(a, block, start, count, &result, true);
        return;
    }

    TchunkTriples result;
    for (unsigned i = start; i < start + count; ++i)
        result[i - start] = hide.asBool(i) ? splat(1) : transparency[uniform ? 0 : i - start];
    if (slots) {
        TchunkTriples spread;
        if (uniform)
            for (unsigned i = 0; i < count; ++i) spread[i] = transparency[0];
        const T3Float* perSample = uniform ? static_cast<const T3Float*>(spread) : transparency;
        TdataHandle chromatic = block.inputValue(s.chromaticAberration, start, count);
        TrayBatch batch;
        SN_ALLOCATE_RAYS(batch, sampler, slots);
        formSurfaceRefractiveRays(a, block, start, count, perSample, batch.rayIndex, batch.rayCount, batch.rays, batch.radiance,
                                  batch.transmittance);
        if (batch.rayCount > 0) sampler->traceRays(node, batch.rayCount, batch.rays, batch.radiance, batch.transmittance);
        for (unsigned i = start; i < start + count; ++i) {
            bool chroma = chromatic.asBool(i);
            for (unsigned k = 0; k < raySlotsOf(chroma); ++k) {
                short r = batch.rayIndex[(i - start) * kSurfaceSlotsPerSample + k];
                if (r < 0) continue;
                const Tspectrum& t = batch.transmittance[r];
                if (chroma)
                    result[i - start][int(k)] *= t[k];
                else
                    result[i - start] = mul(result[i - start], t);
            }
        }
    }
    TdataHandle outTransparency = block.outputValue(a.io.outTransparency.whole, start, count);
    for (unsigned i = start; i < start + count; ++i) outTransparency.asFloat3(i) = result[i - start];
    if (!shadowPass) writeMatteOpacity(a, block, start, count, result, false);
}

void formSurfaceRefractiveRays(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count,
                               const T3Float* transparency, short* rayIndex, short& rayCount, TgenericRay** rays,
                               Tspectrum* radiance, Tspectrum* transmittance) {
    const TsurfaceSettings& s = a.settings;
    const TsurfaceIO& io = a.io;
    TdataHandle refractions = block.inputValue(s.refractions, start, count);
    TdataHandle hide = block.inputValue(s.hideSource, start, count);
    TdataHandle medium = block.inputValue(io.mediumRefractiveIndex, start, count);
    TdataHandle depth = block.inputValue(io.rayDepth, start, count);
    TdataHandle limit = block.inputValue(s.refractionLimit, start, count);
    TdataHandle index = block.inputValue(s.refractiveIndex, start, count);
    TdataHandle thickness = block.inputValue(s.surfaceThickness, start, count);
    TdataHandle direction = block.inputValue(io.rayDirection.whole, start, count);
    TdataHandle normal = block.inputValue(io.normalCamera.whole, start, count);
    TdataHandle chromatic = block.inputValue(s.chromaticAberration, start, count);
    TdataHandle point = block.inputValue(io.pointCamera.whole, start, count);
    TdataHandle primitive = block.inputValue(io.primitiveId, start, count);
    TdataHandle object = block.inputValue(io.objectId, start, count);
    TdataHandle instance = block.inputValue(io.rayInstance, start, count);

    for (unsigned i = start; i < start + count; ++i) {
        const T3Float& t = transparency[i - start];
        float mediumIndex = medium.asFloat(i);
        if (!refractions.asBool(i) || hide.asBool(i) || std::fabs(mediumIndex + kNoRefractionMarker) <= kMarkerTolerance ||
            depth.asInt(i) >= limit.asShort(i) || letsNothingThrough(t))
            continue;
        const T3Float& I = direction.asFloat3(i);
        const T3Float& N = normal.asFloat3(i);
        float n = index.asFloat(i);
        if (float h = thickness.asFloat(i); h != 0) {
            float u = 1.0f - std::fabs(dot(I, N));
            float factor = h + 2.0f * h * u * u;
            n = std::clamp(1.0f + (n - 1.0f) * factor, kMinIndex, kMaxThickIndex);
        }
        if (mediumIndex == n) n = 1.0f;  // leaving the surface
        const float c = -dot(I, N);
        for (unsigned k = 0; k < raySlotsOf(chromatic.asBool(i)); ++k) {
            float nk = n + float(k) * kChromaticStep;
            float eta = mediumIndex / nk;
            float q = 1.0f - eta * eta * (1.0f - c * c);
            TgenericRay& ray = *rays[rayCount];
            if (q < 0) {  // total internal reflection
                ray.direction = I + N * (2.0f * c);
                ray.mediumRefractiveIndex = index.asFloat(i);
            } else {
                ray.direction = I * eta + N * (eta * std::fabs(c) - std::sqrt(q));
                ray.mediumRefractiveIndex = nk;
            }
            ray.origin = point.asFloat3(i);
            ray.distance = FLT_MAX;
            ray.rayDepth = depth.asInt(i) + 1;
            ray.primitiveId = primitive.asInt(i);
            // The ray keeps 32 bits of the object's id.
            ray.objectId = int32_t(reinterpret_cast<intptr_t>(object.as<void*>(i)));
            ray.rayInstance = instance.asInt(i);
            radiance[rayCount] = kBlackSpectrum;
            transmittance[rayCount] = kWhiteSpectrum;
            rayIndex[(i - start) * kSurfaceSlotsPerSample + k] = rayCount;
            ++rayCount;
        }
    }
}

void accumulateSurfaceRefraction(TdependNode* node, const TsurfaceAttributes& a, TraySampler* sampler, TdataBlock& block,
                                 unsigned start, unsigned count, const T3Float* transparency, T3Float* accumulator) {
    if (!sampler) return;
    const TsurfaceSettings& s = a.settings;
    TdataHandle refractions = block.inputValue(s.refractions, start, count);
    TdataHandle hide = block.inputValue(s.hideSource, start, count);
    TdataHandle chromatic = block.inputValue(s.chromaticAberration, start, count);
    auto refracting = [&](unsigned i) { return refractions.asBool(i) && !hide.asBool(i); };
    unsigned slots = 0;
    for (unsigned i = start; i < start + count; ++i)
        if (refracting(i)) slots += raySlotsOf(chromatic.asBool(i));
    if (slots == 0) return;

    TrayBatch batch;
    SN_ALLOCATE_RAYS(batch, sampler, slots);
    formSurfaceRefractiveRays(a, block, start, count, transparency, batch.rayIndex, batch.rayCount, batch.rays, batch.radiance,
                              batch.transmittance);
    if (batch.rayCount > 0) sampler->traceRays(node, batch.rayCount, batch.rays, batch.radiance, batch.transmittance);

    TdataHandle thickness = block.inputValue(s.surfaceThickness, start, count);
    TdataHandle absorbance = block.inputValue(s.lightAbsorbance, start, count);
    TdataHandle depthLimit = block.inputValue(s.transparencyDepth, start, count);
    static const Tspectrum* const kChannelMask[3] = {&kRedSpectrum, &kGreenSpectrum, &kBlueSpectrum};
    for (unsigned i = start; i < start + count; ++i) {
        float T = thickness.asFloat(i), A = absorbance.asFloat(i), D = depthLimit.asFloat(i);
        bool chroma = chromatic.asBool(i);
        T3Float sum;
        for (unsigned k = 0; k < raySlotsOf(chroma); ++k) {
            short r = batch.rayIndex[(i - start) * kSurfaceSlotsPerSample + k];
            if (r < 0) continue;
            float dist = batch.rays[r]->distance;
            if (T != 0) dist = std::min(dist, T);  // the thickness limits the distance in the medium
            float att = A == 0 ? 1.0f : float(1.0 / std::exp(double(dist) / 100.0 * double(A)));
            if (D != 0) {
                float left = (D - dist) / D;
                att = dist > D ? 0.0f : att * left * left;
            }
            if (att <= kAttenuationFloor) att = 0;
            T3Float radiance = batch.radiance[r].asFloat3();
            if (chroma) radiance = mul(radiance, *kChannelMask[k]);
            sum = sum + radiance * att;
        }
        accumulator[i - start] = accumulator[i - start] + mul(sum, transparency[i - start]);
    }

    Tspectrum background;
    sampler->background(background);
    bool black = background.r() == kBlackSpectrum.r() && background.g() == kBlackSpectrum.g() && background.b() == kBlackSpectrum.b();
    if (unsigned(batch.rayCount) >= count || black) return;
    // A chromatic sample without rays gets the background three times and
    // unmasked; deliberate, kept as it is.
    for (unsigned i = start; i < start + count; ++i) {
        if (!refracting(i)) continue;
        for (unsigned k = 0; k < raySlotsOf(chromatic.asBool(i)); ++k)
            if (batch.rayIndex[(i - start) * kSurfaceSlotsPerSample + k] < 0)
                accumulator[i - start] = accumulator[i - start] + mul(background.asFloat3(), transparency[i - start]);
    }
}

float surfaceGlowIntensity(TdependNode& node, const Tattribute& glowIntensity) {
    float value = 0;
    node.getAttributeValue(&glowIntensity, &value);
    if (value == 0 && node.sourceOf(Tplug(&node, &glowIntensity))) value = kDrivenGlow;
    return value;
}

void blackenSurfaceBlackHoles(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count) {
    TdataHandle mode = surfaceSetting(a, &TsettledSurface::matteOpacityMode, a.settings.matteOpacityMode, block, start, count);
    if (!mode.isVariable() && mode.asShort(start) != kMatteBlackHole) return;  // the batch has no black hole
    TdataHandle outColor = block.outputValue(a.io.outColor.whole, start, count);
    TdataHandle outGlow = block.outputValue(a.io.outGlowColor.whole, start, count);
    for (unsigned i = start; i < start + count; ++i)
        if (mode.asShort(i) == kMatteBlackHole) {
            outColor.asFloat3(i) = T3Float();
            outGlow.asFloat3(i) = T3Float();
        }
}

void finishSurfaceColor(const TsurfaceAttributes& a, TdataBlock& block, unsigned start, unsigned count) {
    TdataHandle hide = surfaceSetting(a, &TsettledSurface::hideSource, a.settings.hideSource, block, start, count);
    TdataHandle glow = surfaceSetting(a, &TsettledSurface::glowIntensity, a.settings.glowIntensity, block, start, count);
    TdataHandle outGlow = block.outputValue(a.io.outGlowColor.whole, start, count);
    if (!hide.isVariable() && !hide.asBool(start) && !glow.isVariable()) {
        // Nothing hidden and one glow for the batch.
        const float g = glow.asFloat(start);
        for (unsigned i = start; i < start + count; ++i) outGlow.asFloat3(i) = outGlow.asFloat3(i) * g;
    } else {
        TdataHandle outColor = block.outputValue(a.io.outColor.whole, start, count);
        for (unsigned i = start; i < start + count; ++i) {
            if (hide.asBool(i)) outColor.asFloat3(i) = T3Float();
            outGlow.asFloat3(i) = outGlow.asFloat3(i) * glow.asFloat(i);
        }
    }
    computeSurfaceBlackHole(a, block, start, count);
}

void traceMirrorRays(TdependNode* node, const TsurfaceAttributes& a, const Tattribute& reflectionLimit, TraySampler* sampler,
                     TdataBlock& block, unsigned start, unsigned count, const float* reflectivity, T3Float* reflected) {
    if (!sampler) return;
    const TsurfaceIO& io = a.io;
    TdataHandle depth = block.inputValue(io.rayDepth, start, count);
    TdataHandle limit = block.inputValue(reflectionLimit, start, count);
    TdataHandle hide = block.inputValue(a.settings.hideSource, start, count);
    // A ray deeper than the tracer goes (all of them with ray tracing off) is
    // not formed, so that reflectedColor stands in for it.
    const int deepest = sampler->maxRayDepth();
    auto reflecting = [&](unsigned i) {
        return reflectivity[i - start] != 0 && depth.asInt(i) < limit.asShort(i) && depth.asInt(i) < deepest && !hide.asBool(i);
    };
    unsigned wanted = 0;
    for (unsigned i = start; i < start + count; ++i) wanted += reflecting(i) ? 1 : 0;
    if (wanted == 0) return;

    TdataHandle normal = block.inputValue(io.normalCamera.whole, start, count);
    TdataHandle point = block.inputValue(io.pointCamera.whole, start, count);
    TdataHandle direction = block.inputValue(io.rayDirection.whole, start, count);
    TdataHandle object = block.inputValue(io.objectId, start, count);
    TdataHandle instance = block.inputValue(io.rayInstance, start, count);
    TdataHandle primitive = block.inputValue(io.primitiveId, start, count);
    TdataHandle medium = block.inputValue(io.mediumRefractiveIndex, start, count);

    unsigned rayBytes = recordSize(sampler);
    void* memory = alloca(size_t(rayBytes) * wanted + alignof(std::max_align_t));
    auto* base = static_cast<unsigned char*>(alignedRecords(memory));
    TgenericRay* rays[kSurfaceChunk];
    Tspectrum radiance[kSurfaceChunk], transmittance[kSurfaceChunk];
    short rayIndex[kSurfaceChunk];
    short rayCount = 0;
    for (unsigned i = start; i < start + count; ++i) {
        rayIndex[i - start] = -1;
        if (!reflecting(i)) continue;
        TgenericRay& ray = *(rays[rayCount] = new (base + size_t(rayCount) * rayBytes) TgenericRay());
        ray.origin = point.asFloat3(i);
        ray.direction = unitOrSelf(mirror(direction.asFloat3(i), unitOrSelf(normal.asFloat3(i))));
        ray.distance = FLT_MAX;
        ray.rayDepth = depth.asInt(i) + 1;
        ray.mediumRefractiveIndex = medium.asFloat(i);
        ray.primitiveId = primitive.asInt(i);
        ray.objectId = int32_t(reinterpret_cast<intptr_t>(object.as<void*>(i)));
        ray.rayInstance = instance.asInt(i);
        radiance[rayCount] = kBlackSpectrum;
        transmittance[rayCount] = kWhiteSpectrum;
        rayIndex[i - start] = rayCount++;
    }
    sampler->traceRays(node, rayCount, rays, radiance, transmittance);
    for (unsigned i = start; i < start + count; ++i)
        if (short r = rayIndex[i - start]; r >= 0) reflected[i - start] = radiance[r].asFloat3();
}

void groupSurfaceOutputs(const TsurfaceIO& io, const Tattribute* attr, TattributeArray& group) {
    const Tattribute* a = attr->rootParent();
    bool shadowPass = currentRenderPassControl == kPassShadow;
    auto add = [&](const Tattribute& whole) {
        group.append(&whole);
        for (unsigned c = 0; c < whole.childCount(); ++c) group.append(whole.child(c));
    };
    if (a == &io.outColor.whole) {
        add(io.outGlowColor.whole);
        if (shadowPass) add(io.outMatteOpacity.whole);
    } else if (a == &io.outGlowColor.whole) {
        add(io.outColor.whole);
        if (shadowPass) add(io.outMatteOpacity.whole);
    } else if (a == &io.outTransparency.whole) {
        add(io.outMatteOpacity.whole);
    } else if (a == &io.outMatteOpacity.whole) {
        add(io.outTransparency.whole);
        if (shadowPass) {
            add(io.outColor.whole);
            add(io.outGlowColor.whole);
        }
    }
}

void clearSurfaceRaySampler(TdependNode& node, const TsurfaceIO& io) {
    void* none = nullptr;
    TmsgSetPlugValue(Tplug(&node, &io.raySampler), &none).send();
}
