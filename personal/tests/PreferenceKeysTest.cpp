// The declared keys: one declaration each, their defaults, which a person sets, and typed text
// checked before it is stored.

#include "fq/personal/PreferenceKeys.h"

#include "TemporaryStore.h"

#include <set>

namespace fq::personal {
namespace {

using PreferenceKeysTest = TemporaryStoreTest;

TEST_F(PreferenceKeysTest, EveryKeyIsDeclaredOnceAndReadsItsDefaultWhenNothingIsStored) {
    std::set<std::string_view> names;
    for (const auto& key : allPreferenceKeys()) {
        EXPECT_TRUE(names.insert(nameOf(key)).second) << nameOf(key);
        EXPECT_EQ(preferenceKey(nameOf(key)), &key);
    }
    // a person's own settings, as against lists with their own commands and the program's keys
    for (const auto& [name, setting] : std::vector<std::pair<std::string_view, bool>>{
             {"a4Frequency", true},
             {"enabledTunings", true},
             {"tempo", true},
             {"left_handed", true},
             {"favouritedChords", false},
             {"selectedTab", false},
             {"isMetronomeOn", false},
             {"cloudSyncMigrationVersion", false},
             {"FretquillSpotlightIndexedLanguageCode", false}}) {
        ASSERT_NE(preferenceKey(name), nullptr) << name;
        EXPECT_EQ(isPersonalSetting(*preferenceKey(name)), setting) << name;
    }
    EXPECT_EQ(preferenceKey("nonesuch"), nullptr);

    const std::vector<std::pair<std::string_view, nlohmann::json>> defaults{
        {"currentRootNote", "C"},
        {"enabledTunings", {0, 1, 7}},
        {"favouritedChords", nlohmann::json::array()},
        {"tempo", 120},
        {"selectedTab", 1},
        {"showOnboarding", true},
        {"pendingChordListImageDataFromAppIntent", nullptr},
    };
    for (const auto& [name, value] : defaults)
        EXPECT_EQ(currentValue(*store_, *preferenceKey(name)), value) << name;
}

TEST_F(PreferenceKeysTest, TypedTextIsCheckedAndConverted) {
    const auto set = [&](std::string_view name, std::string_view text) {
        return setFromText(*store_, *preferenceKey(name), text);
    };
    ASSERT_TRUE(set("a4Frequency", "442.5"));
    EXPECT_EQ(read(*store_, keys::a4Frequency), 442.5);
    ASSERT_TRUE(set("currentRootNote", "F#"));
    EXPECT_EQ(read(*store_, keys::currentRootNote), core::Note::Fs);
    ASSERT_TRUE(set("hapticsEnabled", "no"));
    EXPECT_FALSE(read(*store_, keys::hapticsEnabled));
    ASSERT_TRUE(set("enabledTunings", "[0, 21]"));
    EXPECT_EQ(read(*store_, keys::enabledTunings), nlohmann::json({0, 21}));

    const std::vector<std::tuple<std::string_view, std::string_view, std::string_view>> refused{
        {"tempo", "fast", "tempo needs a whole number, not \"fast\""},
        {"tempo", "12.5", "tempo needs a whole number, not \"12.5\""},
        {"a4Frequency", "inf", "a4Frequency needs a number, not \"inf\""},
        {"accentFirstBeat", "maybe", "accentFirstBeat needs true or false, not \"maybe\""},
        {"currentRootNote", "H", "currentRootNote needs a note such as C, F# or E♭, not \"H\""},
        {"favouritedChords", "[{", "favouritedChords needs a JSON document, not \"[{\""},
        {"favouritedChords", R"([{"rootNote":"H","chordType":"major"}])",
         R"(Not a valid value for favouritedChords: [{"chordType":"major","rootNote":"H"}])"},
        {"enabledTunings", "[31]", "Not a valid value for enabledTunings: [31]"},
        {"pendingChordListImageDataFromAppIntent", "x",
         "pendingChordListImageDataFromAppIntent holds raw bytes and cannot be set from text"},
    };
    for (const auto& [name, text, message] : refused) {
        const auto before = currentValue(*store_, *preferenceKey(name));
        const auto result = set(name, text);
        ASSERT_FALSE(result) << name << " " << text;
        EXPECT_EQ(result.error().message, message);
        EXPECT_EQ(currentValue(*store_, *preferenceKey(name)), before)
            << "a refused value changes nothing";
    }
}

TEST_F(PreferenceKeysTest, UndecodableDocumentsReadAsTheirDefault) {
    ASSERT_TRUE(store_->set(keys::enabledTunings.name, bytesOf("not json")));
    EXPECT_EQ(read(*store_, keys::enabledTunings), nlohmann::json({0, 1, 7}));
    ASSERT_TRUE(store_->set(keys::currentRootNote.name, std::string("H")));
    EXPECT_EQ(read(*store_, keys::currentRootNote), core::Note::C);
}

} // namespace
} // namespace fq::personal
