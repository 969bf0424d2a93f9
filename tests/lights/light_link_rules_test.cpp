// The removal rules on hand-built entry arrays: each row of the ignore and
// duplicate rules as its own case, the shared cases, the compaction, and the
// count invariant over random collections.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>

#include "lights/light_entries.h"
#include "lights/light_link_scene.h"

namespace {

using E = TlightEntries;
constexpr uint32_t G = E::kWholeGroup;
constexpr uint32_t L = E::kFromLink;
constexpr uint32_t S = E::kThroughSet;
constexpr uint32_t SH = E::kShared;

// Arrays of entries over a few light plugs. The plugs name lights of a real
// graph so that the compaction can report nodes.
class Entries {
public:
    Entries() {
        for (const char* name : {"keyLight", "fillLight", "rimLight"}) fNodes.push_back(fScene.light(name));
        for (TdependNode* n : fNodes) fPlugs.push_back(std::make_unique<Tplug>(n, &TlightShape::saLightData()));
    }
    // A fresh plug object for light `light`: entries compare plug values,
    // not pointers.
    Tplug* plug(unsigned light) {
        fExtra.push_back(std::make_unique<Tplug>(*fPlugs[light]));
        return fExtra.back().get();
    }
    void add(unsigned light, uint32_t f) {
        lights.append(plug(light));
        flags.append(f);
        ++count;
    }
    void ignore(unsigned light, uint32_t f) {
        ignored.append(plug(light));
        ignoredFlags.append(f);
    }
    void removeIgnored() { E::removeIgnored(lights, flags, ignored, ignoredFlags, count); }
    void removeDuplicates() { E::removeDuplicates(lights, flags, count); }
    bool dead(unsigned i) const { return E::isDead(flags[i]); }
    bool shared(unsigned i) const { return E::isShared(flags[i]); }
    TdependNode* node(unsigned light) const { return fNodes[light]; }

