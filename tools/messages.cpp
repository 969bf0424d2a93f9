// The message form shared by every subcommand, and the checks of numbers
// that every subcommand makes the same way.
#include <iostream>
#include <limits>
#include <mutex>
#include <set>
#include <string_view>

#include "tools/subcommand.h"

namespace {
std::string& messageCommand() {
    static std::string command;
    return command;
}

// Render threads report too: one line goes out whole. A warning goes out
// once: each frame of a sequence starts from the file again and would
// repeat what the first one said.
void report(const char* severity, const std::string& what) {
    static std::mutex mutex;
    static std::set<std::string> warned;
    const std::string& command = messageCommand();
    const std::string line = "shadenet" + std::string(command.empty() ? "" : " ") + command + ": " + severity + ": " + what + "\n";
    std::lock_guard lock(mutex);
    if (std::string_view(severity) == "warning" && !warned.insert(line).second) return;
    std::cerr << line << std::flush;
}
}  // namespace

void setMessageCommand(const std::string& command) { messageCommand() = command; }

int reportError(const std::string& what, int status) {
    report("error", what);
    return status;
}

void reportWarning(const std::string& what) { report("warning", what); }

namespace {
// A whole-number check whose message states `range` in plain words.
CLI::Validator wholeNumberIn(long long low, long long high, const std::string& range, const std::string& description) {
    return CLI::Validator(
        [low, high, range](std::string& text) -> std::string {
            long long value = 0;
            size_t used = 0;
            try {
                value = std::stoll(text, &used);
            } catch (const std::exception&) {
                used = 0;
            }
            if (used == 0 || used != text.size()) return "'" + text + "' is not a whole number; it " + range;
            return value < low || value > high ? range + " (got " + text + ")" : std::string();
        },
        description);
}
}  // namespace

CLI::Validator wholeNumberBetween(long long low, long long high) {
    return wholeNumberIn(low, high, "must be between " + std::to_string(low) + " and " + std::to_string(high),
                         "[" + std::to_string(low) + " - " + std::to_string(high) + "]");
}

CLI::Validator wholeNumberAtLeast(long long low) {
    return wholeNumberIn(low, std::numeric_limits<int>::max(), "must be at least " + std::to_string(low),
                         "[" + std::to_string(low) + " or more]");
}
