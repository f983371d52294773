#include "fq/audio/SpscQueue.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

namespace fq::audio {
namespace {

TEST(SpscQueueTest, KeepsOrderAndRefusesWhenFullAcrossTheWrap) {
    SpscQueue<int, 4> queue;
    EXPECT_FALSE(queue.pop());
    // several rounds, so that the indices pass the end of the ring many times
    for (int round = 0; round < 10; ++round) {
        for (int i = 0; i < 4; ++i)
            EXPECT_TRUE(queue.push(round * 10 + i));
        EXPECT_FALSE(queue.push(-1)) << "full";
        EXPECT_EQ(queue.size(), 4u);
        EXPECT_EQ(queue.pop(), round * 10);
        EXPECT_TRUE(queue.push(round * 10 + 4)) << "room again after one pop";
        for (int i = 1; i <= 4; ++i)
            EXPECT_EQ(queue.pop(), round * 10 + i);
        EXPECT_TRUE(queue.empty());
    }
}

TEST(SpscQueueTest, AReaderOnAnotherThreadSeesEveryItemOnceInOrder) {
    SpscQueue<std::uint64_t, 64> queue;
    constexpr std::uint64_t count = 200000;
    std::thread writer([&] {
        for (std::uint64_t i = 1; i <= count;)
            if (queue.push(i))
                ++i;
            else
                std::this_thread::yield();
    });
    std::uint64_t expected = 1;
    std::uint64_t sum = 0;
    while (expected <= count) {
        if (const auto item = queue.pop()) {
            ASSERT_EQ(*item, expected);
            sum += *item;
            ++expected;
        } else {
            std::this_thread::yield();
        }
    }
    writer.join();
    EXPECT_EQ(sum, count * (count + 1) / 2);
    EXPECT_TRUE(queue.empty());
}

} // namespace
} // namespace fq::audio
