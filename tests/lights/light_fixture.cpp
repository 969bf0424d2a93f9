#include "lights/light_fixture.h"

SN_REGISTER_NODE_CLASS(TtestLitSurface)
SN_REGISTER_NODE_CLASS(TcountingPointLight)

bool TtestLitSurface::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    if (a != &attrOutColor() && a != &attrOutTransparency()) return TrenderNode::vectorComputePlug(plug, block, first, count);
    constexpr unsigned N = 64;
    unsigned idx[N];
    unsigned n = block.multiIndices(attrLightDataArray(), idx, N);
    TdataHandle normals = block.inputValue(attrNormalCamera(), first, count);
    TdataHandle color = block.outputValue(attrOutColor(), first, count);
    TdataHandle info = block.outputValue(attrOutTransparency(), first, count);
    for (unsigned i = first; i < first + count; ++i) {
        color.asFloat3(i) = {0, 0, 0};
        info.asFloat3(i) = {float(n), 0, 0};
    }
    for (unsigned k = 0; k < n && k < N; ++k) {
        TdataHandle h = block.elementValue(attrLightDataArray(), idx[k]);
        for (unsigned i = first; i < first + count; ++i) {
            const TlightData& d = *static_cast<const TlightData*>(h.element(i));
            float weight = (d.lightAmbient ? 1.0f : 0.0f) +
                           (d.lightDiffuse ? std::max(dot(normals.asFloat3(i), d.lightDirection), 0.0f) : 0.0f);
            color.asFloat3(i) = color.asFloat3(i) + d.lightIntensity * weight;
            info.asFloat3(i).y += d.lightShadowFraction;
            if (k == 0) info.asFloat3(i).z = d.preShadowIntensity;
        }
    }
    block.setClean(attrOutColor());
    block.setClean(attrOutTransparency());
    return true;
}

TlitNetwork::TlitNetwork() {
    EXPECT_EQ(graph.connect(Tplug(surface, &TtestLitSurface::saOutColor()), Tplug(group, &TDNshadingEngine::saSurfaceShader())),
              TconnectStatus::kOk);
    batch.renderGroup = &renderGroup;
}

TlitNetwork::~TlitNetwork() {
    session.reset();
    for (TdependNode* light : lights) TshadingCatalog::deleteOpus(light, kSingleLight, true);
}

void TlitNetwork::useLights(std::vector<TbitFieldFixedN> perObject) {
    rows = std::move(perObject);
    lightsGiven = true;
    group->setLightTables(lights, rows, {}, {});
}

TshadingOpus* TlitNetwork::analyse() {
    if (!session) {
        if (lightsGiven) group->setLightTables(lights, rows, {}, {});
        session.emplace(group);
    }
    return session->program();
}

TtestSamples TlitNetwork::makeSamples(const std::vector<TsurfaceSample>& in, int object) {
    if (object >= 0) renderGroup.object = unsigned(object);
    TtestSamples out(group, in.size(), object >= 0 ? &batch : nullptr);
    for (size_t i = 0; i < in.size(); ++i) {
        out[i].setPointCamera(in[i].point);
        out[i].setNormalCamera(in[i].normal);
        out[i].setIlluminationIndex(in[i].illuminationIndex);
        out[i].setReceiveShadows(in[i].receiveShadows);
    }
    return out;
}

std::vector<TlitNetwork::Result> TlitNetwork::shade(const std::vector<TsurfaceSample>& in, int object) {
    std::vector<Result> out;
    TshadingOpus* opus = analyse();
    EXPECT_NE(opus, nullptr);
    if (!opus) return out;
    TtestSamples samples = makeSamples(in, object);
    samples.shade(opus);
    for (Tsample* sample : samples.samples) out.push_back({*sample->outColor(), *sample->outTransparency()});
    session.reset();
    return out;
}

size_t TlitNetwork::allocationsWhenShadedAgain(const std::vector<TsurfaceSample>& in) {
    TshadingOpus* opus = analyse();
    EXPECT_NE(opus, nullptr);
    if (!opus) return ~size_t(0);
    const size_t allocations = makeSamples(in, -1).allocationsOfASecondShade(opus);
    session.reset();
    return allocations;
}
