#pragma once
// Tmetaclass: run-time class information of the host. Every node class and
// every attribute class has one; `istype` walks the parents, `construct`
// makes an instance through the class's construct function.
#include <cstddef>
#include <cstdint>

class Tmetaclass {
public:
    using ConstructFunction = void* (*)();

    Tmetaclass(Tmetaclass** slot, const char* typeName, size_t instanceSize, ConstructFunction construct,
               uint32_t iffTag, bool abstractClass, Tmetaclass* parent1, Tmetaclass* parent2 = nullptr);
    ~Tmetaclass();
    Tmetaclass(const Tmetaclass&) = delete;
    Tmetaclass& operator=(const Tmetaclass&) = delete;

    const char* typeName() const { return fTypeName; }
    size_t instanceSize() const { return fInstanceSize; }
    uint32_t iffTag() const { return fIffTag; }
    Tmetaclass* parent1() const { return fParent1; }
    Tmetaclass* parent2() const { return fParent2; }

    // True when this class is `other` or derives from it.
    bool istype(const Tmetaclass* other) const;
    // An instance of the class named by `meta`, which must be this class or
    // one derived from it; null otherwise or when the class is abstract.
    void* construct(const Tmetaclass* meta) const;
    void* construct() const { return fConstruct ? fConstruct() : nullptr; }

private:
    Tmetaclass** fSlot;
    const char* fTypeName;
    size_t fInstanceSize;
    ConstructFunction fConstruct;
    uint32_t fIffTag;
    Tmetaclass* fParent1;
    Tmetaclass* fParent2;
};
