#pragma once
// Helpers shared by the render settings nodes, whose tables are long lists
// of plain stored values.
#include <initializer_list>
#include <utility>

#include "framework/host/attribute.h"
#include "framework/host/depend_node.h"

// A settings attribute's tag is its short name in capitals, cut or padded
// with "_" to four letters ("ra" is "RA__", "imfkey" is "IMFK"). Short names
// are unique in a class and no two of them share their first four letters,
// so neither do the tags.
constexpr TiffTag settingsTag(const char* shortName) {
    char t[4] = {'_', '_', '_', '_'};
    for (int i = 0; i < 4 && shortName[i]; ++i) {
        const char c = shortName[i];
        t[i] = (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c;
    }
    return TiffTag((uint32_t(uint8_t(t[0])) << 24) | (uint32_t(uint8_t(t[1])) << 16) | (uint32_t(uint8_t(t[2])) << 8) |
                   uint32_t(uint8_t(t[3])));
}

// Declares a member attribute of a settings description.
#define SN_SETTING(Type, member, shortName) Type member{#member, shortName, settingsTag(shortName)};

// Fills an enumeration with (label, key) entries numbered from 0.
inline void addSettingFields(TattributeEnum& e, std::initializer_list<std::pair<const char*, const char*>> entries) {
    short value = 0;
    for (auto [label, key] : entries) e.addField(key, label, value++);
}
