#pragma once

// The graph around the click unit: making it, attaching it to the engine, start and stop.

#include "fq/metronome/MetronomeAudioUnit.h"

#include <fq/audio/SharedAudioEngine.h>
#include <fq/audio/SpscQueue.h>

#include <asio/any_io_executor.hpp>
#include <asio/steady_timer.hpp>

#include <chrono>
#include <functional>
#include <memory>

namespace fq::metronome {

namespace config {
/// How often the main thread collects the clicks the render thread reported.
inline constexpr std::chrono::milliseconds tickPollInterval{5};
/// Clicks waiting for the main thread; more than a second of the fastest clicking.
inline constexpr std::size_t tickQueueCapacity = 256;
} // namespace config

/// One click as the render thread reports it.
struct MetronomeTick {
    int beat = 0;
    int subdivision = 0;
};

/// Carries clicks from the render thread to the main thread: the render thread only
/// pushes into a lock-free queue, and a timer on the main executor hands each click to
/// the handler there, in order.
///
/// Threads: onTick on the render thread; everything else on the main executor.
class MetronomeTickRelay final : public TickListener {
public:
    using Handler = std::function<void(int beat, int subdivision)>;

    explicit MetronomeTickRelay(asio::any_io_executor mainExecutor);
    ~MetronomeTickRelay() override;

    /// Replaces the handler; an empty one stops the timer.
    void setHandler(Handler handler);
    /// Hands every waiting click to the handler now.
    void drain();

    void onTick(int beat, int subdivision) noexcept override;

private:
    void schedule();

    asio::steady_timer timer_;
    Handler handler_;
    bool scheduled_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    audio::SpscQueue<MetronomeTick, config::tickQueueCapacity> ticks_;
};

/// Owns the graph around the unit: makes it, attaches it to the shared engine and
/// starts and stops its clicks. The engine goes on running after a stop, and the unit
/// renders silence.
///
/// Threads: the main executor only.
class MetronomeAudioUnitManager {
public:
    /// `engine` must outlive the manager.
    MetronomeAudioUnitManager(audio::SharedAudioEngine& engine, asio::any_io_executor mainExecutor,
                              ClickResources resources = embeddedClick);
    /// Detaches the unit.
    ~MetronomeAudioUnitManager();
    MetronomeAudioUnitManager(const MetronomeAudioUnitManager&) = delete;
    MetronomeAudioUnitManager& operator=(const MetronomeAudioUnitManager&) = delete;

    audio::SharedAudioEngine& engine() const { return engine_; }
    /// The unit, once setUp has made it.
    MetronomeAudioUnit* audioUnit() const { return audioUnit_.get(); }
    /// The unit as a source of the engine's graph, once attached.
    audio::AudioSource* metronomeNode() const { return attached_ ? audioUnit_.get() : nullptr; }
    /// Where the unit's clicks reach the main thread.
    MetronomeTickRelay& tickRelay() { return tickRelay_; }
    /// Told on the main executor when the unit has been made and attached.
    void setOnAudioUnitReady(std::function<void(MetronomeAudioUnit&)> observer) {
        onAudioUnitReady_ = std::move(observer);
    }

    /// Makes the unit and starts the engine in a task on the main executor; nothing
    /// happens when a unit exists or is being made. Failures are printed.
    void setUp();
    /// Starts the clicks at beat 0 with a click on the next rendered frame.
    void start();
    /// Stops the clicks and clears the position.
    void stop();

private:
    tl::expected<void, Error> startEngineIfNeeded();

    audio::SharedAudioEngine& engine_;
    asio::any_io_executor mainExecutor_;
    ClickResources resources_;
    // declared before the unit: the unit is detached before the relay goes
    MetronomeTickRelay tickRelay_;
    std::unique_ptr<MetronomeAudioUnit> audioUnit_;
    bool attached_ = false;
    bool settingUp_ = false;
    std::function<void(MetronomeAudioUnit&)> onAudioUnitReady_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace fq::metronome
