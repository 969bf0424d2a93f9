#pragma once
// The text listing of the program the engine makes of a shading group:
// instructions, segments, data-block layouts and the sample fields. Shared by
// the compile command and the Python module.
#include <string>

class TdependGraph;

// The index of a shading request by name ("surfaceShadows",
// "kSurfaceShadows" or its number); -1 when there is none.
int shadingOptionIndex(const std::string& name);
// Every request's name, comma separated, for messages.
std::string shadingOptionNames();

// Analyses the group named `groupName` of `graph` for `optionName` and
// writes its listing. False, with `error` saying why, for a bad option or no
// such group; `file` names the scene in messages.
bool shadingProgramListing(TdependGraph& graph, const std::string& file, const std::string& groupName,
                           const std::string& optionName, std::string& listing, std::string& error);
