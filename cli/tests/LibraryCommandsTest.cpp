// The library commands: tunings, settings, favourites and collections, and a store that is
// damaged or shared by processes at once.

#include "CliRun.h"

#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

extern char** environ;

namespace fq::cli {
namespace {

TEST(LibraryCommandsTest, TuningsAreListedInTheirGroupsAndSearched) {
    const auto all = json({"tunings"});
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[0]["header"], "Standard Tuning");
    EXPECT_EQ(
        all[0]["tunings"][0].dump(),
        R"({"id":"standard","title":"Standard Tuning","description":"Standard tuning for a six-string guitar",)"
        R"("strings":[{"buttonTitle":"E2","noteNumber":40},{"buttonTitle":"A2","noteNumber":45},)"
        R"({"buttonTitle":"D3","noteNumber":50},{"buttonTitle":"G3","noteNumber":55},)"
        R"({"buttonTitle":"B3","noteNumber":59},{"buttonTitle":"E4","noteNumber":64}]})");
    const auto celtic = json({"tunings", "--search", "celtic"});
    ASSERT_EQ(celtic.size(), 2u);
    EXPECT_EQ(celtic[0]["tunings"][0]["id"], "dadgad");
    EXPECT_EQ(celtic[1]["tunings"][0]["id"], "orkney");
    EXPECT_EQ(json({"tunings", "--search", "zither"}), nlohmann::ordered_json::array());
}

TEST(LibraryCommandsTest, ShapesInANamedTuningUseItsOpenNotes) {
    EXPECT_EQ(json({"chord", "shapes", "D", "--tuning", "dropD"}),
              json({"chord", "shapes", "D", "--tuning", "D,A,D,G,B,E"}));
    EXPECT_EQ(json({"chord", "shapes", "G", "--tuning", "openGMinor", "--limit", "3"}),
              json({"chord", "shapes", "G", "--tuning", "D,G,D,G,Bb,D", "--limit", "3"}));
    EXPECT_EQ(run({"chord", "shapes", "D", "--tuning", "dropQ"}).err,
              "Unknown tuning: dropQ (name one such as dropD or dadgad, or give six notes like "
              "D,A,D,G,B,E)\n");
}

TEST(LibraryCommandsTest, PreferencesReadAndChange) {
    const auto all = json({"prefs", "list"});
    for (const char* key :
         {"a4Frequency", "enabledTunings", "favouritedChords", "metronome_presets", "tempo"})
        EXPECT_TRUE(all.contains(key)) << key;
    // in text, what a person sets; the program's own keys only when asked for
    const auto settings = "\n" + run({"prefs", "list"}).out;
    const auto everything = "\n" + run({"prefs", "list", "--all"}).out;
    for (const auto& [key, shownWithoutAll] :
         std::vector<std::pair<std::string, bool>>{{"a4Frequency", true},
                                                   {"invertFretboard", true},
                                                   {"favouritedChords", false},
                                                   {"selectedTab", false}}) {
        const auto line = "\n" + key + " = ";
        EXPECT_EQ(settings.find(line) != std::string::npos, shownWithoutAll) << key;
        EXPECT_NE(everything.find(line), std::string::npos) << key;
    }
    EXPECT_EQ(std::count(everything.begin(), everything.end(), '\n'), std::ssize(all) + 1);

    EXPECT_EQ(json({"prefs", "get", "metronomeKeyIndex"}).dump(), R"({"metronomeKeyIndex":1})");
    EXPECT_EQ(json({"prefs", "set", "currentRootNote", "Bb"}).dump(),
              R"({"currentRootNote":"B♭"})");
    EXPECT_EQ(json({"prefs", "get", "currentRootNote"}).dump(), R"({"currentRootNote":"B♭"})");
    EXPECT_EQ(run({"prefs", "get", "volume"}).err, "Unknown preference: volume\n");
    const auto refused = run({"prefs", "set", "hapticsEnabled", "sometimes"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "hapticsEnabled needs true or false, not \"sometimes\"\n");
    ASSERT_EQ(run({"prefs", "set", "libraryProgressionType", "\x1b]0;pwned\x07"}).status, 0);
    EXPECT_EQ(run({"prefs", "get", "libraryProgressionType"}).out,
              "libraryProgressionType = \\x1B]0;pwned\\x07\n");
}

TEST(LibraryCommandsTest, FavouritesAndCollectionsWithTheirErrors) {
    EXPECT_EQ(json({"favorites", "add", "Dm9"}).back().dump(),
              R"({"rootNote":"D","chordType":"minor 9","variant":0})");
    const auto before = json({"favourites", "list"});
    EXPECT_EQ(json({"favourites", "add", "Dm9"}), before) << "a favourite is added once";
    const auto removed = json({"favorites", "remove", "--root", "D", "--type", "minor 9"});
    EXPECT_EQ(removed.size() + 1, before.size());
    EXPECT_EQ(run({"favorites", "remove", "Dm9"}).err,
              "Couldn’t find the chord with identifier \"D minor 9\"\n");

    const auto created = json({"collections", "create", "Bossa nova"});
    const auto id = created.back()["id"].get<std::string>();
    EXPECT_EQ(id.rfind("user-", 0), 0u);
    // by title as typed, or by id
    EXPECT_EQ(json({"collections", "add", "bossa NOVA", "Am6"}).back()["chords"][0]["chordType"],
              "minor 6");
    EXPECT_EQ(json({"collections", "rename", id.c_str(), "Samba"}).back()["title"], "Samba");
    EXPECT_EQ(run({"collections", "remove", "Samba", "E7"}).err,
              "Couldn’t find the chord with identifier \"E dominant 7th\"\n");
    EXPECT_EQ(run({"collections", "add", "user-nope", "E7"}).err,
              "Couldn’t find the collection with identifier \"user-nope\"\n");
    EXPECT_EQ(run({"collections", "create", ""}).err, "Enter a collection name.\n");
    const auto afterDelete = json({"collections", "delete", "samba"});
    for (const auto& collection : afterDelete)
        EXPECT_NE(collection["id"], id);

    // a stored title reaches the terminal without its escape sequences
    ASSERT_EQ(run({"collections", "create", "\x1b[2JLoud"}).status, 0);
    const auto listed = run({"collections", "list"}).out;
    EXPECT_EQ(listed.find('\x1b'), std::string::npos) << listed;
    EXPECT_NE(listed.find("\\x1B[2JLoud"), std::string::npos) << listed;
    EXPECT_EQ(json({"collections", "delete", "\x1b[2JLoud"}).size(), afterDelete.size());
}

/// Runs the real program with `home` as FRETQUILL_HOME.
Run programIn(const std::filesystem::path& home, const std::vector<std::string>& arguments) {
    std::string command = "FRETQUILL_HOME='" + home.string() + "' '" + FQ_FRETQUILL + "'";
    for (const auto& argument : arguments)
        command += " '" + argument + "'";
    command += " >'" + (home / "out").string() + "' 2>'" + (home / "err").string() + "'";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, bytesOf(home / "out"),
            bytesOf(home / "err")};
}

TEST(LibraryCommandsTest, ADamagedStoreIsReportedInOneLineAndKept) {
    const test::TemporaryFolder home;
    ASSERT_EQ(programIn(home.path(), {"prefs", "set", "tempo", "96"}).status, 0);
    const auto file = home / "config" / "group.com.kelvane.frtqul.shared.sqlite";
    auto bytes = test::readBytes(file);
    ASSERT_GT(bytes.size(), 8192u);
    bytes.replace(4096, 4096, 4096, '\x5a');
    test::writeBytes(file, bytes);

    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"prefs", "list"}, {"prefs", "set", "tempo", "100"}, {"favorites", "list"}}) {
        const auto result = programIn(home.path(), arguments);
        EXPECT_EQ(result.status, 1) << arguments[0];
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "Cannot open the preference store at " + file.string() +
                                  ": it is damaged (database disk image is malformed); move " +
                                  file.string() + " away to start afresh\n");
    }
    EXPECT_EQ(test::readBytes(file), bytes);
}

