#pragma once
// The host's arrays. Tarray holds elements of a size fixed at construction as
// raw bytes; the typed arrays are thin forwarders over it, so every array of
// the system shares one growth and copy path.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

class Tarray {
public:
    explicit Tarray(unsigned elementSize) : fElementSize(elementSize) {}

    unsigned elementSize() const { return fElementSize; }
    unsigned length() const { return unsigned(fBytes.size() / fElementSize); }
    bool isEmpty() const { return fBytes.empty(); }

    void* at(unsigned index) { return fBytes.data() + size_t(index) * fElementSize; }
    const void* at(unsigned index) const { return fBytes.data() + size_t(index) * fElementSize; }

    // Inserts `count` copies of the element at `element` (zeros when null) before `index`.
    void insertElement(const void* element, unsigned index, unsigned count = 1) {
        index = std::min(index, length());
        // The element may lie in this array: keep a copy before the bytes move.
        std::vector<unsigned char> value(fElementSize, 0);
        if (element) std::memcpy(value.data(), element, fElementSize);
        size_t at = size_t(index) * fElementSize, bytes = size_t(count) * fElementSize, old = fBytes.size();
        fBytes.resize(old + bytes);
        unsigned char* base = fBytes.data();
        std::memmove(base + at + bytes, base + at, old - at);
        for (unsigned i = 0; i < count; ++i) std::memcpy(base + at + size_t(i) * fElementSize, value.data(), fElementSize);
    }
    void append(const void* element) { insertElement(element, length(), 1); }
    void removeAt(unsigned index, unsigned count = 1) {
        if (index >= length()) return;
        count = std::min(count, length() - index);
        auto first = fBytes.begin() + ptrdiff_t(size_t(index) * fElementSize);
        fBytes.erase(first, first + ptrdiff_t(size_t(count) * fElementSize));
    }
    void removeLast(unsigned count = 1) { fBytes.resize(size_t(length() - std::min(count, length())) * fElementSize); }
    void setLength(unsigned n) { fBytes.resize(size_t(n) * fElementSize, 0); }
    void clear() { fBytes.clear(); }
    void pack() { fBytes.shrink_to_fit(); }
    // Index of the first element equal bytewise to `element`, or -1.
    int findElement(const void* element) const {
        for (unsigned i = 0; i < length(); ++i)
            if (std::memcmp(at(i), element, fElementSize) == 0) return int(i);
        return -1;
    }
    // Copies `count` elements starting at `from` out to `dest`.
    void copyElements(void* dest, unsigned from, unsigned count) const {
        count = from < length() ? std::min(count, length() - from) : 0;
        std::memcpy(dest, at(from), size_t(count) * fElementSize);
    }
    void* data() { return fBytes.data(); }
    const void* data() const { return fBytes.data(); }

private:
    unsigned fElementSize;
    std::vector<unsigned char> fBytes;
};

// Typed view over Tarray for trivially copyable element types.
template <typename T>
class TtypedArray {
    static_assert(std::is_trivially_copyable_v<T>, "host arrays hold plain values");

public:
    TtypedArray() : fArray(sizeof(T)) {}
    TtypedArray(std::initializer_list<T> values) : fArray(sizeof(T)) { for (const T& v : values) append(v); }

    unsigned length() const { return fArray.length(); }
    bool isEmpty() const { return fArray.isEmpty(); }
    T& operator[](unsigned i) { return *static_cast<T*>(fArray.at(i)); }
    const T& operator[](unsigned i) const { return *static_cast<const T*>(fArray.at(i)); }
    T* begin() { return static_cast<T*>(fArray.data()); }
    T* end() { return begin() + length(); }
    const T* begin() const { return static_cast<const T*>(fArray.data()); }
    const T* end() const { return begin() + length(); }

    void append(const T& v) { fArray.append(&v); }
    void insert(const T& v, unsigned index) { fArray.insertElement(&v, index, 1); }
    void removeAt(unsigned index, unsigned count = 1) { fArray.removeAt(index, count); }
    void removeLast(unsigned count = 1) { fArray.removeLast(count); }
    void setLength(unsigned n) { fArray.setLength(n); }
    void clear() { fArray.clear(); }
    void pack() { fArray.pack(); }
    int find(const T& v) const { return fArray.findElement(&v); }
    Tarray& raw() { return fArray; }
    const Tarray& raw() const { return fArray; }

private:
    Tarray fArray;
};

class Tplug;
class Tattribute;
class TdependNode;

using TuInt32Array = TtypedArray<uint32_t>;
using TuInt16Array = TtypedArray<uint16_t>;
using TintArray = TtypedArray<int32_t>;
using TfloatArray = TtypedArray<float>;
using TdoubleArray = TtypedArray<double>;
using TplugArray = TtypedArray<Tplug*>;
using TattributeArray = TtypedArray<const Tattribute*>;
using TDNarray = TtypedArray<TdependNode*>;
using TobjArray = TtypedArray<void*>;

// Sorted set of pointers. find() follows the host: 0 when present, with the
// position of the key or of where it would go.
class TvoidPtrSortedArray {
public:
    int find(const void* key, unsigned& position) const {
        auto it = std::lower_bound(fKeys.begin(), fKeys.end(), key);
        position = unsigned(it - fKeys.begin());
        return (it != fKeys.end() && *it == key) ? 0 : 1;
    }
    bool insert(const void* key, unsigned& position) {
        if (find(key, position) == 0) return false;
        fKeys.insert(fKeys.begin() + position, key);
        return true;
    }
    bool remove(const void* key) {
        unsigned position;
        if (find(key, position) != 0) return false;
        fKeys.erase(fKeys.begin() + position);
        return true;
    }
    unsigned length() const { return unsigned(fKeys.size()); }
    const void* operator[](unsigned i) const { return fKeys[i]; }

private:
    std::vector<const void*> fKeys;
};
using TDNsortedArray = TvoidPtrSortedArray;
