#pragma once
// TiffTag: a four-character code in one 32-bit word, first character in the
// most significant byte ("XPIX" is 0x58504958). Tags are a file-format constant.
#include <cstdint>
#include <string>

class TiffTag {
public:
    constexpr TiffTag() = default;
    constexpr explicit TiffTag(uint32_t value) : fValue(value) {}
    constexpr TiffTag(const char (&code)[5])
        : fValue((uint32_t(uint8_t(code[0])) << 24) | (uint32_t(uint8_t(code[1])) << 16) |
                 (uint32_t(uint8_t(code[2])) << 8) | uint32_t(uint8_t(code[3]))) {}

    constexpr uint32_t value() const { return fValue; }
    std::string asString() const {
        std::string s(4, ' ');
        for (int i = 0; i < 4; ++i) s[i] = char((fValue >> (24 - 8 * i)) & 0xFF);
        return s;
    }
    // The tag of a compound's child: the parent's tag with the last letter replaced.
    constexpr TiffTag withLast(char c) const { return TiffTag((fValue & 0xFFFFFF00u) | uint8_t(c)); }

    friend constexpr bool operator==(TiffTag a, TiffTag b) { return a.fValue == b.fValue; }

    // Group tag of a form whose chunks align to 4 bytes.
    static const TiffTag kFOR4;

private:
    uint32_t fValue = 0;
};

inline constexpr TiffTag TiffTag::kFOR4{"FOR4"};
