// Frets as a person types them and as a link writes them.
#include "ChordInput.h"

#include <gtest/gtest.h>

namespace fq::cli {
namespace {

TEST(ChordInputTest, FretsInBothForms) {
    using Frets = std::vector<int>;
    const std::vector<std::pair<std::string_view, Frets>> cases{
        {"x32010", {-1, 3, 2, 0, 1, 0}},
        {"X32010", {-1, 3, 2, 0, 1, 0}},
        {"x,3,2,0,1,0", {-1, 3, 2, 0, 1, 0}},
        {"-1, 3, 2, 0, 1, 0", {-1, 3, 2, 0, 1, 0}},
        {"x0bbb8", {-1, 0, 11, 11, 11, 8}},
        {"awyz00", {10, 32, 34, 35, 0, 0}},
        {"xxxxxx", {-1, -1, -1, -1, -1, -1}},
        {"x,x,x,x,x,x", {-1, -1, -1, -1, -1, -1}},
        {"24,24,24,24,24,24", {24, 24, 24, 24, 24, 24}},
    };
    for (const auto& [text, frets] : cases)
        EXPECT_EQ(fretsFromText(text), frets) << text;
    for (const std::string_view text :
         {"x3201", "x320100", "", "x,3,2,0,1", "x,3,2,0,1,0,0", "x,3,2,0,1,", "x,3,2,0,1,25",
          "x,3,2,0,1,-2", "x,3,2,0,1,a", "x3201!", "x32 10"}) {
        const auto frets = fretsFromText(text);
        ASSERT_FALSE(frets) << text;
        EXPECT_EQ(frets.error().kind, ErrorKind::refused);
        EXPECT_TRUE(frets.error().message.ends_with(text)) << frets.error().message;
    }
}

} // namespace
} // namespace fq::cli
