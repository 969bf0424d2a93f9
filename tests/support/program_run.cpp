#include "support/program_run.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "support/temp_dir.h"

extern char** environ;

namespace {
std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}
}  // namespace

TprogramRun runProgram(const std::string& program, const std::vector<std::string>& args, TprogramLimits limits,
                       const std::vector<std::pair<std::string, std::string>>& environment) {
    TtestTempDir dir;
    const std::string outFile = dir.file("out"), errFile = dir.file("err");
    // Everything the child needs is made before fork: it only calls what is
    // safe there.
    std::vector<std::string> words{program};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    std::vector<std::string> variables;
    for (char** e = environ; *e; ++e) {
        bool replaced = false;
        for (const auto& [name, value] : environment) replaced |= std::string(*e).rfind(name + "=", 0) == 0;
        if (!replaced) variables.push_back(*e);
    }
    for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
    std::vector<char*> envp;
    for (std::string& v : variables) envp.push_back(v.data());
    envp.push_back(nullptr);
    std::fflush(nullptr);
    TprogramRun run;
    const pid_t pid = fork();
    if (pid == 0) {
        if (!std::freopen(outFile.c_str(), "w", stdout) || !std::freopen(errFile.c_str(), "w", stderr)) _exit(127);
        if (limits.fileSizeBytes) {
            const rlimit size{rlim_t(limits.fileSizeBytes), rlim_t(limits.fileSizeBytes)};
            if (setrlimit(RLIMIT_FSIZE, &size) != 0) _exit(127);
        }
        execve(program.c_str(), argv.data(), envp.data());
        _exit(127);
    }
    int raw = 0;
    if (pid > 0 && waitpid(pid, &raw, 0) == pid && WIFEXITED(raw)) run.status = WEXITSTATUS(raw);
    run.out = slurp(outFile);
    run.err = slurp(errFile);
    return run;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}
