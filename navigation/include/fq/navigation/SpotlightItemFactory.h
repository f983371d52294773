#pragma once

// Search records of chords and collections, and the identifiers that links resolve.

#include "fq/navigation/Router.h"

#include <fq/core/Chord.h>
#include <fq/core/Note.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::navigation {

/// One entry offered to search: a chord or a collection.
struct FretquillSearchIndexRecord {
    enum class Kind : std::uint8_t { chord, chordCollection };

    std::string id;
    Kind kind = Kind::chord;
    std::string title;
    std::string displayName;
    std::optional<std::string> symbol;
    std::vector<std::string> aliases;
    std::vector<std::string> notes;
    std::vector<std::string> intervals;
    std::vector<std::string> keywords;
    std::vector<std::string> categoryTags;
    std::optional<std::string> difficulty; ///< "beginner", "intermediate" or "advanced"
    std::optional<std::string> tuning;
    std::optional<std::string> instrument;
    std::string searchText;
    std::optional<std::string> universalLink;
    std::optional<std::string> appDeepLink;
    std::int64_t priority = 0; ///< higher ranks first among equally good hits

    friend bool operator==(const FretquillSearchIndexRecord&,
                           const FretquillSearchIndexRecord&) = default;
};

std::string_view rawValue(FretquillSearchIndexRecord::Kind kind);
/// The record's fields in order, under their own names; absent values as null.
nlohmann::ordered_json toJson(const FretquillSearchIndexRecord& record);
std::optional<FretquillSearchIndexRecord> recordFromJson(const nlohmann::json& json);

/// Turns chords and collections into search records. Stateless.
namespace FretquillSpotlightItemFactory {

/// "com.kelvane.fretquill.chord.guitar.standard.c-sharp.minor-7th"; a non-zero
/// variant adds ".inversion-<n>".
std::string chordIdentifier(core::Note root, std::string_view chordType, int variant);
/// Every chord the name dictionary knows, root position only, once each, sorted.
const std::vector<core::Chord>& indexedChords();
/// "Bmaj7" → "B major 7", "C♯m 7th" → "C sharp m seventh"; "maj" inside a word stays.
std::string normalisedChordName(std::string_view name);
/// The family a chord type belongs to: "major", "minor", "dominant", "suspended",
/// "diminished", "augmented" or "power".
std::string_view chordFamily(std::string_view chordType);
/// "beginner", "intermediate" or "advanced" for a chord type.
std::string_view difficulty(std::string_view chordType);
FretquillSearchIndexRecord chordRecord(const core::Chord& chord);
FretquillSearchIndexRecord collectionRecord(const FretquillResolvedChordCollection& collection);

} // namespace FretquillSpotlightItemFactory
} // namespace fq::navigation
