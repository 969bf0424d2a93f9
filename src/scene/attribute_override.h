#pragma once
// Attribute edits given beside a scene file, as NODE.ATTR=VALUE: the
// render command's --set and the Python module's set. VALUE is written as in
// the scene file ("0.5", "[1, 0, 0]", "true", "\"text\""); text that is not
// JSON is taken as a string, so enumeration fields and file names need no
// quotes ("ramp1.type=kURamp", "file1.fileTextureName=maps/wood.png").
#include <string>
#include <vector>

class TdependGraph;

struct TattributeOverride {
    std::string node, attribute, value;
    std::string text;  // as given, for messages
};

// Splits "NODE.ATTR=VALUE" at the first '=' and the first '.' before it;
// the attribute may be a child ("cup.translateX"). False with the reason.
bool parseAttributeOverride(const std::string& text, TattributeOverride& parsed, std::string& why);

// Sets the value with the checks a scene file's value gets. False with
// messages of the form "--set TEXT: <what>" (`origin` is "--set" on the
// command line); a refused edit changes nothing.
bool applyAttributeOverride(TdependGraph& graph, const TattributeOverride& edit, const std::string& origin,
                            std::vector<std::string>& errors);

// Parses and applies each edit in turn; every problem is collected.
bool applyAttributeOverrides(TdependGraph& graph, const std::vector<std::string>& edits, const std::string& origin,
                             std::vector<std::string>& errors);
