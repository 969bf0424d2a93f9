#pragma once
// Attributes: the static description of one attribute of a node class, with
// its flag word, names, tag, default, range hints and place in a compound.
// One subclass per value type; each has a metaclass that analysis compares.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "framework/host/bit_field.h"
#include "framework/host/iff_tag.h"
#include "framework/host/math.h"
#include "framework/host/metaclass.h"
#include "framework/host/tstring.h"

// Bits of the attribute flag word.
enum TattributeFlag : uint64_t {
    kAttrReadable = 1ull << 0,          // may be the source of a connection
    kAttrWritable = 1ull << 1,          // may be a destination
    kAttrArray = 1ull << 2,             // multi
    kAttrImplicitInput = 1ull << 3,     // filled from the sample when unconnected
    kAttrStorable = 1ull << 5,
    kAttrComputeDependent = 1ull << 8,  // with kAttrWritable: analysis treats as compute-dependent
    kAttrNeedsConstruction = 1ull << 11,
    kAttrComputed = 1ull << 12,         // computed output
    kAttrKeyable = 1ull << 13,
    kAttrHandle = 1ull << 15,           // reached through a handle, not held in the block
    kAttrCompound = 1ull << 16,
    kAttrSampleOutput = 1ull << 20,     // with readable and computed: stands for the sample item of its name
    kAttrHidden = 1ull << 24,
    kAttrHasSoftMin = 0x80000ull << 32,
    kAttrHasSoftMax = 0x100000ull << 32,
};

enum class TvalueType : uint8_t {
    kFloat, kDouble, kInt16, kInt32, kChar, kBoolean, kEnum, kAddr, kTime, kMessage, kMatrix, kFltMatrix,
    kLightData, kString, kAny, k2Float, k3Float, k2Int16, kCompound, kFloatLinear, kDoubleAngle,
};
const char* valueTypeName(TvalueType type);
// Scalar numbers that convert into one another through a connection.
bool isNumericType(TvalueType type);

class Tattribute {
public:
    Tattribute(const Tstring& longName, const Tstring& shortName, TiffTag tag, TvalueType type, unsigned size);
    virtual ~Tattribute();
    Tattribute(const Tattribute&) = delete;
    Tattribute& operator=(const Tattribute&) = delete;

    virtual Tmetaclass* typeof() const = 0;

    const Tstring& longName() const { return fLongName; }
    const Tstring& shortName() const { return fShortName; }
    // The name used for sample matching: the long name unless one was given.
    const Tstring& matchName() const { return fMatchName.isEmpty() ? fLongName : fMatchName; }
    void setMatchName(const Tstring& name) { fMatchName = name; }
    TiffTag tag() const { return fTag; }
    TvalueType valueType() const { return fType; }

    uint64_t flags() const { return fFlags; }
    void setFlags(uint64_t flags) { fFlags = flags; }
    void setFlag(uint64_t bits, bool on) { fFlags = on ? (fFlags | bits) : (fFlags & ~bits); }
    bool isReadable() const { return fFlags & kAttrReadable; }
    bool isWritable() const { return fFlags & kAttrWritable; }
    bool isArray() const { return fFlags & kAttrArray; }
    bool isCompound() const { return fFlags & kAttrCompound; }
    bool isComputed() const { return fFlags & kAttrComputed; }

    // Place in the class: set when the attribute joins a node class's list.
    uint16_t index() const { return fIndex; }
    void setIndex(uint16_t index) { fIndex = index; }
    uint16_t offsetInParent() const { return fOffsetInParent; }
    // Bytes of one value in a block (an array attribute: of one element).
    unsigned size() const { return fSize; }

    Tattribute* parent() const { return fParent; }
    void setParent(Tattribute* parent);
    // Inline: every node's compute asks it of the plug it is given.
    const Tattribute* rootParent() const {
        const Tattribute* a = this;
        while (a->fParent) a = a->fParent;
        return a;
    }
    bool isDescendentOf(const Tattribute& other) const;
    unsigned childCount() const { return unsigned(fChildren.size()); }
    Tattribute* child(unsigned i) const { return fChildren[i]; }
    // Lays the children out in the parent's value; a compound's size is the
    // sum of its children, each aligned to its own size up to 8.
    void layoutChildren();

