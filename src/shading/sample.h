#pragma once
// One shading sample: a fixed head followed by only those of the 64 named
// items that the shading program of its group needs. A field-offset table,
// shared by all samples of a batch, says where each item lies (0: absent).
//
// Record layout on this 64-bit build:
//   0  TbitField64 fFieldsSet      8 bytes
//   8  TsampleManager* fManager    8 bytes
//  16  TsampleBatch* fBatch        8 bytes
//  24  unsigned* fFieldOffsets     8 bytes
//  32  bool fDispatched            1 byte, 7 bytes of padding
//  40  items (Tsample::kHeadSize)
// With 32-bit pointers the same head takes 24 bytes and the items of a full
// record lie exactly at fSampleDataOffset. fSampleDataOffset keeps that
// reference layout (24..680); real records start their items at kHeadSize and
// give the pointer-valued items ("objectId", "particleAttrArray",
// "lightTable", and the blind data inside "lightData") pointer size and
// pointer alignment, see sStorageSize.
#include <cstdint>
#include <cstring>

#include "framework/host/bit_field.h"
#include "framework/host/math.h"
#include "shading/light_data.h"

class TsampleManager;
class TsampleBatch;

// Pointer-valued items, named so that `const T*` reads as a pointer to a const pointer.
using TsampleAddr = void*;
using TlightTable = TlightData*;

// What an item holds. Network analysis maps these to the attribute class a
// connection from the sample takes; both "lightData" and "lightTable" map to
// the light-data class.
enum TsampleItemType : unsigned char {
    kSampleItem3Float,
    kSampleItem2Float,
    kSampleItemFloat,
    kSampleItemInt32,
    kSampleItemInt16,
    kSampleItemChar,
    kSampleItemBoolean,
    kSampleItemAddr,
    kSampleItemFltMatrix,
    kSampleItemLightData,
    kSampleItemLightTable,
};

