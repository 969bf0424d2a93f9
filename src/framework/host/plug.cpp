#include "framework/host/plug.h"

#include <cstdio>

#include "framework/host/depend_node.h"

Tplug::Tplug(TdependNode* node, const Tattribute* attribute, bool allElements) : fNode(node), fAttribute(attribute) {
    refreshFlags();
    if (allElements && (fFlags & kArrayPlug)) fFlags |= kAllElements;
}

Tplug::Tplug(TdependNode* node, const Tattribute* attribute, int multiIndex)
    : fNode(node), fAttribute(attribute), fIndex(multiIndex) {
    refreshFlags();
}

void Tplug::refreshFlags() {
    fFlags = 0;
    if (fAttribute && fAttribute->rootParent()->isArray() && fIndex == kNoIndex) fFlags |= kArrayPlug;
}

const Tattribute* Tplug::arrayAttribute() const {
    for (const Tattribute* a = fAttribute; a; a = a->parent())
        if (a->isArray()) return a;
    return nullptr;
}

int Tplug::multiIndex(const Tattribute* a) const {
    if (a && a != arrayAttribute()) return kNoIndex;
    return fIndex;
}

void Tplug::setMultiIndex(const Tattribute* a, unsigned index) {
    if (a && a != arrayAttribute()) return;
    fIndex = int(index);
    refreshFlags();
}

void Tplug::becomeChild(const Tattribute* child) {
    if (child && child->parent() == fAttribute) fAttribute = child;
    refreshFlags();
}

void Tplug::becomeParent() {
    if (fAttribute && fAttribute->parent()) {
        fAttribute = fAttribute->parent();
        refreshFlags();
    }
}

Tplug Tplug::child(unsigned i) const {
    Tplug p = *this;
    if (fAttribute && i < fAttribute->childCount()) p.becomeChild(fAttribute->child(i));
    return p;
}

Tplug Tplug::parent() const {
    Tplug p = *this;
    p.becomeParent();
    return p;
}

Tplug Tplug::operator[](unsigned logicalIndex) const { return Tplug(fNode, fAttribute, int(logicalIndex)); }

bool Tplug::isSource() const {
    if (isNull()) return false;
    std::vector<Tplug> out;
    fNode->destinationsOf(*this, out);
    return !out.empty();
}

bool Tplug::isDestination() const { return !isNull() && fNode->sourceOf(*this) != nullptr; }

bool Tplug::isChildSource() const {
    for (unsigned i = 0; fAttribute && i < fAttribute->childCount(); ++i) {
        Tplug c = child(i);
        if (c.isSource() || c.isChildSource()) return true;
    }
    return false;
}

bool Tplug::isChildDestination() const {
    for (unsigned i = 0; fAttribute && i < fAttribute->childCount(); ++i) {
        Tplug c = child(i);
        if (c.isDestination() || c.isChildDestination()) return true;
    }
    return false;
}

Tplug* Tplug::connectedTo(bool asDestination, bool asSource) const {
    if (isNull()) return nullptr;
    if (asDestination)
        if (const Tplug* s = fNode->sourceOf(*this)) return new Tplug(*s);
    if (asSource) {
        std::vector<Tplug> out;
        fNode->destinationsOf(*this, out);
        if (!out.empty()) return new Tplug(out.front());
    }
    return nullptr;
}

bool Tplug::connectedTo(TplugArray& plugs, bool asDestination, bool asSource) const {
    if (isNull()) return false;
    unsigned before = plugs.length();
    if (asDestination)
        if (const Tplug* s = fNode->sourceOf(*this)) plugs.append(new Tplug(*s));
    if (asSource) {
        std::vector<Tplug> out;
        fNode->destinationsOf(*this, out);
        for (auto& d : out) plugs.append(new Tplug(d));
    }
    return plugs.length() > before;
}

const char* Tplug::name(char* buffer, unsigned size) const {
    if (isNull()) {
        std::snprintf(buffer, size, "<null>");
        return buffer;
    }
    // Array index after the array attribute, children after it.
    std::string path;
    for (const Tattribute* a = fAttribute; a; a = a->parent()) {
        std::string part = a->longName().str();
        if (a->isArray() && fIndex != kNoIndex) part.append(1, '[').append(std::to_string(fIndex)).append(1, ']');
        path = path.empty() ? part : part + "." + path;
    }
    std::snprintf(buffer, size, "%s.%s", fNode->name().asC(), path.c_str());
    return buffer;
}
