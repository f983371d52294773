// The main settings over the shared store, cached and kept current.

#include "fq/personal/UserPreferences.h"

#include <algorithm>
#include <array>

namespace fq::personal {
namespace {

std::set<core::GuitarTuning> tuningSet(const nlohmann::json& json) {
    std::set<core::GuitarTuning> tunings;
    for (const auto& raw : json)
        if (const auto tuning = core::guitarTuningFromRawValue(raw.get<int>()))
            tunings.insert(*tuning);
    return tunings;
}

constexpr std::array<std::string_view, 7> fieldKeys{
    keys::a4Frequency.name,     keys::accentFirstBeat.name, keys::hapticsEnabled.name,
    keys::currentRootNote.name, keys::metronomeSound.name,  keys::metronomeKeyIndex.name,
    keys::enabledTunings.name,
};

} // namespace

UserPreferences::UserPreferences(std::shared_ptr<SharedStore> store) : store_(std::move(store)) {
    for (const auto key : fieldKeys)
        reload(key);
    storeObserver_ = store_->addObserver([this](std::string_view key) {
        if (std::find(fieldKeys.begin(), fieldKeys.end(), key) == fieldKeys.end()) return;
        reload(key);
        // a copy, so that an observer may add or remove observers
        const auto observers = observers_;
        for (const auto& [id, observer] : observers)
            observer(key);
    });
}

void UserPreferences::reload(std::string_view key) {
    const auto& store = *store_;
    if (key == keys::a4Frequency.name)
        a4Frequency_ = read(store, keys::a4Frequency);
    else if (key == keys::accentFirstBeat.name)
        accentFirstBeat_ = read(store, keys::accentFirstBeat);
    else if (key == keys::hapticsEnabled.name)
        hapticsEnabled_ = read(store, keys::hapticsEnabled);
    else if (key == keys::currentRootNote.name)
        currentRootNote_ = read(store, keys::currentRootNote);
    else if (key == keys::metronomeSound.name)
        metronomeSound_ = read(store, keys::metronomeSound);
    else if (key == keys::metronomeKeyIndex.name)
        metronomeKeyIndex_ = read(store, keys::metronomeKeyIndex);
    else if (key == keys::enabledTunings.name)
        enabledTunings_ = tuningSet(read(store, keys::enabledTunings));
}

tl::expected<void, Error> UserPreferences::setA4Frequency(double value) {
    return write(*store_, keys::a4Frequency, value);
}
tl::expected<void, Error> UserPreferences::setAccentFirstBeat(bool value) {
    return write(*store_, keys::accentFirstBeat, value);
}
tl::expected<void, Error> UserPreferences::setHapticsEnabled(bool value) {
    return write(*store_, keys::hapticsEnabled, value);
}
tl::expected<void, Error> UserPreferences::setCurrentRootNote(core::Note value) {
    return write(*store_, keys::currentRootNote, value);
}
tl::expected<void, Error> UserPreferences::setMetronomeSound(std::int64_t value) {
    return write(*store_, keys::metronomeSound, value);
}
tl::expected<void, Error> UserPreferences::setMetronomeKeyIndex(std::int64_t value) {
    return write(*store_, keys::metronomeKeyIndex, value);
}

tl::expected<void, Error>
UserPreferences::setEnabledTunings(const std::set<core::GuitarTuning>& value) {
    auto raw = nlohmann::json::array();
    for (const auto tuning : value)
        raw.push_back(core::rawValue(tuning)); // the set orders by raw value
    return write(*store_, keys::enabledTunings, raw);
}

tl::expected<void, Error> UserPreferences::toggleTuning(core::GuitarTuning tuning) {
    auto tunings = enabledTunings_;
    if (!tunings.erase(tuning)) tunings.insert(tuning);
    return setEnabledTunings(tunings);
}

std::size_t UserPreferences::addObserver(Observer observer) {
    observers_.emplace_back(nextObserverId_, std::move(observer));
    return nextObserverId_++;
}

void UserPreferences::removeObserver(std::size_t id) {
    std::erase_if(observers_, [id](const auto& entry) { return entry.first == id; });
}

} // namespace fq::personal