TEST(LibraryCommandsTest, ProcessesAddingFavouritesAtOnceAllSucceed) {
    const test::TemporaryFolder home;
    const std::vector<std::string> chords{"C",  "D",  "E",  "F",  "G",  "A",  "B",  "Cm",
                                          "Dm", "Em", "Fm", "Gm", "Am", "Bm", "C7", "D7"};
    const std::string environment = "FRETQUILL_HOME=" + home.path().string();
    std::vector<char*> env{const_cast<char*>(environment.c_str())};
    for (char** e = environ; *e; ++e)
        env.push_back(*e);
    env.push_back(nullptr);

    std::vector<pid_t> children;
    for (const auto& chord : chords) {
        const char* argv[] = {FQ_FRETQUILL, "favorites", "add", chord.c_str(), nullptr};
        pid_t pid = 0;
        ASSERT_EQ(
            posix_spawn(&pid, FQ_FRETQUILL, nullptr, nullptr, const_cast<char**>(argv), env.data()),
            0);
        children.push_back(pid);
    }
    for (const pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const auto favourites = programIn(home.path(), {"favorites", "list", "--json"});
    EXPECT_EQ(nlohmann::json::parse(favourites.out).size(), chords.size()) << favourites.out;
}

} // namespace
} // namespace fq::cli
