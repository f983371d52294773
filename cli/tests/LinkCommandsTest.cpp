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
}

} // namespace
} // namespace fq::cli
