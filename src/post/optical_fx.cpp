#include "post/optical_fx.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "lights/render_light.h"
#include "post/post_messages.h"
#include "post/shader_glow.h"
#include "textures/noise/noise.h"

namespace {
// Spreads are given in units that read well in the attribute editor; this
// turns them into the cosine space the falloff works in.
constexpr double kSpreadUnit = 0.02;
// The fog veil is an order wider than a glow of the same spread.
constexpr double kFogSpreadUnit = 0.25;
// Exponential falloffs take their spread this much wider.
constexpr double kExponentialScale = 2.0;
// Apertures below this are taken as 1 inch.
constexpr double kMinAperture = 0.0001;
constexpr double kInchesPerMillimetre = 0.03937;
// Amounts below this are nothing.
constexpr double kNothing = 0.00001;

// The fixed flare circles: place along the flare line (0 at the light, 1 at
// the image centre, 2 mirrored through it), size relative to the largest
// random circle, and brightness. Entries 4, 6 and 8 are the large soft
// circles whose brightness follows the base weight.
struct TflareCircle {
    double along, size, brightness;
};
constexpr TflareCircle kFlareTable[TdnOpticalFX::kFixedFlareCircles] = {
    {0.12, 0.45, 0.50}, {0.33, 1.30, 0.22}, {0.52, 0.35, 0.70}, {0.70, 0.90, 0.30}, {0.88, 2.60, 0.16},
    {1.12, 0.60, 0.45}, {1.30, 2.10, 0.12}, {1.52, 0.45, 0.60}, {1.78, 3.40, 0.09}, {2.02, 1.10, 0.28},
};

double denominator(double v, double guard) { return v == 0 ? guard : v; }

// 1 / (t^power - 1), kept finite where t^power is 1.
double spreadConstant(double t, int power) {
    const double d = std::pow(t, power) - 1;
    return 1 / (std::fabs(d) < 1e-9 ? -1e-9 : d);
}

// The rainbow of the lens-flare and rim types: hue from a position w.
double rainbowWeight(double w) { return w < 0 ? 1.0 : w > 1 ? 0.0 : 1 - w; }
}  // namespace

TdnVSOpticalFX::TdnVSOpticalFX() {
    addGlowTypeFields(glowType, 'g');
    addGlowTypeFields(haloType, 'h');
    addSettingFields(fogType, {{"None", "kfNoFog"}, {"Linear", "kfLinearFog"}, {"Exponential", "kfExpFog"}, {"Ball", "kfBallFog"}});
    active.setNativeDefaultData(1.0);
    glowType.setNativeDefaultData(1.0);
    glowColor.setDefault(1, 1, 1);
    haloColor.setDefault(1, 1, 1);
    fogColor.setDefault(1, 1, 1);
    flareColor.setDefault(1, 1, 1);
    flareIntensity.setNativeDefaultData(1.0);
    flareNumCircles.setNativeDefaultData(20.0);
    flareMinSize.setNativeDefaultData(0.1);
    flareMaxSize.setNativeDefaultData(1.0);
    flareColSpread.setNativeDefaultData(0.5);
    flareFocus.setNativeDefaultData(0.6);
    flareVertical.setNativeDefaultData(1.0);
    flareHorizontal.setNativeDefaultData(1.0);
    flareLength.setNativeDefaultData(1.0);
    glowIntensity.setNativeDefaultData(1.0);
    haloIntensity.setNativeDefaultData(1.0);
    fogIntensity.setNativeDefaultData(1.0);
    glowSpread.setNativeDefaultData(1.0);
    haloSpread.setNativeDefaultData(1.0);
    fogSpread.setNativeDefaultData(1.0);
    radialFrequency.setNativeDefaultData(0.5);
    starPoints.setNativeDefaultData(4.0);
    noiseUscale.setNativeDefaultData(1.0);
    noiseVscale.setNativeDefaultData(1.0);
    noiseThreshold.setNativeDefaultData(0.5);
    for (Tattribute* out : {static_cast<Tattribute*>(&glowVisibility), static_cast<Tattribute*>(&lightColor.whole),
                            static_cast<Tattribute*>(&visibility.whole)})
        out->setFlag(kAttrWritable, false);
}

