// Presets: their JSON form, and the store that keeps them under "metronome_presets".

#include "fq/metronome/MetronomePresets.h"

#include "fq/metronome/MetronomeSettings.h"

#include <fq/personal/PreferenceKeys.h>

#include <fmt/format.h>

#include <algorithm>
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

namespace {

std::vector<MetronomePreset> decodedPresets(const std::optional<core::Bytes>& bytes) {
    if (!bytes) return {};
    const auto json = nlohmann::json::parse(bytes->begin(), bytes->end(), nullptr, false);
    if (json.is_discarded()) return {};
    return presetsFromJson(json).value_or(std::vector<MetronomePreset>{});
}

core::Bytes encodedPresets(const std::vector<MetronomePreset>& presets) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& preset : presets)
        array.push_back(toJson(preset));
    const auto text = array.dump();
    return core::Bytes(text.begin(), text.end());
}

Error noName() {
    return Error{"A preset needs a name", ErrorKind::refused};
}

Error noSuchPreset() {
    return Error{"No such preset", ErrorKind::notFound};
}

} // namespace

std::vector<MetronomePreset> loadPresets(const personal::SharedStore& store) {
    return decodedPresets(store.bytes(personal::keys::metronomePresets.name));
}

tl::expected<void, Error> storePresets(personal::SharedStore& store,
                                       const std::vector<MetronomePreset>& presets) {
    return store.set(personal::keys::metronomePresets.name, encodedPresets(presets));
}

std::string presetSummary(const MetronomePreset& preset) {
    return fmt::format("BPM: {}, Beats: {}, Subdivisions: {}", preset.bpm, preset.beats,
                       preset.subdivisions);
}

tl::expected<void, Error> MetronomePresetStore::change(
    const std::function<tl::expected<void, Error>(std::vector<MetronomePreset>&)>& edit) {
    std::optional<Error> refused;
    auto written = store_->update([&](personal::SharedStore::Transaction& transaction) {
        const auto key = personal::keys::metronomePresets.name;
        auto presets = decodedPresets(transaction.bytes(key));
        if (auto edited = edit(presets); !edited) {
            refused = edited.error();
            return;
        }
        (void)transaction.set(key, encodedPresets(presets));
    });
    if (refused) return tl::unexpected(*refused);
    return written;
}

tl::expected<MetronomePreset, Error> MetronomePresetStore::find(std::string_view nameOrId) const {
    const auto presets = list();
    auto found = std::find_if(presets.begin(), presets.end(),
                              [&](const auto& preset) { return preset.name == nameOrId; });
    if (found == presets.end())
        found = std::find_if(presets.begin(), presets.end(),
                             [&](const auto& preset) { return preset.id.text() == nameOrId; });
    if (found == presets.end())
        return tl::unexpected(
            Error{fmt::format("No preset named {}", nameOrId), ErrorKind::notFound});
    return *found;
}

tl::expected<MetronomePreset, Error> MetronomePresetStore::save(std::string name, int bpm,
                                                                int beats, int subdivisions) {
    if (name.empty()) return tl::unexpected(noName());
    const MetronomePreset preset{core::Uuid::random(), std::move(name), bpm, beats, subdivisions};
    auto saved = change([&](std::vector<MetronomePreset>& presets) -> tl::expected<void, Error> {
        presets.push_back(preset);
        return {};
    });
    if (!saved) return tl::unexpected(saved.error());
    return preset;
}

tl::expected<MetronomePreset, Error> MetronomePresetStore::saveCurrent(std::string name) {
    namespace keys = personal::keys;
    return save(std::move(name), config::tempoRange.clamped(personal::read(*store_, keys::tempo)),
                config::beatsRange.clamped(personal::read(*store_, keys::beats)),
                config::subdivisionsRange.clamped(personal::read(*store_, keys::subdivisions)));
}

tl::expected<void, Error> MetronomePresetStore::rename(const core::Uuid& id, std::string name) {
    if (name.empty()) return tl::unexpected(noName());
    return change([&](std::vector<MetronomePreset>& presets) -> tl::expected<void, Error> {
        const auto found = std::find_if(presets.begin(), presets.end(),
                                        [&](const auto& preset) { return preset.id == id; });
        if (found == presets.end()) return tl::unexpected(noSuchPreset());
        found->name = name;
        return {};
    });
}

tl::expected<void, Error> MetronomePresetStore::remove(const core::Uuid& id) {
    return change([&](std::vector<MetronomePreset>& presets) -> tl::expected<void, Error> {
        if (std::erase_if(presets, [&](const auto& preset) { return preset.id == id; }) == 0)
            return tl::unexpected(noSuchPreset());
        return {};
    });
}

tl::expected<void, Error> MetronomePresetStore::clear() {
    return change([](std::vector<MetronomePreset>& presets) -> tl::expected<void, Error> {
        presets.clear();
        return {};
    });
}

tl::expected<MetronomePreset, Error> MetronomePresetStore::load(const MetronomePreset& preset) {
    namespace keys = personal::keys;
    MetronomePreset loaded = preset;
    loaded.bpm = config::tempoRange.clamped(preset.bpm);
    loaded.beats = config::beatsRange.clamped(preset.beats);
    loaded.subdivisions = config::subdivisionsRange.clamped(preset.subdivisions);
    auto written = store_->update([&](personal::SharedStore::Transaction& transaction) {
        (void)transaction.set(keys::tempo.name, std::int64_t{loaded.bpm});
        (void)transaction.set(keys::beats.name, std::int64_t{loaded.beats});
        (void)transaction.set(keys::subdivisions.name, std::int64_t{loaded.subdivisions});
    });
    if (!written) return tl::unexpected(written.error());
    return loaded;
}

} // namespace fq::metronome
