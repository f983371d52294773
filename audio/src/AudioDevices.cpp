#include "fq/audio/AudioDevices.h"

#include "PortAudioHost.h"

#include <fmt/format.h>

#include <cstdlib>

namespace fq::audio {

tl::expected<std::vector<AudioDeviceInfo>, Error> listAudioDevices() {
    auto& host = detail::PortAudioHost::instance();
    const auto lock = host.lock();
    if (auto scanned = host.rescan(); !scanned) return tl::unexpected(scanned.error());
    return host.devices();
}

tl::expected<AudioDeviceInfo, Error> chooseAudioDevice(const std::vector<AudioDeviceInfo>& devices,
                                                       AudioDirection direction,
                                                       const std::optional<std::string>& wanted) {
    const bool output = direction == AudioDirection::output;
    const auto usable = [output](const AudioDeviceInfo& device) {
        return (output ? device.maxOutputChannels : device.maxInputChannels) > 0;
    };
    if (wanted) {
        const AudioDeviceInfo* found = nullptr;
        for (const auto& device : devices)
            if (device.name == *wanted) found = &device;
        if (found == nullptr)
            for (const auto& device : devices)
                if (found == nullptr && device.name.find(*wanted) != std::string::npos)
                    found = &device;
        if (found == nullptr)
            return tl::unexpected(Error{fmt::format(
                "No audio device named \"{}\" (fretquill audio devices lists them)", *wanted)});
        if (usable(*found)) return *found;
        if (output)
            return tl::unexpected(
                Error{fmt::format("The audio device \"{}\" has no outputs", found->name)});
    }
    for (const auto& device : devices)
        if ((output ? device.isDefaultOutput : device.isDefaultInput) && usable(device))
            return device;
    return tl::unexpected(Error{output ? "No audio output device" : "No audio input device"});
}

std::optional<std::string> wantedAudioDevice() {
    const char* value = std::getenv(config::audioDeviceVariable);
    if (value == nullptr || *value == '\0') return std::nullopt;
    return std::string(value);
}

} // namespace fq::audio
