#include "fq/metronome/MetronomePresets.h"

#include <fq/personal/PreferenceKeys.h>

#include <fmt/format.h>

#include <limits>

namespace fq::metronome {

std::string_view label(MetronomeSound sound) {
    switch (sound) {
    case MetronomeSound::real:
        return "Real Metronome";
    case MetronomeSound::sine:
        return "Sine";
    case MetronomeSound::triangle:
        return "Triangle";
    case MetronomeSound::square:
        return "Square";
    }
    return "Real Metronome";
}

nlohmann::ordered_json toJson(const MetronomePreset& preset) {
    return {{"id", preset.id.text()},
            {"name", preset.name},
            {"bpm", preset.bpm},
            {"beats", preset.beats},
            {"subdivisions", preset.subdivisions}};
}

namespace {

std::optional<int> integerField(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_number_integer()) return std::nullopt;
    const auto value = found->get<std::int64_t>();
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
        return std::nullopt;
    return static_cast<int>(value);
}

} // namespace

std::optional<std::vector<MetronomePreset>> presetsFromJson(const nlohmann::json& json) {
    if (!json.is_array()) return std::nullopt;
    std::vector<MetronomePreset> presets;
    for (const auto& item : json) {
        if (!item.is_object()) return std::nullopt;
        const auto id = item.find("id");
        const auto name = item.find("name");
        if (id == item.end() || !id->is_string() || name == item.end() || !name->is_string())
            return std::nullopt;
        const auto uuid = core::Uuid::fromText(id->get<std::string>());
        const auto bpm = integerField(item, "bpm");
        const auto beats = integerField(item, "beats");
        const auto subdivisions = integerField(item, "subdivisions");
        if (!uuid || !bpm || !beats || !subdivisions) return std::nullopt;
        presets.push_back({*uuid, name->get<std::string>(), *bpm, *beats, *subdivisions});
    }
    return presets;
}

std::vector<MetronomePreset> loadPresets(const personal::SharedStore& store) {
    const auto bytes = store.bytes(personal::keys::metronomePresets.name);
    if (!bytes) return {};
    const auto json = nlohmann::json::parse(bytes->begin(), bytes->end(), nullptr, false);
    if (json.is_discarded()) return {};
    return presetsFromJson(json).value_or(std::vector<MetronomePreset>{});
}

tl::expected<void, Error> storePresets(personal::SharedStore& store,
                                       const std::vector<MetronomePreset>& presets) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& preset : presets)
        array.push_back(toJson(preset));
    const auto text = array.dump();
    return store.set(personal::keys::metronomePresets.name, core::Bytes(text.begin(), text.end()));
}

std::string presetSummary(const MetronomePreset& preset) {
    return fmt::format("BPM: {}, Beats: {}, Subdivisions: {}", preset.bpm, preset.beats,
                       preset.subdivisions);
}

} // namespace fq::metronome
