#include "fq/audio/SharedAudioEngine.h"

#include "fq/audio/OfflineRender.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace fq::audio {
namespace {

using namespace std::chrono_literals;

/// Adds a constant to both channels; remembers what it was told.
class ConstantSource final : public AudioSource {
public:
    explicit ConstantSource(float level) : level_(level) {}
    void prepare(double sampleRate, int maximumFrames) override {
        preparedRate = sampleRate;
        preparedFrames = maximumFrames;
    }
    void render(const BlockTiming& timing, float* left, float* right) noexcept override {
        for (int i = 0; i < timing.frames; ++i) {
            left[i] += level_;
            right[i] -= level_;
        }
        ++blocks;
    }
    void reset() override { ++resets; }

    double preparedRate = 0;
    int preparedFrames = 0;
    std::atomic<int> blocks{0};
    int resets = 0;

private:
    float level_;
};

/// Writes a single 1 on the frame where something stamped `at` sounds.
class ClickSource final : public AudioSource {
public:
    explicit ClickSource(TimelineTime at) : at_(at) {}
    void prepare(double, int) override {}
    void render(const BlockTiming& timing, float* left, float*) noexcept override {
        const auto frame = timing.frameFor(at_);
        if (frame >= timing.firstFrame && frame < timing.firstFrame + timing.frames && !done_) {
            left[frame - timing.firstFrame] += 1.0f;
            done_ = true;
        }
    }
    void reset() override {}

private:
    TimelineTime at_;
    bool done_ = false;
};

class SharedAudioEngineTest : public ::testing::Test {
protected:
    void SetUp() override { engine_.enableManualRenderingMode(); }
    ManualTimeline timeline_;
    SharedAudioEngine engine_{timeline_};
};

TEST_F(SharedAudioEngineTest, MixesTheAttachedSourcesWhileRunning) {
    ConstantSource quarter(0.25f), eighth(0.125f);
    ASSERT_TRUE(engine_.attach(quarter));
    ASSERT_TRUE(engine_.attach(eighth));
    EXPECT_TRUE(engine_.attach(quarter)) << "attaching twice changes nothing";
    EXPECT_EQ(quarter.preparedRate, 44100.0);
    EXPECT_EQ(quarter.preparedFrames, config::maximumBlockFrames);
    EXPECT_EQ(quarter.engine(), &engine_);

    auto silent = renderOffline(engine_, timeline_, 100);
    EXPECT_EQ(silent.left, std::vector<float>(100, 0.0f)) << "not running yet";
    EXPECT_EQ(quarter.blocks, 0);

    ASSERT_TRUE(engine_.start());
    auto both = renderOffline(engine_, timeline_, 5000); // more than one block
    EXPECT_EQ(both.left, std::vector<float>(5000, 0.375f));
    EXPECT_EQ(both.right, std::vector<float>(5000, -0.375f));

    engine_.detach(eighth);
    EXPECT_EQ(eighth.engine(), nullptr);
    auto one = renderOffline(engine_, timeline_, 10);
    EXPECT_EQ(one.left, std::vector<float>(10, 0.25f));
    EXPECT_EQ(engine_.renderedFrames(), 5110);
    engine_.reset();
    EXPECT_EQ(quarter.resets, 1);
    EXPECT_EQ(eighth.resets, 0);
    engine_.detach(quarter);
}

TEST_F(SharedAudioEngineTest, HasRoomForAFixedNumberOfSources) {
    std::vector<std::unique_ptr<ConstantSource>> sources;
    for (int i = 0; i < config::maximumSources; ++i) {
        sources.push_back(std::make_unique<ConstantSource>(0.0f));
        EXPECT_TRUE(engine_.attach(*sources.back()));
    }
    ConstantSource oneTooMany(0.0f);
    EXPECT_FALSE(engine_.attach(oneTooMany));
    EXPECT_EQ(oneTooMany.engine(), nullptr);
    for (auto& source : sources)
        engine_.detach(*source);
    EXPECT_TRUE(engine_.attach(oneTooMany));
    engine_.detach(oneTooMany);
}

TEST_F(SharedAudioEngineTest, StampsBecomeFramesByTheRenderedTimeline) {
    // 50 ms after the start is frame 2205 at 44100 Hz, whatever the block size
    for (const int block : {64, 256, 1000}) {
        ManualTimeline timeline;
        SharedAudioEngine engine{timeline};
        engine.enableManualRenderingMode();
        ClickSource click(50ms);
        engine.attach(click);
        ASSERT_TRUE(engine.start());
        const auto audio = renderOffline(engine, timeline, 4000, block);
        const auto at = std::find(audio.left.begin(), audio.left.end(), 1.0f) - audio.left.begin();
        EXPECT_EQ(at, 2205) << "blocks of " << block;
        engine.detach(click);
    }
}

TEST(BlockTimingTest, PlacesStampsOnFramesAndNeverBeforeTheBlock) {
    BlockTiming timing;
    timing.firstFrame = 10000;
    timing.frames = 256;
    timing.sampleRate = 44100;
    timing.anchorFrame = 8000;
    timing.anchorTime = 1s;
    struct Case {
        TimelineTime stamp;
        FrameTime frame;
    };
    const std::vector<Case> cases{
        {1s + 50ms, 10205},           // 2205 frames after the anchor: inside the block
        {1s + 100ms, 12410},          // after the block: kept for a later one
        {1s, 10000},                  // the anchor itself lies before the block
        {1s + 45352us, 10000},        // 2000.02 frames after the anchor round down
        {1s + 45374us, 10001},        // 2000.99 round up
        {TimelineTime::min(), 10000}, // "at once"
    };
    for (const auto& c : cases)
        EXPECT_EQ(timing.frameFor(c.stamp), c.frame) << c.stamp.count();
}

/// Holds its render until released, to catch a detach that does not wait.
class SlowSource final : public AudioSource {
public:
    void prepare(double, int) override {}
    void render(const BlockTiming&, float*, float*) noexcept override {
        inside = true;
        while (!release)
            std::this_thread::yield();
        inside = false;
    }
    void reset() override {}
    std::atomic<bool> inside{false};
    std::atomic<bool> release{false};
};

TEST_F(SharedAudioEngineTest, DetachReturnsOnlyOnceNoRenderUsesTheSource) {
    SlowSource slow;
    engine_.attach(slow);
    ASSERT_TRUE(engine_.start());
    std::thread renderer([&] {
        std::vector<float> left(64), right(64);
        engine_.renderOffline(left, right, 0ms);
    });
    while (!slow.inside)
        std::this_thread::yield();
    std::atomic<bool> detached{false};
    std::thread detacher([&] {
        engine_.detach(slow);
        detached = true;
    });
    // the render is still inside the source: detach must still be waiting
    for (int i = 0; i < 1000; ++i)
        std::this_thread::yield();
    EXPECT_FALSE(detached);
    slow.release = true;
    detacher.join();
    renderer.join();
    EXPECT_TRUE(detached);
    EXPECT_FALSE(slow.inside);
}

} // namespace
} // namespace fq::audio