bool TdnOpticalFX::reset(const TopticalFXview& view, const TopticalFXlight& light, const TopticalFXoccluders* occluders) {
    const TdnVSOpticalFX& a = *fsVs;
    auto real = [&](const Tattribute& attr, float& into) { getAttributeValue(&attr, &into); };
    auto colour = [&](const TcolorAttribute& attr, T3Float& into) {
        float c[3] = {0, 0, 0};
        getAttributeValue(&attr.whole, c);
        into = {c[0] * 255, c[1] * 255, c[2] * 255};
    };
    auto choice = [&](const Tattribute& attr, int& into) {
        short v = 0;
        getAttributeValue(&attr, &v);
        into = std::max<int>(v, 0);
    };
    getAttributeValue(&a.active, &fS.active);
    getAttributeValue(&a.lensFlare, &fS.lensFlare);
    getAttributeValue(&a.hexagonFlare, &fS.hexagonFlare);
    getAttributeValue(&a.ignoreLight, &fS.ignoreLight);
    choice(a.glowType, fS.glowType);
    choice(a.haloType, fS.haloType);
    choice(a.fogType, fS.fogType);
    getAttributeValue(&a.flareNumCircles, &fS.flareNumCircles);
    fS.flareNumCircles = std::clamp(fS.flareNumCircles, 0, 1000);
    colour(a.glowColor, fS.glowColor);
    colour(a.haloColor, fS.haloColor);
    colour(a.fogColor, fS.fogColor);
    colour(a.flareColor, fS.flareColor);
    for (auto [attr, into] : std::initializer_list<std::pair<const Tattribute*, float*>>{
             {&a.flareIntensity, &fS.flareIntensity}, {&a.flareMinSize, &fS.flareMinSize}, {&a.flareMaxSize, &fS.flareMaxSize},
             {&a.flareColSpread, &fS.flareColSpread}, {&a.flareFocus, &fS.flareFocus}, {&a.flareVertical, &fS.flareVertical},
             {&a.flareHorizontal, &fS.flareHorizontal}, {&a.flareLength, &fS.flareLength}, {&a.glowIntensity, &fS.glowIntensity},
             {&a.haloIntensity, &fS.haloIntensity}, {&a.fogIntensity, &fS.fogIntensity}, {&a.glowSpread, &fS.glowSpread},
             {&a.haloSpread, &fS.haloSpread}, {&a.fogSpread, &fS.fogSpread}, {&a.glowNoise, &fS.glowNoise},
             {&a.fogNoise, &fS.fogNoise}, {&a.glowRadialNoise, &fS.glowRadialNoise}, {&a.fogRadialNoise, &fS.fogRadialNoise},
             {&a.glowStarLevel, &fS.glowStarLevel}, {&a.fogStarlevel, &fS.fogStarlevel}, {&a.glowOpacity, &fS.glowOpacity},
             {&a.fogOpacity, &fS.fogOpacity}, {&a.radialFrequency, &fS.radialFrequency}, {&a.starPoints, &fS.starPoints},
             {&a.rotation, &fS.rotation}, {&a.noiseUscale, &fS.noiseUscale}, {&a.noiseVscale, &fS.noiseVscale},
             {&a.noiseUoffset, &fS.noiseUoffset}, {&a.noiseVoffset, &fS.noiseVoffset}, {&a.noiseThreshold, &fS.noiseThreshold}})
        real(*attr, *into);
    fView = view;
    if (view.orthographic) {
        fPlaneDepth = 1;  // a virtual lens of 90 degrees over the orthographic view
    } else {
        const double aperture = view.horizontalAperture < kMinAperture ? 1.0 : view.horizontalAperture;
        fPlaneDepth = aperture / std::max(2 * view.focalLength * kInchesPerMillimetre, 1e-9);
    }
    computeSpreads();
    fPlaceOnFirstPixel = !placeLight(light);
    computeLightColour(light, occluders);
    return fS.active;
}

void TdnOpticalFX::adjustViewport(unsigned short width, unsigned short height) {
    fWidth = std::max<unsigned short>(width, 1);
    fHeight = std::max<unsigned short>(height, 1);
    fAspect = double(fHeight) / double(fWidth);
}

