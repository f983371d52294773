// The detector's window, loop, acceptance rule and states, on a clock and a tracker driven by
// the test.

#include "fq/metronome/MetronomeTempoDetector.h"

#include <asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace fq::metronome {
namespace {

using namespace std::chrono_literals;
using Kind = ListeningState::Kind;

constexpr double rate = 44100.0;

/// The microphone's grant: given or refused, and whether capture is on.
struct FakeCapture final : TempoCaptureSession {
    void beginCapture(std::function<void(bool)> done) override {
        capturing = grant;
        done(grant);
    }
    void endCapture() override { capturing = false; }
    bool grant = true;
    bool capturing = false;
};

/// The tapped input: a buffer input with a format and a start that can fail.
class FakeInput final : public TempoCaptureInput {
public:
    TempoInputFormat inputFormat() const override { return format; }
    void installTap(int bufferSize, Tap tap) override {
        EXPECT_EQ(bufferSize, 4096);
        feeder.installTap(bufferSize, std::move(tap));
    }
    void removeTap() override { feeder.removeTap(); }
    tl::expected<void, Error> start() override {
        if (failStart) return tl::unexpected(Error{"cannot start"});
        return {};
    }
    void stop() override {}

    TempoInputFormat format{rate, 1};
    bool failStart = false;
    TempoBufferInput feeder{rate};
};

/// Scripted results; remembers the duration of every window it was given.
class FakeTracker final : public BeatTracker {
public:
    tl::expected<MusicAnalysis, Error>
    analyze(std::span<const SharedTempoBuffer> buffers) override {
        double duration = 0;
        for (const auto& buffer : buffers)
            duration += buffer->duration();
        windows.push_back(duration);
        return next;
    }
    static tl::expected<MusicAnalysis, Error> result(std::optional<float> bpm, std::size_t beats) {
        RhythmResult rhythm;
        rhythm.beatsPerMinute = bpm;
        for (std::size_t i = 0; i < beats; ++i)
            rhythm.beats.push_back(0.5 * static_cast<double>(i));
        return MusicAnalysis{rhythm};
    }

    tl::expected<MusicAnalysis, Error> next = result(120.0f, 8);
    std::vector<double> windows;
};

class MetronomeTempoDetectorTest : public ::testing::Test {
protected:
    void SetUp() override {
        detector_ = MetronomeTempoDetector::create({main_.get_executor(), analysis_.get_executor(),
                                                    scheduler_, capture_, input_, tracker_});
    }

    /// Runs the main thread and (unless held) the analysis.
    void drive() {
        for (bool ran = true; ran;) {
            ran = false;
            main_.restart();
            ran |= main_.poll() > 0;
            if (!holdAnalysis_) {
                analysis_.restart();
                ran |= analysis_.poll() > 0;
            }
        }
    }

    void start() {
        detector_->start([this](const ListeningState& state) { states_.push_back(state); },
                         [this](int tempo) { tempos_.push_back(tempo); },
                         [this](const std::vector<float>& levels) { levels_.push_back(levels); });
        drive();
    }

    /// Plays `seconds` of audio in real time: each buffer as the tap completes it.
    void play(double seconds, const std::vector<float>* audio = nullptr) {
        const auto frames = static_cast<std::size_t>(seconds * rate);
        std::vector<float> block(256, 0.001f);
        for (std::size_t done = 0; done < frames; done += block.size()) {
            if (audio != nullptr) {
                const auto at = (played_ + done) % audio->size();
                for (std::size_t i = 0; i < block.size(); ++i)
                    block[i] = (*audio)[(at + i) % audio->size()];
            }
            input_.feeder.feed(block);
            scheduler_.advanceTo(std::chrono::nanoseconds(
                std::llround(static_cast<double>(played_ + done + block.size()) / rate * 1e9)));
            drive();
        }
        played_ += frames;
    }

    std::vector<std::string> texts() const {
        std::vector<std::string> out;
        for (const auto& state : states_)
            out.push_back(state.text());
        return out;
    }
    bool capturing() const { return capture_.capturing; }

    asio::io_context main_, analysis_;
    FakeCapture capture_;
    ManualTempoScheduler scheduler_;
    FakeInput input_;
    FakeTracker tracker_;
    std::shared_ptr<MetronomeTempoDetector> detector_;
    bool holdAnalysis_ = false;
    std::size_t played_ = 0;

