#pragma once
// Tplug: one attribute instance on one node; for an array attribute (or a
// child of one) the logical element index, or none for the whole array.
#include <cstdint>

#include "framework/host/array.h"

class TdependNode;
class Tattribute;
class TdgContext;

class Tplug {
public:
    static constexpr int kNoIndex = -1;
    enum : uint8_t { kArrayPlug = 1u << 2, kBranchingNet = 1u << 3, kAllElements = 1u << 7 };

    Tplug() = default;
    Tplug(TdependNode* node, const Tattribute* attribute, bool allElements = false);
    Tplug(TdependNode* node, const Tattribute* attribute, int multiIndex);

    TdependNode* node() const { return fNode; }
    const Tattribute* attribute() const { return fAttribute; }
    bool isNull() const { return !fNode || !fAttribute; }
    uint8_t flags() const { return fFlags; }
    bool isArray() const { return fFlags & kArrayPlug; }
    bool isBranchingNet() const { return fFlags & kBranchingNet; }

    // The logical index of the array attribute `a` (this plug's attribute or
    // an ancestor of it), or kNoIndex.
    int multiIndex(const Tattribute* a = nullptr) const;
    void setMultiIndex(const Tattribute* a, unsigned index);
    bool hasIndex() const { return fIndex != kNoIndex; }
    int index() const { return fIndex; }
    // The array attribute that owns the index: the attribute or its ancestor.
    const Tattribute* arrayAttribute() const;

    // Moves to the child attribute `child` (same index) or to the parent.
    void becomeChild(const Tattribute* child);
    void becomeParent();
    Tplug child(unsigned i) const;
    Tplug parent() const;
    // The n-th element of an array plug.
    Tplug operator[](unsigned logicalIndex) const;

    bool isSource() const;
    bool isDestination() const;
    bool isChildSource() const;
    bool isChildDestination() const;
    // The one plug this is connected to, or null: as destination gives its
    // source, as source its first destination. The caller owns the result.
    Tplug* connectedTo(bool asDestination, bool asSource) const;
    bool connectedTo(TplugArray& plugs, bool asDestination, bool asSource) const;

    void destroyCache(TdgContext*) {}
    const char* name(char* buffer, unsigned size) const;  // "node.attr[3]"

    friend bool operator==(const Tplug& a, const Tplug& b) {
        return a.fNode == b.fNode && a.fAttribute == b.fAttribute && a.fIndex == b.fIndex;
    }
    friend bool operator!=(const Tplug& a, const Tplug& b) { return !(a == b); }

private:
    void refreshFlags();
    TdependNode* fNode = nullptr;
    const Tattribute* fAttribute = nullptr;
    int fIndex = kNoIndex;
    uint8_t fFlags = 0;
};
