#pragma once
// Bit fields of the host: a fixed 64-bit word pair and a field of N bits that
// either owns its words or lies over storage given by the caller.
#include <cstdint>
#include <cstring>
#include <vector>

class TbitField64 {
public:
    constexpr TbitField64() = default;
    constexpr explicit TbitField64(uint64_t bits) : fLow(uint32_t(bits)), fHigh(uint32_t(bits >> 32)) {}

    constexpr bool test(unsigned i) const { return i < 32 ? (fLow >> i) & 1u : (fHigh >> (i - 32)) & 1u; }
    constexpr void set(unsigned i) { if (i < 32) fLow |= 1u << i; else fHigh |= 1u << (i - 32); }
    constexpr void clear(unsigned i) { if (i < 32) fLow &= ~(1u << i); else fHigh &= ~(1u << (i - 32)); }
    constexpr void clearAll() { fLow = fHigh = 0; }
    constexpr bool isEmpty() const { return (fLow | fHigh) == 0; }
    constexpr uint64_t bits() const { return (uint64_t(fHigh) << 32) | fLow; }
    constexpr uint32_t low() const { return fLow; }
    constexpr uint32_t high() const { return fHigh; }

    constexpr TbitField64& operator|=(TbitField64 o) { fLow |= o.fLow; fHigh |= o.fHigh; return *this; }
    constexpr TbitField64& operator&=(TbitField64 o) { fLow &= o.fLow; fHigh &= o.fHigh; return *this; }
    friend constexpr TbitField64 operator|(TbitField64 a, TbitField64 b) { return a |= b; }
    friend constexpr TbitField64 operator&(TbitField64 a, TbitField64 b) { return a &= b; }
    friend constexpr TbitField64 operator~(TbitField64 a) { return TbitField64(~a.bits()); }
    friend constexpr bool operator==(TbitField64 a, TbitField64 b) { return a.bits() == b.bits(); }

private:
    uint32_t fLow = 0;
    uint32_t fHigh = 0;
};

class TbitFieldFixedN {
public:
    TbitFieldFixedN() = default;
    explicit TbitFieldFixedN(unsigned length) : fLength(length), fOwned(wordCount(length), 0u) { fWords = fOwned.data(); }
    // Lies over `words`, which must hold at least (length + 31) / 32 words; nothing is cleared.
    TbitFieldFixedN(unsigned length, uint32_t* words) : fLength(length), fWords(words) {}
    TbitFieldFixedN(const TbitFieldFixedN& o) : fLength(o.fLength), fOwned(o.fWords, o.fWords + wordCount(o.fLength)) { fWords = fOwned.data(); }
    TbitFieldFixedN& operator=(const TbitFieldFixedN& o) {
        if (this != &o) {
            fLength = o.fLength;
            fOwned.assign(o.fWords, o.fWords + wordCount(o.fLength));
            fWords = fOwned.data();
        }
        return *this;
    }
    TbitFieldFixedN(TbitFieldFixedN&& o) noexcept { *this = std::move(o); }
    TbitFieldFixedN& operator=(TbitFieldFixedN&& o) noexcept {
        if (this == &o) return *this;
        fLength = o.fLength;
        bool external = o.fWords != o.fOwned.data();
        fOwned = std::move(o.fOwned);
        fWords = external ? o.fWords : fOwned.data();
        o.fWords = nullptr;
        o.fLength = 0;
        return *this;
    }

    static unsigned wordCount(unsigned length) { return (length + 31) / 32; }
    unsigned length() const { return fLength; }

    // Grows (never shrinks) to `length` bits, new bits clear. Only for owned storage.
    void resize(unsigned length) {
        fOwned.resize(wordCount(length), 0u);
        fWords = fOwned.data();
        fLength = length;
    }

    bool test(unsigned i) const { return i < fLength && ((fWords[i >> 5] >> (i & 31)) & 1u); }
    void set(unsigned i) { if (i < fLength) fWords[i >> 5] |= 1u << (i & 31); }
    void clear(unsigned i) { if (i < fLength) fWords[i >> 5] &= ~(1u << (i & 31)); }
    void setAll() {
        if (!fLength) return;
        std::memset(fWords, 0xFF, wordCount(fLength) * 4);
        if (unsigned rest = fLength & 31) fWords[wordCount(fLength) - 1] = (1u << rest) - 1;
    }
    void clearAll() { if (fLength) std::memset(fWords, 0, wordCount(fLength) * 4); }
    bool isEmpty() const {
        for (unsigned w = 0; w < wordCount(fLength); ++w) if (fWords[w]) return false;
        return true;
    }
    unsigned count() const {
        unsigned n = 0;
        for (unsigned w = 0; w < wordCount(fLength); ++w) n += unsigned(__builtin_popcount(fWords[w]));
        return n;
    }
    // Gives up external storage without touching it.
    void releaseBits() { fWords = nullptr; fLength = 0; fOwned.clear(); }
    uint32_t* words() { return fWords; }
    const uint32_t* words() const { return fWords; }

private:
    unsigned fLength = 0;
    std::vector<uint32_t> fOwned;
    uint32_t* fWords = nullptr;
};
