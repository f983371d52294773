#pragma once

#include "fq/core/Chord.h"
#include "fq/core/NotificationCenter.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace fq::core {

namespace config {
/// Every chord-of-the-day list has one chord per day of a leap year.
inline constexpr std::size_t daysInList = 366;
/// A notification names its chord in at most this many characters before the short title.
inline constexpr std::size_t notificationNameLength = 10;
/// Notifications arrive at 8 in the morning, spread over the first quarter hour.
inline constexpr int notificationHour = 8;
inline constexpr int notificationLatestMinute = 15;
} // namespace config

/// The person's level, which picks the chord-of-the-day list.
enum class ChordCategory : std::uint8_t { beginner, advanced, jazz };

std::span<const ChordCategory, 3> allChordCategories();
/// "beginner", "advanced", "jazz"
std::string_view rawValue(ChordCategory category);
std::optional<ChordCategory> chordCategoryFromRawValue(std::string_view raw);
/// "Beginner", "Advanced", "Jazz"
std::string_view localizedTitle(ChordCategory category);

/// A whole number drawn uniformly from `low` to `high`, both included.
using RandomInteger = std::function<int(int low, int high)>;
/// Draws from a generator seeded once per process from the system's entropy.
RandomInteger systemRandomInteger();

/// The local date and time now, in the process's time zone.
DateComponents currentDateComponents();

/// Decodes a JSON array of chords; anything else gives an empty list.
std::vector<Chord> decodeChordList(std::string_view json);
/// Cuts a list to a year's length, or repeats it from the start until it fills one.
/// An empty list stays empty.
std::vector<Chord> fittedToYear(std::vector<Chord> chords);

/// The title and body texts a notification draws from.
std::span<const std::string_view, 7> notificationTitles();
/// The body with the chord's name in place; `index` 0 to 6.
std::string notificationBody(std::size_t index, std::string_view chordName);

/// One chord for each day of the year from a year-long list per level. The pick
/// depends on the day of the year alone, so every caller sees the same chord.
class TodayChordLibrary {
public:
    /// The lists embedded in the program.
    TodayChordLibrary();
    /// Lists given as they are decoded; each is fitted to a year.
    TodayChordLibrary(std::vector<Chord> beginner, std::vector<Chord> advanced,
                      std::vector<Chord> jazz);

    const std::vector<Chord>& beginnerChords() const { return beginner_; }
    const std::vector<Chord>& advancedChords() const { return advanced_; }
    const std::vector<Chord>& jazzChords() const { return jazz_; }
    const std::vector<Chord>& chords(ChordCategory category) const;
    /// The three lists one after another.
    std::vector<Chord> allChords() const;

    /// The chord of a calendar day; none for a date that does not exist.
    std::optional<Chord> chord(std::chrono::year_month_day date, ChordCategory category) const;

    /// Adds a notification for each day of the month `monthOffset` months after `now`
    /// that is still to come, at 8 o'clock and a random minute and second, with a
    /// title and body drawn at random. A request that cannot be added prints
    /// "Notification scheduling failed for <date>: <reason>" and the others go on.
    /// Gives the requests that were added.
    std::vector<NotificationRequest> scheduleNotifications(ChordCategory category, int monthOffset,
                                                           NotificationCenter& center,
                                                           const DateComponents& now,
                                                           const RandomInteger& random) const;

private:
    std::vector<Chord> beginner_;
    std::vector<Chord> advanced_;
    std::vector<Chord> jazz_;
};

} // namespace fq::core
