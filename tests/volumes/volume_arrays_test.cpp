// The typed pointer arrays: every operation against a plain vector model.
#include <gtest/gtest.h>

#include <vector>

#include "volumes/volume_arrays.h"

// The renderer owns the element class; the test stands one in.
class TvolumeInterval {};

namespace {

TvolumeInterval gCells[8];

std::vector<TvolumeInterval*> contents(const TvolumeIntervalArray& a) {
    return std::vector<TvolumeInterval*>(a.data(), a.data() + a.length());
}

TvolumeIntervalArray make(std::initializer_list<int> cells) {
    TvolumeIntervalArray a;
    for (int c : cells) a.addLast(&gCells[c]);
    return a;
}

std::vector<TvolumeInterval*> model(std::initializer_list<int> cells) {
    std::vector<TvolumeInterval*> v;
    for (int c : cells) v.push_back(c < 0 ? nullptr : &gCells[c]);
    return v;
}

}  // namespace

TEST(VolumeArrays, AddInsertFindAndRemove) {
    TvolumeIntervalArray a(2);  // two null elements
    EXPECT_EQ(contents(a), model({-1, -1}));
    EXPECT_EQ(a.last(), nullptr);
    EXPECT_EQ(a.addLast(&gCells[1]), 2);
    TvolumeInterval* run[] = {&gCells[2], &gCells[3]};
    a.addLast(run, 2);
    a.insert(&gCells[4], 0);
    a.insert(run, 2, 1);
    EXPECT_EQ(contents(a), model({4, 2, 3, -1, -1, 1, 2, 3}));
    EXPECT_EQ(a.last(), &gCells[3]);

    EXPECT_EQ(a.find(&gCells[3]), 2);
    unsigned index = 99;
    EXPECT_EQ(a.find(&gCells[1], index), 1);
    EXPECT_EQ(index, 5u);
    EXPECT_EQ(a.find(&gCells[7], index), 0);
    EXPECT_EQ(index, 5u);  // untouched when absent
    EXPECT_EQ(a.find(&gCells[7]), -1);

    a.remove(3, 2);
    EXPECT_EQ(contents(a), model({4, 2, 3, 1, 2, 3}));
    a[0] = &gCells[6];
    EXPECT_EQ(contents(a), model({6, 2, 3, 1, 2, 3}));
}

TEST(VolumeArrays, CopyAndCatenateInThreeForms) {
    const TvolumeIntervalArray from = make({0, 1, 2, 3, 4});
    struct Case { int form; unsigned start, count; std::vector<TvolumeInterval*> copied, catenated; };
    const Case cases[] = {
        {0, 0, 0, model({0, 1, 2, 3, 4}), model({7, 0, 1, 2, 3, 4})},
        {1, 2, 0, model({2, 3, 4}), model({7, 2, 3, 4})},
        {2, 1, 2, model({1, 2}), model({7, 1, 2})},
        {2, 3, 10, model({3, 4}), model({7, 3, 4})},  // a range past the end is cut
        {1, 9, 0, model({}), model({7})},             // a start past the end gives nothing
    };
    for (const Case& c : cases) {
        TvolumeIntervalArray copied = make({7}), catenated = make({7});
        switch (c.form) {
        case 0: copied.copy(from); catenated.catenate(from); break;
        case 1: copied.copy(from, c.start); catenated.catenate(from, c.start); break;
        default: copied.copy(from, c.start, c.count); catenated.catenate(from, c.start, c.count); break;
        }
        EXPECT_EQ(contents(copied), c.copied) << c.form << " " << c.start;
        EXPECT_EQ(contents(catenated), c.catenated) << c.form << " " << c.start;
    }
    // Onto itself.
    TvolumeIntervalArray self = make({0, 1, 2});
    self.catenate(self);
    EXPECT_EQ(contents(self), model({0, 1, 2, 0, 1, 2}));
    self.copy(self, 1, 3);
    EXPECT_EQ(contents(self), model({1, 2, 0}));
}

TEST(VolumeArrays, SwapExchangesWholeArraysAndCreateAndSetGrows) {
    TvolumeIntervalArray a = make({0, 1}), b = make({5, 6, 7});
    a.swap(b);
    EXPECT_EQ(contents(a), model({5, 6, 7}));
    EXPECT_EQ(contents(b), model({0, 1}));

    a.createAndSet(&gCells[2], 3, 1);
    EXPECT_EQ(contents(a), model({5, 2, 2, 2}));
    a.createAndSet(&gCells[3], 2, 6);
    EXPECT_EQ(contents(a), model({5, 2, 2, 2, -1, -1, 3, 3}));
    EXPECT_EQ(a.elementSize(), unsigned(sizeof(void*)));
}
