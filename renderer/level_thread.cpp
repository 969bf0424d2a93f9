#include "renderer/level_thread.h"

#include <cmath>

#include "renderer/render_scene.h"
#include "shading/sample_manager.h"
#include "shading/shading_engine.h"

TrenderLevelThread::TrenderLevelThread(TframeConstants* constants, TraySampler* sampler, unsigned groupCount, TSEoption option)
    : TrenderThreadBase(constants), fSampler(sampler), fOption(option), fStarted(groupCount) {}

TrenderLevelThread::~TrenderLevelThread() { endSampling(); }

Tsample* TrenderLevelThread::allocate(const TrenderObject& object) {
    auto* renderGroup = const_cast<TrenderObject*>(&object);
    return allocate(object.group, object.groupIndex, renderGroup, &object);
}

Tsample* TrenderLevelThread::allocate(TDNshadingEngine* group, int groupIndex, TrenderGroupBase* renderGroup,
                                      const TgeoManagerBase* geometry) {
    if (groupIndex < 0 || unsigned(groupIndex) >= fStarted.size()) return nullptr;
    Started& started = fStarted[groupIndex];
    if (!started.group) {
        started.group = group;
        started.renderGroup = renderGroup;
        startSampling(group, fOption, renderGroup, geometry);
        started.ok = group->option(fOption).opus != nullptr;
    }
    if (!started.ok) return nullptr;
    Tsample* sample = nullptr;
    sampleManager()->allocateSamples(group, fOption, renderGroup, 1, &sample);
    return sample;
}

void TrenderLevelThread::endSampling() {
    for (Started& s : fStarted) {
        if (s.group) TrenderThreadBase::endSampling(s.group, fOption, s.renderGroup);
        s = Started();
    }
}

T3Float defaultSurfaceColour(const T3Float& normal, const T3Float& rayDirection) {
    float facing = std::fabs(dot(normal, rayDirection));
    float grey = 0.5f * (0.25f + 0.75f * facing);
    return {grey, grey, grey};
}
