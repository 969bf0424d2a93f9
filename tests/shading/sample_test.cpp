// The sample record: its item tables, the layouts built from them, and the
// rules by which items are set, defaulted and exchanged with a deep raster.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "shading/sample.h"

namespace {

unsigned roundUp4(unsigned v) { return (v + 3) / 4 * 4; }

// A sample in its own aligned storage, laid out for the given items.
struct TownedSample {
    explicit TownedSample(TbitField64 needed, std::vector<unsigned> userSizes = {})
        : table(Tsample::sFieldTableLength(unsigned(userSizes.size()))) {
        size = Tsample::sBuildFieldOffsets(needed, table.data(), userSizes.data(), unsigned(userSizes.size()));
        storage.assign(size / 8 + 1, 0);
        sample = Tsample::sCreate(storage.data(), size, table.data());
    }
    const unsigned char* raw() const { return reinterpret_cast<const unsigned char*>(storage.data()); }
    std::vector<unsigned> table;
    std::vector<uint64_t> storage;
    unsigned size = 0;
    Tsample* sample = nullptr;
};

TbitField64 itemsOf(std::initializer_list<unsigned> items) {
    TbitField64 bits;
    for (unsigned i : items) bits.set(i);
    return bits;
}

}  // namespace

TEST(SampleTables, ReferenceLayoutRunsFrom24To680WithTheInfoBitsWordSpare) {
    unsigned count = 0;
    while (Tsample::fDataItem[count][0] != '\0') ++count;
    ASSERT_EQ(count, unsigned(kSampleItemCount));

    EXPECT_EQ(Tsample::fSampleDataOffset[0], 24u);
    EXPECT_EQ(Tsample::fSampleDataOffset[kItemInfoBits], 680u);
    for (unsigned i = 0; i < kSampleItemCount; ++i) {
        unsigned step = Tsample::fSampleDataOffset[i + 1] - Tsample::fSampleDataOffset[i];
        EXPECT_EQ(Tsample::fSampleDataOffset[i] % 4, 0u) << Tsample::fDataItem[i];
        if (i == kItemInfoBits) {
            EXPECT_EQ(Tsample::fSizes[i], 4u);
            EXPECT_EQ(step, 8u);
        } else {
            EXPECT_EQ(step, roundUp4(Tsample::fSizes[i])) << Tsample::fDataItem[i];
        }
    }
}

TEST(SampleTables, EveryItemIsFoundByItsName) {
    for (unsigned i = 0; i < kSampleItemCount; ++i) EXPECT_EQ(Tsample::sItemIndex(Tsample::fDataItem[i]), int(i));
    EXPECT_EQ(Tsample::sItemIndex("noSuchItem"), -1);
    EXPECT_EQ(Tsample::sItemIndex(""), -1);
}

TEST(SampleLayout, ItemsFollowTheHeadPackedAlignedAndApart) {
    EXPECT_EQ(sizeof(Tsample), size_t(Tsample::kHeadSize));
    const TbitField64 subsets[] = {
        TbitField64(~0ull),
        itemsOf({kItemObjectType, kItemObjectId, kItemNumShadingSamples, kItemLightData, kItemInfoBits}),
        TbitField64(0x5555555555555555ull),
        itemsOf({kItemIlluminationIndex, kItemLightTable}),
        TbitField64(),
    };
    for (TbitField64 needed : subsets) {
        std::vector<unsigned> table(Tsample::sFieldTableLength(0));
        unsigned size = Tsample::sBuildFieldOffsets(needed, table.data());
        unsigned end = Tsample::kHeadSize;
        for (unsigned i = 0; i < kSampleItemCount; ++i) {
            if (!needed.test(i)) {
                EXPECT_EQ(table[i], 0u) << i;
                continue;
            }
            EXPECT_GE(table[i], end) << Tsample::fDataItem[i];
            EXPECT_LT(table[i], end + Tsample::sStorageAlignment(i)) << Tsample::fDataItem[i];
            EXPECT_EQ(table[i] % Tsample::sStorageAlignment(i), 0u) << Tsample::fDataItem[i];
            end = table[i] + Tsample::sStorageSize(i);
        }
        EXPECT_EQ(table[kSampleItemCount], end);
        EXPECT_EQ(table[kFirstUserField], end);  // no user data: the total
        EXPECT_EQ(size % 8, 0u);
        EXPECT_GE(size, end);
    }
}

