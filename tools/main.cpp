// shadenet: one program, many subcommands (see README).
#include "tools/subcommand.h"

#include <algorithm>
#include <iostream>

std::vector<Tsubcommand>& subcommands() {
    static std::vector<Tsubcommand> list;
    return list;
}

int main(int argc, char** argv) {
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

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int status = app.exit(e);
        return status == 0 ? kExitOk : kExitUsage;
    }
    for (auto& [sub, run] : runs)
        if (sub->parsed()) return run();
    return kExitUsage;
}
