// The chord commands as a person runs them, through the in-process command.
#include "CliRun.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace fq::cli {
namespace {

/// The command keeps shapes in the preference store: give the tests a home of their own.
class TemporaryHome : public ::testing::Environment {
public:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "fq-cli-XXXXXX").string();
        home_ = mkdtemp(pattern.data());
        setenv("FRETQUILL_HOME", home_.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(home_); }

private:
    std::filesystem::path home_;
};
const auto* const temporaryHome = ::testing::AddGlobalTestEnvironment(new TemporaryHome);

TEST(CliTest, ChordShowPrintsTheDocumentedJson) {
    const auto result = run({"chord", "show", "C/E", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto json = nlohmann::ordered_json::parse(result.out);
    std::vector<std::string> keys;
    for (const auto& [key, value] : json.items())
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"chord", "name", "shortestName", "formula", "notes",
                                              "intervalNames", "rootedIntervalNames", "aliases",
                                              "mood", "genres", "description"}));
    EXPECT_EQ(json["chord"].dump(), R"({"rootNote":"C","chordType":"major","variant":1})");
    EXPECT_EQ(json["name"], "C major/E");
    EXPECT_EQ(json["shortestName"], "C/E");
    EXPECT_EQ(json["notes"], nlohmann::json::parse(R"(["C","E","G"])"));
    EXPECT_EQ(json["rootedIntervalNames"],
              nlohmann::json::parse(R"(["Major Third","Perfect Fifth","Root"])"));
    EXPECT_EQ(json["mood"], "happy, bright, stable, uplifting");
    EXPECT_EQ(json["description"].get<std::string>().rfind("The C major chord", 0), 0u);
}

TEST(CliTest, ChordsByPartsAndVariants) {
    const auto byParts =
        run({"chord", "show", "--root", "Eb", "--type", "minor 7th", "--variant", "2", "--json"});
    ASSERT_EQ(byParts.status, 0) << byParts.err;
    EXPECT_EQ(nlohmann::json::parse(byParts.out)["name"], "E♭ minor 7th/B♭");
    const auto symbolWithVariant = run({"chord", "show", "Am", "--variant", "1", "--json"});
    ASSERT_EQ(symbolWithVariant.status, 0) << symbolWithVariant.err;
    EXPECT_EQ(nlohmann::json::parse(symbolWithVariant.out)["chord"]["variant"], 1);
    const auto text = run({"chord", "show", "C"});
    EXPECT_NE(text.out.find("C major  (C)"), std::string::npos);
    EXPECT_NE(text.out.find("x32010"), std::string::npos);
}

TEST(CliTest, SearchesPrintArraysOfChords) {
    const auto match = run({"chord", "match", "E, G, C", "--json"});
    ASSERT_EQ(match.status, 0) << match.err;
    EXPECT_EQ(match.out, "[{\"rootNote\":\"C\",\"chordType\":\"major\",\"variant\":1}]\n");
    EXPECT_EQ(run({"chord", "match", "C,C,E", "--json"}).out, "[]\n");
    const auto similar = run({"chord", "similar", "c, e", "--json"});
    ASSERT_EQ(similar.status, 0) << similar.err;
    const auto chords = nlohmann::ordered_json::parse(similar.out);
    ASSERT_TRUE(chords.is_array());
    EXPECT_EQ(chords.front().dump(), R"({"rootNote":"C","chordType":"major","variant":0})");
    EXPECT_NE(run({"chord", "match", "E,G,C"}).out.find("C major/E"), std::string::npos);
}

