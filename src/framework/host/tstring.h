#pragma once
// Tstring: the host's string. A thin value type over std::string with the
// operations the node classes use; it exists so that node code reads the same
// as it would against the host.
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

class Tstring {
public:
    Tstring() = default;
    Tstring(const char* s) : fText(s ? s : "") {}
    Tstring(std::string s) : fText(std::move(s)) {}
    Tstring(std::string_view s) : fText(s) {}

    const char* asC() const { return fText.c_str(); }
    unsigned length() const { return static_cast<unsigned>(fText.size()); }
    bool isEmpty() const { return fText.empty(); }
    const std::string& str() const { return fText; }
    std::string_view view() const { return fText; }

    Tstring& operator+=(const Tstring& other) { fText += other.fText; return *this; }
    friend Tstring operator+(Tstring a, const Tstring& b) { a += b; return a; }

    friend bool operator==(const Tstring& a, const Tstring& b) { return a.fText == b.fText; }
    friend bool operator==(const Tstring& a, const char* b) { return a.fText == (b ? b : ""); }
    friend bool operator<(const Tstring& a, const Tstring& b) { return a.fText < b.fText; }

private:
    std::string fText;
};

template <> struct std::hash<Tstring> {
    size_t operator()(const Tstring& s) const noexcept { return std::hash<std::string>()(s.str()); }
};
