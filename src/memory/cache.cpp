#include "memory/cache.h"

#include <thread>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace {
inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    _mm_pause();
#endif
}

// Waits, without lock, sleep or event, for another thread to move the entry
// out of a transit state. The occasional yield keeps a waiting thread from
// starving the mover when there are more threads than cores.
void spinWhile(const TcacheEntry& entry, int32_t seen) {
    for (unsigned n = 1; entry.state() == seen; ++n) {
        cpuRelax();
        if ((n & 63) == 0) std::this_thread::yield();
    }
}
}  // namespace

Tcache::Tcache(size_t idleLimit) : fIdleLimit(idleLimit) {}

int Tcache::lock(TcacheProxy& proxy, void* arg) {
    for (;;) {
        TmtLock guard(fMutex);
        const int32_t state = proxy.fState.load(std::memory_order_acquire);
        switch (state) {
            case TcacheEntry::kNotInCache: {
                ++proxy.fReferenceCount;
                proxy.fState.store(TcacheEntry::kEntering, std::memory_order_release);
                guard.release();
                int result;
                try {
                    result = proxy.enterCache(arg);
                } catch (...) {
                    proxy.fState.exchange(TcacheEntry::kNotInCache, std::memory_order_acq_rel);
                    throw;
                }
                proxy.fState.exchange(result == 0 ? TcacheEntry::kInCache : TcacheEntry::kNotInCache,
                                      std::memory_order_acq_rel);
                return result;
            }
            case TcacheEntry::kEntering:
            case TcacheEntry::kLeaving:
                // Start again once the other thread is through.
                guard.release();
                spinWhile(proxy, state);
                continue;
            case TcacheEntry::kInCache:
                ++proxy.fReferenceCount;
                return 0;
            case TcacheEntry::kInLRU:
                --fIdleCount;
                fLru.remove(&proxy);
                ++proxy.fReferenceCount;
                proxy.fState.store(TcacheEntry::kInCache, std::memory_order_release);
                return 0;
            default:
                return 0;
        }
    }
}

int Tcache::unlock(TcacheProxy& proxy, void* arg) {
    TmtLock guard(fMutex);
    // An unbalanced unlock must not wrap the count and strand the entry.
    if (proxy.fReferenceCount == 0) return 0;
    if (--proxy.fReferenceCount == 0) {
        fLru.add(&proxy);
        proxy.fState.store(TcacheEntry::kInLRU, std::memory_order_release);
        ++fIdleCount;
        if (fIdleCount >= fIdleLimit) unProtectedReclaim(fLru.lru(), arg, guard);
    }
    return 0;
}

int Tcache::unProtectedReclaim(TcacheProxy* proxy, void* arg, TmtLock<TmtCriticalSection>& lock) {
    if (!proxy) return kReclaimEmpty;
    --fIdleCount;
    fLru.remove(proxy);
    const int32_t oldState = proxy->fState.load(std::memory_order_relaxed);
    proxy->fState.store(TcacheEntry::kLeaving, std::memory_order_release);
    endMutex(std::move(lock));

    int result;
    try {
        result = proxy->leaveCache(arg);
    } catch (...) {
        result = kReclaimRefused;  // an entry that cannot write itself out stays
    }
    if (result != kReclaimRefused) {
        int32_t expected = TcacheEntry::kLeaving;
        proxy->fState.compare_exchange_strong(expected, TcacheEntry::kNotInCache, std::memory_order_acq_rel);
        return result;
    }
    // Refused: back at the head. The state is restored before the mutex goes,
    // so that no other reclaim can pick the entry up while it still reads
    // "leaving" (it would call leaveCache a second time).
    TmtLock again(fMutex);
    fLru.add(proxy);
    ++fIdleCount;
    int32_t expected = TcacheEntry::kLeaving;
    proxy->fState.compare_exchange_strong(expected, oldState, std::memory_order_acq_rel);
    return kReclaimRefused;
}

int Tcache::reclaim(void* arg) {
    TmtLock guard(fMutex);
    return unProtectedReclaim(fLru.lru(), arg, guard);
}

int Tcache::removeProxy(TcacheProxy& proxy, void* arg) {
    TmtLock guard(fMutex);
    if (proxy.fReferenceCount == 0 && proxy.fState.load(std::memory_order_acquire) == TcacheEntry::kInLRU)
        unProtectedReclaim(&proxy, arg, guard);
    return 0;
}

unsigned Tcache::idleCount() const {
    TmtLock guard(fMutex);
    return fIdleCount;
}

unsigned Tcache::lruLength() const {
    TmtLock guard(fMutex);
    return fLru.length();
}

TcacheProxy* Tcache::leastRecentlyUsed() const {
    TmtLock guard(fMutex);
    return fLru.lru();
}

TcacheProxy* Tcache::mostRecentlyUsed() const {
    TmtLock guard(fMutex);
    return fLru.mru();
}
