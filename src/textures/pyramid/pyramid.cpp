#include "textures/pyramid/pyramid.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/filter_zoom.h"
#include "textures/pyramid/pyramid_inventory.h"

const int Tpyramid::fsNumRows[kLevels] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192};
const uint32_t Tpyramid::fsSpaceRequired[kLevels] = {0,       1,       5,        21,       85,
                                                     341,     1365,    5461,     21845,    87381,
                                                     349525,  1398101, 5592405,  22369621};
const uint32_t Tpyramid::fsNumBlocks[kLevels] = {0, 1, 2, 3, 4, 5, 6, 10, 26, 90, 346, 1370, 5466, 21850};

std::atomic<uint64_t> Tpyramid::fsCacheBytesUsed{0};

namespace {
int roundUp32(int n) { return (n + 31) & ~31; }
bool isPowerOfTwo(int n) { return n > 0 && (n & (n - 1)) == 0; }
}  // namespace

int Tpyramid::levelFor(int side) {
    int n = 0;
    while ((1 << n) < side) ++n;
    return n;
}

Tpyramid::Tpyramid(const Tstring& id, const Tstring& file, int width, int height, int channels, short flagRows,
                   bool keepSize)
    : fName(id), fFileName(file) {
    width = std::clamp(width, 1, kMaxSide);
    height = std::clamp(height, 1, kMaxSide);
    fChannels = uint8_t(channels == 1 || channels == 3 || channels == 4 ? channels : 4);
    fOriginalWidth = fWidth = uint16_t(width);
    fOriginalHeight = fHeight = uint16_t(height);
    int longer = std::max(width, height), shorter = std::min(width, height);
    float r = float(longer) / float(shorter);
    if (!keepSize && r >= 2 && (r >= 2.1f || !isPowerOfTwo(longer))) {
        // Long thin images become square, so that the mip levels keep detail
        // along the short side; the aspect brings the filter width back.
        fWidth = fHeight = uint16_t(longer);
        fAspect = r;
        fStretchMode = width > height ? 2 : 1;
    }
    resetCacheFlags(std::max<int>(flagRows, TfileTextureCache::kThreadRows));
    setLevelTables();
}

Tpyramid::~Tpyramid() {
    TfileTextureCache::sForgetPyramidEverywhere(this);
    TpyramidInventory::unregisterPyramid(this, fSwatch);
    Tpyramid::freePyramid();
    if (fBotDescriptor >= 0) ::close(fBotDescriptor);
    if (fOwnsCacheFile) {
        ::unlink(fBotPath.asC());
        fsCacheBytesUsed -= fFileBytes;
    }
    delete[] fCacheFlags;
}

void* Tpyramid::allocate(unsigned size) { return TpyramidInventory::allocate(size); }

void Tpyramid::freePyramid() {
    TpyramidInventory::deallocate(fMemory);
    fMemory = nullptr;
    fMemorySize = 0;
    if (!fIsBOT) std::fill(std::begin(fLevels), std::end(fLevels), nullptr);
}

void Tpyramid::resetCacheFlags(int rows) {
    rows = std::max(rows, 1);
    if (rows != fFlagRows || !fCacheFlags) {
        delete[] fCacheFlags;
        fCacheFlags = new uint32_t[size_t(rows) * kFlagWordsPerRow];
        fFlagRows = rows;
    }
    std::memset(fCacheFlags, 0, sizeof(uint32_t) * size_t(rows) * kFlagWordsPerRow);
}

void Tpyramid::setLevelTables() {
    fLargestSide = std::max(fWidth, fHeight);
    fMaxLevel = uint8_t(levelFor(fLargestSide));
    fSquare = fWidth == fHeight && fWidth == fsNumRows[fMaxLevel];
    for (int l = 0; l < kLevels; ++l) {
        int side = l == fMaxLevel ? fWidth : fsNumRows[l];
        fBlocksPerRow[l] = (side + kBlockSide - 1) / kBlockSide;
        fLevelIndex[l] = uint32_t(botHeader::kSize + 4 * fsNumBlocks[l]);
    }
}

int Tpyramid::levelBlockCount(int level) const {
    if (level == fMaxLevel) return (roundUp32(fWidth) / 32) * (roundUp32(fHeight) / 32);
    int side = fsNumRows[level];
    return side <= kBlockSide ? 1 : (side / kBlockSide) * (side / kBlockSide);
}

