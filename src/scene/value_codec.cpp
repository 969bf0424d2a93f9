#include "scene/value_codec.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "framework/host/math.h"
#include "framework/host/tstring.h"

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

TsceneJson nonFinite(double v) { return std::isnan(v) ? "nan" : (v > 0 ? "inf" : "-inf"); }

// The fewest decimal digits that read back to the same float, held as the
// double of that decimal so that the writer prints those digits.
TsceneJson floatJson(float f) {
    if (!std::isfinite(f)) return nonFinite(f);
    char buffer[32];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, f);
    double shortest = 0;
    std::from_chars(buffer, end, shortest);
    return shortest;
}
TsceneJson doubleJson(double d) { return std::isfinite(d) ? TsceneJson(d) : nonFinite(d); }

// A number, or one of the strings that stand for infinities and NaN.
bool realOf(const TsceneJson& json, double& out) {
    if (json.is_number()) {
        out = json.get<double>();
        return true;
    }
    if (json.is_string()) {
        const std::string& s = json.get_ref<const std::string&>();
        if (s == "nan") out = std::numeric_limits<double>::quiet_NaN();
        else if (s == "inf") out = std::numeric_limits<double>::infinity();
        else if (s == "-inf") out = -std::numeric_limits<double>::infinity();
        else return false;
        return true;
    }
    return false;
}

bool integerOf(const TsceneJson& json, long long low, long long high, long long& out, std::string& why) {
    if (!json.is_number_integer()) {
        // A number with a fraction or an exponent is named as written: "not a
        // number" would read as NaN.
        why = "takes a whole number, not " + (json.is_number_float() ? json.dump() : describeJsonType(json));
        return false;
    }
    if (json.is_number_unsigned() && json.get<unsigned long long>() > (unsigned long long)std::numeric_limits<long long>::max()) {
        why = "value " + json.dump() + " is out of range";
        return false;
    }
    out = json.get<long long>();
    if (out < low || out > high) {
        why = "value " + std::to_string(out) + " is out of range " + std::to_string(low) + ".." + std::to_string(high);
        return false;
    }
    return true;
}

bool realsOf(const TsceneJson& json, double* out, unsigned count, std::string& why) {
    if (!json.is_array() || json.size() != count) {
        why = "takes an array of " + std::to_string(count) + " numbers, not " + describeJsonType(json);
        return false;
    }
    for (unsigned i = 0; i < count; ++i)
        if (!realOf(json[i], out[i])) {
            why = "item " + std::to_string(i) + " must be a number, not " + describeJsonType(json[i]);
            return false;
        }
    return true;
}

// A matrix as four rows of four, or sixteen numbers in row order.
bool matrixOf(const TsceneJson& json, double (&m)[16], std::string& why) {
    if (json.is_array() && json.size() == 4 && json[0].is_array()) {
        for (unsigned r = 0; r < 4; ++r)
            if (!realsOf(json[r], m + 4 * r, 4, why)) {
                why = "row " + std::to_string(r) + " " + why;
                return false;
            }
        return true;
    }
    if (json.is_array() && json.size() == 16) return realsOf(json, m, 16, why);
    why = "takes a matrix: four rows of four numbers, not " + describeJsonType(json);
    return false;
}
}  // namespace

std::string describeJsonType(const TsceneJson& json) {
    switch (json.type()) {
        case TsceneJson::value_t::null: return "null";
        case TsceneJson::value_t::object: return "an object";
        case TsceneJson::value_t::array: return "an array of " + std::to_string(json.size());
        case TsceneJson::value_t::string: return "a string";
        case TsceneJson::value_t::boolean: return "a boolean";
        case TsceneJson::value_t::number_integer:
        case TsceneJson::value_t::number_unsigned: return "a whole number";
        case TsceneJson::value_t::number_float: return "a number";
        default: return "an unknown value";
    }
}

bool isFileValueType(const Tattribute& a) {
    switch (a.valueType()) {
        case TvalueType::kMessage: case TvalueType::kAddr: case TvalueType::kLightData: case TvalueType::kAny: return false;
        case TvalueType::kCompound: return a.childCount() > 0;
        default: return true;
    }
}