TEST(SampleLayout, PlainItemsKeepTheReferenceSpacingAndInfoBitsTakesFour) {
    std::vector<unsigned> table(Tsample::sFieldTableLength(0));
    Tsample::sBuildFieldOffsets(TbitField64(~0ull), table.data());
    // Between two plain neighbours the real record spaces items as the reference layout does.
    for (unsigned i = 0; i + 1 < kSampleItemCount - 1; ++i) {
        bool plain = Tsample::fDataItemTypeid[i] != kSampleItemAddr && Tsample::fDataItemTypeid[i] != kSampleItemLightData &&
                     Tsample::fDataItemTypeid[i] != kSampleItemLightTable &&
                     Tsample::sStorageAlignment(i + 1) == 4;
        if (plain) {
            EXPECT_EQ(table[i + 1] - table[i], Tsample::fSampleDataOffset[i + 1] - Tsample::fSampleDataOffset[i])
                << Tsample::fDataItem[i];
        }
    }
    EXPECT_EQ(table[kSampleItemCount] - table[kItemInfoBits], 4u);
    EXPECT_EQ(Tsample::sStorageSize(kItemNumShadingSamples), 4u);
    EXPECT_EQ(Tsample::sStorageSize(kItemLightData), unsigned(sizeof(TlightData)));
    EXPECT_EQ(Tsample::sStorageSize(kItemLightTable), unsigned(sizeof(void*)));
}

TEST(SampleLayout, UserEntriesFollowTheItemsAndEndInTheTotal) {
    const std::vector<unsigned> user = {36, 5, 8};
    TownedSample s(itemsOf({kItemPointCamera, kItemObjectType}), user);
    const unsigned* t = s.table.data();
    EXPECT_EQ(t[kFirstUserField], t[kSampleItemCount] + (8 - t[kSampleItemCount] % 8) % 8);
    EXPECT_EQ(t[kFirstUserField + 1], t[kFirstUserField] + 36 + 4);  // pointer-aligned after 36 bytes
    EXPECT_EQ(t[kFirstUserField + 2], t[kFirstUserField + 1] + 8);    // 5 rounded up to 8 by alignment
    EXPECT_EQ(t[kFirstUserField + 3], t[kFirstUserField + 2] + 8);
    EXPECT_EQ(s.size, (t[kFirstUserField + 3] + 7) / 8 * 8);
}

TEST(SampleSetters, AbsentItemsChangeNeitherRecordNorBits) {
    TownedSample s(itemsOf({kItemPointCamera, kItemOutColor}));
    const std::vector<unsigned char> before(s.raw(), s.raw() + s.size);
    double d3[3] = {1, 2, 3};
    TlightData light;
    TfltMatrix m = TfltMatrix::scaling(2, 2, 2);
    Tsample& x = *s.sample;
    const std::vector<std::function<void()>> setters = {
        [&] { x.setPointWorld(1, 2, 3); },       [&] { x.setNormalCamera(d3); },
        [&] { x.setRayDirection(T4dFltVector{1, 2, 3, 4}); },
        [&] { x.setUvCoord(0.5f, 0.25f); },      [&] { x.setLightData(light); },
        [&] { x.setParticleOrder(7); },          [&] { x.setOpticalDepth(3.0f); },
        [&] { x.setObjectId(&light); },          [&] { x.setObjectType(char(4)); },
        [&] { x.setMatrixObjectToWorld(m); },    [&] { x.setMatrixWorldToObject(Tmatrix::translation(1, 2, 3)); },
        [&] { x.setRenderedState(9); },          [&] { x.setLightTable(&light); },
        [&] { x.setIlluminationIndex(int16_t(3)); }, [&] { x.setEasMask(0x0Fu); },
        [&] { x.setReceiveShadows(false); },     [&] { x.setInfoBits(0xABCDu); },
    };
    for (const auto& set : setters) set();
    EXPECT_TRUE(x.fieldsSet().isEmpty());
    EXPECT_EQ(std::memcmp(before.data(), s.raw(), s.size), 0);
}