void TdnOpticalFX::computeSpreads() {
    const double g = fS.glowSpread * kSpreadUnit;
    switch (fS.glowType) {
        case 2: fGlowSpread = spreadConstant(g * kExponentialScale, 3); break;
        case 3: fGlowSpread = 1 - g * g; break;
        case 5: fGlowSpread = spreadConstant(2 * g, 3); break;
        default: fGlowSpread = spreadConstant(g, 3); break;
    }
    const double h = fS.haloSpread * kSpreadUnit * 3 / kExponentialScale;
    switch (fS.haloType) {
        case 2: fHaloSpread = spreadConstant(h * kExponentialScale, 2); break;
        case 3: fHaloSpread = 1 - h * h; break;
        default: fHaloSpread = spreadConstant(h, 2); break;
    }
    const double f = std::min(0.99, fS.fogSpread * kFogSpreadUnit);
    fFogSpread = fS.fogType == kBallFog ? 1 - f * f : spreadConstant(fS.fogType == kExpFog ? f * kExponentialScale : f, 2);
}

bool TdnOpticalFX::placeLight(const TopticalFXlight& light) {
    const Tmatrix& m = fView.worldToCamera;
    T3Float p;
    if (light.atInfinity) {
        p = m.transformVector(T3Float(float(light.towardsLight.x), float(light.towardsLight.y), float(light.towardsLight.z)));
    } else if (light.fixedPosition) {
        p = m.transformPoint(T3Float(float(light.position.x), float(light.position.y), float(light.position.z)));
    } else {
        return false;
    }
    // Camera space looks down -Z; the effects look down +Z.
    T3Float forward{p.x, p.y, -p.z};
    if (fView.orthographic && !light.atInfinity) {
        const double half = std::max(1e-9, fView.orthographicWidth / 2);
        forward = {float(p.x / half), float(p.y / half), p.z < 0 ? 1.0f : -1.0f};
    }
    fTowardsLight = fastNormalize(forward);
    fLightPlane = forward.z > 0 ? T3Double(forward.x / forward.z / fPlaneDepth, forward.y / forward.z / fPlaneDepth, forward.z)
                                : T3Double(0, 0, forward.z);
    return true;
}

void TdnOpticalFX::computeLightColour(const TopticalFXlight& light, const TopticalFXoccluders* occluders) {
    const T3Float base = fS.ignoreLight ? T3Float(1, 1, 1) : light.color * light.intensity;
    fVisibility = {1, 1, 1};
    if (occluders && !fPlaceOnFirstPixel) {
        const Tmatrix cameraToWorld = fView.worldToCamera.inverse();
        const T3Float eyeF = cameraToWorld.transformPoint({0, 0, 0});
        const T3Double eye{eyeF.x, eyeF.y, eyeF.z};
        T3Double target = light.position;
        if (light.atInfinity) {
            constexpr double kFar = 1.0e5;
            target = {eye.x + light.towardsLight.x * kFar, eye.y + light.towardsLight.y * kFar, eye.z + light.towardsLight.z * kFar};
        }
        // The light seen as a small disc facing the eye: the centre and a
        // ring of eight points at a fiftieth of its distance. Each sight line
        // that an occluder crosses takes its share of the light away.
        const T3Double d{target.x - eye.x, target.y - eye.y, target.z - eye.z};
        const double distance = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
        if (distance > 0) {
            const T3Double w{d.x / distance, d.y / distance, d.z / distance};
            T3Double u = std::fabs(w.x) < 0.9 ? T3Double(0, -w.z, w.y) : T3Double(-w.z, 0, w.x);
            const double ul = std::sqrt(u.x * u.x + u.y * u.y + u.z * u.z);
            u = {u.x / ul, u.y / ul, u.z / ul};
            const T3Double v{w.y * u.z - w.z * u.y, w.z * u.x - w.x * u.z, w.x * u.y - w.y * u.x};
            constexpr int kRing = 8;
            const double radius = distance * 0.02;
            T3Float sum = occluders->transmission(eye, target);
            for (int k = 0; k < kRing; ++k) {
                const double angle = 6.283185307179586 * k / kRing;
                const double cu = std::cos(angle) * radius, cv = std::sin(angle) * radius;
                const T3Double p{target.x + u.x * cu + v.x * cv, target.y + u.y * cu + v.y * cv, target.z + u.z * cu + v.z * cv};
                sum = sum + occluders->transmission(eye, p);
            }
            fVisibility = sum * (1.0f / (kRing + 1));
        }
    }
    fLightColour = {base.x * fVisibility.x, base.y * fVisibility.y, base.z * fVisibility.z};
    const TdnVSOpticalFX& a = *fsVs;
    float seen = glowVisibility();
    setAttributeValue(&a.glowVisibility, &seen);
    setAttributeValue(&a.lightColor.whole, &fLightColour);
    setAttributeValue(&a.visibility.whole, &fVisibility);
}