TEST(CliTest, ShapesAndFingers) {
    const auto shapes = run({"chord", "shapes", "C", "--limit", "3", "--json"});
    ASSERT_EQ(shapes.status, 0) << shapes.err;
    const auto list = nlohmann::ordered_json::parse(shapes.out);
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list.front().dump(), R"({"position":[-1,3,2,0,1,0],"fingering":[0,3,2,0,1,0]})");

    const auto dropD = nlohmann::json::parse(
        run({"chord", "shapes", "D", "--tuning", "D,A,D,G,B,E", "--json"}).out);
    const auto standard = nlohmann::json::parse(run({"chord", "shapes", "D", "--json"}).out);
    EXPECT_NE(dropD, standard);
    EXPECT_EQ(run({"chord", "shapes", "C", "--limit", "0", "--json"}).out, "[]\n");

    const auto text = run({"chord", "shapes", "F", "--limit", "1"});
    EXPECT_NE(text.out.find("133211"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("1━━━━━━━1━1"), std::string::npos) << "the barre on the first fret";
    EXPECT_NE(text.out.find("│ 3 4 │ │ │"), std::string::npos)
        << "ring and little finger on the third";

    for (const char* frets : {"1,3,3,2,1,1", "133211", "1, 3, 3, 2, 1, 1"})
        EXPECT_EQ(run({"chord", "fingering", frets, "--json"}).out, "[1,3,4,2,1,1]\n") << frets;
    EXPECT_EQ(run({"chord", "fingering", "x,x,x,x,x,x", "--json"}).out, "[]\n");
    EXPECT_EQ(run({"chord", "fingering", "-1,3,2,0,1,3", "--json"}).out, "[0,3,2,0,1,4]\n");
}

TEST(CliTest, ShapesShowADozenUnlessAskedForAll) {
    const auto count = [](const std::string& text) {
        std::size_t boxes = 0;
        for (auto at = text.find("╒"); at != std::string::npos; at = text.find("╒", at + 1))
            ++boxes;
        for (auto at = text.find("┌"); at != std::string::npos; at = text.find("┌", at + 1))
            ++boxes;
        return boxes;
    };
    const auto all = nlohmann::json::parse(run({"chord", "shapes", "G", "--json"}).out);
    ASSERT_GT(all.size(), 12u) << "JSON carries every shape";
    const auto dozen = run({"chord", "shapes", "G"}).out;
    EXPECT_EQ(count(dozen), 12u);
    EXPECT_NE(dozen.find(fmt::format("\n12 of {} (--all for every one)\n", all.size())),
              std::string::npos)
        << dozen;
    const auto every = run({"chord", "shapes", "G", "--all"}).out;
    EXPECT_EQ(count(every), all.size());
    EXPECT_EQ(every.find("--all for every one"), std::string::npos);
    EXPECT_EQ(count(run({"chord", "shapes", "G", "--limit", "2"}).out), 2u);
    // a label up the neck keeps two columns clear of the next box
    const auto high = run({"chord", "shapes", "A", "--all"}).out;
    std::size_t labels = 0;
    for (auto at = high.find("fr"); at != std::string::npos; at = high.find("fr", at + 1)) {
        ++labels;
        const auto after = high.substr(at + 2, 2);
        EXPECT_TRUE(after.starts_with("\n") || after == "  ") << high.substr(0, at + 4);
    }
    EXPECT_GT(labels, 5u);
}

TEST(CliTest, TypedChordsTuningsAndTypes) {
    const std::vector<std::pair<const char*, const char*>> symbols{
        {"C7b9", R"({"rootNote":"C","chordType":"dominant 7th flat 9th","variant":0})"},
        {"Cm7b5", R"({"rootNote":"C","chordType":"minor 7th flat 5","variant":0})"},
        {"E#m", R"({"rootNote":"E♯","chordType":"minor","variant":0})"},
        {"B♯", R"({"rootNote":"B♯","chordType":"major","variant":0})"},
    };
    for (const auto& [symbol, chord] : symbols)
        EXPECT_EQ(json({"chord", "show", symbol})["chord"].dump(), chord) << symbol;
    const auto dropD = json({"chord", "shapes", "D", "--tuning", "dropD"});
    for (const char* tuning : {"DROPD", "drop d", "D2,A2,D3,G3,B3,E4", "d a d g b e"})
        EXPECT_EQ(json({"chord", "shapes", "D", "--tuning", tuning}), dropD) << tuning;

    const auto types = json({"chord", "types"});
    ASSERT_EQ(types.size(), 49u);
    EXPECT_EQ(types.front(), "major");
    EXPECT_EQ(types.back(), "diminished 7th");
    EXPECT_NE(
        run({"chord", "types"}).out.find("minor 7th flat 5         min7(♭5)         1-♭3-♭5-♭7\n"),
        std::string::npos);
}

