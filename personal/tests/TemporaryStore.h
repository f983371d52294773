#pragma once

#include "fq/personal/SharedStore.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace fq::personal {

/// A test that owns a fresh store file in a temporary folder.
class TemporaryStoreTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "fq-library-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        store_ = openStore();
    }
    void TearDown() override {
        store_.reset();
        std::filesystem::remove_all(folder_);
    }
    /// Another connection to the same file, as another process would have.
    std::shared_ptr<SharedStore> openStore() const {
        auto store = SharedStore::open(folder_ / "store.sqlite");
        EXPECT_TRUE(store) << store.error().message;
        return store ? *store : nullptr;
    }

    std::filesystem::path folder_;
    std::shared_ptr<SharedStore> store_;
};

inline core::Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

} // namespace fq::personal
