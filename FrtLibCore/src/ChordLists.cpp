#include "fq/core/ChordLists.h"

#include <algorithm>
#include <cassert>
#include <initializer_list>
#include <utility>

namespace fq::core {
namespace {

using C = ChordListCategory;

constexpr std::array<ChordListCategory, chordListCategoryCount> categories{
    C::commonChords,   C::beginnerEssentials,
    C::barreChords,    C::popularProgressions,
    C::jazzChords,     C::fingerstyleFavorites,
    C::powerChords,    C::bluesChords,
    C::colorfulChords, C::slashChords,
    C::capoFriendly,   C::undergroundMusic,
    C::country,        C::folk,
    C::metal,          C::rock,
    C::alternative,    C::rnb,
};

constexpr std::array<std::string_view, chordListCategoryCount> categoryNames{
    "commonChords",   "beginnerEssentials",
    "barreChords",    "popularProgressions",
    "jazzChords",     "fingerstyleFavorites",
    "powerChords",    "bluesChords",
    "colorfulChords", "slashChords",
    "capoFriendly",   "undergroundMusic",
    "country",        "folk",
    "metal",          "rock",
    "alternative",    "rnb",
};

/// One chord of a pack: every pack chord is in root position.
struct Entry {
    Note root;
    std::string_view type;
};

ChordList pack(std::string_view title, std::string_view description, std::string_view imageName,
               std::initializer_list<Entry> entries) {
    ChordList list{std::string(title), std::string(description), std::string(imageName), {}, {}};
    list.chords.reserve(entries.size());
    for (const auto& [root, type] : entries)
        list.chords.push_back(Chord{root, std::string(type), 0});
    return list;
}

std::map<ChordListCategory, ChordList> buildLists() {
    using N = Note;
    std::map<ChordListCategory, ChordList> lists;
    lists[C::commonChords] =
        pack("Common Chords", "Most commonly used major and minor chords", "C_chord",
             {{N::C, "major"},
              {N::G, "major"},
              {N::D, "major"},
              {N::A, "major"},
              {N::E, "major"},
              {N::A, "minor"},
              {N::E, "minor"},
              {N::D, "minor"},
              {N::Cs, "minor"},
              {N::B, "minor"}});
    lists[C::beginnerEssentials] =
        pack("First Chords", "For those starting to learn guitar chords", "acoustic",
             {{N::C, "major"},
              {N::G, "major"},
              {N::D, "major"},
              {N::A, "major"},
              {N::E, "major"},
              {N::A, "minor"},
              {N::E, "minor"},
              {N::D, "minor"},
              {N::E, "dominant 7th"},
              {N::G, "dominant 7th"}});
    lists[C::barreChords] =
        pack("Barre Chords Mastery", "For intermediate players looking to expand their versatility",
             "fret",
             {{N::F, "major"},
              {N::B, "minor"},
              {N::C, "minor"},
              {N::Cs, "minor"},
              {N::Bf, "minor"},
              {N::Fs, "major"}});
    lists[C::jazzChords] =
        pack("Jazz Chords Collection", "For jazz enthusiasts and advanced players", "jazz",
             {{N::C, "major 7th"},
              {N::G, "major 7th"},
              {N::A, "minor 7th"},
              {N::D, "minor 7th"},
              {N::G, "dominant 7th"},
              {N::C, "dominant 7th"},
              {N::B, "minor 7th flat 5"},
              {N::Fs, "minor 7th flat 5"},
              {N::D, "9"},
              {N::A, "9"},
              {N::E, "minor 9"},
              {N::A, "minor 9"},
              {N::C, "major 9"},
              {N::G, "major 9"},
              {N::E, "dominant 7th sharp 9th"},
              {N::A, "dominant 7th sharp 9th"},
              {N::G, "11"},
              {N::D, "11"}});
    lists[C::fingerstyleFavorites] = pack(
        "Fingerstyle Favorites",
        "Chords that are popular in fingerstyle arrangements - for melodic playing and acoustic "
        "sessions.",
        "acoustic",
        {{N::C, "major add 9"},
         {N::G, "suspended 4th"},
         {N::D, "major add 9"},
         {N::A, "minor 7th"},
         {N::E, "minor 7th"},
         {N::D, "suspended 2nd"},
         {N::F, "major 7th"},
         {N::A, "suspended 4th"},
         {N::E, "minor add 9"}});
    lists[C::powerChords] =
        pack("Power Chords and Rock Essentials",
             "Movable power chords and variations - Perfect for rock, punk, and metal players.",
             "rock-music",
             {{N::E, "5"},
              {N::A, "5"},
              {N::D, "5"},
              {N::G, "5"},
              {N::B, "5"},
              {N::Fs, "5"},
              {N::C, "5"},
              {N::Bf, "5"},
              {N::Af, "5"},
              {N::Df, "5"}});
    lists[C::bluesChords] =
        pack("Blues Chord Vault", "Great for blues improvisation and rhythm playing", "blues",
             {{N::E, "dominant 7th"},
              {N::A, "dominant 7th"},
              {N::B, "dominant 7th"},
              {N::G, "dominant 7th"},
              {N::D, "dominant 7th"},
              {N::C, "dominant 7th"},
              {N::F, "dominant 7th"},
              {N::A, "major 9"},
              {N::D, "major 9"},
              {N::G, "major 9"}});
    lists[C::undergroundMusic] = pack(
        "Underground Music Pack",
        "A gritty, moody mix of power chords, dissonance, and unconventional voicings that capture "
        "the raw edge of underground music.",
        "underground-music",
        {{N::E, "dominant 7th sharp 9th"},
         {N::F, "major 7th add 11"},
         {N::A, "suspended 2nd"},
         {N::E, "5"},
         {N::A, "minor"},
         {N::E, "suspended 2nd"},
         {N::A, "5"},
         {N::E, "minor"},
         {N::C, "suspended 2nd"},
         {N::G, "5"},
         {N::B, "minor"},
         {N::G, "major add 9"},
         {N::B, "5"},
         {N::D, "minor"},
         {N::D, "suspended 2nd"},
         {N::F, "5"}});
    lists[C::country] = pack(
        "Essential Country",
        "Country music — it’s all about storytelling, twang, and heartfelt vibes. Country guitar "
        "tends to use open chords that sound warm, natural, and resonate well with acoustic "
        "instruments.",
        "country-music",
        {{N::G, "major"},
         {N::C, "major"},
         {N::D, "major"},
         {N::A, "major"},
         {N::E, "major"},
         {N::A, "dominant 7th"},
         {N::D, "dominant 7th"},
         {N::G, "dominant 7th"},
         {N::E, "minor"},
         {N::B, "minor"},
         {N::F, "major"},
         {N::B, "dominant 7th"},
         {N::B, "major"},
         {N::D, "suspended 4th"}});
    lists[C::folk] = pack(
        "The Folk Songbook",
        "Folk music has a warm, organic, and natural feel—often tied to storytelling, community, "
        "and the natural world. A color that captures that spirit is a soft, earthy green—evoking "
        "forests, fields, and simplicity.",
        "folk-music",
        {{N::D, "major"},
         {N::E, "minor"},
         {N::A, "major"},
         {N::E, "major"},
         {N::C, "major"},
         {N::A, "minor"},
         {N::G, "major"},
         {N::F, "major"},
         {N::D, "dominant 7th"},
         {N::G, "dominant 7th"},
         {N::C, "dominant 7th"},
         {N::C, "major add 9"},
         {N::D, "suspended 4th"},
         {N::E, "minor 7th"}});
    lists[C::metal] = pack("Metal Guitar Arsenal",
                           "Metal — a genre where power, aggression, and dark emotion reign. Metal "
                           "guitar focuses less "
                           "on open chords and more on power chords, minor modes, and dissonance.",
                           "metal-music",
                           {{N::E, "minor"},
                            {N::A, "minor"},
                            {N::E, "5"},
                            {N::F, "5"},
                            {N::G, "5"},
                            {N::A, "5"},
                            {N::B, "5"},
                            {N::D, "minor"},
                            {N::B, "minor"},
                            {N::F, "minor"},
                            {N::B, "diminished"},
                            {N::Gs, "diminished"},
                            {N::D, "suspended 2nd"},
                            {N::E, "suspended 2nd"},
                            {N::E, "suspended 4th"},
                            {N::E, "minor 7th"},
                            {N::B, "minor 7th flat 5"}});
    // The low power chord on the three bass strings, rather than the generator's first shape.
    lists[C::metal].preferredPositions.emplace(Chord{N::E, "5", 0}, FretList{0, 2, 2, -1, -1, -1});
    lists[C::rock] = pack(
        "Essential Rock Chords",
        "From classic to alt, garage to stadium, rock guitar is built on a mix of power, attitude, "
        "and emotion. It's more harmonically rich than punk, but still leans into energy and "
        "groove.",
        "rock-music",
        {{N::E, "major"},
         {N::A, "major"},
         {N::D, "major"},
         {N::G, "major"},
         {N::C, "major"},
         {N::F, "major"},
         {N::B, "minor"},
         {N::B, "major"},
         {N::Cs, "minor"},
         {N::Gs, "minor"},
         {N::E, "dominant 7th"},
         {N::A, "dominant 7th"},
         {N::G, "dominant 7th"},
         {N::C, "major add 9"},
         {N::A, "major 7th"},
         {N::E, "minor 7th"},
         {N::D, "major 7th"}});
    lists[C::rnb] = pack(
        "The R&B Songbook",
        "Whether it’s old-school soul, 90s slow jams, or modern alt-R&B, the guitar in R&B is all "
        "about feel, groove, and lush harmony. It’s less power, more polish.",
        "rnb",
        {{N::A, "minor 7th"},
         {N::D, "minor 7th"},
         {N::E, "minor 7th"},
         {N::G, "minor 7th"},
         {N::C, "minor 7th"},
         {N::F, "minor 7th"},
         {N::A, "dominant 7th"},
         {N::D, "dominant 7th"},
         {N::E, "dominant 7th"},
         {N::A, "minor 9"},
         {N::D, "minor 9"},
         {N::C, "major 9"},
         {N::D, "suspended 2nd"},
         {N::E, "suspended 4th"},
         {N::C, "major add 9"},
         {N::E, "major add 9"}});
    return lists;
}

constexpr std::array<std::string_view, 11> filterKeys{"maj", "min", "7th", "dim", "aug",   "sus",
                                                      "5",   "6",   "9",   "11",  "add 13"};

} // namespace

std::span<const ChordListCategory, chordListCategoryCount> allChordListCategories() {
    return categories;
}

std::string_view rawValue(ChordListCategory category) {
    return categoryNames[static_cast<std::size_t>(category)];
}

std::optional<ChordListCategory> chordListCategoryFromRawValue(std::string_view raw) {
    const auto found = std::find(categoryNames.begin(), categoryNames.end(), raw);
    if (found == categoryNames.end()) return std::nullopt;
    return categories[static_cast<std::size_t>(found - categoryNames.begin())];
}

namespace Chords {

const std::map<ChordListCategory, ChordList>& lists() {
    static const auto built = buildLists();
    return built;
}

const ChordList* list(ChordListCategory category) {
    const auto found = lists().find(category);
    return found == lists().end() ? nullptr : &found->second;
}

} // namespace Chords

const ChordFilters& ChordFilters::shared() {
    static const ChordFilters instance;
    return instance;
}

ChordFilters::ChordFilters() {
    filters_ = {
        {"maj",
         {"major", "major 7th", "major 9", "major 11", "major add 9", "major 7th add 11",
          "major 7th add 13", "major 7th suspended 4th", "major 7th suspended 2nd"}},
        {"min",
         {"minor", "minor 7th", "minor major 7th", "minor major 6", "minor 9", "minor major 9",
          "minor 11", "minor major 11", "minor add 9", "minor 6", "minor 6 add 9",
          "minor 7th add 11", "minor major 7th add 11", "minor 7th add 13",
          "minor major 7th add 13", "minor 7th flat 5", "minor 7th sharp 5", "minor 7th flat 9th"}},
        {"7th",
         {"dominant 7th",
          "major 7th",
          "minor 7th",
          "minor major 7th",
          "dominant 7th add 11",
          "major 7th add 11",
          "minor 7th add 11",
          "minor major 7th add 11",
          "dominant 7th add 13",
          "major 7th add 13",
          "minor 7th add 13",
          "minor major 7th add 13",
          "dominant 7th flat 5",
          "augmented 7th",
          "dominant 7th flat 9th",
          "dominant 7th sharp 9th",
          "augmented 7th flat 9th",
          "minor 7th flat 5",
          "minor 7th sharp 5",
          "minor 7th flat 9th",
          "dominant 7th suspended 4th",
          "dominant 7th suspended 2nd",
          "major 7th suspended 4th",
          "major 7th suspended 2nd",
          "diminished 7th"}},
        {"dim", {"diminished", "diminished 7th"}},
        {"aug", {"augmented", "augmented 7th", "augmented 7th flat 9th"}},
        {"sus",
         {"suspended 4th", "suspended 2nd", "6 suspended 4th", "6 suspended 2nd",
          "dominant 7th suspended 4th", "dominant 7th suspended 2nd", "major 7th suspended 4th",
          "major 7th suspended 2nd"}},
        {"5", {"5"}},
        {"6", {"6", "6 add 9", "6 suspended 4th", "6 suspended 2nd", "minor 6", "minor 6 add 9"}},
        {"9", {"9", "minor add 9", "minor 6 add 9"}},
        {"11", {"11"}},
        {"add 13",
         {"dominant 7th add 13", "major 7th add 13", "minor 7th add 13", "minor major 7th add 13"}},
    };
    assert(filters_.size() == filterKeys.size());
}

std::span<const std::string_view> ChordFilters::keys() const {
    return filterKeys;
}

const std::vector<std::string>* ChordFilters::types(std::string_view key) const {
    const auto found = filters_.find(key);
    return found == filters_.end() ? nullptr : &found->second;
}

} // namespace fq::core
