#pragma once

// The sound devices as the commands use them: checked before use, and the guitar played
// through them from start to release.

#include <fq/audio/AudioDevices.h>
#include <fq/audio/GuitarAudioEngine.h>

#include <string_view>
#include <vector>

namespace fq::cli {

/// Fails with the reason when there is no device to use in `direction`; `advice` follows
/// the reason.
void requireDevice(audio::AudioDirection direction, std::string_view advice = {});

/// Plays the parts on the guitar through the output device, then lets the device go.
void playOnDevice(std::vector<audio::TimedNotes> parts);

} // namespace fq::cli