    void setMulti(bool on) { setFlag(kAttrArray, on); }
    void setIndexMatters(bool on) { fIndexMatters = on; }
    bool indexMatters() const { return fIndexMatters; }
    void setChildIsMulti(bool on) { fChildIsMulti = on; }
    void setParentIsMulti(bool on) { fParentIsMulti = on; }
    bool parentIsMulti() const;
    void setComputeModifies(bool on) { setFlag(kAttrComputed, on); }
    void setDisconnectOption(unsigned option) { fDisconnectOption = option; }
    unsigned disconnectOption() const { return fDisconnectOption; }
    // An input the sample fills: not a source of its own, nothing stored.
    void makeImplicitInput();

    void setSoftMin(double v) { fSoftMin = v; fFlags |= kAttrHasSoftMin; }
    void setSoftMax(double v) { fSoftMax = v; fFlags |= kAttrHasSoftMax; }
    bool hasSoftMin() const { return fFlags & kAttrHasSoftMin; }
    bool hasSoftMax() const { return fFlags & kAttrHasSoftMax; }
    double softMin() const { return fSoftMin; }
    double softMax() const { return fSoftMax; }

    const Tstring& resourceName() const { return fResourceName; }
    void setResourceName(const Tstring& name) { fResourceName = name; }

    // Value operations on raw storage of size().
    virtual void constructValue(void* value) const;
    virtual void destructValue(void* value) const;
    virtual void copyValue(void* to, const void* from) const;
    void copyDefaultValue(void* to) const { copyValue(to, defaultData()); }
    bool isDefaultValue(const void* value) const;
    virtual bool valuesEqual(const void* a, const void* b) const;
    const void* defaultData() const;

    // Default as native data; the overloads store into the default by type.
    void setNativeDefaultData(double v);
    void setNativeDefaultData(float a, float b);
    void setNativeDefaultData(float a, float b, float c);
    void setNativeDefaultData(const Tstring& text);
    void setDefaultBytes(const void* data, unsigned size);

    // Reads and writes a scalar value of any numeric type as a double.
    double numericValue(const void* value) const;
    void setNumericValue(void* value, double v) const;

protected:
    void resizeValue(unsigned size);

private:
    friend class TattributeList;
    Tstring fLongName, fShortName, fMatchName, fResourceName;
    TiffTag fTag;
    TvalueType fType;
    uint64_t fFlags;
    uint16_t fIndex = 0xFFFF;
    uint16_t fOffsetInParent = 0;
    unsigned fSize;
    Tattribute* fParent = nullptr;
    std::vector<Tattribute*> fChildren;
    std::vector<unsigned char> fDefault;
    unsigned fDisconnectOption = 0;
    double fSoftMin = 0, fSoftMax = 0;
    bool fIndexMatters = false, fChildIsMulti = false, fParentIsMulti = false;
    mutable bool fDefaultComposed = false;
};

// One class per value type, each with its own metaclass.
#define SN_ATTRIBUTE_CLASS(Name, Type, Size)                                             \
    class Name : public Tattribute {                                                     \
    public:                                                                              \
        Name(const Tstring& longName, const Tstring& shortName, TiffTag tag)             \
            : Tattribute(longName, shortName, tag, Type, Size) {}                        \
        static Tmetaclass* sMetaclass();                                                 \
        Tmetaclass* typeof() const override { return sMetaclass(); }                     \
    };

