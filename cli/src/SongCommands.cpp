#include "SongCommands.h"

#include "ChordInput.h"
#include "CommandSupport.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/Diagnostics.h>
#include <fq/core/Text.h>
#include <fq/songmaker/JamSequencer.h>
#include <fq/songmaker/SongEditorModel.h>
#include <fq/songmaker/SongMakerDocumentStore.h>
#include <fq/songmaker/TracksViewModel.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <uriparser/Uri.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <memory>
#include <vector>

namespace fq::cli {

using documents::defaultDocumentsDirectory;
using documents::folderEntry;
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using namespace songmaker;

std::string extensionSuffix() {
    return "." + std::string(songmaker::config::songExtension);
}

fs::path documentsFolder() {
    auto folder = defaultDocumentsDirectory();
    if (!folder)
        throw CommandError(SongMakerDocumentStoreError::documentsDirectoryUnavailable().message);
    return *folder;
}

/// A song named as a path, or by its file name in the documents folder (the extension
/// may be left out).
fs::path resolveSong(const std::string& text) {
    std::error_code error;
    if (!text.empty() && fs::is_regular_file(text, error)) return fs::absolute(text, error);
    const auto folder = documentsFolder();
    for (const auto& candidate : {folder / text, folder / (text + extensionSuffix())})
        if (!text.empty() && fs::is_regular_file(candidate, error)) return candidate;
    throw CommandError(SongMakerDocumentStoreError::fileNotFound().message);
}

/// Steps that move, copy in or remove a file touch song files only, as the file picker
/// offers only files of the song type.
fs::path requireSongFile(fs::path file) {
    if (file.extension() != extensionSuffix())
        throw CommandError(
            fmt::format("Not a song file (they end in {}): {}", extensionSuffix(), file.string()));
    return file;
}

/// Song titles come from files, which may hold any bytes: never let one stop the output.
std::string dumped(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string chordName(const core::Chord& chord) {
    const auto& catalogue = core::ChordDataManager::shared();
    auto name = catalogue.shortestName(chord.rootNote, chord.chordType, chord.variant);
    if (name.empty()) name = catalogue.name(chord.rootNote, chord.chordType, chord.variant);
    if (name.empty()) name = fmt::format("{} {}", core::rawValue(chord.rootNote), chord.chordType);
    return name;
}

std::string keyName(const core::Chord& key) {
    return fmt::format("{} {}", core::rawValue(key.rootNote), key.chordType);
}

Json metadataJson(const SongMakerDocumentMetadata& metadata) {
    return {{"url", fileURL(metadata.url)},
            {"title", metadata.title},
            {"creationDate", isoDate(metadata.creationDate)},
            {"modificationDate", isoDate(metadata.modificationDate)}};
}

SongMakerDocumentMetadata metadataOf(const fs::path& file) {
    const auto entry = folderEntry(file);
    const auto document = FrtQulDocument::read(file);
    return {file, document ? document->title : file.stem().string(), entry.creationDate,
            entry.modificationDate};
}

void printMetadata(std::ostream& out, const SongMakerDocumentMetadata& metadata, bool json,
                   std::string_view verb) {
    if (json)
        out << dumped(metadataJson(metadata)) << "\n";
    else
        out << fmt::format("{} “{}”: {}\n", verb, metadata.title, metadata.url.string());
}

void printSong(std::ostream& out, const fs::path& file, const FrtQulDocumentData& song, bool json) {
    if (json) {
        out << dumped(toJson(song)) << "\n";
        return;
    }
    out << fmt::format("{}\n  {}\n", song.title, file.string());
    out << fmt::format("  Key {} · {} BPM · guitar pattern “{}”\n", keyName(song.key), song.bpm,
                       song.sequence.name);
    if (song.sections.empty())
        out << "  No sections yet. Add one with: fretquill song section add FILE verse\n";
    for (std::size_t index = 0; index < song.sections.size(); ++index) {
        const auto& section = song.sections[index];
        std::vector<std::string> parts;
        for (const auto& [on, word] :
             {std::pair{section.isGuitarEnabled, "guitar"},
              std::pair{section.isBassEnabled, "bass"}, std::pair{section.isDrumsEnabled, "drums"},
              std::pair{section.shouldAddFillAtEnd, "fill"}})
            if (on) parts.emplace_back(word);
        std::vector<std::string> chords;
        for (const auto& chord : section.chords)
            chords.push_back(chordName(chord));
        out << fmt::format("{:>3}. {} ({}) [{}]\n", index + 1, section.title,
                           rawValue(section.sectionType), fmt::join(parts, " "));
        out << fmt::format("     {}\n", chords.empty()
                                            ? std::string("(no chords yet)")
                                            : fmt::format("{}", fmt::join(chords, "  ")));
    }
}

FrtQulDocumentData readSong(const fs::path& file) {
    auto document = FrtQulDocument::read(file);
    if (!document) throw CommandError("Error loading document: " + document.error().message);
    return document->data();
}

/// A section named by its position from 1, its id, or its title.
std::size_t sectionIndex(const std::vector<SongSection>& sections, const std::string& reference) {
    if (const auto id = core::Uuid::fromText(reference)) {
        for (std::size_t index = 0; index < sections.size(); ++index)
            if (sections[index].id == *id) return index;
    }
    std::size_t number = 0;
    const auto* end = reference.data() + reference.size();
    if (!reference.empty() && std::from_chars(reference.data(), end, number).ptr == end) {
        if (number >= 1 && number <= sections.size()) return number - 1;
        throw CommandError(fmt::format("No section {}: the song has {} section{}", reference,
                                       sections.size(), sections.size() == 1 ? "" : "s"));
    }
    for (std::size_t index = 0; index < sections.size(); ++index)
        if (sections[index].title == reference) return index;
    throw CommandError(fmt::format(
        "No section “{}” in this song (name one by its number, title or id)", reference));
}

SectionType sectionTypeFromUserText(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    if (const auto type = sectionTypeFromRawValue(text)) return *type;
    throw CommandError(fmt::format(
        "Unknown section type: {} (choose intro, verse, chorus, bridge, outro or other)", text));
}

struct EditOptions {
    std::string file;
    bool json = false;
};

/// Opens the song in the editor, applies one step and saves it in place. A song that
/// does not read is refused and stays as it was.
template <typename Step>
int editSong(CommandContext& context, const EditOptions& options, Step step) {
    const auto file = resolveSong(options.file);
    // the command line plays nothing; the editor's hand-over goes nowhere
    SilentSequencer sequencer;
    SongEditorModel::Services services;
    services.sequencer = &sequencer;
    services.documents = defaultDocumentsDirectory;
    SongEditorModel editor(file, std::move(services));
    if (editor.loadFailed()) return 1; // told as "Error loading document: …"
    step(editor);
    if (!editor.save()) return 1; // told as "Error saving document: …"
    printSong(context.out, file, readSong(file), options.json);
    return 0;
}

/// Registers a command whose options live as long as the program's parse.
template <typename Options>
std::shared_ptr<Options> command(CLI::App* parent, const char* name, const char* description,
                                 CLI::App** made) {
    auto options = std::make_shared<Options>();
    *made = parent->add_subcommand(name, description);
    (*made)->add_flag("--json", options->json, "Print JSON");
    return options;
}

std::vector<core::Note> keyNotes() {
    auto notes = naturalNotes();
    for (const auto& more : {sharpNotes(), flatNotes()})
        notes.insert(notes.end(), more.begin(), more.end());
    return notes;
}

void addSectionCommands(CLI::App* song, CommandContext& context) {
    auto* section =
        song->add_subcommand("section", "Add, duplicate, delete or move a song's sections");
    section->require_subcommand(1);

    struct AddOptions : EditOptions {
        std::string type;
        std::string title;
    };
    CLI::App* add = nullptr;
    auto adding = command<AddOptions>(section, "add", "Add a section at the end of the song", &add);
    add->add_option("FILE", adding->file, "The song: a path or a name in the documents folder")
        ->required();
    add->add_option("TYPE", adding->type, "intro, verse, chorus, bridge, outro or other")
        ->required();
    add->add_option("--title", adding->title, "A title of your own (default: the type's name)");
    add->callback([&context, adding] {
        *context.action = [&context, adding] {
            const auto type = sectionTypeFromUserText(adding->type);
            return editSong(context, *adding, [&](SongEditorModel& editor) {
                editor.addSection(type, adding->title);
            });
        };
    });

    struct SectionOptions : EditOptions {
        std::string section;
        std::string target;
    };
    const auto addOneSection = [&context, section](const char* name, const char* description,
                                                   auto step) {
        CLI::App* made = nullptr;
        auto options = command<SectionOptions>(section, name, description, &made);
        made->add_option("FILE", options->file,
                         "The song: a path or a name in the documents folder")
            ->required();
        made->add_option("SECTION", options->section,
                         "The section: its number from 1, its title or its id")
            ->required();
        made->callback([&context, options, step] {
            *context.action = [&context, options, step] {
                return editSong(context, *options, [&](SongEditorModel& editor) {
                    const auto& sections = editor.sections();
                    step(editor, sections.at(sectionIndex(sections, options->section)).id);
                });
            };
        });
    };
    addOneSection(
        "duplicate", "Creates a copy after this section",
        [](SongEditorModel& editor, const core::Uuid& id) { editor.duplicateSection(id); });
    addOneSection("delete", "Removes this section",
                  [](SongEditorModel& editor, const core::Uuid& id) { editor.deleteSection(id); });

    CLI::App* move = nullptr;
    auto moving = command<SectionOptions>(section, "move",
                                          "Move a section to another section's place", &move);
    move->add_option("FILE", moving->file, "The song: a path or a name in the documents folder")
        ->required();
    move->add_option("SECTION", moving->section, "The section to move: its number, title or id")
        ->required();
    move->add_option("TARGET", moving->target,
                     "The section whose place it takes: its number, title or id")
        ->required();
    move->callback([&context, moving] {
        *context.action = [&context, moving] {
            return editSong(context, *moving, [&](SongEditorModel& editor) {
                const auto& sections = editor.sections();
                const auto source = sections.at(sectionIndex(sections, moving->section)).id;
                const auto target = sections.at(sectionIndex(sections, moving->target)).id;
                editor.moveSection(source, target);
            });
        };
    });
}

void addSongChordCommands(CLI::App* song, CommandContext& context) {
    auto* chord = song->add_subcommand("chord", "Add or delete chords in a section");
    chord->require_subcommand(1);

    struct ChordOptions : EditOptions {
        std::string section;
        ChordSelection chord;
        int index = 0;
    };
    CLI::App* add = nullptr;
    auto adding = command<ChordOptions>(chord, "add", "Add a chord at the end of a section", &add);
    add->add_option("FILE", adding->file, "The song: a path or a name in the documents folder")
        ->required();
    add->add_option("SECTION", adding->section,
                    "The section: its number from 1, its title or its id")
        ->required();
    adding->chord.addOptions(add);
    add->callback([&context, adding] {
        *context.action = [&context, adding] {
            const auto chosen = adding->chord.resolve();
            return editSong(context, *adding, [&](SongEditorModel& editor) {
                const auto& sections = editor.sections();
                editor.selectSection(sections.at(sectionIndex(sections, adding->section)).id);
                editor.addChord(chosen);
            });
        };
    });

    CLI::App* remove = nullptr;
    auto removing =
        command<ChordOptions>(chord, "delete", "Delete a chord from a section", &remove);
    remove->add_option("FILE", removing->file, "The song: a path or a name in the documents folder")
        ->required();
    remove
        ->add_option("SECTION", removing->section,
                     "The section: its number from 1, its title or its id")
        ->required();
    remove->add_option("INDEX", removing->index, "The chord's place in the section, from 1")
        ->required();
    remove->callback([&context, removing] {
        *context.action = [&context, removing] {
            return editSong(context, *removing, [&](SongEditorModel& editor) {
                const auto& sections = editor.sections();
                const auto& chosen = sections.at(sectionIndex(sections, removing->section));
                if (removing->index < 1 ||
                    static_cast<std::size_t>(removing->index) > chosen.chords.size())
                    throw CommandError(fmt::format(
                        "No chord {} in “{}”: it has {} chord{}", removing->index, chosen.title,
                        chosen.chords.size(), chosen.chords.size() == 1 ? "" : "s"));
                editor.selectChord({chosen.id, removing->index - 1});
                editor.deleteChord();
            });
        };
    });
}

void addSettingCommands(CLI::App* song, CommandContext& context) {
    struct KeyOptions : EditOptions {
        std::string note;
        std::string quality = "major";
    };
    CLI::App* key = nullptr;
    auto keying = command<KeyOptions>(
        song, "key", "Set the key that new chords are suggested in (chords already there stay)",
        &key);
    key->add_option("FILE", keying->file, "The song: a path or a name in the documents folder")
        ->required();
    key->add_option("NOTE", keying->note, "The key's note, e.g. D, F#, E♭")->required();
    key->add_option("QUALITY", keying->quality, "major (the default) or minor");
    key->callback([&context, keying] {
        *context.action = [&context, keying] {
            const auto notes = keyNotes();
            const auto note = noteFromUserText(keying->note);
            if (!note || std::find(notes.begin(), notes.end(), *note) == notes.end()) {
                std::vector<std::string_view> names;
                for (const auto offered : notes)
                    names.push_back(core::rawValue(offered));
                throw CommandError(fmt::format("Unknown key note: {} (choose one of {})",
                                               keying->note, fmt::join(names, " ")));
            }
            if (keying->quality != "major" && keying->quality != "minor")
                throw CommandError(fmt::format("A key is major or minor, not {}", keying->quality));
            const auto quality = keying->quality == "major" ? KeySignatureQuality::major
                                                            : KeySignatureQuality::minor;
            return editSong(context, *keying, [&](SongEditorModel& editor) {
                editor.setKeySignature(*note, quality);
            });
        };
    });

    struct BpmOptions : EditOptions {
        std::int64_t bpm = 0;
    };
    CLI::App* bpm = nullptr;
    auto tempo = command<BpmOptions>(song, "bpm", "Set the song's tempo in beats per minute", &bpm);
    bpm->add_option("FILE", tempo->file, "The song: a path or a name in the documents folder")
        ->required();
    bpm->add_option("BPM", tempo->bpm, "Beats per minute, 1 to 999")->required();
    bpm->callback([&context, tempo] {
        *context.action = [&context, tempo] {
            if (tempo->bpm < 1 || tempo->bpm > 999)
                throw CommandError(
                    fmt::format("A tempo is 1 to 999 beats per minute, not {}", tempo->bpm));
            return editSong(context, *tempo,
                            [&](SongEditorModel& editor) { editor.setTempo(tempo->bpm); });
        };
    });

    struct PatternOptions : EditOptions {
        std::string name;
    };
    CLI::App* pattern = nullptr;
    auto patterns = command<PatternOptions>(
        song, "pattern", "Show the guitar patterns (the song's is marked), or choose one by name",
        &pattern);
    pattern
        ->add_option("FILE", patterns->file, "The song: a path or a name in the documents folder")
        ->required();
    pattern->add_option("NAME", patterns->name,
                        "The guitar pattern to use, as `fretquill patterns` names it");
    pattern->callback([&context, patterns] {
        *context.action = [&context, patterns] {
            const auto all = core::arpeggioSequences();
            if (patterns->name.empty()) {
                const auto file = resolveSong(patterns->file);
                const auto current = readSong(file).sequence.name;
                if (patterns->json) {
                    auto names = Json::array();
                    for (const auto& sequence : all)
                        names.push_back(sequence.name);
                    context.out << dumped(Json{{"current", current}, {"patterns", names}}) << "\n";
                } else {
                    for (const auto& sequence : all)
                        context.out << fmt::format("{} {}\n", sequence.name == current ? "✓" : " ",
                                                   sequence.name);
                }
                return 0;
            }
            const auto lower = [](std::string text) {
                std::transform(text.begin(), text.end(), text.begin(),
                               [](unsigned char c) { return std::tolower(c); });
                return text;
            };
            const auto found =
                std::find_if(all.begin(), all.end(), [&](const core::ArpeggioSequence& sequence) {
                    return lower(sequence.name) == lower(patterns->name);
                });
            if (found == all.end())
                throw CommandError(
                    fmt::format("Unknown guitar pattern: {} (see fretquill song pattern FILE)",
                                patterns->name));
            return editSong(context, *patterns,
                            [&](SongEditorModel& editor) { editor.setSequence(*found); });
        };
    });
}

void addFileCommands(CLI::App* song, CommandContext& context) {
    struct FileOptions {
        std::string file;
        std::string name;
        std::vector<std::string> files;
        bool json = false;
    };

    CLI::App* made = nullptr;
    auto creating =
        command<FileOptions>(song, "new", "Make a new song with an Intro section", &made);
    made->add_option("TITLE", creating->name, "The song's title; its file is named after it")
        ->required();
    made->callback([&context, creating] {
        *context.action = [&context, creating] {
            const std::string title(core::text::trimmed(creating->name));
            if (title.empty())
                throw CommandError(SongMakerDocumentStoreError::emptyDocumentName().message);
            const auto target = documentsFolder() / (safeSongFileName(title) + extensionSuffix());
            std::error_code error;
            if (fs::exists(fs::symlink_status(target, error)))
                throw CommandError(SongMakerDocumentStoreError::fileAlreadyExists(title).message);
            SilentSequencer sequencer;
            SongEditorModel::Services services;
            services.sequencer = &sequencer;
            SongEditorModel editor(std::nullopt, std::move(services));
            editor.trackTitle = title;
            if (!editor.saveAs(target)) return 1; // told as "Error saving document: …"
            printMetadata(context.out, metadataOf(target), creating->json, "Made");
            return 0;
        };
    });

    CLI::App* list = nullptr;
    auto listing = command<FileOptions>(song, "list", "Your songs, by title", &list);
    list->callback([&context, listing] {
        *context.action = [&context, listing] {
            const auto songs = SongMakerDocumentStore().listDocuments();
            if (listing->json) {
                auto array = Json::array();
                for (const auto& metadata : songs)
                    array.push_back(metadataJson(metadata));
                context.out << dumped(array) << "\n";
                return 0;
            }
            if (songs.empty())
                context.out << "No songs yet. Make one with: fretquill song new \"My Song\"\n";
            for (const auto& metadata : songs) {
                const auto modified = isoDate(metadata.modificationDate);
                context.out << fmt::format(
                    "{:<32} {:<32} {}\n", metadata.title, metadata.url.filename().string(),
                    modified.is_null() ? std::string() : modified.get<std::string>());
            }
            return 0;
        };
    });

    CLI::App* show = nullptr;
    auto showing = command<FileOptions>(
        song, "show", "Show a song: its sections, chords, key, tempo and pattern", &show);
    show->add_option("FILE", showing->file, "The song: a path or a name in the documents folder")
        ->required();
    show->callback([&context, showing] {
        *context.action = [&context, showing] {
            const auto file = resolveSong(showing->file);
            printSong(context.out, file, readSong(file), showing->json);
            return 0;
        };
    });

    CLI::App* rename = nullptr;
    auto renaming = command<FileOptions>(
        song, "rename", "Give a song a new title and a file named after it", &rename);
    rename->add_option("FILE", renaming->file, "The song: a path or a name in the documents folder")
        ->required();
    rename->add_option("NAME", renaming->name, "The new title")->required();
    rename->callback([&context, renaming] {
        *context.action = [&context, renaming] {
            SongMakerDocumentStore store;
            const auto renamed = valueOrThrow(
                store.renameDocument(requireSongFile(resolveSong(renaming->file)), renaming->name));
            printMetadata(context.out, renamed, renaming->json, "Renamed");
            return 0;
        };
    });

    CLI::App* duplicate = nullptr;
    auto duplicating = command<FileOptions>(
        song, "duplicate", "Copy a song under the next numbered title (JSON songs only)",
        &duplicate);
    duplicate
        ->add_option("FILE", duplicating->file,
                     "The song: a path or a name in the documents folder")
        ->required();
    duplicate->callback([&context, duplicating] {
        *context.action = [&context, duplicating] {
            const auto file = resolveSong(duplicating->file);
            const auto document = FrtQulDocument::read(file);
            TracksViewModel tracks;
            const DocumentItem item{core::Uuid::random(), file,
                                    document ? document->title : file.stem().string()};
            const auto copy = tracks.duplicateDocument(item);
            if (!copy) return 1; // told as "Duplication failed: …"
            printMetadata(context.out, metadataOf(*copy), duplicating->json, "Copied");
            return 0;
        };
    });

    CLI::App* remove = nullptr;
    auto removing =
        command<FileOptions>(song, "delete", "Delete songs (all named files must exist)", &remove);
    remove->add_option("FILE", removing->files, "The songs: paths or names in the documents folder")
        ->required();
    remove->callback([&context, removing] {
        *context.action = [&context, removing] {
            // every name must be found before anything is removed
            std::vector<fs::path> files;
            for (const auto& name : removing->files)
                files.push_back(requireSongFile(resolveSong(name)));
            SongMakerDocumentStore store;
            for (const auto& file : files) {
                valueOrThrow(store.deleteDocument(file));
                if (!removing->json) context.out << fmt::format("Deleted {}\n", file.string());
            }
            if (removing->json) {
                auto array = Json::array();
                for (const auto& metadata : store.listDocuments())
                    array.push_back(metadataJson(metadata));
                context.out << dumped(array) << "\n";
            }
            return 0;
        };
    });

    CLI::App* import = nullptr;
    auto importing =
        command<FileOptions>(song, "import", "Copy a song file into the documents folder", &import);
    import->add_option("PATH", importing->file, "The song file to copy in")->required();
    import->callback([&context, importing] {
        *context.action = [&context, importing] {
            std::error_code error;
    if (!fs::is_regular_file(importing->file, error))
        throw CommandError(fmt::format("Couldn’t find the file to import: {}", importing->file));
    requireSongFile(importing->file);
    TracksViewModel tracks;
    const auto imported = tracks.importDocument(fs::absolute(importing->file, error));
    if (!imported) return 1; // told as "Failed to import file: …"
    printMetadata(context.out, metadataOf(*imported), importing->json, "Imported");
    return 0;
};
} // namespace
);
} // namespace fq::cli

} // namespace

std::string fileURL(const fs::path& file) {
    std::error_code error;
    const auto absolute = fs::absolute(file, error).string();
    std::string url(8 + 3 * absolute.size() + 1, '\0');
    if (uriUnixFilenameToUriStringA(absolute.c_str(), url.data()) != URI_SUCCESS)
        return "file://" + absolute;
    url.resize(std::char_traits<char>::length(url.c_str()));
    return url;
}

Json isoDate(const std::optional<std::chrono::system_clock::time_point>& date) {
    if (!date) return nullptr;
    const auto seconds =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(*date));
    std::tm parts{};
    if (!::gmtime_r(&seconds, &parts)) return nullptr;
    char text[32];
    if (std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) return nullptr;
    return text;
}

void addSongCommands(CLI::App& app, CommandContext& context) {
    auto* song = app.add_subcommand(
        "song", "Songs: sections of chords with a key, a tempo and a guitar pattern");
    song->require_subcommand(1);
    addFileCommands(song, context);
    addSectionCommands(song, context);
    addSongChordCommands(song, context);
    addSettingCommands(song, context);
}

} // namespace fq::cli
