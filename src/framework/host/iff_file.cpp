#include "framework/host/iff_file.h"

#include <sys/types.h>

#include <cerrno>
#include <cstring>

struct FLstream {
    FILE* file;
};

int FLseek(FLstream* stream, int64_t offset, int origin) {
    if (!stream || !stream->file) return -1;
    const int whence = origin == kFLseekEnd ? SEEK_END : origin == 1 ? SEEK_CUR : SEEK_SET;
    return fseeko(stream->file, off_t(offset), whence) == 0 ? 0 : -1;
}

int64_t FLtell(FLstream* stream) {
    if (!stream || !stream->file) return -1;
    return int64_t(ftello(stream->file));
}

size_t FLread(FLstream* stream, void* data, size_t size) {
    if (!stream || !stream->file || size == 0) return 0;
    return std::fread(data, 1, size, stream->file);
}

size_t FLwrite(FLstream* stream, const void* data, size_t size) {
    if (!stream || !stream->file || size == 0) return 0;
    return std::fwrite(data, 1, size, stream->file);
}

int FLflushBuffer(FLstream* stream) {
    if (!stream || !stream->file) return -1;
    return std::fflush(stream->file) == 0 ? 0 : -1;
}

int FLerror(FLstream* stream) { return stream && stream->file ? std::ferror(stream->file) : 0; }

FILE* FLfile(FLstream* stream) { return stream ? stream->file : nullptr; }

int FLoserror() { return errno; }

const char* FLstrerror() { return std::strerror(errno); }

namespace {
bool writeBigEndian32(FLstream* stream, uint32_t v) {
    const unsigned char bytes[4] = {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)};
    return FLwrite(stream, bytes, 4) == 4;
}
}  // namespace

TiffFile::~TiffFile() { close(); }

bool TiffFile::open(const char* path, const char* mode, int, int) {
    close();
    if (!path || !mode) {
        errno = EINVAL;
        return false;
    }
    FILE* file = std::fopen(path, mode);
    if (!file) return false;
    fStream = new FLstream{file};
    return true;
}

bool TiffFile::beginWriteGroup(TiffTag group, TiffTag type) {
    if (!fStream) return false;
    const int64_t start = FLtell(fStream);
    if (start < 0) return false;
    if (!writeBigEndian32(fStream, group.value()) || !writeBigEndian32(fStream, 0) ||
        !writeBigEndian32(fStream, type.value()))
        return false;
    fGroups.push_back({start, group});
    return true;
}

bool TiffFile::endGroup() {
    if (!fStream || fGroups.empty()) return false;
    const Group group = fGroups.back();
    fGroups.pop_back();
    if (FLseek(fStream, 0, kFLseekEnd) != 0) return false;
    int64_t end = FLtell(fStream);
    if (group.tag == TiffTag::kFOR4) {
        static const unsigned char zeros[4] = {0, 0, 0, 0};
        const size_t pad = size_t((4 - (end & 3)) & 3);
        if (pad && FLwrite(fStream, zeros, pad) != pad) return false;
        end += int64_t(pad);
    }
    const int64_t length = end - group.start - 8;
    if (length < 0 || length > int64_t(UINT32_MAX)) return false;
    if (FLseek(fStream, group.start + 4, kFLseekSet) != 0 || !writeBigEndian32(fStream, uint32_t(length))) return false;
    return FLseek(fStream, 0, kFLseekEnd) == 0;
}

bool TiffFile::close() {
    if (!fStream) return true;
    const bool ok = std::fclose(fStream->file) == 0;
    delete fStream;
    fStream = nullptr;
    fGroups.clear();
    return ok;
}
