#include "lights/depth_map_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
void put32(unsigned char* out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out[i] = uint8_t(v >> (24 - 8 * i));
}
uint32_t get32(const unsigned char* in) { return uint32_t(in[0]) << 24 | uint32_t(in[1]) << 16 | uint32_t(in[2]) << 8 | in[3]; }
uint32_t floatBits(float f) {
    uint32_t b;
    std::memcpy(&b, &f, 4);
    return b;
}
float bitsFloat(uint32_t b) {
    float f;
    std::memcpy(&f, &b, 4);
    return f;
}

bool writeChunk(FLstream* stream, TiffTag tag, const std::vector<unsigned char>& data) {
    unsigned char head[8];
    put32(head, tag.value());
    put32(head + 4, uint32_t(data.size()));
    if (FLwrite(stream, head, 8) != 8 || FLwrite(stream, data.data(), data.size()) != data.size()) return false;
    static const unsigned char zeros[3] = {0, 0, 0};
    size_t pad = (4 - data.size() % 4) % 4;
    return !pad || FLwrite(stream, zeros, pad) == pad;
}

std::string folderOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}
}  // namespace

bool TdepthMapFile::sExists(const std::string& path) { return ::access(path.c_str(), R_OK) == 0; }

bool TdepthMapFile::open(const std::string& path) {
    close();
    fType = TiffTag();
    fDepthOffset = -1;
    if (!fFile.open(path.c_str(), "rb")) return false;
    FLstream* s = fFile.stream();
    unsigned char head[12];
    if (FLread(s, head, 12) != 12 || !(TiffTag(get32(head)) == TiffTag::kFOR4)) return false;
    fType = TiffTag(get32(head + 8));
    const int64_t end = 8 + int64_t(get32(head + 4));
    bool header = false, view = false;
    int64_t at = 12;
    while (at + 8 <= end) {
        unsigned char chunk[8];
        if (FLseek(s, at, kFLseekSet) != 0 || FLread(s, chunk, 8) != 8) break;
        const TiffTag tag(get32(chunk));
        const uint32_t size = get32(chunk + 4);
        if (tag == kHeader && size >= 24) {
            unsigned char h[24];
            if (FLread(s, h, 24) != 24) return false;
            fView.resolution = int(get32(h));
            fHeight = int(get32(h + 4));
            fView.orthographic = (get32(h + 8) & 1) != 0;
            fView.halfWidth = bitsFloat(get32(h + 12));
            fView.nearClip = bitsFloat(get32(h + 16));
            fView.farClip = bitsFloat(get32(h + 20));
            header = true;
        } else if (tag == kView && size >= 128) {
            unsigned char m[128];
            if (FLread(s, m, 128) != 128) return false;
            for (int i = 0; i < 16; ++i) {
                uint64_t bits = uint64_t(get32(m + 8 * i)) << 32 | get32(m + 8 * i + 4);
                std::memcpy(&fView.worldToView.m[i / 4][i % 4], &bits, 8);
            }
            view = true;
        } else if (tag == kDepth) {
            fDepthOffset = at + 8;
            fDepthBytes = size;
        }
        at += 8 + int64_t(size) + (4 - int64_t(size) % 4) % 4;
    }
    return header && view && fView.resolution >= 0 && fHeight >= 0;
}

bool TdepthMapFile::load(float* distances) {
    const size_t count = size_t(fView.resolution) * size_t(fHeight);
    if (fDepthOffset < 0 || fDepthBytes < count * 4 || FLseek(fFile.stream(), fDepthOffset, kFLseekSet) != 0) return false;
    std::vector<unsigned char> bytes(count * 4);
    if (FLread(fFile.stream(), bytes.data(), bytes.size()) != bytes.size()) return false;
    for (size_t i = 0; i < count; ++i) distances[i] = bitsFloat(get32(&bytes[4 * i]));
    return true;
}

bool TdepthMapFile::sWriteAtomically(const std::string& path, const TshadowMapView& view, const float* distances,
                                     std::string& reason) {
    std::string pattern = folderOf(path) + "/.dmapXXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    int fd = ::mkstemp(name.data());
    if (fd < 0) {
        reason = std::strerror(errno);
        return false;
    }
    // mkstemp makes the file private; a map is as readable as any image.
    ::fchmod(fd, 0644);
    ::close(fd);
    const std::string temporary(name.data());
    auto fail = [&](const char* what) {
        reason = std::string(what) + (errno ? std::string(": ") + std::strerror(errno) : std::string());
        std::remove(temporary.c_str());
        return false;
    };

    TiffFile file;
    errno = 0;
    if (!file.open(temporary.c_str(), "wb") || !file.beginWriteGroup(TiffTag::kFOR4, kForm)) return fail("cannot start the file");
    const int res = view.resolution;
    std::vector<unsigned char> header(24);
    put32(&header[0], uint32_t(res));
    put32(&header[4], uint32_t(res));
    put32(&header[8], view.orthographic ? 1u : 0u);
    put32(&header[12], floatBits(view.halfWidth));
    put32(&header[16], floatBits(view.nearClip));
    put32(&header[20], floatBits(view.farClip));
    std::vector<unsigned char> matrix(128);
    for (int i = 0; i < 16; ++i) {
        uint64_t bits;
        std::memcpy(&bits, &view.worldToView.m[i / 4][i % 4], 8);
        put32(&matrix[8 * i], uint32_t(bits >> 32));
        put32(&matrix[8 * i + 4], uint32_t(bits));
    }
    std::vector<unsigned char> depth(size_t(res) * size_t(res) * 4);
    for (size_t i = 0; i < depth.size() / 4; ++i) put32(&depth[4 * i], floatBits(distances[i]));
    if (!writeChunk(file.stream(), kHeader, header) || !writeChunk(file.stream(), kView, matrix) ||
        !writeChunk(file.stream(), kDepth, depth) || !file.endGroup() || FLflushBuffer(file.stream()) != 0)
        return fail("cannot write the depth map");
    if (!file.close()) return fail("cannot close the file");
    if (std::rename(temporary.c_str(), path.c_str()) != 0) return fail("cannot rename the finished file into place");
    return true;
}