    std::vector<ListeningState> states_;
    std::vector<int> tempos_;
    std::vector<std::vector<float>> levels_;
};

TEST_F(MetronomeTempoDetectorTest, StartsAtRestThenWaitsForSixSecondsOfAudio) {
    start();
    ASSERT_EQ(levels_.size(), 1u);
    EXPECT_EQ(levels_[0], std::vector<float>(24, 0.08f));
    EXPECT_THAT(texts(), ::testing::ElementsAre("Listening for tempo"));
    EXPECT_TRUE(capturing());
    EXPECT_TRUE(input_.feeder.hasTap());

    play(3.01);
    EXPECT_EQ(texts().back(), "Listening for a steady beat");
    // at six seconds the window holds 64 whole buffers, a little short of six seconds
    play(3.0);
    EXPECT_EQ(texts().back(), "Listening for a steady beat");
    EXPECT_TRUE(tracker_.windows.empty());
    play(3.0);
    ASSERT_EQ(tracker_.windows.size(), 1u);
    EXPECT_GE(tracker_.windows[0], 6.0);
    EXPECT_EQ(states_.back(), ListeningState::detected(120));
    EXPECT_EQ(texts().back(), "Detected 120");
    EXPECT_THAT(tempos_, ::testing::ElementsAre(120));
    // one level update per tapped buffer, each of 24 bands
    EXPECT_EQ(levels_.size(), 1u + static_cast<std::size_t>(9.01 * rate) / 4096);
    EXPECT_EQ(levels_.back().size(), 24u);

    // the window keeps twelve seconds of whole buffers, and every pass reports again
    play(21.0);
    ASSERT_GE(tracker_.windows.size(), 5u);
    for (const double window : tracker_.windows)
        EXPECT_TRUE(window >= 6.0 && window <= 12.0) << window;
    EXPECT_GT(tracker_.windows.back(), 12.0 - 4096 / rate);
    EXPECT_EQ(detector_->capturedBufferCount(), static_cast<std::size_t>(12.0 * rate / 4096));
    EXPECT_EQ(tempos_.size(), tracker_.windows.size());
}

TEST_F(MetronomeTempoDetectorTest, OnlyACredibleResultIsBelievedAndItIsRoundedAndClamped) {
    struct Case {
        tl::expected<MusicAnalysis, Error> result;
        ListeningState state;
    };
    const std::vector<Case> cases{
        {FakeTracker::result(120.0f, 4), ListeningState::detected(120)},
        {FakeTracker::result(120.0f, 3), ListeningState::listening("Listening for a clearer beat")},
        {FakeTracker::result(std::nullopt, 12),
         ListeningState::listening("Listening for a clearer beat")},
        {MusicAnalysis{}, ListeningState::listening("Listening for a clearer beat")},
        {tl::unexpected(Error{"broken"}), ListeningState::listening("Listening for tempo")},
        {FakeTracker::result(29.6f, 8), ListeningState::detected(30)},
        {FakeTracker::result(300.4f, 8), ListeningState::detected(300)},
        {FakeTracker::result(25.0f, 8), ListeningState::detected(30)},
        {FakeTracker::result(420.0f, 8), ListeningState::detected(300)},
        {FakeTracker::result(99.5f, 8), ListeningState::detected(100)},
        {FakeTracker::result(99.49f, 8), ListeningState::detected(99)},
    };
    start();
    play(9.0);
    for (const auto& c : cases) {
        tracker_.next = c.result;
        const auto tempos = tempos_.size();
        play(3.05); // each pass begins three seconds after the last one ended
        EXPECT_EQ(states_.back(), c.state) << states_.back().text();
        EXPECT_EQ(tempos_.size(), tempos + (c.state.kind == Kind::detected ? 1u : 0u));
        if (c.state.kind == Kind::detected) {
            EXPECT_EQ(tempos_.back(), c.state.tempo);
        }
    }
    EXPECT_TRUE(detector_->isListening());
}

TEST_F(MetronomeTempoDetectorTest, StopDuringAnAnalysisSuppressesItsResult) {
    start();
    play(8.0);
    holdAnalysis_ = true;
    play(1.1); // the pass at nine seconds hands the window over, and it waits
    const auto stateCount = states_.size();
    detector_->stop();
    EXPECT_EQ(states_.size(), stateCount + 1);
    EXPECT_EQ(states_.back(), ListeningState::idle());
    EXPECT_EQ(states_.back().text(), "");
    holdAnalysis_ = false;
    drive();
    play(6.0);
    EXPECT_EQ(tracker_.windows.size(), 1u);
    EXPECT_TRUE(tempos_.empty());
    EXPECT_EQ(states_.size(), stateCount + 1); // the callbacks are gone
    EXPECT_FALSE(capturing());
    EXPECT_FALSE(input_.feeder.hasTap());
    EXPECT_FALSE(detector_->isListening());
    EXPECT_EQ(detector_->capturedAudioDuration(), 0.0);
}

TEST_F(MetronomeTempoDetectorTest, AFailedStartSaysTheMicrophoneIsUnavailable) {
    enum class Failure { activation, noChannels, noRate, engineStart };
    for (const auto failure :
         {Failure::activation, Failure::noChannels, Failure::noRate, Failure::engineStart}) {
        SCOPED_TRACE(static_cast<int>(failure));
        capture_.grant = failure != Failure::activation;
        input_.format = {failure == Failure::noRate ? 0.0 : rate,
                         failure == Failure::noChannels ? 0 : 1};
        input_.failStart = failure == Failure::engineStart;
        states_.clear();
        start();
        EXPECT_THAT(texts(),
                    ::testing::ElementsAre("Listening for tempo", "Microphone unavailable"));
        EXPECT_EQ(states_.back().kind, Kind::unavailable);
        EXPECT_FALSE(capturing());
        EXPECT_FALSE(input_.feeder.hasTap());
        EXPECT_FALSE(detector_->isListening());
        // the loop is gone, and the callbacks stay set: a later start reports again
        play(7.0);
        EXPECT_EQ(states_.size(), 2u);
        EXPECT_TRUE(tracker_.windows.empty());
    }
    capture_.grant = true;
    input_.format = {rate, 1};
    input_.failStart = false;
    start();
    EXPECT_TRUE(detector_->isListening());
    EXPECT_EQ(states_.back().text(), "Listening for tempo");
}

TEST_F(MetronomeTempoDetectorTest, StartingAgainBeginsAFreshWindowAndDropsTheOldLoop) {
    start();
    play(10.0);
    const auto windows = tracker_.windows.size();
    start(); // the caller did not stop first: listening begins afresh
    EXPECT_EQ(detector_->capturedAudioDuration(), 0.0);
    play(5.9);
    EXPECT_EQ(tracker_.windows.size(), windows); // not enough audio yet, one loop only
    play(3.2);
    EXPECT_EQ(tracker_.windows.size(), windows + 1);
}

} // namespace
} // namespace fq::metronome