// The items: index, accessor, enumerator suffix, setter, value family, C++ type, size in the table.
#define SHADENET_SAMPLE_ITEMS(X)                                                                   \
    X(0, pointCamera, PointCamera, setPointCamera, 3F, T3Float, 12)                                \
    X(1, pointObj, PointObj, setPointObj, 3F, T3Float, 12)                                         \
    X(2, pointWorld, PointWorld, setPointWorld, 3F, T3Float, 12)                                   \
    X(3, refPointCamera, RefPointCamera, setRefPointCamera, 3F, T3Float, 12)                       \
    X(4, refPointObj, RefPointObj, setRefPointObj, 3F, T3Float, 12)                                \
    X(5, refPointWorld, RefPointWorld, setRefPointWorld, 3F, T3Float, 12)                          \
    X(6, farPointCamera, FarPointCamera, setFarPointCamera, 3F, T3Float, 12)                       \
    X(7, farPointObj, FarPointObj, setFarPointObj, 3F, T3Float, 12)                                \
    X(8, farPointWorld, FarPointWorld, setFarPointWorld, 3F, T3Float, 12)                          \
    X(9, uvCoord, UvCoord, setUvCoord, 2F, T2Float, 8)                                             \
    X(10, normalCamera, NormalCamera, setNormalCamera, 3F, T3Float, 12)                            \
    X(11, triangleNormalCamera, TriangleNormalCamera, setTriangleNormalCamera, 3F, T3Float, 12)    \
    X(12, tangentUCamera, TangentUCamera, setTangentUCamera, 3F, T3Float, 12)                      \
    X(13, tangentVCamera, TangentVCamera, setTangentVCamera, 3F, T3Float, 12)                      \
    X(14, filterSize, FilterSize, setFilterSize, 3F, T3Float, 12)                                  \
    X(15, uvFilterSize, UvFilterSize, setUvFilterSize, 2F, T2Float, 8)                             \
    X(16, rayOrigin, RayOrigin, setRayOrigin, 3F, T3Float, 12)                                     \
    X(17, rayDirection, RayDirection, setRayDirection, 3F, T3Float, 12)                            \
    X(18, outColor, OutColor, setOutColor, 3F, T3Float, 12)                                        \
    X(19, outTransparency, OutTransparency, setOutTransparency, 3F, T3Float, 12)                   \
    X(20, outGlowColor, OutGlowColor, setOutGlowColor, 3F, T3Float, 12)                            \
    X(21, lightData, LightData, setLightData, LD, TlightData, 40)                                  \
    X(22, outParticleEmission, OutParticleEmission, setOutParticleEmission, 3F, T3Float, 12)       \
    X(23, particleOrder, ParticleOrder, setParticleOrder, I32, int32_t, 4)                         \
    X(24, blobbySurfaceFactor, BlobbySurfaceFactor, setBlobbySurfaceFactor, F, float, 4)           \
    X(25, opticalDepth, OpticalDepth, setOpticalDepth, F, float, 4)                                \
    X(26, particleWeight, ParticleWeight, setParticleWeight, F, float, 4)                          \
    X(27, particleEntryParam, ParticleEntryParam, setParticleEntryParam, F, float, 4)              \
    X(28, particleExitParam, ParticleExitParam, setParticleExitParam, F, float, 4)                 \
    X(29, particleEmission, ParticleEmission, setParticleEmission, 3F, T3Float, 12)                \
    X(30, particleColor, ParticleColor, setParticleColor, 3F, T3Float, 12)                         \
    X(31, particleTransparency, ParticleTransparency, setParticleTransparency, 3F, T3Float, 12)    \
    X(32, particleIncandescence, ParticleIncandescence, setParticleIncandescence, 3F, T3Float, 12) \
    X(33, particleAge, ParticleAge, setParticleAge, F, float, 4)                                   \
    X(34, particleLifespan, ParticleLifespan, setParticleLifespan, F, float, 4)                    \
    X(35, objectId, ObjectId, setObjectId, A, TsampleAddr, 4)                                            \
    X(36, rayDepth, RayDepth, setRayDepth, I32, int32_t, 4)                                        \
    X(37, rayInstance, RayInstance, setRayInstance, I32, int32_t, 4)                               \
    X(38, pixelCenter, PixelCenter, setPixelCenter, 2F, T2Float, 8)                                \
    X(39, vertexCameraOne, VertexCameraOne, setVertexCameraOne, 3F, T3Float, 12)                   \
    X(40, vertexCameraTwo, VertexCameraTwo, setVertexCameraTwo, 3F, T3Float, 12)                   \
    X(41, vertexCameraThree, VertexCameraThree, setVertexCameraThree, 3F, T3Float, 12)             \
    X(42, vertexUvOne, VertexUvOne, setVertexUvOne, 2F, T2Float, 8)                                \
    X(43, vertexUvTwo, VertexUvTwo, setVertexUvTwo, 2F, T2Float, 8)                                \
    X(44, vertexUvThree, VertexUvThree, setVertexUvThree, 2F, T2Float, 8)                          \
    X(45, primitiveId, PrimitiveId, setPrimitiveId, I32, int32_t, 4)                               \
    X(46, mediumRefractiveIndex, MediumRefractiveIndex, setMediumRefractiveIndex, F, float, 4)     \
    X(47, outMatteOpacity, OutMatteOpacity, setOutMatteOpacity, 3F, T3Float, 12)                   \
    X(48, objectType, ObjectType, setObjectType, C, char, 1)                                       \
    X(49, numShadingSamples, NumShadingSamples, setNumShadingSamples, C, char, 1)                  \
    X(50, matrixObjectToWorld, MatrixObjectToWorld, setMatrixObjectToWorld, M, TfltMatrix, 64)     \
    X(51, matrixWorldToObject, MatrixWorldToObject, setMatrixWorldToObject, M, TfltMatrix, 64)     \
    X(52, renderState, RenderState, setRenderedState, I32, int32_t, 4)                             \
    X(53, particleAttrArray, ParticleAttrArray, setParticleAttrArray, A, TsampleAddr, 4)                 \
    X(54, displacement, Displacement, setDisplacement, F, float, 4)                                \
    X(55, lightTable, LightTable, setLightTable, LT, TlightTable, 4)                               \
    X(56, illuminationIndex, IlluminationIndex, setIlluminationIndex, I16, int16_t, 2)             \
    X(57, pixelCoverage, PixelCoverage, setPixelCoverage, F, float, 4)                             \
    X(58, easMask, EasMask, setEasMask, U32, uint32_t, 4)                                          \
    X(59, flippedNormal, FlippedNormal, setFlippedNormal, B, bool, 1)                              \
    X(60, receiveShadows, ReceiveShadows, setReceiveShadows, B, bool, 1)                           \
    X(61, translucenceDepth, TranslucenceDepth, setTranslucenceDepth, F, float, 4)                 \
    X(62, shadowAttenuation, ShadowAttenuation, setShadowAttenuation, F, float, 4)                 \
    X(63, infoBits, InfoBits, setInfoBits, U32, uint32_t, 4)

enum TsampleItem : unsigned {
#define SHADENET_SAMPLE_ENUM(index, name, Cap, setter, family, Type, size) kItem##Cap = index,
    SHADENET_SAMPLE_ITEMS(SHADENET_SAMPLE_ENUM)
#undef SHADENET_SAMPLE_ENUM
    kSampleItemCount = 64,
};

