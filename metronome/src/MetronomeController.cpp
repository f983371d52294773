// The metronome screen's decisions: settings into the unit, taps, presets, the switch,
// listening for the tempo, and the live activity.

#include "fq/metronome/MetronomeController.h"

#include "fq/metronome/MetronomeSettings.h"

#include <fq/core/Diagnostics.h>
#include <fq/personal/PreferenceKeys.h>

#include <asio/post.hpp>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <ctime>
#include <numeric>

namespace fq::metronome {

namespace keys = personal::keys;

nlohmann::ordered_json toJson(const MetronomeAttributes::ContentState& state) {
    return {{"bpm", state.bpm},
            {"beats", state.beats},
            {"subdivisions", state.subdivisions},
            {"isMetronomeOn", state.isMetronomeOn}};
}

namespace {

constexpr std::string_view noActivity = "No active metronomeLiveActivity to update/end.";

void report(const tl::expected<void, Error>& written) {
    if (!written) diagnostic(written.error().message);
}

/// A date as the tap list prints it: "2026-11-22 15:20:01 +0000".
std::string dateText(MetronomeController::Clock::time_point time) {
    const std::time_t seconds = MetronomeController::Clock::to_time_t(time);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    return fmt::format("{:%Y-%m-%d %H:%M:%S} +0000", utc);
}

} // namespace

// The live activity.

void MetronomeLiveActivity::start(const MetronomeAttributes::ContentState& state) {
    if (!surface_.areActivitiesEnabled()) {
        diagnostic("Live Activities are not enabled for this app.");
        return;
    }
    const MetronomeAttributes attributes{core::Uuid::random()};
    if (auto requested = surface_.request(attributes, state); !requested) {
        diagnostic("Error starting Live Activity: " + requested.error().message);
        return;
    }
    current_ = attributes;
    lastState_ = state;
    diagnostic("Live Activity started successfully");
}

void MetronomeLiveActivity::update(const MetronomeAttributes::ContentState& state) {
    report(personal::write(*store_, keys::tempo, state.bpm));
    if (!current_) {
        diagnostic(noActivity);
        return;
    }
    surface_.update(*current_, state);
    lastState_ = state;
    diagnostic("Live Activity updated");
}

void MetronomeLiveActivity::end() {
    if (!current_) {
        diagnostic(noActivity);
        return;
    }
    surface_.end(*current_, lastState_);
    current_.reset();
    diagnostic("Live Activity ended");
}

void MetronomeLiveActivity::appWillTerminate() {
    diagnostic("App is about to terminate!");
    report(personal::write(*store_, keys::isMetronomeOn, false));
    report(personal::write(*store_, keys::showMetronome, false));
    surface_.endAll();
    current_.reset();
}

// The controller.

MetronomeController::MetronomeController(std::shared_ptr<personal::SharedStore> store,
                                         personal::UserPreferences& preferences,
                                         MetronomeAudioUnitManager& manager,
                                         asio::any_io_executor mainExecutor, Ports ports)
    : store_(std::move(store)), preferences_(preferences), manager_(manager),
      mainExecutor_(std::move(mainExecutor)), ports_(ports), liveActivity_(ports.status, store_),
      presetStore_(store_) {
    readTempoAndPresets();
    lastMetronomeOn_ = isMetronomeOn();
    // a change of the switch, from here, an intent or the shell, is handled on main
    storeObserver_ = store_->addObserver([this, alive = alive_](std::string_view key) {
        if (key != keys::isMetronomeOn.name) return;
        asio::post(mainExecutor_, [this, alive] {
            if (!*alive) return;
            const bool on = isMetronomeOn();
            if (on == lastMetronomeOn_) return;
            lastMetronomeOn_ = on;
            metronomeOnChanged(on);
        });
    });
}

MetronomeController::~MetronomeController() {
    *alive_ = false;
    storeObserver_.reset();
    manager_.tickRelay().setHandler({});
    manager_.setOnAudioUnitReady({});
}

int MetronomeController::beats() const {
    return config::beatsRange.clamped(personal::read(*store_, keys::beats));
}

int MetronomeController::subdivisions() const {
    return config::subdivisionsRange.clamped(personal::read(*store_, keys::subdivisions));
}

bool MetronomeController::isMetronomeOn() const {
    return personal::read(*store_, keys::isMetronomeOn);
}

MetronomeAttributes::ContentState MetronomeController::contentState() const {
    return {bpm_, beats(), subdivisions(), isMetronomeOn()};
}

void MetronomeController::readTempoAndPresets() {
    bpm_ = config::tempoRange.clamped(personal::read(*store_, keys::tempo));
    presets_ = presetStore_.list();
}

void MetronomeController::open() {
    readTempoAndPresets();
    manager_.setOnAudioUnitReady([this](MetronomeAudioUnit& unit) { unitReady(unit); });
    if (auto* unit = manager_.audioUnit()) unitReady(*unit);
    manager_.setUp();
    ports_.status.setIdleTimerDisabled(true);
    if (personal::read(*store_, keys::shouldStartTempoDetectionFromAppIntent)) {
        report(personal::write(*store_, keys::shouldStartTempoDetectionFromAppIntent, false));
        if (!isListeningForTempo_) startListening();
    }
}

void MetronomeController::close() {
    stopListening();
    manager_.stop();
    liveActivity_.end();
    ports_.status.setIdleTimerDisabled(false);
}

void MetronomeController::unitReady(MetronomeAudioUnit& unit) {
    if (parametersPushed_) return;
    parametersPushed_ = true;
    auto settings = storedSettings(*store_, preferences_);
    settings.bpm = bpm_;
    applySettings(unit, settings);
    manager_.tickRelay().setHandler(
        [this](int beat, int subdivision) { handleTick(beat, subdivision); });
    unit.setOnTick(&manager_.tickRelay());
    // the metronome does not resume by itself when the screen is opened
    if (!personal::read(*store_, keys::isLaunchedUsingAppIntent) && isMetronomeOn())
        report(personal::write(*store_, keys::isMetronomeOn, false));
    if (isMetronomeOn()) manager_.start();
}

void MetronomeController::writeParameter(MetronomeParameter MetronomeAudioUnit::*parameter,
                                         float value) {
    // with no unit yet the value goes in when the unit arrives
    if (auto* unit = manager_.audioUnit(); unit && parametersPushed_)
        (unit->*parameter).setValue(value);
}

void MetronomeController::refreshLiveActivity() {
    if (liveActivity_.isActive())
        liveActivity_.update(contentState());
    else
        report(personal::write(*store_, keys::tempo, bpm_));
}

void MetronomeController::setTempo(int value) {
    bpm_ = config::tempoRange.clamped(value);
    asio::post(mainExecutor_, [this, alive = alive_, bpm = bpm_] {
        if (!*alive) return;
        writeParameter(&MetronomeAudioUnit::bpmParameter, static_cast<float>(bpm));
    });
    refreshLiveActivity();
}

void MetronomeController::tap(Clock::time_point now) {
    if (lastTapTime_ && now - *lastTapTime_ > config::resetInterval) tapTimestamps_.clear();
    lastTapTime_ = now;
    tapTimestamps_.push_back(now);
    if (tapTimestamps_.size() > config::maxTapHistory) tapTimestamps_.pop_front();
    std::vector<std::string> dates;
    for (const auto& time : tapTimestamps_)
        dates.push_back(dateText(time));
    diagnostic(fmt::format("Tap timestamps: [{}]", fmt::join(dates, ", ")));
    if (tapTimestamps_.size() < 2) return;

    double total = 0;
    for (std::size_t i = 1; i < tapTimestamps_.size(); ++i)
        total += std::chrono::duration<double>(tapTimestamps_[i] - tapTimestamps_[i - 1]).count();
    const double mean = total / static_cast<double>(tapTimestamps_.size() - 1);
    // taps at one instant ask for an endless tempo: the limit takes it
    const double tempo = mean > 0 ? 60.0 / mean : static_cast<double>(INT_MAX);
    setTempo(static_cast<int>(std::min(tempo, static_cast<double>(INT_MAX))));
}

void MetronomeController::setBeats(int beats) {
    const int value = config::beatsRange.clamped(beats);
    report(personal::write(*store_, keys::beats, value));
    writeParameter(&MetronomeAudioUnit::beatsParameter, static_cast<float>(value));
    refreshLiveActivity();
}

void MetronomeController::setSubdivisions(int subdivisions) {
    const int value = config::subdivisionsRange.clamped(subdivisions);
    report(personal::write(*store_, keys::subdivisions, value));
    writeParameter(&MetronomeAudioUnit::subdivisionParameter, static_cast<float>(value));
    refreshLiveActivity();
}

void MetronomeController::setAccentFirstBeat(bool accent) {
    report(preferences_.setAccentFirstBeat(accent));
    writeParameter(&MetronomeAudioUnit::accentParameter, accent ? 1.0f : 0.0f);
}

void MetronomeController::setSound(MetronomeSound chosen) {
    const auto sound =
        config::soundRange.contains(static_cast<long long>(chosen)) ? chosen : MetronomeSound::real;
    report(preferences_.setMetronomeSound(static_cast<std::int64_t>(sound)));
    writeParameter(&MetronomeAudioUnit::soundParameter, static_cast<float>(sound));
}

void MetronomeController::setKeyIndex(int chosen) {
    const int index = config::keyIndexRange.clamped(chosen);
    report(preferences_.setMetronomeKeyIndex(index));
    writeParameter(&MetronomeAudioUnit::noteParameter, static_cast<float>(index));
}

void MetronomeController::setMetronomeOn(bool on) {
    report(personal::write(*store_, keys::isMetronomeOn, on));
}

void MetronomeController::metronomeOnChanged(bool on) {
    // an intent's request lasts only until the first change
    report(personal::write(*store_, keys::isLaunchedUsingAppIntent, false));
    if (on) {
        stopListening();
        manager_.start();
        if (liveActivity_.isActive())
            liveActivity_.update(contentState());
        else
            liveActivity_.start(contentState());
    } else {
        manager_.stop();
        liveActivity_.end();
    }
}

void MetronomeController::stopListening() {
    if (ports_.listening) ports_.listening->stop();
    clearListening();
}

void MetronomeController::clearListening() {
    isListeningForTempo_ = false;
    lastDetectedTempo_.reset();
    tempoEQLevels_.assign(config::tempoLevelBands, config::tempoLevelAtRest);
    listeningChanged();
}

void MetronomeController::startListening() {
    if (isListeningForTempo_) stopListening();
    if (isMetronomeOn()) setMetronomeOn(false);
    if (ports_.listening == nullptr) {
        tempoDetectionMessage_ = config::tempoDetectionMissingMessage;
        clearListening();
        return;
    }
    // the detector may outlive this controller: late calls find it gone
    const std::weak_ptr<bool> alive = alive_;
    ports_.listening->start(
        [this, alive](const ListeningState& state) {
            if (const auto held = alive.lock(); held && *held) listeningStateChanged(state);
        },
        [this, alive](int tempo) {
            if (const auto held = alive.lock(); !held || !*held) return;
            setTempo(tempo);
            listeningChanged();
        },
        [this, alive](const std::vector<float>& levels) {
            if (const auto held = alive.lock(); !held || !*held) return;
            tempoEQLevels_ = levels;
            listeningChanged();
        });
}

void MetronomeController::listeningStateChanged(const ListeningState& state) {
    using Kind = ListeningState::Kind;
    isListeningForTempo_ = state.kind == Kind::listening || state.kind == Kind::detected;
    tempoDetectionMessage_ = state.text();
    if (state.kind == Kind::detected)
        lastDetectedTempo_ = state.tempo;
    else if (state.kind != Kind::listening)
        lastDetectedTempo_.reset();
    listeningChanged();
}

void MetronomeController::listeningChanged() {
    if (onListeningChange_) onListeningChange_();
}

void MetronomeController::handleTick(int beat, int subdivision) {
    if (preferences_.hapticsEnabled()) {
        const bool accented = beat == 0 && subdivision == 0 && preferences_.accentFirstBeat();
        ports_.haptics.impact(accented ? HapticStyle::heavy : HapticStyle::medium);
    }
    // the visual pulse follows beats, not subdivisions
    if (subdivision == 0) {
        isOnBeat_ = !isOnBeat_;
        lastBeat_ = beat;
    }
    if (onClick_) onClick_(beat, subdivision);
}

// Presets.

tl::expected<MetronomePreset, Error> MetronomeController::savePreset(std::string name) {
    auto saved = presetStore_.save(std::move(name), bpm_, beats(), subdivisions());
    presets_ = presetStore_.list();
    return saved;
}

void MetronomeController::loadPreset(const MetronomePreset& preset) {
    setTempo(preset.bpm);
    setBeats(preset.beats);
    setSubdivisions(preset.subdivisions);
}

tl::expected<void, Error> MetronomeController::renamePreset(const core::Uuid& id,
                                                            std::string name) {
    auto renamed = presetStore_.rename(id, std::move(name));
    presets_ = presetStore_.list();
    return renamed;
}

tl::expected<void, Error> MetronomeController::deletePreset(const core::Uuid& id) {
    auto deleted = presetStore_.remove(id);
    presets_ = presetStore_.list();
    return deleted;
}

tl::expected<void, Error> MetronomeController::clearPresets() {
    auto cleared = presetStore_.clear();
    presets_ = presetStore_.list();
    return cleared;
}

} // namespace fq::metronome
