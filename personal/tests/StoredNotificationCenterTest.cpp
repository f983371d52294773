// Pending announcements kept in the store: their order, unreadable lists never overwritten, and
// writers racing.

#include "fq/personal/StoredNotificationCenter.h"

#include "TemporaryStore.h"
#include "fq/personal/PreferenceKeys.h"

#include <gtest/gtest.h>

#include <thread>

namespace fq::personal {
namespace {

using core::NotificationRequest;

NotificationRequest request(std::string identifier, int day) {
    return {std::move(identifier),
            "Chord of the day!",
            "Warm up with C major today!",
            "default",
            1,
            {2026, 5, day, 8, 5, 0},
            false};
}

std::vector<std::string> identifiers(const std::vector<NotificationRequest>& requests) {
    std::vector<std::string> result;
    for (const auto& r : requests)
        result.push_back(r.identifier);
    return result;
}

using StoredNotificationCenterTest = TemporaryStoreTest;

TEST_F(StoredNotificationCenterTest, AddReplaceAndRemoveKeepFirstAddedOrder) {
    StoredNotificationCenter center(store_);
    EXPECT_TRUE(center.pending().empty());
    ASSERT_TRUE(center.add(request("a", 1)));
    ASSERT_TRUE(center.add(request("b", 2)));
    ASSERT_TRUE(center.add(request("c", 3)));
    auto replacement = request("a", 9);
    replacement.title = "Fresh Chord of the day!";
    ASSERT_TRUE(center.add(replacement));
    const auto pending = center.pending();
    EXPECT_EQ(identifiers(pending), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(pending.front(), replacement);

    const std::vector<std::string> gone{"b", "nonesuch"};
    ASSERT_TRUE(center.removePending(gone));
    // another connection, as another process would see it
    EXPECT_EQ(identifiers(StoredNotificationCenter(openStore()).pending()),
              (std::vector<std::string>{"a", "c"}));
}

TEST_F(StoredNotificationCenterTest, AnUnreadableListIsNeverOverwritten) {
    StoredNotificationCenter center(store_);
    const std::vector<std::pair<const char*, StoreValue>> stored{
        {"text", StoreValue{std::string("[]")}},
        {"not JSON", StoreValue{bytesOf("[{")}},
        {"an object", StoreValue{bytesOf("{}")}},
        {"a request without a title", StoreValue{bytesOf(R"([{"identifier":"x"}])")}},
    };
    for (const auto& [what, value] : stored) {
        ASSERT_TRUE(store_->set(keys::pendingNotificationRequests.name, value)) << what;
        const auto added = center.add(request("a", 1));
        ASSERT_FALSE(added) << what;
        EXPECT_TRUE(added.error().message.starts_with(
            "The pending notifications in the preference store cannot be read: "))
            << added.error().message;
        EXPECT_FALSE(center.removePending(std::vector<std::string>{"a"})) << what;
        EXPECT_EQ(store_->value(keys::pendingNotificationRequests.name), value) << what;
        EXPECT_FALSE(center.read()) << what;
    }
}

TEST_F(StoredNotificationCenterTest, ConcurrentWritersLoseNothing) {
    constexpr int perWriter = 15;
    const auto write = [this](char tag) {
        StoredNotificationCenter center(openStore());
        for (int i = 0; i < perWriter; ++i)
            ASSERT_TRUE(center.add(request(std::string(1, tag) + std::to_string(i), 1)));
    };
    std::thread first(write, 'x');
    std::thread second(write, 'y');
    first.join();
    second.join();
    EXPECT_EQ(StoredNotificationCenter(store_).pending().size(), 2u * perWriter);
}

} // namespace
} // namespace fq::personal
