#pragma once

// Pending announcements kept in the shared store until they are due.

#include "fq/personal/SharedStore.h"

#include <fq/core/NotificationCenter.h>

#include <memory>
#include <string_view>

namespace fq::personal {

/// Keeps pending notification requests in the shared store until the program that
/// delivers them (through the desktop's notification service) takes them. Every change
/// reads, edits and writes the whole list inside one store transaction, so two
/// processes scheduling at once lose nothing.
///
/// A list that is in the store but cannot be decoded is never overwritten: changes
/// fail with an error that says so, and the list is read as empty.
class StoredNotificationCenter final : public core::NotificationCenter {
public:
    explicit StoredNotificationCenter(std::shared_ptr<SharedStore> store);

    tl::expected<void, Error> add(const core::NotificationRequest& request) override;
    tl::expected<void, Error> removePending(std::span<const std::string> identifiers) override;
    /// The pending requests; empty (with one diagnostic line) when they cannot be read.
    std::vector<core::NotificationRequest> pending() const override;

    /// The pending requests, or why they cannot be read.
    tl::expected<std::vector<core::NotificationRequest>, Error> read() const;

private:
    std::shared_ptr<SharedStore> store_;
};

} // namespace fq::personal
