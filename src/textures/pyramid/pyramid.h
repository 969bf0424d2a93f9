#pragma once
// Tpyramid: a full mip pyramid of 8-bit pixels, held in memory or in a
// block-ordered texture (BOT) file from which 32 by 32 blocks are decoded on
// demand into the reading thread's block cache.
//
// Levels: level n below the top is 2^n square; the top level (the maximum
// level) has the image's own size. In memory all levels stand in one
// allocation, level 0 first and the top level last. Rows run upwards in v:
// row 0 of a level is v = 0, the bottom of the image. BOT files store each
// level from the top row of the image down.
#include <atomic>
#include <cstdint>
#include <vector>

#include "framework/host/math.h"
#include "framework/host/pixel_map.h"
#include "framework/host/tstring.h"
#include "textures/pyramid/file_texture_wrapper.h"

class TfileTextureCache;
struct TcatalogueEntry;

// The 14-byte header of a BOT file, little-endian on disk.
struct botHeader {
    uint16_t magic = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    uint8_t maxLevel = 0;
    uint8_t channels = 0;
    uint16_t magic2 = 0;
    uint8_t flagRows = 0;
    uint8_t reserved = 0;
    uint16_t magic3 = 0;

    static constexpr int kSize = 14;
    void toBytes(uint8_t out[kSize]) const;
    static botHeader fromBytes(const uint8_t in[kSize]);
};

class Tpyramid {
public:
    static constexpr int kLevels = 14;  // sides 1 to 8192
    static constexpr int kMaxSide = 8192;
    static constexpr int kBlockSide = 32;
    static constexpr int kFlagWordsPerRow = 14;
    static constexpr uint16_t kMagic = 0x5455;
    static constexpr uint16_t kAlternateMagic = 0x5555;

    // Side of level n.
    static const int fsNumRows[kLevels];
    // Pixels of all levels below level n.
    static const uint32_t fsSpaceRequired[kLevels];
    // Blocks of all levels below level n.
    static const uint32_t fsNumBlocks[kLevels];

    // Sizes above 8192 are clamped; channels must be 1, 3 or 4.
    Tpyramid(const Tstring& id, const Tstring& file, int width, int height, int channels, short flagRows,
             bool keepSize);
    virtual ~Tpyramid();
    Tpyramid(const Tpyramid&) = delete;
    Tpyramid& operator=(const Tpyramid&) = delete;

    virtual void* allocate(unsigned size);
    virtual bool buildPyramidFromPixelMap(const TpixelMap& map) = 0;
    virtual void freePyramid();

    // Null when `path` is not a BOT file, or is one that is damaged: then
    // `why`, when given, says what is wrong. The header, the block index and
    // the first block of the top level are checked. Swatch selects the class.
    static Tpyramid* openBOT(const Tstring& path, bool swatch, const Tstring& id, Tstring* why = nullptr);
    static bool IsItABOTFile(const Tstring& path, int* descriptor, botHeader* header);
    static Tstring getUniqueIdentifier(const Tstring& name, bool swatch, bool filtered, float blur);
    // Smallest n with 2^n at least `side`.
    static int levelFor(int side);

    const Tstring& name() const { return fName; }
    const Tstring& fileName() const { return fFileName; }
    const Tstring& botPath() const { return fBotPath; }
    int channels() const { return fChannels; }
    int width() const { return fWidth; }
    int height() const { return fHeight; }
    int originalWidth() const { return fOriginalWidth; }
    int originalHeight() const { return fOriginalHeight; }
    float aspect() const { return fAspect; }
    int stretchMode() const { return fStretchMode; }
    int largestSide() const { return fLargestSide; }
    int flagRows() const { return fFlagRows; }
    bool isSwatch() const { return fSwatch; }

    bool hasCacheFile() const { return fHasCacheFile; }
    bool isBOTfile() const { return fIsBOT; }
    bool isSquare() const { return fSquare; }
    unsigned char getMaxLevel() const { return fMaxLevel; }
    int getBlocksPerRow(int level) const { return fBlocksPerRow[level]; }
    const unsigned char* getPtrToLevel(int level) const { return fLevels[level]; }
    // Offset of a BOT level's first entry in the block index.
    uint32_t levelIndexPosition(int level) const { return fLevelIndex[level]; }
    void setNeeded() { fNeeded = true; }
    bool needed() const { return fNeeded; }
    void clearNeeded() { fNeeded = false; }

    int levelWidth(int level) const { return level == fMaxLevel ? fWidth : fsNumRows[level]; }
    int levelHeight(int level) const { return level == fMaxLevel ? fHeight : fsNumRows[level]; }
    // Blocks of one level and of the whole file.
    int levelBlockCount(int level) const;
    // Size of one block of a level.
    void blockSize(int level, int block, int& width, int& height) const;
    int totalBlockCount() const;
    // Bytes of the in-memory form.
    size_t memoryBytes() const;
    // Bytes of the BOT file.
    uint64_t fileBytes() const { return fFileBytes; }

    // Colour in 0..255, alpha in 0..1. `width` is the filter width in u.
    void getMapColor(const TfileTextureWrapper& w, float u, float v, T3Float& colour, bool forceTop, float& alpha,
                     float width);
    // Bilinear (or nearest, with no-filter) reading of one level.
    void levelCol(const TfileTextureWrapper& w, int level, float u, float v, T3Float& colour, float& alpha);
    float levelVal(const TfileTextureWrapper& w, int level, float u, float v);

