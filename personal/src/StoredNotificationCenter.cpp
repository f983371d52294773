// Pending announcements kept in the shared store.

#include "fq/personal/StoredNotificationCenter.h"

#include "fq/personal/PreferenceKeys.h"

#include <fq/core/Diagnostics.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cassert>
#include <optional>

namespace fq::personal {
namespace {

using core::NotificationRequest;
using Requests = std::vector<NotificationRequest>;

Error unreadable(std::string_view reason) {
    return Error{fmt::format("The pending notifications in the preference store cannot be read: {}",
                             reason)};
}

tl::expected<Requests, Error> decode(const std::optional<StoreValue>& stored) {
    if (!stored) return Requests{};
    const auto* bytes = std::get_if<core::Bytes>(&*stored);
    if (!bytes) return tl::unexpected(unreadable("they are not stored as bytes"));
    const auto json = nlohmann::json::parse(bytes->begin(), bytes->end(), nullptr, false);
    if (!json.is_array()) return tl::unexpected(unreadable("they are not a JSON array"));
    Requests requests;
    requests.reserve(json.size());
    for (const auto& item : json) {
        auto request = core::notificationRequestFromJson(item);
        if (!request) return tl::unexpected(unreadable(request.error().message));
        requests.push_back(std::move(*request));
    }
    return requests;
}

core::Bytes encode(const Requests& requests) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& request : requests)
        array.push_back(core::toJson(request));
    const auto text = array.dump();
    return {text.begin(), text.end()};
}

/// Reads the list, lets `edit` change it, and writes it back, all in one transaction.
/// `edit` returns false when nothing changed, so nothing is written.
template <typename Edit>
tl::expected<void, Error> change(SharedStore& store, Edit edit) {
    std::optional<Error> failure;
    auto done = store.update([&](SharedStore::Transaction& transaction) {
        auto requests = decode(transaction.value(keys::pendingNotificationRequests.name));
        if (!requests) {
            failure = requests.error();
            return;
        }
        if (!edit(*requests)) return;
        if (auto written =
                transaction.set(keys::pendingNotificationRequests.name, encode(*requests));
            !written)
            failure = written.error();
    });
    if (failure) return tl::unexpected(*failure);
    return done;
}

} // namespace

StoredNotificationCenter::StoredNotificationCenter(std::shared_ptr<SharedStore> store)
    : store_(std::move(store)) {
    assert(store_);
}

tl::expected<void, Error> StoredNotificationCenter::add(const NotificationRequest& request) {
    return change(*store_, [&](Requests& requests) {
        const auto same =
            std::find_if(requests.begin(), requests.end(), [&](const NotificationRequest& r) {
                return r.identifier == request.identifier;
            });
        if (same != requests.end())
            *same = request;
        else
            requests.push_back(request);
        return true;
    });
}

tl::expected<void, Error>
StoredNotificationCenter::removePending(std::span<const std::string> identifiers) {
    return change(*store_, [&](Requests& requests) {
        return std::erase_if(requests, [&](const NotificationRequest& r) {
                   return std::find(identifiers.begin(), identifiers.end(), r.identifier) !=
                          identifiers.end();
               }) > 0;
    });
}

std::vector<NotificationRequest> StoredNotificationCenter::pending() const {
    auto requests = read();
    if (requests) return std::move(*requests);
    diagnostic(requests.error().message);
    return {};
}

tl::expected<std::vector<NotificationRequest>, Error> StoredNotificationCenter::read() const {
    return decode(store_->value(keys::pendingNotificationRequests.name));
}

} // namespace fq::personal
