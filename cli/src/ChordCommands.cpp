// The `chord` commands: show, shapes, types, fingering, match and similar.
#include "ChordCommands.h"

#include "ChordInput.h"
#include "CommandSupport.h"
#include "FretDiagram.h"
#include "ListText.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/ChordEngine.h>
#include <fq/core/ChordPositions.h>
#include <fq/core/ChordTexts.h>
#include <fq/core/Spelling.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <sstream>

namespace fq::cli {
namespace {

using core::Chord;
using core::ChordDataManager;
using Json = nlohmann::ordered_json;

std::string indented(const std::vector<std::string>& lines, std::string_view indent) {
    std::string text;
    for (const auto& line : lines)
        text += std::string(indent) + line + "\n";
    return text;
}

/// The notes of a chord with its bass first, as a guitarist reads an inversion.
std::string chordLine(const Chord& chord) {
    const auto& manager = ChordDataManager::shared();
    auto notes = manager.notes(chord.rootNote, chord.chordType);
    std::rotate(notes.begin(), notes.begin() + chord.variant, notes.end());
    return fmt::format("{:<22} {}", manager.name(chord.rootNote, chord.chordType, chord.variant),
                       fmt::join(notes, " "));
}

/// Checks a comma-separated note list before searching, so that a typing
/// mistake reads as one clear error rather than an empty result.
void requireNoteList(std::string_view text) {
    std::size_t start = 0;
    for (auto end = text.find(',');; end = text.find(',', start)) {
        auto token = text.substr(start, end == text.npos ? text.npos : end - start);
        const auto first = token.find_first_not_of(" \t\r\n");
        if (first == token.npos) throw CommandError(fmt::format("Missing a note in \"{}\"", text));
        token = token.substr(first, token.find_last_not_of(" \t\r\n") - first + 1);
        if (!core::pitchOfTypedNote(token))
            throw CommandError(fmt::format("Unknown note: {}", token));
        if (end == text.npos) return;
        start = end + 1;
    }
}

Json chordDetails(const Chord& chord) {
    const auto& manager = ChordDataManager::shared();
    const auto* data = manager.chordData(chord.chordType);
    return Json{
        {"chord", core::toJson(chord)},
        {"name", manager.name(chord.rootNote, chord.chordType, chord.variant)},
        {"shortestName", manager.shortestName(chord.rootNote, chord.chordType, chord.variant)},
        {"formula", data->formula},
        {"notes", manager.notes(chord.rootNote, chord.chordType)},
        {"intervalNames", manager.intervalNames(chord.chordType, chord.variant)},
        {"rootedIntervalNames", manager.rootedIntervalNames(chord.chordType, chord.variant)},
        {"aliases", manager.aliases(chord.rootNote, chord.chordType, chord.variant)},
        {"mood", core::chordMood(chord.chordType)},
        {"genres", core::chordGenres(chord.chordType)},
        {"description", core::chordDescription(chord.rootNote, chord.chordType)},
    };
}

void printChord(std::ostream& out, const Chord& chord) {
    const auto details = chordDetails(chord);
    const auto text = [&](const char* key) { return details[key].get<std::string>(); };
    const auto list = [&](const char* key) { return details[key].get<std::vector<std::string>>(); };
    out << fmt::format("{}  ({})\n\n", text("name"), text("shortestName"));
    out << fmt::format("  Notes       {}\n", fmt::join(list("notes"), "  "));
    out << fmt::format("  Formula     {}\n", text("formula"));
    out << fmt::format("  Intervals   {}\n", fmt::join(list("rootedIntervalNames"), ", "));
    if (const auto inversion = core::inversionFromVariant(chord.variant);
        inversion && chord.variant > 0)
        out << fmt::format("  Inversion   {}\n", core::localizedTitle(*inversion));
    out << fmt::format("  Also        {}\n", fmt::join(list("aliases"), ", "));
    out << fmt::format("  Mood        {}\n", text("mood"));
    out << fmt::format("  Genres      {}\n\n", text("genres"));
    out << wrapped(text("description"), 78, "  ") << "\n";
    const auto shapes =
        core::positions(chord.rootNote, chord.chordType, chord.variant, 1, core::Tuning::standard);
    if (!shapes.empty()) {
        const auto& shape = shapes.front();
        out << fmt::format("\n  First shape: {}   (all of them: fretquill chord shapes {})\n\n",
                           compactFrets(shape.position), text("shortestName"));
        out << indented(renderFretDiagram(shape.position, shape.fingering, core::Tuning::standard,
                                          preferredDiagramForm()),
                        "  ");
    }
}

/// Shapes a screen shows before it asks for --all.
constexpr std::size_t shownShapes = 12;

void printShapes(std::ostream& out, const Chord& chord,
                 const std::vector<core::ChordPosition>& shapes, std::size_t shown,
                 std::span<const std::string_view> tuning) {
    const auto name =
        ChordDataManager::shared().name(chord.rootNote, chord.chordType, chord.variant);
    out << fmt::format("{}: {} shape{} in {}\n\n", name, shapes.size(),
                       shapes.size() == 1 ? "" : "s", fmt::join(tuning, " "));
    if (shapes.empty()) return;
    const auto form = preferredDiagramForm();
    std::vector<std::vector<std::string>> diagrams;
    std::vector<std::string> titles;
    for (std::size_t i = 0; i < shown; ++i) {
        diagrams.push_back(
            renderFretDiagram(shapes[i].position, shapes[i].fingering, tuning, form));
        titles.push_back(fmt::format("{:>3}  {}", i + 1, compactFrets(shapes[i].position)));
    }
    out << renderDiagramRows(diagrams, titles, 5);
    if (shown < shapes.size())
        out << fmt::format("\n{} of {} (--all for every one)\n", shown, shapes.size());
}

void printTypes(std::ostream& out) {
    for (const auto& data : ChordDataManager::shared().catalogue())
        out << fmt::format("{:<24} {:<16} {}\n", data.title, data.shortTitle, data.formula);
}

} // namespace

void printWelcome(std::ostream& out) {
    useShapeMemo();
    out << "Fret Quill: chords, shapes and theory for the guitar.\n\n";
    printChord(out, Chord{core::Note::C, "major", 0});
    out << "\nGo on with:\n"
           "  fretquill chord show Am7                 any chord by name (\"C♯ minor 7th\", "
           "\"Bb7\", \"C/E\")\n"
           "  fretquill chord shapes G7                every shape, with fingers\n"
           "  fretquill chord shapes D --tuning dropD      in any tuning (fretquill tunings lists "
           "them)\n"
           "  fretquill chord fingering x32010         which finger goes where\n"
           "  fretquill chord match \"E, G, C\"          which chord has exactly these notes\n"
           "  fretquill chord similar \"C, E, B\"        chords close to these notes\n"
           "  fretquill --help                         every command; add --json for JSON\n";
}

void addChordCommands(CLI::App& app, CommandContext& context) {
    auto* chord = app.add_subcommand(
        "chord", "Look up chords: names, notes, shapes, fingers and descriptions");
    chord->require_subcommand(1);

    struct ShowOptions {
        ChordSelection chord;
        bool json = false;
    };
    auto show = std::make_shared<ShowOptions>();
    auto* showCommand =
        chord->add_subcommand("show", "Show a chord's names, notes, intervals and description");
    show->chord.addOptions(showCommand);
    showCommand->add_flag("--json", show->json, "Print JSON");
    showCommand->callback([&context, show] {
        *context.action = [&context, show] {
            const auto chosen = show->chord.resolve();
            useShapeMemo();
            if (show->json)
                context.out << chordDetails(chosen).dump() << "\n";
            else
                printChord(context.out, chosen);
            return 0;
        };
    });

    struct ShapesOptions {
        ChordSelection chord;
        std::string tuning = "E,A,D,G,B,E";
        int limit = -1;
        bool all = false;
        bool json = false;
    };
    auto shapes = std::make_shared<ShapesOptions>();
    auto* shapesCommand = chord->add_subcommand(
        "shapes", "Playable shapes of a chord with fingers: the first dozen, or --all");
    shapes->chord.addOptions(shapesCommand);
    shapesCommand->add_option("--tuning", shapes->tuning,
                              "A tuning by name in any case (dropD, DADGAD, …) or six open "
                              "notes, lowest string first: D,A,D,G,B,E or E2,A2,D3,G3,B3,E4");
    auto* limitOption =
        shapesCommand->add_option("--limit", shapes->limit, "Show only the first N shapes");
    shapesCommand->add_flag("--all", shapes->all, "Show every shape")->excludes(limitOption);
    shapesCommand->add_flag("--json", shapes->json,
                            "Print JSON: every shape, or the first N with --limit");
    shapesCommand->callback([&context, shapes] {
        *context.action = [&context, shapes] {
            const auto chosen = shapes->chord.resolve();
            const auto tuningNotes = valueOrThrow(tuningFromText(shapes->tuning));
            const std::vector<std::string_view> tuning(tuningNotes.begin(), tuningNotes.end());
            if (shapes->limit < -1)
                throw CommandError(fmt::format("The limit must be 0 or more: {}", shapes->limit));
            useShapeMemo();
            // A program reading JSON gets the whole list; a person reading boxes the first dozen.
            const auto list = core::positions(chosen.rootNote, chosen.chordType, chosen.variant,
                                              shapes->limit, tuning);
            if (shapes->json) {
                context.out << core::toJson(list).dump() << "\n";
                return 0;
            }
            const auto shown = shapes->all || shapes->limit >= 0
                                   ? list.size()
                                   : std::min(list.size(), shownShapes);
            printShapes(context.out, chosen, list, shown, tuning);
            return 0;
        };
    });

    auto typesJson = std::make_shared<bool>(false);
    auto* typesCommand = chord->add_subcommand(
        "types", "The catalogue's chord types, with short names and formulas");
    typesCommand->add_flag("--json", *typesJson, "Print JSON: an array of the type names");
    typesCommand->callback([&context, typesJson] {
        *context.action = [&context, typesJson] {
            if (!*typesJson) {
                printTypes(context.out);
                return 0;
            }
            auto names = Json::array();
            for (const auto& data : ChordDataManager::shared().catalogue())
                names.push_back(data.title);
            context.out << names.dump() << "\n";
            return 0;
        };
    });

    struct FingeringOptions {
        std::string frets;
        bool json = false;
    };
    auto fingering = std::make_shared<FingeringOptions>();
    auto* fingeringCommand =
        chord->add_subcommand("fingering", "Which finger goes on which string of a shape");
    fingeringCommand
        ->add_option("FRETS", fingering->frets,
                     "Six frets, lowest string first: x,3,2,0,1,0 or a link's code x32010")
        ->required();
    fingeringCommand->add_flag("--json", fingering->json, "Print JSON");
    fingeringCommand->callback([&context, fingering] {
        *context.action = [&context, fingering] {
            const auto frets = valueOrThrow(fretsFromText(fingering->frets));
            const auto fingers = core::ChordEngine::fingering(frets);
            if (fingering->json) {
                context.out << Json(fingers).dump() << "\n";
            } else if (fingers.empty()) {
                context.out << compactFrets(frets)
                            << ": no string is fretted, so no fingers are needed.\n";
            } else {
                context.out << fmt::format("{}: fingers {}\n\n", compactFrets(frets),
                                           fmt::join(fingers, " "));
                context.out << indented(renderFretDiagram(frets, fingers, core::Tuning::standard,
                                                          preferredDiagramForm()),
                                        "  ");
            }
            return 0;
        };
    });

    struct SearchOptions {
        std::string notes;
        bool json = false;
    };
    const auto addSearch = [&](const char* name, const char* help, auto search, const char* none) {
        auto options = std::make_shared<SearchOptions>();
        auto* command = chord->add_subcommand(name, help);
        command
            ->add_option("NOTES", options->notes, "Comma-separated notes, bass first: \"E, G, C\"")
            ->required();
        command->add_flag("--json", options->json, "Print JSON");
        command->callback([&context, options, search, none] {
            *context.action = [&context, options, search, none] {
                requireNoteList(options->notes);
                const auto chords = search(options->notes);
                if (options->json) {
                    context.out << chordArray(chords).dump() << "\n";
                } else if (chords.empty()) {
                    context.out << none << "\n";
                } else {
                    for (const auto& found : chords)
                        context.out << chordLine(found) << "\n";
                }
                return 0;
            };
        });
    };
    addSearch(
        "match", "Find the chords made of exactly these notes, the first in the bass",
        [](std::string_view notes) { return ChordDataManager::shared().chordsMatching(notes); },
        "No chord has exactly these notes.");
    addSearch(
        "similar", "Find chords whose notes contain, or are contained in, these notes",
        [](std::string_view notes) { return ChordDataManager::shared().similarChords(notes); },
        "No chord is close to these notes.");
}

} // namespace fq::cli
