#pragma once
// TenvironmentVariable: one environment variable, read when constructed.
// Switches of the library are read once at load through this.
#include <cstdint>
#include <optional>
#include <string>

class TenvironmentVariable {
public:
    explicit TenvironmentVariable(const char* name);

    bool isSet() const { return fValue.has_value(); }
    const std::string& asString() const;
    // Integer readings: the default when unset or not a number.
    int32_t asInt32(int32_t defaultValue) const;
    uintptr_t asUnsignedPtr(uintptr_t defaultValue) const;
    bool asBool(bool defaultValue) const { return asInt32(defaultValue ? 1 : 0) != 0; }

private:
    std::optional<std::string> fValue;
};
