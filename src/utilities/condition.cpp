#include "utilities/condition.h"

#include <algorithm>

#include "shading/network_analysis.h"

SN_REGISTER_NODE_CLASS(TdnCondition)

bool TdnVSCondition::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&operation, &firstTerm, &secondTerm, &colorIfTrue.whole, &colorIfFalse.whole}, {&outColor.whole});
    return true;
}

bool TdnCondition::sTest(short operation, float first, float second) {
    bool equal = first - second <= 1e-05f && second - first <= 1e-05f;
    switch (operation) {
        case kEqual: return equal;
        case kNotEqual: return !equal;
        case kGreaterThan: return first > second;
        case kGreaterEqual: return first >= second;
        case kLessThan: return first < second;
        case kLessEqual: return first <= second;
        default: return false;
    }
}

void TdnCondition::analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) {
    description->markLazyInput(attrColorIfTrue());
    description->markLazyInput(attrColorIfFalse());
}

bool TdnCondition::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutColor())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle op = settledOrRead(fOperation, block, attrOperation(), first, count);
    TdataHandle b = settledOrRead(fSecondTerm, block, attrSecondTerm(), first, count);
    TdataHandle a = block.inputValue(attrFirstTerm(), first, count);
    TdataHandle out = block.outputValue(attrOutColor(), first, count);
    // One pass sets the flags, on the stack, a batch at a time; then each
    // colour is read for its own runs only.
    bool flags[64];
    for (unsigned base = first; base < first + count; base += 64) {
        unsigned n = std::min(64u, first + count - base);
        if (!op.isVariable() && !b.isVariable()) {
            // The usual form, a constant test against a constant: the
            // operation is chosen once and the loop is one compare per sample.
            const short operation = op.asShort(0);
            const float second = b.asFloat(0);
            withLane<float>(a, [&](auto x) {
                switch (operation) {
                    case kGreaterThan: forEachSample(0, n, [&](unsigned i) { flags[i] = x[base + i] > second; }); break;
                    case kLessThan: forEachSample(0, n, [&](unsigned i) { flags[i] = x[base + i] < second; }); break;
                    default: for (unsigned i = 0; i < n; ++i) flags[i] = sTest(operation, x[base + i], second); break;
                }
            });
        } else {
            for (unsigned i = 0; i < n; ++i) flags[i] = sTest(op.asShort(base + i), a.asFloat(base + i), b.asFloat(base + i));
        }
        forEachRun(base, n, [&](unsigned i) { return flags[i - base]; }, [&](unsigned begin, unsigned end, bool pick) {
            TdataHandle c = block.inputValue(pick ? attrColorIfTrue() : attrColorIfFalse(), begin, end - begin);
            forEachSample(begin, end - begin, [&](unsigned i) { out.asFloat3(i) = c.asFloat3(i); });
        });
    }
    block.setClean(attrOutColor());
    return true;
}
