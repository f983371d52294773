// The chord of the day: the pick by date, the embedded lists, and scheduled notifications.
#include "fq/core/TodayChordLibrary.h"

#include "fq/core/ChordDataManager.h"
#include "fq/core/ChordPositions.h"
#include "fq/core/Diagnostics.h"

#include <fq/core/CapturedDiagnostics.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <set>

namespace fq::core {
namespace {

using namespace std::chrono;

/// A list whose entries tell their position: the variant is the index.
std::vector<Chord> numbered(std::size_t count) {
    std::vector<Chord> chords;
    for (std::size_t i = 0; i < count; ++i)
        chords.push_back(Chord{Note::C, "major", static_cast<int>(i)});
    return chords;
}

TEST(TodayChordLibraryTest, ListsAreFittedToAYear) {
    const auto ten = fittedToYear(numbered(10));
    ASSERT_EQ(ten.size(), 366u);
    EXPECT_EQ(ten[10], ten[0]);
    EXPECT_EQ(ten[365], ten[5]);
    EXPECT_EQ(ten[365].variant, 5);
    const auto long_ = fittedToYear(numbered(400));
    ASSERT_EQ(long_.size(), 366u);
    EXPECT_EQ(long_.back().variant, 365);
    EXPECT_EQ(fittedToYear(numbered(366)), numbered(366));
    EXPECT_EQ(fittedToYear(numbered(1)), std::vector<Chord>(366, Chord{Note::C, "major", 0}));
    EXPECT_TRUE(fittedToYear({}).empty());
}

TEST(TodayChordLibraryTest, UndecodableListsAreEmpty) {
    EXPECT_EQ(
        decodeChordList(
            R"([{"rootNote":"E♭","chordType":"minor","variant":0},{"rootNote":"G","chordType":"5"}])"),
        (std::vector<Chord>{{Note::Ef, "minor", 0}, {Note::G, "5", 0}}));
    for (const char* bad :
         {"", "{}", "[1]", R"([{"rootNote":"Eb","chordType":"minor"}])", "[{\"rootNote\":"})
        EXPECT_TRUE(decodeChordList(bad).empty()) << bad;
    EXPECT_TRUE(TodayChordLibrary({}, numbered(3), {}).beginnerChords().empty());
}

TEST(TodayChordLibraryTest, ThePickFollowsTheDayOfTheYear) {
    const TodayChordLibrary library(numbered(366), numbered(10), numbered(400));
    struct Row {
        year_month_day date;
        int beginner;
        int advanced;
    };
    const std::vector<Row> rows{
        {2025y / January / 1, 0, 0},     {2025y / February / 1, 31, 1},
        {2024y / February / 29, 59, 9},  {2024y / March / 1, 60, 0},
        {2025y / March / 1, 59, 9},      {2024y / December / 31, 365, 5},
        {2025y / December / 31, 364, 4},
    };
    for (const auto& [date, beginner, advanced] : rows) {
        SCOPED_TRACE(testing::Message()
                     << static_cast<int>(date.year()) << "-" << static_cast<unsigned>(date.month())
                     << "-" << static_cast<unsigned>(date.day()));
        EXPECT_EQ(library.chord(date, ChordCategory::beginner)->variant, beginner);
        EXPECT_EQ(library.chord(date, ChordCategory::advanced)->variant, advanced);
        EXPECT_EQ(library.chord(date, ChordCategory::beginner),
                  library.chord(date, ChordCategory::beginner));
    }
    EXPECT_FALSE(library.chord(2025y / February / 29, ChordCategory::jazz));
    EXPECT_FALSE(library.chord(2025y / 13 / 1, ChordCategory::jazz));
    EXPECT_EQ(library.allChords().size(), 3u * 366u);
    EXPECT_EQ(library.allChords()[366].variant, 0);
    EXPECT_EQ(library.allChords()[376].variant, 0) << "the advanced list starts over after ten";
}

TEST(TodayChordLibraryTest, CategoriesReadBackAndBodiesNameTheChord) {
    for (const auto category : allChordCategories())
        EXPECT_EQ(chordCategoryFromRawValue(rawValue(category)), category);
    EXPECT_FALSE(chordCategoryFromRawValue("Beginner"));
    for (int i = 0; i < 7; ++i)
        EXPECT_NE(notificationBody(i, "G7").find("G7"), std::string::npos) << i;
}

// The embedded lists are what a person practises all year: they must decode, name
// catalogue chords a guitar can play, and keep to their level.
class EmbeddedListsTest : public testing::Test {
protected:
    static std::set<Chord> distinct(const std::vector<Chord>& chords) {
        return {chords.begin(), chords.end()};
    }
    const TodayChordLibrary library_;
};

TEST_F(EmbeddedListsTest, EveryChordIsInTheCatalogueAndHasAShape) {
    for (const auto category : allChordCategories()) {
        const auto& list = library_.chords(category);
        ASSERT_EQ(list.size(), 366u) << rawValue(category);
        for (const auto& chord : distinct(list)) {
            const auto* data = ChordDataManager::shared().chordData(chord.chordType);
            ASSERT_NE(data, nullptr) << chord.chordType;
            EXPECT_LT(static_cast<std::size_t>(chord.variant), data->notes.size());
            EXPECT_FALSE(
                positions(chord.rootNote, chord.chordType, chord.variant, 1, Tuning::standard)
                    .empty())
                << rawValue(chord.rootNote) << " " << chord.chordType << " " << chord.variant;
        }
    }
}

TEST_F(EmbeddedListsTest, EachLevelKeepsToItsKindOfChord) {
    const std::set<std::string> beginnerTypes{"major",     "minor",     "dominant 7th",
                                              "minor 7th", "major 7th", "5"};
    const auto beginner = distinct(library_.beginnerChords());
    for (const auto& chord : beginner) {
        EXPECT_TRUE(beginnerTypes.contains(chord.chordType)) << chord.chordType;
        EXPECT_EQ(chord.variant, 0);
    }
    // one chord at a time: the first week holds only two or three chords
    const std::vector<Chord> firstWeek(library_.beginnerChords().begin(),
                                       library_.beginnerChords().begin() + 7);
    EXPECT_LE(distinct(firstWeek).size(), 3u);
    EXPECT_GE(beginner.size(), 20u);

    std::map<std::string, int> advancedKinds;
    for (const auto& chord : library_.advancedChords()) {
        if (chord.variant > 0) ++advancedKinds["inversion"];
        if (chord.chordType.find("suspended") != std::string::npos) ++advancedKinds["sus"];
        if (chord.chordType.find("add 9") != std::string::npos) ++advancedKinds["add9"];
        if (chord.chordType == "6" || chord.chordType.find("minor 6") == 0)
            ++advancedKinds["sixth"];
        if (chord.rootNote == Note::F && chord.chordType == "major" && chord.variant == 0)
            ++advancedKinds["barre"];
    }
    for (const char* kind : {"inversion", "sus", "add9", "sixth", "barre"})
        EXPECT_GE(advancedKinds[kind], 5) << kind;

    for (const auto& chord : distinct(library_.jazzChords()))
        EXPECT_GE(ChordDataManager::shared().chordData(chord.chordType)->notes.size(), 4u)
            << chord.chordType << ": jazz voicings have at least a seventh or a sixth";
}

/// Keeps requests in memory; refuses the identifiers it is told to.
class MemoryCenter : public NotificationCenter {
public:
    tl::expected<void, Error> add(const NotificationRequest& request) override {
        if (refused.contains(request.identifier)) return tl::unexpected(Error{"disk full"});
        for (auto& existing : requests)
            if (existing.identifier == request.identifier) {
                existing = request;
                return {};
            }
        requests.push_back(request);
        return {};
    }
    tl::expected<void, Error> removePending(std::span<const std::string> identifiers) override {
        std::erase_if(requests, [&](const NotificationRequest& r) {
            return std::find(identifiers.begin(), identifiers.end(), r.identifier) !=
                   identifiers.end();
        });
        return {};
    }
    std::vector<NotificationRequest> pending() const override { return requests; }

