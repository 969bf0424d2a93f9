#pragma once
// Attribute groups of the texture nodes whose children do not follow the
// naming convention of framework/host/attribute_groups.h (outColor's children
// are tagged ORED, OGRE, OBLU; colorGain's GANR, GANG, GANB).
#include "framework/host/attribute.h"

struct TnamedTripleAttribute {
    struct Child {
        const char* longName;
        const char* shortName;
        TiffTag tag;
    };
    TnamedTripleAttribute(const char* longName, const char* shortName, TiffTag tag, Child a, Child b, Child c)
        : whole(longName, shortName, tag), c0(a.longName, a.shortName, a.tag), c1(b.longName, b.shortName, b.tag),
          c2(c.longName, c.shortName, c.tag) {
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
};
