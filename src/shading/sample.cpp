#include "shading/sample.h"

#include <cstddef>
#include <new>
#include <type_traits>

namespace {

constexpr unsigned roundUp(unsigned value, unsigned to) { return (value + to - 1) / to * to; }

constexpr bool isPointerItem(unsigned item) {
    return item == kItemObjectId || item == kItemParticleAttrArray || item == kItemLightTable;
}

constexpr unsigned kTableSizes[kSampleItemCount] = {
#define SHADENET_SAMPLE_SIZE(index, name, Cap, setter, family, Type, size) size,
    SHADENET_SAMPLE_ITEMS(SHADENET_SAMPLE_SIZE)
#undef SHADENET_SAMPLE_SIZE
};

constexpr unsigned storageSize(unsigned item) {
    if (isPointerItem(item)) return sizeof(void*);
    if (item == kItemLightData) return sizeof(TlightData);
    return roundUp(kTableSizes[item], 4);
}

constexpr unsigned storageAlignment(unsigned item) {
    if (isPointerItem(item)) return alignof(void*);
    if (item == kItemLightData) return alignof(TlightData);
    return 4;
}

// Offsets of a record that holds every item; entry 64 is its end.
struct TfullLayout {
    unsigned offsets[kSampleItemCount + 1];
    constexpr TfullLayout() : offsets{} {
        unsigned offset = Tsample::kHeadSize;
        for (unsigned i = 0; i < kSampleItemCount; ++i) {
            offset = roundUp(offset, storageAlignment(i));
            offsets[i] = offset;
            offset += storageSize(i);
        }
        offsets[kSampleItemCount] = offset;
    }
};
constexpr TfullLayout kFullLayout;

template <typename T>
void putDefault(unsigned char* base, unsigned item, const T& value) {
    static_assert(sizeof(T) <= 64);
    std::memcpy(base + kFullLayout.offsets[item] - kFullLayout.offsets[0], &value, sizeof value);
}

}  // namespace

const char* const Tsample::fDataItem[kSampleItemCount + 1] = {
#define SHADENET_SAMPLE_NAME(index, name, Cap, setter, family, Type, size) #name,
    SHADENET_SAMPLE_ITEMS(SHADENET_SAMPLE_NAME)
#undef SHADENET_SAMPLE_NAME
    "",
};

const TsampleItemType Tsample::fDataItemTypeid[kSampleItemCount] = {
#define SHADENET_TYPE_3F kSampleItem3Float
#define SHADENET_TYPE_2F kSampleItem2Float
#define SHADENET_TYPE_F kSampleItemFloat
#define SHADENET_TYPE_I32 kSampleItemInt32
#define SHADENET_TYPE_U32 kSampleItemInt32
#define SHADENET_TYPE_I16 kSampleItemInt16
#define SHADENET_TYPE_C kSampleItemChar
#define SHADENET_TYPE_B kSampleItemBoolean
#define SHADENET_TYPE_A kSampleItemAddr
#define SHADENET_TYPE_M kSampleItemFltMatrix
#define SHADENET_TYPE_LD kSampleItemLightData
#define SHADENET_TYPE_LT kSampleItemLightTable
#define SHADENET_SAMPLE_TYPE(index, name, Cap, setter, family, Type, size) SHADENET_TYPE_##family,
    SHADENET_SAMPLE_ITEMS(SHADENET_SAMPLE_TYPE)
#undef SHADENET_SAMPLE_TYPE
};

const unsigned Tsample::fSizes[kSampleItemCount] = {
#define SHADENET_SAMPLE_SIZE(index, name, Cap, setter, family, Type, size) size,
    SHADENET_SAMPLE_ITEMS(SHADENET_SAMPLE_SIZE)
#undef SHADENET_SAMPLE_SIZE
};

