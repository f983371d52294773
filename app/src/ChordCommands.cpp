#include "ChordCommands.h"

#include "fq/app/ChordInput.h"
#include "fq/app/FretDiagram.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/ChordTexts.h>
#include <fq/core/Spelling.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <sstream>
#include <stdexcept>

namespace fq::app {
namespace {

using core::Chord;
using core::ChordDataManager;
using Json = nlohmann::ordered_json;

/// A command failure that reaches the person as one line on standard error.
struct CommandError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <typename T>
T valueOrThrow(tl::expected<T, Error> result) {
    if (!result) throw CommandError(result.error().message);
    return std::move(*result);
}

std::string wrapped(std::string_view text, std::size_t width, std::string_view indent) {
    std::string result;
    std::size_t lineLength = 0;
    std::istringstream words{std::string(text)};
    for (std::string word; words >> word;) {
        if (lineLength > 0 && lineLength + 1 + word.size() > width) {
            result += "\n";
            lineLength = 0;
        }
        if (lineLength == 0) {
            result += indent;
            lineLength = indent.size();
        } else {
            result += " ";
            ++lineLength;
        }
        result += word;
        lineLength += word.size();
    }
    return result;
}

Json chordArray(const std::vector<Chord>& chords) {
    Json array = Json::array();
    for (const auto& chord : chords) array.push_back(core::toJson(chord));
    return array;
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
    for (auto end = text.find(','); ; end = text.find(',', start)) {
        auto token = text.substr(start, end == text.npos ? text.npos : end - start);
        const auto first = token.find_first_not_of(" \t\r\n");
        if (first == token.npos) throw CommandError(fmt::format("Missing a note in \"{}\"", text));
        token = token.substr(first, token.find_last_not_of(" \t\r\n") - first + 1);
        if (!core::pitchOfTypedNote(token)) throw CommandError(fmt::format("Unknown note: {}", token));
        if (end == text.npos) return;
        start = end + 1;
    }
}

struct ShowOptions {
    std::string symbol;
    std::string root;
    std::string type = "major";
    int variant = 0;
    bool json = false;
};

Chord chordFromOptions(const ShowOptions& options, const CLI::App& command) {
    const bool byParts = command.count("--root") > 0;
    if (byParts && !options.symbol.empty())
        throw CommandError("Give either a chord symbol or --root with --type, not both");
    if (!byParts && options.symbol.empty())
        throw CommandError("Name a chord, e.g. \"Am7\", or give --root and --type");
    if (byParts) return valueOrThrow(chordFromParts(options.root, options.type, options.variant));
    auto chord = valueOrThrow(chordFromSymbol(options.symbol));
    if (command.count("--variant") > 0)
        chord = valueOrThrow(chordFromParts(core::rawValue(chord.rootNote), chord.chordType, options.variant));
    return chord;
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
    if (const auto inversion = core::inversionFromVariant(chord.variant); inversion && chord.variant > 0)
        out << fmt::format("  Inversion   {}\n", core::localizedTitle(*inversion));
    out << fmt::format("  Also        {}\n", fmt::join(list("aliases"), ", "));
    out << fmt::format("  Mood        {}\n", text("mood"));
    out << fmt::format("  Genres      {}\n\n", text("genres"));
    out << wrapped(text("description"), 78, "  ") << "\n";
    const auto shapes = ChordDataManager::shared().priorityPositions(chord);
    if (!shapes.empty()) {
        out << fmt::format("\n  A favourite shape: {}\n\n", compactFrets(shapes.front()));
        std::istringstream lines(renderFretDiagram(shapes.front()));
        for (std::string line; std::getline(lines, line);) out << "  " << line << "\n";
    }
}

} // namespace

void printWelcome(std::ostream& out) {
    out << "Fret Quill: chords, shapes and theory for the guitar.\n\n";
    printChord(out, Chord{core::Note::C, "major", 0});
    out << "\nGo on with:\n"
           "  fretquill chord show Am7                 any chord by name (\"C♯ minor 7th\", \"Bb7\", \"C/E\")\n"
           "  fretquill chord show --root F# --type \"minor 7th\" --variant 1\n"
           "  fretquill chord match \"E, G, C\"          which chord has exactly these notes\n"
           "  fretquill chord similar \"C, E, B\"        chords close to these notes\n"
           "  fretquill --help                         every command; add --json for JSON\n";
}

void addChordCommands(CLI::App& app, CommandContext& context) {
    auto* chord = app.add_subcommand("chord", "Look up chords: names, notes, formulas and descriptions");
    chord->require_subcommand(1);

    auto show = std::make_shared<ShowOptions>();
    auto* showCommand = chord->add_subcommand("show", "Show a chord's names, notes, intervals and description");
    showCommand->add_option("CHORD", show->symbol, "A chord symbol: Am7, \"C♯ minor 7th\", Bb7, C/E");
    showCommand->add_option("--root", show->root, "Root note, e.g. C, F#, E♭");
    showCommand->add_option("--type", show->type, "Catalogue chord type, e.g. \"minor 7th\" (default major)");
    showCommand->add_option("--variant", show->variant, "Inversion: 0 is root position, n puts note n in the bass");
    showCommand->add_flag("--json", show->json, "Print JSON");
    showCommand->callback([&context, show, showCommand] {
        *context.action = [&context, show, showCommand] {
            const auto chosen = chordFromOptions(*show, *showCommand);
            if (show->json) context.out << chordDetails(chosen).dump() << "\n";
            else printChord(context.out, chosen);
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
        command->add_option("NOTES", options->notes, "Comma-separated notes, bass first: \"E, G, C\"")->required();
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
                    for (const auto& found : chords) context.out << chordLine(found) << "\n";
                }
                return 0;
            };
        });
    };
    addSearch("match", "Find the chords made of exactly these notes, the first in the bass",
              [](std::string_view notes) { return ChordDataManager::shared().chordsMatching(notes); },
              "No chord has exactly these notes.");
    addSearch("similar", "Find chords whose notes contain, or are contained in, these notes",
              [](std::string_view notes) { return ChordDataManager::shared().similarChords(notes); },
              "No chord is close to these notes.");
}

} // namespace fq::app
