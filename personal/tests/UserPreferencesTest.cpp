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

TEST_F(UserPreferencesTest, ChangesAreStoredAtOnceAndAnnounced) {
    UserPreferences preferences(store_);
    std::vector<std::string> heard;
    const auto id = preferences.addObserver([&](std::string_view key) { heard.emplace_back(key); });
    ASSERT_TRUE(preferences.setCurrentRootNote(core::Note::Ef));
    ASSERT_TRUE(preferences.toggleTuning(GuitarTuning::dropD));
    ASSERT_TRUE(preferences.toggleTuning(GuitarTuning::openBb));
    ASSERT_TRUE(preferences.setMetronomeKeyIndex(3));
    EXPECT_EQ(heard, (std::vector<std::string>{"currentRootNote", "enabledTunings",
                                               "enabledTunings", "metronomeKeyIndex"}));
    EXPECT_EQ(preferences.currentRootNote(), core::Note::Ef);

    // what another reader of the same file sees
    const UserPreferences elsewhere(openStore());
    EXPECT_EQ(elsewhere.currentRootNote(), core::Note::Ef);
    EXPECT_EQ(elsewhere.enabledTunings(),
              (std::set<GuitarTuning>{GuitarTuning::standard, GuitarTuning::dadgad,
                                      GuitarTuning::openBb}));
    EXPECT_EQ(elsewhere.metronomeKeyIndex(), 3);

    preferences.removeObserver(id);
    ASSERT_TRUE(preferences.setHapticsEnabled(false));
    EXPECT_EQ(heard.size(), 4u);
}

TEST_F(UserPreferencesTest, ChangesFromAnotherProcessReachTheCacheWhenTheStoreIsPolled) {
    UserPreferences preferences(store_);
    std::vector<std::string> heard;
    preferences.addObserver([&](std::string_view key) { heard.emplace_back(key); });
    UserPreferences other(openStore());
    ASSERT_TRUE(other.setA4Frequency(432.0));
    ASSERT_TRUE(other.setAccentFirstBeat(false));
    EXPECT_EQ(preferences.a4Frequency(), 440.0) << "the cache answers until the store is polled";
    store_->pollExternalChanges();
    EXPECT_EQ(preferences.a4Frequency(), 432.0);
    EXPECT_FALSE(preferences.accentFirstBeat());
    EXPECT_EQ(heard, (std::vector<std::string>{"a4Frequency", "accentFirstBeat"}));
}

} // namespace
} // namespace fq::personal
