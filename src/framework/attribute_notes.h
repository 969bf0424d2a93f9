#pragma once
// What an attribute means to a scene author: one line of description, its
// unit and its useful range. Each family of classes keeps a table of notes
// beside its attribute tables and registers it at load for the node types
// it covers. A class without notes still lists every attribute; its columns
// are then filled from the attribute itself (soft range) or left as "-".
#include <initializer_list>
#include <string>

class Tattribute;
class TdependNodeMetaClass;

struct TattributeNote {
    const char* attribute;    // long name
    const char* description;  // one line
    const char* unit;         // "degrees", "scene units", "colour" ...; "" when none
    const char* range;        // "0..1", "> 0" ...; "" to take the attribute's soft range
};

// Registers notes for every type named; a later note of the same attribute
// and type replaces an earlier one, so a family can note shared attributes
// once and a class refine them.
struct TattributeNotes {
    TattributeNotes(std::initializer_list<const char*> typeNames, std::initializer_list<TattributeNote> notes);
};

struct TattributeDescription {
    std::string description;  // "-" when there is no note
    std::string unit;         // "-" when there is none
    std::string range;        // the note's, else the soft range "0..1", else "-"
};

TattributeDescription describeAttribute(const TdependNodeMetaClass& type, const Tattribute& attribute);
