// Search records of chords and collections.

#include "fq/navigation/SpotlightItemFactory.h"

#include "Pcre.h"
#include "Unicode.h"
#include "fq/navigation/ChordURLParser.h"
#include "fq/navigation/LinkHandler.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/ChordLists.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <set>

namespace fq::navigation {
namespace {

using Json = nlohmann::ordered_json;

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::string joined(const std::vector<std::string>& pieces, std::string_view separator) {
    std::string text;
    for (const auto& piece : pieces) {
        if (!text.empty()) text += separator;
        text += piece;
    }
    return text;
}

void addUnique(std::vector<std::string>& list, std::string item) {
    if (!item.empty() && std::find(list.begin(), list.end(), item) == list.end())
        list.push_back(std::move(item));
}

// Who plays it first. Open-position staples are for beginners; anything with a fifth
// note, an altered tone or a stacked extension is advanced; the rest is in between.
constexpr std::array<std::string_view, 8> beginnerTypes{
    "major",         "minor",        "5", "dominant 7th", "major 7th", "minor 7th",
    "suspended 4th", "suspended 2nd"};
constexpr std::array<std::string_view, 3> intermediateFiveNoteTypes{"9", "minor 9", "major 9"};

// Words a guitarist searches by that the catalogue's names do not contain.
const std::map<std::string_view, std::vector<std::string_view>>& extraKeywords() {
    static const std::map<std::string_view, std::vector<std::string_view>> words{
        {"minor 7th flat 5", {"half diminished", "ø"}},
        {"diminished 7th", {"fully diminished"}},
        {"5", {"power chord"}},
        {"augmented", {"aug"}},
        {"dominant 7th", {"seventh"}},
    };
    return words;
}

/// Pack titles each chord appears in, so a chord is found by "jazz" or "blues" too.
const std::map<core::Chord, std::vector<std::string>>& packsByChord() {
    static const auto table = [] {
        std::map<core::Chord, std::vector<std::string>> result;
        for (const auto category : core::allChordListCategories())
            if (const auto* list = core::Chords::list(category))
                for (const auto& chord : list->chords)
                    addUnique(result[core::Chord{chord.rootNote, chord.chordType, 0}], list->title);
        return result;
    }();
    return table;
}

std::int64_t difficultyPriority(std::string_view difficulty) {
    if (difficulty == "beginner") return 300;
    if (difficulty == "intermediate") return 200;
    return 100;
}

bool isNatural(core::Note note) {
    return core::rawValue(note).size() == 1;
}

} // namespace

std::string_view rawValue(FretquillSearchIndexRecord::Kind kind) {
    return kind == FretquillSearchIndexRecord::Kind::chord ? "chord" : "chordCollection";
}

nlohmann::ordered_json toJson(const FretquillSearchIndexRecord& record) {
    const auto orNull = [](const auto& value) { return value ? Json(*value) : Json(); };
    return {{"id", record.id},
            {"kind", rawValue(record.kind)},
            {"title", record.title},
            {"displayName", record.displayName},
            {"symbol", orNull(record.symbol)},
            {"aliases", record.aliases},
            {"notes", record.notes},
            {"intervals", record.intervals},
            {"keywords", record.keywords},
            {"categoryTags", record.categoryTags},
            {"difficulty", orNull(record.difficulty)},
            {"tuning", orNull(record.tuning)},
            {"instrument", orNull(record.instrument)},
            {"searchText", record.searchText},
            {"universalLink", orNull(record.universalLink)},
            {"appDeepLink", orNull(record.appDeepLink)},
            {"priority", record.priority}};
}

std::optional<FretquillSearchIndexRecord> recordFromJson(const nlohmann::json& json) {
    try {
        FretquillSearchIndexRecord record;
        const auto optionalText = [&](const char* key) -> std::optional<std::string> {
            return json.at(key).is_null() ? std::nullopt
                                          : std::optional(json.at(key).get<std::string>());
        };
        record.id = json.at("id").get<std::string>();
        const auto kind = json.at("kind").get<std::string>();
        if (kind != "chord" && kind != "chordCollection") return std::nullopt;
        record.kind = kind == "chord" ? FretquillSearchIndexRecord::Kind::chord
                                      : FretquillSearchIndexRecord::Kind::chordCollection;
        record.title = json.at("title").get<std::string>();
        record.displayName = json.at("displayName").get<std::string>();
        record.symbol = optionalText("symbol");
        record.aliases = json.at("aliases").get<std::vector<std::string>>();
        record.notes = json.at("notes").get<std::vector<std::string>>();
        record.intervals = json.at("intervals").get<std::vector<std::string>>();
        record.keywords = json.at("keywords").get<std::vector<std::string>>();
        record.categoryTags = json.at("categoryTags").get<std::vector<std::string>>();
        record.difficulty = optionalText("difficulty");
        record.tuning = optionalText("tuning");
        record.instrument = optionalText("instrument");
        record.searchText = json.at("searchText").get<std::string>();
        record.universalLink = optionalText("universalLink");
        record.appDeepLink = optionalText("appDeepLink");
        record.priority = json.at("priority").get<std::int64_t>();
        return record;
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

namespace FretquillSpotlightItemFactory {

std::string chordIdentifier(core::Note root, std::string_view chordType, int variant) {
    std::vector<std::string> items{std::string(config::chordIdentifierStem), "standard",
                                   ChordURLParser::identifierSlug(core::rawValue(root)),
                                   ChordURLParser::identifierSlug(chordType)};
    if (variant != 0) items.push_back("inversion-" + std::to_string(variant));
    std::erase_if(items, [](const std::string& item) { return item.empty(); });
    return joined(items, ".");
}

const std::vector<core::Chord>& indexedChords() {
    static const auto chords = [] {
        std::set<core::Chord> unique;
        for (const auto& chord : core::ChordDataManager::shared().dictionaryChords())
            if (chord.variant == 0) unique.insert(chord);
        return std::vector<core::Chord>(unique.begin(), unique.end());
    }();
    return chords;
}

std::string normalisedChordName(std::string_view name) {
    if (!unicode::isValidUtf8(name)) return {};
    // "maj" and "min" as words, or glued to a root letter ("Bmaj7", "E♭min"), but not
    // inside a word ("major", "dominant")
    static const Regex major(R"((?:\b|(?<=[A-G])|(?<=[A-G][#b♯♭]))maj(?=\d|\b))");
    static const Regex minor(R"((?:\b|(?<=[A-G])|(?<=[A-G][#b♯♭]))min(?=\d|\b))");
    static const Regex spaces(R"(\s+)");
    auto text = minor.replacingAll(major.replacingAll(name, " major "), " minor ");
    for (const auto& [from, to] : std::array<std::pair<std::string_view, std::string_view>, 4>{
             {{"13th", "thirteenth"}, {"11th", "eleventh"}, {"9th", "ninth"}, {"7th", "seventh"}}})
        text = replaceAll(std::move(text), from, to);
    for (const auto& [from, to] : std::array<std::pair<std::string_view, std::string_view>, 4>{
             {{"♯", " sharp "}, {"♭", " flat "}, {"𝄪", " double sharp "}, {"#", " sharp "}}})
        text = replaceAll(std::move(text), from, to);
    return std::string(unicode::trimmed(spaces.replacingAll(text, " ")));
}

std::string_view chordFamily(std::string_view chordType) {
    if (chordType == "5") return "power";
    if (chordType.find("diminished") != std::string_view::npos) return "diminished";
    if (chordType.find("augmented") != std::string_view::npos) return "augmented";
    if (chordType.find("suspended") != std::string_view::npos) return "suspended";
    if (chordType.starts_with("minor")) return "minor";
    if (chordType.starts_with("dominant") || chordType == "9" || chordType == "11")
        return "dominant";
    return "major";
}

std::string_view difficulty(std::string_view chordType) {
    if (std::find(beginnerTypes.begin(), beginnerTypes.end(), chordType) != beginnerTypes.end())
        return "beginner";
    const auto* data = core::ChordDataManager::shared().chordData(chordType);
    if (!data) return "advanced";
    const bool altered = data->formula.find("♭5") != std::string::npos ||
                         data->formula.find("♯") != std::string::npos ||
                         data->formula.find("♭9") != std::string::npos ||
                         data->formula.find("♭♭") != std::string::npos;
    const bool fiveNotes =
        data->notes.size() >= 5 &&
        std::find(intermediateFiveNoteTypes.begin(), intermediateFiveNoteTypes.end(), chordType) ==
            intermediateFiveNoteTypes.end();
    // diminished triads and 7ths are everyday passing chords, altered or not
    if (chordType == "diminished" || chordType == "diminished 7th" || chordType == "augmented")
        return "intermediate";
    return altered || fiveNotes ? "advanced" : "intermediate";
}

FretquillSearchIndexRecord chordRecord(const core::Chord& chord) {
    const auto& manager = core::ChordDataManager::shared();
    FretquillSearchIndexRecord record;
    record.id = chordIdentifier(chord.rootNote, chord.chordType, chord.variant);
    record.kind = FretquillSearchIndexRecord::Kind::chord;
    record.title = manager.name(chord.rootNote, chord.chordType, chord.variant,
                                std::numeric_limits<std::size_t>::max());
    record.displayName = normalisedChordName(record.title);
    record.symbol = manager.shortestName(chord.rootNote, chord.chordType, chord.variant);
    const auto typedNames = manager.aliases(chord.rootNote, chord.chordType, chord.variant);
    for (const auto& alias : typedNames) {
        auto normal = normalisedChordName(alias);
        if (normal != record.displayName) addUnique(record.aliases, std::move(normal));
    }
    record.notes = manager.notes(chord.rootNote, chord.chordType);
    record.intervals = manager.intervalNames(chord.chordType, chord.variant);
    const auto family = std::string(chordFamily(chord.chordType));
    addUnique(record.keywords, chord.chordType);
    addUnique(record.keywords, family + " chord");
    addUnique(record.keywords, "guitar chord");
    if (const auto extra = extraKeywords().find(chord.chordType); extra != extraKeywords().end())
        for (const auto word : extra->second)
            addUnique(record.keywords, std::string(word));
    // the symbols as people type them ("C#m7", "Dbmaj7"), which the spelled-out aliases lose
    for (const auto& alias : typedNames)
        if (alias.find(' ') == std::string::npos) addUnique(record.keywords, alias);
    addUnique(record.categoryTags, family);
    if (const auto packs = packsByChord().find(core::Chord{chord.rootNote, chord.chordType, 0});
        packs != packsByChord().end())
        for (const auto& pack : packs->second)
            addUnique(record.categoryTags, pack);
    const auto level = difficulty(chord.chordType);
    record.difficulty = std::string(level);
    record.tuning = "standard tuning";
    record.instrument = "guitar";
    record.searchText = record.title + " Guitar Chord. Also known as " +
                        joined(record.aliases, ", ") + ". Chord family: " + family;
    record.universalLink = ChordURLParser::chordWebURL(chord);
    record.appDeepLink = "fretquill://spotlight/" + record.id;
    // easier chords first, then the catalogue's own order (most played first), then
    // natural roots before sharps and flats
    const auto& catalogue = manager.catalogue();
    const auto position =
        std::find_if(catalogue.begin(), catalogue.end(),
                     [&](const core::ChordData& data) { return data.title == chord.chordType; });
    const auto fromEnd = static_cast<std::int64_t>(catalogue.end() - position);
    record.priority = difficultyPriority(level) + fromEnd + (isNatural(chord.rootNote) ? 150 : 0);
    return record;
}

FretquillSearchIndexRecord collectionRecord(const FretquillResolvedChordCollection& collection) {
    const auto& manager = core::ChordDataManager::shared();
    FretquillSearchIndexRecord record;
    record.id = collection.id;
    record.kind = FretquillSearchIndexRecord::Kind::chordCollection;
    record.title = collection.title;
    record.displayName = collection.title;
    std::vector<std::string> names;
    for (const auto& chord : collection.chords) {
        if (names.size() == 5) break; // the first few say what the pack is
        names.push_back(manager.name(chord.rootNote, chord.chordType, chord.variant));
    }
    record.keywords = {"guitar chords", "chord collection", "chord pack"};
    const bool own = collection.subtitle == config::userCollectionSubtitle;
    record.categoryTags = {own ? "my collections" : "chord packs"};
    record.searchText = collection.subtitle + ". " + " A Fret Quill chord collection containing " +
                        std::to_string(collection.chords.size()) + " chords including " +
                        joined(names, ", ") + ". Category: " + joined(record.categoryTags, ", ");
    if (collection.id == std::string(config::collectionIdentifierPrefix) + "common-chords")
        record.difficulty = "beginner";
    record.instrument = "guitar";
    record.appDeepLink = "fretquill://spotlight/" + record.id;
    // a pack named by the query is what the person wants, before any one chord in it
    record.priority = own ? 520 : 500;
    return record;
}

} // namespace FretquillSpotlightItemFactory
} // namespace fq::navigation
