// The navigation commands: following links and identifiers, and searching the index.

#include "CliRun.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

// FRETQUILL_HOME points at a temporary folder for the whole test program (CliTest.cpp).

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;

Json jsonOf(std::vector<const char*> arguments) {
    const auto result = run(std::move(arguments));
    EXPECT_EQ(result.status, 0) << result.err;
    return Json::parse(result.out, nullptr, false);
}

TEST(NavigationCommandsTest, OpenPrintsTheRouteTheKeysOrNothing) {
    EXPECT_EQ(
        run({"open", "https://fretquill.app/chords/c-major/e/x32010", "--json"}).out,
        R"({"route":{"kind":"chord","chord":{"rootNote":"C","chordType":"major","variant":1},)"
        R"("selectedPosition":[-1,3,2,0,1,0]}})"
        "\n");
    EXPECT_EQ(run({"open", "com.kelvane.fretquill.chord.guitar.standard.b-flat.minor-7th"}).out,
              "B♭ minor 7th\n");

    const auto keys =
        jsonOf({"open", "fretquill://open?progression=pop&root=g&sequence=I-V-vi-IV", "--json"});
    ASSERT_TRUE(keys.contains("keys"));
    std::vector<std::string> names;
    for (const auto& [key, value] : keys["keys"].items())
        names.push_back(key);
    EXPECT_EQ(names, (std::vector<std::string>{"selectedTab", "rootNote", "libraryProgressionType",
                                               "libraryProgressionPattern",
                                               "libraryProgressionDeepLinkID"}));
    EXPECT_EQ(keys["keys"]["selectedTab"], 2);
    EXPECT_EQ(keys["keys"]["rootNote"], "G");
    EXPECT_EQ(keys["keys"]["libraryProgressionPattern"], "I-V-vi-IV");
    EXPECT_EQ(keys["keys"]["libraryProgressionDeepLinkID"].get<std::string>().size(), 36u);

    for (const char* nothing :
         {"fretquill://open?pattern=x", "https://example.org/chords/c-major", "not a link",
          "com.kelvane.fretquill.chord.guitar.standard.c.major.inversion-1", ""}) {
        const auto result = run({"open", nothing, "--json"});
        EXPECT_EQ(result.status, 0) << nothing;
        EXPECT_EQ(result.out, "{}\n") << nothing;
    }

    const auto pack = jsonOf({"open", "fretquill://open?collection=Common%20Chords", "--json"});
    EXPECT_EQ(pack["route"]["kind"], "chordCollection");
    EXPECT_EQ(pack["route"]["collection"]["id"], "com.kelvane.fretquill.collection.common-chords");
}

TEST(NavigationCommandsTest, SearchBuildsTheIndexOnFirstUseAndRanksWhatIsTyped) {
    const auto hits = jsonOf({"search", "F#m7", "--limit", "3", "--json"});
    ASSERT_TRUE(hits.is_array());
    ASSERT_EQ(hits.size(), 3u);
    EXPECT_EQ(hits[0]["id"], "com.kelvane.fretquill.chord.guitar.standard.f-sharp.minor-7th");
    std::vector<std::string> fields;
    for (const auto& [key, value] : hits[0].items())
        fields.push_back(key);
    EXPECT_EQ(fields.front(), "id");
    EXPECT_EQ(fields.size(), 17u);

    const auto status = jsonOf({"index", "status", "--json"});
    EXPECT_EQ(status["needsRebuild"], false);
    EXPECT_EQ(status["schemaVersion"], 4);
    EXPECT_GT(status["items"].get<int>(), 17 * 40);

    const auto text = run({"search", "c sharp minor", "--limit", "1"});
    EXPECT_NE(text.out.find("C♯ minor"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("https://fretquill.app/chords/c-sharp-minor"), std::string::npos)
        << text.out;
    EXPECT_EQ(jsonOf({"search", "jazz", "--json"})[0]["kind"], "chordCollection");
    EXPECT_EQ(run({"search", "qqqzzz"}).out, "Nothing found.\n");
    EXPECT_EQ(run({"search", "C", "--limit", "0"}).status, 1);
}

TEST(NavigationCommandsTest, OwnCollectionsAreFoundAfterTheyAreMade) {
    ASSERT_EQ(run({"collections", "create", "Campfire Songs"}).status, 0);
    const auto hits = jsonOf({"search", "campfire", "--json"});
    ASSERT_FALSE(hits.empty());
    EXPECT_EQ(hits[0]["id"], "com.kelvane.fretquill.collection.campfire-songs");
    const auto opened =
        jsonOf({"open", "fretquill://spotlight/com.kelvane.fretquill.collection.campfire-songs",
                "--json"});
    EXPECT_EQ(opened["route"]["collection"]["subtitle"], "This is a collection created by you");

    // a stored title reaches the terminal without its escape sequences
    ASSERT_EQ(run({"collections", "create", "Evil\x1b[2J"}).status, 0);
    for (const auto& printed : {run({"open", "com.kelvane.fretquill.collection.evil-2j"}).out,
                                run({"search", "evil"}).out}) {
        EXPECT_NE(printed.find("Evil\\x1B[2J"), std::string::npos) << printed;
        EXPECT_EQ(printed.find('\x1b'), std::string::npos) << printed;
    }

    const auto rebuilt = jsonOf({"index", "rebuild", "--json"});
    EXPECT_EQ(rebuilt["rebuilt"], true);
    EXPECT_EQ(rebuilt["needsRebuild"], false);
}

} // namespace
} // namespace fq::cli
