#pragma once

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::audio {

namespace config {
/// Names the device to use instead of the system's default, for output and input.
inline constexpr const char* audioDeviceVariable = "FRETQUILL_AUDIO_DEVICE";
} // namespace config

/// One device as PortAudio sees it.
struct AudioDeviceInfo {
    int index = -1;
    std::string name;
    std::string hostApi;
    int maxInputChannels = 0;
    int maxOutputChannels = 0;
    double defaultSampleRate = 0;
    bool isDefaultInput = false;
    bool isDefaultOutput = false;

    friend bool operator==(const AudioDeviceInfo&, const AudioDeviceInfo&) = default;
};

enum class AudioDirection { output, input };

/// Every device there is now. PortAudio learns of new devices only while no stream
/// of the program is open, so a device plugged in during playback shows up later.
tl::expected<std::vector<AudioDeviceInfo>, Error> listAudioDevices();

/// The device to use in a direction: the one `wanted` names (its exact name, else the
/// first whose name contains the text) if it has channels that way, else the
/// default one. For input, a named device without inputs falls back to the default.
tl::expected<AudioDeviceInfo, Error> chooseAudioDevice(const std::vector<AudioDeviceInfo>& devices,
                                                       AudioDirection direction,
                                                       const std::optional<std::string>& wanted);

/// The value of FRETQUILL_AUDIO_DEVICE, if it is set and not empty.
std::optional<std::string> wantedAudioDevice();

} // namespace fq::audio
