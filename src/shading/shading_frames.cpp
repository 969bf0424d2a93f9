#include "shading/shading_frames.h"

namespace {
// Initial-exec: one load from the thread pointer, where the library's
// default model would call into the loader on every batch.
__attribute__((tls_model("initial-exec"))) thread_local TshadingFrames* tCurrentFrames = nullptr;

constexpr size_t kAlignment = 16;
}  // namespace

TshadingFrames::TshadingFrames(size_t bytes)
    : fMemory(bytes ? std::make_unique<unsigned char[]>(bytes + kAlignment) : nullptr), fBytes(bytes) {}

TshadingFrames::~TshadingFrames() {
    if (tCurrentFrames == this) tCurrentFrames = nullptr;
}

TshadingFrames* TshadingFrames::current() { return tCurrentFrames; }
void TshadingFrames::setCurrent(TshadingFrames* frames) { tCurrentFrames = frames; }

TshadingFrames::Tframe* TshadingFrames::acquire(const void* owner, uint64_t serial, size_t size, bool& fresh) {
    fresh = false;
    auto found = [&](unsigned k) -> Tframe* {
        Tframe& f = fFrames[k];
        if (f.busy) return nullptr;
        f.busy = true;
        fLast = k;
        ++fReused;
        return &f;
    };
    if (fLast < fCount && fFrames[fLast].owner == owner && fFrames[fLast].serial == serial) return found(fLast);
    for (unsigned k = 0; k < fCount; ++k)
        if (fFrames[k].owner == owner && fFrames[k].serial == serial) return found(k);

    size = (size + kAlignment - 1) & ~(kAlignment - 1);
    if (size > fBytes) return nullptr;
    if (fUsed + size > fBytes || fCount == kMaxFrames) {
        for (unsigned k = 0; k < fCount; ++k)
            if (fFrames[k].busy) return nullptr;
        fUsed = 0;
        fCount = 0;
    }
    auto* base = reinterpret_cast<unsigned char*>((reinterpret_cast<uintptr_t>(fMemory.get()) + kAlignment - 1) &
                                                  ~uintptr_t(kAlignment - 1));
    Tframe& f = fFrames[fCount];
    f = {owner, serial, base + fUsed, size, true};
    fUsed += size;
    fLast = fCount++;
    ++fMade;
    fresh = true;
    return &f;
}