bool isSavedAttribute(const Tattribute& a) {
    if (!(a.flags() & kAttrStorable) || a.isComputed() || !isFileValueType(a)) return false;
    if (a.childCount() == 0) return true;
    for (unsigned i = 0; i < a.childCount(); ++i)
        if (isSavedAttribute(*a.child(i))) return true;
    return false;
}

bool compoundAsArray(const Tattribute& a) {
    if (a.childCount() == 0) return false;
    for (unsigned i = 0; i < a.childCount(); ++i) {
        const Tattribute& c = *a.child(i);
        if (c.childCount() || !isSavedAttribute(c)) return false;
        if (c.valueType() == TvalueType::kMatrix || c.valueType() == TvalueType::kFltMatrix) return false;
    }
    return true;
}

TsceneJson encodeLeafValue(const Tattribute& a, const void* value) {
    switch (a.valueType()) {
        case TvalueType::kFloat: case TvalueType::kFloatLinear: return floatJson(readAs<float>(value));
        case TvalueType::kDouble: case TvalueType::kTime: case TvalueType::kDoubleAngle: return doubleJson(readAs<double>(value));
        case TvalueType::kInt16: return readAs<int16_t>(value);
        case TvalueType::kInt32: return readAs<int32_t>(value);
        case TvalueType::kChar: return readAs<int8_t>(value);
        case TvalueType::kBoolean: return readAs<uint8_t>(value) != 0;
        case TvalueType::kEnum: {
            short v = readAs<int16_t>(value);
            if (const TattributeEnum::Field* f = static_cast<const TattributeEnum&>(a).fieldFor(v)) return f->name.str();
            return v;
        }
        case TvalueType::kString: return static_cast<const Tstring*>(value)->str();
        case TvalueType::kMatrix: {
            Tmatrix m;
            std::memcpy(&m, value, sizeof m);
            TsceneJson rows = TsceneJson::array();
            for (auto& row : m.m) rows.push_back({doubleJson(row[0]), doubleJson(row[1]), doubleJson(row[2]), doubleJson(row[3])});
            return rows;
        }
        case TvalueType::kFltMatrix: {
            TfltMatrix m;
            std::memcpy(&m, value, sizeof m);
            TsceneJson rows = TsceneJson::array();
            for (auto& row : m.m) rows.push_back({floatJson(row[0]), floatJson(row[1]), floatJson(row[2]), floatJson(row[3])});
            return rows;
        }
        case TvalueType::k2Float: {
            auto* f = static_cast<const float*>(value);
            return {floatJson(readAs<float>(f)), floatJson(readAs<float>(f + 1))};
        }
        case TvalueType::k3Float: {
            auto* f = static_cast<const float*>(value);
            return {floatJson(readAs<float>(f)), floatJson(readAs<float>(f + 1)), floatJson(readAs<float>(f + 2))};
        }
        case TvalueType::k2Int16: {
            auto* s = static_cast<const int16_t*>(value);
            return {readAs<int16_t>(s), readAs<int16_t>(s + 1)};
        }
        default: return nullptr;
    }
}

TsceneJson encodeWholeValue(const Tattribute& a, const void* value) {
    if (!isFileValueType(a)) return nullptr;
    if (a.childCount() == 0) return encodeLeafValue(a, value);
    const bool asArray = compoundAsArray(a);
    TsceneJson out = asArray ? TsceneJson::array() : TsceneJson::object();
    for (unsigned i = 0; i < a.childCount(); ++i) {
        const Tattribute& c = *a.child(i);
        TsceneJson v = encodeWholeValue(c, static_cast<const char*>(value) + c.offsetInParent());
        if (asArray) out.push_back(std::move(v));
        else if (!v.is_null()) out[c.longName().str()] = std::move(v);
    }
    return out;
}

std::string wholeValueText(const Tattribute& a, const void* value) {
    TsceneJson v = encodeWholeValue(a, value);
    return v.is_null() ? std::string() : v.dump();
}

