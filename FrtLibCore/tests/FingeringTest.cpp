#include "fq/core/ChordEngine.h"

#include <gtest/gtest.h>

namespace fq::core {
namespace {

using Fingers = std::vector<int>;

TEST(FingeringTest, CommonGrips) {
    // frets lowest string first → fingers in the same order
    const std::vector<std::pair<Fingers, Fingers>> cases{
        {{1, 3, 3, 2, 1, 1}, {1, 3, 4, 2, 1, 1}},   // F barre
        {{0, 2, 2, 1, 0, 0}, {0, 2, 3, 1, 0, 0}},   // E major
        {{-1, 3, 2, 0, 1, 0}, {0, 3, 2, 0, 1, 0}},  // open C
        {{-1, 3, 2, 0, 1, 3}, {0, 3, 2, 0, 1, 4}},  // C with the high G
        {{3, 2, 0, 0, 0, 3}, {2, 1, 0, 0, 0, 3}},   // G: two strings a fret apart
        {{-1, -1, 0, 2, 3, 2}, {0, 0, 0, 1, 3, 2}}, // D
        {{-1, 0, 2, 2, 2, 0}, {0, 0, 1, 2, 3, 0}},  // A: three adjacent with nothing above
        {{8, 10, 10, 9, 8, 8}, {1, 3, 4, 2, 1, 1}}, // the F shape at the 8th fret slides down
        {{-1, 1, 3, 3, 3, 1},
         {0, 1, 2, 3, 4, 1}}, // A♯: the ring-finger barre spread over three fingers
        {{-1, -1, 1, 3, 4, 3}, {0, 0, 1, 2, 4, 3}}, // D♯: R3 before R2
        {{1, 3, 2, 1, 1, 1}, {1, 3, 2, 1, 1, 1}},   // Fm(maj7)
    };
    for (const auto& [frets, fingers] : cases) {
        SCOPED_TRACE(::testing::PrintToString(frets));
        EXPECT_EQ(ChordEngine::fingering(frets), fingers);
    }
}

TEST(FingeringTest, NothingFrettedMeansNoFingers) {
    for (const Fingers& frets : {Fingers{-1, -1, -1, -1, -1, -1}, Fingers{0, 0, 0, 0, 0, 0},
                                 Fingers{-1, 0, 0, -1, 0, 0}, Fingers{1, 2, 3}})
        EXPECT_TRUE(ChordEngine::fingering(frets).empty()) << ::testing::PrintToString(frets);
}

TEST(FingeringTest, ShapesNoHandCanPlayLeaveStringsUnfingered) {
    // six strings at the lowest fret, and a fret four above the lowest
    for (const Fingers& frets : {Fingers{2, 2, 2, 2, 2, 2}, Fingers{1, -1, -1, -1, -1, 5}}) {
        const auto fingers = ChordEngine::fingering(frets);
        ASSERT_EQ(fingers.size(), 6u);
        bool unfingered = false;
        for (std::size_t s = 0; s < 6; ++s)
            unfingered = unfingered || (frets[s] > 0 && fingers[s] == 0);
        EXPECT_TRUE(unfingered) << ::testing::PrintToString(frets);
    }
}

TEST(FingeringTest, EveryFingerIsOneToFourAndTheIndexLeads) {
    // a sweep over many shapes: fingers stay in range, and whenever any finger is
    // down the index finger is too
    for (int a = -1; a <= 5; ++a)
        for (int b = -1; b <= 5; b += 2)
            for (int c = 0; c <= 4; ++c)
                for (int d = -1; d <= 3; ++d) {
                    const Fingers frets{a, b, c, d, 1, 2};
                    const auto fingers = ChordEngine::fingering(frets);
                    ASSERT_EQ(fingers.size(), 6u);
                    bool any = false, index = false;
                    for (std::size_t s = 0; s < 6; ++s) {
                        EXPECT_GE(fingers[s], 0);
                        EXPECT_LE(fingers[s], 4);
                        if (frets[s] <= 0) {
                            EXPECT_EQ(fingers[s], 0);
                        }
                        any = any || fingers[s] > 0;
                        index = index || fingers[s] == 1;
                    }
                    EXPECT_EQ(any, index) << ::testing::PrintToString(frets);
                }
}

} // namespace
} // namespace fq::core