    // The bytes of one pixel (rows upwards in v), from memory or the cache.
    const uint8_t* texel(TfileTextureCache& cache, int level, int x, int y);
    // The four pixels of a bilinear lookup, [x0 or x1][y0 or y1]: one
    // block search when they share a block, as they mostly do.
    void texelQuad(TfileTextureCache& cache, int level, int x0, int x1, int y0, int y1, const uint8_t* (&quad)[2][2]);

    // Decodes one block of a BOT pyramid into `slotData` (width by height
    // pixels, packed). False on any failure, the bytes then untouched. The
    // render goes on past a bad block, so the first failure of a pyramid is
    // a warning and later ones are not repeated. Allocates nothing.
    bool loadBlock(TfileTextureCache& cache, uint8_t* slotData, int block, int level, int width, int height,
                   int channels);
    // A whole level as an image (rows from the top down). For BOT pyramids
    // each block is decoded; any failure gives false and the message.
    bool extractLevel(int level, TpixelMap& out);
    // The block index of a BOT pyramid, checked: it starts where the data
    // starts, never goes back, and ends within the file. False with the
    // reason otherwise.
    bool readBlockIndex(std::vector<uint32_t>& index, Tstring& why) const;

    // The cache flag word of a thread row and level.
    uint32_t& cacheFlagWord(int row, int level) { return fCacheFlags[row * kFlagWordsPerRow + level]; }
    // Flag rows afresh, all clear.
    void resetCacheFlags(int rows);

    // Bytes of all BOT files made by conversion in this process.
    static std::atomic<uint64_t> fsCacheBytesUsed;

protected:
    // Level layout and tables once width, height and channels stand.
    void setLevelTables();
    void setLevelPointers(uint8_t* base);
    // Copies the image into the top level, stretching as the size says.
    void convertArray(const TpixelMap& map);
    void buildLowerLevels(bool resampleTop);
    // Levels `start` down to 0, each a 2 by 2 box of the one above.
    void boxLevels(int start);

    Tstring fName;
    uint8_t fChannels = 0;
    uint16_t fWidth = 0, fHeight = 0;
    uint16_t fOriginalWidth = 0, fOriginalHeight = 0;
    float fAspect = 1;
    uint32_t* fCacheFlags = nullptr;
    Tstring fFileName;
    int32_t fBlocksPerRow[kLevels] = {};
    uint8_t* fLevels[kLevels] = {};
    uint32_t fLevelIndex[kLevels] = {};
    Tstring fBotPath;
    int32_t fBotDescriptor = -1;
    uint8_t fMaxLevel = 0;
    bool fSquare = false;
    uint16_t fLargestSide = 0;
    bool fIsBOT = false;
    uint8_t fStretchMode = 0;
    bool fNeeded = false;
    int32_t fFlagRows = 0;

    uint8_t* fMemory = nullptr;
    unsigned fMemorySize = 0;
    bool fHasCacheFile = false;
    bool fOwnsCacheFile = false;  // a temporary file, removed with the pyramid
    bool fSwatch = false;
    uint64_t fFileBytes = 0;

private:
    // Why a block could not be had: a catalogue message, or a console line
    // "<what> <file>: <reason>", told as an error or a warning.
    struct TblockFailure {
        const TcatalogueEntry* entry = nullptr;
        const char* what = nullptr;
        Tstring reason;
        void report(bool asError, const Tstring& path) const;
    };
    // Reads and decodes one block of the BOT file; false says why in `failure`.
    bool decodeFileBlock(int block, int level, int width, int height, uint8_t* pixels, TblockFailure& failure);

    std::atomic<bool> fBlockFailureReported{false};
};

class TpyramidNonSwatch : public Tpyramid {
public:
    using Tpyramid::Tpyramid;
    ~TpyramidNonSwatch() override;

    bool buildPyramidFromPixelMap(const TpixelMap& map) override;

    // Writes the pyramid as a BOT file and reads from it afterwards. With a
    // null path the file goes to the temporary folder under a name of its
    // own. With a path and `keepDirectory` the file is made at the path;
    // without `keepDirectory` only its file name is kept and the file goes to
    // the temporary folder. False leaves the pyramid in memory.
    bool remapPyramidToBlocks(const Tstring* path, bool keepDirectory);

    void getCachePyrFileName(int thread, Tstring& name, Tstring& directory) const;
    // Opens a cache file for writing after the disk test; -1 on failure.
    int openCpFile(uint64_t size, const Tstring& name, const Tstring& directory, int flag) const;
    // The disk test: room for `size` more bytes in `directory` under the
    // cache limit or the free-space reserve; warns when there is none.
    bool hasRoomFor(uint64_t size, const Tstring& directory) const;

    // The temporary folder for cache files; empty takes the system's.
    static Tstring fsTempDirectory;
    // Free bytes of a folder's disk; replaceable so that tests can pretend.
    using TdiskFree = bool (*)(const char* directory, uint64_t& freeBytes);
    static TdiskFree fsDiskFree;
    static bool sStatvfsDiskFree(const char* directory, uint64_t& freeBytes);
    static Tstring sTempDirectory();
};

// Swatch pyramids serve small previews: built more cheaply, never moved to
// a BOT file.
class TpyramidSwatch : public Tpyramid {
public:
    TpyramidSwatch(const Tstring& id, const Tstring& file, int width, int height, int channels, short flagRows,
                   bool keepSize)
        : Tpyramid(id, file, width, height, channels, flagRows, keepSize) {
        fSwatch = true;
    }
    bool buildPyramidFromPixelMap(const TpixelMap& map) override;
};
