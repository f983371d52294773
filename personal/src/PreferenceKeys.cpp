// Every key of the shared store, declared once, with typed reads and writes.

#include "fq/personal/PreferenceKeys.h"

#include <fq/core/Chord.h>
#include <fq/core/GuitarTuning.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace fq::personal {
namespace {

using namespace keys;

const auto declared = std::to_array<AnyPreferenceKey>({
    &a4Frequency,
    &accentFirstBeat,
    &hapticsEnabled,
    &currentRootNote,
    &metronomeSound,
    &metronomeKeyIndex,
    &enabledTunings,
    &favouritedChords,
    &chordCollections,
    &recentlyViewedChords,
    &selectedTab,
    &rootNote,
    &libraryProgressionType,
    &libraryProgressionPattern,
    &libraryProgressionDeepLinkID,
    &isMetronomeOn,
    &isChordProgressionOn,
    &isSequencerOn,
    &tempo,
    &beats,
    &subdivisions,
    &metronomePresets,
    &level,
    &todayChordCategory,
    &pendingNotificationRequests,
    &invertFretboard,
    &leftHanded,
    &showOnboarding,
    &hasSeenOnboarding,
    &showChordDiagramTutorial,
    &shouldFocusSearchBarAutomatically,
    &showTuner,
    &showMetronome,
    &showChordFinder,
    &showSongScanner,
    &searchQueryFromShortcut,
    &pendingSpotlightIdentifierFromAppIntent,
    &pendingChordListIdentifiersFromAppIntent,
    &pendingChordListTitleFromAppIntent,
    &pendingChordListImageDataFromAppIntent,
    &shouldStartTempoDetectionFromAppIntent,
    &pendingAppIntentDestination,
    &isLaunchedUsingAppIntent,
    &isFretquillAppActiveForAppIntents,
    &cloudSyncPreferenceModificationDates,
    &cloudSyncPreferenceMirror,
    &cloudSyncDocumentManifest,
    &cloudSyncMigrationVersion,
    &spotlightIndexedSchemaVersion,
    &spotlightIndexedAppBuildVersion,
    &spotlightIndexedLanguageCode,
    &spotlightChordLibraryVersion,
});

const auto personalSettings = std::to_array<AnyPreferenceKey>({
    &a4Frequency,
    &accentFirstBeat,
    &hapticsEnabled,
    &currentRootNote,
    &metronomeSound,
    &metronomeKeyIndex,
    &enabledTunings,
    &tempo,
    &beats,
    &subdivisions,
    &level,
    &todayChordCategory,
    &invertFretboard,
    &leftHanded,
});

std::optional<nlohmann::json> parsed(std::string_view text) {
    auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded()) return std::nullopt;
    return json;
}

std::string quoted(std::string_view text) {
    return fmt::format("\"{}\"", text);
}

} // namespace

bool isChordList(const nlohmann::json& json) {
    if (!json.is_array()) return false;
    return std::all_of(json.begin(), json.end(),
                       [](const auto& item) { return core::chordFromJson(item).has_value(); });
}

bool isCollectionList(const nlohmann::json& json) {
    if (!json.is_array()) return false;
    return std::all_of(json.begin(), json.end(), [](const nlohmann::json& item) {
        return item.is_object() && item.contains("id") && item["id"].is_string() &&
               item.contains("title") && item["title"].is_string() && item.contains("imageName") &&
               item["imageName"].is_string() && item.contains("chords") &&
               isChordList(item["chords"]);
    });
}

bool isTuningSet(const nlohmann::json& json) {
    if (!json.is_array()) return false;
    return std::all_of(json.begin(), json.end(), [](const nlohmann::json& item) {
        return item.is_number_integer() &&
               core::guitarTuningFromRawValue(item.get<int>()).has_value();
    });
}

bool isObject(const nlohmann::json& json) {
    return json.is_object();
}
bool isArray(const nlohmann::json& json) {
    return json.is_array();
}

std::span<const AnyPreferenceKey> allPreferenceKeys() {
    return declared;
}

const AnyPreferenceKey* preferenceKey(std::string_view name) {
    for (const auto& key : allPreferenceKeys())
        if (nameOf(key) == name) return &key;
    return nullptr;
}

std::string_view nameOf(const AnyPreferenceKey& key) {
    return std::visit([](const auto* k) { return k->name; }, key);
}

bool isPersonalSetting(const AnyPreferenceKey& key) {
    return std::find(personalSettings.begin(), personalSettings.end(), key) !=
           personalSettings.end();
}

