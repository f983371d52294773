// The router's path: shown at once on an empty stack, else popped and pushed one main-executor
// turn later, and observers told only of real changes.

#include "fq/navigation/Router.h"

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

namespace fq::navigation {
namespace {

using core::Chord;
using core::Note;

struct RouterFixture : ::testing::Test {
    asio::io_context main;
    Router router{main.get_executor()};
    std::vector<Router::Path> heard;
    void SetUp() override {
        router.addObserver([this](const Router::Path& path) { heard.push_back(path); });
    }
};

TEST_F(RouterFixture, LaterNavigationPopsFirstThenPushesAfterOneYield) {
    const auto first = chordRoute(Chord{Note::C, "major", 0});
    const auto second =
        chordRoute(Chord{Note::G, "dominant 7th", 0}, std::vector<int>{3, 2, 0, 0, 0, 1});
    router.navigate(first);
    EXPECT_EQ(router.path(), Router::Path{first}) << "an empty stack shows the route at once";
    router.navigate(second);
    EXPECT_TRUE(router.path().empty()) << "the old screen pops first";
    ASSERT_EQ(main.poll_one(), 1u);
    EXPECT_TRUE(router.path().empty()) << "the task yields once before pushing";
    ASSERT_EQ(main.poll_one(), 1u);
    EXPECT_EQ(router.path(), Router::Path{second});
    EXPECT_EQ(main.poll_one(), 0u);
    // shown, popped, pushed
    ASSERT_EQ(heard.size(), 3u);
    EXPECT_TRUE(heard[1].empty());

    router.setPath({second});
    EXPECT_EQ(heard.size(), 3u) << "writing an equal path tells nobody";
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
    main.run();
    EXPECT_EQ(router.path(), Router::Path{a});
}

} // namespace
} // namespace fq::navigation
