#pragma once

// Every key of the shared store, declared once with its type and default, and typed reads
// and writes of them.

#include "fq/personal/SharedStore.h"

#include <fq/core/Note.h>

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace fq::personal {

/// A JSON document stored as bytes, with the document it stands for when nothing
/// is stored and the check a new value must pass.
struct JsonDocument {
    std::string_view fallback;
    bool (*accepts)(const nlohmann::json&) = nullptr;
};

/// Raw bytes with no default (an image handed over by an intent, say).
struct RawBytes {};

/// A declared key of the shared store: its text, the type of its value and the
/// value it has while nothing is stored.
template <typename T>
struct PreferenceKey {
    std::string_view name;
    T fallback;
};

bool isChordList(const nlohmann::json& json);
bool isCollectionList(const nlohmann::json& json);
bool isTuningSet(const nlohmann::json& json);
bool isObject(const nlohmann::json& json);
bool isArray(const nlohmann::json& json);

/// Every key of the shared store, declared once. Code uses these, never the texts.
namespace keys {
// main settings
inline constexpr PreferenceKey<double> a4Frequency{"a4Frequency", 440.0};
inline constexpr PreferenceKey<bool> accentFirstBeat{"accentFirstBeat", true};
inline constexpr PreferenceKey<bool> hapticsEnabled{"hapticsEnabled", true};
inline constexpr PreferenceKey<core::Note> currentRootNote{"currentRootNote", core::Note::C};
inline constexpr PreferenceKey<std::int64_t> metronomeSound{"metronomeSound", 0};
inline constexpr PreferenceKey<std::int64_t> metronomeKeyIndex{"metronomeKeyIndex", 1};
// standard, drop D and DADGAD
inline constexpr PreferenceKey<JsonDocument> enabledTunings{"enabledTunings",
                                                            {"[0,1,7]", isTuningSet}};
// the person's library
inline constexpr PreferenceKey<JsonDocument> favouritedChords{"favouritedChords",
                                                              {"[]", isChordList}};
inline constexpr PreferenceKey<JsonDocument> chordCollections{"chordCollections",
                                                              {"[]", isCollectionList}};
inline constexpr PreferenceKey<JsonDocument> recentlyViewedChords{"recentlyViewedChords",
                                                                  {"[]", isChordList}};
// routes into the library
inline constexpr PreferenceKey<std::int64_t> selectedTab{"selectedTab", 1};
inline constexpr PreferenceKey<std::string_view> rootNote{"rootNote", ""};
inline constexpr PreferenceKey<std::string_view> libraryProgressionType{"libraryProgressionType",
                                                                        ""};
inline constexpr PreferenceKey<std::string_view> libraryProgressionPattern{
    "libraryProgressionPattern", ""};
inline constexpr PreferenceKey<std::string_view> libraryProgressionDeepLinkID{
    "libraryProgressionDeepLinkID", ""};
// what is sounding
inline constexpr PreferenceKey<bool> isMetronomeOn{"isMetronomeOn", false};
inline constexpr PreferenceKey<bool> isChordProgressionOn{"isChordProgressionOn", false};
inline constexpr PreferenceKey<bool> isSequencerOn{"isSequencerOn", false};
// the metronome
inline constexpr PreferenceKey<std::int64_t> tempo{"tempo", 120};
inline constexpr PreferenceKey<std::int64_t> beats{"beats", 4};
inline constexpr PreferenceKey<std::int64_t> subdivisions{"subdivisions", 1};
inline constexpr PreferenceKey<JsonDocument> metronomePresets{"metronome_presets", {"[]", isArray}};
// the chord of the day
inline constexpr PreferenceKey<std::string_view> level{"level", "beginner"};
inline constexpr PreferenceKey<std::string_view> todayChordCategory{"todayChordCategory",
                                                                    "beginner"};
/// The chord of the day's announcements waiting for their time.
inline constexpr PreferenceKey<JsonDocument> pendingNotificationRequests{
    "pendingNotificationRequests", {"[]", isArray}};
// the fretboard
inline constexpr PreferenceKey<bool> invertFretboard{"invertFretboard", false};
inline constexpr PreferenceKey<bool> leftHanded{"left_handed", false};
// first run
inline constexpr PreferenceKey<bool> showOnboarding{"showOnboarding", true};
inline constexpr PreferenceKey<bool> hasSeenOnboarding{"hasSeenOnboarding", false};
inline constexpr PreferenceKey<bool> showChordDiagramTutorial{"showChordDiagramTutorial", true};
// screens and hand-over from intents
inline constexpr PreferenceKey<bool> shouldFocusSearchBarAutomatically{
    "shouldFocusSearchBarAutomatically", false};
inline constexpr PreferenceKey<bool> showTuner{"showTuner", false};
inline constexpr PreferenceKey<bool> showMetronome{"showMetronome", false};
inline constexpr PreferenceKey<bool> showChordFinder{"showChordFinder", false};
inline constexpr PreferenceKey<bool> showSongScanner{"showSongScanner", false};
inline constexpr PreferenceKey<std::string_view> searchQueryFromShortcut{"searchQueryFromShortcut",
                                                                         ""};
inline constexpr PreferenceKey<std::string_view> pendingSpotlightIdentifierFromAppIntent{
    "pendingSpotlightIdentifierFromAppIntent", ""};
inline constexpr PreferenceKey<std::string_view> pendingChordListIdentifiersFromAppIntent{
    "pendingChordListIdentifiersFromAppIntent", ""};
inline constexpr PreferenceKey<std::string_view> pendingChordListTitleFromAppIntent{
    "pendingChordListTitleFromAppIntent", ""};
inline constexpr PreferenceKey<RawBytes> pendingChordListImageDataFromAppIntent{
    "pendingChordListImageDataFromAppIntent", {}};
inline constexpr PreferenceKey<bool> shouldStartTempoDetectionFromAppIntent{
    "shouldStartTempoDetectionFromAppIntent", false};
inline constexpr PreferenceKey<std::string_view> pendingAppIntentDestination{
    "pendingAppIntentDestination", ""};
inline constexpr PreferenceKey<bool> isLaunchedUsingAppIntent{"isLaunchedUsingAppIntent", false};
inline constexpr PreferenceKey<bool> isFretquillAppActiveForAppIntents{
    "isFretquillAppActiveForAppIntents", false};
// cloud sync
inline constexpr PreferenceKey<JsonDocument> cloudSyncPreferenceModificationDates{
    "cloudSyncPreferenceModificationDates", {"{}", isObject}};
inline constexpr PreferenceKey<JsonDocument> cloudSyncPreferenceMirror{"cloudSyncPreferenceMirror",
                                                                       {"{}", isObject}};
inline constexpr PreferenceKey<JsonDocument> cloudSyncDocumentManifest{"cloudSyncDocumentManifest",
                                                                       {"{}", isObject}};
inline constexpr PreferenceKey<std::int64_t> cloudSyncMigrationVersion{"cloudSyncMigrationVersion",
                                                                       0};
// the search index: a rebuild is due when any of these differs from the program's own
inline constexpr PreferenceKey<std::int64_t> spotlightIndexedSchemaVersion{
    "FretquillSpotlightIndexedSchemaVersion", 0};
inline constexpr PreferenceKey<std::string_view> spotlightIndexedAppBuildVersion{
    "FretquillSpotlightIndexedAppBuildVersion", ""};
inline constexpr PreferenceKey<std::string_view> spotlightIndexedLanguageCode{
    "FretquillSpotlightIndexedLanguageCode", ""};
inline constexpr PreferenceKey<std::int64_t> spotlightChordLibraryVersion{
    "FretquillSpotlightChordLibraryVersion", 0};
} // namespace keys

using AnyPreferenceKey =
    std::variant<const PreferenceKey<std::int64_t>*, const PreferenceKey<double>*,
                 const PreferenceKey<bool>*, const PreferenceKey<std::string_view>*,
                 const PreferenceKey<core::Note>*, const PreferenceKey<JsonDocument>*,
                 const PreferenceKey<RawBytes>*>;

/// Every declared key, in the order above.
std::span<const AnyPreferenceKey> allPreferenceKeys();
/// The declared key with this text, or none.
const AnyPreferenceKey* preferenceKey(std::string_view name);
std::string_view nameOf(const AnyPreferenceKey& key);
/// True for the keys a person sets by choice (tuning reference, metronome, level, hand);
/// the rest are lists with their own commands, hand-over keys, switches and bookkeeping.
bool isPersonalSetting(const AnyPreferenceKey& key);

// Typed reads give the fallback when nothing usable is stored.
std::int64_t read(const SharedStore& store, const PreferenceKey<std::int64_t>& key);
double read(const SharedStore& store, const PreferenceKey<double>& key);
bool read(const SharedStore& store, const PreferenceKey<bool>& key);
std::string read(const SharedStore& store, const PreferenceKey<std::string_view>& key);
core::Note read(const SharedStore& store, const PreferenceKey<core::Note>& key);
/// The stored document, or the fallback when nothing is stored or it does not decode.
nlohmann::json read(const SharedStore& store, const PreferenceKey<JsonDocument>& key);

tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<std::int64_t>& key,
                                std::int64_t value);
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<double>& key, double value);
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<bool>& key, bool value);
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<std::string_view>& key,
                                std::string_view value);
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<core::Note>& key,
                                core::Note value);
/// Refuses a document the key does not accept.
tl::expected<void, Error> write(SharedStore& store, const PreferenceKey<JsonDocument>& key,
                                const nlohmann::json& value);

/// Any declared key's current value as JSON: numbers, booleans, texts, the stored
/// document, and for raw bytes their count (null when absent).
nlohmann::json currentValue(const SharedStore& store, const AnyPreferenceKey& key);
/// Stores a value typed by a person, checked and converted for the key's type.
tl::expected<void, Error> setFromText(SharedStore& store, const AnyPreferenceKey& key,
                                      std::string_view text);

} // namespace fq::personal
