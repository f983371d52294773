// The theory commands as a person runs them: lists, filters, progressions, today, patterns.
#include "CliRun.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/TodayChordLibrary.h>
#include <fq/personal/PreferenceKeys.h>
#include <fq/personal/SharedStore.h>
#include <fq/personal/StoredNotificationCenter.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>

namespace fq::cli {
namespace {

/// The chord of the day's notifications and setting live in the store: never the real home.
class TheoryHome : public ::testing::Environment {
public:
    void SetUp() override {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "fq-theory-XXXXXX").string();
        home_ = mkdtemp(pattern.data());
        setenv("FRETQUILL_HOME", home_.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(home_); }

private:
    std::filesystem::path home_;
};
const auto* const theoryHome = ::testing::AddGlobalTestEnvironment(new TheoryHome);

/// The store the program writes (in FRETQUILL_HOME), opened as another process would.
std::shared_ptr<personal::SharedStore> programStore() {
    auto store = personal::SharedStore::openDefault();
    if (!store) throw std::runtime_error(store.error().message);
    return *store;
}

bool contains(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

TEST(TheoryCommandsTest, ListsAndFilters) {
    const auto all = json({"lists"});
    ASSERT_EQ(all.size(), 13u);
    EXPECT_EQ(all.front()["category"], "commonChords");
    EXPECT_EQ(all.back()["category"], "rnb");
    const auto metal = json({"lists", "metal"});
    EXPECT_EQ(metal["title"], "Metal Guitar Arsenal");
    EXPECT_EQ(metal["chords"].size(), 17u);
    EXPECT_EQ(
        metal["preferredPositions"].dump(),
        R"([{"chord":{"rootNote":"E","chordType":"5","variant":0},"position":[0,2,2,-1,-1,-1]}])");
    EXPECT_EQ(json({"lists", "rnb"})["chords"][0].dump(),
              R"({"rootNote":"A","chordType":"minor 7th","variant":0})");
    EXPECT_EQ(json({"lists", "barreChords"})["preferredPositions"],
              nlohmann::ordered_json::array());

    const auto text = run({"lists", "metal"}).out;
    EXPECT_TRUE(contains(text, "E5")) << text;
    EXPECT_TRUE(contains(text, "022xxx")) << "the pack's own shape for E5";

    const auto filters = json({"filters"});
    std::vector<std::string> keys;
    for (const auto& [key, types] : filters.items())
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"maj", "min", "7th", "dim", "aug", "sus", "5", "6",
                                              "9", "11", "add 13"}));
    EXPECT_EQ(json({"filters", "9"}).dump(), R"(["9","minor add 9","minor 6 add 9"])");
    EXPECT_EQ(json({"filters", "add 13"}).size(), 4u);
    EXPECT_EQ(run({"filters", "dim"}).out, "diminished\ndiminished 7th\n");
}

