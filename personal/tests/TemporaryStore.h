#pragma once

// For the personal tests: a store file of their own in a temporary folder, and what they
// share to look at it.

#include "fq/personal/SharedStore.h"

#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace fq::personal {

/// A test that owns a fresh store in a temporary folder, opened at the start.
class TemporaryStoreTest : public testing::Test {
protected:
    void SetUp() override { store_ = openStore(); }
    /// Another connection to the same file, as another process would have.
    std::shared_ptr<SharedStore> openStore() const {
        auto store = SharedStore::open(file_);
        EXPECT_TRUE(store) << store.error().message;
        return store ? *store : nullptr;
    }
    /// Every key an observer of `store` hears, in order.
    static ObserverToken record(SharedStore& store, std::vector<std::string>& heard) {
        return store.addObserver([&heard](std::string_view key) { heard.emplace_back(key); });
    }

    test::TemporaryFolder folder_;
    std::filesystem::path file_ = folder_ / "store.sqlite";
    std::shared_ptr<SharedStore> store_;
};

inline core::Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

} // namespace fq::personal