// The reference layout: a 24-byte head and every item present, each starting
// 4-aligned. The last step is 8 where "infoBits" has size 4; this is deliberate,
// and layouts go by fSizes, so the spare word is never used.
const unsigned Tsample::fSampleDataOffset[kSampleItemCount + 1] = {
    24,  36,  48,  60,  72,  84,  96,  108, 120, 132, 140, 152, 164, 176, 188, 200, 208,
    220, 232, 244, 256, 268, 308, 320, 324, 328, 332, 336, 340, 344, 356, 368, 380, 392,
    396, 400, 404, 408, 412, 420, 432, 444, 456, 464, 472, 480, 484, 488, 500, 504, 508,
    572, 636, 640, 644, 648, 652, 656, 660, 664, 668, 672, 676, 680, 688,
};

TsampleDataDefault::TsampleDataDefault() {
    static_assert(sizeof fBytes >= kFullLayout.offsets[kSampleItemCount] - kFullLayout.offsets[0]);
    std::memset(fBytes, 0, sizeof fBytes);
    const T3Float unitZ(0, 0, 1), one(1, 1, 1);
    putDefault(fBytes, kItemNormalCamera, unitZ);
    putDefault(fBytes, kItemTriangleNormalCamera, unitZ);
    putDefault(fBytes, kItemTangentUCamera, T3Float(1, 0, 0));
    putDefault(fBytes, kItemTangentVCamera, T3Float(0, 1, 0));
    putDefault(fBytes, kItemRayDirection, T3Float(0, 0, -1));
    putDefault(fBytes, kItemLightData, TlightData());
    putDefault(fBytes, kItemParticleEmission, one);
    putDefault(fBytes, kItemParticleAge, 0.5f);
    putDefault(fBytes, kItemParticleLifespan, 100.0f);
    putDefault(fBytes, kItemMediumRefractiveIndex, 1.0f);
    putDefault(fBytes, kItemOutMatteOpacity, one);
    putDefault(fBytes, kItemNumShadingSamples, char(1));
    putDefault(fBytes, kItemMatrixObjectToWorld, TfltMatrix());
    putDefault(fBytes, kItemMatrixWorldToObject, TfltMatrix());
    putDefault(fBytes, kItemIlluminationIndex, int16_t(-1));
    putDefault(fBytes, kItemPixelCoverage, 1.0f);
    putDefault(fBytes, kItemEasMask, uint32_t(0xFFFFFFFFu));
    putDefault(fBytes, kItemReceiveShadows, true);
    putDefault(fBytes, kItemTranslucenceDepth, 0.5f);
}

unsigned TsampleDataDefault::sFullOffset(unsigned index) { return kFullLayout.offsets[index]; }

const TsampleDataDefault Tsample::fDefaults;

unsigned Tsample::sStorageSize(unsigned item) { return storageSize(item); }
unsigned Tsample::sStorageAlignment(unsigned item) { return storageAlignment(item); }

int Tsample::sItemIndex(const char* name) {
    for (unsigned i = 0; fDataItem[i][0] != '\0'; ++i)
        if (std::strcmp(fDataItem[i], name) == 0) return int(i);
    return -1;
}

unsigned Tsample::sBuildFieldOffsets(TbitField64 needed, unsigned* table, const unsigned* userSizes,
                                     unsigned userCount) {
    unsigned offset = kHeadSize;
    for (unsigned i = 0; i < kSampleItemCount; ++i) {
        if (!needed.test(i)) {
            table[i] = 0;
            continue;
        }
        offset = roundUp(offset, storageAlignment(i));
        table[i] = offset;
        offset += storageSize(i);
    }
    table[kSampleItemCount] = offset;
    for (unsigned u = 0; u < userCount; ++u) {
        offset = roundUp(offset, alignof(void*));
        table[kFirstUserField + u] = offset;
        offset += roundUp(userSizes[u], 4);
    }
    table[kFirstUserField + userCount] = offset;
    return roundUp(offset, 8);
}

Tsample* Tsample::sCreate(void* memory, unsigned recordSize, unsigned* fieldOffsets, TsampleManager* manager,
                          TsampleBatch* batch) {
    auto* sample = new (memory) Tsample(fieldOffsets, manager, batch);
    if (recordSize > kHeadSize) std::memset(static_cast<char*>(memory) + kHeadSize, 0, recordSize - kHeadSize);
    return sample;
}