int Tpyramid::totalBlockCount() const { return int(fsNumBlocks[fMaxLevel]) + levelBlockCount(fMaxLevel); }

void Tpyramid::blockSize(int level, int block, int& width, int& height) const {
    int bpr = fBlocksPerRow[level];
    int bx = block % bpr, by = block / bpr;
    width = std::min(kBlockSide, levelWidth(level) - bx * kBlockSide);
    height = std::min(kBlockSide, levelHeight(level) - by * kBlockSide);
}

size_t Tpyramid::memoryBytes() const {
    return size_t(fChannels) * (size_t(fWidth) * fHeight + fsSpaceRequired[fMaxLevel]);
}

void Tpyramid::setLevelPointers(uint8_t* base) {
    for (int l = 0; l < kLevels; ++l) fLevels[l] = nullptr;
    for (int l = 0; l < fMaxLevel; ++l) fLevels[l] = base + size_t(fChannels) * fsSpaceRequired[l];
    fLevels[fMaxLevel] = base + size_t(fChannels) * fsSpaceRequired[fMaxLevel];
}

void Tpyramid::convertArray(const TpixelMap& map) {
    uint8_t* top = fLevels[fMaxLevel];
    const size_t row = size_t(fWidth) * fChannels;
    if (map.width() == fWidth && map.height() == fHeight) {
        for (int y = 0; y < fHeight; ++y) std::memcpy(top + size_t(y) * row, map.pixel(0, fHeight - 1 - y), row);
        return;
    }
    filterZoom(fChannels, map.width(), map.height(), fWidth, fHeight, map.pixels(), top);
    std::vector<uint8_t> swap(row);
    for (int y = 0; y < fHeight / 2; ++y) {
        uint8_t* a = top + size_t(y) * row;
        uint8_t* b = top + size_t(fHeight - 1 - y) * row;
        std::memcpy(swap.data(), a, row);
        std::memcpy(a, b, row);
        std::memcpy(b, swap.data(), row);
    }
}

void Tpyramid::buildLowerLevels(bool resampleTop) {
    if (fMaxLevel == 0) return;
    if (resampleTop) {
        int side = fsNumRows[fMaxLevel - 1];
        filterZoom(fChannels, fWidth, fHeight, side, side, fLevels[fMaxLevel], fLevels[fMaxLevel - 1]);
        boxLevels(fMaxLevel - 2);
    } else {
        boxLevels(fMaxLevel - 1);
    }
}

void Tpyramid::boxLevels(int start) {
    for (int l = start; l >= 0; --l) {
        const int side = fsNumRows[l], above = side * 2, ch = fChannels;
        const uint8_t* src = fLevels[l + 1];
        uint8_t* dst = fLevels[l];
        for (int y = 0; y < side; ++y) {
            const uint8_t* r0 = src + size_t(2 * y) * above * ch;
            const uint8_t* r1 = r0 + size_t(above) * ch;
            for (int x = 0; x < side; ++x)
                for (int c = 0; c < ch; ++c) {
                    int a = r0[2 * x * ch + c], b = r0[(2 * x + 1) * ch + c];
                    int d = r1[2 * x * ch + c], e = r1[(2 * x + 1) * ch + c];
                    dst[(size_t(y) * side + x) * ch + c] = uint8_t((a + b + d + e + 2) >> 2);
                }
        }
    }
}

namespace {
// The map in the pyramid's channel count, or null when it already is.
const TpixelMap* matchChannels(const TpixelMap& map, int channels, TpixelMap& scratch) {
    if (map.channels() == channels) return &map;
    scratch = map;
    if (channels == 1 && map.channels() >= 3) {
        // Luminance, as a grey texture reads a colour file.
        TpixelMap grey(map.width(), map.height(), 1);
        for (int y = 0; y < map.height(); ++y)
            for (int x = 0; x < map.width(); ++x) {
                const uint8_t* p = map.pixel(x, y);
                grey.setPixel(x, y, 0, uint8_t((p[0] * 77 + p[1] * 150 + p[2] * 29 + 128) >> 8));
            }
        scratch = grey;
        return &scratch;
    }
    scratch.setChannels(channels);
    return &scratch;
}
}  // namespace

