#include "memory/render_swap.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <string>

#include "framework/host/command_engine.h"
#include "framework/host/environment.h"
#include "framework/host/tmp_file_cache.h"

namespace {
const TcatalogueEntry kSwapOpenError{"s_TrenderSwapStrings.rSwapOpenErrorStr",
                                     "Cannot open the render swap file ^1s: ^2s"};
const TcatalogueEntry kSwapLimitError{"s_TrenderSwapStrings.rSwapLimitErrorStr",
                                      "The render swap file ^1s has reached its size limit; "
                                      "no more data will be swapped out to it"};
const TcatalogueEntry kSwapWriteError{"s_TrenderSwapStrings.rSwapWriteErrorStr",
                                      "Cannot write the render swap file ^1s: ^2s"};

struct Switches {
    bool trace;
    int32_t limit;
};

const Switches& switches() {
    static const Switches s{TenvironmentVariable("TOVI_TRACE_SWAP").asInt32(0) != 0,
                            TenvironmentVariable("TOVI_SWAP_LIMIT").asInt32(-1)};
    return s;
}
const bool sSwitchesRead = (switches(), true);

void trace(const char* text) {
    if (switches().trace) std::fprintf(stderr, "%s\n", text);
}
void trace(const char* text, unsigned number, const char* tail = "") {
    if (switches().trace) std::fprintf(stderr, "%s%u%s\n", text, number, tail);
}

// Closes and removes the file when the last copy of the swap object goes.
std::shared_ptr<TiffFile> ownStore(TiffFile* file, const Tstring& path) {
    return std::shared_ptr<TiffFile>(file, [path](TiffFile* f) {
        f->close();
        delete f;
        unlink(path.asC());
        registerTmpFileCache(Tstring());
    });
}
}  // namespace

bool TrenderSwap::sTraceEnabled() { return switches().trace; }

unsigned TrenderSwap::sLimitFromFreeBytes(uint64_t freeBytes) {
    const unsigned freeCount = (freeBytes >> 32) != 0 ? 4294967295u : unsigned(freeBytes);
    return freeCount - unsigned(std::trunc(freeCount / 20.0));
}

Tstring TrenderSwap::sSwapDirectory(const char* path) {
    const std::string p = path ? path : "";
    const size_t slash = p.rfind('/');
    if (slash == std::string::npos) return Tstring(".");
    if (slash == 0) return Tstring("/");
    return Tstring(p.substr(0, slash));
}

TrenderSwap::TrenderSwap(const char* path) : fPath(path), fMutex(std::make_unique<TmtRecursiveCS>()) {
    if (switches().trace) std::fprintf(stderr, "TrenderSwap:: opening swap %s\n", fPath.asC());
    unlink(fPath.asC());
    trace("TrenderSwap: using IFF file");
    auto* file = new (std::nothrow) TiffFile;
    if (!file) {
        trace("TrenderSwap: cannot allocate TiffFile");
    } else if (!file->open(fPath.asC(), "w+", 0, 0)) {
        const Tstring reason(FLstrerror());
        theCommandEngine().displayWarning(kSwapOpenError, {fPath, reason});
        delete file;
    } else {
        fStore = ownStore(file, fPath);
        fStore->beginWriteGroup(TiffTag::kFOR4, TiffTag("Swap"));
    }

    if (switches().limit != -1) {
        setWriteLimit(unsigned(switches().limit));
    } else {
        const Tstring directory = sSwapDirectory(fPath.asC());
        struct statvfs fs;
        if (statvfs(directory.asC(), &fs) == 0)
            setWriteLimit(sLimitFromFreeBytes(uint64_t(fs.f_bavail) * uint64_t(fs.f_frsize)));
        else
            std::perror("GetDiskSpaceFreeEx render swap fs");
    }
    setWritePosition(0);
    registerTmpFileCache(fPath);
}

TrenderSwap::~TrenderSwap() { trace("TrenderSwap: closing swap file"); }

TrenderSwap::TrenderSwap(const TrenderSwap& other)
    : fLimitWarningShown(other.fLimitWarningShown),
      fWriteErrorShown(other.fWriteErrorShown),
      fPath(other.fPath),
      fStore(other.fStore),
      fWriteLimit(other.fWriteLimit),
      fMutex(std::make_unique<TmtRecursiveCS>()) {}