T3Float TdnOpticalFX::pixelDirection(double x, double y) const {
    const double nx = 2 * (x + 0.5) / fWidth - 1;
    const double ny = (1 - 2 * (y + 0.5) / fHeight) * fAspect;
    // One division per frame, none per pixel: the reciprocal square root.
    return fastNormalize(T3Float(float(nx), float(ny), float(1 / fPlaneDepth)));
}

double TdnOpticalFX::glowNoise(double x, double y, double intensity, double scaleU, double scaleV, double offsetU,
                               double offsetV, double threshold, double rotation) const {
    const double angle = rotation * 3.141592653589793 / 180;
    const double c = std::cos(angle), s = std::sin(angle);
    double u = (x * c - y * s) * scaleU + offsetU + 0.11;
    double v = (x * s + y * c) * scaleV + offsetV + 0.11;
    double sum = 0, amplitude = 1;
    for (int octave = 0; octave < 4; ++octave) {
        sum += fTable.noise(u + 0.1, v + 0.03) * amplitude;
        u *= 2, v *= 2;
        amplitude *= 0.7;
    }
    const double value = sum / 2.7 + 0.5;
    const double t = std::max(threshold, 1e-6);
    return std::min(t, value) / t * intensity;
}

// The falloff of glow (halo: squared closeness) with closeness c and spread
// constant k, before the noise.
double TdnOpticalFX::amountOf(int type, double c, double k, bool halo) const {
    const double cc = halo ? c * c : c;
    switch (type) {
        case 1:
        case 2: return (1 + k) / denominator(cc + k, 0.00001);
        case 3: return c <= k ? 0.0 : (c - k) / (k >= 0.999999 ? 0.000001 : 1 - k);
        case 4:
        case 5: return (k + 1) / denominator(c + k, 0.00001);
        default: return 0;
    }
}

double TdnOpticalFX::RandomNoise(int i) { return Tnoise::randomNoise(i * 7 + 3); }

QV_Rgb TdnOpticalFX::flareColourOf(int i) const {
    QV_Hsv hsv = RGBtoHSV({fS.flareColor.x, fS.flareColor.y, fS.flareColor.z});
    hsv.h = float(std::fmod(hsv.h + RandomNoise(i + 101) * fS.flareColSpread * 180 + 720, 360.0));
    if (fS.flareColSpread > 0) hsv.s = std::max(hsv.s, std::min(1.0f, fS.flareColSpread));
    return HSVtoRGB(hsv);
}

bool TdnOpticalFX::flareCircle(int i, double& cx, double& cy, double& radius) const {
    const double minSize = fS.flareMinSize * 0.1, maxSize = fS.flareMaxSize * 0.1;
    double along;
    if (i < fS.flareNumCircles) {
        const double u = (1 + RandomNoise(i)) * 0.5;
        radius = minSize + (maxSize - minSize) * u * u * u;
        // Spread from a quarter of the way to the centre out to twice as far.
        along = 0.25 + 1.75 * (1 + RandomNoise(i + 53)) * 0.5;
    } else if (i < fS.flareNumCircles + kFixedFlareCircles) {
        const TflareCircle& t = kFlareTable[i - fS.flareNumCircles];
        radius = maxSize * t.size;
        along = t.along;
    } else {
        return false;
    }
    along *= fS.flareLength;
    cx = fLightPlane.x * (1 - along * fS.flareHorizontal);
    cy = fLightPlane.y * (1 - along * fS.flareVertical);
    return true;
}