bool TpyramidNonSwatch::buildPyramidFromPixelMap(const TpixelMap& map) {
    if (fIsBOT || map.width() != fOriginalWidth || map.height() != fOriginalHeight || map.isEmpty()) return false;
    TpixelMap scratch;
    const TpixelMap* source = matchChannels(map, fChannels, scratch);
    freePyramid();
    fMemorySize = unsigned(memoryBytes());
    fMemory = static_cast<uint8_t*>(allocate(fMemorySize));
    if (!fMemory) return false;
    setLevelPointers(fMemory);
    convertArray(*source);
    buildLowerLevels(!fSquare);
    return true;
}

bool TpyramidSwatch::buildPyramidFromPixelMap(const TpixelMap& map) {
    if (fIsBOT || map.width() != fOriginalWidth || map.height() != fOriginalHeight || map.isEmpty()) return false;
    TpixelMap scratch;
    const TpixelMap* source = matchChannels(map, fChannels, scratch);
    freePyramid();
    fMemorySize = unsigned(memoryBytes());
    fMemory = static_cast<uint8_t*>(allocate(fMemorySize));
    if (!fMemory) return false;
    setLevelPointers(fMemory);
    convertArray(*source);
    if (!fSquare && fMaxLevel > 0) {
        // A swatch is small on screen: the first reduction takes the nearest
        // pixel rather than the cubic.
        int side = fsNumRows[fMaxLevel - 1];
        const uint8_t* top = fLevels[fMaxLevel];
        uint8_t* dst = fLevels[fMaxLevel - 1];
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x) {
                int sx = std::min(fWidth - 1, int((x + 0.5f) * fWidth / side));
                int sy = std::min(fHeight - 1, int((y + 0.5f) * fHeight / side));
                std::memcpy(dst + (size_t(y) * side + x) * fChannels, top + (size_t(sy) * fWidth + sx) * fChannels,
                            fChannels);
            }
        boxLevels(fMaxLevel - 2);
    } else {
        buildLowerLevels(false);
    }
    return true;
}

Tstring Tpyramid::getUniqueIdentifier(const Tstring& name, bool, bool filtered, float blur) {
    if (!filtered) return name;
    return Tstring(name.str() + "__%" + std::to_string(int(10000 * blur)) + "%__");
}

// ---- reading ----

const uint8_t* Tpyramid::texel(TfileTextureCache& cache, int level, int x, int y) {
    if (fBotDescriptor == -1) {
        return fLevels[level] + (size_t(y) * levelWidth(level) + x) * fChannels;
    }
    // BOT levels run from the top of the image down.
    const int lw = levelWidth(level);
    const int fy = levelHeight(level) - 1 - y;
    const int bx = x >> 5, by = fy >> 5;
    const int block = by * fBlocksPerRow[level] + bx;
    const int bw = std::min(kBlockSide, lw - (bx << 5));
    const uint8_t* data = cache.findBlock(*this, level, block);
    return data + (size_t(fy & 31) * bw + (x & 31)) * fChannels;
}

void Tpyramid::texelQuad(TfileTextureCache& cache, int level, int x0, int x1, int y0, int y1,
                         const uint8_t* (&quad)[2][2]) {
    if (fBotDescriptor != -1) {
        const int lw = levelWidth(level), fy0 = levelHeight(level) - 1 - y0, fy1 = levelHeight(level) - 1 - y1;
        if (((x0 ^ x1) | (fy0 ^ fy1)) >> 5 == 0) {
            const int bx = x0 >> 5, by = fy0 >> 5;
            const uint8_t* data = cache.findBlock(*this, level, by * fBlocksPerRow[level] + bx);
            const int bw = std::min(kBlockSide, lw - (bx << 5));
            const uint8_t* row0 = data + size_t(fy0 & 31) * bw * fChannels;
            const uint8_t* row1 = data + size_t(fy1 & 31) * bw * fChannels;
            quad[0][0] = row0 + (x0 & 31) * fChannels;
            quad[1][0] = row0 + (x1 & 31) * fChannels;
            quad[0][1] = row1 + (x0 & 31) * fChannels;
            quad[1][1] = row1 + (x1 & 31) * fChannels;
            return;
        }
    }
    quad[0][0] = texel(cache, level, x0, y0);
    quad[1][0] = texel(cache, level, x1, y0);
    quad[0][1] = texel(cache, level, x0, y1);
    quad[1][1] = texel(cache, level, x1, y1);
}

