// The `song` editing steps: sections, chords, the key, the tempo and the guitar pattern.
// Each runs as one locked edit of the song file and prints the song as saved.
#include "ChordInput.h"
#include "CommandSupport.h"
#include "SongCommands.h"

#include <fq/songmaker/JamSequencer.h>
#include <fq/songmaker/SongEditorModel.h>
#include <fq/songmaker/SongMakerDocumentStore.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <functional>
#include <memory>
#include <vector>

namespace fq::cli {
namespace {

using namespace songmaker;
using Step = SongEditorModel::Step;

constexpr const char* songHelp = "The song: a path or a name in the documents folder";
constexpr const char* sectionHelp = "The section: its number from 1, its title or its id";

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// A section named by its position from 1, its id, or its title.
tl::expected<core::Uuid, Error> sectionID(const std::vector<SongSection>& sections,
                                          const std::string& reference) {
    if (const auto id = core::Uuid::fromText(reference))
        for (const auto& section : sections)
            if (section.id == *id) return section.id;
    std::size_t number = 0;
    const auto* end = reference.data() + reference.size();
    if (!reference.empty() && std::from_chars(reference.data(), end, number).ptr == end) {
        if (number >= 1 && number <= sections.size()) return sections[number - 1].id;
        return tl::unexpected(
            Error{fmt::format("No section {}: the song has {} section{}", reference,
                              sections.size(), sections.size() == 1 ? "" : "s"),
                  ErrorKind::notFound});
    }
    for (const auto& section : sections)
        if (section.title == reference) return section.id;
    return tl::unexpected(
        Error{fmt::format("No section “{}” in this song (name one by its number, title or id)",
                          printable(reference)),
              ErrorKind::notFound});
}

struct EditOptions {
    std::string file;
    std::string section;
    std::string target;
    std::string word;
    std::string quality = "major";
    std::int64_t number = 0;
    ChordSelection chord;
    bool json = false;
};

/// A step of the editor on the song the options name, as one locked edit.
int editSong(CommandContext& context, const EditOptions& options, const Step& step) {
    const auto file = valueOrThrow(findSong(options.file));
    SilentSequencer sequencer; // the command line plays nothing
    SongEditorModel::Services services;
    services.sequencer = &sequencer;
    const auto saved = valueOrThrow(SongEditorModel::edit(file, std::move(services), step));
    printSong(context.out, file, saved, options.json);
    return 0;
}

/// Registers one editing command over FILE and the given positionals; `makeStep` runs
/// before the song is opened, so a bad argument fails before anything is read.
template <typename MakeStep>
CLI::App* editCommand(CLI::App* parent, CommandContext& context, const char* name,
                      const char* description, MakeStep makeStep,
                      const std::function<void(CLI::App*, EditOptions&)>& positionals) {
    auto options = std::make_shared<EditOptions>();
    auto* made = parent->add_subcommand(name, description);
    made->add_flag("--json", options->json, "Print JSON");
    made->add_option("FILE", options->file, songHelp)->required();
    positionals(made, *options);
    made->callback([&context, options, makeStep] {
        *context.action = [&context, options, makeStep] {
            return editSong(context, *options, makeStep(*options));
        };
    });
    return made;
}

void addSectionCommands(CLI::App* song, CommandContext& context) {
    auto* section =
        song->add_subcommand("section", "Add, duplicate, delete or move a song's sections");
    section->require_subcommand(1);
    editCommand(
        section, context, "add", "Add a section at the end of the song",
        [](const EditOptions& options) -> Step {
            const auto type = sectionTypeFromRawValue(lowered(options.word));
            if (!type)
                throw CommandError(fmt::format("Unknown section type: {} (choose intro, verse, "
                                               "chorus, bridge, outro or other)",
                                               lowered(options.word)));
            return [type = *type, title = options.target](SongEditorModel& editor) {
                editor.addSection(type, title);
                return tl::expected<void, Error>{};
            };
        },
        [](CLI::App* made, EditOptions& options) {
            made->add_option("TYPE", options.word, "intro, verse, chorus, bridge, outro or other")
                ->required();
            made->add_option("--title", options.target,
                             "A title of your own (default: the type's name)");
        });
    const auto sectionStep = [](auto apply) {
        return [apply](const EditOptions& options) -> Step {
            return [apply, options](SongEditorModel& editor) {
                return sectionID(editor.sections(), options.section)
                    .and_then([&](const core::Uuid& id) { return apply(editor, id, options); });
            };
        };
    };
    const auto oneSection = [](CLI::App* made, EditOptions& options) {
        made->add_option("SECTION", options.section, sectionHelp)->required();
    };
    editCommand(section, context, "duplicate", "Creates a copy after this section",
                sectionStep([](SongEditorModel& editor, const core::Uuid& id, const EditOptions&) {
                    editor.duplicateSection(id);
                    return tl::expected<void, Error>{};
                }),
                oneSection);
    editCommand(section, context, "delete", "Removes this section",
                sectionStep([](SongEditorModel& editor, const core::Uuid& id, const EditOptions&) {
                    editor.deleteSection(id);
                    return tl::expected<void, Error>{};
                }),
                oneSection);
    editCommand(
        section, context, "move", "Move a section to another section's place",
        sectionStep([](SongEditorModel& editor, const core::Uuid& id, const EditOptions& options) {
            return sectionID(editor.sections(), options.target).map([&](const core::Uuid& target) {
                editor.moveSection(id, target);
            });
        }),
        [](CLI::App* made, EditOptions& options) {
            made->add_option("SECTION", options.section,
                             "The section to move: its number, title or id")
                ->required();
            made->add_option("TARGET", options.target,
                             "The section whose place it takes: its number, title or id")
                ->required();
        });

    auto* chord = song->add_subcommand("chord", "Add or delete chords in a section");
    chord->require_subcommand(1);
    editCommand(
        chord, context, "add", "Add a chord at the end of a section",
        [sectionStep](const EditOptions& options) -> Step {
            const auto chosen = options.chord.resolve();
            return sectionStep(
                [chosen](SongEditorModel& editor, const core::Uuid& id, const EditOptions&) {
                    editor.selectSection(id);
                    editor.addChord(chosen);
                    return tl::expected<void, Error>{};
                })(options);
        },
        [](CLI::App* made, EditOptions& options) {
            made->add_option("SECTION", options.section, sectionHelp)->required();
            options.chord.addOptions(made);
        });
    editCommand(
        chord, context, "delete", "Delete a chord from a section",
        sectionStep([](SongEditorModel& editor, const core::Uuid& id,
                       const EditOptions& options) -> tl::expected<void, Error> {
            const auto& sections = editor.sections();
            const auto& chosen = *std::find_if(sections.begin(), sections.end(),
                                               [&](const auto& s) { return s.id == id; });
            if (options.number < 1 ||
                static_cast<std::size_t>(options.number) > chosen.chords.size())
                return tl::unexpected(
                    Error{fmt::format("No chord {} in “{}”: it has {} chord{}", options.number,
                                      printable(chosen.title), chosen.chords.size(),
                                      chosen.chords.size() == 1 ? "" : "s"),
                          ErrorKind::notFound});
            editor.selectChord({id, static_cast<int>(options.number) - 1});
            editor.deleteChord();
            return {};
        }),
        [](CLI::App* made, EditOptions& options) {
            made->add_option("SECTION", options.section, sectionHelp)->required();
            made->add_option("INDEX", options.number, "The chord's place in the section, from 1")
                ->required();
        });
}

void addSettingCommands(CLI::App* song, CommandContext& context) {
    editCommand(
        song, context, "key",
        "Set the key that new chords are suggested in (chords already there stay)",
        [](const EditOptions& options) -> Step {
            auto notes = naturalNotes();
            for (const auto& more : {sharpNotes(), flatNotes()})
                notes.insert(notes.end(), more.begin(), more.end());
            const auto note = noteFromUserText(options.word);
            if (!note || std::find(notes.begin(), notes.end(), *note) == notes.end()) {
                std::vector<std::string_view> names;
                for (const auto offered : notes)
                    names.push_back(core::rawValue(offered));
                throw CommandError(fmt::format("Unknown key note: {} (choose one of {})",
                                               options.word, fmt::join(names, " ")));
            }
            if (options.quality != "major" && options.quality != "minor")
                throw CommandError(fmt::format("A key is major or minor, not {}", options.quality));
            const auto quality = options.quality == "major" ? KeySignatureQuality::major
                                                            : KeySignatureQuality::minor;
            return [note = *note, quality](SongEditorModel& editor) {
                editor.setKeySignature(note, quality);
                return tl::expected<void, Error>{};
            };
        },
        [](CLI::App* made, EditOptions& options) {
            made->add_option("NOTE", options.word, "The key's note, e.g. D, F#, E♭")->required();
            made->add_option("QUALITY", options.quality, "major (the default) or minor");
        });

    editCommand(
        song, context, "bpm", "Set the song's tempo in beats per minute",
        [](const EditOptions& options) -> Step {
            if (options.number < 1 || options.number > 999)
                throw CommandError(
                    fmt::format("A tempo is 1 to 999 beats per minute, not {}", options.number));
            return [bpm = options.number](SongEditorModel& editor) {
                editor.setTempo(bpm);
                return tl::expected<void, Error>{};
            };
        },
        [](CLI::App* made, EditOptions& options) {
            made->add_option("BPM", options.number, "Beats per minute, 1 to 999")->required();
        });
}

} // namespace

void addSongEditCommands(CLI::App* song, CommandContext& context) {
    addSectionCommands(song, context);
    addSettingCommands(song, context);

    // the pattern command also only shows, so it is not an edit in every case
    auto options = std::make_shared<EditOptions>();
    auto* pattern = song->add_subcommand(
        "pattern", "Show the guitar patterns (the song's is marked), or choose one by name");
    pattern->add_flag("--json", options->json, "Print JSON");
    pattern->add_option("FILE", options->file, songHelp)->required();
    pattern->add_option("NAME", options->word,
                        "The guitar pattern to use, as `fretquill patterns` names it");
    pattern->callback([&context, options] {
        *context.action = [&context, options] {
            const auto all = core::arpeggioSequences();
            if (options->word.empty()) {
                const auto file = valueOrThrow(findSong(options->file));
                auto document = FrtQulDocument::read(file);
                if (!document)
                    throw CommandError("Error loading document: " + document.error().message);
                const auto& current = document->sequence.name;
                auto names = nlohmann::ordered_json::array();
                for (const auto& sequence : all)
                    names.push_back(sequence.name);
                if (options->json)
                    context.out << dumped({{"current", current}, {"patterns", names}}) << "\n";
                for (const auto& sequence : all)
                    if (!options->json)
                        context.out << fmt::format("{} {}\n", sequence.name == current ? "✓" : " ",
                                                   sequence.name);
                return 0;
            }
            const auto found = std::find_if(all.begin(), all.end(), [&](const auto& sequence) {
                return lowered(sequence.name) == lowered(options->word);
            });
            if (found == all.end())
                throw CommandError(fmt::format(
                    "Unknown guitar pattern: {} (see fretquill song pattern FILE)", options->word));
            return editSong(context, *options, [sequence = *found](SongEditorModel& editor) {
                editor.setSequence(sequence);
                return tl::expected<void, Error>{};
            });
        };
    });
}

} // namespace fq::cli
