#pragma once
// A fresh folder per test, removed when the test ends.
#include <filesystem>
#include <string>

class TtestTempDir {
public:
    TtestTempDir();
    ~TtestTempDir();
    const std::filesystem::path& path() const { return fPath; }
    std::string file(const std::string& name) const { return (fPath / name).string(); }

private:
    std::filesystem::path fPath;
};
