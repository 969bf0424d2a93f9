#include "scene/scene_error.h"

std::string TsceneError::text() const {
    if (line == 0) return file + ": " + message;
    return file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message;
}
