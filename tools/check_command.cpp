// shadenet check FILE...: the pre-flight of a render. Loads each scene file
// into a graph of its own and reports every problem: where the file is wrong
// ("file:line:column: message"), then what a render of it would refuse or
// get wrong, and as warnings what renders but is probably a mistake.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/scene_check.h"
#include "scene/scene_loader.h"
#include "tools/subcommand.h"

namespace {
int check(const std::vector<std::string>& files, const std::string& camera) {
    int status = kExitOk;
    for (const std::string& file : files) {
        if (std::string why = unreadableInput(file); !why.empty()) {
            status = reportError(file + ": " + why);
            continue;
        }
        TdependGraph graph;
        TsceneLoader loader;
        if (!loader.load(file, graph)) {
            for (const TsceneError& e : loader.errors()) reportError(e.text());
            if (loader.errors().size() >= TsceneLoader::kMaxErrors) reportError(file + ": too many problems; stopped");
            status = kExitFailure;
            continue;
        }
        TsceneCheck sceneCheck;
        TsceneCheckOptions options;
        options.camera = camera;
        // A file without any camera still serves swatches and compiles.
        options.requireCamera = !camera.empty();
        sceneCheck.run(graph, file, options);
        for (const TsceneIssue& issue : sceneCheck.issues()) {
            if (issue.isError())
                reportError(file + ": " + issue.text());
            else
                reportWarning(file + ": " + issue.text());
        }
        if (sceneCheck.hasErrors()) {
            status = kExitFailure;
            continue;
        }
        auto counted = [](size_t n, const char* what) { return std::to_string(n) + " " + what + (n == 1 ? "" : "s"); };
        std::cout << file << ": ok, " << counted(loader.nodes().size(), "node") << ", "
                  << counted(loader.connectionCount(), "connection") << "\n";
    }
    return status;
}

const TsubcommandRegistrar kRegistrar{{"check", "Load scene files and report what a render of them would hit",
                                       [](CLI::App& app) -> std::function<int()> {
                                           auto files = std::make_shared<std::vector<std::string>>();
                                           auto camera = std::make_shared<std::string>();
                                           app.add_option("files", *files, "Scene files")->required();
                                           app.add_option("--camera", *camera, "Check the view of this camera (node name or path)");
                                           return [files, camera] { return check(*files, *camera); };
                                       }}};
}  // namespace