    std::vector<NotificationRequest> requests;
    std::set<std::string> refused;
};

/// Always draws minute 7, second 33 and the fourth title and body, and records the ranges asked
/// for.
struct ScriptedRandom {
    std::vector<std::pair<int, int>> ranges;
    RandomInteger function() {
        return [this](int low, int high) {
            ranges.emplace_back(low, high);
            if (high == 15) return 7;
            if (high == 59) return 33;
            return 3;
        };
    }
};

class ScheduleTest : public testing::Test {
protected:
    ScheduleTest() {
        auto beginner = numbered(366);
        beginner[58] = Chord{Note::G, "dominant 7th", 0}; // 28 February
        library_.emplace(beginner, numbered(366), numbered(366));
    }
    std::optional<TodayChordLibrary> library_;
    MemoryCenter center_;
    ScriptedRandom random_;
};

TEST_F(ScheduleTest, OnlyDaysStillToComeAreScheduled) {
    const auto added = library_->scheduleNotifications(ChordCategory::beginner, 0, center_,
                                                       {2025, 2, 27, 10, 0, 0}, random_.function());
    ASSERT_EQ(added.size(), 1u);
    ASSERT_EQ(center_.requests, added);
    const auto& request = added.front();
    EXPECT_EQ(request.identifier, "chordOfTheDay_beginner_2025_2_28");
    EXPECT_EQ(request.title, "Chord of the day!");
    // "dominant 7th" is longer than ten characters, so the short title stands in for it
    EXPECT_EQ(request.body, "Warm up with G 7 today!");
    EXPECT_EQ(request.trigger, (DateComponents{2025, 2, 28, 8, 7, 33}));
    EXPECT_EQ(request.sound, "default");
    EXPECT_EQ(request.badge, 1);
    EXPECT_FALSE(request.repeats);

    // minute and second are drawn for every day, title and body only for those scheduled
    std::vector<std::pair<int, int>> expected;
    for (int day = 1; day <= 27; ++day)
        expected.insert(expected.end(), {{0, 15}, {0, 59}});
    expected.insert(expected.end(), {{0, 15}, {0, 59}, {0, 6}, {0, 6}});
    EXPECT_EQ(random_.ranges, expected);
}

TEST_F(ScheduleTest, TheSameMomentIsNotPast) {
    const auto added = library_->scheduleNotifications(ChordCategory::beginner, 0, center_,
                                                       {2025, 2, 28, 8, 7, 33}, random_.function());
    EXPECT_EQ(added.size(), 1u);
    EXPECT_TRUE(library_
                    ->scheduleNotifications(ChordCategory::beginner, 0, center_,
                                            {2025, 2, 28, 8, 7, 34}, random_.function())
                    .empty());
}

TEST_F(ScheduleTest, MonthOffsetsAcrossYearsAndLeapDays) {
    struct Row {
        DateComponents now;
        int offset;
        std::size_t count;
        const char* first;
        const char* last;
    };
    // clang-format off
    const std::vector<Row> rows{
        {{2025, 11, 15, 12, 0, 0}, 2, 31, "chordOfTheDay_jazz_2026_1_1", "chordOfTheDay_jazz_2026_1_31"},
        {{2024, 2, 1, 0, 0, 0}, 0, 29, "chordOfTheDay_jazz_2024_2_1", "chordOfTheDay_jazz_2024_2_29"},
        {{2024, 1, 31, 23, 0, 0}, 1, 29, "chordOfTheDay_jazz_2024_2_1", "chordOfTheDay_jazz_2024_2_29"},
        {{2025, 4, 30, 9, 0, 0}, 0, 0, "", ""},
        {{2025, 3, 10, 0, 0, 0}, -1, 0, "", ""},
        {{2025, 2, 30, 0, 0, 0}, 0, 0, "", ""},
    };
    // clang-format on
    for (const auto& [now, offset, count, first, last] : rows) {
        MemoryCenter center;
        const auto added = library_->scheduleNotifications(ChordCategory::jazz, offset, center, now,
                                                           random_.function());
        ASSERT_EQ(added.size(), count) << toText(now) << " + " << offset;
        if (count == 0) continue;
        EXPECT_EQ(added.front().identifier, first);
        EXPECT_EQ(added.back().identifier, last);
    }
}

TEST_F(ScheduleTest, SchedulingTwiceReplacesAndFailuresAreSurvived) {
    const DateComponents now{2025, 2, 26, 12, 0, 0};
    library_->scheduleNotifications(ChordCategory::beginner, 0, center_, now, random_.function());
    library_->scheduleNotifications(ChordCategory::beginner, 0, center_, now, random_.function());
    EXPECT_EQ(center_.requests.size(), 2u) << "the 27th and the 28th, once each";

    MemoryCenter refusing;
    refusing.refused.insert("chordOfTheDay_advanced_2025_3_30");
    const CapturedDiagnostics diagnostics;
    const auto added = library_->scheduleNotifications(ChordCategory::advanced, 1, refusing, now,
                                                       random_.function());
    EXPECT_EQ(added.size(), 30u);
    EXPECT_EQ(refusing.requests.back().identifier, "chordOfTheDay_advanced_2025_3_31");
    EXPECT_EQ(diagnostics.lines(),
              std::vector<std::string>{
                  "Notification scheduling failed for 2025-03-30 08:07:33: disk full"});
}

TEST(TodayChordRandomTest, SystemDrawsStayInRange) {
    const auto random = systemRandomInteger();
    std::set<int> seen;
    for (int i = 0; i < 2000; ++i) {
        const int value = random(0, 15);
        ASSERT_GE(value, 0);
        ASSERT_LE(value, 15);
        seen.insert(value);
    }
    EXPECT_EQ(seen.size(), 16u);
}

TEST(NotificationRequestTest, JsonRoundTrip) {
    const NotificationRequest request{"chordOfTheDay_jazz_2026_1_9",
                                      "Chord of the day!",
                                      "Learn D♭maj7 — a must-know chord!",
                                      "default",
                                      1,
                                      {2026, 1, 9, 8, 15, 0},
                                      false};
    const auto json = toJson(request);
    EXPECT_EQ(
        json.dump(),
        R"({"identifier":"chordOfTheDay_jazz_2026_1_9","title":"Chord of the day!",)"
        R"("body":"Learn D♭maj7 — a must-know chord!","sound":"default","badge":1,)"
        R"("trigger":{"year":2026,"month":1,"day":9,"hour":8,"minute":15,"second":0},"repeats":false})");
    EXPECT_EQ(notificationRequestFromJson(nlohmann::json::parse(json.dump())), request);
    auto broken = nlohmann::json::parse(json.dump());
    broken["trigger"].erase("minute");
    EXPECT_EQ(notificationRequestFromJson(broken).error().message,
              "Missing integer value for key: minute");
    EXPECT_FALSE(notificationRequestFromJson(nlohmann::json::array()));
    EXPECT_EQ(toText(DateComponents{2025, 3, 9, 8, 7, 3}), "2025-03-09 08:07:03");
}

} // namespace
} // namespace fq::core