bool TdnOpticalFX::glowEffect(const T3Float& direction, QV_Rgba* out, const TopticalFXlight& light) {
    if (!out) return false;
    *out = QV_Rgba();
    if (fPlaceOnFirstPixel) {
        TopticalFXlight placed = light;
        placed.fixedPosition = true;
        if (light.vertices.size() == 4) {
            placed.position = {};
            for (const T3Double& v : light.vertices)
                placed.position = {placed.position.x + v.x / 4, placed.position.y + v.y / 4, placed.position.z + v.z / 4};
        } else {
            char line[256];
            std::snprintf(line, sizeof line, "Can not cope with light %s, has %d vertices\n", light.name.c_str(),
                          int(light.vertices.size()));
            postMessage(line);
            placed.position = {};
        }
        placeLight(placed);
        fPlaceOnFirstPixel = false;
    }
    if (fLightColour.x <= 0 && fLightColour.y <= 0 && fLightColour.z <= 0) return true;
    const double c = double(direction.x) * fTowardsLight.x + double(direction.y) * fTowardsLight.y +
                     double(direction.z) * fTowardsLight.z;
    if (c <= 0) return true;  // the light is behind this ray

    // Offsets on the image plane from the light, for the angular patterns.
    const double px = direction.x / direction.z / fPlaneDepth, py = direction.y / direction.z / fPlaneDepth;
    const double ox = px - fLightPlane.x, oy = py - fLightPlane.y;

    double g = amountOf(fS.glowType, c, fGlowSpread, false);
    double h = amountOf(fS.haloType, c, fHaloSpread, true);
    double f = fS.fogType == kNoFog ? 0.0 : amountOf(fS.fogType == kBallFog ? 3 : 1, c, fFogSpread, true);
    QV_Hsv glowHsv, haloHsv;
    auto rainbow = [](int type, double r, QV_Hsv& hsv) {
        if (type == 4) {
            const double w = rainbowWeight(1 - r);
            hsv.h = float(std::min(390 * w, 200.0));
            const double hue = 390 * w;
            hsv.s = float(hue <= 60 ? 0.8 : std::max(0.0, 0.8 - (hue - 60) / 250));
            hsv.v = 1;
        } else {
            const double w = 0.08 - (r - 0.1);
            const double t = w < 0 ? 1.0 : rainbowWeight(w / 0.08);
            hsv.h = float(std::min(300 * t, 250.0));
            hsv.s = 0.95f;
            const double q = (0.08 - std::fabs(r - 0.1)) / 0.08;
            hsv.v = float(std::max(0.0, 3000 * std::min(q + 0.4 + q, 1.0)));
        }
    };
    if (fS.glowType >= 4) rainbow(fS.glowType, g, glowHsv);
    if (fS.haloType >= 4) rainbow(fS.haloType, h, haloHsv);

    if (g > kNothing) {
        const double m = glowNoise(ox, oy, fS.glowNoise, fS.noiseUscale, fS.noiseVscale, fS.noiseUoffset, fS.noiseVoffset,
                                   fS.noiseThreshold, fS.rotation);
        g = (1 - m) * (1 - m) * g;
        if (g > kNothing) {
            const double n = fTable.radialGlowNoise(ox, oy, fS.glowStarLevel, fS.starPoints, fS.glowRadialNoise,
                                                    fS.radialFrequency, fS.rotation);
            if (n != 1) {
                const double u = std::max(g, 0.0);
                g = g * u + (1 - u) * n * g;
            }
        }
    }
    if (f > kNothing) {
        const double m = glowNoise(ox, oy, fS.fogNoise, fS.noiseUscale, fS.noiseVscale, fS.noiseUoffset, fS.noiseVoffset,
                                   fS.noiseThreshold, fS.rotation);
        f = (1 - m) * (1 - m) * f;
        const double n = fTable.radialGlowNoise(ox, oy, fS.fogStarlevel, fS.starPoints, fS.fogRadialNoise, fS.radialFrequency,
                                                fS.rotation);
        f *= n;
    }
    const bool flare = fS.lensFlare && fS.flareIntensity != 0 && fLightPlane.z > 0;
    if (g <= 0 && h <= 0 && f <= 0 && !flare) return true;

    auto shape = [](int type, double v) { return type == 3 ? v * v : type == 2 ? std::sqrt(std::max(v, 0.0)) : v; };
    g = std::max(0.0, shape(fS.glowType, g));
    h = std::max(0.0, shape(fS.haloType, h));
    f = std::max(0.0, shape(fS.fogType == kExpFog ? 2 : fS.fogType == kBallFog ? 3 : 1, f));

    if (fS.glowOpacity > 0) out->a += float(fS.glowOpacity * g);
    if (fS.fogOpacity > 0) out->a += float(fS.fogOpacity * f);

    QV_Rgb glowPart, haloPart;
    if (fS.glowType >= 4) {
        glowHsv.v = float(glowHsv.v * (fS.glowType == 4 ? 10 : g * g) * fS.glowIntensity * g);
        glowPart = HSVtoRGB(glowHsv);
    } else {
        const float v = float(fS.glowIntensity * 4 * g);
        glowPart = {v, v, v};
    }
    if (fS.haloType >= 4) {
        haloHsv.v = float(haloHsv.v * fS.haloIntensity * 2 * h);
        haloPart = HSVtoRGB(haloHsv);
    } else {
        const float v = float(fS.haloIntensity * 4 * h);
        haloPart = {v, v, v};
    }
    const float fogPart = float(fS.fogIntensity * 2 * f);
    // Effect colours are 0..255; the light's colour is a factor around 1.
    out->r += (glowPart.r * fS.glowColor.x + haloPart.r * fS.haloColor.x + fogPart * fS.fogColor.x) * fLightColour.x;
    out->g += (glowPart.g * fS.glowColor.y + haloPart.g * fS.haloColor.y + fogPart * fS.fogColor.y) * fLightColour.y;
    out->b += (glowPart.b * fS.glowColor.z + haloPart.b * fS.haloColor.z + fogPart * fS.fogColor.z) * fLightColour.z;

    if (flare) {
        double base = 0.5 - std::sqrt(fLightPlane.x * fLightPlane.x + fLightPlane.y * fLightPlane.y) * 0.5;
        if (base > 0) {
            base *= 0.5;
            const double focus = std::clamp(double(fS.flareFocus), 0.0, 1.0);
            for (int i = 0; i < fS.flareNumCircles + kFixedFlareCircles; ++i) {
                double cx, cy, radius;
                flareCircle(i, cx, cy, radius);
                if (radius <= 0) continue;
                double d;
                if (!insideFlareShape(px - cx, py - cy, radius, fS.hexagonFlare, d)) continue;
                double brightness;
                QV_Rgb colour;
                if (i < fS.flareNumCircles) {
                    brightness = 0.43;
                    colour = flareColourOf(i);
                } else {
                    const int entry = i - fS.flareNumCircles;
                    brightness = kFlareTable[entry].brightness;
                    if (entry == 6 || entry == 8) brightness *= 5 * base;
                    if (entry == 4) brightness *= 4 * base;
                    colour = flareColourOf(-3 - entry);
                }
                // Focus 1 gives a hard rim; lower values soften the edge.
                const double soft = std::max(1e-4, (1 - focus) * radius);
                const double edge = std::min(1.0, (radius - d) / soft);
                const double w = fS.flareIntensity * base * brightness * edge * 0.25;
                out->r += float(colour.r * w * fLightColour.x);
                out->g += float(colour.g * w * fLightColour.y);
                out->b += float(colour.b * w * fLightColour.z);
            }
        }
    }
    return true;
}

