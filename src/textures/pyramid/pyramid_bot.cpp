// The block-ordered texture file side of Tpyramid: reading the header and
// blocks, and writing a pyramid out as a file.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <vector>

#include "framework/host/atomic_file.h"
#include "framework/host/command_engine.h"
#include "textures/pyramid/bot_codec.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/pyramid.h"

namespace {

const TcatalogueEntry kBOTseekError{"s_TfileTextureStrings.rBOTseekError",
                                    "Seek error in block ordered texture file ^1s: ^2s"};
const TcatalogueEntry kBOTreadError{"s_TfileTextureStrings.rBOTreadError",
                                   "Read error in the block index of block ordered texture file ^1s: ^2s"};

// The console reporter: the text goes out exactly as formatted (the
// trailing newline is the reporter's own).
void consoleReport(const char* format, ...) {
    char text[2048];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    size_t n = std::strlen(text);
    if (n && text[n - 1] == '\n') text[n - 1] = 0;
    theCommandEngine().displayInfo(Tstring(text));
}

void put16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
void put32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}
uint16_t get16(const uint8_t* p) { return uint16_t(p[0] | (p[1] << 8)); }
uint32_t get32(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24; }

bool readAll(int fd, void* data, size_t size, off_t offset) {
    uint8_t* p = static_cast<uint8_t*>(data);
    while (size) {
        ssize_t got = ::pread(fd, p, size, offset);
        if (got < 0 && errno == EINTR) continue;
        if (got == 0) errno = 0;  // the end of the file, not whatever failed last
        if (got <= 0) return false;
        p += got;
        size -= size_t(got);
        offset += got;
    }
    return true;
}

bool writeAll(int fd, const void* data, size_t size) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    while (size) {
        ssize_t put = ::write(fd, p, size);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        p += put;
        size -= size_t(put);
    }
    return true;
}

const char* errorText(int error) { return error ? std::strerror(error) : "unexpected end of file"; }

}  // namespace

void botHeader::toBytes(uint8_t out[kSize]) const {
    put16(out + 0, magic);
    put16(out + 2, width);
    put16(out + 4, height);
    out[6] = maxLevel;
    out[7] = channels;
    put16(out + 8, magic2);
    out[10] = flagRows;
    out[11] = reserved;
    put16(out + 12, magic3);
}

botHeader botHeader::fromBytes(const uint8_t in[kSize]) {
    botHeader h;
    h.magic = get16(in + 0);
    h.width = get16(in + 2);
    h.height = get16(in + 4);
    h.maxLevel = in[6];
    h.channels = in[7];
    h.magic2 = get16(in + 8);
    h.flagRows = in[10];
    h.reserved = in[11];
    h.magic3 = get16(in + 12);
    return h;
}

