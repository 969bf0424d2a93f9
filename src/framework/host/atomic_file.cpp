#include "framework/host/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>

#include "framework/host/tmp_file_cache.h"

namespace fs = std::filesystem;

namespace {
// Enough attempts that only a folder we cannot create files in fails.
constexpr int kNameAttempts = 64;

std::string temporaryName(const fs::path& final) {
    static std::atomic<unsigned> counter{0};
    static const unsigned seed = std::random_device{}();
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    unsigned bits = seed ^ (unsigned(::getpid()) * 2654435761u) ^ (counter++ * 40503u);
    std::string tag;
    for (int i = 0; i < 6; ++i, bits = bits * 1103515245u + 12345u) tag += kLetters[(bits >> 16) % 36];
    // Hidden and marked, so that a listing passes it by; it keeps the
    // extension, as writers that go by the name (TIFF) need it.
    std::string name(1, '.');
    name.append(final.filename().string()).append(".tmp-").append(tag).append(final.extension().string());
    return (final.parent_path() / name).string();
}

bool closeChecked(int& descriptor) {
    int fd = descriptor;
    descriptor = -1;
    // Linux releases the descriptor even when close reports an error: never retry.
    return ::close(fd) == 0;
}
}  // namespace

TatomicFile::TatomicFile(std::string target) : fTarget(std::move(target)) {}

TatomicFile::~TatomicFile() { discard(); }

std::string TatomicFile::errorText(const std::string& target, int code) {
    return target + ": cannot write: " + std::strerror(code);
}

bool TatomicFile::open(std::string& error) {
    discard();
    if (fTarget.empty()) {
        fErrorCode = ENOENT;
        error = "cannot write a file without a name";
        return false;
    }
    std::error_code ec;
    const fs::file_status linked = fs::status(fTarget, ec);
    if (linked.type() == fs::file_type::directory) {
        fErrorCode = EISDIR;
        error = fTarget + ": cannot write: is a directory";
        return false;
    }
    const bool isLink = fs::is_symlink(fs::symlink_status(fTarget, ec));
    fDirect = linked.type() != fs::file_type::regular && (isLink || linked.type() != fs::file_type::not_found);
    if (fDirect) {
        fWritePath = fTarget;
        fDescriptor = ::open(fTarget.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (fDescriptor < 0) {
            fErrorCode = errno;
            error = errorText(fTarget, fErrorCode);
            return false;
        }
        return true;
    }

    fFinalPath = fTarget;
    struct stat existing {};
    const bool exists = linked.type() == fs::file_type::regular && ::stat(fTarget.c_str(), &existing) == 0;
    if (exists && isLink) {
        fs::path resolved = fs::canonical(fTarget, ec);
        if (!ec) fFinalPath = resolved.string();
    }
    for (int attempt = 0; attempt < kNameAttempts && fDescriptor < 0; ++attempt) {
        fWritePath = temporaryName(fFinalPath);
        fDescriptor = ::open(fWritePath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fDescriptor < 0 && errno != EEXIST) break;
    }
    if (fDescriptor < 0) {
        fErrorCode = errno;
        error = errorText(fTarget, fErrorCode);
        fWritePath.clear();
        return false;
    }
    registerTmpFileCache(Tstring(fWritePath));
    // A replaced file keeps the permissions its owner gave it.
    if (exists) (void)::fchmod(fDescriptor, existing.st_mode & 07777);
    return true;
}

bool TatomicFile::commit(std::string& error) {
    if (fDescriptor < 0) {
        error = fTarget + ": cannot write: the file was not opened";
        return false;
    }
    if (fDirect) {
        // A device or a pipe cannot be synced; close still reports a late error.
        if (!closeChecked(fDescriptor)) {
            error = errorText(fTarget, errno);
            return false;
        }
        return true;
    }
    // The data reaches the disk before the name does, so that a crash
    // cannot leave a complete-looking empty file.
    if (::fsync(fDescriptor) != 0 || !closeChecked(fDescriptor) ||
        ::rename(fWritePath.c_str(), fFinalPath.c_str()) != 0) {
        error = errorText(fTarget, errno);
        discard();
        return false;
    }
    unregisterTmpFile(Tstring(fWritePath));
    fWritePath.clear();
    return true;
}

void TatomicFile::discard() {
    if (fDescriptor >= 0) closeChecked(fDescriptor);
    if (!fDirect && !fWritePath.empty()) {
        ::unlink(fWritePath.c_str());
        unregisterTmpFile(Tstring(fWritePath));
    }
    fWritePath.clear();
}
