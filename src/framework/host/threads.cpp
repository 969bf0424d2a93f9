#include "framework/host/threads.h"

#include <unordered_map>

struct TdepNodeMutexMgr::Impl {
    struct Entry {
        TdependNodeMutexPtr mutex;
        unsigned holders = 0;
    };
    mutable std::mutex guard;
    std::unordered_map<const TdependNode*, Entry> entries;
};

TdepNodeMutexMgr::TdepNodeMutexMgr() : fImpl(std::make_unique<Impl>()) {}

TdepNodeMutexMgr& TdepNodeMutexMgr::instance() {
    static TdepNodeMutexMgr manager;
    return manager;
}

TdependNodeMutexPtr TdepNodeMutexMgr::obtainNodeMutex(const TdependNode* node) {
    std::lock_guard lock(fImpl->guard);
    auto& entry = fImpl->entries[node];
    if (!entry.mutex) entry.mutex = std::make_shared<TmtRecursiveMutex>();
    ++entry.holders;
    return entry.mutex;
}

void TdepNodeMutexMgr::returnMutex(const TdependNode* node, TdependNodeMutexPtr& mutex) {
    std::lock_guard lock(fImpl->guard);
    auto it = fImpl->entries.find(node);
    mutex.reset();
    if (it == fImpl->entries.end()) return;
    if (--it->second.holders == 0) fImpl->entries.erase(it);
}

unsigned TdepNodeMutexMgr::liveMutexCount() const {
    std::lock_guard lock(fImpl->guard);
    return unsigned(fImpl->entries.size());
}