std::int64_t read(const SharedStore& store, const PreferenceKey<std::int64_t>& key) {
    return store.integer(key.name).value_or(key.fallback);
}
double read(const SharedStore& store, const PreferenceKey<double>& key) {
    return store.real(key.name).value_or(key.fallback);
}
bool read(const SharedStore& store, const PreferenceKey<bool>& key) {
    return store.boolean(key.name).value_or(key.fallback);
}
std::string read(const SharedStore& store, const PreferenceKey<std::string_view>& key) {
    return store.text(key.name).value_or(std::string(key.fallback));
}
core::Note read(const SharedStore& store, const PreferenceKey<core::Note>& key) {
    const auto text = store.text(key.name);
    return text ? core::noteFromRawValue(*text).value_or(key.fallback) : key.fallback;
}
nlohmann::json read(const SharedStore& store, const PreferenceKey<JsonDocument>& key) {
    if (const auto bytes = store.bytes(key.name)) {
        auto json = nlohmann::json::parse(bytes->begin(), bytes->end(), nullptr, false);
        if (!json.is_discarded() && (!key.fallback.accepts || key.fallback.accepts(json)))
            return json;
    }
    return nlohmann::json::parse(key.fallback.fallback);
}

tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<std::int64_t>& key,
                                std::int64_t value) {
    return store.set(key.name, value);
}
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<double>& key,
                                double value) {
    return store.set(key.name, value);
}
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<bool>& key, bool value) {
    return store.set(key.name, value);
}
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<std::string_view>& key,
                                std::string_view value) {
    return store.set(key.name, std::string(value));
}
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<core::Note>& key,
                                core::Note value) {
    return store.set(key.name, std::string(core::rawValue(value)));
}
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<JsonDocument>& key,
                                const nlohmann::json& value) {
    if (key.fallback.accepts && !key.fallback.accepts(value))
        return tl::unexpected(
            Error{fmt::format("Not a valid value for {}: {}", key.name, value.dump())});
    const auto text = value.dump();
    return store.set(key.name, core::Bytes(text.begin(), text.end()));
}

nlohmann::json currentValue(const SharedStore& store, const AnyPreferenceKey& any) {
    return std::visit(
        [&](const auto* key) -> nlohmann::json {
            using Key = std::remove_cvref_t<decltype(*key)>;
            if constexpr (std::is_same_v<Key, PreferenceKey<core::Note>>) {
                return core::rawValue(read(store, *key));
            } else if constexpr (std::is_same_v<Key, PreferenceKey<RawBytes>>) {
                const auto bytes = store.bytes(key->name);
                return bytes ? nlohmann::json(bytes->size()) : nlohmann::json();
            } else {
                return read(store, *key);
            }
        },
        any);
}

tl::expected<void, Error> setFromText(SharedStore& store, const AnyPreferenceKey& any,
                                      std::string_view text) {
    const auto invalid = [&](std::string_view expected) {
        return tl::unexpected(
            Error{fmt::format("{} needs {}, not {}", nameOf(any), expected, quoted(text))});
    };
    return std::visit(
        [&](const auto* key) -> tl::expected<void, Error> {
            using Key = std::remove_cvref_t<decltype(*key)>;
            if constexpr (std::is_same_v<Key, PreferenceKey<std::int64_t>>) {
                std::int64_t value = 0;
                const auto [end, error] =
                    std::from_chars(text.data(), text.data() + text.size(), value);
                if (text.empty() || error != std::errc{} || end != text.data() + text.size())
                    return invalid("a whole number");
                return write(store, *key, value);
            } else if constexpr (std::is_same_v<Key, PreferenceKey<double>>) {
                double value = 0;
                const auto [end, error] =
                    std::from_chars(text.data(), text.data() + text.size(), value);
                if (text.empty() || error != std::errc{} || end != text.data() + text.size() ||
                    !std::isfinite(value))
                    return invalid("a number");
                return write(store, *key, value);
            } else if constexpr (std::is_same_v<Key, PreferenceKey<bool>>) {
                if (text == "true" || text == "1" || text == "yes") return write(store, *key, true);
                if (text == "false" || text == "0" || text == "no")
                    return write(store, *key, false);
                return invalid("true or false");
            } else if constexpr (std::is_same_v<Key, PreferenceKey<std::string_view>>) {
                return write(store, *key, text);
            } else if constexpr (std::is_same_v<Key, PreferenceKey<core::Note>>) {
                const auto note = core::noteFromTypedName(text);
                if (!note) return invalid("a note such as C, F# or E♭");
                return write(store, *key, *note);
            } else if constexpr (std::is_same_v<Key, PreferenceKey<JsonDocument>>) {
                const auto json = parsed(text);
                if (!json) return invalid("a JSON document");
                return write(store, *key, *json);
            } else {
                return tl::unexpected(Error{
                    fmt::format("{} holds raw bytes and cannot be set from text", key->name)});
            }
        },
        any);
}

} // namespace fq::personal
