#pragma once
// Runs one test of this program in a fresh process with extra environment
// variables. Switches read once at load can only be seen on and off that
// way. The child's tests are named DISABLED_... so that a normal run skips
// them; the child is started with --gtest_also_run_disabled_tests.
#include <string>
#include <utility>
#include <vector>

struct TchildRun {
    int exitCode = -1;    // 128 + signal when killed
    bool ranOne = false;  // the filter matched exactly one test and it passed
    std::string out;
    std::string err;
};

TchildRun runChildTest(const std::string& testName, const std::vector<std::pair<std::string, std::string>>& env);

// Occurrences of `needle` in `text`.
unsigned countOf(const std::string& text, const std::string& needle);
