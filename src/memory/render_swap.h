#pragma once
// TrenderSwap: a temporary file that a renderer appends blocks to and reads
// back by position and length. It gives no meaning to its contents and keeps
// no index. The file starts with a "Swap" group header and lives only as long
// as the object (copies share it): it is removed when made and when closed,
// and registered with the host so that it also goes when the process exits.
//
// Every int operation returns 0 for success and -1 for failure. What the
// user sees are three warnings, each at most once per file: the file could
// not be opened, a write would reach the limit, a write failed. All other
// messages are trace, on stderr while TOVI_TRACE_SWAP is non-zero.
//
// No operation takes the mutex itself: a caller that needs a seek and a
// transfer to stay together brackets them with beginMutex and endMutex.
//
// Switches, read once at load:
//   TOVI_TRACE_SWAP (int, 0)   trace messages
//   TOVI_SWAP_LIMIT (int, -1)  when not -1, the write limit in bytes, and the
//                              free disk space is not asked for
#include <cstdint>
#include <memory>

#include "framework/host/iff_file.h"
#include "framework/host/threads.h"
#include "framework/host/tstring.h"

class TrenderSwap {
public:
    static constexpr unsigned kNoLimit = 4294967295u;

    explicit TrenderSwap(const char* path);
    ~TrenderSwap();
    // A copy shares the open file; the file is closed and removed when the
    // last of them goes. Each copy has its own warning flags and mutex.
    TrenderSwap(const TrenderSwap& other);
    TrenderSwap& operator=(const TrenderSwap& other);

    // Null when the file could not be made or opened.
    TiffFile* file() const { return fStore.get(); }
    const Tstring& path() const { return fPath; }

    TmtLock<TmtRecursiveCS> beginMutex() { return TmtLock<TmtRecursiveCS>(*fMutex); }
    void endMutex(TmtLock<TmtRecursiveCS> lock) { lock.release(); }

    // No block may make the file reach this size.
    void setWriteLimit(unsigned limit);
    unsigned writeLimit() const { return fWriteLimit; }

    // A position at or past the limit fails silently and leaves the stream where it is.
    int setWritePosition(unsigned position);
    int getWritePosition(unsigned& position);
    int getReadPosition(unsigned& position);
    // Not tested against the limit.
    int setReadPosition(unsigned position);
    // Always at the end of the file, whatever the write position says.
    int append(const void* data, unsigned size);
    // Turns status to -1 when the stream's error flag is set, and warns
    // once about a failed write.
    void verifyWriteStatus(int& status);
    int read(void* data, unsigned size, unsigned position);
    int flushOutput();
    // The file size, which is where the next append goes; 0 for a dead file.
    unsigned gotoEnd();

    // The write limit for a given count of free bytes: 95% of it, the count
    // taken as 2^32-1 when it does not fit in 32 bits.
    static unsigned sLimitFromFreeBytes(uint64_t freeBytes);
    // The folder whose free space bounds the file: the path up to its last
    // "/", "." when there is none ("\" is no separator), "/" for a file in
    // the root.
    static Tstring sSwapDirectory(const char* path);
    static bool sTraceEnabled();

protected:
    int read(void* data, unsigned size);

private:
    FLstream* stream() const { return fStore ? fStore->stream() : nullptr; }

    bool fLimitWarningShown = false;
    bool fWriteErrorShown = false;
    Tstring fPath;
    std::shared_ptr<TiffFile> fStore;
    unsigned fWriteLimit = kNoLimit;
    std::unique_ptr<TmtRecursiveCS> fMutex;
};
