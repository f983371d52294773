// The `song` file commands (new, list, show, rename, duplicate, delete, import) and the
// printing every song command shares.
#include "SongCommands.h"

#include "ChordInput.h"
#include "CommandSupport.h"

#include <fq/core/ChordDataManager.h>
#include <fq/songmaker/JamSequencer.h>
#include <fq/songmaker/SongEditorModel.h>
#include <fq/songmaker/SongMakerDocumentStore.h>
#include <fq/songmaker/TracksViewModel.h>

#include <asio/io_context.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <uriparser/Uri.h>

#include <ctime>
#include <memory>
#include <vector>

namespace fq::cli {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using namespace songmaker;

std::string chordName(const core::Chord& chord) {
    const auto& catalogue = core::ChordDataManager::shared();
    auto name = catalogue.shortestName(chord.rootNote, chord.chordType, chord.variant);
    if (name.empty()) name = catalogue.name(chord.rootNote, chord.chordType, chord.variant);
    if (name.empty()) name = fmt::format("{} {}", core::rawValue(chord.rootNote), chord.chordType);
    return name;
}

Json metadataJson(const SongMakerDocumentMetadata& metadata) {
    return {{"url", fileURL(metadata.url)},
            {"title", metadata.title},
            {"creationDate", isoDate(metadata.creationDate)},
            {"modificationDate", isoDate(metadata.modificationDate)}};
}

void printMetadata(std::ostream& out, const SongMakerDocumentMetadata& metadata, bool json,
                   std::string_view verb) {
    if (json)
        out << dumped(metadataJson(metadata)) << "\n";
    else
        out << fmt::format("{} “{}”: {}\n", verb, printable(metadata.title),
                           printable(metadata.url.string()));
}

void printList(std::ostream& out, const std::vector<SongMakerDocumentMetadata>& songs, bool json) {
    if (json) {
        auto array = Json::array();
        for (const auto& metadata : songs)
            array.push_back(metadataJson(metadata));
        out << dumped(array) << "\n";
        return;
    }
    if (songs.empty()) out << "No songs yet. Make one with: fretquill song new \"My Song\"\n";
    for (const auto& metadata : songs) {
        const auto modified = isoDate(metadata.modificationDate);
        out << fmt::format("{:<32} {:<32} {}\n", printable(metadata.title),
                           printable(metadata.url.filename().string()),
                           modified.is_null() ? std::string() : modified.get<std::string>());
    }
}

struct FileOptions {
    std::string file;
    std::string name;
    std::vector<std::string> files;
    bool json = false;
};

/// Registers a command whose options live as long as the program's parse.
std::shared_ptr<FileOptions> command(CLI::App* parent, const char* name, const char* description,
                                     CLI::App** made) {
    auto options = std::make_shared<FileOptions>();
    *made = parent->add_subcommand(name, description);
    (*made)->add_flag("--json", options->json, "Print JSON");
    return options;
}

constexpr const char* songHelp = "The song: a path or a name in the documents folder";

void addFileCommands(CLI::App* song, CommandContext& context) {
    CLI::App* made = nullptr;
    auto creating = command(song, "new", "Make a new song with an Intro section", &made);
    made->add_option("TITLE", creating->name, "The song's title; its file is named after it")
        ->required();
    made->callback([&context, creating] {
        *context.action = [&context, creating] {
            SilentSequencer sequencer; // the command line plays nothing
            SongEditorModel::Services services;
            services.sequencer = &sequencer;
            const auto file = valueOrThrow(SongEditorModel::create(creating->name, services));
            printMetadata(context.out, songMetadata(file), creating->json, "Made");
            return 0;
        };
    });

    CLI::App* list = nullptr;
    auto listing = command(song, "list", "Your songs, by title", &list);
    list->callback([&context, listing] {
        *context.action = [&context, listing] {
            asio::io_context main;
            printList(context.out, SongMakerDocumentStore(main.get_executor()).listDocuments(),
                      listing->json);
            return 0;
        };
    });

    CLI::App* show = nullptr;
    auto showing =
        command(song, "show", "Show a song: its sections, chords, key, tempo and pattern", &show);
    show->add_option("FILE", showing->file, songHelp)->required();
    show->callback([&context, showing] {
        *context.action = [&context, showing] {
            const auto file = valueOrThrow(findSong(showing->file));
            auto document = FrtQulDocument::read(file);
            if (!document)
                throw CommandError("Error loading document: " + document.error().message);
            printSong(context.out, file, document->data(), showing->json);
            return 0;
        };
    });

    CLI::App* rename = nullptr;
    auto renaming =
        command(song, "rename", "Give a song a new title and a file named after it", &rename);
    rename->add_option("FILE", renaming->file, songHelp)->required();
    rename->add_option("NAME", renaming->name, "The new title")->required();
    rename->callback([&context, renaming] {
        *context.action = [&context, renaming] {
            const auto file = valueOrThrow(findSong(renaming->file).and_then(requireSongFile));
            asio::io_context main;
            SongMakerDocumentStore store(main.get_executor());
            const auto renamed = valueOrThrow(store.renameDocument(file, renaming->name));
            printMetadata(context.out, renamed, renaming->json, "Renamed");
            return 0;
        };
    });

    CLI::App* duplicate = nullptr;
    auto duplicating =
        command(song, "duplicate", "Copy a song under the next numbered title (JSON songs only)",
                &duplicate);
    duplicate->add_option("FILE", duplicating->file, songHelp)->required();
    duplicate->callback([&context, duplicating] {
        *context.action = [&context, duplicating] {
            const auto source = songMetadata(valueOrThrow(findSong(duplicating->file)));
            asio::io_context main;
            TracksViewModel tracks(main.get_executor());
            const auto copy = valueOrThrow(
                tracks.duplicateDocument({core::Uuid::random(), source.url, source.title}));
            printMetadata(context.out, songMetadata(copy), duplicating->json, "Copied");
            return 0;
        };
    });

    CLI::App* remove = nullptr;
    auto removing = command(song, "delete", "Delete songs (all named files must exist)", &remove);
    remove->add_option("FILE", removing->files, "The songs: paths or names in the documents folder")
        ->required();
    remove->callback([&context, removing] {
        *context.action = [&context, removing] {
            // every name must be found before anything is removed
            std::vector<fs::path> files;
            for (const auto& name : removing->files)
                files.push_back(valueOrThrow(findSong(name).and_then(requireSongFile)));
            asio::io_context main;
            SongMakerDocumentStore store(main.get_executor());
            for (const auto& file : files) {
                valueOrThrow(store.deleteDocument(file));
                if (!removing->json)
                    context.out << fmt::format("Deleted {}\n", printable(file.string()));
            }
            if (removing->json) printList(context.out, store.listDocuments(), true);
            return 0;
        };
    });

    CLI::App* import = nullptr;
    auto importing = command(song, "import", "Copy a song file into the documents folder", &import);
    import->add_option("PATH", importing->file, "The song file to copy in")->required();
    import->callback([&context, importing] {
        *context.action = [&context, importing] {
            std::error_code error;
    if (!fs::is_regular_file(importing->file, error))
        throw CommandError(fmt::format("Couldn’t find the file to import: {}", importing->file));
    valueOrThrow(requireSongFile(importing->file));
    const auto source = fs::absolute(importing->file, error);
    asio::io_context main;
    TracksViewModel tracks(main.get_executor());
    const auto imported = valueOrThrow(tracks.importDocument(source));
    printMetadata(context.out, songMetadata(imported), importing->json, "Imported");
    return 0;
};
} // namespace
);
} // namespace fq::cli

} // namespace

void printSong(std::ostream& out, const fs::path& file, const FrtQulDocumentData& song, bool json) {
    if (json) {
        out << dumped(toJson(song)) << "\n";
        return;
    }
    out << fmt::format("{}\n  {}\n", printable(song.title), printable(file.string()));
    out << fmt::format("  Key {} {} · {} BPM · guitar pattern “{}”\n",
                       core::rawValue(song.key.rootNote), song.key.chordType, song.bpm,
                       printable(song.sequence.name));
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
        out << fmt::format("{:>3}. {} ({}) [{}]\n", index + 1, printable(section.title),
                           rawValue(section.sectionType), fmt::join(parts, " "));
        out << fmt::format("     {}\n", chords.empty()
                                            ? std::string("(no chords yet)")
                                            : fmt::format("{}", fmt::join(chords, "  ")));
    }
}

std::string dumped(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

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
    addSongEditCommands(song, context);
}

} // namespace fq::cli
