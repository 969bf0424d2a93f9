// shadenet check FILE...: loads each scene file into a graph of its own and
// reports every problem as "file:line:column: message".
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "framework/host/depend_graph.h"
#include "scene/scene_loader.h"
#include "tools/subcommand.h"

namespace {
int check(const std::vector<std::string>& files) {
    int status = kExitOk;
    for (const std::string& file : files) {
        if (std::string why = unreadableInput(file); !why.empty()) {
            status = reportError(file + ": " + why);
            continue;
        }
        TdependGraph graph;
        TsceneLoader loader;
        if (loader.load(file, graph)) {
            auto counted = [](size_t n, const char* what) { return std::to_string(n) + " " + what + (n == 1 ? "" : "s"); };
            std::cout << file << ": ok, " << counted(loader.nodes().size(), "node") << ", "
                      << counted(loader.connectionCount(), "connection") << "\n";
            continue;
        }
        for (const TsceneError& e : loader.errors()) reportError(e.text());
        if (loader.errors().size() >= TsceneLoader::kMaxErrors) reportError(file + ": too many problems; stopped");
        status = kExitFailure;
    }
    return status;
}

const TsubcommandRegistrar kRegistrar{{"check", "Load scene files and report their problems",
                                       [](CLI::App& app) -> std::function<int()> {
                                           auto files = std::make_shared<std::vector<std::string>>();
                                           app.add_option("files", *files, "Scene files")->required();
                                           return [files] { return check(*files); };
                                       }}};
}  // namespace
