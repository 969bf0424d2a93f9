#include "child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "support/temp_dir.h"

extern char** environ;

namespace {
std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}
}  // namespace

TchildRun runChildTest(const std::string& testName, const std::vector<std::pair<std::string, std::string>>& env) {
    TtestTempDir dir;
    const std::string outPath = dir.file("out.txt"), errPath = dir.file("err.txt");

    std::vector<std::string> vars;
    for (char** e = environ; *e; ++e) {
        std::string v = *e;
        bool overridden = false;
        for (auto& [name, value] : env) overridden |= v.rfind(name + "=", 0) == 0;
        if (!overridden) vars.push_back(v);
    }
    for (auto& [name, value] : env) vars.push_back(name + "=" + value);
    std::vector<char*> envp;
    for (auto& v : vars) envp.push_back(v.data());
    envp.push_back(nullptr);

    std::string exe = "/proc/self/exe", filter = "--gtest_filter=" + testName,
                disabled = "--gtest_also_run_disabled_tests";
    char* argv[] = {exe.data(), filter.data(), disabled.data(), nullptr};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    TchildRun run;
    pid_t pid;
    const int spawned = posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return run;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
    }
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    run.out = slurp(outPath);
    run.err = slurp(errPath);
    run.ranOne = run.out.find("[  PASSED  ] 1 test.") != std::string::npos;
    return run;
}

unsigned countOf(const std::string& text, const std::string& needle) {
    unsigned n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + needle.size())) ++n;
    return n;
}