TEST(TheoryCommandsTest, ProgressionsInAKey) {
    EXPECT_EQ(
        json({"progression", "I-V-vi-IV", "--key", "C"}).dump(),
        R"({"chords":[{"rootNote":"C","chordType":"major","variant":0},)"
        R"({"rootNote":"G","chordType":"major","variant":0},)"
        R"({"rootNote":"A","chordType":"minor","variant":0},)"
        R"({"rootNote":"F","chordType":"major","variant":0}],)"
        R"("names":["C major","G major","A minor","F major"],)"
        R"("description":"Known as the “four-chord progression,” this is incredibly popular in modern pop )"
        R"(and rock music. It starts with the tonic (C major), moves to the dominant (G major), then to the )"
        R"(relative minor (A minor), and resolves to the subdominant (F major)."})");
    for (const char* key : {"Bb", "B♭"}) {
        const auto minor = json({"progression", "i-VI-III-VII", "--key", key, "--mode", "minor"});
        EXPECT_EQ(minor["names"].dump(), R"(["B♭ minor","G♭ major","D♭ major","A♭ major"])") << key;
        EXPECT_TRUE(contains(minor["description"].get<std::string>(), "(G♭ major)")) << key;
    }
    // numerals as a guitarist types them, and keys with their mode
    const std::vector<std::pair<std::vector<const char*>, std::string>> typed{
        {{"I V7 IV", "--key", "C"}, R"(["C major","G dominant 7th","F major"])"},
        {{"ii7, V7, Imaj7", "--key", "f"}, R"(["G minor 7th","C dominant 7th","F major 7th"])"},
        {{"i-VII-VI-V7", "--key", "Am"}, R"(["A minor","G major","F major","E dominant 7th"])"},
        {{"i iv v", "--key", "f#m"}, R"(["F♯ minor","B minor","C♯ minor"])"},
        {{"iiø V7b9 i", "--key", "c", "--mode", "minor"},
         R"(["D minor 7th flat 5","G dominant 7th flat 9th","C minor"])"},
        {{"vii° I", "--key", "G major"}, R"(["F♯ diminished","G major"])"},
    };
    for (auto [arguments, names] : typed) {
        arguments.insert(arguments.begin(), "progression");
        EXPECT_EQ(json(arguments)["names"].dump(), names) << arguments[1];
    }
    const auto spaced = json({"progression", "I V vi IV", "--key", "C"});
    EXPECT_TRUE(contains(spaced["description"].get<std::string>(), "(A minor)"))
        << "blank-separated numerals find the catalogue's description";
    EXPECT_EQ(json({"progression", "I-V7-IV", "--key", "C"})["description"], "")
        << "a progression outside the catalogue has no description";
    EXPECT_TRUE(contains(run({"progression", "I-IV-V", "--key", "D"}).out,
                         "D major  –  G major  –  A major"));

    const auto catalogue = json({"progressions"});
    ASSERT_EQ(catalogue.size(), 32u);
    EXPECT_EQ(catalogue[18]["progression"], "i-VI-III-VII");
    EXPECT_EQ(json({"progressions", "--mode", "major"}).size(), 18u);
    const auto minor = json({"progressions", "--mode", "minor"});
    ASSERT_EQ(minor.size(), 14u);
    EXPECT_EQ(
        minor[11].dump(),
        R"({"progression":"i-VII-VI-V","description":"The famous Andalusian cadence. The bass descends )"
        R"(step-by-step creating dramatic tension before resolving.","styles":["Cinematic","Dramatic"]})");
    EXPECT_TRUE(contains(run({"progressions"}).out, "the tonic (I)"))
        << "placeholders read as numerals";
}

TEST(TheoryCommandsTest, TheChordOfTheDay) {
    const core::TodayChordLibrary library;
    EXPECT_EQ(json({"today", "--date", "2025-01-01", "--category", "beginner"}).dump(),
              R"({"rootNote":"E","chordType":"minor","variant":0})");
    EXPECT_EQ(json({"today", "--date", "2024-12-31", "--category", "jazz"}),
              core::toJson(library.jazzChords()[365]));
    EXPECT_EQ(json({"today", "--date", "2025-12-31", "--category", "jazz"}),
              core::toJson(library.jazzChords()[364]));

    // without --category the stored setting decides
    ASSERT_EQ(run({"prefs", "set", "todayChordCategory", "advanced"}).status, 0);
    EXPECT_EQ(json({"today", "--date", "2025-01-01"}), core::toJson(library.advancedChords()[0]));
    ASSERT_EQ(run({"prefs", "set", "todayChordCategory", "beginner"}).status, 0);
    EXPECT_EQ(json({"today", "--date", "2025-01-01"}), core::toJson(library.beginnerChords()[0]));

    const auto text = run({"today", "--date", "2025-01-01", "--category", "beginner"}).out;
    EXPECT_TRUE(contains(text, "Chord of the day for 2025-01-01 (Beginner): E minor")) << text;
    EXPECT_TRUE(contains(text, "022000")) << text;
    EXPECT_TRUE(json({"today"}).contains("chordType")) << "today's date by default";
}

