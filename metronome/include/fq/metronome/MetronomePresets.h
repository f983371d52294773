#pragma once

// The metronome's sounds and its saved presets, kept in the shared store.

#include <fq/core/Uuid.h>
#include <fq/personal/SharedStore.h>

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace fq::metronome {

/// The sounds of the metronome, stored as "metronomeSound".
enum class MetronomeSound : std::int64_t { real = 0, sine = 1, triangle = 2, square = 3 };

/// "Real Metronome", "Sine", "Triangle" or "Square".
std::string_view label(MetronomeSound sound);

/// A saved tempo and meter. A preset has no sound, key or accent.
struct MetronomePreset {
    core::Uuid id;
    std::string name;
    int bpm = 120;
    int beats = 4;
    int subdivisions = 1;

    friend bool operator==(const MetronomePreset&, const MetronomePreset&) = default;
};

/// {"id","name","bpm","beats","subdivisions"}: exactly these keys, the id as its text.
nlohmann::ordered_json toJson(const MetronomePreset& preset);
/// A list that does not decode as a whole gives none.
std::optional<std::vector<MetronomePreset>> presetsFromJson(const nlohmann::json& json);

/// The presets under "metronome_presets": empty when nothing is stored or the data
/// does not decode.
std::vector<MetronomePreset> loadPresets(const personal::SharedStore& store);
/// Stores the whole list, encoded as a JSON array.
tl::expected<void, Error> storePresets(personal::SharedStore& store,
                                       const std::vector<MetronomePreset>& presets);

/// "BPM: 120, Beats: 4, Subdivisions: 1", as the list of presets shows each one.
std::string presetSummary(const MetronomePreset& preset);

/// The presets as the screen manages them, with no audio engine: each change reads the
/// list afresh inside one store transaction, so two processes changing it at once lose
/// nothing. Data that does not decode counts as no presets, and the next change
/// overwrites it.
///
/// Threads: any; the store serialises the writers.
class MetronomePresetStore {
public:
    explicit MetronomePresetStore(std::shared_ptr<personal::SharedStore> store)
        : store_(std::move(store)) {}

    std::vector<MetronomePreset> list() const { return loadPresets(*store_); }
    /// The first preset with this name, else the one with this id.
    tl::expected<MetronomePreset, Error> find(std::string_view nameOrId) const;
    /// A new preset of these values, appended.
    tl::expected<MetronomePreset, Error> save(std::string name, int bpm, int beats,
                                              int subdivisions);
    /// A new preset of the stored tempo, beats and subdivisions.
    tl::expected<MetronomePreset, Error> saveCurrent(std::string name);
    tl::expected<void, Error> rename(const core::Uuid& id, std::string name);
    tl::expected<void, Error> remove(const core::Uuid& id);
    tl::expected<void, Error> clear();
    /// Stores the preset's tempo, beats and subdivisions as the present ones (each kept
    /// to its range), and nothing else.
    tl::expected<MetronomePreset, Error> load(const MetronomePreset& preset);

private:
    /// Applies `change` to the list read inside one transaction, and stores the result.
    tl::expected<void, Error>
    change(const std::function<tl::expected<void, Error>(std::vector<MetronomePreset>&)>& edit);

    std::shared_ptr<personal::SharedStore> store_;
};

} // namespace fq::metronome
