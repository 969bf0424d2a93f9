// The IFF-style file and its stream, and temporary-file registration.
#include "framework/host/iff_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "framework/host/tmp_file_cache.h"
#include "support/temp_dir.h"

namespace {
std::vector<unsigned char> bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
uint32_t bigEndian(const std::vector<unsigned char>& b, size_t at) {
    return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 | b[at + 3];
}
}  // namespace

TEST(IffFile, GroupLengthCoversContentsAndPadsToFour) {
    for (size_t payload : {0u, 1u, 3u, 4u, 5u, 1000u}) {
        TtestTempDir dir;
        const std::string path = dir.file("f.iff");
        TiffFile file;
        ASSERT_TRUE(file.open(path.c_str(), "w+", 0, 0));
        ASSERT_TRUE(file.beginWriteGroup(TiffTag::kFOR4, TiffTag("Test")));
        std::vector<unsigned char> data(payload, 0x42);
        ASSERT_EQ(FLwrite(file.stream(), data.data(), payload), payload);
        ASSERT_TRUE(file.endGroup());
        ASSERT_TRUE(file.close());
        const auto b = bytesOf(path);
        const size_t padded = (payload + 3) / 4 * 4;
        ASSERT_EQ(b.size(), 12 + padded) << payload;
        EXPECT_EQ(std::string(b.begin(), b.begin() + 4), "FOR4");
        EXPECT_EQ(bigEndian(b, 4), 4 + padded) << payload;  // type plus contents
        EXPECT_EQ(std::string(b.begin() + 8, b.begin() + 12), "Test");
    }
}

TEST(IffFile, StreamSeeksReadsAndReportsErrors) {
    TtestTempDir dir;
    TiffFile file;
    EXPECT_FALSE(file.open(dir.file("no/such/folder").c_str(), "w+"));
    EXPECT_EQ(FLoserror(), ENOENT);
    EXPECT_STREQ(FLstrerror(), std::strerror(ENOENT));
    EXPECT_EQ(file.stream(), nullptr);
    EXPECT_EQ(FLseek(file.stream(), 0, kFLseekSet), -1);
    EXPECT_FALSE(file.beginWriteGroup(TiffTag::kFOR4, TiffTag("Test")));

    ASSERT_TRUE(file.open(dir.file("f").c_str(), "w+"));
    const char text[] = "0123456789";
    ASSERT_EQ(FLwrite(file.stream(), text, 10), 10u);
    ASSERT_EQ(FLseek(file.stream(), 4, kFLseekSet), 0);
    char back[4] = {};
    ASSERT_EQ(FLread(file.stream(), back, 3), 3u);
    EXPECT_EQ(std::string(back, 3), "456");
    EXPECT_EQ(FLtell(file.stream()), 7);
    ASSERT_EQ(FLseek(file.stream(), 0, kFLseekEnd), 0);
    EXPECT_EQ(FLtell(file.stream()), 10);
    EXPECT_EQ(FLread(file.stream(), back, 1), 0u);  // at the end
    EXPECT_EQ(FLerror(file.stream()), 0);
    EXPECT_EQ(FLflushBuffer(file.stream()), 0);
    EXPECT_NE(FLfile(file.stream()), nullptr);
}

TEST(TmpFileCache, RegisteredFilesGoWhenRemovedAndEmptyNameForgetsVanishedOnes) {
    TtestTempDir dir;
    const std::string a = dir.file("a"), b = dir.file("b");
    for (const std::string& p : {a, b}) std::ofstream(p) << "x";
    registerTmpFileCache(a);
    registerTmpFileCache(a);  // once only
    registerTmpFileCache(b);
    auto files = registeredTmpFiles();
    EXPECT_EQ(std::count(files.begin(), files.end(), a), 1);
    // b vanishes by other hands; the empty name forgets it, a stays.
    unlink(b.c_str());
    registerTmpFileCache(Tstring());
    files = registeredTmpFiles();
    EXPECT_EQ(std::count(files.begin(), files.end(), b), 0);
    EXPECT_EQ(std::count(files.begin(), files.end(), a), 1);
    unregisterTmpFile(a);
    files = registeredTmpFiles();
    EXPECT_EQ(std::count(files.begin(), files.end(), a), 0);
    EXPECT_EQ(access(a.c_str(), F_OK), 0);  // forgetting does not remove
    registerTmpFileCache(a);
    EXPECT_GE(removeRegisteredTmpFiles(), 1u);
    EXPECT_NE(access(a.c_str(), F_OK), 0);
}
