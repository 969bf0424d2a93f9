#include "materials/material_fixture.h"

#include <cstdint>

TshadingOpus* TmaterialNetwork::analyse() {
    init();
    return session->program(kSurfaceColorTransparency);
}

TtestSamples TmaterialNetwork::makeBatch(const std::vector<TmaterialSample>& in) {
    TtestSamples batch(group, in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        Tsample& sample = batch[i];
        const TmaterialSample& s = in[i];
        if (sample.hasItem(kItemPointCamera)) sample.setPointCamera(s.point);
        if (sample.hasItem(kItemNormalCamera)) sample.setNormalCamera(s.normal);
        if (sample.hasItem(kItemRayDirection)) sample.setRayDirection(s.direction);
        if (sample.hasItem(kItemRayDepth)) sample.setRayDepth(s.rayDepth);
        if (sample.hasItem(kItemMediumRefractiveIndex)) sample.setMediumRefractiveIndex(s.medium);
        if (sample.hasItem(kItemTangentUCamera)) sample.setTangentUCamera(s.tangentU);
        if (sample.hasItem(kItemTangentVCamera)) sample.setTangentVCamera(s.tangentV);
    }
    return batch;
}

size_t TmaterialNetwork::allocationsWhenShadedAgain(const std::vector<TmaterialSample>& in) {
    TshadingOpus* opus = analyse();
    EXPECT_NE(opus, nullptr);
    if (!opus) return ~size_t(0);
    const size_t allocations = makeBatch(in).allocationsOfASecondShade(opus);
    session.reset();
    return allocations;
}

std::vector<TmaterialResult> TmaterialNetwork::shade(const std::vector<TmaterialSample>& in) {
    std::vector<TmaterialResult> results;
    TshadingOpus* opus = analyse();
    EXPECT_NE(opus, nullptr);
    if (!opus) return results;
    TtestSamples batch = makeBatch(in);
    std::vector<Tsample*>& samples = batch.samples;
    opus->shade(unsigned(samples.size()), samples.data());
    for (Tsample* sample : samples) {
        TmaterialResult r;
        r.color = *sample->outColor();
        if (sample->hasItem(kItemOutTransparency)) r.transparency = *sample->outTransparency();
        if (sample->hasItem(kItemOutGlowColor)) r.glow = *sample->outGlowColor();
        if (sample->hasItem(kItemOutMatteOpacity)) r.matte = *sample->outMatteOpacity();
        results.push_back(r);
    }
    // A later analysis must see later edits: the render ends here.
    session.reset();
    return results;
}

std::vector<TmaterialResult> TmaterialNetwork::pull(const std::vector<TmaterialSample>& in) {
    std::vector<TmaterialResult> results;
    for (const TmaterialSample& s : in) {
        set("pointCamera", s.point);
        set("normalCamera", s.normal);
        set("rayDirection", s.direction);
        set("rayDepth", int32_t(s.rayDepth));
        set("mediumRefractiveIndex", s.medium);
        if (const Tattribute* u = node->attribute(Tstring("tangentUCamera"))) node->setAttributeValue(u, &s.tangentU);
        if (const Tattribute* v = node->attribute(Tstring("tangentVCamera"))) node->setAttributeValue(v, &s.tangentV);
        TmaterialResult r;
        node->getAttributeValue(&attribute("outColor"), &r.color);
        node->getAttributeValue(&attribute("outGlowColor"), &r.glow);
        node->getAttributeValue(&attribute("outTransparency"), &r.transparency);
        node->getAttributeValue(&attribute("outMatteOpacity"), &r.matte);
        results.push_back(r);
    }
    return results;
}

std::vector<TmaterialResult> TmaterialNetwork::shadeBoth(const std::vector<TmaterialSample>& in) {
    std::vector<TmaterialResult> scalar = pull(in);
    std::vector<TmaterialResult> engine = shade(in);
    EXPECT_EQ(engine.size(), scalar.size());
    for (size_t i = 0; i < engine.size() && i < scalar.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "sample " << i << ", engine against host graph");
        float tolerance = 1e-5f;
        expectNear3(engine[i].color, scalar[i].color, tolerance, "color");
        expectNear3(engine[i].glow, scalar[i].glow, tolerance, "glow");
        expectNear3(engine[i].transparency, scalar[i].transparency, tolerance, "transparency");
        expectNear3(engine[i].matte, scalar[i].matte, tolerance, "matte");
    }
    return engine;
}

TlightData pointLightRecord(const T3Float& light, const T3Float& color, float intensity, int decay, const T3Float& point) {
    T3Float d = light - point;
    float dist = length(d);
    float i = intensity;
    if (dist > 1) i /= std::pow(dist, float(decay));
    TlightData r;
    r.lightDirection = d * (1.0f / dist);
    r.lightIntensity = color * i;
    r.lightAmbient = false;
    r.lightDiffuse = true;
    r.lightSpecular = true;
    r.preShadowIntensity = (0.3f * color.x + 0.59f * color.y + 0.11f * color.z) * i;
    return r;
}

TlightData distantLight(const T3Float& toLight, float intensity, float shadowFraction, bool specular) {
    TlightData r;
    r.lightDirection = normalize(toLight);
    r.lightIntensity = T3Float(1, 1, 1) * (intensity * (1.0f - shadowFraction));
    r.lightAmbient = false;
    r.lightDiffuse = true;
    r.lightSpecular = specular;
    r.preShadowIntensity = intensity;
    r.lightShadowFraction = shadowFraction;
    return r;
}

void expectNear3(const T3Float& actual, const T3Float& expected, float tolerance, const char* what) {
    for (int c = 0; c < 3; ++c) {
        float scale = std::max(1.0f, std::fabs(expected[c]));
        EXPECT_NEAR(actual[c], expected[c], tolerance * scale) << what << " channel " << c;
    }
}
