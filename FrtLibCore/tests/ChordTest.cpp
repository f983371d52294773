#include "fq/core/Chord.h"

#include <gtest/gtest.h>

namespace fq::core {
namespace {

TEST(ChordTest, JsonRoundTripKeepsEveryField) {
    const Chord chord{Note::Cs, "minor 7th", 2};
    const auto json = toJson(chord);
    EXPECT_EQ(json.dump(), R"({"rootNote":"C♯","chordType":"minor 7th","variant":2})");
    EXPECT_EQ(chordFromJson(json), chord);
}

TEST(ChordTest, DecodingDefaultsTheVariantAndNamesBadInput) {
    EXPECT_EQ(chordFromJson(nlohmann::json::parse(R"({"rootNote":"E♭","chordType":"major"})")),
              (Chord{Note::Ef, "major", 0}));

    const std::vector<std::pair<std::string_view, std::string_view>> failures{
        {R"({"rootNote":"H","chordType":"major"})", "Unrecognised note: H"},
        {R"({"rootNote":"C#","chordType":"major"})", "Unrecognised note: C#"},
        {R"({"chordType":"major"})", "Missing text value for key: rootNote"},
        {R"({"rootNote":"C"})", "Missing text value for key: chordType"},
        {R"({"rootNote":"C","chordType":"major","variant":"1"})",
         "The value for key variant must be an integer"},
        {R"(["C","major"])", "A chord must be a JSON object"},
    };
    for (const auto& [text, message] : failures) {
        const auto decoded = chordFromJson(nlohmann::json::parse(text));
        ASSERT_FALSE(decoded) << text;
        EXPECT_EQ(decoded.error().message, message);
    }
}

TEST(ChordTest, EqualityAndHashCoverAllThreeFields) {
    const Chord a{Note::C, "major", 0};
    for (const Chord& other :
         {Chord{Note::Bs, "major", 0}, Chord{Note::C, "minor", 0}, Chord{Note::C, "major", 1}}) {
        EXPECT_NE(a, other);
        EXPECT_NE(ChordHash{}(a), ChordHash{}(other));
    }
    EXPECT_EQ(ChordHash{}(a), ChordHash{}(Chord{Note::C, "major", 0}));
}

} // namespace
} // namespace fq::core