bool TdnOpticalFX::insideFlareShape(double dx, double dy, double radius, bool hexagon, double& distance) {
    distance = std::sqrt(dx * dx + dy * dy);
    if (distance >= radius) return false;
    // Inside the inscribed circle is inside; beyond it three pairs of sides
    // are tested, each pair turned by 60 degrees from a first turn of 20.
    constexpr double kInner = 0.8660254;
    if (!hexagon || distance < kInner * radius) return true;
    double x = dx * 0.9396926 - dy * 0.3420201, y = dx * 0.3420201 + dy * 0.9396926;
    double reach = 0;
    for (int side = 0; side < 3; ++side) {
        reach = std::max(reach, std::fabs(y));
        const double nx = x * 0.5 - y * 0.8660254, ny = x * 0.8660254 + y * 0.5;
        x = nx, y = ny;
    }
    if (reach >= kInner * radius) return false;
    distance = reach / kInner;
    return true;
}

bool TdnOpticalFX::addGlow(const T3Float& direction, QV_Rgba* pixel, const TopticalFXlight& light) {
    QV_Rgba result;
    if (!pixel || !glowEffect(direction, &result, light)) return false;
    if (result.r == 0 && result.g == 0 && result.b == 0 && result.a == 0) return true;
    for (float* c : {&result.r, &result.g, &result.b})
        if (*c > 0.1f) *c += Tnoise::rRand();
    if (result.a != 0) {
        const float a = result.a;
        pixel->a = 255 * a + pixel->a;
        const float keep = 1 - a;
        if (keep > 0) {
            pixel->r = pixel->r * keep + result.r, pixel->g = pixel->g * keep + result.g, pixel->b = pixel->b * keep + result.b;
        } else {
            pixel->r = result.r, pixel->g = result.g, pixel->b = result.b;
        }
    } else {
        pixel->r += result.r, pixel->g += result.g, pixel->b += result.b;
    }
    return true;
}

