#include "utilities/switches.h"

#include <cstring>

#include "framework/host/dag.h"
#include "framework/host/depend_graph.h"
#include "shading/render_bases.h"

SN_REGISTER_NODE_CLASS(TdnBaseSwitch)
SN_REGISTER_NODE_CLASS(TdnSingleSwitch)
SN_REGISTER_NODE_CLASS(TdnDoubleSwitch)
SN_REGISTER_NODE_CLASS(TdnTripleSwitch)
SN_REGISTER_NODE_CLASS(TdnQuadSwitch)

int TdnBaseSwitch::elementFor(const Tattribute& input, const Tattribute& shape, const void* group) const {
    const TdagPath* path = group ? static_cast<const TrenderGroupBase*>(group)->dagPath() : nullptr;
    if (!path) return -1;
    TuInt32Array indices;
    getExistingMultiAttributeIndices(Tplug(const_cast<TdnBaseSwitch*>(this), &input, true), indices);
    // The shape itself first, then its transforms from the nearest up, so
    // that an instance can be told apart from its siblings by its own
    // transform.
    const std::vector<TdagNode*>& nodes = path->nodes();
    for (auto node = nodes.rbegin(); node != nodes.rend(); ++node)
        for (unsigned e = 0; e < indices.length(); ++e) {
            const Tplug* source = sourceOf(Tplug(const_cast<TdnBaseSwitch*>(this), &shape, int(indices[e])));
            if (source && source->node() == *node) return int(indices[e]);
        }
    return -1;
}

bool TdnBaseSwitch::switchRuns(TdataBlock& block, const Tattribute& input, const Tattribute& shape, const Tattribute& value,
                               const Tattribute& fallback, const Tattribute& output, unsigned first, unsigned count) {
    TdataHandle object = block.inputValue(attrObjectId(), first, count);
    TdataHandle out = block.outputValue(output, first, count);
    const unsigned size = output.size();
    forEachRun(first, count, [&](unsigned i) { return object.as<void*>(i); }, [&](unsigned begin, unsigned end, void* id) {
        int chosen = elementFor(input, shape, id);
        TdataHandle source;
        if (chosen >= 0) {
            source = block.elementValue(input, unsigned(chosen));
            if (!source.isNull()) source.value = static_cast<char*>(source.value) + value.offsetInParent();
        }
        if (source.isNull()) source = block.inputValue(fallback, begin, end - begin);
        for (unsigned i = begin; i < end; ++i) std::memcpy(out.element(i), source.element(i), size);
    });
    block.setClean(output);
    return true;
}

TdnVSSingleSwitch::TdnVSSingleSwitch() {
    input.setMulti(true);
    inSingle.setParent(&input);
    inShape.setParent(&input);
    makeOutput(output);
}
bool TdnVSSingleSwitch::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&input, &fallback, &TdnBaseSwitch::saObjectId()}, {&output});
    return true;
}

TdnVSDoubleSwitch::TdnVSDoubleSwitch() {
    input.setMulti(true);
    inDouble.whole.setParent(&input);
    inShape.setParent(&input);
    makeOutput(output);
}
bool TdnVSDoubleSwitch::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&input, &fallback.whole, &TdnBaseSwitch::saObjectId()}, {&output.whole});
    return true;
}

TdnVSTripleSwitch::TdnVSTripleSwitch() {
    input.setMulti(true);
    inTriple.whole.setParent(&input);
    inShape.setParent(&input);
    fallback.setDefault(0.8f, 0.8f, 0.8f);
    makeOutput(output);
}
bool TdnVSTripleSwitch::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&input, &fallback.whole, &TdnBaseSwitch::saObjectId()}, {&output.whole});
    return true;
}

TdnVSQuadSwitch::TdnVSQuadSwitch() {
    input.setMulti(true);
    inQuad.setParent(&input);
    inTriple.whole.setParent(&inQuad);
    inSingle.setParent(&inQuad);
    inShape.setParent(&input);
    defTriple.whole.setParent(&fallback);
    defSingle.setParent(&fallback);
    defTriple.setDefault(0.8f, 0.8f, 0.8f);
    outTriple.whole.setParent(&output);
    outSingle.setParent(&output);
    output.setFlag(kAttrWritable, false);
    makeOutput(outTriple);
    makeOutput(outSingle);
}
bool TdnVSQuadSwitch::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&input, &fallback, &TdnBaseSwitch::saObjectId()}, {&output});
    return true;
}
