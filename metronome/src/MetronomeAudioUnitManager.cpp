// Making the click unit, attaching it to the engine, and relaying its clicks to main.

#include "fq/metronome/MetronomeAudioUnitManager.h"

#include <fq/core/Diagnostics.h>

#include <asio/post.hpp>

#include <atomic>

namespace fq::metronome {
namespace {

/// How the unit is known in the graph: a generator, "METR" by "KLVN".
struct ComponentDescription {
    std::string_view type = "augn";
    std::string_view subtype = "METR";
    std::string_view manufacturer = "KLVN";
    std::uint32_t flags = 0;
    std::uint32_t mask = 0;
};

constexpr std::string_view componentName = "Metronome Audio Unit";
constexpr int componentVersion = 1;

/// The class is registered under its description once per process.
std::atomic<bool> registered{false};

void registerComponentOnce(const ComponentDescription&) {
    // Nothing else looks units up by description here; the flag keeps the rule that
    // registration happens once, with componentName and componentVersion.
    (void)componentName;
    (void)componentVersion;
    registered.exchange(true);
}

constexpr std::string_view setUpFailure = "Error in setting up audio unit: ";

} // namespace

// The relay.

MetronomeTickRelay::MetronomeTickRelay(asio::any_io_executor mainExecutor)
    : timer_(std::move(mainExecutor)) {}

MetronomeTickRelay::~MetronomeTickRelay() {
    *alive_ = false;
}

void MetronomeTickRelay::setHandler(Handler handler) {
    handler_ = std::move(handler);
    if (handler_)
        schedule();
    else
        timer_.cancel();
}

void MetronomeTickRelay::onTick(int beat, int subdivision) noexcept {
    // a full queue drops the click for the display only; the sound is not affected
    (void)ticks_.push(MetronomeTick{beat, subdivision});
}

void MetronomeTickRelay::drain() {
    while (const auto tick = ticks_.pop())
        if (handler_) handler_(tick->beat, tick->subdivision);
}

void MetronomeTickRelay::schedule() {
    if (scheduled_) return;
    scheduled_ = true;
    timer_.expires_after(config::tickPollInterval);
    timer_.async_wait([this, alive = alive_](const std::error_code& error) {
        if (!*alive) return;
        scheduled_ = false;
        if (error) return;
        drain();
        if (handler_) schedule();
    });
}

// The manager.

MetronomeAudioUnitManager::MetronomeAudioUnitManager(audio::SharedAudioEngine& engine,
                                                     asio::any_io_executor mainExecutor,
                                                     ClickResources resources)
    : engine_(engine), mainExecutor_(mainExecutor), resources_(std::move(resources)),
      tickRelay_(mainExecutor) {}

MetronomeAudioUnitManager::~MetronomeAudioUnitManager() {
    *alive_ = false;
    if (audioUnit_ && attached_) {
        audioUnit_->setIsProcessing(false);
        engine_.detach(*audioUnit_);
    }
}

void MetronomeAudioUnitManager::setUp() {
    if (audioUnit_ || settingUp_) return;
    registerComponentOnce(ComponentDescription{});
    settingUp_ = true;
    asio::post(mainExecutor_, [this, alive = alive_] {
        if (!*alive) return;
        settingUp_ = false;
        auto made = MetronomeAudioUnit::create(resources_);
        if (!made) {
            diagnostic(std::string(setUpFailure) + made.error().message);
            return;
        }
        auto unit = std::move(*made);
        // the result of this is ignored, as a slice size is only a wish
        unit->setMaximumFramesToRender(config::maximumFramesToRender);
        if (!engine_.attach(*unit)) {
            diagnostic(std::string(setUpFailure) +
                       "The audio engine has no room for another source");
            return;
        }
        attached_ = true;
        audioUnit_ = std::move(unit);
        engine_.prepare();
        if (onAudioUnitReady_) onAudioUnitReady_(*audioUnit_);
        if (auto started = startEngineIfNeeded(); !started)
            diagnostic(std::string(setUpFailure) + started.error().message);
    });
}

tl::expected<void, Error> MetronomeAudioUnitManager::startEngineIfNeeded() {
    if (engine_.isRunning()) return {};
    return engine_.start();
}

void MetronomeAudioUnitManager::start() {
    if (!audioUnit_ || audioUnit_->isProcessing()) return;
    audioUnit_->resetRenderState();
    audioUnit_->setShouldTriggerImmediately(true);
    audioUnit_->setIsProcessing(true);
    asio::post(mainExecutor_, [this, alive = alive_] {
        if (!*alive) return;
        if (auto started = startEngineIfNeeded(); !started)
            diagnostic(std::string(setUpFailure) + started.error().message);
    });
}

void MetronomeAudioUnitManager::stop() {
    if (!audioUnit_) return;
    audioUnit_->setIsProcessing(false);
    audioUnit_->resetRenderState();
}

} // namespace fq::metronome
