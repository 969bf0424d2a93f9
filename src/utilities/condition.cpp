#include "utilities/condition.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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
    description->markLazyInput(attrColorIfTrue(), &attrOutColor());
    description->markLazyInput(attrColorIfFalse(), &attrOutColor());
}

namespace {
// Bit i set where flags[i] is (each flag 0 or 1), for the first n of the 64.
uint64_t gatherFlags(const uint8_t (&flags)[64], unsigned n) {
    const uint64_t inBatch = n == 64 ? ~uint64_t(0) : (uint64_t(1) << n) - 1;
    uint64_t bits = 0;
#if defined(__SSE2__)
    // Sixteen flags a step: the byte compare puts each flag in the byte's
    // top bit, which movemask collects. Bytes past n are read, not used.
    for (unsigned i = 0; i < n; i += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(flags + i));
        bits |= uint64_t(unsigned(_mm_movemask_epi8(_mm_cmpgt_epi8(v, _mm_setzero_si128())))) << i;
    }
#else
    for (unsigned i = 0; i < n; ++i) bits |= uint64_t(flags[i]) << i;
#endif
    return bits & inBatch;
}
}  // namespace

bool TdnCondition::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    if (!isPlugOf(plug, attrOutColor())) return TrenderNode::vectorComputePlug(plug, block, first, count);
    TdataHandle op = settledOrRead(fOperation, block, attrOperation(), first, count);
    TdataHandle b = settledOrRead(fSecondTerm, block, attrSecondTerm(), first, count);
    TdataHandle a = block.inputValue(attrFirstTerm(), first, count);
    TdataHandle out = block.outputValue(attrOutColor(), first, count);
    // One pass sets a flag per sample, a batch at a time, then gathers the
    // flags into bits; each colour is then read once for the samples whose
    // bits choose it, and copied run by run. Each colour is read for the
    // samples that take it and written to outColor nowhere else, so the
    // engine may have its source write there directly (see analyse).
    uint8_t flags[64];
    for (unsigned base = first; base < first + count; base += 64) {
        const unsigned n = std::min(64u, first + count - base);
        if (!op.isVariable() && !b.isVariable()) {
            // The usual form, a constant test against a constant: the
            // operation is chosen once and the loop is one compare per sample.
            const short operation = op.asShort(0);
            const float second = b.asFloat(0);
            withLane<float>(a, [&](auto x) {
                switch (operation) {
                    case kGreaterThan: forEachSample(base, n, [&](unsigned i) { flags[i - base] = x[i] > second; }); break;
                    case kLessThan: forEachSample(base, n, [&](unsigned i) { flags[i - base] = x[i] < second; }); break;
                    default:
                        for (unsigned i = base; i < base + n; ++i) flags[i - base] = sTest(operation, x[i], second);
                        break;
                }
            });
        } else {
            for (unsigned i = base; i < base + n; ++i) flags[i - base] = sTest(op.asShort(i), a.asFloat(i), b.asFloat(i));
        }
        const uint64_t picks = gatherFlags(flags, n), others = ~picks & TdataBlock::runBits(n);
        auto take = [&](const Tattribute& colour, uint64_t samples) {
            if (!samples) return;
            TdataHandle c = block.inputValue(colour, base, n, samples);
            // A source the engine had write into outColor left nothing to copy.
            if (c.value == out.value && c.stride == out.stride) return;
            const size_t from = c.stride, to = out.stride;
            TdataBlock::forEachBitRun(samples, [&](unsigned start, unsigned length) {
                const auto* source = static_cast<const unsigned char*>(c.element(base + start));
                auto* dest = static_cast<unsigned char*>(out.element(base + start));
#pragma GCC unroll 4
                for (unsigned k = 0; k < length; ++k, source += from, dest += to) std::memcpy(dest, source, sizeof(T3Float));
            });
        };
        take(attrColorIfTrue(), picks);
        take(attrColorIfFalse(), others);
    }
    block.setClean(attrOutColor());
    return true;
}
