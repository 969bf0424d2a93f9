#pragma once
// TstringArray: the host's array of strings. Strings are not plain values,
// so this is its own small class rather than a TtypedArray.
#include <initializer_list>
#include <vector>

#include "framework/host/tstring.h"

class TstringArray {
public:
    TstringArray() = default;
    TstringArray(std::initializer_list<Tstring> values) : fItems(values) {}

    unsigned length() const { return unsigned(fItems.size()); }
    bool isEmpty() const { return fItems.empty(); }
    Tstring& operator[](unsigned i) { return fItems[i]; }
    const Tstring& operator[](unsigned i) const { return fItems[i]; }
    void append(const Tstring& s) { fItems.push_back(s); }
    void clear() { fItems.clear(); }
    auto begin() const { return fItems.begin(); }
    auto end() const { return fItems.end(); }

    friend bool operator==(const TstringArray& a, const TstringArray& b) { return a.fItems == b.fItems; }

private:
    std::vector<Tstring> fItems;
};
