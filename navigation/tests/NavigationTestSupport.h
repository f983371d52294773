#pragma once

// A store and a cache folder of their own for each test, removed afterwards.

#include <fq/personal/SharedStore.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>

namespace fq::navigation::testing {

class TemporaryFolder {
public:
    TemporaryFolder() {
        static std::atomic<int> counter{0};
        path_ = std::filesystem::temp_directory_path() /
                ("fq-navigation-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

inline std::shared_ptr<personal::SharedStore> openStore(const TemporaryFolder& folder) {
    auto store = personal::SharedStore::open(folder.path() / "store.sqlite");
    EXPECT_TRUE(store.has_value());
    return store ? *store : nullptr;
}

} // namespace fq::navigation::testing
