// The live metronome's run, from opening the screen to giving the devices back.

#include "fq/metronome/MetronomeSession.h"

#include <fq/audio/AudioDevices.h>
#include <fq/audio/SharedAudioEngine.h>

#include <asio/post.hpp>

namespace fq::metronome {

MetronomeSession::MetronomeSession(Environment environment)
    : environment_(std::move(environment)), manager_(environment_.engine, environment_.main),
      controller_(environment_.store, environment_.preferences, manager_, environment_.main,
                  {environment_.status, environment_.haptics, environment_.listening}),
      timer_(environment_.main) {}

MetronomeSession::~MetronomeSession() {
    *alive_ = false;
    timer_.cancel();
}

void MetronomeSession::start(const MetronomeSettings& settings, bool listen, Observer observer) {
    observer_ = std::move(observer);
    if (!environment_.engine.isInManualRenderingMode()) {
        auto devices = audio::listAudioDevices();
        if (!devices) {
            finishStart(tl::unexpected(Error{devices.error().message, ErrorKind::device}));
            return;
        }
        // no output to play on is "not found": the front end may offer another way
        if (auto output = audio::chooseAudioDevice(*devices, audio::AudioDirection::output,
                                                   audio::wantedAudioDevice());
            !output) {
            finishStart(tl::unexpected(Error{output.error().message, ErrorKind::notFound}));
            return;
        }
    }
    controller_.setOnClick([this](int beat, int subdivision) {
        if (observer_.onClick) observer_.onClick(beat, subdivision);
    });
    controller_.setOnListeningChange([this] {
        listenedOnce_ = listenedOnce_ || controller_.isListeningForTempo();
        if (observer_.onListeningChange) observer_.onListeningChange();
    });
    controller_.open();
    // the settings go in as the screen's controls would put them
    controller_.setTempo(settings.bpm);
    controller_.setBeats(settings.beats);
    controller_.setSubdivisions(settings.subdivisions);
    controller_.setSound(settings.sound);
    controller_.setKeyIndex(settings.keyIndex);
    controller_.setAccentFirstBeat(settings.accentFirstBeat);
    listens_ = listen;
    waitForUnit(std::chrono::steady_clock::now() + config::sessionStartTimeout);
}

void MetronomeSession::waitForUnit(std::chrono::steady_clock::time_point deadline) {
    auto& engine = environment_.engine;
    if (manager_.audioUnit() != nullptr && engine.isRunning()) {
        waitUntilSteady(engine.renderedFrames(), deadline);
        return;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
        controller_.close();
        finishStart(tl::unexpected(Error{manager_.audioUnit() == nullptr
                                             ? "The metronome could not be set up"
                                             : "The audio output did not start",
                                         ErrorKind::device}));
        return;
    }
    timer_.expires_after(config::sessionPollInterval);
    timer_.async_wait([this, alive = alive_, deadline](const std::error_code& error) {
        if (!error && *alive && !stopping_) waitForUnit(deadline);
    });
}

void MetronomeSession::waitUntilSteady(std::int64_t startedAt,
                                       std::chrono::steady_clock::time_point deadline) {
    const auto& engine = environment_.engine;
    const auto steady = static_cast<std::int64_t>(
        engine.sampleRate() * std::chrono::duration<double>(config::steadyAfter).count());
    if (static_cast<std::int64_t>(engine.renderedFrames()) - startedAt > steady ||
        std::chrono::steady_clock::now() >= deadline) {
        begin();
        return;
    }
    timer_.expires_after(config::sessionPollInterval);
    timer_.async_wait([this, alive = alive_, startedAt, deadline](const std::error_code& error) {
        if (!error && *alive && !stopping_) waitUntilSteady(startedAt, deadline);
    });
}

void MetronomeSession::begin() {
    // listening, asked here or by an intent on arrival, comes before the clicks
    listens_ = listens_ || controller_.isListeningForTempo();
    if (listens_) {
        if (!controller_.isListeningForTempo()) controller_.startListening();
    } else {
        controller_.setMetronomeOn(true);
    }
    running_ = true;
    finishStart({});
    poll();
}

void MetronomeSession::finishStart(const tl::expected<void, Error>& result) {
    if (observer_.onStarted) observer_.onStarted(result);
}

void MetronomeSession::poll() {
    if (!running_ || stopping_) return;
    // another process (an intent, a preference written by hand) may turn the switch off:
    // the metronome follows it, and a run that clicks ends. A run that listens turns the
    // switch itself, and ends only when told.
    environment_.store->pollExternalChanges();
    if (!listens_ && !controller_.isMetronomeOn()) {
        endBy(std::nullopt);
        return;
    }
    if (environment_.engine.nextEvent() == audio::EngineEvent::outputStopped) {
        endBy(Error{"The audio output stopped", ErrorKind::device});
        return;
    }
    timer_.expires_after(config::sessionPollInterval);
    timer_.async_wait([this, alive = alive_](const std::error_code& error) {
        if (!error && *alive) poll();
    });
}

void MetronomeSession::endBy(const std::optional<Error>& error) {
    running_ = false;
    if (observer_.onEnded) observer_.onEnded(error);
}

void MetronomeSession::tap() {
    controller_.tap();
}

void MetronomeSession::stepTempo(int by) {
    controller_.setTempo(controller_.bpm() + by);
}

void MetronomeSession::playClicks() {
    controller_.setMetronomeOn(true); // which ends listening
}

void MetronomeSession::listenAgain() {
    controller_.startListening(); // which turns the clicks off
}

void MetronomeSession::stopListening() {
    controller_.stopListening();
}

void MetronomeSession::stop(bool terminating) {
    if (stopping_) return;
    stopping_ = true;
    running_ = false;
    timer_.cancel();
    if (terminating) controller_.liveActivity().appWillTerminate();
    controller_.setMetronomeOn(false);
    controller_.close();
    if (!listenedOnce_) {
        asio::post(environment_.main, [this, alive = alive_] {
            if (*alive) giveBackDevices();
        });
        return;
    }
    // let the audio session take the microphone back before the devices stop
    timer_.expires_after(config::microphoneReturnTime);
    timer_.async_wait([this, alive = alive_](const std::error_code&) {
        if (*alive) giveBackDevices();
    });
}

void MetronomeSession::giveBackDevices() {
    environment_.engine.stop();
    if (observer_.onStopped) observer_.onStopped();
}

} // namespace fq::metronome
