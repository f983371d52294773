#pragma once

// The main settings as one observable object over the shared store.

#include "fq/personal/PreferenceKeys.h"
#include "fq/personal/SharedStore.h"

#include <fq/core/GuitarTuning.h>
#include <fq/core/Note.h>

#include <functional>
#include <memory>
#include <set>
#include <string_view>
#include <vector>

namespace fq::personal {

/// The main settings, read from a cache and written through to the shared store at
/// once. Changes, from this process or (once the store is polled) from others,
/// refresh the cache and are announced to observers with the key that changed.
/// Used on the main thread.
class UserPreferences {
public:
    using Observer = std::function<void(std::string_view key)>;

    explicit UserPreferences(std::shared_ptr<SharedStore> store);

    double a4Frequency() const { return a4Frequency_; }
    bool accentFirstBeat() const { return accentFirstBeat_; }
    bool hapticsEnabled() const { return hapticsEnabled_; }
    core::Note currentRootNote() const { return currentRootNote_; }
    /// The metronome's sound, as its stored integer.
    std::int64_t metronomeSound() const { return metronomeSound_; }
    std::int64_t metronomeKeyIndex() const { return metronomeKeyIndex_; }
    const std::set<core::GuitarTuning>& enabledTunings() const { return enabledTunings_; }

    tl::expected<void, Error> setA4Frequency(double value);
    tl::expected<void, Error> setAccentFirstBeat(bool value);
    tl::expected<void, Error> setHapticsEnabled(bool value);
    tl::expected<void, Error> setCurrentRootNote(core::Note value);
    tl::expected<void, Error> setMetronomeSound(std::int64_t value);
    tl::expected<void, Error> setMetronomeKeyIndex(std::int64_t value);
    tl::expected<void, Error> setEnabledTunings(const std::set<core::GuitarTuning>& value);
    /// Adds the tuning to the enabled set, or removes it when it is there.
    tl::expected<void, Error> toggleTuning(core::GuitarTuning tuning);

    /// Returns an id for removeObserver.
    std::size_t addObserver(Observer observer);
    void removeObserver(std::size_t id);

private:
    void reload(std::string_view key);

    std::shared_ptr<SharedStore> store_;
    ObserverToken storeObserver_;
    std::vector<std::pair<std::size_t, Observer>> observers_;
    std::size_t nextObserverId_ = 1;

    double a4Frequency_ = keys::a4Frequency.fallback;
    bool accentFirstBeat_ = keys::accentFirstBeat.fallback;
    bool hapticsEnabled_ = keys::hapticsEnabled.fallback;
    core::Note currentRootNote_ = keys::currentRootNote.fallback;
    std::int64_t metronomeSound_ = keys::metronomeSound.fallback;
    std::int64_t metronomeKeyIndex_ = keys::metronomeKeyIndex.fallback;
    std::set<core::GuitarTuning> enabledTunings_;
};

} // namespace fq::personal
