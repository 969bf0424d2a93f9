#include "utilities/utility_fixture.h"

#include "framework/host/depend_node.h"

SN_REGISTER_NODE_CLASS(TutilityTestSource)

bool TutilityTestSource::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    const Tattribute* in = a == &attrOutA() ? &attrPointCamera() : a == &attrOutB() ? &attrNormalCamera() : nullptr;
    if (!in) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle source = block.inputValue(*in, first, count);
    TdataHandle out = block.outputValue(*a, first, count);
    for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = source.asFloat3(i);
    samples += int(count);
    block.setClean(*a);
    return true;
}

TtestSamples probeSamples(TDNshadingEngine* group, const TprobeSample* in, size_t count) {
    TtestSamples batch(group, count);
    for (size_t i = 0; i < count; ++i) {
        Tsample& sample = batch[i];
        if (sample.hasItem(kItemPointCamera)) sample.setPointCamera(in[i].point);
        if (sample.hasItem(kItemNormalCamera)) sample.setNormalCamera(in[i].normal);
        if (sample.hasItem(kItemObjectId)) sample.setObjectId(in[i].object);
    }
    return batch;
}

TprobeResult probeResult(Tsample& sample) {
    TprobeResult r;
    r.color = *sample.outColor();
    if (sample.hasItem(kItemOutTransparency)) r.transparency = *sample.outTransparency();
    return r;
}

std::vector<TprobeResult> TutilityNetwork::shade(const std::vector<TprobeSample>& in) {
    std::vector<TprobeResult> results;
    session.emplace(group);
    TshadingOpus* opus = session->program();
    EXPECT_NE(opus, nullptr);
    if (!opus) return results;
    TtestSamples batch = probeSamples(group, in.data(), in.size());
    batch.shade(opus);
    for (Tsample* sample : batch.samples) results.push_back(probeResult(*sample));
    session.reset();
    return results;
}

std::vector<TprobeResult> TutilityNetwork::pull(const std::vector<TprobeSample>& in) {
    std::vector<TprobeResult> results;
    for (const TprobeSample& s : in) {
        for (TutilityTestSource* source : sources) {
            source->setAttributeValue(&TutilityTestSource::saPointCamera(), &s.point);
            source->setAttributeValue(&TutilityTestSource::saNormalCamera(), &s.normal);
        }
        for (TdependNode* node : graph.nodes())
            if (const Tattribute* id = node->attribute(Tstring("objectId")); id && id->valueType() == TvalueType::kAddr)
                node->setAttributeValue(id, &s.object);
        TprobeResult r;
        probe->getAttributeValue(&TtestPassThroughSurface::saOutColor(), &r.color);
        probe->getAttributeValue(&TtestPassThroughSurface::saOutTransparency(), &r.transparency);
        results.push_back(r);
    }
    return results;
}

std::vector<TprobeSample> rampSamples(unsigned count) {
    std::vector<TprobeSample> out(count);
    for (unsigned i = 0; i < count; ++i) {
        float t = float(i) / float(count > 1 ? count - 1 : 1);
        out[i].point = T3Float(t, 1.0f - t, 0.25f + 0.5f * t * t);
        out[i].normal = T3Float(0.5f - t, 2.0f * t, 0.75f);
    }
    return out;
}

void expectSameBits(const std::vector<TprobeResult>& engine, const std::vector<TprobeResult>& scalar) {
    ASSERT_EQ(engine.size(), scalar.size());
    unsigned mismatches = 0;
    for (size_t i = 0; i < engine.size(); ++i) {
        const TprobeResult &e = engine[i], &s = scalar[i];
        if ((sameBits(e.color, s.color) && sameBits(e.transparency, s.transparency)) || mismatches++ >= 3) continue;
        ADD_FAILURE() << "sample " << i << ": colour " << e.color.x << " " << e.color.y << " " << e.color.z << " vs " << s.color.x << " "
                      << s.color.y << " " << s.color.z << ", transparency " << e.transparency.x << " vs " << s.transparency.x;
    }
    EXPECT_EQ(mismatches, 0u) << "samples where the engine and the host graph differ";
}

std::vector<TprobeResult> shadeBothWays(TutilityNetwork& net, const std::vector<TprobeSample>& in) {
    std::vector<TprobeResult> engine = net.shade(in);
    expectSameBits(engine, net.pull(in));
    return engine;
}
