#include "memory/lru_of_cache_proxy.h"

void TlruOfTcacheProxy::add(TcacheProxy* proxy) {
    proxy->fPrevious = nullptr;
    proxy->fNext = fHead;
    if (fHead)
        fHead->fPrevious = proxy;
    else
        fTail = proxy;
    fHead = proxy;
}

void TlruOfTcacheProxy::remove(TcacheProxy* proxy) {
    if (proxy->fPrevious)
        proxy->fPrevious->fNext = proxy->fNext;
    else if (fHead == proxy)
        fHead = proxy->fNext;
    if (proxy->fNext)
        proxy->fNext->fPrevious = proxy->fPrevious;
    else if (fTail == proxy)
        fTail = proxy->fPrevious;
    proxy->fNext = proxy->fPrevious = nullptr;
}

unsigned TlruOfTcacheProxy::length() const {
    unsigned n = 0;
    for (TcacheProxy* p = fHead; p; p = p->lruNext()) ++n;
    return n;
}

bool TlruOfTcacheProxy::contains(const TcacheProxy* proxy) const {
    for (TcacheProxy* p = fHead; p; p = p->lruNext())
        if (p == proxy) return true;
    return false;
}
