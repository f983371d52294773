// The main settings: their defaults, changes stored at once, and other processes' changes.

#include "fq/personal/UserPreferences.h"

#include "TemporaryStore.h"

namespace fq::personal {
namespace {

using core::GuitarTuning;

using UserPreferencesTest = TemporaryStoreTest;

TEST_F(UserPreferencesTest, AFreshStoreHasTheSevenDefaults) {
    const UserPreferences preferences(store_);
    EXPECT_EQ(preferences.a4Frequency(), 440.0);
    EXPECT_TRUE(preferences.accentFirstBeat());
    EXPECT_TRUE(preferences.hapticsEnabled());
    EXPECT_EQ(preferences.currentRootNote(), core::Note::C);
    EXPECT_EQ(preferences.metronomeSound(), 0);
    EXPECT_EQ(preferences.metronomeKeyIndex(), 1);
    EXPECT_EQ(preferences.enabledTunings(),
              (std::set<GuitarTuning>{GuitarTuning::standard, GuitarTuning::dropD,
                                      GuitarTuning::dadgad}));
    EXPECT_TRUE(store_->keys().empty()) << "reading defaults writes nothing";
}

TEST_F(UserPreferencesTest, ChangesAreStoredAtOnceAndOtherProcessesSeeThemWhenPolled) {
    UserPreferences preferences(store_);
    const auto other = openStore(); // as another process would have it
    UserPreferences elsewhere(other);
    std::vector<std::string> heard, heardElsewhere;
    const auto id = preferences.addObserver([&](std::string_view key) { heard.emplace_back(key); });
    elsewhere.addObserver([&](std::string_view key) { heardElsewhere.emplace_back(key); });
    ASSERT_TRUE(preferences.setCurrentRootNote(core::Note::Ef));
    ASSERT_TRUE(preferences.toggleTuning(GuitarTuning::dropD));
    ASSERT_TRUE(preferences.toggleTuning(GuitarTuning::openBb));
    EXPECT_EQ(heard,
              (std::vector<std::string>{"currentRootNote", "enabledTunings", "enabledTunings"}));
    EXPECT_EQ(elsewhere.currentRootNote(), core::Note::C) << "its cache answers until a poll";

    other->pollExternalChanges();
    EXPECT_EQ(heardElsewhere, (std::vector<std::string>{"currentRootNote", "enabledTunings"}));
    EXPECT_EQ(elsewhere.currentRootNote(), core::Note::Ef);
    EXPECT_EQ(elsewhere.enabledTunings(),
              (std::set<GuitarTuning>{GuitarTuning::standard, GuitarTuning::dadgad,
                                      GuitarTuning::openBb}));
    preferences.removeObserver(id);
    ASSERT_TRUE(preferences.setHapticsEnabled(false));
    EXPECT_EQ(heard.size(), 3u);
}

} // namespace
} // namespace fq::personal