// One straight run of tests, item by item, so the compiler sees 64 independent
// branches rather than a loop over tables.
namespace {
// Sizes and default offsets of every item, ready for the default copy.
struct TdefaultCopy {
    unsigned from[kSampleItemCount];
    unsigned size[kSampleItemCount];
    constexpr TdefaultCopy() : from{}, size{} {
        for (unsigned i = 0; i < kSampleItemCount; ++i) {
            from[i] = kFullLayout.offsets[i] - kFullLayout.offsets[0];
            size[i] = storageSize(i);
        }
    }
};
constexpr TdefaultCopy kDefaultCopy;
}  // namespace

void Tsample::confirmSet(TbitField64 needed) {
    // Only the needed items not yet set: usually none, so this is one test.
    uint64_t todo = needed.bits() & ~fFieldsSet.bits();
    if (!todo) return;
    const auto* defaults = static_cast<const unsigned char*>(fDefaults.item(0));
    while (todo) {
        unsigned index = unsigned(__builtin_ctzll(todo));
        todo &= todo - 1;
        unsigned offset = fFieldOffsets[index];
        if (!offset) continue;
        auto* to = bytes() + offset;
        const unsigned char* from = defaults + kDefaultCopy.from[index];
        // Fixed sizes become plain moves; the rest goes through memcpy.
        switch (kDefaultCopy.size[index]) {
            case 4: std::memcpy(to, from, 4); break;
            case 8: std::memcpy(to, from, 8); break;
            case 12: std::memcpy(to, from, 12); break;
            case 16: std::memcpy(to, from, 16); break;
            default: std::memcpy(to, from, kDefaultCopy.size[index]); break;
        }
    }
}

void Tsample::sConfirmUnset(Tsample* const* samples, unsigned count, TbitField64 items) {
    if (!count) return;
    const unsigned* offsets = samples[0]->fFieldOffsets;
    const auto* defaults = static_cast<const unsigned char*>(fDefaults.item(0));
    for (uint64_t todo = items.bits(); todo; todo &= todo - 1) {
        const unsigned index = unsigned(__builtin_ctzll(todo));
        const unsigned offset = offsets[index];
        if (!offset) continue;
        const unsigned char* from = defaults + kDefaultCopy.from[index];
        auto fill = [&](auto size) {
            for (unsigned i = 0; i < count; ++i) std::memcpy(samples[i]->bytes() + offset, from, size);
        };
        switch (kDefaultCopy.size[index]) {
            case 4: fill(std::integral_constant<size_t, 4>{}); break;
            case 8: fill(std::integral_constant<size_t, 8>{}); break;
            case 12: fill(std::integral_constant<size_t, 12>{}); break;
            case 16: fill(std::integral_constant<size_t, 16>{}); break;
            default: fill(size_t(kDefaultCopy.size[index])); break;
        }
    }
}

void Tsample::fillFromDeepRaster(const unsigned* rasterOffsets, const char* raster, unsigned absent) {
    for (unsigned i = 0; i < kSampleItemCount; ++i) {
        if (rasterOffsets[i] == absent || fFieldOffsets[i] == 0) continue;
        std::memcpy(bytes() + fFieldOffsets[i], raster + rasterOffsets[i], storageSize(i));
        fFieldsSet.set(i);
    }
}

void Tsample::copyToDeepRaster(const unsigned* rasterOffsets, char* raster, unsigned absent) const {
    for (unsigned i = 0; i < kSampleItemCount; ++i) {
        if (rasterOffsets[i] == absent) continue;
        std::memcpy(raster + rasterOffsets[i], item(i), storageSize(i));
    }
}

void Tsample::setUserSampleData(unsigned index, unsigned size, const void* data) {
    if (unsigned offset = fFieldOffsets[index]) std::memcpy(bytes() + offset, data, size);
}

void Tsample::copyUserSampleData(unsigned from, unsigned to, unsigned size) {
    unsigned source = fFieldOffsets[from], target = fFieldOffsets[to];
    if (source && target && source != target) std::memmove(bytes() + target, bytes() + source, size);
}
