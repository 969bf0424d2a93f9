#pragma once
// Subcommands of the shadenet program. Each lives in its own file and
// registers itself here at load; main builds the command line from the list.
#include <CLI/CLI.hpp>

#include <functional>
#include <iostream>
#include <string>
#include <vector>

// Exit statuses shared by all subcommands.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  // the work failed (bad file, bad data)
constexpr int kExitUsage = 2;    // the request itself was wrong (unknown type, bad option)

struct Tsubcommand {
    std::string name;
    std::string description;
    // Adds the options to `app`; returns the function that runs it.
    std::function<std::function<int()>(CLI::App& app)> setup;
};

std::vector<Tsubcommand>& subcommands();

struct TsubcommandRegistrar {
    explicit TsubcommandRegistrar(Tsubcommand command) { subcommands().push_back(std::move(command)); }
};

// Messages to the user, on stderr: "shadenet <command>: error: <what>" and
// "shadenet <command>: warning: <what>".
inline void printError(const std::string& command, const std::string& what) {
    std::cerr << "shadenet " << command << ": error: " << what << "\n";
}
inline void printWarning(const std::string& command, const std::string& what) {
    std::cerr << "shadenet " << command << ": warning: " << what << "\n";
}