bool decodeLeafValue(const Tattribute& a, const TsceneJson& json, void* value, std::string& why) {
    const TvalueType type = a.valueType();
    switch (type) {
        case TvalueType::kFloat: case TvalueType::kFloatLinear: case TvalueType::kDouble: case TvalueType::kTime:
        case TvalueType::kDoubleAngle: {
            double v = 0;
            if (!realOf(json, v)) {
                why = "takes a number, not " + describeJsonType(json);
                return false;
            }
            a.setNumericValue(value, v);
            return true;
        }
        case TvalueType::kInt16: case TvalueType::kInt32: case TvalueType::kChar: {
            long long low = type == TvalueType::kChar ? -128 : type == TvalueType::kInt16 ? -32768 : std::numeric_limits<int32_t>::min();
            long long high = type == TvalueType::kChar ? 127 : type == TvalueType::kInt16 ? 32767 : std::numeric_limits<int32_t>::max();
            long long v = 0;
            if (!integerOf(json, low, high, v, why)) return false;
            a.setNumericValue(value, double(v));
            return true;
        }
        case TvalueType::kBoolean:
            if (json.is_boolean()) {
                writeAs<uint8_t>(value, json.get<bool>());
                return true;
            }
            if (json.is_number_integer() && (json.get<long long>() == 0 || json.get<long long>() == 1)) {
                writeAs<uint8_t>(value, json.get<long long>() == 1);
                return true;
            }
            why = "takes true or false, not " + describeJsonType(json);
            return false;
        case TvalueType::kEnum: {
            const auto& e = static_cast<const TattributeEnum&>(a);
            auto fieldList = [&] {
                std::string list;
                for (auto& f : e.fields()) list += (list.empty() ? "" : ", ") + f.name.str() + "=" + std::to_string(f.value);
                return list;
            };
            short v = 0;
            if (json.is_string()) {
                if (!e.fieldValue(json.get<std::string>(), v)) {
                    why = "has no field '" + json.get<std::string>() + "' (fields: " + fieldList() + ")";
                    return false;
                }
            } else if (json.is_number_integer()) {
                long long n = 0;
                if (!integerOf(json, -32768, 32767, n, why)) return false;
                v = short(n);  // taken as is: a value between fields is still a value
            } else {
                why = "takes a field name or whole number, not " + (json.is_number_float() ? json.dump() : describeJsonType(json));
                return false;
            }
            writeAs<int16_t>(value, v);
            return true;
        }
        case TvalueType::kString:
            if (!json.is_string()) {
                why = "takes a string, not " + describeJsonType(json);
                return false;
            }
            *static_cast<Tstring*>(value) = Tstring(json.get<std::string>());
            return true;
        case TvalueType::kMatrix: case TvalueType::kFltMatrix: {
            double m[16];
            if (!matrixOf(json, m, why)) return false;
            for (unsigned i = 0; i < 16; ++i) {
                if (type == TvalueType::kMatrix) writeAs<double>(static_cast<double*>(value) + i, m[i]);
                else writeAs<float>(static_cast<float*>(value) + i, float(m[i]));
            }
            return true;
        }
        case TvalueType::k2Float: case TvalueType::k3Float: {
            unsigned n = type == TvalueType::k2Float ? 2 : 3;
            double v[3];
            if (!realsOf(json, v, n, why)) return false;
            for (unsigned i = 0; i < n; ++i) writeAs<float>(static_cast<float*>(value) + i, float(v[i]));
            return true;
        }
        case TvalueType::k2Int16: {
            if (!json.is_array() || json.size() != 2) {
                why = "takes an array of 2 whole numbers, not " + describeJsonType(json);
                return false;
            }
            for (unsigned i = 0; i < 2; ++i) {
                long long n = 0;
                if (!integerOf(json[i], -32768, 32767, n, why)) {
                    why = "item " + std::to_string(i) + " " + why;
                    return false;
                }
                writeAs<int16_t>(static_cast<int16_t*>(value) + i, int16_t(n));
            }
            return true;
        }
        default:
            why = std::string("is of type ") + valueTypeName(type) + ", which has no value in a scene file";
            return false;
    }
}
