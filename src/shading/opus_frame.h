#pragma once
// The state of one run of a shading program: in the calling thread's stack
// frame, or in a frame the thread keeps for the program between batches.
// Shared by the program's files only.
#include <cstdint>

#include "framework/host/data_block.h"
#include "shading/light_data.h"

class TshadingOpus;
class TdataBlockRendering;
class Tsample;
struct TSEstep;

// The lights of one run: the records of each sample that has its own
// lighting, and for every sample the one whose records it uses.
struct TSElighting {
    TlightData* records = nullptr;  // unique sample u, light k: records[u * capacity + k]
    unsigned capacity = 0;          // lights of the group
    unsigned run = 0;               // lights that ran for this batch
    const uint8_t* groupOf = nullptr;  // per sample, its unique sample
};

struct TSEframe {
    const TshadingOpus* opus;
    TdataBlockRendering* blocks;
    TdataBlockRendering* sampleBlock;  // the records as one block, when evenly spaced; else null
    bool recordsEven;                  // the records lie at a fixed spacing: items linked to them are used in place
    // The steps this run takes, segment by segment: evenly spaced records
    // skip the copies into items written in place.
    const TSEstep* steps;
    const unsigned* segmentSteps;
    unsigned char* constants;
    unsigned char* variables;
    unsigned layout;           // the samples the variables are laid out for: a block's elements start at its base times this
    uint64_t* segmentDone;     // per segment, the samples it has computed in this run
    uint64_t* segmentRunning;  // per segment, the samples it is computing now
    unsigned char* loop;       // provider stacks
    unsigned providerDepth;    // providers running now
    Tsample* const* samples;
    const unsigned* fields;
    unsigned count;
    unsigned blocksMade;
    // A kept frame: the size and records its blocks were last readied for.
    unsigned keptCount;
    const void* keptRecords;
    // A kept frame's blocks answer their plain reads from tables decoded
    // after its first run.
    TdataBlock::Resolved* resolved;
    bool resolvedReady;
    // The records the entries of record fields were last pointed at.
    unsigned char* resolvedFirst;
    unsigned resolvedStride;
    const unsigned* resolvedFields;
    // This batch's records when evenly spaced: the first, and the spacing.
    unsigned char* recordsFirst;
    unsigned recordsStride;
    const TSElighting* lighting;
};
