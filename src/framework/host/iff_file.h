#pragma once
// TiffFile: a file of IFF-style groups (a four-character group tag, a 32-bit
// big-endian length, a four-character type, then the contents), and FLstream,
// the buffered stream under it. Callers that write their own bytes after a
// group header use the stream directly through the FL functions.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "framework/host/iff_tag.h"

struct FLstream;

// Seek origins.
constexpr int kFLseekSet = 0;
constexpr int kFLseekEnd = 2;

// 0 on success.
int FLseek(FLstream* stream, int64_t offset, int origin);
// The current position, or -1.
int64_t FLtell(FLstream* stream);
// Counts of bytes moved.
size_t FLread(FLstream* stream, void* data, size_t size);
size_t FLwrite(FLstream* stream, const void* data, size_t size);
// 0 on success.
int FLflushBuffer(FLstream* stream);
// Non-zero when the stream's error indicator is set.
int FLerror(FLstream* stream);
// The C file object under the stream, or null.
FILE* FLfile(FLstream* stream);
// The operating system's error state (errno) and its text.
int FLoserror();
const char* FLstrerror();

class TiffFile {
public:
    TiffFile() = default;
    ~TiffFile();
    TiffFile(const TiffFile&) = delete;
    TiffFile& operator=(const TiffFile&) = delete;

    // mode as for fopen ("r", "w+" ...). The two numbers are open options
    // reserved for buffered variants; 0 asks for the defaults.
    bool open(const char* path, const char* mode, int options = 0, int bufferSize = 0);
    bool isOpen() const { return fStream != nullptr; }
    // Writes a group header with a zero length, to be set by endGroup.
    bool beginWriteGroup(TiffTag group, TiffTag type);
    // Sets the length of the innermost open group and pads FOR4 groups to 4 bytes.
    bool endGroup();
    unsigned openGroupCount() const { return unsigned(fGroups.size()); }
    bool close();

    FLstream* stream() const { return fStream; }

private:
    struct Group {
        int64_t start;
        TiffTag tag;
    };
    FLstream* fStream = nullptr;
    std::vector<Group> fGroups;
};
