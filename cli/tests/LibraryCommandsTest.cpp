#include "CliRun.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

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
    EXPECT_EQ(json({"prefs", "get", "metronomeKeyIndex"}).dump(), R"({"metronomeKeyIndex":1})");
    EXPECT_EQ(json({"prefs", "set", "currentRootNote", "Bb"}).dump(),
              R"({"currentRootNote":"B♭"})");
    EXPECT_EQ(json({"prefs", "get", "currentRootNote"}).dump(), R"({"currentRootNote":"B♭"})");
    EXPECT_EQ(run({"prefs", "get", "volume"}).err, "Unknown preference: volume\n");
    const auto refused = run({"prefs", "set", "hapticsEnabled", "sometimes"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "hapticsEnabled needs true or false, not \"sometimes\"\n");
}

TEST(LibraryCommandsTest, FavouritesAndCollectionsWithTheirErrors) {
    EXPECT_EQ(json({"favorites", "add", "Dm9"}).back().dump(),
              R"({"rootNote":"D","chordType":"minor 9","variant":0})");
    const auto before = json({"favorites", "list"});
    EXPECT_EQ(json({"favorites", "add", "Dm9"}), before) << "a favourite is added once";
    const auto removed = json({"favorites", "remove", "--root", "D", "--type", "minor 9"});
    EXPECT_EQ(removed.size() + 1, before.size());
    EXPECT_EQ(run({"favorites", "remove", "Dm9"}).err,
              "Couldn’t find the chord with identifier \"D minor 9\"\n");

    const auto created = json({"collections", "create", "Bossa nova"});
    const auto id = created.back()["id"].get<std::string>();
    EXPECT_EQ(id.rfind("user-", 0), 0u);
    const auto added = json({"collections", "add", id.c_str(), "Am6"});
    EXPECT_EQ(added.back()["chords"][0]["chordType"], "minor 6");
    EXPECT_EQ(json({"collections", "rename", id.c_str(), "Samba"}).back()["title"], "Samba");
    EXPECT_EQ(run({"collections", "remove", id.c_str(), "E7"}).err,
              "Couldn’t find the chord with identifier \"E dominant 7th\"\n");
    EXPECT_EQ(run({"collections", "add", "user-nope", "E7"}).err,
              "Couldn’t find the collection with identifier \"user-nope\"\n");
    EXPECT_EQ(run({"collections", "create", ""}).err, "Enter a collection name.\n");
    const auto afterDelete = json({"collections", "delete", id.c_str()});
    for (const auto& collection : afterDelete)
        EXPECT_NE(collection["id"], id);
}

/// Runs the real program in a home of its own and returns its standard output.
std::string runProgram(const std::vector<std::string>& arguments, const std::string& home) {
    const auto output = std::filesystem::path(home) / ("out-" + std::to_string(std::rand()));
    std::string command = std::string("FRETQUILL_HOME='") + home + "' '" + FQ_FRETQUILL + "'";
    for (const auto& argument : arguments)
        command += " '" + argument + "'";
    command += " > '" + output.string() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    std::ifstream in(output);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(LibraryCommandsTest, ProcessesAddingFavouritesAtOnceAllSucceed) {
    std::string pattern = (std::filesystem::temp_directory_path() / "fq-race-XXXXXX").string();
    const std::string home = mkdtemp(pattern.data());
    const std::vector<std::string> chords{"C",  "D",  "E",  "F",  "G",  "A",  "B",  "Cm",
                                          "Dm", "Em", "Fm", "Gm", "Am", "Bm", "C7", "D7"};
    const std::string environment = "FRETQUILL_HOME=" + home;
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
    const auto favourites =
        nlohmann::json::parse(runProgram({"favorites", "list", "--json"}, home));
    EXPECT_EQ(favourites.size(), chords.size()) << favourites.dump();
    std::filesystem::remove_all(home);
}

} // namespace
} // namespace fq::cli
