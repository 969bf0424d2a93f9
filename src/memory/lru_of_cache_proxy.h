#pragma once
// TlruOfTcacheProxy: the doubly linked list of idle proxies, most recently
// used at the head, least recently used at the tail. Not locked: its owner's
// mutex guards it.
#include "memory/cache_entry.h"

class TlruOfTcacheProxy {
public:
    TcacheProxy* mru() const { return fHead; }
    TcacheProxy* lru() const { return fTail; }
    bool isEmpty() const { return fHead == nullptr; }

    // At the head.
    void add(TcacheProxy* proxy);
    // From any place; the proxy's links are cleared.
    void remove(TcacheProxy* proxy);
    void clear() { fHead = fTail = nullptr; }
    // Walks the list; for checks, not for hot paths.
    unsigned length() const;
    bool contains(const TcacheProxy* proxy) const;

private:
    TcacheProxy* fHead = nullptr;
    TcacheProxy* fTail = nullptr;
};
