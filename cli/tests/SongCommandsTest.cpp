// The `song` commands from outside: editing, files, refusals, and processes at once.
#include "CliRun.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

// FRETQUILL_HOME points at a temporary folder for the whole test program (CliTest.cpp).

namespace fq::cli {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

/// Starts the real program once for each list of arguments, all at once, and gives how
/// each exited.
std::vector<int> together(const std::vector<std::vector<std::string>>& runs) {
    std::vector<std::vector<char*>> argvs;
    for (const auto& arguments : runs) {
        argvs.push_back({const_cast<char*>(FQ_FRETQUILL)});
        for (const auto& argument : arguments)
            argvs.back().push_back(const_cast<char*>(argument.c_str()));
        argvs.back().push_back(nullptr);
    }
    std::vector<pid_t> children;
    for (auto& argv : argvs)
        if (const pid_t child = ::fork(); child == 0) {
            const int quiet = ::open("/dev/null", O_WRONLY);
            ::dup2(quiet, STDOUT_FILENO);
            ::dup2(quiet, STDERR_FILENO);
            ::execv(FQ_FRETQUILL, argv.data());
            ::_exit(127);
        } else {
            children.push_back(child);
        }
    std::vector<int> statuses;
    for (const auto child : children) {
        int status = 0;
        ::waitpid(child, &status, 0);
        statuses.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    }
    return statuses;
}

class SongCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        documents_ = fs::path(std::getenv("FRETQUILL_HOME")) / "Documents";
        fs::remove_all(documents_);
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(documents_))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    fs::path documents_;
};

TEST_F(SongCommandsTest, ASongIsMadeAndEditedStepByStep) {
    EXPECT_EQ(json({"song", "new", "Road Song"})["title"], "Road Song");
    json({"song", "section", "add", "Road Song", "verse"});
    json({"song", "section", "add", "Road Song", "chorus", "--title", "Big Chorus"});
    json({"song", "chord", "add", "Road Song", "Verse", "Am7"});
    json({"song", "chord", "add", "Road Song", "2", "--root", "F#", "--type", "minor"});
    json({"song", "chord", "add", "Road Song", "3", "G"});
    json({"song", "section", "duplicate", "Road Song", "Verse"});
    json({"song", "section", "move", "Road Song", "Big Chorus", "1"});
    json({"song", "chord", "delete", "Road Song", "Verse", "1"});
    json({"song", "key", "Road Song", "Bb", "minor"});
    json({"song", "bpm", "Road Song", "96"});
    const auto pattern =
        json({"song", "pattern", "Road Song"})["patterns"].back().get<std::string>();
    const auto song = json({"song", "pattern", "Road Song.frtqul", pattern.c_str()});

    std::vector<std::string> keys, sectionKeys, titles;
    for (const auto& [key, value] : song.items())
        keys.push_back(key);
    for (const auto& [key, value] : song["sections"][0].items())
        sectionKeys.push_back(key);
    for (const auto& section : song["sections"])
        titles.push_back(section["title"]);
    EXPECT_EQ(keys, (std::vector<std::string>{"title", "sections", "key", "bpm", "sequence"}));
    EXPECT_EQ(sectionKeys,
              (std::vector<std::string>{"id", "title", "chords", "sectionType", "isGuitarEnabled",
                                        "isBassEnabled", "isDrumsEnabled", "shouldAddFillAtEnd"}));
    EXPECT_EQ(titles, (std::vector<std::string>{"Big Chorus", "Intro", "Verse", "Verse Copy"}));
    EXPECT_EQ(song["sections"][0]["chords"].dump(),
              R"([{"rootNote":"G","chordType":"major","variant":0}])");
    EXPECT_EQ(song["sections"][2]["chords"].dump(),
              R"([{"rootNote":"F♯","chordType":"minor","variant":0}])");
    EXPECT_EQ(song["sections"][3]["chords"].size(), 2u) << "the copy keeps what the verse had then";
    EXPECT_EQ(song["key"].dump(), R"({"rootNote":"B♭","chordType":"minor","variant":0})");
    EXPECT_EQ(song["bpm"], 96);
    EXPECT_EQ(song["sequence"]["name"], pattern);
    EXPECT_TRUE(std::regex_match(
        song["sections"][1]["id"].get<std::string>(),
        std::regex("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}")));
    EXPECT_EQ(files(), std::vector<std::string>{"Road Song.frtqul"});
    EXPECT_EQ(bytesOf(documents_ / "Road Song.frtqul").substr(0, 8), "bplist00");
}

