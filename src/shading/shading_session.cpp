#include "shading/shading_session.h"

#include "shading/shading_engine.h"

TshadingSession::TshadingSession(TDNshadingEngine* group, TframeSampleData* data) : fThread(&fConstants), fGroup(group) {
    fConstants.setFrameSampleData(data);
    fThread.initShadingGroup(fGroup);
}

TshadingSession::~TshadingSession() { TrenderThreadBase::resetShadingGroup(fGroup); }

bool TshadingSession::analyse(TSEoption option, TbitField64* result) {
    TbitField64 ignored;
    return fGroup->analyse(option, result ? result : &ignored, fConstants.frameSampleData(), nullptr, &fThread);
}

TshadingOpus* TshadingSession::program(TSEoption option, TbitField64* result) {
    if (!analyse(option, result)) return nullptr;
    return fGroup->option(option).opus;
}