// Index of the first user sample data entry in a field-offset table; entry
// kSampleItemCount holds the end of the implicit items.
inline constexpr unsigned kFirstUserField = kSampleItemCount + 1;

// The default value of every item, laid out as a full record would hold it.
class TsampleDataDefault {
public:
    TsampleDataDefault();
    const void* item(unsigned index) const { return fBytes + sFullOffset(index) - sFullOffset(0); }
    static unsigned sFullOffset(unsigned index);

private:
    alignas(16) unsigned char fBytes[800];
};

class Tsample {
public:
    // Size of the fixed head; the first item of any record starts here.
    static constexpr unsigned kHeadSize = (sizeof(TbitField64) + 3 * sizeof(void*) + 1 + 7) / 8 * 8;

    // The item tables. fDataItem ends in an empty name; fSampleDataOffset has
    // one entry more than there are items (the reference layout's end).
    static const char* const fDataItem[kSampleItemCount + 1];
    static const TsampleItemType fDataItemTypeid[kSampleItemCount];
    static const unsigned fSizes[kSampleItemCount];
    static const unsigned fSampleDataOffset[kSampleItemCount + 1];
    static const TsampleDataDefault fDefaults;

    // Bytes and alignment an item takes in a real record: fSizes rounded up
    // to 4, except that pointer-valued items take a whole aligned pointer.
    static unsigned sStorageSize(unsigned item);
    static unsigned sStorageAlignment(unsigned item);
    // Index of the item with this name, or -1.
    static int sItemIndex(const char* name);

    // Length of a field-offset table for `userCount` user data entries.
    static constexpr unsigned sFieldTableLength(unsigned userCount) { return kFirstUserField + userCount + 1; }
    // Fills `table` (sFieldTableLength(userCount) entries) for a record that
    // holds the items of `needed` and the user entries of the given sizes:
    // items are packed in index order after the head, each at its storage
    // alignment; entry 64 is the end of the items; user entries follow
    // pointer-aligned with sizes rounded up to 4; the last entry is the total.
    // Returns the record size rounded up to 8.
    static unsigned sBuildFieldOffsets(TbitField64 needed, unsigned* table, const unsigned* userSizes = nullptr,
                                       unsigned userCount = 0);

    // Constructs a sample in `memory` (at least the size sBuildFieldOffsets
    // returned, 8-aligned) with no item set and the item area zeroed.
    static Tsample* sCreate(void* memory, unsigned recordSize, unsigned* fieldOffsets,
                            TsampleManager* manager = nullptr, TsampleBatch* batch = nullptr);

    explicit Tsample(unsigned* fieldOffsets, TsampleManager* manager = nullptr, TsampleBatch* batch = nullptr)
        : fManager(manager), fBatch(batch), fFieldOffsets(fieldOffsets) {}

    // Re-targets a record for reuse: no item set, not dispatched.
    void reset(unsigned* fieldOffsets, TsampleManager* manager, TsampleBatch* batch) {
        fFieldsSet.clearAll();
        fManager = manager;
        fBatch = batch;
        fFieldOffsets = fieldOffsets;
        fDispatched = false;
    }

    TbitField64 fieldsSet() const { return fFieldsSet; }
    TsampleManager* manager() const { return fManager; }
    TsampleBatch* batch() const { return fBatch; }
    const unsigned* fieldOffsets() const { return fFieldOffsets; }
    bool dispatched() const { return fDispatched; }
    void setDispatched(bool dispatched) { fDispatched = dispatched; }

    bool hasItem(unsigned item) const { return fFieldOffsets[item] != 0; }
    bool isSet(unsigned item) const { return fFieldsSet.test(item); }
    // The item in the record, or its default when the record lacks it.
    const void* item(unsigned index) const {
        unsigned offset = fFieldOffsets[index];
        return offset ? bytes() + offset : fDefaults.item(index);
    }
    // Stores `size` bytes of a value for an item, when the record has it.
    void setItem(unsigned index, const void* value, unsigned size) {
        if (unsigned offset = fFieldOffsets[index]) {
            std::memcpy(bytes() + offset, value, size);
            fFieldsSet.set(index);
        }
    }

