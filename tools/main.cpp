// shadenet: one program, many subcommands (see README).
#include <algorithm>
#include <csignal>
#include <string_view>

#include "framework/host/command_engine.h"
#include "tools/subcommand.h"

std::vector<Tsubcommand>& subcommands() {
    static std::vector<Tsubcommand> list;
    return list;
}

namespace {
std::vector<CLI::App*> childrenOf(CLI::App& app) { return app.get_subcommands([](CLI::App*) { return true; }); }

std::string namesOf(CLI::App& app) {
    std::string names;
    for (CLI::App* sub : childrenOf(app)) names += (names.empty() ? "" : ", ") + sub->get_name();
    return names;
}

// The words of the command line that name subcommands, before the first
// option or argument. CLI11 would take an unknown one for a stray
// argument; it is said as what it is, with the command it was given to.
bool findUnknownSubcommand(CLI::App& app, int argc, char** argv) {
    CLI::App* at = &app;
    std::string path;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.empty() || word[0] == '-' || childrenOf(*at).empty()) return false;
        CLI::App* next = nullptr;
        for (CLI::App* sub : childrenOf(*at))
            if (sub->check_name(word)) next = sub;
        if (!next) {
            setMessageCommand(path);
            reportError("unknown subcommand '" + word + "' (known: " + namesOf(*at) + ")", kExitUsage);
            return true;
        }
        at = next;
        path += (path.empty() ? "" : " ") + word;
    }
    return false;
}

// The deepest subcommand met on the command line and its full name, such
// as "bot convert" for `shadenet bot convert ...`.
CLI::App* parsedCommand(CLI::App& app, std::string& path) {
    CLI::App* at = &app;
    path.clear();
    for (;;) {
        CLI::App* next = nullptr;
        for (CLI::App* sub : childrenOf(*at))
            if (sub->parsed()) next = sub;
        if (!next) return at;
        path += (path.empty() ? "" : " ") + next->get_name();
        at = next;
    }
}

// An option that takes a value and is given "" would be taken as not given
// at all (or as a name that is nothing), without a word: the value is
// refused wherever it comes, on every subcommand.
void refuseEmptyValues(CLI::App& app) {
    const CLI::Validator nonEmpty(
        [](std::string& text) { return text.empty() ? std::string("needs a value and was given an empty one") : std::string(); }, "");
    for (CLI::Option* option : app.get_options())
        if (option->get_items_expected_min() > 0) option->check(nonEmpty);
    for (CLI::App* sub : childrenOf(app)) refuseEmptyValues(*sub);
}

// The library's messages in the program's form. The console reporter's
// lines carry their severity as a leading "Error: " or "Warning: ".
void reportLibraryMessage(const TcommandMessage& message) {
    std::string_view text = message.text;
    TmessageSeverity severity = message.severity;
    for (auto [prefix, meant] : {std::pair{std::string_view("Error: "), TmessageSeverity::kError},
                                 std::pair{std::string_view("Warning: "), TmessageSeverity::kWarning}})
        if (severity == TmessageSeverity::kInfo && text.starts_with(prefix)) {
            severity = meant;
            text.remove_prefix(prefix.size());
        }
    if (severity == TmessageSeverity::kError) reportError(std::string(text));
    else if (severity == TmessageSeverity::kWarning) reportWarning(std::string(text));
    else std::fprintf(stderr, "%s\n", message.text.c_str());
}
}  // namespace

int main(int argc, char** argv) {
    // Past a file-size limit a write must fail and be reported, not end the
    // program half-way through a file.
    std::signal(SIGXFSZ, SIG_IGN);
    theCommandEngine().setSink(reportLibraryMessage);

    CLI::App app{"shadenet: shading networks, textures and renders from the command line"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "shadenet 0.1.0");

    auto& list = subcommands();
    std::sort(list.begin(), list.end(), [](const Tsubcommand& a, const Tsubcommand& b) { return a.name < b.name; });
    std::vector<std::pair<CLI::App*, std::function<int()>>> runs;
    for (auto& command : list) {
        CLI::App* sub = app.add_subcommand(command.name, command.description);
        runs.emplace_back(sub, command.setup(*sub));
    }

    refuseEmptyValues(app);
    if (findUnknownSubcommand(app, argc, argv)) return kExitUsage;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
        std::string command;
        CLI::App* at = parsedCommand(app, command);
        setMessageCommand(command);
        if (dynamic_cast<const CLI::RequiredError*>(&e) && !childrenOf(*at).empty())
            return reportError("a subcommand is required (one of: " + namesOf(*at) + ")", kExitUsage);
        return reportError(e.what(), kExitUsage);
    }
    std::string command;
    parsedCommand(app, command);
    setMessageCommand(command);
    for (auto& [sub, run] : runs)
        if (sub->parsed()) return run();
    return kExitUsage;
}