bool Tpyramid::IsItABOTFile(const Tstring& path, int* descriptor, botHeader* header) {
    int fd = ::open(path.asC(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    uint8_t bytes[botHeader::kSize];
    bool ok = readAll(fd, bytes, sizeof bytes, 0);
    if (ok) {
        botHeader h = botHeader::fromBytes(bytes);
        ok = h.magic == h.magic2 && h.magic == h.magic3 && (h.magic == kMagic || h.magic == kAlternateMagic);
        if (ok && header) *header = h;
    }
    if (ok && descriptor) *descriptor = fd;
    else ::close(fd);
    return ok;
}

Tpyramid* Tpyramid::openBOT(const Tstring& path, bool swatch, const Tstring& id, Tstring* why) {
    botHeader h;
    int fd = -1;
    if (!IsItABOTFile(path, &fd, &h)) return nullptr;
    struct stat st {};
    bool statOk = ::fstat(fd, &st) == 0;
    const int statError = errno;
    ::close(fd);
    auto refuse = [why](std::string reason) -> Tpyramid* {
        if (why) *why = Tstring(reason);
        return nullptr;
    };
    if (!statOk) return refuse(std::strerror(statError));
    // A header that cannot describe a pyramid is not taken either.
    if (h.width < 1 || h.height < 1 || h.width > kMaxSide || h.height > kMaxSide)
        return refuse("the header's size " + std::to_string(h.width) + "x" + std::to_string(h.height) +
                      " is not 1 to " + std::to_string(kMaxSide) + " on each side");
    if (h.channels != 1 && h.channels != 3 && h.channels != 4)
        return refuse("the header's channel count " + std::to_string(h.channels) + " is not 1, 3 or 4");
    if (h.maxLevel != levelFor(std::max(h.width, h.height)))
        return refuse("the header's top level " + std::to_string(h.maxLevel) + " does not fit its size " +
                      std::to_string(h.width) + "x" + std::to_string(h.height));

    std::unique_ptr<Tpyramid> p;
    if (swatch) p = std::make_unique<TpyramidSwatch>(id, path, h.width, h.height, h.channels, h.flagRows, true);
    else p = std::make_unique<TpyramidNonSwatch>(id, path, h.width, h.height, h.channels, h.flagRows, true);
    // Index and data must at least be there.
    if (uint64_t(st.st_size) < uint64_t(botHeader::kSize) + 4ull * (uint64_t(p->totalBlockCount()) + 1))
        return refuse("the file ends inside its block index");
    p->fIsBOT = true;
    p->fBotPath = path;
    p->fFileBytes = uint64_t(st.st_size);
    p->fSquare = h.width == h.height && fsNumRows[h.maxLevel] == std::min(h.width, h.height);
    p->fBotDescriptor = ::open(path.asC(), O_RDONLY | O_CLOEXEC);
    if (p->fBotDescriptor < 0) return refuse(std::strerror(errno));
    std::vector<uint32_t> index;
    Tstring indexWhy;
    if (!p->readBlockIndex(index, indexWhy)) return refuse(indexWhy.str());
    // The blocks hold no channel count of their own; a full block decoded
    // with the header's count uses its bytes exactly or shows the mismatch.
    const int top = p->fMaxLevel;
    int bw, bh;
    p->blockSize(top, 0, bw, bh);
    uint8_t decoded[TfileTextureCache::kSlotBytes];
    TblockFailure failure;
    if (!p->decodeFileBlock(0, top, bw, bh, decoded, failure))
        return refuse("block 0 of level " + std::to_string(top) + " cannot be read with the header's " +
                      std::to_string(h.channels) + (h.channels == 1 ? " channel: " : " channels: ") + failure.reason.str());
    return p.release();
}

void Tpyramid::TblockFailure::report(bool asError, const Tstring& path) const {
    if (entry) {
        if (asError) theCommandEngine().displayError(*entry, {path, reason});
        else theCommandEngine().displayWarning(*entry, {path, reason});
        return;
    }
    // A render goes on past the block, with whatever the slot held.
    consoleReport("%s: %s %s: %s%s\n", asError ? "Error" : "Warning", what, path.asC(), reason.asC(),
                  asError ? "" : "; parts of the texture may show wrong");
}

bool Tpyramid::decodeFileBlock(int block, int level, int width, int height, uint8_t* pixels, TblockFailure& failure) {
    uint8_t entry[8];
    const off_t indexAt = off_t(fLevelIndex[level]) + 4 * off_t(block);
    if (!readAll(fBotDescriptor, entry, sizeof entry, indexAt)) {
        int error = errno;
        failure = {&kBOTreadError, nullptr, Tstring(errorText(error))};
        return false;
    }
    const uint32_t first = get32(entry), end = get32(entry + 4);
    const uint64_t dataStart = uint64_t(botHeader::kSize) + 4ull * (uint64_t(totalBlockCount()) + 1);
    if (first < dataStart || first > fFileBytes) {
        failure = {&kBOTseekError, nullptr, Tstring("block offset outside the file")};
        return false;
    }
    const int64_t size = int64_t(end) - int64_t(first);
    if (size <= 0 || size + 4 > 8192) {
        failure = {nullptr, "Corrupted data found in block ordered texture file", Tstring("block size out of range")};
        return false;
    }
    uint8_t data[8192];
    if (!readAll(fBotDescriptor, data, size_t(size), off_t(first))) {
        int error = errno;
        failure = {nullptr, "Read error in block ordered texture file", Tstring(errorText(error))};
        return false;
    }
    if (const char* why = TbotCodec::decodeBlock(data, int(size), width, height, fChannels, pixels)) {
        failure = {nullptr, "Decode error in block ordered texture file", Tstring(why)};
        return false;
    }
    return true;
}

bool Tpyramid::loadBlock(TfileTextureCache&, uint8_t* slotData, int block, int level, int width, int height,
                         int channels) {
    if (fBotDescriptor < 0 || channels != fChannels) return false;
    // Decoded aside so that a failure leaves the slot as it was.
    uint8_t decoded[TfileTextureCache::kSlotBytes];
    TblockFailure failure;
    if (!decodeFileBlock(block, level, width, height, decoded, failure)) {
        // Every sample that meets a bad block would say so again.
        if (!fBlockFailureReported.exchange(true)) failure.report(false, fBotPath);
        return false;
    }
    std::memcpy(slotData, decoded, size_t(width) * height * channels);
    return true;
}

bool Tpyramid::extractLevel(int level, TpixelMap& out) {
    if (level < 0 || level > fMaxLevel) return false;
    const int lw = levelWidth(level), lh = levelHeight(level), ch = fChannels;
    out.setSize(lw, lh, ch);
    if (fBotDescriptor == -1) {
        if (!fLevels[level]) return false;
        for (int y = 0; y < lh; ++y)
            std::memcpy(out.pixel(0, y), fLevels[level] + size_t(lh - 1 - y) * lw * ch, size_t(lw) * ch);
        return true;
    }
    uint8_t decoded[TfileTextureCache::kSlotBytes];
    const int count = levelBlockCount(level), bpr = fBlocksPerRow[level];
    for (int b = 0; b < count; ++b) {
        int bw, bh;
        blockSize(level, b, bw, bh);
        TblockFailure failure;
        if (!decodeFileBlock(b, level, bw, bh, decoded, failure)) {
            failure.report(true, fBotPath);
            return false;
        }
        const int x0 = (b % bpr) * kBlockSide, y0 = (b / bpr) * kBlockSide;
        for (int y = 0; y < bh; ++y) std::memcpy(out.pixel(x0, y0 + y), decoded + size_t(y) * bw * ch, size_t(bw) * ch);
    }
    return true;
}

bool Tpyramid::readBlockIndex(std::vector<uint32_t>& index, Tstring& why) const {
    index.clear();
    if (fBotDescriptor < 0) {
        why = Tstring("not a block ordered file");
        return false;
    }
    const size_t n = size_t(totalBlockCount()) + 1;
    std::vector<uint8_t> bytes(4 * n);
    if (!readAll(fBotDescriptor, bytes.data(), bytes.size(), botHeader::kSize)) {
        why = Tstring(errorText(errno));
        return false;
    }
    index.resize(n);
    for (size_t i = 0; i < n; ++i) index[i] = get32(bytes.data() + 4 * i);
    const uint64_t dataStart = uint64_t(botHeader::kSize) + 4ull * n;
    if (index[0] != dataStart) {
        why = Tstring("the first block does not start after the index");
        return false;
    }
    for (size_t i = 0; i + 1 < n; ++i)
        if (index[i + 1] <= index[i] || index[i + 1] - index[i] + 4 > 8192) {
            why = Tstring("block " + std::to_string(i) + " has a bad size");
            return false;
        }
    if (index[n - 1] > fFileBytes) {
        why = Tstring("the file ends before its last block");
        return false;
    }
    return true;
}

// ---- writing ----

Tstring TpyramidNonSwatch::fsTempDirectory;
TpyramidNonSwatch::TdiskFree TpyramidNonSwatch::fsDiskFree = &TpyramidNonSwatch::sStatvfsDiskFree;

bool TpyramidNonSwatch::sStatvfsDiskFree(const char* directory, uint64_t& freeBytes) {
    struct statvfs vfs {};
    if (::statvfs(directory, &vfs) != 0) return false;
    freeBytes = uint64_t(vfs.f_bavail) * uint64_t(vfs.f_frsize);
    return true;
}

Tstring TpyramidNonSwatch::sTempDirectory() {
    if (!fsTempDirectory.isEmpty()) return fsTempDirectory;
    std::error_code error;
    auto path = std::filesystem::temp_directory_path(error);
    return Tstring(error ? std::string("/tmp") : path.string());
}

void TpyramidNonSwatch::getCachePyrFileName(int thread, Tstring& name, Tstring& directory) const {
    std::string dir = sTempDirectory().str();
    if (dir.empty() || dir.back() != '/') dir += '/';
    std::string source = fFileName.str();
    for (char& c : source)
        if (c == '/' || c == ':' || c == '\\' || c == '.') c = '_';
    char text[4096];
    std::snprintf(text, sizeof text, "%s_%d_%p", (dir + source).c_str(), thread, static_cast<const void*>(this));
    directory = Tstring(dir);
    name = Tstring(text);
}

bool TpyramidNonSwatch::hasRoomFor(uint64_t size, const Tstring& directory) const {
    const int limit = TfileTextureCache::threadCache().limitMB();
    const uint64_t mb = 1024ull * 1024ull;
    bool room;
    if (limit < 0) {
        uint64_t freeBytes = 0;
        room = fsDiskFree(directory.asC(), freeBytes) && freeBytes >= size + uint64_t(-int64_t(limit)) * mb;
    } else {
        room = fsCacheBytesUsed.load() + size <= uint64_t(limit) * mb;
    }
    if (!room) consoleReport("Warning: Not enough disk space or limit exceeded for caching texture %s\n", fFileName.asC());
    return room;
}

int TpyramidNonSwatch::openCpFile(uint64_t size, const Tstring& name, const Tstring& directory, int flag) const {
    if (!hasRoomFor(size, directory)) return -1;
    int fd = ::open(name.asC(), flag | O_CLOEXEC, 0644);
    if (fd < 0) {
        int error = errno;
        consoleReport("Warning: Can't open cache file for texture %s: %s\n", fFileName.asC(), std::strerror(error));
        return -1;
    }
    return fd;
}

bool TpyramidNonSwatch::remapPyramidToBlocks(const Tstring* path, bool keepDirectory) {
    if (fIsBOT || !fMemory) return false;
    Tstring file, directory;
    if (!path) {
        getCachePyrFileName(0, file, directory);
        consoleReport("producing BOT file for %s\n", file.asC());
    } else if (keepDirectory) {
        file = *path;
        size_t slash = file.str().rfind('/');
        directory = Tstring(slash == std::string::npos ? std::string(".") : file.str().substr(0, slash + (slash == 0)));
    } else {
        directory = sTempDirectory();
        file = Tstring((std::filesystem::path(directory.str()) / std::filesystem::path(path->str()).filename()).string());
    }
    const char* name = file.asC();

    const uint64_t w32 = uint64_t((fWidth + 31) & ~31), h32 = uint64_t((fHeight + 31) & ~31);
    const uint64_t needed = uint64_t(fChannels) * (w32 * h32 + fsSpaceRequired[fMaxLevel]);
    // A file the user names is replaced only once it is complete; a cache
    // file is ours alone and written in place.
    const bool userFile = path && keepDirectory;
    TatomicFile userTarget(file.str());
    int fd = -1;
    if (userFile) {
        std::string why;
        if (!hasRoomFor(needed, directory)) return false;
        if (!userTarget.open(why)) {
            consoleReport("Warning: Can't open cache file for texture %s: %s\n", fFileName.asC(),
                          std::strerror(userTarget.errorCode()));
            return false;
        }
        fd = userTarget.descriptor();
    } else {
        fd = openCpFile(needed, file, directory, O_WRONLY | O_CREAT | O_TRUNC);
        if (fd == -1) return false;
    }

    std::unique_ptr<uint32_t[]> index;
    auto fail = [&](const char* format) {
        int error = errno;
        consoleReport(format, name, std::strerror(error));
        if (userFile) {
            userTarget.discard();
        } else {
            ::close(fd);
            ::unlink(name);
        }
        return false;
    };

    botHeader h;
    h.magic = h.magic2 = h.magic3 = kMagic;
    h.width = fWidth;
    h.height = fHeight;
    h.maxLevel = fMaxLevel;
    h.channels = fChannels;
    h.flagRows = 1;
    uint8_t headerBytes[botHeader::kSize];
    h.toBytes(headerBytes);
    if (!writeAll(fd, headerBytes, sizeof headerBytes))
        return fail("Error: Can't use block ordered texture - write error for file %s: %s\n");

    const int n = totalBlockCount();
    const off_t dataStart = off_t(botHeader::kSize) + 4 * off_t(n + 1);
    if (::lseek(fd, dataStart, SEEK_SET) != dataStart)
        return fail("Error: Can't use block ordered texture - seek error in file %s: %s\n");
    index.reset(new (std::nothrow) uint32_t[size_t(n) + 1]);
    if (!index) {
        errno = ENOMEM;
        return fail("Error: Can't use block ordered texture - write error in file %s: %s\n");
    }

    uint8_t packed[TfileTextureCache::kSlotBytes];
    uint8_t coded[TbotCodec::kMaxBlockBytes];
    uint64_t offset = uint64_t(dataStart);
    int at = 0;
    for (int level = 0; level <= fMaxLevel; ++level) {
        const int lw = levelWidth(level), lh = levelHeight(level), ch = fChannels;
        const int count = levelBlockCount(level), bpr = fBlocksPerRow[level];
        for (int b = 0; b < count; ++b) {
            int bw, bh;
            blockSize(level, b, bw, bh);
            const int x0 = (b % bpr) * kBlockSide, y0 = (b / bpr) * kBlockSide;
            // File rows run from the top of the image; memory rows from the bottom.
            for (int y = 0; y < bh; ++y)
                std::memcpy(packed + size_t(y) * bw * ch, fLevels[level] + (size_t(lh - 1 - (y0 + y)) * lw + x0) * ch,
                            size_t(bw) * ch);
            int bytes = TbotCodec::codeBlock(packed, bw, bh, ch, coded);
            if (bytes == 0) {
                errno = EFBIG;
                return fail("Error: Can't use block ordered texture - write error in file %s: %s\n");
            }
            if (!writeAll(fd, coded, size_t(bytes)))
                return fail("Error: Can't use block ordered texture - write error in file %s: %s\n");
            index[size_t(at++)] = uint32_t(offset);
            offset += uint64_t(bytes);
        }
    }
    index[size_t(n)] = uint32_t(offset);

    if (::lseek(fd, botHeader::kSize, SEEK_SET) != botHeader::kSize)
        return fail("Error: Can't use block ordered texture - seek error in file %s: %s\n");
    std::vector<uint8_t> indexBytes(4 * (size_t(n) + 1));
    for (int i = 0; i <= n; ++i) put32(indexBytes.data() + 4 * size_t(i), index[size_t(i)]);
    if (!writeAll(fd, indexBytes.data(), indexBytes.size()))
        return fail("Error: Can't use block ordered texture - write error in file %s: %s\n");
    if (userFile) {
        std::string why;
        if (!userTarget.commit(why)) {
            consoleReport("Error: Can't use block ordered texture - %s\n", why.c_str());
            return false;
        }
    } else {
        ::close(fd);
    }

    int readFd = ::open(name, O_RDONLY | O_CLOEXEC);
    if (readFd < 0) {
        consoleReport("Error: Can't reopen converted texture file %s\n", name);
        if (!userFile) ::unlink(name);
        return false;
    }
    freePyramid();
    fBotDescriptor = readFd;
    fBotPath = file;
    fIsBOT = true;
    fHasCacheFile = true;
    fOwnsCacheFile = !path || !keepDirectory;
    fFileBytes = offset;
    for (int l = 0; l < kLevels; ++l) fLevels[l] = nullptr;
    // Only temporary cache files count against the cache limit; a file the
    // user asked for is theirs.
    if (fOwnsCacheFile) fsCacheBytesUsed += offset;
    return true;
}

TpyramidNonSwatch::~TpyramidNonSwatch() = default;
