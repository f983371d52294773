// Links made by the command read back as the chord and shape they were made from.
#include "Cli.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace fq::cli {
namespace {

std::pair<int, std::string> run(std::vector<const char*> arguments, std::string* err = nullptr) {
    std::ostringstream out, errors;
    const int status = runCli(arguments, out, errors);
    if (err) *err = errors.str();
    return {status, out.str()};
}

TEST(LinkCommandsTest, LinksMadeAreLinksRead) {
    EXPECT_EQ(run({"link", "make", "C/E", "--fingering", "x32010", "--json"}).second,
              "{\"url\":\"https://fretquill.app/chords/c-major/e/x32010\"}\n");
    EXPECT_EQ(run({"link", "make", "Bbm7"}).second,
              "https://fretquill.app/chords/b-flat-minor-7th\n");

    const auto [status, out] =
        run({"link", "parse", "https://fretquill.app/de/chords/c-major/e/x32010", "--json"});
    ASSERT_EQ(status, 0);
    EXPECT_EQ(out,
              R"({"chord":{"rootNote":"C","chordType":"major","variant":1},"chordSlug":"c-major",)"
              R"("bassNote":"E","bassSlug":"e","selectedPosition":[-1,3,2,0,1,0]})"
              "\n");
    EXPECT_EQ(nlohmann::json::parse(
                  run({"link", "parse", "https://fretquill.app/chords/a-minor", "--json"}).second)
                  .value("bassNote", nlohmann::json("absent")),
              nullptr);

    std::string err;
    EXPECT_EQ(run({"link", "parse", "https://example.com/chords/c-major"}, &err).first, 1);
    EXPECT_EQ(err, "Not a chord link: https://example.com/chords/c-major\n");
    EXPECT_EQ(run({"link", "make", "C", "--fingering", "x3201"}, &err).first, 1);

    // the link's own code for frets past 9 goes in as it comes out, up to fret 35
    for (const char* code : {"x0bbb8", "X0BBB8", "x,0,11,11,11,8"})
        EXPECT_EQ(run({"link", "make", "A", "--fingering", code}).second,
                  "https://fretquill.app/chords/a-major/x0bbb8\n")
            << code;
    auto high = run({"link", "make", "C", "--fingering", "zzzzzz"}).second;
    high.pop_back();
    EXPECT_EQ(nlohmann::json::parse(
                  run({"link", "parse", high.c_str(), "--json"}).second)["selectedPosition"],
              nlohmann::json::parse("[35,35,35,35,35,35]"));
    for (const auto& [frets, message] : std::vector<std::pair<const char*, const char*>>{
             {"x,0,11,11,11,25", "Fret 25 is past the 24th: x,0,11,11,11,25\n"},
             {"x0bbb!", "Frets must be six characters from x, 0-9 and a-z as a link writes them, "
                        "lowest string first, like x,3,2,0,1,0 or x32010: x0bbb!\n"},
             {"xxxxxx", "A shape needs a sounding string: xxxxxx\n"}}) {
        EXPECT_EQ(run({"link", "make", "C", "--fingering", frets}, &err).first, 1) << frets;
        EXPECT_EQ(err, message);
    }
}

} // namespace
} // namespace fq::cli