    // Copies the default of every item that is present, in `needed` and not set. Leaves fFieldsSet alone.
    void confirmSet(TbitField64 needed);
    // The same for records of one layout none of which has set `items`: an
    // item at a time over the records, as a batch usually needs.
    static void sConfirmUnset(Tsample* const* samples, unsigned count, TbitField64 items);
    // Deep raster exchange; an item whose raster offset is `absent` is skipped.
    void fillFromDeepRaster(const unsigned* rasterOffsets, const char* raster, unsigned absent);
    void copyToDeepRaster(const unsigned* rasterOffsets, char* raster, unsigned absent) const;

    // User sample data, addressed by field index (kFirstUserField and up).
    // Nothing is stored into a field the record lacks.
    void setUserSampleData(unsigned index, unsigned size, const void* data);
    void copyUserSampleData(unsigned from, unsigned to, unsigned size);
    const void* userSampleData(unsigned index) const {
        unsigned offset = fFieldOffsets[index];
        return offset ? bytes() + offset : nullptr;
    }

    // Accessors `<name>()` and setters `set<Name>(...)` of every item.
#define SHADENET_SAMPLE_SET_3F(index, setter)                                                  \
    void setter(const T3Float& v) { setItem(index, &v, 12); }                                 \
    void setter(float x, float y, float z) { setter(T3Float(x, y, z)); }                      \
    void setter(const double* v) { setter(T3Float(float(v[0]), float(v[1]), float(v[2]))); } \
    void setter(const T4dFltVector& v) { setter(T3Float(v.x, v.y, v.z)); }
#define SHADENET_SAMPLE_SET_2F(index, setter)                             \
    void setter(const T2Float& v) { setItem(index, &v, 8); }             \
    void setter(float x, float y) { setter(T2Float{x, y}); }             \
    void setter(const double* v) { setter(T2Float{float(v[0]), float(v[1])}); }
#define SHADENET_SAMPLE_SET_F(index, setter) \
    void setter(float v) { setItem(index, &v, 4); }
#define SHADENET_SAMPLE_SET_I32(index, setter) \
    void setter(int32_t v) { setItem(index, &v, 4); }
#define SHADENET_SAMPLE_SET_U32(index, setter) \
    void setter(uint32_t v) { setItem(index, &v, 4); }
#define SHADENET_SAMPLE_SET_I16(index, setter) \
    void setter(int16_t v) { setItem(index, &v, 2); }
#define SHADENET_SAMPLE_SET_C(index, setter) \
    void setter(char v) { setItem(index, &v, 1); }
#define SHADENET_SAMPLE_SET_B(index, setter) \
    void setter(bool v) { setItem(index, &v, 1); }
#define SHADENET_SAMPLE_SET_A(index, setter) \
    void setter(void* v) { setItem(index, &v, sizeof v); }
#define SHADENET_SAMPLE_SET_M(index, setter)                           \
    void setter(const TfltMatrix& v) { setItem(index, &v, sizeof v); } \
    void setter(const Tmatrix& v) { setter(convertMatrix<float>(v)); }
#define SHADENET_SAMPLE_SET_LD(index, setter) \
    void setter(const TlightData& v) { setItem(index, &v, sizeof v); }
#define SHADENET_SAMPLE_SET_LT(index, setter) \
    void setter(TlightData* v) { setItem(index, &v, sizeof v); }
#define SHADENET_SAMPLE_ACCESS(index, name, Cap, setter, family, Type, size)          \
    const Type* name() const { return static_cast<const Type*>(item(index)); } \
    SHADENET_SAMPLE_SET_##family(index, setter)

    SHADENET_SAMPLE_ITEMS(SHADENET_SAMPLE_ACCESS)

#undef SHADENET_SAMPLE_ACCESS
#undef SHADENET_SAMPLE_SET_3F
#undef SHADENET_SAMPLE_SET_2F
#undef SHADENET_SAMPLE_SET_F
#undef SHADENET_SAMPLE_SET_I32
#undef SHADENET_SAMPLE_SET_U32
#undef SHADENET_SAMPLE_SET_I16
#undef SHADENET_SAMPLE_SET_C
#undef SHADENET_SAMPLE_SET_B
#undef SHADENET_SAMPLE_SET_A
#undef SHADENET_SAMPLE_SET_M
#undef SHADENET_SAMPLE_SET_LD
#undef SHADENET_SAMPLE_SET_LT

private:
    char* bytes() { return reinterpret_cast<char*>(this); }
    const char* bytes() const { return reinterpret_cast<const char*>(this); }

    TbitField64 fFieldsSet;
    TsampleManager* fManager = nullptr;
    TsampleBatch* fBatch = nullptr;
    unsigned* fFieldOffsets = nullptr;
    bool fDispatched = false;
};

static_assert(sizeof(Tsample) == Tsample::kHeadSize, "items start right after the head");
