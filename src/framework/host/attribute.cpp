#include "framework/host/attribute.h"

#include <algorithm>
#include <new>

#include "framework/host/depend_node.h"

namespace {
template <typename T>
T readAs(const void* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <typename T>
void writeAs(void* p, T v) {
    std::memcpy(p, &v, sizeof v);
}
}  // namespace

const char* valueTypeName(TvalueType type) {
    switch (type) {
        case TvalueType::kFloat: return "float";
        case TvalueType::kDouble: return "double";
        case TvalueType::kInt16: return "short";
        case TvalueType::kInt32: return "long";
        case TvalueType::kChar: return "char";
        case TvalueType::kBoolean: return "bool";
        case TvalueType::kEnum: return "enum";
        case TvalueType::kAddr: return "addr";
        case TvalueType::kTime: return "time";
        case TvalueType::kMessage: return "message";
        case TvalueType::kMatrix: return "matrix";
        case TvalueType::kFltMatrix: return "fltMatrix";
        case TvalueType::kLightData: return "lightData";
        case TvalueType::kString: return "string";
        case TvalueType::kAny: return "typed";
        case TvalueType::k2Float: return "float2";
        case TvalueType::k3Float: return "float3";
        case TvalueType::k2Int16: return "short2";
        case TvalueType::kCompound: return "compound";
        case TvalueType::kFloatLinear: return "floatLinear";
        case TvalueType::kDoubleAngle: return "doubleAngle";
    }
    return "?";
}

bool isNumericType(TvalueType type) {
    switch (type) {
        case TvalueType::kFloat: case TvalueType::kDouble: case TvalueType::kInt16: case TvalueType::kInt32:
        case TvalueType::kChar: case TvalueType::kBoolean: case TvalueType::kEnum: case TvalueType::kTime:
        case TvalueType::kFloatLinear: case TvalueType::kDoubleAngle:
            return true;
        default:
            return false;
    }
}

Tattribute::Tattribute(const Tstring& longName, const Tstring& shortName, TiffTag tag, TvalueType type, unsigned size)
    : fLongName(longName),
      fShortName(shortName),
      fTag(tag),
      fType(type),
      fFlags(kAttrReadable | kAttrWritable | kAttrStorable | kAttrKeyable),
      fSize(size),
      fDefault(size, 0) {
    if (type == TvalueType::kCompound || type == TvalueType::k2Float || type == TvalueType::k3Float ||
        type == TvalueType::k2Int16)
        fFlags |= kAttrCompound;
    if (type == TvalueType::kMessage) fFlags &= ~(kAttrStorable | kAttrKeyable);
    TdependNodeVS::noteConstructedAttribute(this);
}

Tattribute::~Tattribute() = default;

void Tattribute::setParent(Tattribute* parent) {
    if (fParent == parent) return;
    if (fParent) {
        auto& siblings = fParent->fChildren;
        siblings.erase(std::remove(siblings.begin(), siblings.end(), this), siblings.end());
        fParent->layoutChildren();
    }
    fParent = parent;
    if (parent) {
        parent->fChildren.push_back(this);
        parent->layoutChildren();
    }
}

bool Tattribute::isDescendentOf(const Tattribute& other) const {
    for (const Tattribute* a = fParent; a; a = a->fParent)
        if (a == &other) return true;
    return false;
}

bool Tattribute::parentIsMulti() const {
    for (const Tattribute* a = fParent; a; a = a->fParent)
        if (a->isArray()) return true;
    return fParentIsMulti;
}

void Tattribute::layoutChildren() {
    unsigned offset = 0;
    for (Tattribute* c : fChildren) {
        unsigned align = std::clamp(c->fSize, 1u, 8u);
        while (align & (align - 1)) ++align;  // sizes of 3 and the like align to 4
        offset = (offset + align - 1) / align * align;
        c->fOffsetInParent = uint16_t(offset);
        offset += c->fSize;
    }
    if (fType == TvalueType::kCompound) {
        fSize = (offset + 7) / 8 * 8;
        if (!fChildren.empty() && offset <= 4) fSize = offset;
        resizeValue(fSize);
    }
    bool needsConstruction = false;
    for (Tattribute* c : fChildren) needsConstruction |= (c->fFlags & kAttrNeedsConstruction) != 0;
    setFlag(kAttrNeedsConstruction, needsConstruction);
    for (Tattribute* c : fChildren)
        if (c->fSize && c->fOffsetInParent + c->fSize <= fSize) std::memcpy(fDefault.data() + c->fOffsetInParent, c->defaultData(), c->fSize);
    if (fParent) fParent->layoutChildren();
}

void Tattribute::resizeValue(unsigned size) {
    fSize = size;
    fDefault.resize(size, 0);
}

void Tattribute::makeImplicitInput() {
    if (!isComputed()) fFlags &= ~kAttrReadable;
    fFlags |= kAttrImplicitInput;
    fFlags &= ~(kAttrStorable | kAttrKeyable);
    for (Tattribute* c : fChildren) {
        c->fFlags &= ~(kAttrStorable | kAttrKeyable);
        if (!c->isComputed()) c->fFlags &= ~kAttrReadable;
        c->fFlags |= kAttrImplicitInput;
    }
}

void Tattribute::constructValue(void* value) const {
    if (fChildren.empty()) {
        std::memset(value, 0, fSize);
        return;
    }
    std::memset(value, 0, fSize);
    for (Tattribute* c : fChildren) c->constructValue(static_cast<char*>(value) + c->fOffsetInParent);
}

void Tattribute::destructValue(void* value) const {
    for (Tattribute* c : fChildren) c->destructValue(static_cast<char*>(value) + c->fOffsetInParent);
}

void Tattribute::copyValue(void* to, const void* from) const {
    if (fChildren.empty() || !(fFlags & kAttrNeedsConstruction)) {
        if (fSize) std::memmove(to, from, fSize);
        return;
    }
    for (Tattribute* c : fChildren)
        c->copyValue(static_cast<char*>(to) + c->fOffsetInParent, static_cast<const char*>(from) + c->fOffsetInParent);
}

bool Tattribute::valuesEqual(const void* a, const void* b) const {
    if (fChildren.empty() || !(fFlags & kAttrNeedsConstruction)) return fSize == 0 || std::memcmp(a, b, fSize) == 0;
    for (Tattribute* c : fChildren)
        if (!c->valuesEqual(static_cast<const char*>(a) + c->fOffsetInParent, static_cast<const char*>(b) + c->fOffsetInParent))
            return false;
    return true;
}

bool Tattribute::isDefaultValue(const void* value) const { return valuesEqual(value, defaultData()); }

const void* Tattribute::defaultData() const { return fDefault.data(); }

void Tattribute::setDefaultBytes(const void* data, unsigned size) {
    std::memcpy(fDefault.data(), data, std::min(size, unsigned(fDefault.size())));
    // Keep children's defaults in step with the compound's, and the other way round.
    for (Tattribute* c : fChildren)
        if (c->fOffsetInParent + c->fSize <= size) c->setDefaultBytes(fDefault.data() + c->fOffsetInParent, c->fSize);
    if (fParent && fOffsetInParent + fSize <= fParent->fDefault.size())
        std::memcpy(fParent->fDefault.data() + fOffsetInParent, fDefault.data(), fSize);
}

void Tattribute::setNativeDefaultData(double v) {
    std::vector<unsigned char> bytes(fSize, 0);
    setNumericValue(bytes.data(), v);
    setDefaultBytes(bytes.data(), fSize);
}

void Tattribute::setNativeDefaultData(float a, float b) {
    float v[2] = {a, b};
    if (fType == TvalueType::k2Int16) {
        int16_t s[2] = {int16_t(a), int16_t(b)};
        setDefaultBytes(s, sizeof s);
    } else {
        setDefaultBytes(v, sizeof v);
    }
}

void Tattribute::setNativeDefaultData(float a, float b, float c) {
    float v[3] = {a, b, c};
    setDefaultBytes(v, sizeof v);
}

void Tattribute::setNativeDefaultData(const Tstring& text) {
    if (fType != TvalueType::kString) return;
    auto* s = reinterpret_cast<Tstring*>(fDefault.data());
    *s = text;
}

double Tattribute::numericValue(const void* p) const {
    switch (fType) {
        case TvalueType::kFloat: case TvalueType::kFloatLinear: return readAs<float>(p);
        case TvalueType::kDouble: case TvalueType::kTime: case TvalueType::kDoubleAngle: return readAs<double>(p);
        case TvalueType::kInt16: case TvalueType::kEnum: return readAs<int16_t>(p);
        case TvalueType::kInt32: return readAs<int32_t>(p);
        case TvalueType::kChar: return readAs<int8_t>(p);
        case TvalueType::kBoolean: return readAs<uint8_t>(p) ? 1.0 : 0.0;
        default: return 0.0;
    }
}

void Tattribute::setNumericValue(void* p, double v) const {
    switch (fType) {
        case TvalueType::kFloat: case TvalueType::kFloatLinear: writeAs<float>(p, float(v)); break;
        case TvalueType::kDouble: case TvalueType::kTime: case TvalueType::kDoubleAngle: writeAs<double>(p, v); break;
        case TvalueType::kInt16: case TvalueType::kEnum: writeAs<int16_t>(p, int16_t(v)); break;
        case TvalueType::kInt32: writeAs<int32_t>(p, int32_t(v)); break;
        case TvalueType::kChar: writeAs<int8_t>(p, int8_t(v)); break;
        case TvalueType::kBoolean: writeAs<uint8_t>(p, v != 0.0); break;
        default: break;
    }
}

#define SN_ATTRIBUTE_META(Name)                                                                   \
    Tmetaclass* Name::sMetaclass() {                                                              \
        static Tmetaclass* slot = nullptr;                                                        \
        static Tmetaclass meta(&slot, #Name, sizeof(Name), nullptr, 0, true, nullptr, nullptr); \
        return &meta;                                                                             \
    }
SN_ATTRIBUTE_META(TattributeFloat)
SN_ATTRIBUTE_META(TattributeDouble)
SN_ATTRIBUTE_META(TattributeInt16)
SN_ATTRIBUTE_META(TattributeInt32)
SN_ATTRIBUTE_META(TattributeChar)
SN_ATTRIBUTE_META(TattributeBoolean)
SN_ATTRIBUTE_META(TattributeAddr)
SN_ATTRIBUTE_META(TattributeTime)
SN_ATTRIBUTE_META(TattributeMessage)
SN_ATTRIBUTE_META(TattributeMatrix)
SN_ATTRIBUTE_META(TattributeFltMatrix)
SN_ATTRIBUTE_META(TattributeLightData)
SN_ATTRIBUTE_META(Tattribute2Float)
SN_ATTRIBUTE_META(Tattribute3Float)
SN_ATTRIBUTE_META(Tattribute2Int16)
SN_ATTRIBUTE_META(TattributeCompound)
SN_ATTRIBUTE_META(TattributeFloatLinear)
SN_ATTRIBUTE_META(TattributeDoubleAngle)
SN_ATTRIBUTE_META(TattributeEnum)
SN_ATTRIBUTE_META(TattributeTyped)
#undef SN_ATTRIBUTE_META

bool TattributeEnum::addField(const Tstring& name, const Tstring& label, short value) {
    for (auto& f : fFields)
        if (f.name == name) return false;
    fFields.push_back({name, label, value});
    return true;
}

bool TattributeEnum::fieldValue(const Tstring& name, short& value) const {
    for (auto& f : fFields)
        if (f.name == name || f.label == name) {
            value = f.value;
            return true;
        }
    return false;
}

const TattributeEnum::Field* TattributeEnum::fieldFor(short value) const {
    for (auto& f : fFields)
        if (f.value == value) return &f;
    return nullptr;
}

TattributeTyped::TattributeTyped(const Tstring& longName, const Tstring& shortName, TiffTag tag, Kind kind)
    : Tattribute(longName, shortName, tag, kind == Kind::kString ? TvalueType::kString : TvalueType::kAny,
                 kind == Kind::kString ? sizeof(Tstring) : 0),
      fKind(kind) {
    if (kind == Kind::kString) {
        setFlag(kAttrNeedsConstruction, true);
        new (const_cast<void*>(defaultData())) Tstring();
    }
}

TattributeTyped::~TattributeTyped() {
    if (fKind == Kind::kString) destructValue(const_cast<void*>(defaultData()));
}

void TattributeTyped::constructValue(void* value) const {
    if (fKind == Kind::kString) new (value) Tstring();
}
void TattributeTyped::destructValue(void* value) const {
    if (fKind == Kind::kString) static_cast<Tstring*>(value)->~Tstring();
}
void TattributeTyped::copyValue(void* to, const void* from) const {
    if (fKind == Kind::kString) *static_cast<Tstring*>(to) = *static_cast<const Tstring*>(from);
}
bool TattributeTyped::valuesEqual(const void* a, const void* b) const {
    if (fKind != Kind::kString) return true;
    return *static_cast<const Tstring*>(a) == *static_cast<const Tstring*>(b);
}

bool attributesCompatible(const Tattribute& from, const Tattribute& to) {
    if (to.valueType() == TvalueType::kAny || from.valueType() == TvalueType::kAny) return true;
    if (from.valueType() == TvalueType::kMessage || to.valueType() == TvalueType::kMessage)
        return from.valueType() == to.valueType();
    if (isNumericType(from.valueType()) && isNumericType(to.valueType())) return true;
    if (from.isCompound() && to.isCompound()) {
        if (from.childCount() == 0 || to.childCount() == 0)
            return from.valueType() == to.valueType() && from.size() == to.size();
        if (from.childCount() != to.childCount()) return false;
        for (unsigned i = 0; i < from.childCount(); ++i)
            if (!attributesCompatible(*from.child(i), *to.child(i))) return false;
        return true;
    }
    return from.valueType() == to.valueType();
}

void convertValue(const Tattribute& from, const void* source, const Tattribute& to, void* dest) {
    if (to.valueType() == TvalueType::kAny || to.size() == 0) return;
    if (isNumericType(from.valueType()) && isNumericType(to.valueType())) {
        to.setNumericValue(dest, from.numericValue(source));
        return;
    }
    if (from.isCompound() && to.isCompound() && from.childCount() && from.childCount() == to.childCount()) {
        for (unsigned i = 0; i < from.childCount(); ++i)
            convertValue(*from.child(i), static_cast<const char*>(source) + from.child(i)->offsetInParent(), *to.child(i),
                         static_cast<char*>(dest) + to.child(i)->offsetInParent());
        return;
    }
    if (from.valueType() == to.valueType()) to.copyValue(dest, source);
}

bool TattributeList::addAttribute(const Tattribute* attribute) {
    if (!attribute || find(attribute->longName()) || find(attribute->shortName())) return false;
    const_cast<Tattribute*>(attribute)->setIndex(uint16_t(fAttributes.size()));
    fAttributes.push_back(attribute);
    return true;
}

const Tattribute* TattributeList::find(const Tstring& name) const {
    for (const Tattribute* a : fAttributes)
        if (a->longName() == name || a->shortName() == name) return a;
    return nullptr;
}

void TdependencyMatrix::grow(unsigned n) {
    while (fRows.size() < n) fRows.emplace_back(0);
}

void TdependencyMatrix::attributeAffects(const Tattribute& input, const Tattribute& output, bool) {
    grow(unsigned(input.index()) + 1);
    auto& row = fRows[input.index()];
    if (row.length() <= output.index()) row.resize(output.index() + 1u);
    row.set(output.index());
}

bool TdependencyMatrix::affects(unsigned input, unsigned output) const {
    return input < fRows.size() && fRows[input].test(output);
}

void TdependencyMatrix::allAffectors(unsigned output, TbitFieldFixedN& bits) const {
    for (unsigned i = 0; i < fRows.size(); ++i)
        if (fRows[i].test(output)) bits.set(i);
}

void TdependencyMatrix::allAffectees(unsigned input, TbitFieldFixedN& bits) const {
    if (input >= fRows.size()) return;
    const auto& row = fRows[input];
    for (unsigned o = 0; o < row.length(); ++o)
        if (row.test(o)) bits.set(o);
}
