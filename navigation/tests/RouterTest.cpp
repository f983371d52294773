#include "fq/navigation/Router.h"

#include <gtest/gtest.h>

namespace fq::navigation {
namespace {

using core::Chord;
using core::Note;

struct RouterFixture : ::testing::Test {
    MainQueue main;
    Router router{main};
    std::vector<Router::Path> heard;
    void SetUp() override {
        router.addObserver([this](const Router::Path& path) { heard.push_back(path); });
    }
};

TEST_F(RouterFixture, FirstNavigationShowsTheRouteAtOnce) {
    const auto route = chordRoute(Chord{Note::A, "minor", 0});
    router.navigate(route);
    EXPECT_EQ(router.path(), Router::Path{route});
    EXPECT_EQ(main.pending(), 0u);
    EXPECT_EQ(heard.size(), 1u);
}

TEST_F(RouterFixture, LaterNavigationPopsFirstThenPushesAfterOneYield) {
    const auto first = chordRoute(Chord{Note::C, "major", 0});
    const auto second =
        chordRoute(Chord{Note::G, "dominant 7th", 0}, std::vector<int>{3, 2, 0, 0, 0, 1});
    router.navigate(first);
    router.navigate(second);
    EXPECT_TRUE(router.path().empty()) << "the old screen pops first";
    ASSERT_TRUE(main.runOne());
    EXPECT_TRUE(router.path().empty()) << "the task yields once before pushing";
    ASSERT_TRUE(main.runOne());
    EXPECT_EQ(router.path(), Router::Path{second});
    EXPECT_FALSE(main.runOne());
    // shown, popped, pushed
    ASSERT_EQ(heard.size(), 3u);
    EXPECT_TRUE(heard[1].empty());
}

TEST_F(RouterFixture, WritingAnEqualPathTellsNobody) {
    const auto route = chordRoute(Chord{Note::E, "minor", 0});
    router.setPath({route});
    router.setPath({route});
    router.setPath({});
    router.setPath({});
    EXPECT_EQ(heard.size(), 2u);
}

TEST_F(RouterFixture, NavigationsAreNotSerialised) {
    // the first empties the stack; the second then finds it empty and shows at once,
    // and the first's late push lands on top of it: nothing orders the two
    router.navigate(chordRoute(Chord{Note::C, "major", 0}));
    const auto a = chordRoute(Chord{Note::D, "major", 0});
    const auto b = collectionRoute(
        FretquillResolvedChordCollection{"id", "Mine", "", {}, {}, false, std::nullopt});
    router.navigate(a);
    router.navigate(b);
    EXPECT_EQ(router.path(), Router::Path{b});
    EXPECT_EQ(router.path().front().kindCase(), FretquillNavigationRoute::Kind::chordCollection);
    main.runAll();
    EXPECT_EQ(router.path(), Router::Path{a});
}

TEST(MainQueueTest, RunAllRunsWhatTasksPostAndStopsAtTheLimit) {
    MainQueue main;
    int ran = 0;
    main.post([&] {
        ++ran;
        main.post([&] { ++ran; });
    });
    EXPECT_EQ(main.runAll(), 2u);
    EXPECT_EQ(ran, 2);
    std::function<void()> forever = [&] { main.post(forever); };
    main.post(forever);
    EXPECT_EQ(main.runAll(5), 5u);
}

} // namespace
} // namespace fq::navigation
