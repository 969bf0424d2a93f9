#pragma once
// User sample data: values a node asks the engine to carry in every sample
// beside the implicit items, filled per batch before the network runs,
// either copied from another field or by a per-object fill object that the
// node supplies (for example a value a renderer keeps per object).
#include <cstdint>

class Tsample;

class TuserSampleFill {
public:
    virtual ~TuserSampleFill() = default;
    // Writes `size` bytes at field index `field` of each sample; `sourceField`
    // is the field the value would otherwise be copied from.
    virtual void fill(unsigned count, Tsample** samples, unsigned field, unsigned size, unsigned sourceField) const = 0;
    // Called once for each use when the program that holds the object goes.
    virtual void release() const {}
};

// One user item: six words.
struct TSEudSampleRecord {
    uint32_t nameIndex;    // the attribute index in the node that asked for it
    uint32_t size;         // bytes
    uint32_t field;        // field index in the sample's offset table
    uint32_t sourceField;  // field copied when no fill object applies
    uint32_t fillCount;    // fill objects, indexed by object number
    const TuserSampleFill* const* fills;
};

struct TSEudSampleTable {
    unsigned count;
    TSEudSampleRecord* records;
};

// The first user field is a fixed slot of this size that the light loop
// keeps for shared illumination; node items follow it.
constexpr unsigned kIlluminationSlotSize = 36;