namespace {
struct Taxis {
    int i0, i1;
    float f;
};

Taxis bilinearAxis(float x, int n, bool wrap) {
    if (x < 0) return {wrap ? n - 1 : 0, 0, x - std::floor(x)};
    if (x >= float(n - 1)) return {n - 1, wrap ? 0 : n - 1, std::min(x - float(n - 1), 1.0f)};
    int i = int(x);
    return {i, i + 1, x - float(i)};
}

int nearest(float u, int n) { return std::clamp(int(std::lround((n - 1) * u)), 0, n - 1); }

TfileTextureCache& cacheOf(const TfileTextureWrapper& w) {
    return w.cache ? *w.cache : TfileTextureCache::threadCache();
}
}  // namespace

void Tpyramid::levelCol(const TfileTextureWrapper& w, int level, float u, float v, T3Float& colour, float& alpha) {
    TfileTextureCache& cache = cacheOf(w);
    const int lw = levelWidth(level), lh = levelHeight(level);
    const bool hasAlpha = fChannels == 4;
    if (w.noFilter) {
        const uint8_t* p = texel(cache, level, nearest(u, lw), nearest(v, lh));
        colour = {float(p[0]), float(p[1]), float(p[2])};
        alpha = hasAlpha ? p[3] / 255.0f : 1.0f;
        return;
    }
    Taxis ax = bilinearAxis(u * lw, lw, w.wrapU), ay = bilinearAxis(v * lh, lh, w.wrapV);
    const uint8_t* quad[2][2];
    texelQuad(cache, level, ax.i0, ax.i1, ay.i0, ay.i1, quad);
    const uint8_t *p00 = quad[0][0], *p10 = quad[1][0], *p01 = quad[0][1], *p11 = quad[1][1];
    const float w00 = (1 - ax.f) * (1 - ay.f), w10 = ax.f * (1 - ay.f), w01 = (1 - ax.f) * ay.f, w11 = ax.f * ay.f;
    for (int c = 0; c < 3; ++c) colour[c] = w00 * p00[c] + w10 * p10[c] + w01 * p01[c] + w11 * p11[c];
    alpha = hasAlpha ? (w00 * p00[3] + w10 * p10[3] + w01 * p01[3] + w11 * p11[3]) / 255.0f : 1.0f;
}

float Tpyramid::levelVal(const TfileTextureWrapper& w, int level, float u, float v) {
    TfileTextureCache& cache = cacheOf(w);
    const int lw = levelWidth(level), lh = levelHeight(level);
    if (w.noFilter) return *texel(cache, level, nearest(u, lw), nearest(v, lh));
    Taxis ax = bilinearAxis(u * lw, lw, w.wrapU), ay = bilinearAxis(v * lh, lh, w.wrapV);
    const uint8_t* quad[2][2];
    texelQuad(cache, level, ax.i0, ax.i1, ay.i0, ay.i1, quad);
    float a = *quad[0][0], b = *quad[1][0], c = *quad[0][1], d = *quad[1][1];
    return (1 - ay.f) * ((1 - ax.f) * a + ax.f * b) + ay.f * ((1 - ax.f) * c + ax.f * d);
}

namespace {
void readLevel(Tpyramid& p, const TfileTextureWrapper& w, int level, float u, float v, T3Float& colour,
               float& alpha) {
    if (p.channels() == 1) {
        float g = p.levelVal(w, level, u, v);
        colour = {g, g, g};
        alpha = g / 255.0f;
    } else {
        p.levelCol(w, level, u, v, colour, alpha);
    }
}
}  // namespace

void Tpyramid::getMapColor(const TfileTextureWrapper& w, float u, float v, T3Float& colour, bool forceTop,
                           float& alpha, float width) {
    const bool top = forceTop || w.noFilter;
    if (width >= 1) {
        readLevel(*this, w, top ? fMaxLevel : 0, u, v, colour, alpha);
        return;
    }
    if (!top && fMaxLevel > 0 && fLargestSide * width > fAspect) {
        const float res = fAspect / width;
        int l = fMaxLevel - 1;
        while (l > 0 && int(res) < (1 << l)) --l;
        const float t = (res - float(1 << l)) / float(1 << l);
        T3Float c0, c1;
        float a0, a1;
        readLevel(*this, w, l, u, v, c0, a0);
        readLevel(*this, w, l + 1, u, v, c1, a1);
        colour = c0 * (1 - t) + c1 * t;
        alpha = a0 * (1 - t) + a1 * t;
        return;
    }
    readLevel(*this, w, fMaxLevel, u, v, colour, alpha);
}
