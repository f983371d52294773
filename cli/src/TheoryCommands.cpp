// The `lists`, `filters` and `today` commands; progressions and patterns have their own files.
#include "TheoryCommands.h"

#include "ChordInput.h"
#include "CommandSupport.h"
#include "FretDiagram.h"
#include "ListText.h"
#include "PatternCommands.h"
#include "ProgressionCommands.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/ChordLists.h>
#include <fq/core/ChordPositions.h>
#include <fq/core/TodayChordLibrary.h>
#include <fq/personal/PreferenceKeys.h>
#include <fq/personal/StoredNotificationCenter.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <memory>
#include <sstream>

namespace fq::cli {
namespace {

using core::Chord;
using core::ChordDataManager;
using Json = nlohmann::ordered_json;

// lists and filters

Json listJson(core::ChordListCategory category, const core::ChordList& list) {
    Json preferred = Json::array();
    for (const auto& [chord, frets] : list.preferredPositions)
        preferred.push_back({{"chord", core::toJson(chord)}, {"position", frets}});
    return {{"category", core::rawValue(category)}, {"title", list.title},
            {"description", list.description},      {"imageName", list.imageName},
            {"chords", chordArray(list.chords)},    {"preferredPositions", std::move(preferred)}};
}

void printList(std::ostream& out, core::ChordListCategory category, const core::ChordList& list,
               bool detailed) {
    out << fmt::format("{}  ({}, {} chords)\n", list.title, core::rawValue(category),
                       list.chords.size());
    out << wrapped(list.description, 78, "  ") << "\n";
    if (!detailed) {
        std::vector<std::string> names;
        for (const auto& chord : list.chords)
            names.push_back(chordName(chord));
        out << wrappedItems(names, 78, "    ", "    ") << "\n";
        return;
    }
    out << "\n";
    const auto& manager = ChordDataManager::shared();
    for (const auto& chord : list.chords) {
        const auto preferred = list.preferredPositions.find(chord);
        const auto shapes = core::positions(chord.rootNote, chord.chordType, chord.variant, 1,
                                            core::Tuning::standard);
        const auto shape = preferred != list.preferredPositions.end()
                               ? compactFrets(preferred->second)
                           : shapes.empty() ? std::string("-")
                                            : compactFrets(shapes.front().position);
        out << fmt::format("  {:<22} {:<12} {}\n", chordName(chord), shape,
                           fmt::join(manager.notes(chord.rootNote, chord.chordType), " "));
    }
}

core::ChordListCategory categoryFrom(std::string_view name) {
    const auto category = core::chordListCategoryFromRawValue(name);
    if (!category) {
        std::vector<std::string> names;
        for (const auto& [known, list] : core::Chords::lists())
            names.emplace_back(core::rawValue(known));
        throw CommandError(fmt::format("Unknown chord list: {} (choose {})", name, choices(names)));
    }
    if (!core::Chords::list(*category))
        throw CommandError(fmt::format("No chord list for {}", name));
    return *category;
}

// chord of the day

std::chrono::year_month_day dateFrom(std::string_view text) {
    const auto invalid = [&] {
        return CommandError(fmt::format("Invalid date: {} (expected YYYY-MM-DD)", text));
    };
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') throw invalid();
    const auto number = [&](std::size_t at, std::size_t length) {
        unsigned value = 0;
        const auto* first = text.data() + at;
        const auto [end, error] = std::from_chars(first, first + length, value);
        if (error != std::errc{} || end != first + length) throw invalid();
        return value;
    };
    const std::chrono::year_month_day date{std::chrono::year{static_cast<int>(number(0, 4))},
                                           std::chrono::month{number(5, 2)},
                                           std::chrono::day{number(8, 2)}};
    if (!date.ok()) throw invalid();
    return date;
}

std::string dateText(std::chrono::year_month_day date) {
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

/// The level the person chose, when the store can tell; beginner otherwise.
core::ChordCategory storedCategory() {
    try {
        const auto stored = personal::read(*appStore(), personal::keys::todayChordCategory);
        return core::chordCategoryFromRawValue(stored).value_or(core::ChordCategory::beginner);
    } catch (const CommandError&) {
        return core::ChordCategory::beginner;
    }
}

core::ChordCategory categoryOf(const std::string& name) {
    const auto category = core::chordCategoryFromRawValue(name);
    if (!category)
        throw CommandError(
            fmt::format("Unknown category: {} (choose beginner, advanced or jazz)", name));
    return *category;
}

void printTodayChord(std::ostream& out, std::chrono::year_month_day date,
                     core::ChordCategory category, const Chord& chord) {
    const auto& manager = ChordDataManager::shared();
    auto notes = manager.notes(chord.rootNote, chord.chordType);
    std::rotate(notes.begin(), notes.begin() + chord.variant, notes.end());
    out << fmt::format("Chord of the day for {} ({}): {}\n\n", dateText(date),
                       core::localizedTitle(category), chordName(chord));
    out << fmt::format("  Notes  {}\n", fmt::join(notes, "  "));
    const auto shapes =
        core::positions(chord.rootNote, chord.chordType, chord.variant, 1, core::Tuning::standard);
    if (shapes.empty()) return;
    out << fmt::format("  Shape  {}\n\n", compactFrets(shapes.front().position));
    for (const auto& line : renderFretDiagram(shapes.front().position, shapes.front().fingering,
                                              core::Tuning::standard, preferredDiagramForm()))
        out << "  " << line << "\n";
}

template <typename T>
Json jsonArray(const std::vector<T>& items) {
    Json array = Json::array();
    for (const auto& item : items)
        array.push_back(core::toJson(item));
    return array;
}

} // namespace

void addTheoryCommands(CLI::App& app, CommandContext& context) {
    // lists
    struct ListsOptions {
        std::string category;
        bool json = false;
    };
    auto lists = std::make_shared<ListsOptions>();
    auto* listsCommand = app.add_subcommand(
        "lists", "Curated chord packs: common, first chords, barre, jazz, blues, …");
    listsCommand->add_option("CATEGORY", lists->category,
                             "One pack, e.g. commonChords, jazzChords, rnb");
    listsCommand->add_flag("--json", lists->json, "Print JSON");
    listsCommand->callback([&context, lists] {
        *context.action = [&context, lists] {
            if (!lists->category.empty()) {
                const auto category = categoryFrom(lists->category);
                const auto& list = *core::Chords::list(category);
                useShapeMemo();
                if (lists->json)
                    context.out << listJson(category, list).dump() << "\n";
                else
                    printList(context.out, category, list, true);
                return 0;
            }
            Json all = Json::array();
            for (const auto& [category, list] : core::Chords::lists()) {
                if (lists->json)
                    all.push_back(listJson(category, list));
                else {
                    printList(context.out, category, list, false);
                    context.out << "\n";
                }
            }
            if (lists->json)
                context.out << all.dump() << "\n";
            else
                context.out << "Shapes and notes of one pack: fretquill lists CATEGORY\n";
            return 0;
        };
    });

    // filters
    struct FiltersOptions {
        std::string key;
        bool json = false;
    };
    auto filters = std::make_shared<FiltersOptions>();
    auto* filtersCommand = app.add_subcommand(
        "filters", "The library's short filter keys and the chord types under each");
    filtersCommand->add_option("KEY", filters->key, "One filter, e.g. maj, 7th, sus, \"add 13\"");
    filtersCommand->add_flag("--json", filters->json, "Print JSON");
    filtersCommand->callback([&context, filters] {
        *context.action = [&context, filters] {
            const auto& all = core::ChordFilters::shared();
            if (!filters->key.empty()) {
                const auto* types = all.types(filters->key);
                if (!types)
                    throw CommandError(
                        fmt::format("Unknown filter: {} (choose {})", filters->key,
                                    choices({all.keys().begin(), all.keys().end()})));
                if (filters->json)
                    context.out << Json(*types).dump() << "\n";
                else
                    for (const auto& type : *types)
                        context.out << type << "\n";
                return 0;
            }
            Json object = Json::object();
            for (const auto key : all.keys())
                object[std::string(key)] = *all.types(key);
            if (filters->json)
                context.out << object.dump() << "\n";
            else
                for (const auto key : all.keys())
                    context.out << wrappedItems(*all.types(key), 78, fmt::format("{:<8}", key),
                                                "        ")
                                << "\n";
            return 0;
        };
    });

    // today
    struct TodayOptions {
        std::string date;
        std::string category;
        bool schedule = false;
        int months = 1;
        bool json = false;
    };
    auto today = std::make_shared<TodayOptions>();
    auto* todayCommand = app.add_subcommand("today", "The chord of the day, and its notifications");
    todayCommand->add_option("--date", today->date, "Another day than today, as YYYY-MM-DD");
    todayCommand->add_option(
        "--category", today->category,
        "beginner, advanced or jazz (default: the todayChordCategory setting)");
    auto* scheduleFlag = todayCommand->add_flag("--schedule", today->schedule,
                                                "Schedule a notification for each coming day of "
                                                "this month (from --date when given) in the store");
    todayCommand
        ->add_option("--months", today->months,
                     "With --schedule: this month and the next N-1 (default 1)")
        ->needs(scheduleFlag);
    todayCommand->add_flag("--json", today->json, "Print JSON");
    todayCommand->callback([&context, today] {
        *context.action = [&context, today] {
            const auto category =
                today->category.empty() ? storedCategory() : categoryOf(today->category);
            const auto now = today->date.empty() ? core::currentDateComponents() : [&] {
                const auto date = dateFrom(today->date);
                return core::DateComponents{static_cast<int>(date.year()),
                                            static_cast<int>(static_cast<unsigned>(date.month())),
                                            static_cast<int>(static_cast<unsigned>(date.day())),
                                            0,
                                            0,
                                            0};
            }();
            const std::chrono::year_month_day date{
                std::chrono::year{now.year}, std::chrono::month{static_cast<unsigned>(now.month)},
                std::chrono::day{static_cast<unsigned>(now.day)}};
            const core::TodayChordLibrary library;
            if (!today->schedule) {
                const auto chord = library.chord(date, category);
                if (!chord)
                    throw CommandError(fmt::format("No chord of the day for {}", dateText(date)));
                useShapeMemo();
                if (today->json)
                    context.out << core::toJson(*chord).dump() << "\n";
                else
                    printTodayChord(context.out, date, category, *chord);
                return 0;
            }
            if (today->months < 1 || today->months > 12)
                throw CommandError(
                    fmt::format("The number of months must be 1 to 12: {}", today->months));
            personal::StoredNotificationCenter center(appStore());
            valueOrThrow(
                center.read()); // refuse before scheduling anything into an unreadable list
            const auto random = core::systemRandomInteger();
            std::vector<core::NotificationRequest> added;
            for (int offset = 0; offset < today->months; ++offset) {
                auto month = library.scheduleNotifications(category, offset, center, now, random);
                added.insert(added.end(), month.begin(), month.end());
            }
            if (today->json) {
                context.out << jsonArray(added).dump() << "\n";
                return 0;
            }
            context.out << fmt::format(
                "Scheduled {} chord-of-the-day notification{} ({}) in the preference store.\n",
                added.size(), added.size() == 1 ? "" : "s", core::localizedTitle(category));
            if (!added.empty()) context.out << "\n";
            for (const auto& request : added)
                context.out << fmt::format("  {}  {}\n  {:<19}  {}\n",
                                           core::toText(request.trigger), request.title, "",
                                           request.body);
            return 0;
        };
    });

    addProgressionCommands(app, context);
    addPatternCommands(app, context);
}

} // namespace fq::cli
