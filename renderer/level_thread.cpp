#include "renderer/level_thread.h"

#include <cmath>

#include "renderer/render_scene.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"

TrenderLevelThread::TrenderLevelThread(TframeConstants* constants, TraySampler* sampler, unsigned groupCount)
    : TrenderThreadBase(constants), fSampler(sampler), fStarted(groupCount) {}

TrenderLevelThread::~TrenderLevelThread() { endSampling(); }

Tsample* TrenderLevelThread::allocate(const TrenderObject& object) {
    if (object.groupIndex < 0 || unsigned(object.groupIndex) >= fStarted.size()) return nullptr;
    Started& started = fStarted[object.groupIndex];
    auto* renderGroup = const_cast<TrenderObject*>(&object);
    if (!started.group) {
        started.group = object.group;
        started.renderGroup = renderGroup;
        startSampling(object.group, kSurfaceColorTransparency, renderGroup, &object);
        started.ok = object.group->option(kSurfaceColorTransparency).opus != nullptr;
    }
    if (!started.ok) return nullptr;
    Tsample* sample = nullptr;
    sampleManager()->allocateSamples(object.group, kSurfaceColorTransparency, renderGroup, 1, &sample);
    return sample;
}

void TrenderLevelThread::endSampling() {
    for (Started& s : fStarted) {
        if (s.group) TrenderThreadBase::endSampling(s.group, kSurfaceColorTransparency, s.renderGroup);
        s = Started();
    }
}

T3Float defaultSurfaceColour(const T3Float& normal, const T3Float& rayDirection) {
    float facing = std::fabs(dot(normal, rayDirection));
    float grey = 0.5f * (0.25f + 0.75f * facing);
    return {grey, grey, grey};
}
