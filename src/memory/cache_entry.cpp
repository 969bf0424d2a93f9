#include "memory/cache_entry.h"

int TcacheEntry::enterCache(void*) { return 0; }
int TcacheEntry::leaveCache(void*) { return 0; }
