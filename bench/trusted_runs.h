#pragma once
// What every bench here needs to print figures worth trusting on a shared,
// loaded machine: several repetitions run interleaved with the benchmarks
// they are compared with (so that a burst of load hits both sides), CPU time,
// the median and spread of each figure, and how many cores stood idle.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

// Arguments with five interleaved repetitions added unless the caller chose
// a repetition count. Keep the returned vector alive while argv is used.
inline std::vector<char*> trustedArguments(int argc, char** argv) {
    static std::string repetitions = "--benchmark_repetitions=5";
    static std::string interleave = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> out(argv, argv + argc);
    bool chosen = false;
    for (int i = 1; i < argc; ++i) chosen |= std::strncmp(argv[i], "--benchmark_repetitions", 23) == 0;
    if (!chosen) {
        out.push_back(repetitions.data());
        out.push_back(interleave.data());
    }
    out.push_back(nullptr);
    return out;
}

// benchmark::Initialize with trustedArguments.
inline void initializeTrusted(int argc, char** argv) {
    static std::vector<char*> args;
    args = trustedArguments(argc, argv);
    int count = int(args.size()) - 1;
    benchmark::Initialize(&count, args.data());
}

// Busy and total jiffies of all cores, from /proc/stat.
struct TcpuTimes {
    unsigned long long idle = 0, total = 0;
    static TcpuTimes now() {
        TcpuTimes t;
        std::ifstream in("/proc/stat");
        std::string cpu;
        in >> cpu;
        unsigned long long v;
        for (int i = 0; i < 8 && (in >> v); ++i) {
            t.total += v;
            if (i == 3 || i == 4) t.idle += v;  // idle, iowait
        }
        return t;
    }
};

// Collects every repetition's figures by benchmark name (aggregates left to
// the console) and prints the machine's idle cores over the whole run.
class TtrustedReporter : public benchmark::ConsoleReporter {
public:
    TtrustedReporter() : fStart(TcpuTimes::now()) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            if (r.error_occurred) continue;
            const std::string name = r.run_name.str();
            // With --benchmark_report_aggregates_only only the aggregates
            // come here: keep their median and coefficient of variation.
            if (r.run_type == Run::RT_Aggregate) {
                if (r.aggregate_name != "median" && r.aggregate_name != "cv") continue;
                for (const auto& [counter, value] : r.counters) fAggregates[name][r.aggregate_name][counter] = value.value;
                fAggregates[name][r.aggregate_name]["repetitions"] = double(r.repetitions);
                if (r.aggregate_name == "median") {
                    fAggregates[name]["median"]["cpu_ns"] = r.GetAdjustedCPUTime() * nanosPerUnit(r.time_unit);
                    fAggregates[name]["median"]["real_ns"] = r.GetAdjustedRealTime() * nanosPerUnit(r.time_unit);
                }
                continue;
            }
            for (const auto& [counter, value] : r.counters) fFigures[name][counter].push_back(value.value);
            fFigures[name]["cpu_ns"].push_back(r.GetAdjustedCPUTime() * nanosPerUnit(r.time_unit));
            fFigures[name]["real_ns"].push_back(r.GetAdjustedRealTime() * nanosPerUnit(r.time_unit));
        }
    }

    bool has(const std::string& name, const std::string& figure = "items_per_second") const {
        return hasRuns(name, figure) || aggregate(name, "median", figure) > 0;
    }
    // Median of the repetitions; 0 when the benchmark did not run.
    double median(const std::string& name, const std::string& figure = "items_per_second") const {
        if (!hasRuns(name, figure)) return aggregate(name, "median", figure);
        std::vector<double> v = fFigures.at(name).at(figure);
        std::sort(v.begin(), v.end());
        size_t n = v.size();
        return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
    }
    // (max - min) / median of the repetitions, in percent; from aggregates
    // alone, twice the coefficient of variation.
    double spread(const std::string& name, const std::string& figure = "items_per_second") const {
        if (!hasRuns(name, figure)) return 200 * aggregate(name, "cv", figure);
        double m = median(name, figure);
        if (m == 0) return 0;
        const auto& v = fFigures.at(name).at(figure);
        auto [lo, hi] = std::minmax_element(v.begin(), v.end());
        return 100.0 * (*hi - *lo) / m;
    }
    size_t repetitions(const std::string& name, const std::string& figure = "items_per_second") const {
        return hasRuns(name, figure) ? fFigures.at(name).at(figure).size()
                                     : size_t(aggregate(name, "median", "repetitions"));
    }
    // "median (spread ±x%, n runs)" with the median scaled by `scale`.
    std::string figure(const std::string& name, const std::string& figure, double scale, const char* format) const {
        char buffer[128];
        if (!has(name, figure)) return "not run";
        int k = std::snprintf(buffer, sizeof buffer, format, median(name, figure) * scale);
        std::snprintf(buffer + k, sizeof buffer - size_t(k), " (spread %.0f%%, %zu runs)", spread(name, figure),
                      repetitions(name, figure));
        return buffer;
    }

    // Cores that stood idle on average since the reporter was made: what
    // other work left for the benchmarks.
    void printIdleCores() const {
        TcpuTimes end = TcpuTimes::now();
        long cores = sysconf(_SC_NPROCESSORS_ONLN);
        double total = double(end.total - fStart.total), idle = double(end.idle - fStart.idle);
        double loads[1] = {0};
        getloadavg(loads, 1);
        std::printf("machine: %ld cores, on average %.2f idle during the run (our own work included), load average %.2f\n",
                    cores, total > 0 ? cores * idle / total : 0.0, loads[0]);
    }

private:
    bool hasRuns(const std::string& name, const std::string& figure) const {
        auto it = fFigures.find(name);
        return it != fFigures.end() && it->second.count(figure) && !it->second.at(figure).empty();
    }
    double aggregate(const std::string& name, const std::string& which, const std::string& figure) const {
        auto n = fAggregates.find(name);
        if (n == fAggregates.end()) return 0;
        auto w = n->second.find(which);
        if (w == n->second.end()) return 0;
        auto f = w->second.find(figure);
        return f == w->second.end() ? 0 : f->second;
    }
    static double nanosPerUnit(benchmark::TimeUnit unit) {
        switch (unit) {
            case benchmark::kSecond: return 1e9;
            case benchmark::kMillisecond: return 1e6;
            case benchmark::kMicrosecond: return 1e3;
            default: return 1;
        }
    }
    TcpuTimes fStart;
    std::map<std::string, std::map<std::string, std::vector<double>>> fFigures;
    std::map<std::string, std::map<std::string, std::map<std::string, double>>> fAggregates;
};