TrenderSwap& TrenderSwap::operator=(const TrenderSwap& other) {
    if (this != &other) {
        fLimitWarningShown = other.fLimitWarningShown;
        fWriteErrorShown = other.fWriteErrorShown;
        fPath = other.fPath;
        fStore = other.fStore;
        fWriteLimit = other.fWriteLimit;
    }
    return *this;
}

void TrenderSwap::setWriteLimit(unsigned limit) {
    trace("TrenderSwap: setting write limit to ", limit);
    fWriteLimit = limit;
}

int TrenderSwap::setWritePosition(unsigned position) {
    if (!stream()) {
        trace("TrenderSwap::setWritePosition: no stream");
        return -1;
    }
    trace("TrenderSwap:setWritePosition ", position);
    if (position >= fWriteLimit) return -1;
    if (FLseek(stream(), position, kFLseekSet) != 0) {
        trace("TrenderSwap: failed setWritePosition ", position);
        return -1;
    }
    return 0;
}

int TrenderSwap::getWritePosition(unsigned& position) {
    if (!stream()) {
        trace("TrenderSwap::getWritePosition: no stream");
        return -1;
    }
    position = unsigned(FLtell(stream()));
    return 0;
}

int TrenderSwap::getReadPosition(unsigned& position) {
    if (!stream()) {
        trace("TrenderSwap::getReadPosition: no stream");
        return -1;
    }
    position = unsigned(FLtell(stream()));
    return 0;
}

int TrenderSwap::setReadPosition(unsigned position) {
    if (!stream()) {
        trace("TrenderSwap::setReadPosition: no stream");
        return -1;
    }
    trace("TrenderSwap:setReadPosition ", position);
    if (FLseek(stream(), position, kFLseekSet) != 0) {
        trace("TrenderSwap: failed setReadPosition ", position);
        return -1;
    }
    return 0;
}

int TrenderSwap::append(const void* data, unsigned size) {
    if (!stream()) {
        trace("TrenderSwap::append: no stream");
        return -1;
    }
    FLseek(stream(), 0, kFLseekEnd);
    const int64_t position = FLtell(stream());
    // In 64 bits, so that a block cannot slip under the limit by wrapping.
    if (position < 0 || uint64_t(position) + size >= fWriteLimit) {
        if (!fLimitWarningShown) {
            theCommandEngine().displayWarning(kSwapLimitError, {fPath});
            fLimitWarningShown = true;
        }
        return -1;
    }
    int status = FLwrite(stream(), data, size) == size ? 0 : -1;
    verifyWriteStatus(status);
    if (status != 0) trace("TrenderSwap: failed append ", size, " bytes");
    return status;
}

void TrenderSwap::verifyWriteStatus(int& status) {
    if (status == 0) {
        if (FILE* file = FLfile(stream()); file && std::ferror(file)) status = -1;
    }
    if (status != 0 && !fWriteErrorShown) {
        const Tstring reason(FLstrerror());
        theCommandEngine().displayWarning(kSwapWriteError, {fPath, reason});
        fWriteErrorShown = true;
    }
}

int TrenderSwap::read(void* data, unsigned size, unsigned position) {
    if (!stream()) {
        trace("TrenderSwap::startRead: no stream");
        return -1;
    }
    if (setReadPosition(position) != 0) return -1;
    return read(data, size);
}

int TrenderSwap::read(void* data, unsigned size) {
    if (!stream()) {
        trace("TrenderSwap::read: no stream");
        return -1;
    }
    if (FLread(stream(), data, size) != size) {
        trace("TrenderSwap: failed read ", size, " bytes");
        return -1;
    }
    return 0;
}

int TrenderSwap::flushOutput() {
    if (!stream()) {
        trace("TrenderSwap: no stream to flush");
        return -1;
    }
    errno = 0;
    if (FLflushBuffer(stream()) != 0 || FLoserror() != 0) {
        trace("TrenderSwap: failed flushOutput");
        return -1;
    }
    return 0;
}

unsigned TrenderSwap::gotoEnd() {
    if (!stream()) {
        // Shares the text of append.
        trace("TrenderSwap::append: no stream");
        return 0;
    }
    FLseek(stream(), 0, kFLseekEnd);
    return unsigned(FLtell(stream()));
}
