#include "framework/host/file_checks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

std::string unreadableInput(const std::string& path) {
    struct stat file {};
    if (::stat(path.c_str(), &file) != 0) return std::strerror(errno);
    if (S_ISDIR(file.st_mode)) return "is a directory";
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::strerror(errno);
    ::close(fd);
    return {};
}

bool sameFile(const std::string& a, const std::string& b) {
    std::error_code ec;
    if (std::filesystem::equivalent(a, b, ec)) return true;
    // An output that does not exist yet can only be the input by its name.
    const std::filesystem::path first = std::filesystem::weakly_canonical(a, ec);
    if (ec) return false;
    const std::filesystem::path second = std::filesystem::weakly_canonical(b, ec);
    return !ec && first == second;
}
