#include "lights/light_entries.h"

#include <algorithm>

bool TlightEntries::ignoreCovers(uint32_t entry, uint32_t ignore) {
    if (isWholeGroup(entry)) return isWholeGroup(ignore);
    // A direct link to an object wins over an ignore of the whole group.
    if (isWholeGroup(ignore)) return entry & kThroughSet;
    // An ignore through a set does not undo a direct link.
    return objectOf(entry) == objectOf(ignore) && ((entry & kThroughSet) || !(ignore & kThroughSet));
}

bool TlightEntries::anySharedAlive(const TplugArray& lights, const TuInt32Array& flags, unsigned like) {
    for (unsigned m = 0; m < lights.length(); ++m)
        if (isShared(flags[m]) && !isDead(flags[m]) && samePlug(lights[m], lights[like])) return true;
    return false;
}

void TlightEntries::removeIgnored(TplugArray& lights, TuInt32Array& flags, const TplugArray& ignored,
                                  const TuInt32Array& ignoredFlags, int& count) {
    const unsigned ignoredCount = std::min(ignored.length(), ignoredFlags.length());
    for (unsigned i = lights.length(); i-- > 0;) {
        if (isDead(flags[i])) continue;
        for (unsigned k = ignoredCount; k-- > 0;) {
            if (!samePlug(lights[i], ignored[k]) || !ignoreCovers(flags[i], ignoredFlags[k])) continue;
            const bool wasShared = isShared(flags[i]);
            flags[i] |= kDead;
            if (!wasShared) {
                --count;
            } else {
                // The light stands for several objects and was counted once:
                // the other objects that this ignore also covers go with it,
                // and the light leaves the count with its last entry.
                for (unsigned m = 0; m < lights.length(); ++m)
                    if (m != i && isShared(flags[m]) && !isDead(flags[m]) && samePlug(lights[m], lights[i]) &&
                        ignoreCovers(flags[m], ignoredFlags[k]))
                        flags[m] |= kDead;
                if (!anySharedAlive(lights, flags, i)) --count;
            }
            break;
        }
    }
}

void TlightEntries::removeDuplicates(TplugArray& lights, TuInt32Array& flags, int& count) {
    auto killShared = [&](unsigned like, unsigned below) {
        for (unsigned m = 0; m < below; ++m)
            if (isShared(flags[m]) && !isDead(flags[m]) && samePlug(lights[m], lights[like])) flags[m] |= kDead;
    };
    for (unsigned i = lights.length(); i-- > 0;) {
        if (isDead(flags[i])) continue;
        for (unsigned j = i; j-- > 0 && !isDead(flags[i]);) {
            if (isDead(flags[j]) || !samePlug(lights[i], lights[j])) continue;
            if (isWholeGroup(flags[j])) {
                // The group entry stands for everything below it.
                const bool wasShared = isShared(flags[i]);
                flags[i] |= kDead;
                if (wasShared) killShared(i, lights.length());
                --count;
            } else if (isWholeGroup(flags[i])) {
                flags[j] |= kDead;
                killShared(i, j);
                --count;
            } else if (objectOf(flags[i]) == objectOf(flags[j])) {
                const bool wasShared = isShared(flags[i]);
                flags[i] |= kDead;
                if (!wasShared) {
                    --count;
                } else {
                    if (!isShared(flags[j])) --count;
                    flags[j] |= kShared;
                }
            } else {
                // Two objects, one light: it counts once.
                if (!isShared(flags[j])) --count;
                flags[i] |= kShared;
                flags[j] |= kShared;
            }
        }
    }
}

TlightEntries::Table TlightEntries::compact(const TplugArray& lights, const TuInt32Array& flags, unsigned objectCount) {
    Table table;
    std::vector<std::pair<unsigned, uint32_t>> live;  // (light position, flags)
    const unsigned n = std::min(lights.length(), flags.length());
    for (unsigned i = 0; i < n; ++i) {
        if (isDead(flags[i]) || !lights[i] || !lights[i]->node()) continue;
        TdependNode* node = lights[i]->node();
        auto it = std::find(table.lights.begin(), table.lights.end(), node);
        unsigned position = unsigned(it - table.lights.begin());
        if (it == table.lights.end()) table.lights.push_back(node);
        live.emplace_back(position, flags[i]);
    }
    table.rows.assign(objectCount, TbitFieldFixedN(unsigned(table.lights.size())));
    for (auto [position, f] : live) {
        if (isWholeGroup(f)) {
            for (TbitFieldFixedN& row : table.rows) row.set(position);
        } else if (objectOf(f) < objectCount) {
            table.rows[objectOf(f)].set(position);
        }
    }
    return table;
}
