#include "TheoryCommands.h"

#include "ChordInput.h"
#include "CommandSupport.h"
#include "FretDiagram.h"

#include <fq/core/AccompanimentPatterns.h>
#include <fq/core/ChordDataManager.h>
#include <fq/core/ChordLists.h>
#include <fq/core/ChordPositions.h>
#include <fq/core/ChordProgressions.h>
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
namespace Progressions = core::ChordProgressions;

std::string chordName(const Chord& chord) {
    return ChordDataManager::shared().name(chord.rootNote, chord.chordType, chord.variant);
}

Json chordArray(const std::vector<Chord>& chords) {
    Json array = Json::array();
    for (const auto& chord : chords)
        array.push_back(core::toJson(chord));
    return array;
}

/// Characters as the terminal shows them, not bytes.
std::size_t characters(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

/// Items joined by ", ", broken into lines between items rather than inside one.
std::string wrappedItems(const std::vector<std::string>& items, std::size_t width,
                         std::string_view firstIndent, std::string_view indent) {
    std::string result(firstIndent);
    std::size_t lineLength = characters(firstIndent);
    bool lineEmpty = true;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const auto item = items[i] + (i + 1 < items.size() ? "," : "");
        const auto length = characters(item);
        if (!lineEmpty && lineLength + 1 + length > width) {
            result.append("\n").append(indent);
            lineLength = characters(indent);
            lineEmpty = true;
        }
        if (!lineEmpty) {
            result += ' ';
            ++lineLength;
        }
        result += item;
        lineLength += length;
        lineEmpty = false;
    }
    return result;
}

/// "a, b or c" for the one-line errors that name what would have been accepted.
template <typename Range>
std::string choices(const Range& names) {
    std::vector<std::string> all;
    for (const auto& name : names)
        all.emplace_back(name);
    if (all.size() < 2) return fmt::format("{}", fmt::join(all, ""));
    const auto last = all.back();
    all.pop_back();
    return fmt::format("{} or {}", fmt::join(all, ", "), last);
}

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
        std::vector<std::string_view> names;
        for (const auto& [known, list] : core::Chords::lists())
            names.push_back(core::rawValue(known));
        throw CommandError(fmt::format("Unknown chord list: {} (choose {})", name, choices(names)));
    }
    if (!core::Chords::list(*category))
        throw CommandError(fmt::format("No chord list for {}", name));
    return *category;
}

// progressions

void requireNumerals(std::string_view progression) {
    std::size_t start = 0;
    for (auto end = progression.find('-');; end = progression.find('-', start)) {
        const auto token =
            progression.substr(start, end == std::string_view::npos ? end : end - start);
        if (token.find_first_not_of(" \t\r\n") == std::string_view::npos)
            throw CommandError(fmt::format("Missing a numeral in \"{}\"", progression));
        if (token.find_first_of("IVXivx") == std::string_view::npos)
            throw CommandError(fmt::format("Not a Roman numeral: {}", token));
        if (end == std::string_view::npos) return;
        start = end + 1;
    }
}

std::string modeFrom(const std::string& mode) {
    if (mode != "major" && mode != "minor")
        throw CommandError(fmt::format("Unknown mode: {} (choose major or minor)", mode));
    return mode;
}

/// A description as the catalogue writes it, with the placeholders' hyphens removed.
std::string plainDescription(std::string_view description) {
    std::string text(description);
    for (auto found = text.find("--"); found != std::string::npos; found = text.find("--", found))
        text.erase(found, 2);
    return text;
}

void printProgressions(std::ostream& out, std::string_view heading,
                       const std::vector<core::ChordProgression>& records) {
    out << heading << "\n\n";
    for (const auto& record : records) {
        std::vector<std::string_view> styles;
        for (const auto style : record.styles)
            styles.push_back(core::rawValue(style));
        out << fmt::format("  {:<16} {}\n", record.progression, fmt::join(styles, ", "));
        out << wrapped(plainDescription(record.description), 78, "    ") << "\n\n";
    }
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
                                              core::Tuning::standard))
        out << "  " << line << "\n";
}

// patterns

std::string_view durationLetter(core::NoteDuration duration) {
    constexpr std::array<std::string_view, 6> letters{"sb", "m", "c", "q", "s", "d"};
    return letters[static_cast<std::size_t>(duration)];
}

std::string stepsText(const core::BassPattern& pattern) {
    std::vector<std::string> steps;
    for (const auto& note : pattern.bassNotes)
        steps.push_back(fmt::format("{} {} {}", durationLetter(note.noteDuration),
                                    core::caseName(note.pitch), note.noteVelocity));
    return fmt::format("{}", fmt::join(steps, ", "));
}

std::string stepsText(const core::DrumPattern& pattern) {
    std::vector<std::string> steps;
    for (const auto& step : pattern.drumNotes) {
        std::vector<std::string> hits;
        for (const auto& hit : step.drumMIDINote)
            hits.push_back(fmt::format("{} {}", core::caseName(hit.noteType), hit.noteVelocity));
        steps.push_back(
            fmt::format("{} {}", durationLetter(step.noteDuration), fmt::join(hits, " + ")));
    }
    return fmt::format("{}", fmt::join(steps, "; "));
}

std::string stepsText(const core::ArpeggioSequence& sequence) {
    std::vector<std::string> steps;
    for (const auto& step : sequence.sequence) {
        std::vector<std::string> notes;
        for (const auto& note : step)
            notes.push_back(fmt::format("{} {} {}", durationLetter(note.noteDuration),
                                        core::caseName(note.arpeggioDirection), note.noteVelocity));
        steps.push_back(fmt::format("{}", fmt::join(notes, " + ")));
    }
    return fmt::format("{}", fmt::join(steps, "; "));
}

