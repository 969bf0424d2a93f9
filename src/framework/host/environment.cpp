#include "framework/host/environment.h"

#include <cerrno>
#include <cstdlib>

TenvironmentVariable::TenvironmentVariable(const char* name) {
    if (const char* v = std::getenv(name)) fValue = v;
}

const std::string& TenvironmentVariable::asString() const {
    static const std::string empty;
    return fValue ? *fValue : empty;
}

int32_t TenvironmentVariable::asInt32(int32_t defaultValue) const {
    if (!fValue || fValue->empty()) return defaultValue;
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(fValue->c_str(), &end, 0);
    if (end == fValue->c_str() || errno) return defaultValue;
    return int32_t(v);
}

uintptr_t TenvironmentVariable::asUnsignedPtr(uintptr_t defaultValue) const {
    if (!fValue || fValue->empty()) return defaultValue;
    char* end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(fValue->c_str(), &end, 0);
    if (end == fValue->c_str() || errno) return defaultValue;
    return uintptr_t(v);
}
