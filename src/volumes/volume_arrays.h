#pragma once
// Arrays of pointers handed between a renderer and the volume code. Each is
// the host Tarray with a pointer-sized element; the arrays never look inside
// an element and never own one. One template serves the whole family.
#include <algorithm>
#include <utility>

#include "framework/host/array.h"

template <typename T>
class TpointerArray : public Tarray {
public:
    using Element = T*;

    explicit TpointerArray(unsigned initialSize = 0) : Tarray(sizeof(Element)) { setLength(initialSize); }
    TpointerArray(const TpointerArray&) = default;
    TpointerArray& operator=(const TpointerArray&) = default;
    virtual ~TpointerArray() = default;

    Element* data() { return static_cast<Element*>(Tarray::data()); }
    const Element* data() const { return static_cast<const Element*>(Tarray::data()); }
    Element& operator[](unsigned index) { return data()[index]; }
    Element operator[](unsigned index) const { return data()[index]; }
    // The last element, or null when the array is empty.
    Element last() const { return length() ? data()[length() - 1] : nullptr; }

    // Appends and returns the new element's index.
    int addLast(Element element) {
        append(&element);
        return int(length()) - 1;
    }
    void addLast(const Element* elements, unsigned count) { insert(elements, count, length()); }
    void insert(Element element, unsigned index) { insertElement(&element, index, 1); }
    void insert(const Element* elements, unsigned count, unsigned index) {
        index = std::min(index, length());
        insertElement(nullptr, index, count);
        std::copy(elements, elements + count, data() + index);
    }

    // Index of the first occurrence, or -1.
    int find(Element element) const { return findElement(&element); }
    // 1 and the index when present, 0 otherwise.
    int find(Element element, unsigned& index) const {
        int at = findElement(&element);
        if (at < 0) return 0;
        index = unsigned(at);
        return 1;
    }
    void remove(unsigned index, unsigned count = 1) { removeAt(index, count); }
    // Exchanges the whole of the two arrays.
    void swap(TpointerArray& other) { std::swap(static_cast<Tarray&>(*this), static_cast<Tarray&>(other)); }

    // Replaces the contents with the whole of `from`, its tail from `start`, or `count` elements from `start`.
    void copy(const TpointerArray& from) { copy(from, 0, from.length()); }
    void copy(const TpointerArray& from, unsigned start) { copy(from, start, start < from.length() ? from.length() - start : 0); }
    void copy(const TpointerArray& from, unsigned start, unsigned count) {
        if (&from == this) {
            TpointerArray part;
            part.copy(from, start, count);
            swap(part);
            return;
        }
        clear();
        catenate(from, start, count);
    }
    // Appends the whole of `from`, its tail from `start`, or `count` elements from `start`.
    void catenate(const TpointerArray& from) { catenate(from, 0, from.length()); }
    void catenate(const TpointerArray& from, unsigned start) {
        catenate(from, start, start < from.length() ? from.length() - start : 0);
    }
    void catenate(const TpointerArray& from, unsigned start, unsigned count) {
        if (start >= from.length()) return;
        count = std::min(count, from.length() - start);
        if (&from == this) {
            TpointerArray part;
            part.copy(from, start, count);
            addLast(part.data(), count);
            return;
        }
        addLast(from.data() + start, count);
    }
    // Sets `count` elements from `start` to `element`, growing the array when needed.
    void createAndSet(Element element, unsigned count, unsigned start) {
        if (start + count > length()) setLength(start + count);
        std::fill(data() + start, data() + start + count, element);
    }
};

class Tsample;
class TvolumeSampleRecord;
class TvolumeWrapper;
class TlightFogWrapper;
class TatmosFogWrapper;
class TparticalWrapper;
class TvolumeShadedRecord;
class TvolumeIntegrator;
class TvolumeInterval;

using TsampleArray = TpointerArray<Tsample>;
using TvolumeSampleRecordArray = TpointerArray<TvolumeSampleRecord>;
using TvolumeWrapperArray = TpointerArray<TvolumeWrapper>;
using TlightFogWrapperArray = TpointerArray<TlightFogWrapper>;
using TatmosFogWrapperArray = TpointerArray<TatmosFogWrapper>;
using TparticalWrapperArray = TpointerArray<TparticalWrapper>;
using TvolumeShadedRecordArray = TpointerArray<TvolumeShadedRecord>;
using TvolumeIntegratorArray = TpointerArray<TvolumeIntegrator>;
using TvolumeIntervalArray = TpointerArray<TvolumeInterval>;