void printPatterns(std::ostream& out) {
    out << "Picking patterns (duration, direction, velocity; + sounds together)\n\n";
    for (const auto& sequence : core::arpeggioSequences()) {
        std::vector<std::string> bass, drums;
        for (const auto& b : sequence.associatedBassPatterns)
            bass.push_back(b.bassPattern.name);
        for (const auto& d : sequence.associatedDrumPatterns)
            drums.push_back(d.drumPattern.name);
        out << fmt::format("  {:<10} {}\n", sequence.name, core::rawValue(sequence.timeSignature));
        out << wrapped(stepsText(sequence), 78, "    ") << "\n";
        out << wrappedItems(bass, 78, "    bass:  ", "           ") << "\n";
        out << wrappedItems(drums, 78, "    drums: ", "           ") << "\n\n";
    }
    out << "Bass patterns\n\n";
    for (const auto& pattern : core::bassPatterns())
        out << fmt::format("  {:<12} {}  {}\n", pattern.name, core::rawValue(pattern.timeSignature),
                           stepsText(pattern));
    out << "\nDrum patterns\n\n";
    for (const auto& pattern : core::drumPatterns()) {
        out << fmt::format("  {:<15} {}\n", pattern.name, core::rawValue(pattern.timeSignature));
        out << wrapped(stepsText(pattern), 78, "    ") << "\n";
    }
    out << "\nDurations: m minim, c crochet, q quaver, s semiquaver, d demisemiquaver.\n";
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
                    throw CommandError(fmt::format("Unknown filter: {} (choose {})", filters->key,
                                                   choices(all.keys())));
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

    // progression
    struct ProgressionOptions {
        std::string numerals;
        std::string key;
        std::string mode = "major";
        bool json = false;
    };
    auto progression = std::make_shared<ProgressionOptions>();
    auto* progressionCommand = app.add_subcommand(
        "progression", "The chords of a progression in Roman numerals, in a key");
    progressionCommand
        ->add_option("NUMERALS", progression->numerals,
                     "Numerals joined by -, e.g. I-V-vi-IV or i-♭VII-♭VI")
        ->required();
    progressionCommand->add_option("--key", progression->key, "The key's note, e.g. C, F#, B♭")
        ->required();
    progressionCommand->add_option("--mode", progression->mode, "major (the default) or minor");
    progressionCommand->add_flag("--json", progression->json, "Print JSON");
    progressionCommand->callback([&context, progression] {
        *context.action = [&context, progression] {
            const auto key = noteFromUserText(progression->key);
            if (!key) throw CommandError(fmt::format("Unknown note: {}", progression->key));
            const auto mode = modeFrom(progression->mode);
            requireNumerals(progression->numerals);
            const auto chords = Progressions::chords(*key, mode, progression->numerals);
            const auto names = Progressions::chordNames(*key, mode, progression->numerals);
            const auto description =
                Progressions::filledDescription(progression->numerals, *key, mode);
            if (progression->json) {
                context.out << Json{{"chords", chordArray(chords)},
                                    {"names", names},
                                    {"description", description}}
                                   .dump()
                            << "\n";
                return 0;
            }
            context.out << fmt::format("{} in {} {}\n\n", progression->numerals,
                                       core::rawValue(*key), mode);
            if (names.empty())
                context.out << "  No chord can be spelled from these numerals.\n";
            else
                context.out << fmt::format("  {}\n", fmt::join(names, "  –  "));
            if (!description.empty()) context.out << "\n" << wrapped(description, 78, "  ") << "\n";
            return 0;
        };
    });

    // progressions
    struct ProgressionsOptions {
        std::string mode;
        bool json = false;
    };
    auto progressions = std::make_shared<ProgressionsOptions>();
    auto* progressionsCommand =
        app.add_subcommand("progressions", "The catalogue of progressions, in display order");
    progressionsCommand->add_option("--mode", progressions->mode,
                                    "Only major or only minor progressions");
    progressionsCommand->add_flag("--json", progressions->json, "Print JSON");
    progressionsCommand->callback([&context, progressions, progressionsCommand] {
        *context.action = [&context, progressions, progressionsCommand] {
            std::vector<std::string> modes{"major", "minor"};
            if (progressionsCommand->count("--mode") > 0) modes = {modeFrom(progressions->mode)};
            Json all = Json::array();
            for (const auto& mode : modes) {
                const auto records = Progressions::all(mode);
                if (progressions->json)
                    for (const auto& record : records)
                        all.push_back(core::toJson(record));
                else
                    printProgressions(context.out, mode == "major" ? "Major keys" : "Minor keys",
                                      records);
            }
            if (progressions->json)
                context.out << all.dump() << "\n";
            else
                context.out << "In a key: fretquill progression I-V-vi-IV --key G\n";
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

    // patterns
    struct PatternsOptions {
        bool json = false;
    };
    auto patterns = std::make_shared<PatternsOptions>();
    auto* patternsCommand = app.add_subcommand(
        "patterns", "The jam's picking, bass and drum patterns, with the ones that go together");
    patternsCommand->add_flag("--json", patterns->json, "Print JSON");
    patternsCommand->callback([&context, patterns] {
        *context.action = [&context, patterns] {
            if (patterns->json)
                context.out << Json{{"arpeggioSequences", jsonArray(core::arpeggioSequences())},
                                    {"bassPatterns", jsonArray(core::bassPatterns())},
                                    {"drumPatterns", jsonArray(core::drumPatterns())}}
                                   .dump()
                            << "\n";
            else
                printPatterns(context.out);
            return 0;
        };
    });
}

} // namespace fq::cli
