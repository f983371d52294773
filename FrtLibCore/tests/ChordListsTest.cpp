#include "fq/core/ChordLists.h"

#include "fq/core/ChordDataManager.h"

#include <gtest/gtest.h>

#include <set>

namespace fq::core {
namespace {

TEST(ChordListsTest, CategoriesKeepTheirOrderAndCaseNames) {
    const auto all = allChordListCategories();
    ASSERT_EQ(all.size(), 18u);
    EXPECT_EQ(rawValue(all.front()), "commonChords");
    EXPECT_EQ(rawValue(all[9]), "slashChords");
    EXPECT_EQ(rawValue(all.back()), "rnb");
    for (const auto category : all)
        EXPECT_EQ(chordListCategoryFromRawValue(rawValue(category)), category);
    for (const char* unknown : {"", "CommonChords", "rnB", "jazz"})
        EXPECT_FALSE(chordListCategoryFromRawValue(unknown)) << unknown;
}

TEST(ChordListsTest, ThirteenPacksAndFiveCategoriesWithout) {
    EXPECT_EQ(Chords::lists().size(), 13u);
    using C = ChordListCategory;
    for (const auto none : {C::popularProgressions, C::colorfulChords, C::slashChords,
                            C::capoFriendly, C::alternative}) {
        EXPECT_EQ(Chords::list(none), nullptr) << rawValue(none);
        EXPECT_EQ(Chords::lists().count(none), 0u);
    }
}

TEST(ChordListsTest, PacksHoldTheirTitlesImagesAndChords) {
    struct Row {
        ChordListCategory category;
        const char* title;
        const char* imageName;
        std::size_t count;
        Chord first;
        Chord last;
    };
    using C = ChordListCategory;
    using N = Note;
    const std::vector<Row> rows{
        {C::commonChords, "Common Chords", "C_chord", 10, {N::C, "major"}, {N::B, "minor"}},
        {C::beginnerEssentials,
         "First Chords",
         "acoustic",
         10,
         {N::C, "major"},
         {N::G, "dominant 7th"}},
        {C::barreChords, "Barre Chords Mastery", "fret", 6, {N::F, "major"}, {N::Fs, "major"}},
        {C::jazzChords, "Jazz Chords Collection", "jazz", 18, {N::C, "major 7th"}, {N::D, "11"}},
        {C::fingerstyleFavorites,
         "Fingerstyle Favorites",
         "acoustic",
         9,
         {N::C, "major add 9"},
         {N::E, "minor add 9"}},
        {C::powerChords,
         "Power Chords and Rock Essentials",
         "rock-music",
         10,
         {N::E, "5"},
         {N::Df, "5"}},
        {C::bluesChords,
         "Blues Chord Vault",
         "blues",
         10,
         {N::E, "dominant 7th"},
         {N::G, "major 9"}},
        {C::undergroundMusic,
         "Underground Music Pack",
         "underground-music",
         16,
         {N::E, "dominant 7th sharp 9th"},
         {N::F, "5"}},
        {C::country,
         "Essential Country",
         "country-music",
         14,
         {N::G, "major"},
         {N::D, "suspended 4th"}},
        {C::folk, "The Folk Songbook", "folk-music", 14, {N::D, "major"}, {N::E, "minor 7th"}},
        {C::metal,
         "Metal Guitar Arsenal",
         "metal-music",
         17,
         {N::E, "minor"},
         {N::B, "minor 7th flat 5"}},
        {C::rock, "Essential Rock Chords", "rock-music", 17, {N::E, "major"}, {N::D, "major 7th"}},
        {C::rnb, "The R&B Songbook", "rnb", 16, {N::A, "minor 7th"}, {N::E, "major add 9"}},
    };
    for (const auto& row : rows) {
        const auto* list = Chords::list(row.category);
        ASSERT_NE(list, nullptr) << rawValue(row.category);
        EXPECT_EQ(list->title, row.title);
        EXPECT_EQ(list->imageName, row.imageName);
        EXPECT_FALSE(list->description.empty());
        ASSERT_EQ(list->chords.size(), row.count) << row.title;
        EXPECT_EQ(list->chords.front(), row.first) << row.title;
        EXPECT_EQ(list->chords.back(), row.last) << row.title;
        for (const auto& chord : list->chords) {
            EXPECT_EQ(chord.variant, 0);
            EXPECT_NE(ChordDataManager::shared().chordData(chord.chordType), nullptr)
                << chord.chordType;
        }
    }
    EXPECT_EQ(Chords::list(C::commonChords)->chords[8], (Chord{N::Cs, "minor"}));
    EXPECT_EQ(Chords::list(C::metal)->chords[11], (Chord{N::Gs, "diminished"}));
    EXPECT_EQ(
        Chords::list(C::folk)->description,
        "Folk music has a warm, organic, and natural feel—often tied to storytelling, community, "
        "and the natural world. A color that captures that spirit is a soft, earthy green—evoking "
        "forests, fields, and simplicity.");
}

TEST(ChordListsTest, OnlyMetalPrefersAShape) {
    for (const auto& [category, list] : Chords::lists()) {
        if (category == ChordListCategory::metal) continue;
        EXPECT_TRUE(list.preferredPositions.empty()) << rawValue(category);
    }
    const auto& metal = Chords::list(ChordListCategory::metal)->preferredPositions;
    ASSERT_EQ(metal.size(), 1u);
    EXPECT_EQ(metal.begin()->first, (Chord{Note::E, "5", 0}));
    EXPECT_EQ(metal.begin()->second, (FretList{0, 2, 2, -1, -1, -1}));
}

std::set<std::string> typesOf(std::string_view key) {
    const auto* types = ChordFilters::shared().types(key);
    return types ? std::set<std::string>(types->begin(), types->end()) : std::set<std::string>{};
}

TEST(ChordFiltersTest, ElevenKeysOfCatalogueTypes) {
    const auto& filters = ChordFilters::shared();
    const std::vector<std::pair<std::string_view, std::size_t>> sizes{
        {"maj", 9}, {"min", 18}, {"7th", 25}, {"dim", 2}, {"aug", 3},   {"sus", 8},
        {"5", 1},   {"6", 6},    {"9", 3},    {"11", 1},  {"add 13", 4}};
    ASSERT_EQ(filters.filters().size(), sizes.size());
    ASSERT_EQ(filters.keys().size(), sizes.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const auto& [key, size] = sizes[i];
        EXPECT_EQ(filters.keys()[i], key);
        const auto* types = filters.types(key);
        ASSERT_NE(types, nullptr) << key;
        EXPECT_EQ(types->size(), size) << key;
        EXPECT_EQ(typesOf(key).size(), size) << key << ": a type listed twice";
        for (const auto& type : *types)
            EXPECT_NE(ChordDataManager::shared().chordData(type), nullptr) << key << ": " << type;
    }
    EXPECT_EQ(filters.types("Maj"), nullptr);
    EXPECT_EQ(filters.types("13"), nullptr);
}

TEST(ChordFiltersTest, DeliberatelyLooseMemberships) {
    EXPECT_EQ(typesOf("9"), (std::set<std::string>{"9", "minor add 9", "minor 6 add 9"}));
    EXPECT_EQ(typesOf("11"), (std::set<std::string>{"11"}));
    EXPECT_EQ(typesOf("dim"), (std::set<std::string>{"diminished", "diminished 7th"}));

    std::set<std::string> minorTypes;
    for (const auto& data : ChordDataManager::shared().catalogue())
        if (data.title.starts_with("minor")) minorTypes.insert(data.title);
    EXPECT_EQ(typesOf("min"), minorTypes);
    for (const auto& type : typesOf("maj"))
        EXPECT_FALSE(type.starts_with("minor")) << type;
    // a type may stand under several keys
    EXPECT_TRUE(typesOf("7th").contains("major 7th suspended 4th"));
    EXPECT_TRUE(typesOf("sus").contains("major 7th suspended 4th"));
    EXPECT_TRUE(typesOf("maj").contains("major 7th suspended 4th"));
}

} // namespace
} // namespace fq::core