TEST_F(SongCommandsTest, FilesAreListedRenamedImportedAndDeleted) {
    for (const char* title : {"zebra", "Apple", "song 10", "song 9"})
        json({"song", "new", title});
    std::ofstream(documents_ / "Broken.frtqul") << "bplist00 but nothing more";
    const auto listed = json({"song", "list"});
    std::vector<std::string> titles;
    for (const auto& item : listed)
        titles.push_back(item["title"]);
    EXPECT_EQ(titles, (std::vector<std::string>{"Apple", "song 9", "song 10", "zebra"}));
    EXPECT_EQ(listed[0]["url"], "file://" + (documents_ / "Apple.frtqul").string());
    EXPECT_EQ(listed[1]["url"], "file://" + (documents_ / "song%209.frtqul").string());
    const std::regex iso(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)");
    EXPECT_TRUE(std::regex_match(listed[0]["modificationDate"].get<std::string>(), iso));

    const auto renamed = json({"song", "rename", "zebra", " Zoo/Keeper "});
    EXPECT_EQ(renamed["title"], "Zoo/Keeper");
    EXPECT_EQ(json({"song", "show", "Zoo Keeper"})["title"], "Zoo/Keeper");

    const auto outside = fs::path(std::getenv("FRETQUILL_HOME")) / "Apple.frtqul";
    fs::copy_file(documents_ / "Apple.frtqul", outside, fs::copy_options::overwrite_existing);
    EXPECT_EQ(json({"song", "import", outside.c_str()})["url"],
              "file://" + (documents_ / "Apple%201.frtqul").string());
    json({"song", "import", outside.c_str()});
    EXPECT_EQ(bytesOf(documents_ / "Apple 2.frtqul"), bytesOf(outside));

    // one missing name stops the whole deletion before anything goes
    const auto refused = run({"song", "delete", "Apple 1", "Nowhere"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(fs::exists(documents_ / "Apple 1.frtqul"));
    json({"song", "delete", "Apple 1", "Apple 2.frtqul"});
    EXPECT_EQ(files(),
              (std::vector<std::string>{"Apple.frtqul", "Broken.frtqul", "Zoo Keeper.frtqul",
                                        "song 10.frtqul", "song 9.frtqul"}));
    EXPECT_EQ(bytesOf(documents_ / "Broken.frtqul"), "bplist00 but nothing more")
        << "a bad file is left alone";
}

// Every refusal is one line on standard error, exit status 1, and the files stay as they were.
TEST_F(SongCommandsTest, BadRequestsChangeNothing) {
    json({"song", "new", "Tune"});
    json({"song", "new", "Other"});
    std::ofstream(documents_ / "Broken.frtqul") << "<plist><dict><key>title</key>";
    const auto before = bytesOf(documents_ / "Tune.frtqul");
    const auto notes = (documents_ / "notes.txt").string();
    std::ofstream(notes) << "not a song";
    struct Case {
        std::vector<const char*> arguments;
        std::string error;
    };
    const std::vector<Case> cases{
        {{"song", "show", "Missing"}, "Couldn’t find the Song Maker file."},
        {{"song", "new", "  "}, "Enter a file name."},
        {{"song", "new", "Tune"}, "A Song Maker file named \"Tune\" already exists."},
        {{"song", "rename", "Tune", "Other"}, "A Song Maker file named \"Other\" already exists."},
        {{"song", "section", "add", "Tune", "solo"},
         "Unknown section type: solo (choose intro, verse, chorus, bridge, outro or other)"},
        {{"song", "section", "delete", "Tune", "4"}, "No section 4: the song has 1 section"},
        {{"song", "section", "move", "Tune", "1", "Outro"},
         "No section “Outro” in this song (name one by its number, title or id)"},
        {{"song", "chord", "add", "Tune", "1", "H7"}, "Unknown chord: H7"},
        {{"song", "chord", "delete", "Tune", "1", "1"}, "No chord 1 in “Intro”: it has 0 chords"},
        {{"song", "key", "Tune", "E#"},
         "Unknown key note: E# (choose one of C D E F G A B C♯ D♯ F♯ G♯ A♯ D♭ E♭ G♭ A♭ B♭)"},
        {{"song", "key", "Tune", "E", "dorian"}, "A key is major or minor, not dorian"},
        {{"song", "bpm", "Tune", "0"}, "A tempo is 1 to 999 beats per minute, not 0"},
        {{"song", "pattern", "Tune", "Polka"},
         "Unknown guitar pattern: Polka (see fretquill song pattern FILE)"},
        {{"song", "import", "/nonexistent/Song.frtqul"},
         "Couldn’t find the file to import: /nonexistent/Song.frtqul"},
        // only song files are moved, copied in or removed, whatever else a path names
        {{"song", "delete", notes.c_str()}, "Not a song file (they end in .frtqul): " + notes},
        {{"song", "import", notes.c_str()}, "Not a song file (they end in .frtqul): " + notes},
    };
    for (const auto& [arguments, error] : cases) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 1) << arguments[1];
        EXPECT_EQ(result.err + result.out, error + "\n") << arguments[1] << " " << arguments[2];
    }
    // copies go through the JSON form, which a song file never is
    const auto copy = program({"song", "duplicate", "Tune"});
    EXPECT_EQ(copy.status, 1);
    EXPECT_EQ(
        copy.err,
        "Duplication failed: The data couldn’t be read because it isn’t in the correct format.\n");
    const auto broken = program({"song", "bpm", "Broken", "100"});
    EXPECT_EQ(broken.status, 1);
    EXPECT_EQ(broken.err.rfind("Error loading document: ", 0), 0u) << broken.err;
    EXPECT_EQ(std::count(broken.err.begin(), broken.err.end(), '\n'), 1);
    EXPECT_EQ(bytesOf(documents_ / "Broken.frtqul"), "<plist><dict><key>title</key>");
    EXPECT_EQ(bytesOf(documents_ / "Tune.frtqul"), before);
    EXPECT_EQ(files(), (std::vector<std::string>{"Broken.frtqul", "Other.frtqul", "Tune.frtqul",
                                                 "notes.txt"}));
}