TEST(SampleSetters, PresentItemsLandAtTheirOffsetAndSetTheirBit) {
    TownedSample s(itemsOf({kItemObjectType, kItemPointCamera, kItemLightTable, kItemMatrixObjectToWorld}));
    Tsample& x = *s.sample;
    double d3[3] = {1.5, -2, 4};
    x.setPointCamera(d3);
    x.setObjectType(char(3));
    TlightData lights[2];
    x.setLightTable(lights);
    x.setMatrixObjectToWorld(Tmatrix::translation(1, 2, 3));

    T3Float p;
    std::memcpy(&p, s.raw() + s.table[kItemPointCamera], sizeof p);
    EXPECT_EQ(p, T3Float(1.5f, -2, 4));
    EXPECT_EQ(char(s.raw()[s.table[kItemObjectType]]), char(3));
    TlightData* table = nullptr;
    std::memcpy(&table, s.raw() + s.table[kItemLightTable], sizeof table);
    EXPECT_EQ(table, lights);
    TfltMatrix m;
    std::memcpy(&m, s.raw() + s.table[kItemMatrixObjectToWorld], sizeof m);
    EXPECT_EQ(m.transformPoint(T3Float(0, 0, 0)), T3Float(1, 2, 3));
    EXPECT_EQ(x.fieldsSet(),
              itemsOf({kItemObjectType, kItemPointCamera, kItemLightTable, kItemMatrixObjectToWorld}));
}

TEST(SampleDefaults, ConfirmSetWritesDefaultsOfNeededUnsetItemsAndLeavesBitsClear) {
    const TbitField64 present = itemsOf({kItemNormalCamera, kItemRayDirection, kItemEasMask, kItemPixelCoverage,
                                         kItemReceiveShadows, kItemMatrixObjectToWorld});
    TownedSample s(present);
    Tsample& x = *s.sample;
    x.setRayDirection(1, 0, 0);  // set: must stay
    const TbitField64 needed =
        itemsOf({kItemNormalCamera, kItemRayDirection, kItemEasMask, kItemReceiveShadows, kItemMatrixObjectToWorld,
                 kItemTangentUCamera /* absent */});
    x.confirmSet(needed);

    EXPECT_EQ(x.fieldsSet(), itemsOf({kItemRayDirection}));
    EXPECT_EQ(*x.normalCamera(), T3Float(0, 0, 1));
    EXPECT_EQ(*x.rayDirection(), T3Float(1, 0, 0));
    EXPECT_EQ(*x.easMask(), 0xFFFFFFFFu);
    EXPECT_TRUE(*x.receiveShadows());
    EXPECT_EQ(*x.matrixObjectToWorld(), TfltMatrix::identity());
    EXPECT_EQ(*x.pixelCoverage(), 0.0f);  // present but not needed: untouched (zeroed at creation)
}

