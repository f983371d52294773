// The metronome screen listening for the tempo: the controller's rules against a port
// that records and replays, and once end to end through the real detector and aubio.

#include "ControllerFixture.h"
#include "fq/metronome/DetectorListeningPort.h"

#include <fq/personal/PreferenceKeys.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numbers>

namespace fq::metronome {
namespace {

namespace keys = personal::keys;
const std::vector<float> atRest(24, 0.08f);

class MetronomeListeningTest : public ControllerFixture {
protected:
    MetronomeController& open(TempoListeningPort* port) {
        auto& controller = openWith({surface_, surface_, port});
        controller.setOnListeningChange([this] { ++listeningChanges_; });
        controller.open();
        poll();
        return controller;
    }

    QuietSurface surface_;
    ScriptedPort port_;
    int listeningChanges_ = 0;
};

TEST_F(MetronomeListeningTest, EachStateSetsTheFlagTheMessageAndTheKeptTempo) {
    struct Step {
        ListeningState state;
        bool listening;
        std::string message;
        std::optional<int> detected;
        int bpm;
    };
    const std::vector<Step> steps{
        {ListeningState::listening("Listening for a steady beat"), true,
         "Listening for a steady beat", std::nullopt, 120},
        {ListeningState::detected(97), true, "Detected 97", 97, 97},
        // a pass without a result keeps the tempo found before
        {ListeningState::listening("Listening for a clearer beat"), true,
         "Listening for a clearer beat", 97, 97},
        {ListeningState::detected(300), true, "Detected 300", 300, 300},
        {ListeningState::unavailable("Microphone unavailable"), false, "Microphone unavailable",
         std::nullopt, 300},
        {ListeningState::listening("Listening for tempo"), true, "Listening for tempo",
         std::nullopt, 300},
        {ListeningState::detected(64), true, "Detected 64", 64, 64},
        {ListeningState::idle(), false, "", std::nullopt, 64},
    };
    auto& controller = open(&port_);
    controller.startListening();
    for (const auto& step : steps) {
        port_.report(step.state);
        SCOPED_TRACE(step.message);
        EXPECT_EQ(controller.isListeningForTempo(), step.listening);
        EXPECT_EQ(controller.tempoDetectionMessage(), step.message);
        EXPECT_EQ(controller.lastDetectedTempo(), step.detected);
        EXPECT_EQ(controller.bpm(), step.bpm);
    }
    port_.onLevels(std::vector<float>(24, 0.4f));
    EXPECT_EQ(controller.tempoEQLevels(), std::vector<float>(24, 0.4f));
    EXPECT_GE(listeningChanges_, static_cast<int>(steps.size()) + 1);
}

TEST_F(MetronomeListeningTest, ListeningAndClickingExcludeEachOther) {
    ASSERT_TRUE(personal::write(*store_, keys::isLaunchedUsingAppIntent, true));
    auto& controller = open(&port_);
    controller.setMetronomeOn(true);
    poll();
    ASSERT_TRUE(manager_->audioUnit()->isProcessing());

    // starting to listen while clicking turns the metronome off first
    controller.startListening();
    port_.report(ListeningState::listening("Listening for tempo"));
    poll();
    EXPECT_FALSE(controller.isMetronomeOn());
    EXPECT_FALSE(manager_->audioUnit()->isProcessing());
    EXPECT_TRUE(controller.isListeningForTempo());

    // starting again while listening stops the detector and clears first
    port_.report(ListeningState::detected(88));
    port_.onLevels(std::vector<float>(24, 0.7f));
    port_.calls.clear();
    controller.startListening();
    EXPECT_EQ(port_.calls, (std::vector<std::string>{"stop", "start"}));
    EXPECT_EQ(controller.lastDetectedTempo(), std::nullopt);
    EXPECT_EQ(controller.tempoEQLevels(), atRest);

    // turning the metronome on ends listening and clears the level display
    port_.onLevels(std::vector<float>(24, 0.7f));
    port_.calls.clear();
    controller.setMetronomeOn(true);
    poll();
    EXPECT_EQ(port_.calls, std::vector<std::string>{"stop"});
    EXPECT_FALSE(controller.isListeningForTempo());
    EXPECT_EQ(controller.tempoEQLevels(), atRest);
    EXPECT_TRUE(manager_->audioUnit()->isProcessing());
    EXPECT_EQ(controller.bpm(), 88); // the heard tempo stays the metronome's

    // "Stop listening" stops the detector and clears, and changes nothing else
    controller.setMetronomeOn(false);
    poll();
    controller.startListening();
    port_.report(ListeningState::detected(140));
    port_.calls.clear();
    controller.stopListening();
    EXPECT_EQ(port_.calls, std::vector<std::string>{"stop"});
    EXPECT_FALSE(controller.isListeningForTempo());
    EXPECT_EQ(controller.lastDetectedTempo(), std::nullopt);
    EXPECT_EQ(controller.bpm(), 140);
    EXPECT_FALSE(controller.isMetronomeOn());
}

TEST_F(MetronomeListeningTest, AnIntentStartsListeningOnArrivalOnce) {
    for (const bool feature : {false, true}) {
        SCOPED_TRACE(feature);
        ASSERT_TRUE(personal::write(*store_, keys::shouldStartTempoDetectionFromAppIntent, true));
        port_.calls.clear();
        auto& controller = open(feature ? &port_ : nullptr);
        // the intent's request is used up either way
        EXPECT_FALSE(personal::read(*store_, keys::shouldStartTempoDetectionFromAppIntent));
        if (!feature) {
            // the screen says why nothing listens
            EXPECT_EQ(controller.tempoDetectionMessage(), "Requires iOS 27");
            EXPECT_FALSE(controller.isListeningForTempo());
            EXPECT_EQ(controller.tempoEQLevels(), atRest);
            continue;
        }
        EXPECT_EQ(port_.calls, std::vector<std::string>{"start"});
        controller.close();
        EXPECT_EQ(port_.calls.back(), "stop");
    }
    // a detector that outlives the screen finds nobody to tell
    controller_->startListening();
    auto onState = port_.onState;
    controller_.reset();
    onState(ListeningState::detected(100));
}

/// A thump on every beat: a falling low sine, as a kick drum or a palm-muted strum.
std::vector<float> thumps(double bpm, double seconds, double rate) {
    std::vector<float> audio(static_cast<std::size_t>(seconds * rate), 0.0f);
    for (double t = 0.2; t < seconds; t += 60.0 / bpm) {
        const auto start = static_cast<std::size_t>(t * rate);
        for (std::size_t i = 0; i < 5000 && start + i < audio.size(); ++i) {
            const double time = static_cast<double>(i) / rate;
            audio[start + i] += static_cast<float>(0.6 * std::exp(-time * 30) *
                                                   std::sin(2 * std::numbers::pi * 80 * time));
        }
    }
    return audio;
}

TEST_F(MetronomeListeningTest, TheMetronomeTakesTheTempoTheDetectorHears) {
    constexpr double rate = 44100;
    ManualTempoScheduler scheduler;
    OpenTempoCapture session;
    TempoBufferInput input(rate);
    AubioBeatTracker tracker;
    const auto detector = MetronomeTempoDetector::create(
        {main_.get_executor(), main_.get_executor(), scheduler, session, input, tracker});
    DetectorListeningPort port(*detector);
    auto& controller = open(&port);
    controller.setTempo(60);
    controller.startListening();
    poll();
    EXPECT_EQ(controller.tempoDetectionMessage(), "Listening for tempo");

    const auto audio = thumps(104, 9.5, rate);
    for (std::size_t done = 0; done < audio.size(); done += 512) {
        const auto count = std::min<std::size_t>(512, audio.size() - done);
        input.feed(std::span(audio).subspan(done, count));
        scheduler.advanceTo(
            std::chrono::nanoseconds(std::llround(static_cast<double>(done + count) / rate * 1e9)));
        poll();
    }
    EXPECT_EQ(controller.tempoDetectionMessage(), "Detected 104");
    EXPECT_EQ(controller.lastDetectedTempo(), 104);
    EXPECT_EQ(controller.bpm(), 104);
    EXPECT_TRUE(controller.isListeningForTempo());
    EXPECT_NE(controller.tempoEQLevels(), atRest);

    controller.stopListening();
    EXPECT_FALSE(detector->isListening());
    EXPECT_FALSE(input.hasTap());
    EXPECT_EQ(controller.tempoEQLevels(), atRest);
    EXPECT_EQ(controller.tempoDetectionMessage(), "");
}

} // namespace
} // namespace fq::metronome
