#include "fq/core/ChordEngine.h"

#include "ChordEngineOracle.h"
#include "fq/core/ChordDataManager.h"
#include "fq/core/Spelling.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace fq::core {
namespace {

using Tuning6 = std::array<std::string_view, 6>;

constexpr Tuning6 standard{"E", "A", "D", "G", "B", "E"};
constexpr Tuning6 nashville{"E", "A", "D", "G", "B", "E"}; // same names, strings not rising
constexpr Tuning6 halfStepDownFlats{"E♭", "A♭", "D♭", "G♭", "B♭", "E♭"};
constexpr Tuning6 halfStepDownSharps{"D♯", "G♯", "C♯", "F♯", "A♯", "D♯"};
constexpr Tuning6 dropD{"D", "A", "D", "G", "B", "E"};
constexpr Tuning6 dadgad{"D", "A", "D", "G", "A", "D"};
constexpr Tuning6 openBFlat{"B♭", "F", "B♭", "F", "B♭", "D"};

/// The chord's intervals with the inversion's note first, as positions ask for them.
std::vector<int> intervalsFor(const ChordData& data, std::size_t variant) {
    auto intervals = data.notes;
    std::swap(intervals[0], intervals[variant]);
    return intervals;
}

struct SampleGroup {
    std::string name;
    std::vector<std::string_view> roots;
    Tuning6 tuning;
    bool everyVariant;
};

void PrintTo(const SampleGroup& group, std::ostream* out) {
    *out << group.name;
}

class FastGeneratorMatchesOracle : public ::testing::TestWithParam<SampleGroup> {};

TEST_P(FastGeneratorMatchesOracle, ShapeForShapeInTheSameOrder) {
    const auto& group = GetParam();
    const ChordEngine engine;
    std::size_t queries = 0;
    for (const auto root : group.roots) {
        for (const auto& data : ChordDataManager::shared().catalogue()) {
            const std::size_t variants = group.everyVariant
                                             ? data.notes.size()
                                             : std::min<std::size_t>(2, data.notes.size());
            for (std::size_t variant = 0; variant < variants; ++variant) {
                const auto intervals = intervalsFor(data, variant);
                const auto expected = oracle::chordPositions(root, intervals, -1, group.tuning);
                ASSERT_EQ(engine.chordPositions(root, intervals, -1, group.tuning), expected)
                    << root << " " << data.title << " variant " << variant;
                ++queries;
            }
        }
    }
    EXPECT_GT(queries, 90u);
}

INSTANTIATE_TEST_SUITE_P(
    BroadSample, FastGeneratorMatchesOracle,
    ::testing::Values(SampleGroup{"StandardNaturals", {"C", "G"}, standard, true},
                      SampleGroup{"StandardSharpAndFlat", {"F♯", "B♭"}, standard, true},
                      SampleGroup{"StandardRemoteSpellings", {"B♯", "E♭♭"}, standard, false},
                      SampleGroup{"Nashville", {"A"}, nashville, false},
                      SampleGroup{"FlatOpenNotes", {"E♭", "D"}, halfStepDownFlats, false},
                      SampleGroup{"SharpOpenNotes", {"D♯"}, halfStepDownSharps, false},
                      SampleGroup{"DropD", {"D", "A♭"}, dropD, false},
                      SampleGroup{"Dadgad", {"G"}, dadgad, false},
                      SampleGroup{"OpenBFlat", {"B♭", "E"}, openBFlat, false}),
    [](const auto& group) { return group.param.name; });

TEST(ChordEngineTest, LimitsStopAtTheFirstClassShapesFoundFirst) {
    const ChordEngine engine;
    for (const auto& [root, intervals] : std::vector<std::pair<std::string_view, std::vector<int>>>{
             {"C", {0, 4, 7}}, {"F♯", {3, 0, 7, 10}}, {"B♭", {0, 4, 7, 10, 14}}}) {
        const auto all = engine.chordPositions(root, intervals, -1, standard);
        for (int limit : {0, 1, 2, 5}) {
            const auto limited = engine.chordPositions(root, intervals, limit, standard);
            EXPECT_EQ(limited, oracle::chordPositions(root, intervals, limit, standard));
            const auto expectedCount =
                std::max(1, limit); // the first shape found is kept even at 0
            ASSERT_EQ(limited.size(), static_cast<std::size_t>(expectedCount))
                << root << " limit " << limit;
            EXPECT_TRUE(std::equal(limited.begin(), limited.end(), all.begin()))
                << root << " limit " << limit;
        }
    }
}

/// The pitch class sounding on each string of a standard-tuned guitar, or -1.
std::vector<int> pitchClasses(const ChordPosition& shape) {
    constexpr std::array<int, 6> open{4, 9, 2, 7, 11, 4};
    std::vector<int> classes;
    for (std::size_t s = 0; s < 6; ++s)
        classes.push_back(shape.position[s] < 0 ? -1 : (open[s] + shape.position[s]) % 12);
    return classes;
}

int bassPitchClass(const ChordPosition& shape) {
    for (int pc : pitchClasses(shape))
        if (pc >= 0) return pc;
    return -1;
}

bool sounds(const ChordPosition& shape, int pitchClass) {
    const auto classes = pitchClasses(shape);
    return std::find(classes.begin(), classes.end(), pitchClass) != classes.end();
}

TEST(ChordEngineTest, ShapesSoundTheChordOverItsBass) {
    const ChordEngine engine;
    const auto major = engine.chordPositions("C", std::vector{0, 4, 7}, -1, standard);
    ASSERT_FALSE(major.empty());
    const ChordPosition openC{{-1, 3, 2, 0, 1, 0}, {0, 3, 2, 0, 1, 0}};
    EXPECT_NE(std::find(major.begin(), major.end(), openC), major.end());
    for (const auto& shape : major) {
        EXPECT_EQ(bassPitchClass(shape), 0) << ::testing::PrintToString(shape.position);
        EXPECT_TRUE(sounds(shape, 4) && sounds(shape, 7)) << "a triad keeps its fifth";
    }

    const auto seventh = engine.chordPositions("C", std::vector{0, 4, 7, 10}, -1, standard);
    EXPECT_TRUE(std::any_of(seventh.begin(), seventh.end(), [](const auto& s) {
        return !sounds(s, 7);
    })) << "the fifth of a four-note chord may go";
    for (const auto& shape : seventh)
        EXPECT_TRUE(sounds(shape, 0) && sounds(shape, 4) && sounds(shape, 10));

    const auto firstInversion = engine.chordPositions("C", std::vector{4, 0, 7}, -1, standard);
    ASSERT_FALSE(firstInversion.empty());
    for (const auto& shape : firstInversion)
        EXPECT_EQ(bassPitchClass(shape), 4);

    // fingers come from the same frets, lowest string first
    for (const auto& shape : major)
        EXPECT_EQ(shape.fingering, ChordEngine::fingering(shape.position));
}

TEST(ChordEngineTest, AFlatSpelledOpenNoteNeverStandsInForAFret) {
    // Open strings written with flats are found by position but never equal the
    // engine's sharp-spelled chord notes, so they are offered only at the nut.
    const std::vector<int> dSharpMinor{0, 3, 7};
    const ChordEngine engine;
    const auto openWithHighFret = [](const ChordPosition& shape) {
        const bool open =
            std::find(shape.position.begin(), shape.position.end(), 0) != shape.position.end();
        return open && *std::max_element(shape.position.begin(), shape.position.end()) > 3;
    };
    const auto flats = engine.chordPositions("D♯", dSharpMinor, -1, halfStepDownFlats);
    const auto sharps = engine.chordPositions("D♯", dSharpMinor, -1, halfStepDownSharps);
    EXPECT_FALSE(flats.empty());
    EXPECT_NE(flats, sharps);
    EXPECT_TRUE(std::none_of(flats.begin(), flats.end(), openWithHighFret));
    EXPECT_TRUE(std::any_of(sharps.begin(), sharps.end(), openWithHighFret));
}

TEST(ChordEngineTest, UnknownNamesGiveNothing) {
    const ChordEngine engine;
    EXPECT_TRUE(engine.chordPositions("H", std::vector{0, 4, 7}, -1, standard).empty());
    EXPECT_TRUE(engine.chordPositions("C#", std::vector{0, 4, 7}, -1, standard).empty());
    EXPECT_TRUE(
        engine.chordPositions("C", std::vector{0, 4, 7}, -1, Tuning6{"E", "A", "D", "G", "B", "X"})
            .empty());
}

/// A memo in memory: the test double at the store's seam.
class MemoryStore : public BytesStore {
public:
    std::optional<Bytes> data(std::string_view key) const override {
        ++reads;
        const auto found = values.find(std::string(key));
        return found == values.end() ? std::nullopt : std::optional<Bytes>(found->second);
    }
    void setData(std::string_view key, std::span<const std::uint8_t> bytes) override {
        values[std::string(key)] = Bytes(bytes.begin(), bytes.end());
    }
    std::map<std::string, Bytes> values;
    mutable int reads = 0;
};

Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST(ChordEngineMemoTest, ResultsAreStoredUnderAKeyThatNamesTheQuery) {
    MemoryStore store;
    const ChordEngine engine(&store);
    const auto fresh = engine.chordPositions("C", std::vector{0, 4, 7}, -1, standard);
    const auto key = "chordPositions-C-0,4,7--1-E,A,D,G,B,E-g2-v" + std::string(appVersion()) +
                     "-b" + std::string(appBuild());
    ASSERT_EQ(store.values.count(key), 1u);
    EXPECT_EQ(decodeChordPositions(store.values[key]), fresh);

    engine.chordPositions("C", std::vector{0, 4, 7}, 1, standard);
    EXPECT_EQ(store.values.size(), 2u) << "the limit is part of the key";
    engine.chordPositions("C", std::vector{4, 0, 7}, -1, standard);
    EXPECT_EQ(store.values.size(), 3u) << "so is the order of the intervals";
    engine.chordPositions("H", std::vector{0, 4, 7}, -1, standard);
    EXPECT_EQ(store.values.size(), 3u) << "an unknown root stores nothing";
}

TEST(ChordEngineMemoTest, AStoredResultIsReturnedAndABrokenOneReplaced) {
    MemoryStore store;
    const ChordEngine engine(&store);
    const auto key = ChordEngine::memoKey("C", std::vector{0, 4, 7}, -1, standard);
    store.values[key] = bytesOf(R"([{"position":[0,0,0,0,0,0],"fingering":[]}])");
    const auto remembered = engine.chordPositions("C", std::vector{0, 4, 7}, -1, standard);
    EXPECT_EQ(remembered, (std::vector<ChordPosition>{{{0, 0, 0, 0, 0, 0}, {}}}));

    for (const auto* broken :
         {"not json", R"({"position":[]})", R"([{"position":[1,2],"fingering":[]}])", ""}) {
        store.values[key] = bytesOf(broken);
        const auto regenerated = engine.chordPositions("C", std::vector{0, 4, 7}, -1, standard);
        EXPECT_EQ(regenerated,
                  ChordEngine().chordPositions("C", std::vector{0, 4, 7}, -1, standard))
            << broken;
        EXPECT_EQ(decodeChordPositions(store.values[key]), regenerated) << broken;
    }
}

} // namespace
} // namespace fq::core
