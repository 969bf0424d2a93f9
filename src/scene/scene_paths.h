#pragma once
// File names stored in a scene are kept exactly as written. Whoever opens one
// resolves it here: a relative name is taken from the scene file's folder.
#include <string>

std::string resolveScenePath(const std::string& sceneFile, const std::string& stored);
