#include "framework/host/tmp_file_cache.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>

namespace {
struct Registry {
    std::mutex mutex;
    std::vector<std::string> paths;
};

// Never destroyed: owners of temporary files may still deregister from their
// own static destructors after the exit handler has run.
Registry& registry() {
    static Registry* instance = new Registry;
    return *instance;
}

void removeAtExit() { removeRegisteredTmpFiles(); }

void installExitHandler() {
    static const bool installed = [] {
        std::atexit(removeAtExit);
        std::at_quick_exit(removeAtExit);
        return true;
    }();
    (void)installed;
}
}  // namespace

void registerTmpFileCache(const Tstring& path) {
    Registry& r = registry();
    if (path.isEmpty()) {
        std::lock_guard lock(r.mutex);
        std::erase_if(r.paths, [](const std::string& p) { return access(p.c_str(), F_OK) != 0; });
        return;
    }
    installExitHandler();
    std::lock_guard lock(r.mutex);
    if (std::find(r.paths.begin(), r.paths.end(), path.str()) == r.paths.end()) r.paths.push_back(path.str());
}

void unregisterTmpFile(const Tstring& path) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    std::erase(r.paths, path.str());
}

std::vector<std::string> registeredTmpFiles() {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    return r.paths;
}

unsigned removeRegisteredTmpFiles() {
    Registry& r = registry();
    std::vector<std::string> paths;
    {
        std::lock_guard lock(r.mutex);
        paths.swap(r.paths);
    }
    unsigned removed = 0;
    for (const std::string& p : paths) removed += unlink(p.c_str()) == 0;
    return removed;
}
