// The LRU cache of proxies: eviction order, refusal, idle limit, failed
// entry, and threads meeting an entry in transit.
#include "memory/cache.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {
class TtestProxy : public TcacheProxy {
public:
    TtestProxy(char name, std::string* log) : fName(name), fLog(log) {}
    int enterCache(void*) override {
        ++enters;
        return enterResult;
    }
    int leaveCache(void*) override {
        ++leaves;
        if (fLog) *fLog += fName;
        return leaveResult;
    }
    char fName;
    std::string* fLog;
    std::atomic<int> enters{0}, leaves{0};
    int enterResult = 0;
    int leaveResult = 0;
};

// A small set of named proxies driven by a script: "+A" locks A, "-A"
// unlocks it, "r" reclaims once.
struct Tscript {
    explicit Tscript(size_t limit = 4294967295u) : cache(limit) {}
    TtestProxy& operator[](char name) {
        auto& p = proxies[name];
        if (!p) p = std::make_unique<TtestProxy>(name, &evicted);
        return *p;
    }
    void run(const std::string& script) {
        std::istringstream in(script);
        for (std::string op; in >> op;) {
            if (op == "r")
                results.push_back(cache.reclaim());
            else if (op[0] == '+')
                cache.lock((*this)[op[1]]);
            else
                cache.unlock((*this)[op[1]]);
        }
    }
    // Reclaims until the list is empty; the names in eviction order.
    std::string drain() {
        // Bounded: a broken list could hand out the same entry for ever.
        const size_t before = evicted.size();
        for (size_t k = 0; k <= proxies.size() && cache.reclaim() == 0; ++k) {
        }
        return evicted.substr(before);
    }
    Tcache cache;
    std::map<char, std::unique_ptr<TtestProxy>> proxies;
    std::string evicted;
    std::vector<int> results;
};
}  // namespace

TEST(CacheEviction, ReclaimTakesLeastRecentlyUsedFirst) {
    struct Case {
        const char* script;
        const char* order;
        int entersOfA;
    };
    const Case cases[] = {
        {"+A -A +B -B +C -C", "ABC", 1},
        {"+A +B +C -C -B -A", "CBA", 1},
        {"+A -A +B -B +A -A", "BA", 1},        // relocking an idle entry is free
        {"+A +A -A +B -B -A", "BA", 1},        // A idles only at its last unlock
        {"+A -A r +A -A +B -B", "AB", 2},      // an evicted entry enters again
        {"+A -A +B -B +C -C +B -B +A -A", "CBA", 1},
    };
    for (const Case& c : cases) {
        Tscript s;
        s.run(c.script);
        EXPECT_EQ(s.cache.idleCount(), s.cache.lruLength()) << c.script;
        EXPECT_EQ(s.drain(), c.order) << c.script;
        EXPECT_EQ(s['A'].enters.load(), c.entersOfA) << c.script;
        EXPECT_EQ(s.cache.idleCount(), 0u) << c.script;
        for (auto& [name, p] : s.proxies) EXPECT_EQ(p->state(), TcacheEntry::kNotInCache) << c.script << name;
    }
}

TEST(CacheEviction, ReclaimOnEmptyListReturnsThreeAndChangesNothing) {
    Tscript s;
    s.run("+A +B");  // both locked: nothing idle
    EXPECT_EQ(s.cache.reclaim(), Tcache::kReclaimEmpty);
    EXPECT_EQ(s['A'].state(), TcacheEntry::kInCache);
    EXPECT_EQ(s['A'].referenceCount(), 1u);
    EXPECT_EQ(s.evicted, "");
    // An entry that is not idle cannot be removed either.
    s.cache.removeProxy(s['A']);
    EXPECT_EQ(s['A'].leaves.load(), 0);
    s.run("-A");
    s.cache.removeProxy(s['A']);
    EXPECT_EQ(s.evicted, "A");
    EXPECT_EQ(s.cache.idleCount(), 0u);
}

TEST(CacheRefusal, AnEntryThatRefusesStaysAtTheHeadAndOtherResultsCountAsGone) {
    Tscript s;
    s.run("+A -A +B -B +C -C");  // tail A
    s['A'].leaveResult = 1;
    EXPECT_EQ(s.cache.reclaim(), Tcache::kReclaimRefused);
    EXPECT_EQ(s['A'].state(), TcacheEntry::kInLRU);
    EXPECT_EQ(s.cache.mostRecentlyUsed(), &s['A']);
    EXPECT_EQ(s.cache.idleCount(), 3u);
    // The sweep goes on with the others, and A keeps refusing.
    EXPECT_EQ(s.cache.reclaim(), 0);
    EXPECT_EQ(s.cache.reclaim(), 0);
    EXPECT_EQ(s.cache.reclaim(), Tcache::kReclaimRefused);
    EXPECT_EQ(s.evicted, "ABCA");
    EXPECT_EQ(s.cache.idleCount(), 1u);
    // A refusing entry can still be locked again from the list, without entering.
    s.run("+A");
    EXPECT_EQ(s['A'].state(), TcacheEntry::kInCache);
    EXPECT_EQ(s['A'].enters.load(), 1);
    // Any other leave result counts as gone, and the sweep passes it on.
    for (int result : {-1, 2, 7}) {
        s['B'].leaveResult = result;
        s.run("+B -B");
        EXPECT_EQ(s.cache.reclaim(), result);
        EXPECT_EQ(s['B'].state(), TcacheEntry::kNotInCache) << result;
        EXPECT_EQ(s.cache.idleCount(), 0u) << result;
    }
}

