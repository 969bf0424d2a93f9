#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

TtestTempDir::TtestTempDir() {
    static std::atomic<unsigned> counter{0};
    const char* root = std::getenv("SHADENET_TEST_TMP");
    std::filesystem::path base = root ? root : std::filesystem::temp_directory_path();
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info ? std::string(info->test_suite_name()) + "." + info->name() : "test";
    for (char& c : name) if (c == '/') c = '_';
    fPath = base / (name + "-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
    std::filesystem::create_directories(fPath);
}

TtestTempDir::~TtestTempDir() {
    std::error_code ec;
    std::filesystem::remove_all(fPath, ec);
}
