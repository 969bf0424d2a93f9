#include "utilities/arithmetic.h"

#include <cmath>

#include "framework/host/command_engine.h"

SN_REGISTER_NODE_CLASS(TdnMultiplyDivide)
SN_REGISTER_NODE_CLASS(TdnPlusMinusAverage)
SN_REGISTER_NODE_CLASS(TdnVectorProduct)

// ---------------------------------------------------------------- multiplyDivide

bool TdnVSMultiplyDivide::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&operation, &input1.whole, &input2.whole}, {&output.whole});
    return true;
}

bool TdnMultiplyDivide::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutput())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    bool multiply;
    if (fOperation.settled) {
        multiply = fOperation.value == kMultiply;
    } else {
        TdataHandle op = block.inputValue(attrOperation(), first, count);
        multiply = !op.isVariable() && op.asShort(0) == kMultiply;
    }
    if (!multiply) {
        computeEach(block, first, count);
        return true;
    }
    // The common case, with the operation chosen once for the batch.
    const TtripleOut to(block.outputValue(attrOutput(), first, count));
    withTripleLane(block.inputValue(attrInput1(), first, count), [&](auto x) {
        withTripleLane(fInput2, block, attrInput2(), first, count, [&](auto y) {
            forEachSample(first, count, [&](unsigned i) { to.put(i, x[i] * y[i]); });
        });
    });
    block.setClean(attrOutput());
    return true;
}

void TdnMultiplyDivide::computeEach(TdataBlock& block, unsigned first, unsigned count) {
    TdataHandle op = block.inputValue(attrOperation(), first, count);
    TdataHandle a = block.inputValue(attrInput1(), first, count);
    TdataHandle b = block.inputValue(attrInput2(), first, count);
    TdataHandle out = block.outputValue(attrOutput(), first, count);
    bool dividedByZero = false;
    for (unsigned i = first; i < first + count; ++i) {
        const short operation = op.asShort(i);
        const T3Float &x = a.asFloat3(i), &y = b.asFloat3(i);
        T3Float r = x;
        for (int c = 0; c < 3; ++c) {
            switch (operation) {
                case kMultiply: r[c] = x[c] * y[c]; break;
                case kDivide:
                    if (std::fabs(y[c]) <= 1e-05f) {
                        r[c] = kDivideByZeroResult;
                        dividedByZero = true;
                    } else {
                        r[c] = x[c] / y[c];
                    }
                    break;
                case kPower: r[c] = std::pow(x[c], y[c]); break;
                default: break;
            }
        }
        out.asFloat3(i) = r;
    }
    if (dividedByZero) theCommandEngine().displayInfo(Tstring(kDivideByZeroMessage));
    block.setClean(attrOutput());
}

// ---------------------------------------------------------------- plusMinusAverage

bool TdnVSPlusMinusAverage::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&operation, &input1D}, {&output1D});
    affects(m, {&operation, &input2D.whole}, {&output2D.whole});
    affects(m, {&operation, &input3D.whole}, {&output3D.whole});
    return true;
}

namespace {
// Folds the existing elements of a multi of N floats in index order.
template <unsigned N>
void fold(TdataBlock& block, const Tattribute& multi, const Tattribute& output, const TdataHandle& operation, unsigned first,
          unsigned count) {
    TdataHandle elements[64];
    const unsigned n = block.existingElements(multi, elements, 64);
    TdataHandle out = block.outputValue(output, first, count);
    for (unsigned i = first; i < first + count; ++i) {
        short op = operation.asShort(i);
        float r[N] = {};
        for (unsigned e = 0; e < n; ++e) {
            const float* v = static_cast<const float*>(elements[e].element(i));
            for (unsigned c = 0; c < N; ++c) {
                if (e == 0 || op == TdnPlusMinusAverage::kSum || op == TdnPlusMinusAverage::kAverage)
                    r[c] = e == 0 ? v[c] : r[c] + v[c];
                else if (op == TdnPlusMinusAverage::kSubtract)
                    r[c] -= v[c];
            }
        }
        if (op == TdnPlusMinusAverage::kAverage && n > 0)
            for (unsigned c = 0; c < N; ++c) r[c] /= float(n);
        float* o = static_cast<float*>(out.element(i));
        for (unsigned c = 0; c < N; ++c) o[c] = r[c];
    }
    block.setClean(output);
}
}  // namespace

bool TdnPlusMinusAverage::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    TdataHandle op = block.inputValue(attrOperation(), first, count);
    if (a == &attrOutput1D())
        fold<1>(block, attrInput1D(), attrOutput1D(), op, first, count);
    else if (a == &attrOutput2D())
        fold<2>(block, attrInput2D(), attrOutput2D(), op, first, count);
    else if (a == &attrOutput3D())
        fold<3>(block, attrInput3D(), attrOutput3D(), op, first, count);
    else
        return TrenderNode::vectorComputePlug(plug, block, first, count);
    return true;
}

// ---------------------------------------------------------------- vectorProduct

TdnVSVectorProduct::TdnVSVectorProduct() {
    addFields(operation, {{"kNoOperation", "No operation"},
                          {"kDotProduct", "Dot Product"},
                          {"kCrossProduct", "Cross Product"},
                          {"kVectorMatrix", "Vector Matrix Product"},
                          {"kPointMatrix", "Point Matrix Product"}});
    operation.setNativeDefaultData(1);
    TfltMatrix identity;
    matrix.setDefaultBytes(&identity, sizeof identity);
    output.setDefault(1, 1, 1);
    makeOutput(output);
}

bool TdnVSVectorProduct::setupDependencies(TdependencyMatrix& m) {
    if (!TdependNodeVS::setupDependencies(m)) return false;
    affects(m, {&operation, &input1.whole, &input2.whole, &matrix, &normalizeOutput}, {&output.whole});
    return true;
}

bool TdnVectorProduct::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutput())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle op = block.inputValue(attrOperation(), first, count);
    TdataHandle a = block.inputValue(attrInput1(), first, count);
    TdataHandle b = block.inputValue(attrInput2(), first, count);
    TdataHandle m = block.inputValue(attrMatrix(), first, count);
    TdataHandle normal = block.inputValue(attrNormalizeOutput(), first, count);
    TdataHandle out = block.outputValue(attrOutput(), first, count);
    bool zeroLength = false;
    for (unsigned i = first; i < first + count; ++i) {
        const T3Float &x = a.asFloat3(i), &y = b.asFloat3(i);
        const TfltMatrix& mx = m.as<TfltMatrix>(i);
        short operation = op.asShort(i);
        T3Float r = x;
        switch (operation) {
            case kDotProduct: {
                float d = dot(x, y);
                r = T3Float(d, d, d);
                break;
            }
            case kCrossProduct: r = cross(x, y); break;
            case kVectorMatrix: r = mx.transformVector(x); break;
            case kPointMatrix: r = mx.transformVector(x) + T3Float(mx.m[3][0], mx.m[3][1], mx.m[3][2]); break;
            default: break;
        }
        // "No operation" passes input1 untouched, normalised or not.
        if (operation != kNoOperation && normal.asBool(i)) {
            float l = length(r);
            if (l <= 1e-05f) {
                r = T3Float(0, 0, 1);
                zeroLength = true;
            } else {
                r = r * (1.0f / l);
            }
        }
        out.asFloat3(i) = r;
    }
    if (zeroLength) theCommandEngine().displayWarning(Tstring((name().str() + kZeroLengthMessage).c_str()));
    block.setClean(attrOutput());
    return true;
}
