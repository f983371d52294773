// The tuner screen's lifecycle with the main executor driven by hand, recordings at any rate
// through the real patch, and the reference tones a player names.

#include "fq/tuner/TunerSession.h"

#include "AudioTestSupport.h"
#include "fq/test/TemporaryFolder.h"
#include "fq/tuner/ReferenceTones.h"

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

#include <optional>

namespace fq::tuner {
namespace {

struct RecordingObserver final : TunerSessionObserver {
    void tunerOpened(bool value) override { opened = value; }
    void displayChanged(const TunerDisplayModel& display) override {
        notes.push_back(display.displayPianoNoteNumber());
        last = display;
    }
    void graphReceived(double) override { ++graphValues; }
    std::optional<bool> opened;
    std::vector<int> notes;
    TunerDisplayModel last;
    int graphValues = 0;
};

class TunerSessionTest : public ::testing::Test {
protected:
    void run() {
        main_.restart();
        main_.poll();
    }
    bool listening() {
        const auto* dispatcher = tuner_.recognizer().dispatcher();
        return dispatcher != nullptr && dispatcher->listenerCount("frequency") == 1;
    }

    test::TemporaryFolder cache_;
    asio::io_context main_;
    ManualCaptureSession capture_{main_.get_executor(), 44100, /*holdGrants=*/true};
    NoDrumEngine drums_;
    RecordingObserver observer_;
    double now_ = 0;
    TunerSession tuner_{main_.get_executor(), capture_,  drums_,
                        cache_.path(),        observer_, [this] { return now_; }};
    audio::testing::DiagnosticCapture log_;
};

TEST_F(TunerSessionTest, TheScreensLifecycleStartsStopsAndResumesTheRecognizer) {
    tuner_.appear();
    tuner_.appear();
    run();
    capture_.grant();
    run();
    EXPECT_EQ(observer_.opened, true);
    EXPECT_TRUE(tuner_.delegateHandler().isPatchOpened());
    EXPECT_EQ(capture_.beginCount(), 1) << "a second appearance starts nothing";
    EXPECT_TRUE(listening());

    // readings reach the observer on the main executor, paced by the session's clock
    tuner_.recognizer().receiveFloat(440.0f, "frequency");
    run();
    now_ = 0.1;
    tuner_.recognizer().receiveFloat(441.0f, "frequency");
    run();
    EXPECT_EQ(observer_.notes, (std::vector<int>{69}));
    EXPECT_EQ(observer_.graphValues, 2);

    tuner_.changeScene(ScenePhase::inactive);
    EXPECT_TRUE(tuner_.wasStoppedForInactiveScene());
    EXPECT_FALSE(listening());
    EXPECT_FALSE(capture_.isCapturing());
    EXPECT_TRUE(log_.contains("App is inactive"));
    // back to active: capture is asked for again, and its grant resumes the audio
    tuner_.changeScene(ScenePhase::active);
    EXPECT_FALSE(tuner_.wasStoppedForInactiveScene());
    EXPECT_FALSE(listening());
    capture_.grant();
    run();
    EXPECT_TRUE(listening());
    EXPECT_TRUE(tuner_.recognizer().audioController()->isActive());

    tuner_.changeScene(ScenePhase::background);
    EXPECT_FALSE(listening());
    bool done = false;
    tuner_.disappear([&] { done = true; });
    run();
    EXPECT_TRUE(done);
    EXPECT_FALSE(tuner_.recognizer().isPatchOpen());
    EXPECT_EQ(observer_.opened, true) << "tear-down tells no one";
}

TEST_F(TunerSessionTest, AGrantAfterTheScreenWentAwayIsDropped) {
    tuner_.appear();
    run();
    tuner_.disappear();
    capture_.grant();
    run();
    EXPECT_FALSE(observer_.opened.has_value());
    EXPECT_FALSE(tuner_.recognizer().isPatchOpen());
}

/// The synthesizer renders at up to 96 kHz: above that, each of its samples is held.
std::vector<float> guitarNote(int note, double rate) {
    const int hold = rate > 96000 ? static_cast<int>(rate / 96000) : 1;
    const auto rendered = audio::testing::isolatedGuitarNote(note, rate / hold, 1.5);
    std::vector<float> held;
    for (const float sample : rendered)
        held.insert(held.end(), static_cast<std::size_t>(hold), sample);
    return held;
}

TEST(TuneRecording, TheLowStringsAreReadInTuneAtEverySampleRate) {
    // the analysis window spans too few periods of E2 at high rates unless resampled
    for (const double rate : {22050.0, 44100.0, 48000.0, 96000.0, 192000.0}) {
        for (const int note : {40, 45, 33, 64}) {
            SCOPED_TRACE(testing::Message() << note << " at " << rate);
            test::TemporaryFolder cache;
            RecordingObserver observer;
            MonoAudio audio{guitarNote(note, rate), rate};
            ASSERT_TRUE(tuneRecording(audio, cache.path(), observer));
            ASSERT_FALSE(observer.notes.empty());
            EXPECT_EQ(observer.last.displayPianoNoteNumber(), note);
            // the SoundFont's samples are tuned to a few cents
            EXPECT_EQ(observer.last.instruction().text, "In Tune")
                << observer.last.displayDeviationCents();
        }
    }
    test::TemporaryFolder cache;
    RecordingObserver observer;
    EXPECT_TRUE(tuneRecording({{}, 96000}, cache.path(), observer));
    EXPECT_TRUE(observer.notes.empty());
}

TEST(ReferenceTones, AStringIsFoundByNumberNoteOrNoteAlone) {
    using core::GuitarTuning;
    struct Case {
        GuitarTuning tuning;
        const char* text;
        const char* found; // empty: an error
    };
    const Case cases[] = {
        {GuitarTuning::standard, "6", "E2"},
        {GuitarTuning::standard, "1", "E4"},
        {GuitarTuning::standard, "A", "A2"},
        {GuitarTuning::standard, "g", "G3"},
        {GuitarTuning::dropCs, "c#2", "C♯2"},
        {GuitarTuning::dropCs, "G#", "G♯2"},
        {GuitarTuning::openGMinor, "Bb3", "B♭3"},
        {GuitarTuning::nashville, "2", "B3"}, // not rising: the second string lies below the third
        {GuitarTuning::standard, "E", ""},    // two E strings
        {GuitarTuning::standard, "7", ""},
        {GuitarTuning::standard, "F#2", ""},
        {GuitarTuning::standard, "", ""},
    };
    for (const auto& c : cases) {
        const auto found = findReferenceTone(c.tuning, c.text);
        if (*c.found == '\0') {
            EXPECT_FALSE(found) << c.text;
        } else {
            ASSERT_TRUE(found) << c.text << ": " << found.error().message;
            EXPECT_EQ(found->buttonTitle, c.found);
        }
    }
    EXPECT_EQ(findReferenceTone(GuitarTuning::standard, "E").error().message,
              "Standard Tuning has 2 E strings: give one of E2, E4");
    EXPECT_EQ(findReferenceTone(GuitarTuning::standard, "7").error().message,
              "No string 7 in Standard Tuning: give 1 to 6 or one of E2, A2, D3, G3, B3, E4");
}

} // namespace
} // namespace fq::tuner
