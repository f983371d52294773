#include "fq/core/NotificationCenter.h"

#include <fmt/format.h>

#include <climits>
#include <utility>

namespace fq::core {
namespace {

using Json = nlohmann::json;

tl::expected<std::string, Error> textField(const Json& json, const char* key) {
    const auto found = json.find(key);
    if (found == json.end() || !found->is_string())
        return tl::unexpected(Error{fmt::format("Missing text value for key: {}", key)});
    return found->get<std::string>();
}

tl::expected<int, Error> integerField(const Json& json, const char* key) {
    const auto found = json.find(key);
    if (found == json.end() || !found->is_number_integer())
        return tl::unexpected(Error{fmt::format("Missing integer value for key: {}", key)});
    const auto value = found->get<std::int64_t>();
    if (value < INT_MIN || value > INT_MAX)
        return tl::unexpected(Error{fmt::format("The value for key {} is out of range", key)});
    return static_cast<int>(value);
}

} // namespace

std::string toText(const DateComponents& c) {
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", c.year, c.month, c.day, c.hour,
                       c.minute, c.second);
}

nlohmann::ordered_json toJson(const NotificationRequest& request) {
    const auto& t = request.trigger;
    return {{"identifier", request.identifier},
            {"title", request.title},
            {"body", request.body},
            {"sound", request.sound},
            {"badge", request.badge},
            {"trigger",
             {{"year", t.year},
              {"month", t.month},
              {"day", t.day},
              {"hour", t.hour},
              {"minute", t.minute},
              {"second", t.second}}},
            {"repeats", request.repeats}};
}

tl::expected<NotificationRequest, Error> notificationRequestFromJson(const nlohmann::json& json) {
    if (!json.is_object())
        return tl::unexpected(Error{"A notification request must be a JSON object"});
    NotificationRequest request;
    for (const auto& [key, into] :
         {std::pair{"identifier", &request.identifier}, std::pair{"title", &request.title},
          std::pair{"body", &request.body}, std::pair{"sound", &request.sound}}) {
        auto value = textField(json, key);
        if (!value) return tl::unexpected(value.error());
        *into = std::move(*value);
    }
    const auto badge = integerField(json, "badge");
    if (!badge) return tl::unexpected(badge.error());
    request.badge = *badge;
    const auto repeats = json.find("repeats");
    if (repeats == json.end() || !repeats->is_boolean())
        return tl::unexpected(Error{"Missing boolean value for key: repeats"});
    request.repeats = repeats->get<bool>();
    const auto trigger = json.find("trigger");
    if (trigger == json.end() || !trigger->is_object())
        return tl::unexpected(Error{"Missing object value for key: trigger"});
    auto& t = request.trigger;
    for (const auto& [key, into] :
         {std::pair{"year", &t.year}, std::pair{"month", &t.month}, std::pair{"day", &t.day},
          std::pair{"hour", &t.hour}, std::pair{"minute", &t.minute},
          std::pair{"second", &t.second}}) {
        const auto value = integerField(*trigger, key);
        if (!value) return tl::unexpected(value.error());
        *into = *value;
    }
    return request;
}

} // namespace fq::core
