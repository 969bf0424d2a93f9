#pragma once
// One problem found in a scene file: where it is and what is wrong.
#include <string>

struct TsceneError {
    std::string file;
    unsigned line = 0;    // 1-based; 0 when the problem has no place (an unreadable file)
    unsigned column = 0;  // 1-based, in bytes
    std::string message;

    // "file:line:column: message", or "file: message" without a place.
    std::string text() const;
};
