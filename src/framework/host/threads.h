#pragma once
// Thread primitives of the host: a recursive mutex with its guard, a critical
// section, an atomic reference counter and the per-node mutex manager.
#include <atomic>
#include <memory>
#include <mutex>

class TmtRecursiveMutex {
public:
    void mpAcquire() { fMutex.lock(); }
    void mpRelease() { fMutex.unlock(); }
    bool mpTryAcquire() { return fMutex.try_lock(); }
    // BasicLockable, so std:: guards work too.
    void lock() { fMutex.lock(); }
    void unlock() { fMutex.unlock(); }

private:
    std::recursive_mutex fMutex;
};

// Scoped ownership of a mutex. Movable, so that a lock can be handed to a
// function by value and released there; a moved-from lock owns nothing.
// `TmtLock lock(mutex);` deduces the mutex type.
template <class M>
class TmtLock {
public:
    TmtLock() = default;
    explicit TmtLock(M& m) : fMutex(&m) { m.lock(); }
    TmtLock(TmtLock&& other) noexcept : fMutex(other.fMutex) { other.fMutex = nullptr; }
    TmtLock& operator=(TmtLock&& other) noexcept {
        if (this != &other) {
            release();
            fMutex = other.fMutex;
            other.fMutex = nullptr;
        }
        return *this;
    }
    ~TmtLock() { release(); }
    TmtLock(const TmtLock&) = delete;
    TmtLock& operator=(const TmtLock&) = delete;

    bool ownsLock() const { return fMutex != nullptr; }
    void release() {
        if (fMutex) {
            fMutex->unlock();
            fMutex = nullptr;
        }
    }

private:
    M* fMutex = nullptr;
};

class TmtCriticalSection {
public:
    void enter() { fMutex.lock(); }
    void leave() { fMutex.unlock(); }
    void lock() { fMutex.lock(); }
    void unlock() { fMutex.unlock(); }

private:
    std::mutex fMutex;
};

// A critical section that the owning thread may enter again.
class TmtRecursiveCS {
public:
    void enter() { fMutex.lock(); }
    void leave() { fMutex.unlock(); }
    void lock() { fMutex.lock(); }
    void unlock() { fMutex.unlock(); }
    bool tryLock() { return fMutex.try_lock(); }

private:
    std::recursive_mutex fMutex;
};

class TmtRefCounter {
public:
    explicit TmtRefCounter(int initial = 0) : fCount(initial) {}
    int add() { return fCount.fetch_add(1, std::memory_order_acq_rel) + 1; }
    // The new count; zero when the last reference went.
    int remove() { return fCount.fetch_sub(1, std::memory_order_acq_rel) - 1; }
    int count() const { return fCount.load(std::memory_order_acquire); }
    void reset(int value = 0) { fCount.store(value, std::memory_order_release); }

private:
    std::atomic<int> fCount;
};

class TdependNode;

// One recursive mutex per node, made on first request and dropped when the
// last holder returns it.
using TdependNodeMutexPtr = std::shared_ptr<TmtRecursiveMutex>;

class TdepNodeMutexMgr {
public:
    static TdepNodeMutexMgr& instance();
    TdependNodeMutexPtr obtainNodeMutex(const TdependNode* node);
    void returnMutex(const TdependNode* node, TdependNodeMutexPtr& mutex);
    unsigned liveMutexCount() const;

private:
    struct Impl;
    TdepNodeMutexMgr();
    std::unique_ptr<Impl> fImpl;
};
