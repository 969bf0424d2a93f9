// TatomicFile: the earlier file survives anything short of a commit, and
// links and special files are treated as their owner would expect.
#include "framework/host/atomic_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "framework/host/tmp_file_cache.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace {
std::string bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

bool put(const TatomicFile& file, const std::string& text) {
    return ::write(file.descriptor(), text.data(), text.size()) == ssize_t(text.size());
}

size_t entries(const fs::path& folder) { return size_t(std::distance(fs::directory_iterator(folder), {})); }
}  // namespace

TEST(AtomicFile, TheTargetChangesOnlyAtCommit) {
    TtestTempDir dir;
    const std::string target = dir.file("image.bin");
    std::ofstream(target) << "earlier";
    ::chmod(target.c_str(), 0640);
    std::string error;
    {
        TatomicFile file(target);
        ASSERT_TRUE(file.open(error)) << error;
        EXPECT_NE(file.path(), target);
        EXPECT_EQ(fs::path(file.path()).parent_path(), dir.path()) << "a rename stays on one disk";
        ASSERT_TRUE(put(file, "new, half"));
        EXPECT_EQ(bytesOf(target), "earlier");
        EXPECT_EQ(registeredTmpFiles().back(), file.path()) << "removed at exit if the program dies early";
    }  // dropped without a commit
    EXPECT_EQ(bytesOf(target), "earlier");
    EXPECT_EQ(entries(dir.path()), 1u);

    TatomicFile file(target);
    ASSERT_TRUE(file.open(error)) << error;
    const std::string temporary = file.path();
    ASSERT_TRUE(put(file, "complete"));
    ASSERT_TRUE(file.commit(error)) << error;
    EXPECT_EQ(bytesOf(target), "complete");
    EXPECT_EQ(entries(dir.path()), 1u);
    EXPECT_EQ(fs::status(target).permissions() & fs::perms::all, fs::perms(0640)) << "the owner's permissions stay";
    for (const std::string& p : registeredTmpFiles()) EXPECT_NE(p, temporary);
}

TEST(AtomicFile, LinksFoldersAndDevicesAreTreatedAsWhatTheyAre) {
    TtestTempDir dir;
    std::string error;
    // A link to a file: the file is replaced, the link stays.
    const std::string real = dir.file("real.png"), link = dir.file("link.png");
    std::ofstream(real) << "old";
    fs::create_symlink(real, link);
    {
        TatomicFile file(link);
        ASSERT_TRUE(file.open(error)) << error;
        ASSERT_TRUE(put(file, "new"));
        ASSERT_TRUE(file.commit(error)) << error;
    }
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(bytesOf(real), "new");

    // A folder is refused, by name.
    TatomicFile folder(dir.path().string());
    EXPECT_FALSE(folder.open(error));
    EXPECT_EQ(error, dir.path().string() + ": cannot write: is a directory");

    // A missing folder: the system's reason.
    const std::string lost = dir.file("no/such/folder/x.png");
    TatomicFile nowhere(lost);
    EXPECT_FALSE(nowhere.open(error));
    EXPECT_EQ(error, lost + ": cannot write: No such file or directory");

    // A device is written directly: no temporary beside it, and its errors
    // come back from the writes themselves.
    const std::string full = dir.file("full.png");
    fs::create_symlink("/dev/full", full);
    TatomicFile device(full);
    ASSERT_TRUE(device.open(error)) << error;
    EXPECT_EQ(device.path(), full);
    EXPECT_FALSE(put(device, "bytes"));
    EXPECT_EQ(errno, ENOSPC);
    device.discard();
    EXPECT_TRUE(fs::is_symlink(full));
    EXPECT_EQ(entries(dir.path()), 3u);
}
