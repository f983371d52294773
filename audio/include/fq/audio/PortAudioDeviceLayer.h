#pragma once

#include "fq/audio/AudioDeviceLayer.h"
#include "fq/audio/SharedAudioEngine.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace fq::audio {

/// The audio session on PortAudio. Activation opens and starts the engine's streams
/// on the chosen devices and deactivation closes them; the route is the devices in
/// use; the profile has nothing to set on this host beyond the preferred rate and
/// buffer, which the next activation uses.
///
/// Notifications come from a monitor thread of its own:
/// - an interruption begins when the output stream stops by itself (the device failed
///   or went away, the sound server quit); it ends, with the option to resume, when
///   the chosen output device opens again;
/// - a route change is a change of the device list or of the default devices, seen
///   at the next activation (PortAudio enumerates only while no stream is open).
class PortAudioDeviceLayer final : public AudioDeviceLayer {
public:
    struct Options {
        /// How often the monitor looks for a stopped stream.
        std::chrono::milliseconds pollInterval{50};
        /// How often, during an interruption, it tries whether the device is back.
        std::chrono::milliseconds retryInterval{500};
    };

    explicit PortAudioDeviceLayer(SharedAudioEngine& engine)
        : PortAudioDeviceLayer(engine, Options{}) {}
    PortAudioDeviceLayer(SharedAudioEngine& engine, Options options);
    /// Ends the monitor; the streams stay as they are.
    ~PortAudioDeviceLayer() override;

    SessionCategory category() const override;
    unsigned categoryOptions() const override;
    SessionMode mode() const override;
    tl::expected<void, Error> setCategory(SessionCategory category, unsigned options) override;
    tl::expected<void, Error> setMode(SessionMode mode) override;
    tl::expected<void, Error> setPreferredSampleRate(double sampleRate) override;
    tl::expected<void, Error> setPreferredIOBufferDuration(double duration) override;
    tl::expected<void, Error> setActive(bool active, unsigned options) override;
    AudioRoute currentRoute() const override;
    std::vector<AudioPort> availableInputs() const override;
    tl::expected<void, Error> setPreferredInput(std::optional<AudioPort> port) override;
    double sampleRate() const override;
    double ioBufferDuration() const override;
    void setObservers(Observer interruption, Observer routeChange) override;

    bool isActive() const;
    bool isInterrupted() const;

private:
    void monitor();
    std::optional<std::int64_t> routeChangeSince(const std::vector<AudioDeviceInfo>& devices) const;

    SharedAudioEngine& engine_;
    const Options options_;
    mutable std::mutex mutex_;
    SessionCategory category_ = SessionCategory::soloAmbient;
    unsigned categoryOptions_ = 0;
    SessionMode mode_ = SessionMode::standard;
    double preferredSampleRate_ = config::sessionSampleRate;
    double preferredIOBufferDuration_ = config::sessionIOBufferDuration;
    std::optional<AudioPort> preferredInput_;
    bool active_ = false;
    bool interrupted_ = false;
    std::optional<std::vector<AudioDeviceInfo>> knownDevices_;
    Observer interruptionObserver_;
    Observer routeChangeObserver_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread monitor_;
};

} // namespace fq::audio
