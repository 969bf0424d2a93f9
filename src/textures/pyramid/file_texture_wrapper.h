#pragma once
// What a pyramid lookup needs of the file texture node for one sample. The
// node fills it; the pyramid only reads it.
class Tpyramid;
class TfileTextureCache;

struct TfileTextureWrapper {
    Tpyramid* pyramid = nullptr;
    // The calling thread's block cache; null takes the thread's own.
    TfileTextureCache* cache = nullptr;
    bool wrapU = true;
    bool wrapV = true;
    // Nearest pixel of the top level, no mip levels, no bilinear.
    bool noFilter = false;
};
