// shadenet compile FILE GROUP [--option NAME]: analyses the network behind a
// shading group of a scene file and prints the program the engine made of
// it: instructions, segments, data-block layouts and the sample fields.
#include <iostream>
#include <memory>
#include <string>

#include "framework/host/depend_graph.h"
#include "scene/scene_loader.h"
#include "shading/program_listing.h"
#include "tools/subcommand.h"

namespace {
int compile(const std::string& file, const std::string& groupName, const std::string& optionName) {
    if (shadingOptionIndex(optionName) < 0) {
        return reportError("unknown option '" + optionName + "' (options: " + shadingOptionNames() + ")", kExitUsage);
    }
    if (std::string why = unreadableInput(file); !why.empty()) return reportError(file + ": " + why);
    TdependGraph graph;
    TsceneLoader loader;
    if (!loader.load(file, graph)) {
        for (const TsceneError& e : loader.errors()) reportError(e.text());
        return kExitFailure;
    }
    std::string listing, error;
    if (!shadingProgramListing(graph, file, groupName, optionName, listing, error)) return reportError(error, kExitUsage);
    std::cout << listing;
    return kExitOk;
}

const TsubcommandRegistrar kRegistrar{{"compile", "Print the shading program of a group in a scene file",
                                       [](CLI::App& app) -> std::function<int()> {
                                           auto file = std::make_shared<std::string>();
                                           auto group = std::make_shared<std::string>();
                                           auto option = std::make_shared<std::string>("surfaceColorTransparency");
                                           app.add_option("file", *file, "Scene file")->required();
                                           app.add_option("group", *group, "Name of the shading group")->required();
                                           app.add_option("--option", *option, "What is wanted of the group (default surfaceColorTransparency)");
                                           return [file, group, option] { return compile(*file, *group, *option); };
                                       }}};
}  // namespace
