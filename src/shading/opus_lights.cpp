// The light loop of a shading program. Before a group's network runs on a
// batch, each light of the group runs its own program over the samples that
// have their own lighting; the records land in a table on the stack, and
// every node that reads "lightDataArray" gets, per sample, the records of
// the lights that ran, as elements 0 .. n-1 of its light array. A batch is
// one object, so every sample of it has the same count of lights.
#include <algorithm>
#include <cstring>
#include <vector>

#include "framework/host/depend_node.h"
#include "shading/network_analysis.h"
#include "shading/opus_frame.h"
#include "shading/render_bases.h"
#include "shading/sample.h"
#include "shading/sample_manager.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"

namespace {
// The head of an array value in a block (see TdataBlockRendering).
struct TlightArrayHeader {
    uint32_t count;
    uint32_t elementSize;
    uint32_t bits[2];
};
static_assert(sizeof(TlightArrayHeader) == 16);

constexpr unsigned kMaxLights = 64;

unsigned recordSize(const unsigned* fields) { return (fields[Tsample::sFieldTableLength(0) - 1] + 7) & ~7u; }
}  // namespace

void TshadingOpus::addIlluminationData(unsigned lightCount, TstackArena& arena) {
    fLightCount = std::min(lightCount, kMaxLights);
    fLights = nullptr;
    if (!fLightCount) return;
    fLights = static_cast<TshadingOpus**>(arena.allocate(sizeof(TshadingOpus*) * fLightCount));
    std::fill(fLights, fLights + fLightCount, nullptr);
}

void TshadingOpus::addIlluminatingLight(unsigned index, TshadingOpus* lightOpus) {
    if (index < fLightCount) fLights[index] = lightOpus;
}

void TshadingOpus::setFieldOffsets(unsigned* fieldOffsets, TbitField64 needs) {
    fFieldOffsets = fieldOffsets;
    fNeeds = needs;
    // Made before shading starts: the plan's words follow the new layout,
    // and frames kept with tables decoded from the old words are not found.
    if (fPlan) {
        linkRecordFields(const_cast<Plan&>(*fPlan));
        fSerial = sNextSerial();
    }
}

void TshadingOpus::releaseLights() {
    for (unsigned k = 0; k < fLightCount; ++k) {
        TshadingOpus* light = fLights[k];
        if (light && light->node() != fEngine) TshadingCatalog::deleteOpus(light->node(), kSingleLight, false);
        fLights[k] = nullptr;
    }
    fLightCount = 0;
}

bool TshadingOpus::objectMask(Tsample* const* samples, const TbitFieldFixedN*& row) const {
    row = nullptr;
    if (!fEngine) return false;
    TsampleBatch* batch = samples[0]->batch();
    if (!batch || !batch->renderGroup) return false;
    const std::vector<TbitFieldFixedN>& rows = fEngine->litRows();
    unsigned object = batch->renderGroup->objectNumber();
    // An object the linking tables do not know is lit by every light.
    if (object >= rows.size()) return false;
    row = &rows[object];
    return true;
}

void TshadingOpus::runLights(unsigned count, Tsample** samples, TSElighting& lighting, uint8_t* groupOf, Tsample** unique) const {
    // Runs of adjacent samples with one illumination index share one lighting.
    unsigned uniqueCount = 0;
    int last = 0;
    for (unsigned i = 0; i < count; ++i) {
        int value = *samples[i]->illuminationIndex();
        if (value < 0) value = int(i);
        if (i == 0 || value != last) {
            unique[uniqueCount++] = samples[unsigned(value) < count ? unsigned(value) : i];
            last = value;
        }
        groupOf[i] = uint8_t(uniqueCount - 1);
    }
    lighting.capacity = fLightCount;

    const TbitFieldFixedN* row = nullptr;
    bool masked = objectMask(samples, row);
    unsigned n = 0;
    for (unsigned k = 0; k < fLightCount; ++k) {
        if (masked && !row->test(k)) continue;
        TshadingOpus* light = fLights[k];
        if (!light) continue;
        light->shade(uniqueCount, unique);
        for (unsigned u = 0; u < uniqueCount; ++u) {
            const TlightData& record = *unique[u]->lightData();
            lighting.records[size_t(u) * fLightCount + n] = record;
            if (unique[u]->hasItem(kItemLightTable))
                if (TlightData* table = *unique[u]->lightTable()) table[n] = record;
        }
        ++n;
    }
    lighting.run = n;

    // The renderer's tables of the samples that borrow another's lighting.
    for (unsigned i = 0; i < count && n; ++i) {
        Tsample* from = unique[groupOf[i]];
        if (from == samples[i] || !samples[i]->hasItem(kItemLightTable)) continue;
        TlightData* to = *samples[i]->lightTable();
        const TlightData* source = *from->lightTable();
        if (to && source && to != source) std::memcpy(static_cast<void*>(to), source, sizeof(TlightData) * n);
    }
}

