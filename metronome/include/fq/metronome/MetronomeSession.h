#pragma once

// The live metronome as a front end drives it: open, settings, waiting for the unit and
// the device, clicking or listening for the tempo, taps and tempo steps, and the stop.

#include "fq/metronome/MetronomeController.h"
#include "fq/metronome/MetronomeSettings.h"

#include <fq/core/Error.h>

#include <asio/any_io_executor.hpp>
#include <asio/steady_timer.hpp>
#include <tl/expected.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace fq::audio {
class SharedAudioEngine;
}

namespace fq::metronome {

namespace config {
/// How long the unit and the device may take to start before the session gives up.
inline constexpr std::chrono::seconds sessionStartTimeout{5};
/// How much audio a device has played when it counts as running steadily: a sound
/// server may take the first blocks at once and then pause while it sets up.
inline constexpr std::chrono::milliseconds steadyAfter{200};
/// How often the session looks at the store (other processes) and the device.
inline constexpr std::chrono::milliseconds sessionPollInterval{10};
/// Time for the audio session to take the microphone back before the devices stop.
inline constexpr std::chrono::milliseconds microphoneReturnTime{300};
} // namespace config

/// One run of the live metronome. It owns the unit's manager and the screen's controller;
/// the front end brings the surfaces (status, haptics), the listening port and the
/// engine, and is told what happens through the observer, on the main executor. It
/// prints nothing.
///
/// Threads: the main executor only.
class MetronomeSession {
public:
    struct Environment {
        std::shared_ptr<personal::SharedStore> store;
        personal::UserPreferences& preferences;
        audio::SharedAudioEngine& engine;
        asio::any_io_executor main;
        StatusSurface& status;
        HapticsPort& haptics;
        /// None on a system without tempo detection.
        TempoListeningPort* listening = nullptr;
    };

    /// Each is called on the main executor; any may be empty.
    struct Observer {
        /// Once: the clicks (or listening) began, or why they could not (kind notFound:
        /// there is no output device to play on).
        std::function<void(const tl::expected<void, Error>&)> onStarted;
        std::function<void(int beat, int subdivision)> onClick;
        /// The listening state, message, tempo heard, level bands or tempo changed.
        std::function<void()> onListeningChange;
        /// Once, when the run ended by itself: the switch was turned off elsewhere
        /// (no error), or the device failed.
        std::function<void(const std::optional<Error>&)> onEnded;
        /// Once, after stop(), when the devices are given back.
        std::function<void()> onStopped;
    };

    /// Everything in `environment` must outlive the session.
    explicit MetronomeSession(Environment environment);
    ~MetronomeSession();
    MetronomeSession(const MetronomeSession&) = delete;
    MetronomeSession& operator=(const MetronomeSession&) = delete;

    /// Opens the screen with `settings`, waits for the unit and a steadily running
    /// device, then clicks, or listens first when `listen` is set (or an intent asked
    /// for listening on arrival).
    void start(const MetronomeSettings& settings, bool listen, Observer observer);

    // What the person does while it runs.
    void tap();
    /// Changes the tempo by `by`, kept to its range.
    void stepTempo(int by);
    /// Ends listening and starts the clicks.
    void playClicks();
    /// Turns the clicks off and listens afresh.
    void listenAgain();
    void stopListening();

    /// Ends the clicks, listening and the live activity, then gives the devices back
    /// and reports onStopped. `terminating`: as when the program is killed.
    void stop(bool terminating = false);

    /// The run listens for the tempo rather than clicking from the start.
    bool listens() const { return listens_; }
    bool isRunning() const { return running_; }
    const MetronomeController& controller() const { return controller_; }

private:
    void waitForUnit(std::chrono::steady_clock::time_point deadline);
    void waitUntilSteady(std::int64_t startedAt, std::chrono::steady_clock::time_point deadline);
    void begin();
    void poll();
    void finishStart(const tl::expected<void, Error>& result);
    void endBy(const std::optional<Error>& error);
    void giveBackDevices();

    Environment environment_;
    MetronomeAudioUnitManager manager_;
    MetronomeController controller_;
    asio::steady_timer timer_;
    Observer observer_;
    bool listens_ = false;
    bool running_ = false;
    bool listenedOnce_ = false;
    bool stopping_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace fq::metronome
