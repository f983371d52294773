#pragma once

#include "fq/core/Error.h"

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <compare>
#include <span>
#include <string>
#include <vector>

namespace fq::core {

/// A wall-clock moment in the person's own calendar and time zone, as a calendar
/// trigger names it. Fields compare in order, so an earlier moment compares less.
struct DateComponents {
    int year = 0;
    int month = 0; ///< 1 to 12
    int day = 0;   ///< 1 to 31
    int hour = 0;
    int minute = 0;
    int second = 0;

    friend auto operator<=>(const DateComponents&, const DateComponents&) = default;
};

/// "2025-03-09 08:07:33"
std::string toText(const DateComponents& components);

/// A local notification waiting to be delivered once, at `trigger`.
struct NotificationRequest {
    std::string identifier; ///< adding another request with it replaces this one
    std::string title;
    std::string body;
    std::string sound = "default";
    int badge = 1;
    DateComponents trigger;
    bool repeats = false;

    friend bool operator==(const NotificationRequest&, const NotificationRequest&) = default;
};

/// {"identifier","title","body","sound","badge","trigger":{"year","month","day","hour",
/// "minute","second"},"repeats"}
nlohmann::ordered_json toJson(const NotificationRequest& request);
tl::expected<NotificationRequest, Error> notificationRequestFromJson(const nlohmann::json& json);

/// Where the theory core leaves the notifications it schedules. The program's
/// implementation keeps them in the preference store until they are delivered.
class NotificationCenter {
public:
    virtual ~NotificationCenter() = default;

    /// Adds a pending request, replacing one with the same identifier.
    virtual tl::expected<void, Error> add(const NotificationRequest& request) = 0;
    /// Removes the pending requests with these identifiers; unknown ones are ignored.
    virtual tl::expected<void, Error> removePending(std::span<const std::string> identifiers) = 0;
    /// Every pending request, in the order they were first added.
    virtual std::vector<NotificationRequest> pending() const = 0;
};

} // namespace fq::core
