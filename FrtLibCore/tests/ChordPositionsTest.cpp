#include "fq/core/ChordPositions.h"

#include "fq/core/ChordDataManager.h"
#include "fq/core/ChordEngine.h"

#include <gtest/gtest.h>

namespace fq::core {
namespace {

const std::array<std::string_view, 6> standard{"E", "A", "D", "G", "B", "E"};
const std::array<std::string_view, 6> dropD{"D", "A", "D", "G", "B", "E"};

std::vector<std::vector<int>> fretsOf(const std::vector<ChordPosition>& list) {
    std::vector<std::vector<int>> frets;
    for (const auto& p : list)
        frets.push_back(p.position);
    return frets;
}

TEST(ChordPositionsTest, PreferredShapesLeadInTheirOrderAndTheRestKeepTheGenerators) {
    const auto generated =
        fretsOf(ChordEngine().chordPositions("C", std::vector{0, 4, 7}, -1, standard));
    const auto listed = fretsOf(positions(Note::C, "major", 0, -1, standard));
    ASSERT_EQ(listed.size(), generated.size());

    std::vector<std::vector<int>> preferred;
    for (const auto& shape : ChordDataManager::shared().priorityPositions({Note::C, "major", 0})) {
        const std::vector<int> frets(shape.begin(), shape.end());
        if (std::find(generated.begin(), generated.end(), frets) != generated.end())
            preferred.push_back(frets);
    }
    ASSERT_GE(preferred.size(), 3u);
    EXPECT_EQ(preferred.front(), (std::vector<int>{-1, 3, 2, 0, 1, 0}));
    EXPECT_TRUE(std::equal(preferred.begin(), preferred.end(), listed.begin()));
    std::vector<std::vector<int>> rest;
    for (const auto& frets : generated)
        if (std::find(preferred.begin(), preferred.end(), frets) == preferred.end())
            rest.push_back(frets);
    EXPECT_TRUE(
        std::equal(rest.begin(), rest.end(), listed.begin() + static_cast<long>(preferred.size())));
}

TEST(ChordPositionsTest, PreferencesFollowEqualSpellingsButNotInversions) {
    EXPECT_EQ(positions(Note::Bs, "major", 0, -1, standard),
              positions(Note::C, "major", 0, -1, standard));
    EXPECT_EQ(positions(Note::Df, "5", 0, 1, standard), positions(Note::Cs, "5", 0, 1, standard));
    // the first inversion keeps the generator's own order
    EXPECT_EQ(positions(Note::C, "major", 1, -1, standard),
              ChordEngine().chordPositions("C", std::vector{4, 0, 7}, -1, standard));
    // a variant swaps its note to the front: 0, 4, 7, 11 becomes 7, 4, 0, 11
    EXPECT_EQ(positions(Note::C, "major 7th", 2, -1, standard),
              ChordEngine().chordPositions("C", std::vector{7, 4, 0, 11}, -1, standard));
}

TEST(ChordPositionsTest, LimitsTuningsAndUnknownTypes) {
    const auto all = positions(Note::G, "major", 0, -1, standard);
    EXPECT_TRUE(positions(Note::G, "major", 0, 0, standard).empty());
    const auto three = positions(Note::G, "major", 0, 3, standard);
    ASSERT_EQ(three.size(), 3u);
    EXPECT_TRUE(std::equal(three.begin(), three.end(), all.begin()));
    EXPECT_NE(positions(Note::D, "major", 0, -1, dropD),
              positions(Note::D, "major", 0, -1, standard));
    EXPECT_NE(ChordPositionsCache::key(Note::D, "major", 0, dropD),
              ChordPositionsCache::key(Note::D, "major", 0, standard));
    EXPECT_EQ(ChordPositionsCache::key(Note::C, "major", 0, standard), "C-major-0-EADGBE");
    EXPECT_TRUE(positions(Note::C, "nonesuch", 0, -1, standard).empty());
    EXPECT_TRUE(positions(Note::C, "major", 3, -1, standard).empty());
}

PositionRequest request(Note note, std::string type, std::vector<int> matching,
                        std::vector<int> near, bool useCache = false) {
    return {note,
            std::move(type),
            0,
            {"E", "A", "D", "G", "B", "E"},
            std::move(matching),
            std::move(near),
            useCache};
}

TEST(ChordPositionsTest, PickingOneShape) {
    const auto all = positions(Note::A, "minor", 0, -1, standard);
    ASSERT_GT(all.size(), 3u);
    const auto pick = [](const PositionRequest& r) { return resolvePosition(r); };

    EXPECT_EQ(pick(request(Note::A, "minor", all[2].position, {})), all[2]);
    EXPECT_EQ(pick(request(Note::A, "minor", {9, 9, 9, 9, 9, 9}, {})), all.front())
        << "unknown frets give the first";
    EXPECT_EQ(pick(request(Note::A, "minor", {}, all[3].position)), all[3])
        << "an exact near wins outright";
    EXPECT_EQ(pick(request(Note::A, "minor", {}, {-1, -1, -1, -1, -1, -1})), all.front());
    EXPECT_EQ(pick(request(Note::A, "minor", {}, {})), all.front());

    // near the 5th fret on the lowest string: the E-shape barre, not a shape that mutes that string
    const auto barre = pick(request(Note::A, "minor", {}, {5, -1, -1, -1, -1, -1}));
    ASSERT_TRUE(barre);
    EXPECT_EQ(barre->position[0], 5);

    EXPECT_FALSE(pick(request(Note::A, "nonesuch", {}, {})));
    EXPECT_FALSE(pick(request(Note::A, "nonesuch", {0, 0, 2, 2, 1, 0}, {})));
}

TEST(ChordPositionsTest, TheMemoryCacheAndCancellation) {
    auto& cache = ChordPositionsCache::shared();
    const auto key = ChordPositionsCache::key(Note::E, "minor 7th", 0, standard);
    EXPECT_FALSE(cache.positions(key));
    resolvePosition(request(Note::E, "minor 7th", {}, {}, true));
    EXPECT_FALSE(cache.positions(key)) << "a first-shape miss is not stored";
    const auto picked =
        position(request(Note::E, "minor 7th", {}, {-1, 7, -1, -1, -1, -1}, true)).get();
    ASSERT_TRUE(cache.positions(key));
    EXPECT_EQ(*cache.positions(key), positions(Note::E, "minor 7th", 0, -1, standard));
    ASSERT_TRUE(picked);
    EXPECT_EQ(picked->position[1], 7);

    std::stop_source cancelled;
    cancelled.request_stop();
    EXPECT_FALSE(
        position(request(Note::E, "minor 7th", {}, {}, true), cancelled.get_token()).get());
    EXPECT_FALSE(
        resolvePosition(request(Note::E, "minor", {0, 2, 2, 0, 0, 0}, {}), cancelled.get_token()));
}

} // namespace
} // namespace fq::core
