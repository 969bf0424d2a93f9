#pragma once
// Tcache: a reference-counted cache of TcacheProxy objects. lock brings an
// entry in (enterCache) on first use; the last unlock parks it, still valid,
// on the LRU list; a later lock takes it back for free; reclaim evicts the
// least recently used idle entry (leaveCache). The mutex guards the list and
// the counts only: it is never held while an entry enters or leaves, and a
// thread that meets an entry in transit spins on the entry's state word.
#include <cstddef>

#include "framework/host/threads.h"
#include "memory/lru_of_cache_proxy.h"

class Tcache {
public:
    // reclaim results besides leaveCache's own.
    static constexpr int kReclaimRefused = 1;  // the entry would not leave
    static constexpr int kReclaimEmpty = 3;    // nothing idle to evict

    // idleLimit: as soon as this many entries are idle, unlock evicts the tail.
    explicit Tcache(size_t idleLimit);
    Tcache(const Tcache&) = delete;
    Tcache& operator=(const Tcache&) = delete;

    // 0, or what a failing enterCache returned. After a failure the entry's
    // count stays raised and its state is "not in cache": do not unlock it.
    int lock(TcacheProxy& proxy, void* arg = nullptr);
    // Always 0.
    int unlock(TcacheProxy& proxy, void* arg = nullptr);
    // Evicts the least recently used idle entry: 0 when it left, 1 when it
    // refused, 3 when the list was empty, otherwise leaveCache's result.
    int reclaim(void* arg = nullptr);
    // Evicts this entry if it is idle. Always 0.
    int removeProxy(TcacheProxy& proxy, void* arg = nullptr);

    TmtLock<TmtCriticalSection> beginMutex() { return TmtLock<TmtCriticalSection>(fMutex); }
    static TmtLock<TmtCriticalSection> beginMutex(TmtCriticalSection* section) {
        return TmtLock<TmtCriticalSection>(*section);
    }
    // Takes the lock's ownership and releases it.
    static void endMutex(TmtLock<TmtCriticalSection> lock) { lock.release(); }

    // Snapshots under the mutex.
    unsigned idleCount() const;
    unsigned lruLength() const;
    TcacheProxy* leastRecentlyUsed() const;
    TcacheProxy* mostRecentlyUsed() const;
    size_t idleLimit() const { return fIdleLimit; }

protected:
    // Entered with the mutex held through `lock`; evicts `proxy` (null: the
    // list was empty). The mutex is released before leaveCache runs, and
    // `lock` no longer owns it afterwards.
    int unProtectedReclaim(TcacheProxy* proxy, void* arg, TmtLock<TmtCriticalSection>& lock);

    TlruOfTcacheProxy fLru;
    unsigned fIdleCount = 0;
    size_t fIdleLimit;
    mutable TmtCriticalSection fMutex;
};
