#pragma once
// A tile whose contents live in a render cache while it is in memory. It
// counts its departures, writes its name to a log as it leaves and can be
// told to refuse, so that tests see who was evicted and in which order.
#include <string>

#include "memory/render_cache.h"

class TcacheTile : public TcacheProxy {
public:
    TcacheTile(TrenderCache& cache, unsigned size, char name = '?', std::string* log = nullptr)
        : fCache(cache), fSize(size), fName(name), fLog(log) {}
    int enterCache(void*) override {
        fData = fCache.allocate(fSize);
        return fData ? 0 : -1;
    }
    int leaveCache(void*) override {
        if (refuse) return 1;
        ++leaves;
        if (fLog) *fLog += fName;
        fCache.deallocate(fData);
        fData = nullptr;
        return 0;
    }
    // Locked and unlocked once: in memory and idle at the head of the list.
    void touch() {
        fCache.lock(*this);
        fCache.unlock(*this);
    }
    bool refuse = false;
    int leaves = 0;

private:
    TrenderCache& fCache;
    unsigned fSize;
    char fName;
    std::string* fLog;
    void* fData = nullptr;
};
