#pragma once

#include <fq/core/Uuid.h>
#include <fq/personal/SharedStore.h>

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <cstdint>
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

} // namespace fq::metronome