TEST(CliTest, DiagramsFollowTheHandAndTheFretboardSettings) {
    const auto box = [] { return run({"chord", "fingering", "133211"}).out; };
    EXPECT_NE(box().find("1━━━━━━━1━1"), std::string::npos);
    ASSERT_EQ(run({"prefs", "set", "left_handed", "true"}).status, 0);
    EXPECT_NE(box().find("1━1━━━━━━━1"), std::string::npos) << "the highest string on the left";
    EXPECT_NE(box().find("│ │ │ 4 3 │"), std::string::npos) << box();
    ASSERT_EQ(run({"prefs", "set", "invertFretboard", "true"}).status, 0);
    const auto turned = box();
    EXPECT_LT(turned.find("│ │ │ 4 3 │"), turned.find("╘═╧═╧═╧═╧═╛")) << "the nut at the bottom";
    run({"prefs", "set", "left_handed", "false"});
    run({"prefs", "set", "invertFretboard", "false"});
}

TEST(CliTest, BadInputIsOneLineOnStandardErrorWithStatusOne) {
    const std::vector<std::pair<std::vector<const char*>, std::string>> cases{
        {{"chord", "show", "H7"}, "Unknown chord: H7\n"},
        {{"chord", "show", "--root", "C", "--type", "mayor"}, "Unknown chord type: mayor\n"},
        {{"chord", "show", "C", "--root", "D"},
         "Give either a chord symbol or --root with --type, not both\n"},
        {{"chord", "show"}, "Name a chord, e.g. \"Am7\", or give --root and --type\n"},
        {{"chord", "match", "C, H, G"}, "Unknown note: H\n"},
        {{"chord", "match", "C,E,"}, "Missing a note in \"C,E,\"\n"},
        {{"chord", "show", "C", "--variant", "many"}, ""},
        {{"chord", "shapes", "C", "--tuning", "E,A,D,G,B"},
         "A tuning needs six notes, lowest string first, like D,A,D,G,B,E: E,A,D,G,B\n"},
        {{"chord", "shapes", "C", "--tuning", "E,A,D,G,H,E"}, "Unknown note in tuning: H\n"},
        {{"chord", "shapes", "C", "--limit", "-2"}, "The limit must be 0 or more: -2\n"},
        {{"chord", "fingering", "x3201"}, ""},
        {{"chord", "fingering", "x,3,2,0,1,25"}, "Fret 25 is past the 24th: x,3,2,0,1,25\n"},
        {{"chord", "shapes", "C", "--tuning", "dropZ"},
         "Unknown tuning: dropZ (name one such as dropD or dadgad, or give six notes like "
         "D,A,D,G,B,E)\n"},
        {{"chord", "shapes", "C", "--all", "--limit", "2"}, ""},
        {{"chord", "fingering", "x,3,2,0,1,"}, ""},
        {{"chord", "sing"}, ""},
    };
    for (const auto& [arguments, message] : cases) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 1) << arguments.back();
        EXPECT_TRUE(result.out.empty()) << arguments.back();
        ASSERT_FALSE(result.err.empty());
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        if (!message.empty()) {
            EXPECT_EQ(result.err, message);
        }
    }
}

TEST(CliTest, ShapesAreRememberedInTheStore) {
    run({"chord", "shapes", "Dm7", "--limit", "1"});
    const auto store = std::filesystem::path(std::getenv("FRETQUILL_HOME")) / "config" /
                       "group.com.kelvane.frtqul.shared.sqlite";
    EXPECT_TRUE(std::filesystem::exists(store));
}

TEST(CliTest, HelpAndWelcomeGoToStandardOutput) {
    const auto help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("chord"), std::string::npos);
    const auto welcome = run({});
    EXPECT_EQ(welcome.status, 0);
    EXPECT_NE(welcome.out.find("fretquill chord show"), std::string::npos);
}

} // namespace
} // namespace fq::cli
