#pragma once

#include "fq/core/Chord.h"
#include "fq/core/ChordDataManager.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::core {

/// The curated packs of the library, in browsing order. Five categories have no pack.
enum class ChordListCategory : std::uint8_t {
    commonChords,
    beginnerEssentials,
    barreChords,
    popularProgressions,
    jazzChords,
    fingerstyleFavorites,
    powerChords,
    bluesChords,
    colorfulChords,
    slashChords,
    capoFriendly,
    undergroundMusic,
    country,
    folk,
    metal,
    rock,
    alternative,
    rnb,
};

inline constexpr std::size_t chordListCategoryCount = 18;

std::span<const ChordListCategory, chordListCategoryCount> allChordListCategories();
/// The case name, e.g. "commonChords".
std::string_view rawValue(ChordListCategory category);
std::optional<ChordListCategory> chordListCategoryFromRawValue(std::string_view raw);

/// One pack: its chords in the order they are shown, and the shape to show first
/// for the few chords where the generator's first choice is not the pack's.
struct ChordList {
    std::string title;
    std::string description;
    std::string imageName;
    std::vector<Chord> chords;
    std::map<Chord, FretList> preferredPositions;

    friend bool operator==(const ChordList&, const ChordList&) = default;
};

namespace Chords {
/// Every pack by category, built on first use.
const std::map<ChordListCategory, ChordList>& lists();
/// The pack of a category, or null for the categories without one.
const ChordList* list(ChordListCategory category);
} // namespace Chords

/// The short filter keys of the library screen, each with the chord types it shows.
/// A type may stand under several keys; some memberships are deliberately loose
/// ("9" holds the add-9 types but not "major 9").
class ChordFilters {
public:
    using Filters = std::map<std::string, std::vector<std::string>, std::less<>>;

    static const ChordFilters& shared();

    const Filters& filters() const { return filters_; }
    /// The keys in the order the library screen shows them.
    std::span<const std::string_view> keys() const;
    /// The types of a key, or null for an unknown key.
    const std::vector<std::string>* types(std::string_view key) const;

private:
    ChordFilters();

    Filters filters_;
};

} // namespace fq::core