TEST(TheoryCommandsTest, SchedulingWritesPendingRequestsToTheStore) {
    const core::TodayChordLibrary library;
    const auto scheduled =
        json({"today", "--date", "2025-03-29", "--category", "jazz", "--schedule"});
    ASSERT_EQ(scheduled.size(), 3u);
    const std::set<std::string> titles(core::notificationTitles().begin(),
                                       core::notificationTitles().end());
    for (int i = 0; i < 3; ++i) {
        const auto& request = scheduled[static_cast<std::size_t>(i)];
        const int day = 29 + i;
        EXPECT_EQ(request["identifier"], "chordOfTheDay_jazz_2025_3_" + std::to_string(day));
        EXPECT_EQ(request["trigger"]["day"], day);
        EXPECT_EQ(request["trigger"]["hour"], 8);
        EXPECT_LE(request["trigger"]["minute"].get<int>(), 15);
        EXPECT_TRUE(titles.contains(request["title"].get<std::string>())) << request["title"];
        const auto chord =
            library.jazzChords()[static_cast<std::size_t>(87 + i)]; // 29 March is day 88
        const auto name = core::ChordDataManager::shared().name(chord.rootNote, chord.chordType,
                                                                chord.variant, 10);
        EXPECT_TRUE(contains(request["body"].get<std::string>(), name))
            << request["body"] << " / " << name;
        EXPECT_EQ(request["repeats"], false);
    }

    const auto twoMonths = json(
        {"today", "--date", "2025-12-31", "--category", "jazz", "--schedule", "--months", "2"});
    ASSERT_EQ(twoMonths.size(), 32u);
    EXPECT_EQ(twoMonths.back()["identifier"], "chordOfTheDay_jazz_2026_1_31");
    ASSERT_EQ(
        run({"today", "--date", "2025-12-31", "--category", "jazz", "--schedule", "--months", "2"})
            .status,
        0);

    personal::StoredNotificationCenter center(programStore());
    std::set<std::string> stored;
    for (const auto& request : center.pending())
        if (request.identifier.starts_with("chordOfTheDay_jazz_"))
            stored.insert(request.identifier);
    EXPECT_EQ(stored.size(), 35u) << "scheduling the same days again replaces their requests";
    EXPECT_TRUE(stored.contains("chordOfTheDay_jazz_2025_3_31"));
    EXPECT_TRUE(stored.contains("chordOfTheDay_jazz_2026_1_1"));
}

