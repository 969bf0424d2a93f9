#pragma once
// The records of one analysis of a shading network: one description per
// node reached, with what is known of each attribute (unused, constant for
// the batch, variable per sample), where each input's value comes from, and
// the flags that decide how the node is emitted. They live on the heap for
// the length of one analysis only.
#include <cstdint>
#include <utility>
#include <vector>

#include "framework/host/plug.h"

class TDNshadingEngine;
class TdependNode;
class TdependencyMatrix;
class Tattribute;

enum TSEsampleType : unsigned { kSampleSurface = 0, kSampleVolume = 1, kSampleImage = 2, kSampleDisplacement = 3, kSampleLight = 4 };

// What a search for a value entered by; also the steps of the search.
enum TSEportId : unsigned {
    kPortImplicit = 0,  // the group's own sample port, or an implicit sample item
    kPortUnsolicited = 1,
    kPortLightData = 2,
    kPortSurfaceShader = 3,
    kPortVolumeShader = 4,
    kPortDisplacementShader = 5,
    kPortImageShader = 6,
    kPortEnd = 7,
};

enum TSEmemoryType : uint8_t { kMemoryUnknown = 0, kMemoryConstant = 1, kMemoryVariable = 2 };
enum TSEimplicitType : unsigned { kImplicitNotFound = 0, kImplicitConstant = 1, kImplicitVariable = 2, kImplicitZero = 3 };

// Where one input's value comes from.
enum TSEconnectionKindId : unsigned {
    kConnNone = 0,
    kConnConstantPlug = 1,    // a constant output of another node, read at analysis
    kConnNodeOutput = 2,      // a variable output of another reached node
    kConnLightDefault = 3,
    kConnSampleItem = 4,      // an item of the sample
    kConnShaderOutput = 5,    // the group's item from a variable output
    kConnConstantValue = 6,   // the group's item from a constant read at analysis
    kConnProviderSeed = 7,
    kConnSampleDirect = 8,
};

class TSEnodeDescription;
class TshadingOpus;
class TstackArena;

// Compiles the network behind `light` (its "lightData" output) for option
// kSingleLight into `arena`; null when the light gives no varying record.
TshadingOpus* buildLightOpus(TDNshadingEngine& group, TdependNode* light, TstackArena& arena);

struct TSEconnectionRecord {
    TSEconnectionKindId kind;
    TSEnodeDescription* source;  // null for a sample item or a constant
    int sourceAttr;              // attribute index in the source, or the sample item
    unsigned destAttr;           // attribute index here; for the group, the item
    TSEmemoryType memory;
    bool lazy;  // read on demand, run by run
    int element = -1;  // the logical index when the destination is an element of a multi
};

class TSEnodeDescription {
public:
    TSEnodeDescription(TDNshadingEngine* engine, TSEnodeDescription* root, TdependNode* node);

    // For a node's analyse: the source of this input is computed only for
    // the samples whose runs the node asks for. With `passedTo`, the node
    // only copies the input into that output for the samples it reads it
    // for: a source nothing else reads may then write its value there.
    void markLazyInput(const Tattribute& input, const Tattribute* passedTo = nullptr);

    TSEnodeDescription* next = nullptr;  // completion list, last completed first
    TDNshadingEngine* engine;
    TSEnodeDescription* root;
    TdependNode* node;  // null for the group's sample port
    const TdependencyMatrix* matrix = nullptr;
    unsigned attributeCount = 0;
    std::vector<uint8_t> memoryType;  // TSEmemoryType per attribute
    std::vector<uint8_t> wanted;      // outputs a consumer reads
    std::vector<uint8_t> lazy;        // inputs read on demand
    std::vector<std::pair<unsigned, unsigned>> passes;  // (lazy input, the output it is copied into)
    unsigned uses = 0, pending = 0;
    uint32_t guard = 0;
    bool cut = false, visited = false, provider = false, emitted = false;
    bool inProgress = false, loop = false, codeEmitted = false;
    bool promoted = false;  // cut, then moved to the head of the straight line
    std::vector<TSEconnectionRecord> connections;
    // On the root: the user items nodes asked for, in order.
    struct UserItem {
        unsigned attribute, size, sourceField, fillCount;
        const class TuserSampleFill* const* fills;
    };
    std::vector<UserItem> userItems;
    // Outputs that stand in for a sample item while the node computes: (item, attribute).
    std::vector<std::pair<unsigned, unsigned>> provides;
    int block = -1;
    int segment = -1;
};
