#include "scene/scene_paths.h"

#include <filesystem>

std::string resolveScenePath(const std::string& sceneFile, const std::string& stored) {
    std::filesystem::path name(stored);
    if (stored.empty() || name.is_absolute()) return stored;
    return (std::filesystem::path(sceneFile).parent_path() / name).lexically_normal().string();
}
