#include "fq/audio/AudioDeviceLayer.h"

#include <fmt/format.h>

namespace fq::audio {

std::string routeChangeReasonName(std::int64_t reason) {
    switch (reason) {
    case routeChangeReason::unknown:
        return "unknown";
    case routeChangeReason::newDeviceAvailable:
        return "newDeviceAvailable";
    case routeChangeReason::oldDeviceUnavailable:
        return "oldDeviceUnavailable";
    case routeChangeReason::categoryChange:
        return "categoryChange";
    case routeChangeReason::outputOverride:
        return "override";
    case routeChangeReason::wakeFromSleep:
        return "wakeFromSleep";
    case routeChangeReason::noSuitableRouteForCategory:
        return "noSuitableRouteForCategory";
    case routeChangeReason::routeConfigurationChange:
        return "routeConfigurationChange";
    default:
        return std::to_string(reason);
    }
}

std::string describe(const NotificationInfo& info) {
    std::string text = "[";
    for (const auto& [key, value] : info)
        text += fmt::format("{}{}: {}", text.size() > 1 ? ", " : "", key, value);
    return text + "]";
}

std::string describe(const std::vector<AudioPort>& ports) {
    std::string text;
    for (const auto& port : ports)
        text += fmt::format("{}{} ({})", text.empty() ? "" : ", ", port.name, port.type);
    return text;
}

} // namespace fq::audio