TEST(CacheIdleLimit, UnlockEvictsTheTailOnceTheLimitIsReached) {
    struct Case {
        size_t limit;
        const char* script;
        const char* evicted;
        unsigned idle;
    };
    const Case cases[] = {
        {1, "+A -A", "A", 0},                   // the entry just unlocked goes at once
        {1, "+A +B -A -B", "AB", 0},
        {2, "+A -A +B -B", "A", 1},
        {2, "+A -A +B -B +C -C", "AB", 1},
        {3, "+A -A +B -B +A -A +C -C", "B", 2},  // A was used again, B is the oldest
        {4294967295u, "+A -A +B -B +C -C", "", 3},
    };
    for (const Case& c : cases) {
        Tscript s(c.limit);
        s.run(c.script);
        EXPECT_EQ(s.evicted, c.evicted) << c.limit << ": " << c.script;
        EXPECT_EQ(s.cache.idleCount(), c.idle) << c.limit << ": " << c.script;
        EXPECT_EQ(s.cache.lruLength(), c.idle) << c.limit << ": " << c.script;
    }
}

TEST(CacheFailedEnter, CountStaysRaisedAndStateNotInCacheWhetherEnterFailsOrThrows) {
    Tscript s;
    s['A'].enterResult = -5;
    EXPECT_EQ(s.cache.lock(s['A']), -5);
    EXPECT_EQ(s['A'].referenceCount(), 1u);
    EXPECT_EQ(s['A'].state(), TcacheEntry::kNotInCache);
    EXPECT_TRUE(s['A'].beingDeleted());
    EXPECT_EQ(s.cache.lruLength(), 0u);
    // The next lock enters again; the count of the failed attempt stays.
    s['A'].enterResult = 0;
    EXPECT_EQ(s.cache.lock(s['A']), 0);
    EXPECT_EQ(s['A'].enters.load(), 2);
    EXPECT_EQ(s['A'].referenceCount(), 2u);
    s.run("-A");
    EXPECT_EQ(s['A'].state(), TcacheEntry::kInCache);  // still one reference
    EXPECT_EQ(s.cache.idleCount(), 0u);
    // An enter that throws fails the same way.
    struct Thrower : TcacheProxy {
        int enterCache(void*) override { throw 42; }
    } p;
    EXPECT_THROW(s.cache.lock(p), int);
    EXPECT_EQ(p.state(), TcacheEntry::kNotInCache);
    EXPECT_EQ(p.referenceCount(), 1u);
}

namespace {
// An entry whose enter and leave wait for a go signal, to hold it in transit.
class TgatedProxy : public TcacheProxy {
public:
    int enterCache(void*) override {
        ++enters;
        while (!go.load()) std::this_thread::yield();
        return 0;
    }
    int leaveCache(void*) override {
        ++leaves;
        while (!go.load()) std::this_thread::yield();
        return leaveResult;
    }
    std::atomic<bool> go{false};
    std::atomic<int> enters{0}, leaves{0};
    int leaveResult = 0;
};

void waitForState(const TcacheEntry& e, int32_t state) {
    while (e.state() != state) std::this_thread::yield();
}
}  // namespace

TEST(CacheConcurrency, SecondLockerWaitsForTheEntryToEnter) {
    Tcache cache(4294967295u);
    TgatedProxy p;
    int first = -1, second = -1;
    std::atomic<bool> secondDone{false};
    std::thread a([&] { first = cache.lock(p); });
    waitForState(p, TcacheEntry::kEntering);
    std::thread b([&] {
        second = cache.lock(p);
        secondDone = true;
    });
    // The mutex is free while the entry enters: other entries move freely.
    TgatedProxy other;
    other.go = true;
    EXPECT_EQ(cache.lock(other), 0);
    EXPECT_EQ(cache.unlock(other), 0);
    EXPECT_FALSE(secondDone.load());  // cannot pass an entry in state 1
    EXPECT_EQ(p.state(), TcacheEntry::kEntering);
    p.go = true;
    a.join();
    b.join();
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(p.enters.load(), 1);
    EXPECT_EQ(p.referenceCount(), 2u);
    EXPECT_EQ(p.state(), TcacheEntry::kInCache);
}

TEST(CacheConcurrency, LockerWaitsForTheEntryToLeaveThenEntersAgain) {
    struct Case {
        int leaveResult;
        int enters;  // after the waiting lock: evicted entries enter again
    };
    for (const Case c : {Case{0, 2}, Case{1, 1}}) {
        Tcache cache(4294967295u);
        TgatedProxy p;
        p.leaveResult = c.leaveResult;
        p.go = true;
        ASSERT_EQ(cache.lock(p), 0);
        cache.unlock(p);
        p.go = false;
        int reclaimed = -1;
        std::thread evictor([&] { reclaimed = cache.reclaim(); });
        waitForState(p, TcacheEntry::kLeaving);
        std::atomic<bool> locked{false};
        std::thread locker([&] {
            cache.lock(p);
            locked = true;
        });
        EXPECT_FALSE(locked.load());
        p.go = true;
        evictor.join();
        locker.join();
        EXPECT_EQ(reclaimed, c.leaveResult);
        EXPECT_EQ(p.enters.load(), c.enters) << c.leaveResult;
        EXPECT_EQ(p.state(), TcacheEntry::kInCache);
        EXPECT_EQ(p.referenceCount(), 1u);
        EXPECT_EQ(cache.idleCount(), 0u);
        EXPECT_EQ(cache.lruLength(), 0u);
    }
}
