#pragma once
// Where each value of a JSON text starts, as line and column, in a tree that
// mirrors the document: the i-th item of an array or the i-th member of an
// object (in text order) is items[i]. The parser we use keeps no positions,
// so the loader walks this tree beside the parsed document to say where a
// bad value is.
#include <string>
#include <string_view>
#include <vector>

struct TtextPosition {
    unsigned line = 0;    // 1-based; 0 means unknown
    unsigned column = 0;  // 1-based, in bytes
};

struct TjsonPositions {
    TtextPosition at;                // the first character of the value
    std::vector<TtextPosition> keys; // objects: where each member's key starts
    std::vector<std::string> names;  // objects: each member's key
    std::vector<TjsonPositions> items;

    // Indexes a text that has already been accepted by a JSON parser. Returns
    // false, with the place and the key, when an object repeats a key.
    static bool index(std::string_view text, TjsonPositions& root, TtextPosition* duplicateAt = nullptr,
                      std::string* duplicateKey = nullptr);
};

// Turns a byte offset into a line and column.
TtextPosition textPositionOf(std::string_view text, size_t offset);

// Where a JSON text first opens an array or object nested deeper than
// `maxDepth`, or line 0 when it never does. Brackets inside strings do not
// count.
TtextPosition firstTooDeep(std::string_view text, unsigned maxDepth);

// Where a JSON text first holds a number too large for a double (1e400),
// which the parser refuses without saying where, or line 0 when it holds
// none. Numbers inside strings do not count. `number` gets its text.
TtextPosition firstNumberBeyondDouble(std::string_view text, std::string* number = nullptr);
