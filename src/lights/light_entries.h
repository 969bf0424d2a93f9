#pragma once
// The working form of a group's light collection: parallel arrays of light
// plugs and flag words, a running count of distinct live lights, and the
// rules that remove ignored and repeated entries. The shading group fills
// the arrays from the scene's links; the rules here need nothing else, so
// they can be exercised on arrays built by hand.
#include <cstdint>
#include <vector>

#include "framework/host/array.h"
#include "framework/host/bit_field.h"
#include "framework/host/plug.h"

class TdependNode;

class TlightEntries {
public:
    // Bits of an entry's flag word.
    static constexpr uint32_t kWholeGroup = 0x80000000u;  // applies to every object of the group
    static constexpr uint32_t kFromLink = 0x40000000u;    // came through a link node or set; the plug is the group's
    static constexpr uint32_t kDead = 0x20000000u;        // removed by a later rule, still in the arrays
    static constexpr uint32_t kShared = 0x10000000u;      // one light standing for several objects, counted once
    static constexpr uint32_t kThroughSet = 0x08000000u;  // linked through an object set or a light set
    static constexpr uint32_t kObjectMask = 0x07FFFFFFu;  // the object's index of a per-object entry

    static bool isWholeGroup(uint32_t f) { return f & kWholeGroup; }
    static bool isDead(uint32_t f) { return f & kDead; }
    static bool isShared(uint32_t f) { return f & kShared; }
    static uint32_t objectOf(uint32_t f) { return f & kObjectMask; }

    // Whether an ignore with flags `ignore` removes an entry with flags
    // `entry` of the same light: group ignores remove group entries and
    // per-object entries that came through a set; a per-object ignore
    // removes the same object's entry unless the entry is a direct link and
    // the ignore came through a set.
    static bool ignoreCovers(uint32_t entry, uint32_t ignore);

    // Marks dead each live entry that an ignored plug covers, last first.
    static void removeIgnored(TplugArray& lights, TuInt32Array& flags, const TplugArray& ignored,
                              const TuInt32Array& ignoredFlags, int& count);
    // Collapses entries of one light: a group entry absorbs per-object ones,
    // two entries of one object become one, and entries of several objects
    // become shared and count once.
    static void removeDuplicates(TplugArray& lights, TuInt32Array& flags, int& count);

    // The compacted result: the distinct light nodes of the live entries in
    // the order of their first entry, and per object a row of bits over
    // them. A group entry lights every object; a per-object entry only the
    // one it names (objects at or beyond `objectCount` are dropped).
    struct Table {
        std::vector<TdependNode*> lights;
        std::vector<TbitFieldFixedN> rows;
    };
    static Table compact(const TplugArray& lights, const TuInt32Array& flags, unsigned objectCount);

private:
    static bool samePlug(const Tplug* a, const Tplug* b) { return a == b || (a && b && *a == *b); }
    static bool anySharedAlive(const TplugArray& lights, const TuInt32Array& flags, unsigned like);
};
