#pragma once
// Temporary files registered with the host are removed when the process
// ends, whether main returns or exit() is called (a command-line error exit
// included). An owner that removes its file itself calls
// registerTmpFileCache with an empty name, which forgets every registered
// file that no longer exists.
#include <string>
#include <vector>

#include "framework/host/tstring.h"

void registerTmpFileCache(const Tstring& path);
// Forgets one file without removing it.
void unregisterTmpFile(const Tstring& path);
// The files that would be removed at exit.
std::vector<std::string> registeredTmpFiles();
// Removes every registered file now; returns how many were removed.
unsigned removeRegisteredTmpFiles();
