#pragma once
// Zeroed samples laid out for a shading group's surface program, for tests
// that fill them by hand and shade them through the engine.
#include <cstdint>
#include <vector>

#include "shading/sample.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"

struct TtestSamples {
    std::vector<std::vector<uint64_t>> memory;
    std::vector<Tsample*> samples;

    // `count` samples, of `batch` when one is given.
    TtestSamples(TDNshadingEngine* group, size_t count, TsampleBatch* batch = nullptr);
    // The samples point into `memory`: moved, never copied.
    TtestSamples(TtestSamples&&) = default;
    TtestSamples(const TtestSamples&) = delete;
    Tsample& operator[](size_t i) const { return *samples[i]; }
    size_t size() const { return samples.size(); }
    void shade(TshadingOpus* opus) { opus->shade(unsigned(samples.size()), samples.data()); }
    // Shades twice and returns the heap allocations of the second run: the
    // first run of a render may set up what the program shares.
    size_t allocationsOfASecondShade(TshadingOpus* opus);
};