SN_ATTRIBUTE_CLASS(TattributeFloat, TvalueType::kFloat, 4)
SN_ATTRIBUTE_CLASS(TattributeDouble, TvalueType::kDouble, 8)
SN_ATTRIBUTE_CLASS(TattributeInt16, TvalueType::kInt16, 2)
SN_ATTRIBUTE_CLASS(TattributeInt32, TvalueType::kInt32, 4)
SN_ATTRIBUTE_CLASS(TattributeChar, TvalueType::kChar, 1)
SN_ATTRIBUTE_CLASS(TattributeBoolean, TvalueType::kBoolean, 1)
SN_ATTRIBUTE_CLASS(TattributeAddr, TvalueType::kAddr, sizeof(void*))
SN_ATTRIBUTE_CLASS(TattributeTime, TvalueType::kTime, 8)
SN_ATTRIBUTE_CLASS(TattributeMessage, TvalueType::kMessage, 0)
SN_ATTRIBUTE_CLASS(TattributeMatrix, TvalueType::kMatrix, sizeof(Tmatrix))
SN_ATTRIBUTE_CLASS(TattributeFltMatrix, TvalueType::kFltMatrix, sizeof(TfltMatrix))
// A light record: 36 bytes of values and an address, so 48 bytes with 64-bit addresses.
SN_ATTRIBUTE_CLASS(TattributeLightData, TvalueType::kLightData, sizeof(void*) == 8 ? 48 : 40)
SN_ATTRIBUTE_CLASS(Tattribute2Float, TvalueType::k2Float, 8)
SN_ATTRIBUTE_CLASS(Tattribute3Float, TvalueType::k3Float, 12)
SN_ATTRIBUTE_CLASS(Tattribute2Int16, TvalueType::k2Int16, 4)
SN_ATTRIBUTE_CLASS(TattributeCompound, TvalueType::kCompound, 0)
SN_ATTRIBUTE_CLASS(TattributeFloatLinear, TvalueType::kFloatLinear, 4)
SN_ATTRIBUTE_CLASS(TattributeDoubleAngle, TvalueType::kDoubleAngle, 8)
#undef SN_ATTRIBUTE_CLASS

// An enumeration: a 16-bit value with named fields.
class TattributeEnum : public Tattribute {
public:
    TattributeEnum(const Tstring& longName, const Tstring& shortName, TiffTag tag)
        : Tattribute(longName, shortName, tag, TvalueType::kEnum, 2) {}
    static Tmetaclass* sMetaclass();
    Tmetaclass* typeof() const override { return sMetaclass(); }

    struct Field {
        Tstring name, label;
        short value;
    };
    bool addField(const Tstring& name, const Tstring& label, short value);
    bool addField(const Tstring& name, short value) { return addField(name, name, value); }
    const std::vector<Field>& fields() const { return fFields; }
    // The value of a field by name, or false.
    bool fieldValue(const Tstring& name, short& value) const;
    const Field* fieldFor(short value) const;

private:
    std::vector<Field> fFields;
};

// A typed attribute: a string, or a port that takes any connection.
class TattributeTyped : public Tattribute {
public:
    enum class Kind { kString, kAny };
    TattributeTyped(const Tstring& longName, const Tstring& shortName, TiffTag tag, Kind kind = Kind::kAny);
    ~TattributeTyped() override;
    static Tmetaclass* sMetaclass();
    Tmetaclass* typeof() const override { return sMetaclass(); }
    Kind kind() const { return fKind; }

    void constructValue(void* value) const override;
    void destructValue(void* value) const override;
    void copyValue(void* to, const void* from) const override;
    bool valuesEqual(const void* a, const void* b) const override;

private:
    Kind fKind;
};

// Whether a value of `from` may flow into `to` through a connection.
bool attributesCompatible(const Tattribute& from, const Tattribute& to);
// Copies a value of `from`'s type into storage of `to`'s type, converting numbers.
void convertValue(const Tattribute& from, const void* source, const Tattribute& to, void* dest);

// The list of attributes of a node class: inherited ones first.
class TattributeList {
public:
    // False when the long or short name is taken.
    bool addAttribute(const Tattribute* attribute);
    void setInheritedCount(unsigned n) { fInheritedCount = n; }
    unsigned inheritedCount() const { return fInheritedCount; }
    unsigned length() const { return unsigned(fAttributes.size()); }
    const Tattribute* operator[](unsigned i) const { return fAttributes[i]; }
    const Tattribute* find(const Tstring& name) const;
    void clear() { fAttributes.clear(); fInheritedCount = 0; }

private:
    std::vector<const Tattribute*> fAttributes;
    unsigned fInheritedCount = 0;
};

// Which attributes affect which, by attribute index in the class.
class TdependencyMatrix {
public:
    void attributeAffects(const Tattribute& input, const Tattribute& output, bool = false);
    void allAffectors(unsigned output, TbitFieldFixedN& bits) const;
    void allAffectees(unsigned input, TbitFieldFixedN& bits) const;
    bool affects(unsigned input, unsigned output) const;
    void clear() { fRows.clear(); }

private:
    void grow(unsigned n);
    std::vector<TbitFieldFixedN> fRows;  // fRows[input] = affected outputs
};
