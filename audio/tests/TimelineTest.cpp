#include "fq/audio/Timeline.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace fq::audio {
namespace {

using namespace std::chrono_literals;

TEST(ManualTimelineTest, RunsDueItemsInTimeOrderAtTheirOwnTime) {
    ManualTimeline timeline;
    std::vector<std::string> ran;
    const auto record = [&](std::string name) {
        return [&, name] {
            ran.push_back(name + "@" + std::to_string(timeline.now().count() / 1000000));
        };
    };
    timeline.runAt(30ms, record("c"));
    timeline.runAt(10ms, record("a"));
    timeline.runAt(10ms, record("b")); // same time: after the one given first
    timeline.runAt(50ms, record("late"));
    timeline.advanceTo(30ms);
    EXPECT_EQ(ran, (std::vector<std::string>{"a@10", "b@10", "c@30"}));
    EXPECT_EQ(timeline.now(), 30ms);
    EXPECT_EQ(timeline.pendingCount(), 1u);
}

TEST(ManualTimelineTest, ItemsMayScheduleMoreAndPastTimesRunAtOnce) {
    ManualTimeline timeline;
    timeline.advanceTo(100ms);
    std::vector<int> ran;
    timeline.runAt(10ms, [&] {
        ran.push_back(1);
        timeline.runAt(timeline.now() + 5ms, [&] { ran.push_back(2); });
        timeline.runAt(timeline.now() + 50ms, [&] { ran.push_back(3); });
    });
    timeline.advanceBy(10ms);
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
    EXPECT_EQ(timeline.now(), 110ms);
    timeline.advanceTo(90ms); // never backwards
    EXPECT_EQ(timeline.now(), 110ms);
}

TEST(ThreadPoolTimelineTest, RunsWorkOnItsThreadsByTheSteadyClock) {
    ThreadPoolTimeline timeline;
    EXPECT_TRUE(timeline.followsSteadyClock());
    std::mutex mutex;
    std::condition_variable done;
    std::vector<int> ran;
    const auto start = timeline.now();
    for (int i : {2, 1, 0})
        timeline.runAt(start + i * 5ms, [&, i] {
            const std::lock_guard lock(mutex);
            ran.push_back(i);
            done.notify_all();
        });
    std::unique_lock lock(mutex);
    ASSERT_TRUE(done.wait_for(lock, 10s, [&] { return ran.size() == 3; }));
    EXPECT_GE(timeline.now() - start, 10ms) << "the last item was due 10 ms after the start";
}

} // namespace
} // namespace fq::audio
