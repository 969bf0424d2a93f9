#pragma once
// Checks of file names made the same way by every entry point (the program,
// the bindings, the swatch renderer), so that their messages agree.
#include <string>

// Why `path` cannot be read as an input file ("No such file or
// directory", "is a directory"); empty when it can be opened.
std::string unreadableInput(const std::string& path);
// True when the two names reach the same file, however spelled (links,
// "..", "./"), whether or not it exists yet.
bool sameFile(const std::string& a, const std::string& b);