TEST(TheoryCommandsTest, AnUnreadableNotificationListStopsSchedulingAndStays) {
    auto store = programStore();
    const auto before = store->value(personal::keys::pendingNotificationRequests.name);
    const core::Bytes garbage{'[', '{'};
    ASSERT_TRUE(store->set(personal::keys::pendingNotificationRequests.name, garbage));
    const auto result = run({"today", "--date", "2025-06-30", "--schedule"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.out.empty());
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_TRUE(
        result.err.starts_with("The pending notifications in the preference store cannot be read"))
        << result.err;
    EXPECT_EQ(store->bytes(personal::keys::pendingNotificationRequests.name), garbage);
    if (before)
        ASSERT_TRUE(store->set(personal::keys::pendingNotificationRequests.name, *before));
    else
        ASSERT_TRUE(store->remove(personal::keys::pendingNotificationRequests.name));
}

TEST(TheoryCommandsTest, PatternsInTheirJsonForms) {
    const auto patterns = json({"patterns"});
    std::vector<std::string> keys;
    for (const auto& [key, value] : patterns.items())
        keys.push_back(key);
    EXPECT_EQ(keys,
              (std::vector<std::string>{"arpeggioSequences", "bassPatterns", "drumPatterns"}));
    ASSERT_EQ(patterns["arpeggioSequences"].size(), 12u);
    ASSERT_EQ(patterns["bassPatterns"].size(), 9u);
    ASSERT_EQ(patterns["drumPatterns"].size(), 11u);
    auto minimal = patterns["bassPatterns"][0];
    EXPECT_EQ(minimal["id"].get<std::string>().size(), 36u);
    minimal.erase("id");
    EXPECT_EQ(
        minimal.dump(),
        R"({"name":"Minimal","description":"","bassNotes":[)"
        R"({"noteDuration":0.5,"pitch":{"root":{}},"noteArticulation":{"pick":{}},"noteVelocity":120},)"
        R"({"noteDuration":0.5,"pitch":{"rest":{}},"noteArticulation":{"pick":{}},"noteVelocity":120}],)"
        R"("timeSignature":"4/4"})");
    const auto& threeO = patterns["arpeggioSequences"][3];
    EXPECT_EQ(threeO["name"], "ThreeO");
    EXPECT_EQ(threeO["associatedBassPatterns"][0]["bassPattern"]["name"], "One");
    EXPECT_EQ(threeO["associatedDrumPatterns"][0]["complexity"], 1);
    EXPECT_EQ(patterns["drumPatterns"][9]["drumNotes"][2].dump(),
              R"({"drumMIDINote":[{"noteType":0,"noteVelocity":120}],"noteDuration":0.0625})");
    EXPECT_NE(json({"patterns"})["bassPatterns"][0]["id"], patterns["bassPatterns"][0]["id"]);
    const auto text = run({"patterns"}).out;
    EXPECT_TRUE(contains(text, "m root 120, m rest 120"));
    EXPECT_TRUE(contains(text, "Directions: t thumb")) << "the letters of the steps are explained";
}

TEST(TheoryCommandsTest, BadInputIsOneLineOnStandardError) {
    const std::vector<std::pair<std::vector<const char*>, std::string>> cases{
        {{"lists", "slashChords"}, "No chord list for slashChords\n"},
        {{"lists", "Metal"}, ""},
        {{"filters", "13"},
         "Unknown filter: 13 (choose maj, min, 7th, dim, aug, sus, 5, 6, 9, 11 or add 13)\n"},
        {{"progression", "I-V", "--key", "H"}, "Unknown note: H\n"},
        {{"progression", "I-V", "--key", "C", "--mode", "Minor"},
         "Unknown mode: Minor (choose major or minor)\n"},
        {{"progression", "I-Q-V", "--key", "C"}, "Not a Roman numeral: Q\n"},
        {{"progression", "I--V", "--key", "C"}, "Missing a numeral in \"I--V\"\n"},
        {{"progression", "I-V", "--key", "Am", "--mode", "major"},
         "The key Am is minor, but --mode says major\n"},
        {{"progression", "I-V", "--key", "Adorian"},
         "Unknown key: Adorian (a note, then m for minor, e.g. A, Am, f#m, B♭)\n"},
        {{"progression", "I-Vsus7", "--key", "C"}, "Unknown chord suffix: sus7 in Vsus7\n"},
        {{"progression", "I-V"}, ""},
        {{"progressions", "--mode", "lydian"}, "Unknown mode: lydian (choose major or minor)\n"},
        {{"today", "--date", "2025-02-29"}, "Invalid date: 2025-02-29 (expected YYYY-MM-DD)\n"},
        {{"today", "--date", "25-1-1"}, "Invalid date: 25-1-1 (expected YYYY-MM-DD)\n"},
        {{"today", "--category", "expert"},
         "Unknown category: expert (choose beginner, advanced or jazz)\n"},
        {{"today", "--months", "2"}, ""},
        {{"today", "--schedule", "--months", "0"}, "The number of months must be 1 to 12: 0\n"},
        {{"patterns", "extra"}, ""},
    };
    for (const auto& [arguments, message] : cases) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 1) << arguments[1];
        EXPECT_TRUE(result.out.empty()) << arguments[1];
        ASSERT_FALSE(result.err.empty()) << arguments[1];
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        if (!message.empty()) {
            EXPECT_EQ(result.err, message);
        }
    }
}

} // namespace
} // namespace fq::cli
