#pragma once
// TshadingFrames: the frames one render thread keeps between batches. A run
// of a shading program needs its nodes' blocks made and linked before the
// first node computes; a thread that shades batch after batch of the same
// few groups keeps each program's frame here, laid out for a whole batch,
// and a batch then starts with a few stores per block. The memory is taken
// once, when the set is made; shading takes none.
//
// A renderer makes one set per thread and installs it on the thread that
// shades:
//     TshadingFrames frames;                  // one per worker
//     TshadingFramesScope keep(&frames);      // around the worker's shading
// Without a set installed, each run makes its frame on its own stack.
#include <cstddef>
#include <cstdint>
#include <memory>

class TshadingFrames {
public:
    static constexpr size_t kDefaultBytes = size_t(1) << 20;
    static constexpr unsigned kMaxFrames = 32;

    explicit TshadingFrames(size_t bytes = kDefaultBytes);
    ~TshadingFrames();
    TshadingFrames(const TshadingFrames&) = delete;
    TshadingFrames& operator=(const TshadingFrames&) = delete;

    // The calling thread's set, or null.
    static TshadingFrames* current();
    static void setCurrent(TshadingFrames* frames);

    // For the engine. The frame kept for `owner` as built at `serial`, of
    // `size` bytes, 16-aligned, marked busy; `fresh` says it was just carved
    // and holds nothing yet. Null when it cannot be kept: larger than the
    // set, or the owner's frame is busy (a run of the program nested in one
    // of its own, through a traced ray). When the set is full and nothing is
    // busy, every frame is dropped and carving starts over.
    struct Tframe {
        const void* owner;
        uint64_t serial;
        unsigned char* memory;
        size_t size;
        bool busy;
    };
    Tframe* acquire(const void* owner, uint64_t serial, size_t size, bool& fresh);
    static void release(Tframe* frame) { frame->busy = false; }

    size_t capacity() const { return fBytes; }
    unsigned frameCount() const { return fCount; }
    // Frames carved and batches that found theirs, since the set was made.
    uint64_t framesMade() const { return fMade; }
    uint64_t framesReused() const { return fReused; }

private:
    std::unique_ptr<unsigned char[]> fMemory;
    size_t fBytes;
    size_t fUsed = 0;
    unsigned fCount = 0;
    unsigned fLast = 0;  // the frame found last: batches of one group come in runs
    Tframe fFrames[kMaxFrames];
    uint64_t fMade = 0, fReused = 0;
};

// Installs a thread's set for a scope and restores the previous one.
class TshadingFramesScope {
public:
    explicit TshadingFramesScope(TshadingFrames* frames) : fPrevious(TshadingFrames::current()) {
        TshadingFrames::setCurrent(frames);
    }
    ~TshadingFramesScope() { TshadingFrames::setCurrent(fPrevious); }
    TshadingFramesScope(const TshadingFramesScope&) = delete;
    TshadingFramesScope& operator=(const TshadingFramesScope&) = delete;

private:
    TshadingFrames* fPrevious;
};
