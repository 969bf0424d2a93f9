#include "shading/ray_sampler.h"

const Tspectrum kBlackSpectrum(0, 0, 0);
const Tspectrum kWhiteSpectrum(1, 1, 1);
const Tspectrum kRedSpectrum(1, 0, 0);
const Tspectrum kGreenSpectrum(0, 1, 0);
const Tspectrum kBlueSpectrum(0, 0, 1);

namespace {
thread_local TraySampler* tCurrentRaySampler = nullptr;
}

TraySampler* currentRaySampler() { return tCurrentRaySampler; }
void setCurrentRaySampler(TraySampler* sampler) { tCurrentRaySampler = sampler; }
