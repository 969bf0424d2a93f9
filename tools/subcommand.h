#pragma once
// Subcommands of the shadenet program. Each lives in its own file and
// registers itself here at load; main builds the command line from the list.
#include <CLI/CLI.hpp>

#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "framework/host/file_checks.h"

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

// Messages, in one form for every subcommand, on stderr:
//   shadenet <command>: error: <what>
//   shadenet <command>: warning: <what>
// <command> is the subcommand that runs ("render", "bot convert"); main
// names it before the subcommand starts.
void setMessageCommand(const std::string& command);
// Prints the error and returns `status`, so that a failure reads
// `return reportError("...");`.
int reportError(const std::string& what, int status = kExitFailure);
void reportWarning(const std::string& what);
// A check for whole-number options: "must be between <low> and <high>".
CLI::Validator wholeNumberBetween(long long low, long long high);
// The same for options with no useful upper bound (up to the largest int).
CLI::Validator wholeNumberAtLeast(long long low);

struct TsubcommandRegistrar {
    explicit TsubcommandRegistrar(Tsubcommand command) { subcommands().push_back(std::move(command)); }
};
