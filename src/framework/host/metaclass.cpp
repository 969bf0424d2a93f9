#include "framework/host/metaclass.h"

Tmetaclass::Tmetaclass(Tmetaclass** slot, const char* typeName, size_t instanceSize, ConstructFunction construct,
                       uint32_t iffTag, bool abstractClass, Tmetaclass* parent1, Tmetaclass* parent2)
    : fSlot(slot),
      fTypeName(typeName),
      fInstanceSize(instanceSize),
      fConstruct(abstractClass ? nullptr : construct),
      fIffTag(iffTag),
      fParent1(parent1),
      fParent2(parent2) {
    if (fSlot) *fSlot = this;
}

Tmetaclass::~Tmetaclass() {
    if (fSlot && *fSlot == this) *fSlot = nullptr;
}

bool Tmetaclass::istype(const Tmetaclass* other) const {
    if (!other) return false;
    if (this == other) return true;
    return (fParent1 && fParent1->istype(other)) || (fParent2 && fParent2->istype(other));
}

void* Tmetaclass::construct(const Tmetaclass* meta) const {
    if (!meta || !meta->istype(this)) return nullptr;
    return meta->construct();
}
