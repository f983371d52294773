#include "fq/core/TodayChordLibrary.h"

#include "fq/core/ChordDataManager.h"
#include "fq/core/Diagnostics.h"
#include "fq/resources/fq_FrtLibCore.h"

#include <cassert>
#include <ctime>
#include <random>
#include <string>

namespace fq::core {
namespace {

using namespace std::chrono;

constexpr std::array<ChordCategory, 3> categories{ChordCategory::beginner, ChordCategory::advanced,
                                                  ChordCategory::jazz};
constexpr std::array<std::string_view, 3> categoryNames{"beginner", "advanced", "jazz"};
constexpr std::array<std::string_view, 3> categoryTitles{"Beginner", "Advanced", "Jazz"};

constexpr std::array<std::string_view, 7> titles{
    "Master this chord today!",         "Fret Quill Chord Spotlight!",
    "Today's chord on Fret Quill!",     "Chord of the day!",
    "Today's new chord on Fret Quill!", "Fresh Chord of the day!",
    "Sharpen your guitar skills",
};

/// Each body is the text before and after the chord's name.
constexpr std::array<std::pair<std::string_view, std::string_view>, 7> bodies{{
    {"Today's chord is ", ". Dive into its sound and feel!"},
    {"Explore the beauty of ", " chord today. Let's play!"},
    {"Learn ", " — a must-know chord!"},
    {"Warm up with ", " today!"},
    {"Get your fingers on ", " chord. Practice makes perfect!"},
    {"Today's pick: ", " chord. Let's jam!"},
    {"Work on ", " chord and level up your playing!"},
}};

} // namespace

std::span<const ChordCategory, 3> allChordCategories() {
    return categories;
}

std::string_view rawValue(ChordCategory category) {
    return categoryNames[static_cast<std::size_t>(category)];
}

std::optional<ChordCategory> chordCategoryFromRawValue(std::string_view raw) {
    for (std::size_t i = 0; i < categoryNames.size(); ++i)
        if (categoryNames[i] == raw) return categories[i];
    return std::nullopt;
}

std::string_view localizedTitle(ChordCategory category) {
    return categoryTitles[static_cast<std::size_t>(category)];
}

RandomInteger systemRandomInteger() {
    return [](int low, int high) {
        static thread_local std::mt19937 generator{std::random_device{}()};
        return std::uniform_int_distribution<int>{low, high}(generator);
    };
}

DateComponents currentDateComponents() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
            local.tm_hour,        local.tm_min,     local.tm_sec};
}

std::vector<Chord> decodeChordList(std::string_view json) {
    const auto document = nlohmann::json::parse(json, nullptr, false);
    if (!document.is_array()) return {};
    std::vector<Chord> chords;
    chords.reserve(document.size());
    for (const auto& item : document) {
        auto chord = chordFromJson(item);
        if (!chord) return {};
        chords.push_back(std::move(*chord));
    }
    return chords;
}

std::vector<Chord> fittedToYear(std::vector<Chord> chords) {
    if (chords.empty()) return chords;
    const auto original = chords.size();
    chords.reserve(config::daysInList);
    for (std::size_t i = 0; chords.size() < config::daysInList; ++i)
        chords.push_back(chords[i % original]);
    chords.resize(config::daysInList);
    return chords;
}

std::span<const std::string_view, 7> notificationTitles() {
    return titles;
}

std::string notificationBody(std::size_t index, std::string_view chordName) {
    const auto& [before, after] = bodies.at(index);
    return std::string(before).append(chordName).append(after);
}

TodayChordLibrary::TodayChordLibrary()
    : TodayChordLibrary(decodeChordList(resources::beginner_chords_json()),
                        decodeChordList(resources::advanced_chords_json()),
                        decodeChordList(resources::jazz_chords_json())) {}

TodayChordLibrary::TodayChordLibrary(std::vector<Chord> beginner, std::vector<Chord> advanced,
                                     std::vector<Chord> jazz)
    : beginner_(fittedToYear(std::move(beginner))), advanced_(fittedToYear(std::move(advanced))),
      jazz_(fittedToYear(std::move(jazz))) {}

const std::vector<Chord>& TodayChordLibrary::chords(ChordCategory category) const {
    switch (category) {
    case ChordCategory::beginner:
        return beginner_;
    case ChordCategory::advanced:
        return advanced_;
    case ChordCategory::jazz:
        return jazz_;
    }
    return beginner_;
}

std::vector<Chord> TodayChordLibrary::allChords() const {
    std::vector<Chord> all(beginner_);
    all.insert(all.end(), advanced_.begin(), advanced_.end());
    all.insert(all.end(), jazz_.begin(), jazz_.end());
    return all;
}

std::optional<Chord> TodayChordLibrary::chord(year_month_day date, ChordCategory category) const {
    if (!date.ok()) return std::nullopt;
    const auto& list = chords(category);
    assert(!list.empty() && "every chord-of-the-day list is embedded and decodes");
    if (list.empty()) return std::nullopt;
    const auto ordinal = (sys_days{date} - sys_days{date.year() / January / 1}).count() + 1;
    return list[static_cast<std::size_t>(ordinal - 1) % list.size()];
}

std::vector<NotificationRequest>
TodayChordLibrary::scheduleNotifications(ChordCategory category, int monthOffset,
                                         NotificationCenter& center, const DateComponents& now,
                                         const RandomInteger& random) const {
    const year_month_day today{year{now.year}, month{static_cast<unsigned>(now.month)},
                               day{static_cast<unsigned>(now.day)}};
    if (!today.ok()) return {};
    const auto target = year_month{today.year(), today.month()} + months{monthOffset};
    if (!target.ok()) return {};
    const auto lastDay = static_cast<unsigned>((target / last).day());
    const int targetYear = static_cast<int>(target.year());
    const int targetMonth = static_cast<int>(static_cast<unsigned>(target.month()));

    std::vector<NotificationRequest> added;
    for (unsigned dayOfMonth = 1; dayOfMonth <= lastDay; ++dayOfMonth) {
        const int minute = random(0, config::notificationLatestMinute);
        const int second = random(0, 59);
        const DateComponents when{
            targetYear, targetMonth, static_cast<int>(dayOfMonth), config::notificationHour,
            minute,     second};
        if (when < now) continue;
        const auto chosen = chord(target / day{dayOfMonth}, category);
        if (!chosen) continue;

        NotificationRequest request;
        request.title =
            titles[static_cast<std::size_t>(random(0, static_cast<int>(titles.size()) - 1))];
        const auto name = ChordDataManager::shared().name(
            chosen->rootNote, chosen->chordType, chosen->variant, config::notificationNameLength);
        request.body = notificationBody(
            static_cast<std::size_t>(random(0, static_cast<int>(bodies.size()) - 1)), name);
        request.trigger = when;
        request.identifier = "chordOfTheDay_" + std::string(rawValue(category)) + "_" +
                             std::to_string(targetYear) + "_" + std::to_string(targetMonth) + "_" +
                             std::to_string(dayOfMonth);
        if (auto done = center.add(request); !done) {
            diagnostic("Notification scheduling failed for " + toText(when) + ": " +
                       done.error().message);
            continue;
        }
        added.push_back(std::move(request));
    }
    return added;
}

} // namespace fq::core