    TplugArray lights, ignored;
    TuInt32Array flags, ignoredFlags;
    int count = 0;

private:
    TlinkScene fScene;
    std::vector<TdependNode*> fNodes;
    std::vector<std::unique_ptr<Tplug>> fPlugs, fExtra;
};

struct IgnoreRow {
    const char* name;
    uint32_t entry;
    uint32_t ignore;
    bool dies;
};

// One row per line of the ignore rules, plus the variants that tell each
// condition apart.
const IgnoreRow kIgnoreRows[] = {
    {"group entry, group ignore", G, G, true},
    {"group entry through a set, group ignore", G | L | S, G | L, true},
    {"group entry, per-object ignore", G, L | 0, false},
    {"group entry, per-object ignore through a set", G | L, L | S | 3, false},
    {"set entry, group ignore", L | S | 2, G | L, true},
    {"direct entry, group ignore", L | 2, G | L, false},
    {"direct entry without a link node, group ignore", 2, G, false},
    {"set entry, direct ignore of the same object", L | S | 4, L | 4, true},
    {"set entry, set ignore of the same object", L | S | 4, L | S | 4, true},
    {"direct entry, direct ignore of the same object", L | 4, L | 4, true},
    {"direct entry, set ignore of the same object", L | 4, L | S | 4, false},
    {"direct entry, direct ignore of another object", L | 4, L | 5, false},
    {"set entry, set ignore of another object", L | S | 4, L | S | 5, false},
};

TEST(LightLinkIgnoreRules, EachRowAsItsOwnCase) {
    for (const IgnoreRow& row : kIgnoreRows) {
        SCOPED_TRACE(row.name);
        Entries e;
        e.add(0, row.entry);
        e.add(1, G);  // another light, never touched
        e.ignore(0, row.ignore);
        e.removeIgnored();
        EXPECT_EQ(e.dead(0), row.dies);
        EXPECT_FALSE(e.dead(1));
        EXPECT_EQ(e.count, row.dies ? 1 : 2);
    }
}

struct Entry {
    unsigned light;
    uint32_t flags;
};

// Collections of several entries: the rule, the count the group had
// before it, and what each entry is after (d dead, s shared, . neither).
struct CollectionRow {
    const char* name;
    std::vector<Entry> entries;
    int count;
    std::vector<Entry> ignores;  // empty: the duplicate rule runs instead
    const char* after;
    int countAfter;
};

const CollectionRow kCollectionRows[] = {
    {"an ignore of another light removes nothing", {{0, G}, {0, L | S | 1}}, 2, {{1, G}, {2, L | 1}}, "..", 2},
    // Two group entries of one light (default set and group link): both die
    // and each leaves the count once, however many ignores match.
    {"every matching entry dies once", {{0, G | L | S}, {0, G}, {1, G}}, 3, {{0, G | L}, {0, G}}, "dd.", 1},
    // One light standing for objects 0 and 1 through a set and 2 directly,
    // counted once: a group ignore takes the set entries, the light stays.
    {"a shared entry takes the covered shared ones along", {{0, L | S | 0 | SH}, {0, L | S | 1 | SH}, {0, L | 2 | SH}}, 1,
     {{0, G | L}}, "dds", 1},
    {"the last shared entry leaving drops the count", {{0, L | S | 0 | SH}, {0, L | S | 1 | SH}, {1, G}}, 2, {{0, G}}, "dd.", 1},
    {"a per-object ignore of a shared entry keeps the others", {{0, L | 0 | SH}, {0, L | 1 | SH}, {0, L | 2 | SH}}, 1, {{0, L | 1}},
     "sds", 1},
    {"a group entry below absorbs the entry above", {{0, G}, {0, L | 1}}, 2, {}, ".d", 1},
    {"a group entry below takes all shared entries", {{0, G}, {0, L | 1 | SH}, {0, L | 2 | SH}}, 2, {}, ".dd", 1},
    {"a group entry above removes the per-object one and the shared below",
     {{0, L | 3 | SH}, {1, G}, {0, L | 4 | SH}, {0, G | L | S}}, 3, {}, "d.d.", 2},
    {"the same object through a set and directly stands once", {{0, L | S | 5}, {0, L | 5}}, 2, {}, ".d", 1},
    {"the same object, the upper shared, passes the share down", {{0, L | 5}, {0, L | 5 | SH}}, 2, {}, "sd", 1},
    {"the same object, both shared, keeps the count", {{0, L | 5 | SH}, {0, L | 5 | SH}}, 1, {}, "sd", 1},
    {"two objects of one light become shared and count once", {{0, L | 0}, {0, L | 1}, {0, L | S | 2}, {1, L | 1}}, 4, {},
     "sss.", 2},
};

TEST(LightLinkRules, CollectionsOfSeveralEntries) {
    for (const CollectionRow& row : kCollectionRows) {
        SCOPED_TRACE(row.name);
        Entries e;
        for (const Entry& entry : row.entries) e.add(entry.light, entry.flags);
        e.count = row.count;
        for (const Entry& ignore : row.ignores) e.ignore(ignore.light, ignore.flags);
        if (row.ignores.empty()) {
            e.removeDuplicates();
        } else {
            e.removeIgnored();
        }
        for (unsigned i = 0; i < row.entries.size(); ++i) {
            EXPECT_EQ(e.dead(i), row.after[i] == 'd') << "entry " << i;
            if (row.after[i] != 'd') {
                EXPECT_EQ(e.shared(i), row.after[i] == 's') << "entry " << i;
            }
        }
        EXPECT_EQ(e.count, row.countAfter);
    }
}

TEST(LightLinkCompaction, RowsFollowTheLiveEntries) {
    Entries e;
    e.add(1, L | 2);
    e.add(0, G);
    e.add(2, L | 0 | E::kDead);
    e.add(2, L | 1);
    e.add(1, L | 9);  // names no object of the group
    TlightEntries::Table t = TlightEntries::compact(e.lights, e.flags, 3);
    ASSERT_EQ(t.lights.size(), 3u);
    EXPECT_EQ(t.lights[0], e.node(1));  // in the order of the first live entry
    EXPECT_EQ(t.lights[1], e.node(0));
    EXPECT_EQ(t.lights[2], e.node(2));
    ASSERT_EQ(t.rows.size(), 3u);
    const bool expected[3][3] = {{false, true, false}, {false, true, true}, {true, true, false}};
    for (unsigned o = 0; o < 3; ++o)
        for (unsigned p = 0; p < 3; ++p) EXPECT_EQ(t.rows[o].test(p), expected[o][p]) << o << "," << p;
}

// Random collections in the order the group builds them (group entries
// first, then per-object ones): after both rules the count equals the
// number of distinct live lights, no light stands twice for one object, and
// no per-object entry survives beside a group entry of its light.
TEST(LightLinkRules, CountMatchesTheLiveLightsOverRandomCollections) {
    std::mt19937 random(12345);
    for (int trial = 0; trial < 400; ++trial) {
        Entries e;
        const int groupEntries = int(random() % 3), objectEntries = int(random() % 7), ignores = int(random() % 4);
        for (int i = 0; i < groupEntries; ++i) e.add(random() % 3, G | ((random() & 1) ? L | S : 0));
        for (int i = 0; i < objectEntries; ++i) e.add(random() % 3, L | ((random() & 1) ? S : 0) | (random() % 3));
        for (int i = 0; i < ignores; ++i)
            e.ignore(random() % 3, (random() & 1) ? G | L : (L | ((random() & 1) ? S : 0) | (random() % 3)));
        e.removeIgnored();
        e.removeDuplicates();
        std::set<TdependNode*> live;
        std::set<std::pair<TdependNode*, uint32_t>> perObject;
        std::set<TdependNode*> wholeGroup;
        for (unsigned i = 0; i < e.lights.length(); ++i) {
            if (e.dead(i)) continue;
            TdependNode* n = e.lights[i]->node();
            live.insert(n);
            if (E::isWholeGroup(e.flags[i])) {
                EXPECT_TRUE(wholeGroup.insert(n).second) << "trial " << trial;
            } else {
                EXPECT_TRUE(perObject.insert({n, E::objectOf(e.flags[i])}).second) << "trial " << trial;
            }
        }
        for (auto& [n, object] : perObject) EXPECT_EQ(wholeGroup.count(n), 0u) << "trial " << trial;
        EXPECT_EQ(e.count, int(live.size())) << "trial " << trial;
    }
}

}  // namespace
