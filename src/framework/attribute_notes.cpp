#include "framework/attribute_notes.h"

#include <map>
#include <sstream>

#include "framework/host/depend_node.h"

namespace {
struct Note {
    std::string description, unit, range;
};
// Type name, then attribute name. Built from static initialisers only.
std::map<std::string, std::map<std::string, Note>>& notesByType() {
    static std::map<std::string, std::map<std::string, Note>> notes;
    return notes;
}

std::string numberText(double v) {
    std::ostringstream out;
    out << v;
    return out.str();
}
}  // namespace

TattributeNotes::TattributeNotes(std::initializer_list<const char*> typeNames, std::initializer_list<TattributeNote> notes) {
    for (const char* type : typeNames)
        for (const TattributeNote& n : notes) notesByType()[type][n.attribute] = {n.description, n.unit, n.range};
}

TattributeDescription describeAttribute(const TdependNodeMetaClass& type, const Tattribute& attribute) {
    TattributeDescription d{"-", "-", "-"};
    auto noteOf = [&](const Tattribute& a) -> const Note* {
        auto t = notesByType().find(type.fTypeName().str());
        if (t == notesByType().end()) return nullptr;
        auto found = t->second.find(a.longName().str());
        return found == t->second.end() ? nullptr : &found->second;
    };
    const Note* note = noteOf(attribute);
    if (!note && attribute.parent()) {
        // A child (colorR of color) shares its parent's unit and range.
        if (const Note* parent = noteOf(*attribute.parent())) {
            d.description = "part of " + attribute.parent()->longName().str();
            if (!parent->unit.empty()) d.unit = parent->unit;
            if (!parent->range.empty()) d.range = parent->range;
        }
    }
    if (note) {
        d.description = note->description;
        if (!note->unit.empty()) d.unit = note->unit;
        if (!note->range.empty()) d.range = note->range;
    }
    if (d.range == "-" && (attribute.hasSoftMin() || attribute.hasSoftMax()))
        d.range = (attribute.hasSoftMin() ? numberText(attribute.softMin()) : "") + ".." +
                  (attribute.hasSoftMax() ? numberText(attribute.softMax()) : "");
    return d;
}
