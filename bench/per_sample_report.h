#pragma once
// The main of a bench that times patterns over a grid: runs the benchmarks,
// then prints each one's CPU nanoseconds per sample and its ratio to a base.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

inline int runPerSampleReport(int argc, char** argv, double samplesPerIteration, const char* baseName, const char* baseLabel) {
    struct Treporter : benchmark::ConsoleReporter {
        double samples = 1;
        std::map<std::string, double> nanos;
        void ReportRuns(const std::vector<Run>& runs) override {
            ConsoleReporter::ReportRuns(runs);
            for (const Run& r : runs)
                nanos[r.benchmark_name()] =
                    r.GetAdjustedCPUTime() * (r.time_unit == benchmark::kMicrosecond ? 1000.0 : 1.0) / samples;
        }
    };
    benchmark::Initialize(&argc, argv);
    Treporter reporter;
    reporter.samples = samplesPerIteration;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    double base = reporter.nanos.count(baseName) ? reporter.nanos[baseName] : 0;
    std::printf("\nper sample (ns), and against the %s:\n", baseLabel);
    for (auto& [name, ns] : reporter.nanos) std::printf("  %-14s %9.1f  x%.2f\n", name.c_str(), ns, base > 0 ? ns / base : 0.0);
    benchmark::Shutdown();
    return 0;
}
