#pragma once

// The sound devices as one owner (the command, the desktop app) drives them: the audio
// session on the owner's main executor over the shared engine, and the guitar played and
// let go as the shell does.

#include "fq/audio/AudioSessionManager.h"
#include "fq/audio/GuitarAudioEngine.h"
#include "fq/audio/PortAudioDeviceLayer.h"
#include "fq/audio/SerialQueue.h"
#include "fq/audio/SharedAudioEngine.h"

#include <fq/core/Error.h>
#include <fq/core/Executor.h>

#include <asio/io_context.hpp>
#include <tl/expected.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace fq::audio {

namespace config {
/// How long the device may take to start or stop before the owner gives up on it.
inline constexpr std::chrono::milliseconds activationTimeout{5000};
/// How much audio a device has played when it counts as running steadily.
inline constexpr std::chrono::milliseconds steadyAfter{200};
} // namespace config

/// Runs `main` until `done` holds or `limit` has passed, sleeping while it has nothing to
/// do; tells whether `done` holds. For owners that run an io_context of their own.
bool runUntil(asio::io_context& main, const std::function<bool()>& done,
              std::chrono::milliseconds limit);

/// The device side of the audio for one owner: the platform layer under the shared engine,
/// the session manager's activation queue, and the manager itself on `main`.
///
/// Threads: the main executor; every completion runs there.
class DeviceAudio {
public:
    using Ready = std::function<void(tl::expected<void, Error>)>;

    explicit DeviceAudio(Executor main);
    ~DeviceAudio();
    DeviceAudio(const DeviceAudio&) = delete;
    DeviceAudio& operator=(const DeviceAudio&) = delete;

    AudioSessionManager& session() { return *session_; }
    SharedAudioEngine& engine() { return SharedAudioEngine::shared(); }
    GuitarAudioEngine& guitar() { return GuitarAudioEngine::shared(); }

    /// Activates the session for playback, as a tap on a shape does; `ready` runs once the
    /// device plays steadily, or with a device error when it did not start in time.
    void startPlayback(Ready ready);
    /// Sounds each part on the guitar in turn; when the last one's time is up, silences it
    /// and runs `done`.
    void play(std::vector<TimedNotes> parts, std::function<void()> done);
    /// Lets the device go, as the shell does when nothing sounds: the scene inactive, the
    /// guitar suspended, the session deactivated; `done` after that.
    void release(std::function<void()> done);

private:
    Executor main_;
    PortAudioDeviceLayer device_;
    SerialQueue activation_;
    std::shared_ptr<AudioSessionManager> session_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace fq::audio
