#pragma once
// Compound attributes with their children, declared as one member of a
// description: the parent first, then the children, which is the order the
// class's attribute list needs. Children follow the naming convention:
// long name + suffix, short name + lower-case suffix, the tag with its last
// letter replaced ("RPO3" gives "RPOX", "RPOY", "RPOZ").
#include <cctype>
#include <string>

#include "framework/host/attribute.h"


struct TtripleAttribute {
    // `childShort` names the children's short names where they do not follow
    // the convention.
    TtripleAttribute(const char* longName, const char* shortName, TiffTag tag, const char* suffixes = "XYZ",
                     const char* const* childShort = nullptr)
        : whole(longName, shortName, tag),
          c0(childName(longName, suffixes[0]), childShortName(shortName, suffixes[0], childShort, 0), tag.withLast(suffixes[0])),
          c1(childName(longName, suffixes[1]), childShortName(shortName, suffixes[1], childShort, 1), tag.withLast(suffixes[1])),
          c2(childName(longName, suffixes[2]), childShortName(shortName, suffixes[2], childShort, 2), tag.withLast(suffixes[2])) {
        c0.setParent(&whole);
        c1.setParent(&whole);
        c2.setParent(&whole);
    }
    void setDefault(float a, float b, float c) { whole.setNativeDefaultData(a, b, c); }
    void setFlag(uint64_t bits, bool on) {
        for (Tattribute* a : {static_cast<Tattribute*>(&whole), static_cast<Tattribute*>(&c0), static_cast<Tattribute*>(&c1),
                              static_cast<Tattribute*>(&c2)})
            a->setFlag(bits, on);
    }

    Tattribute3Float whole;
    TattributeFloat c0, c1, c2;

private:
    static std::string childName(const char* name, char suffix) { return std::string(name) + suffix; }
    static std::string childShortName(const char* name, char suffix, const char* const* given, int i) {
        if (given) return given[i];
        return std::string(name) + char(std::tolower(static_cast<unsigned char>(suffix)));
    }
};

struct TcolorAttribute : TtripleAttribute {
    TcolorAttribute(const char* longName, const char* shortName, TiffTag tag) : TtripleAttribute(longName, shortName, tag, "RGB") {}
};
struct TvectorAttribute : TtripleAttribute {
    TvectorAttribute(const char* longName, const char* shortName, TiffTag tag) : TtripleAttribute(longName, shortName, tag, "XYZ") {}
};

// A pair such as uvCoord with uCoord and vCoord, named explicitly.
struct TpairAttribute {
    TpairAttribute(const char* longName, const char* shortName, TiffTag tag, const char* long0, const char* short0, TiffTag tag0,
                   const char* long1, const char* short1, TiffTag tag1)
        : whole(longName, shortName, tag), c0(long0, short0, tag0), c1(long1, short1, tag1) {
        c0.setParent(&whole);
        c1.setParent(&whole);
    }
    void setDefault(float a, float b) { whole.setNativeDefaultData(a, b); }
    Tattribute2Float whole;
    TattributeFloat c0, c1;
};
