#pragma once
// TcacheEntry: something that can be thrown out of memory and brought back.
// Its state word moves between the five states below; a Tcache changes it
// under its mutex or, where the mutex is released, by atomic operations, so
// that another thread meeting an entry in transit can wait on the word.
// TcacheProxy adds the links of the LRU list.
#include <atomic>
#include <cstdint>

class Tcache;
class TlruOfTcacheProxy;

class TcacheEntry {
public:
    enum Tstate : int32_t {
        kNotInCache = 0,  // contents not in memory
        kEntering = 1,    // a thread runs enterCache
        kLeaving = 2,     // a thread runs leaveCache
        kInCache = 3,     // in memory, locked at least once
        kInLRU = 4,       // in memory, idle, on the LRU list
    };

    TcacheEntry() = default;
    virtual ~TcacheEntry() = default;
    TcacheEntry(const TcacheEntry&) = delete;
    TcacheEntry& operator=(const TcacheEntry&) = delete;

    // Brings the contents in; 0 on success. Runs without the cache's mutex.
    virtual int enterCache(void* arg);
    // Writes the contents out; 0 when gone, 1 to refuse and stay idle.
    // Runs without the cache's mutex.
    virtual int leaveCache(void* arg);

    unsigned referenceCount() const { return fReferenceCount; }
    int32_t state() const { return fState.load(std::memory_order_acquire); }
    bool beingDeleted() const {
        const int32_t s = state();
        return s == kNotInCache || s == kLeaving;
    }
    bool inCache() const { return state() == kInCache; }
    bool inLRU() const { return state() == kInLRU; }

private:
    friend class Tcache;
    unsigned fReferenceCount = 0;  // changed under the cache's mutex only
    std::atomic<int32_t> fState{kNotInCache};
};

class TcacheProxy : public TcacheEntry {
public:
    // Towards the least and the most recently used entry.
    TcacheProxy* lruNext() const { return fNext; }
    TcacheProxy* lruPrevious() const { return fPrevious; }

private:
    friend class TlruOfTcacheProxy;
    TcacheProxy* fNext = nullptr;
    TcacheProxy* fPrevious = nullptr;
};
