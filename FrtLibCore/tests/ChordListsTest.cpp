// The curated chord packs and the library's filter keys.
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

TEST(ChordListsTest, EveryPackIsTitledAndHoldsCatalogueChordsInRootPosition) {
    std::size_t chords = 0;
    for (const auto& [category, list] : Chords::lists()) {
        EXPECT_FALSE(list.title.empty() || list.imageName.empty() || list.description.empty())
            << rawValue(category);
        for (const auto& chord : list.chords) {
            EXPECT_EQ(chord.variant, 0);
            EXPECT_NE(ChordDataManager::shared().chordData(chord.chordType), nullptr)
                << rawValue(category) << ": " << chord.chordType;
        }
        chords += list.chords.size();
    }
    EXPECT_EQ(chords, 167u);
    const auto* metal = Chords::list(ChordListCategory::metal);
    EXPECT_EQ(metal->title, "Metal Guitar Arsenal");
    EXPECT_EQ(metal->chords[11], (Chord{Note::Gs, "diminished"}));
    EXPECT_EQ(metal->chords.back(), (Chord{Note::B, "minor 7th flat 5"}));
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

TEST(ChordFiltersTest, ElevenKeysOfDistinctCatalogueTypes) {
    const auto& filters = ChordFilters::shared();
    ASSERT_EQ(filters.keys().size(), 11u);
    for (const auto key : filters.keys()) {
        const auto* types = filters.types(key);
        ASSERT_NE(types, nullptr) << key;
        EXPECT_EQ(typesOf(key).size(), types->size()) << key << ": a type listed twice";
        for (const auto& type : *types)
            EXPECT_NE(ChordDataManager::shared().chordData(type), nullptr) << key << ": " << type;
    }
    EXPECT_EQ(typesOf("7th").size(), 25u);
    EXPECT_EQ(filters.types("Maj"), nullptr);
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
