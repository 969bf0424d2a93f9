#pragma once
// Runs a program as a user does, without a shell (arguments need no
// quoting), and collects its exit status and both output streams.
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct TprogramRun {
    int status = -1;  // the exit status; -1 when the program did not exit by itself
    std::string out, err;
};

struct TprogramLimits {
    uint64_t fileSizeBytes = 0;  // the largest file it may write; 0 for no limit
};

// `environment` adds variables to this process's own, or replaces them.
TprogramRun runProgram(const std::string& program, const std::vector<std::string>& args, TprogramLimits limits = {},
                       const std::vector<std::pair<std::string, std::string>>& environment = {});

// The lines of a program's output, without their ends.
std::vector<std::string> linesOf(const std::string& text);

#ifdef SHADENET_CLI
// The shadenet program under test (its path is known to the test programs only).
inline TprogramRun shadenet(const std::vector<std::string>& args, TprogramLimits limits = {}) {
    return runProgram(SHADENET_CLI, args, limits);
}
#endif
