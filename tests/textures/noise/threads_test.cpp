// Noise from many threads at once, starting in a fresh process so that the
// first calls race to make the gradient table, the random list and the
// vector table.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "textures/noise/noise.h"
#include "textures/noise/vector_noise_4d.h"

namespace {

constexpr int kThreads = 8;
constexpr int kPoints = 64;

struct Tresults {
    std::vector<float> values;
    std::vector<float> drawn;
};

void evaluate(Tresults& r) {
    for (int i = 0; i < kPoints; ++i) {
        float x = i * 0.173f - 3.0f, y = i * 0.071f, z = 1.0f - i * 0.029f;
        r.values.push_back(Tnoise::gNoise3(x, y, z));
        r.values.push_back(Tnoise::noise3(x, y, z));
        r.values.push_back(Tnoise::noise2(x, y));
        r.values.push_back(Tnoise::noise4(x, y, z, 0.3f, 40));
        T3Float v = T4dVectorNoise::getNoise({x, y, z}, 0.25f);
        r.values.insert(r.values.end(), {v.x, v.y, v.z});
        T3Float s = T4dVectorNoise::getNoiseSmoothTime({x, y, z}, 0.75f);
        r.values.insert(r.values.end(), {s.x, s.y, s.z});
        r.drawn.push_back(Tnoise::rRand());
    }
}

// Runs in the fresh process; the exit status says whether all agreed.
int raceFirstCalls() {
    if (T4dVectorNoise::table() != nullptr) return 10;  // not fresh after all
    std::atomic<int> ready{0};
    std::vector<Tresults> results(kThreads);
    std::vector<std::thread> threads;
    for (int n = 0; n < kThreads; ++n)
        threads.emplace_back([&, n] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) std::this_thread::yield();
            evaluate(results[n]);
        });
    for (auto& th : threads) th.join();

    Tresults again;
    evaluate(again);
    for (const auto& r : results)
        if (std::memcmp(r.values.data(), again.values.data(), r.values.size() * sizeof(float)) != 0) return 11;
    // The raced tables are the ones a quiet build gives.
    auto cells = std::make_unique<T4dVectorNoise::Tcell[]>(T4dVectorNoise::kCellCount);
    float scale = 0;
    if (!T4dVectorNoise::buildTable(cells.get(), scale) || scale != T4dVectorNoise::tableScale() ||
        std::memcmp(cells.get(), T4dVectorNoise::table(), sizeof(T4dVectorNoise::Tcell) * T4dVectorNoise::kCellCount))
        return 12;
    unsigned short state[3] = {0x330E, 1, 0};
    for (int i = 0; i < Tnoise::kTableSize; ++i) {
        double z = 1.0 - 2.0 * erand48(state);
        Tnoise::erand48_r(state);  // skip the angle: z alone pins the order
        if (Tnoise::sGradientTable()[i].z != float(z)) return 13;
    }
    // Every draw of the random list was a distinct index: kThreads * kPoints
    // draws from a fresh list cover entries 1 .. kThreads * kPoints.
    std::vector<float> all;
    for (const auto& r : results) all.insert(all.end(), r.drawn.begin(), r.drawn.end());
    std::vector<float> want(Tnoise::sRandomList() + 1, Tnoise::sRandomList() + 1 + kThreads * kPoints);
    std::sort(all.begin(), all.end());
    std::sort(want.begin(), want.end());
    if (all != want) return 14;
    return 0;
}

}  // namespace

TEST(NoiseThreads, FirstCallsFromManyThreadsAgree) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process: no table made yet
    EXPECT_EXIT(std::exit(raceFirstCalls()), testing::ExitedWithCode(0), "");
}