bool TdnOpticalFX::addOpticalFXtoScanline(const TopticalFXlight& light, const Trect& rect, unsigned short width,
                                          unsigned short height, unsigned short y, void* pixels, bool fields,
                                          unsigned char channelMode) {
    if (!pixels || !fS.active) return pixels != nullptr;
    adjustViewport(width, height);
    const double row = fields ? 2.0 * y : double(y);
    const unsigned bytes = postPixelBytes(channelMode);
    auto* p = static_cast<unsigned char*>(pixels);
    for (int x = rect.x0; x < rect.x1; ++x, p += bytes) {
        QV_Rgba pixel = postReadPixel(p, channelMode);
        const QV_Rgba before = pixel;
        if (!addGlow(pixelDirection(x, row), &pixel, light)) return false;
        if (pixel.r == before.r && pixel.g == before.g && pixel.b == before.b && pixel.a == before.a) continue;
        postWritePixel(p, channelMode, pixel, true);
    }
    return true;
}

bool TdnOpticalFX::addOpticalFXtoArray(const TopticalFXlight& light, const Trect& rect, unsigned short width,
                                       unsigned short height, void* pixels, bool fields, unsigned char channelMode) {
    if (!pixels) return false;
    const size_t rowBytes = size_t(rect.width()) * postPixelBytes(channelMode);
    const int rows = fields ? rect.height() / 2 : rect.height();
    const int first = fields ? rect.y0 / 2 : rect.y0;
    for (int r = 0; r < rows; ++r)
        if (!addOpticalFXtoScanline(light, rect, width, height, (unsigned short)(first + r),
                                    static_cast<unsigned char*>(pixels) + size_t(r) * rowBytes, fields, channelMode))
            return false;
    return true;
}

QV_Hsv TdnOpticalFX::RGBtoHSV(const QV_Rgb& c) {
    const float mx = std::max({c.r, c.g, c.b}), mn = std::min({c.r, c.g, c.b});
    QV_Hsv out;
    out.v = mx;
    out.s = mx > 0 ? (mx - mn) / mx : 0;
    if (mx == mn) return out;
    const float d = mx - mn;
    float h = mx == c.r ? (c.g - c.b) / d : mx == c.g ? 2 + (c.b - c.r) / d : 4 + (c.r - c.g) / d;
    h *= 60;
    if (h < 0) h += 360;
    out.h = h;
    return out;
}

QV_Rgb TdnOpticalFX::HSVtoRGB(const QV_Hsv& hsv) {
    const float v = hsv.v, s = std::clamp(hsv.s, 0.0f, 1.0f);
    if (s == 0) return {v, v, v};
    float h = std::fmod(hsv.h, 360.0f);
    if (h < 0) h += 360;
    h /= 60;
    const int sector = std::min(5, int(h));
    const float f = h - float(sector);
    const float p = v * (1 - s), q = v * (1 - s * f), t = v * (1 - s * (1 - f));
    switch (sector) {
        case 0: return {v, t, p};
        case 1: return {q, v, p};
        case 2: return {p, v, t};
        case 3: return {p, q, v};
        case 4: return {t, p, v};
        default: return {v, p, q};
    }
}

SN_REGISTER_NODE_CLASS(TdnOpticalFX)