// Many processes at once on one song, or importing one file, lose nothing.
TEST_F(SongCommandsTest, ProcessesAtOnceLoseNoEdit) {
    json({"song", "new", "Jam"});
    std::vector<std::vector<std::string>> edits;
    for (int edit = 0; edit < 20; ++edit)
        edits.push_back({"song", "chord", "add", "Jam", "1", "--root", "C", "--variant",
                         std::to_string(edit % 3)});
    EXPECT_EQ(together(edits), std::vector<int>(20, 0));
    EXPECT_EQ(json({"song", "show", "Jam"})["sections"][0]["chords"].size(), 20u);

    const auto source = (documents_.parent_path() / "Jam.frtqul").string();
    fs::copy_file(documents_ / "Jam.frtqul", source, fs::copy_options::overwrite_existing);
    EXPECT_EQ(together(std::vector(10, std::vector<std::string>{"song", "import", source})),
              std::vector<int>(10, 0));
    EXPECT_EQ(files().size(), 11u);
    for (const auto& name : files())
        EXPECT_EQ(bytesOf(documents_ / name), bytesOf(source)) << name;
}

// A file that is no song is refused with one line, and nothing is copied in; titles that
// hold terminal escapes are shown, not obeyed.
TEST_F(SongCommandsTest, ImportsAreCheckedAndStoredTitlesPrintedSafely) {
    json({"song", "new", "Whole"});
    const auto whole = bytesOf(documents_ / "Whole.frtqul");
    const auto source = documents_.parent_path() / "Odd.frtqul";
    for (const std::string& content : {std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16),
                                       std::string(), whole.substr(0, whole.size() - 9)}) {
        std::ofstream(source, std::ios::binary) << content;
        const auto result = program({"song", "import", source.string()});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "Failed to import file: The file “Odd.frtqul” couldn’t be opened "
                              "because it isn’t in the correct format.\n");
    }
    EXPECT_EQ(files(), std::vector<std::string>{"Whole.frtqul"});
    EXPECT_TRUE(run({"song", "list"}).err.empty()) << "every listed file still reads";

    json({"song", "new", "Red \x1b[31mAlert\x07"});
    const auto listed = run({"song", "list"}).out + run({"song", "show", "Red  [31mAlert"}).out;
    EXPECT_EQ(listed.find('\x1b'), std::string::npos) << listed;
    EXPECT_NE(listed.find("Red \\x1B[31mAlert\\x07"), std::string::npos) << listed;
}

} // namespace
} // namespace fq::cli