void TshadingOpus::copyLights(TSEframe& frame, const TSEinstruction& in, unsigned first, unsigned count) const {
    const TSEblockLayout& layout = fProgram.blocks[in.word[0]];
    const TdataBlockRendering::AttrInfo& info = layout.info[in.word[1]];
    unsigned capacity = info.parentOrSegment >= 0 ? layout.multi[info.parentOrSegment].numKids : 0;
    const TSElighting* lighting = frame.lighting;
    unsigned n = lighting ? std::min(lighting->run, capacity) : 0;
    TlightArrayHeader header{capacity, unsigned(sizeof(TlightData)), {0, 0}};
    for (unsigned k = 0; k < n; ++k) header.bits[k >> 5] |= 1u << (k & 31);
    unsigned char* base = frame.variables + size_t(layout.variableBase) * frame.layout + info.offset;
    for (unsigned i = first; i < first + count; ++i) {
        unsigned char* element = base + size_t(layout.elementSize) * i;
        std::memcpy(element, &header, sizeof header);
        if (!n) continue;
        const TlightData* records = lighting->records + size_t(lighting->groupOf[i]) * lighting->capacity;
        std::memcpy(element + sizeof header, static_cast<const void*>(records), sizeof(TlightData) * n);
    }
}

unsigned TshadingOpus::sampleLights(void* context, unsigned sample, unsigned count, const T3Float* points,
                                    TlightData* const* results, const TfltMatrix* cameraToWorld) {
    auto* frame = static_cast<TSEframe*>(context);
    if (!frame || !count || sample >= frame->count) return 0;
    const TshadingOpus* opus = frame->opus;
    if (!opus->fLightCount) return 0;
    Tsample* source = frame->samples[sample];
    unsigned size = recordSize(source->fieldOffsets());
    const TbitFieldFixedN* row = nullptr;
    bool masked = opus->objectMask(frame->samples, row);

    unsigned ran = 0;
    for (unsigned start = 0; start < count; start += kBatchSize) {
        unsigned chunk = std::min(count - start, kBatchSize);
        auto* memory = static_cast<unsigned char*>(__builtin_alloca(size_t(size) * chunk + 8));
        memory = reinterpret_cast<unsigned char*>((reinterpret_cast<uintptr_t>(memory) + 7) & ~uintptr_t(7));
        Tsample* copies[kBatchSize];
        for (unsigned p = 0; p < chunk; ++p) {
            copies[p] = reinterpret_cast<Tsample*>(memory + size_t(size) * p);
            std::memcpy(static_cast<void*>(copies[p]), source, size);
            const T3Float& point = points[start + p];
            copies[p]->setPointCamera(point);
            if (cameraToWorld) copies[p]->setPointWorld(cameraToWorld->transformPoint(point));
        }
        unsigned n = 0;
        for (unsigned k = 0; k < opus->fLightCount; ++k) {
            if (masked && !row->test(k)) continue;
            TshadingOpus* light = opus->fLights[k];
            if (!light) continue;
            light->shade(chunk, copies);
            for (unsigned p = 0; p < chunk; ++p) results[start + p][n] = *copies[p]->lightData();
            ++n;
        }
        ran = n;
    }
    return ran;
}

void TDNshadingEngine::getLightList(TSEoption option, TshadingOpus* opus, TstackArena& arena) {
    unsigned count = unsigned(std::min<size_t>(fLights.size(), kMaxLights));
    opus->addIlluminationData(count, arena);
    TbitField64 needs = opus->needs();
    needs.set(kItemLightData);
    needs.set(kItemIlluminationIndex);  // the renderer says which samples share lighting
    for (unsigned k = 0; k < count; ++k) {
        TdependNode* light = fLights[k];
        // Two groups that share a light build its program once.
        TdependNodeMutexPtr mutex = TdepNodeMutexMgr::instance().obtainNodeMutex(light);
        TshadingOpus* program = nullptr;
        {
            TmtLock lock(*mutex);
            TshadingOpus** slot = nullptr;
            TstackArena* lightArena = nullptr;
            if (TshadingCatalog::getOpus(slot, lightArena, light, kSingleLight)) {
                program = *slot;
            } else if ((program = buildLightOpus(*this, light, *lightArena))) {
                *slot = program;
            } else {
                TshadingCatalog::deleteOpus(light, kSingleLight, true);
            }
        }
        TdepNodeMutexMgr::instance().returnMutex(light, mutex);
        if (!program) continue;
        opus->addIlluminatingLight(k, program);
        needs |= program->needs();
    }

    // The samples now also carry what the lights read, and keep the user
    // sample data (the illumination slot, then the nodes' entries): each
    // entry's span in the old table, padding included, lays it out alike.
    OptionState& state = fOptions[option];
    TbitField64 present = needs;
    for (unsigned i = 0; i < kSampleItemCount; ++i)
        if (state.fieldOffsets && state.fieldOffsets[i]) present.set(i);
    const unsigned userCount = state.fieldOffsets ? opus->sizeOffset() : 0;
    std::vector<unsigned> userSizes(userCount);
    for (unsigned u = 0; u < userCount; ++u)
        userSizes[u] = state.fieldOffsets[kFirstUserField + u + 1] - state.fieldOffsets[kFirstUserField + u];
    auto* fields = static_cast<unsigned*>(arena.allocate(sizeof(unsigned) * Tsample::sFieldTableLength(userCount)));
    state.sampleSize = Tsample::sBuildFieldOffsets(present, fields, userSizes.data(), userCount);
    state.fieldOffsets = fields;
    state.needs |= needs;
    opus->setFieldOffsets(fields, needs);
}