TEST(SampleDeepRaster, RoundTripCarriesItemsAcrossLayoutsAndFillsDefaults) {
    TownedSample from(itemsOf({kItemPointCamera, kItemOutColor, kItemObjectType, kItemLightData, kItemInfoBits}));
    TlightData light;
    light.lightIntensity = {0.25f, 0.5f, 0.75f};
    light.lightBlindData = &light;
    from.sample->setPointCamera(1, 2, 3);
    from.sample->setOutColor(0.1f, 0.2f, 0.3f);
    from.sample->setObjectType(char(4));
    from.sample->setLightData(light);
    from.sample->setInfoBits(0xDEADBEEFu);

    // Raster layout: every item except uvCoord, packed by storage size.
    const unsigned kAbsent = 0xFFFFFFFFu;
    unsigned rasterOffsets[kSampleItemCount];
    unsigned offset = 0;
    for (unsigned i = 0; i < kSampleItemCount; ++i) {
        offset = (offset + Tsample::sStorageAlignment(i) - 1) / Tsample::sStorageAlignment(i) * Tsample::sStorageAlignment(i);
        rasterOffsets[i] = i == kItemUvCoord ? kAbsent : offset;
        offset += i == kItemUvCoord ? 0 : Tsample::sStorageSize(i);
    }
    std::vector<uint64_t> rasterStorage(offset / 8 + 1, 0x7777777777777777ull);
    char* raster = reinterpret_cast<char*>(rasterStorage.data());
    from.sample->copyToDeepRaster(rasterOffsets, raster, kAbsent);

    // A sample of another layout: shares some items, lacks others, has one the raster lacks.
    TownedSample to(itemsOf({kItemOutColor, kItemLightData, kItemNormalCamera, kItemUvCoord, kItemInfoBits}));
    to.sample->fillFromDeepRaster(rasterOffsets, raster, kAbsent);

    EXPECT_EQ(to.sample->fieldsSet(), itemsOf({kItemOutColor, kItemLightData, kItemNormalCamera, kItemInfoBits}));
    EXPECT_EQ(*to.sample->outColor(), T3Float(0.1f, 0.2f, 0.3f));
    EXPECT_EQ(to.sample->lightData()->lightIntensity, light.lightIntensity);
    EXPECT_EQ(to.sample->lightData()->lightBlindData, &light);
    EXPECT_EQ(*to.sample->infoBits(), 0xDEADBEEFu);
    EXPECT_EQ(*to.sample->normalCamera(), T3Float(0, 0, 1));  // the source lacked it: its default went out
    EXPECT_EQ(*to.sample->uvCoord(), T2Float{});              // the raster lacks it: untouched

    // Filling a full sample back gives the source's values for what the source had.
    TownedSample back(TbitField64(~0ull));
    back.sample->fillFromDeepRaster(rasterOffsets, raster, kAbsent);
    EXPECT_EQ(*back.sample->pointCamera(), T3Float(1, 2, 3));
    EXPECT_EQ(*back.sample->objectType(), char(4));
    EXPECT_EQ(*back.sample->rayDirection(), T3Float(0, 0, -1));
    EXPECT_EQ(*back.sample->easMask(), 0xFFFFFFFFu);
    EXPECT_FALSE(back.sample->isSet(kItemUvCoord));
}

TEST(SampleUserData, StoresByFieldIndexAndCopiesFromImplicitItems) {
    TownedSample s(itemsOf({kItemPointWorld}), {36, 12});
    Tsample& x = *s.sample;
    const unsigned char slot[36] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    x.setUserSampleData(kFirstUserField, sizeof slot, slot);
    EXPECT_EQ(std::memcmp(x.userSampleData(kFirstUserField), slot, sizeof slot), 0);

    x.setPointWorld(4, 5, 6);
    x.copyUserSampleData(kItemPointWorld, kFirstUserField + 1, 12);
    T3Float copied;
    std::memcpy(&copied, x.userSampleData(kFirstUserField + 1), sizeof copied);
    EXPECT_EQ(copied, T3Float(4, 5, 6));
    EXPECT_EQ(std::memcmp(x.userSampleData(kFirstUserField), slot, sizeof slot), 0);  // neighbour intact

    // From an item the record lacks nothing is copied.
    const std::vector<unsigned char> before(s.raw(), s.raw() + s.size);
    x.copyUserSampleData(kItemPointCamera, kFirstUserField + 1, 12);
    x.setUserSampleData(kItemPointCamera, 12, slot);
    EXPECT_EQ(std::memcmp(before.data(), s.raw(), s.size), 0);
}
