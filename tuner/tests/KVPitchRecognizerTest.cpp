// The recognizer's lifecycle with the main executor driven by hand, and the real patch
// in libpd on synthesised and rendered guitar tones.

#include "fq/tuner/KVPitchRecognizer.h"

#include "AudioTestSupport.h"
#include "fq/test/TemporaryFolder.h"
#include "fq/tuner/OfflinePitchTracker.h"
#include "fq/tuner/Pd.h"
#include "fq/tuner/PitchPatch.h"

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numbers>
#include <sstream>

namespace fq::tuner {
namespace {

using audio::testing::DiagnosticCapture;
namespace fs = std::filesystem;

class CountingDrums final : public DrumEngineSuspension {
public:
    void suspendAndStop() override { calls += "S"; }
    void leaveSuspension() override { calls += "L"; }
    std::string calls;
};

std::size_t filesIn(const fs::path& folder) {
    std::error_code error;
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder, error), fs::directory_iterator()));
}

class LifecycleTest : public ::testing::Test {
protected:
    void SetUp() override {
        recognizer_ = KVPitchRecognizer::create(main_.get_executor(), session_, drums_, cache());
        recognizer_->setDelegate(handler_);
        recognizer_->observeFrequency([this](double f) { observed_.push_back(f); });
    }
    void TearDown() override {
        if (recognizer_) {
            recognizer_->tearDown();
            run();
        }
    }
    fs::path cache() const { return home_.path() / "cache"; }
    void run() {
        main_.restart();
        main_.poll();
    }
    void openAndListen() {
        recognizer_->start();
        run();
        session_.grant();
        run();
        ASSERT_TRUE(recognizer_->isPatchOpen());
    }

    test::TemporaryFolder home_;
    asio::io_context main_;
    ManualCaptureSession session_{main_.get_executor(), 48000, /*holdGrants=*/true};
    CountingDrums drums_;
    std::shared_ptr<PitchRecognizerDelegateHandler> handler_ =
        std::make_shared<PitchRecognizerDelegateHandler>();
    std::shared_ptr<KVPitchRecognizer> recognizer_;
    std::vector<double> observed_;
    DiagnosticCapture log_;
};

TEST_F(LifecycleTest, TwoStartsOpenThePatchOnceAndListen) {
    recognizer_->start();
    recognizer_->start();
    run();
    EXPECT_TRUE(recognizer_->isInitializing());
    EXPECT_EQ(session_.beginCount(), 1);
    EXPECT_EQ(drums_.calls, "S");
    EXPECT_EQ(filesIn(cache()), 0u);

    session_.grant();
    run();
    EXPECT_TRUE(recognizer_->isPatchOpen());
    EXPECT_FALSE(recognizer_->isInitializing());
    EXPECT_EQ(drums_.calls, "SL");
    EXPECT_TRUE(handler_->isPatchOpened());
    EXPECT_FALSE(handler_->patchError());
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{"Audio configuration success. sampleRate=48000.0",
                                        "Patch opened successfully"}));
    ASSERT_NE(recognizer_->dispatcher(), nullptr);
    EXPECT_EQ(recognizer_->dispatcher()->listenerCount("frequency"), 1u);
    EXPECT_EQ(recognizer_->dispatcher()->listenerCount("envelope"), 1u);
    EXPECT_EQ(PdBase::delegate(), recognizer_->dispatcher());
    ASSERT_NE(recognizer_->audioController(), nullptr);
    EXPECT_TRUE(recognizer_->audioController()->isActive());
    EXPECT_TRUE(session_.hasSink());

    // the file holds the patch byte for byte, under a fresh name without extension
    ASSERT_EQ(filesIn(cache()), 1u);
    const auto file = recognizer_->patchFile();
    EXPECT_EQ(file.parent_path(), cache());
    EXPECT_EQ(file.extension(), "");
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(), pitchRecognizerPatch);
    // Pd found every object, sigmund~ included
    for (const auto& line : PdBase::consoleLines())
        EXPECT_EQ(line.find("couldn't create"), std::string::npos) << line;
}

TEST_F(LifecycleTest, StopBeforeTheGrantCancelsTheOpeningWithoutTrace) {
    recognizer_->start();
    run();
    recognizer_->stop();
    EXPECT_FALSE(recognizer_->isInitializing());
    EXPECT_EQ(session_.endCount(), 1);
    session_.grant();
    run();
    EXPECT_FALSE(recognizer_->isPatchOpen());
    EXPECT_FALSE(handler_->isPatchOpened());
    EXPECT_FALSE(handler_->patchError());
    EXPECT_EQ(filesIn(cache()), 0u);
    EXPECT_TRUE(log_.lines().empty());

    // the next start begins again, and succeeds
    openAndListen();
    EXPECT_TRUE(handler_->isPatchOpened());
}

TEST_F(LifecycleTest, StopAndStartOnAnOpenPatchReattachWithoutANewFile) {
    openAndListen();
    const auto generation = recognizer_->lifecycleGeneration();
    recognizer_->stop();
    EXPECT_EQ(recognizer_->dispatcher()->listenerCount("frequency"), 0u);
    EXPECT_EQ(PdBase::delegate(), nullptr);
    EXPECT_FALSE(recognizer_->audioController()->isActive());
    EXPECT_FALSE(session_.isCapturing());

    recognizer_->start();
    EXPECT_EQ(recognizer_->lifecycleGeneration(), generation + 2);
    session_.grant();
    run();
    EXPECT_EQ(recognizer_->dispatcher()->listenerCount("frequency"), 1u);
    EXPECT_TRUE(recognizer_->audioController()->isActive());
    EXPECT_EQ(filesIn(cache()), 1u);

    // a grant that arrives after a later stop is stale and attaches nothing
    recognizer_->stop();
    recognizer_->start();
    recognizer_->stop();
    session_.grant();
    run();
    EXPECT_EQ(recognizer_->dispatcher()->listenerCount("frequency"), 0u);
    EXPECT_FALSE(recognizer_->audioController()->isActive());

    // resuming attaches without a generation check
    recognizer_->resumeAudio();
    EXPECT_EQ(recognizer_->dispatcher()->listenerCount("frequency"), 1u);
    EXPECT_TRUE(recognizer_->audioController()->isActive());
}

TEST_F(LifecycleTest, ReceivingFiltersBySourceAndRangeAndTellsOnlyChanges) {
    struct Case {
        float value;
        const char* source;
        double stored; // what _frequency holds afterwards
    };
    const Case cases[] = {
        {440.0f, "frequency", 440.0},
        {8.18f, "frequency", 440.0},
        {10.0f, "frequency", 10.0},
        {9.99f, "frequency", 10.0},
        {6000.0f, "frequency", 6000.0},
        {6000.01f, "frequency", 6000.0},
        {220.0f, "envelope", 6000.0},
        {220.0f, "frequencyx", 6000.0},
        {220.0f, nullptr, 6000.0},
        {6000.0f, "frequency", 6000.0},
        {82.4f, "frequency", static_cast<double>(82.4f)},
    };
    recognizer_->receiveFloat(440.0f, "frequency");
    EXPECT_EQ(recognizer_->frequency(), 0.0) << "nothing happens before the main executor runs";
    for (const auto& c : cases) {
        recognizer_->receiveFloat(c.value, c.source);
        run();
        EXPECT_EQ(recognizer_->frequency(), c.stored)
            << c.value << " from " << (c.source != nullptr ? c.source : "none");
    }
    // told once per change: the repeated 6000 is stored silently
    EXPECT_EQ(observed_, (std::vector<double>{440.0, 10.0, 6000.0, static_cast<double>(82.4f)}));
    EXPECT_EQ(recognizer_->amplitude(), 0.0);
}

TEST_F(LifecycleTest, AnUnwritablePatchFileFailsTheOpening) {
    // the cache folder is taken by a file
    { std::ofstream(cache()) << "in the way"; }
    recognizer_->start();
    run();
    session_.grant();
    run();
    EXPECT_FALSE(recognizer_->isPatchOpen());
    EXPECT_FALSE(recognizer_->isInitializing());
    EXPECT_TRUE(handler_->patchError());
    EXPECT_FALSE(handler_->isPatchOpened());
    EXPECT_EQ(session_.endCount(), 1);
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].rfind("Error writing patch file: ", 0), 0u) << lines[1];
    EXPECT_EQ(lines[2], "Failed to open patch!");
    // a later success does not clear the error
    handler_->pitchRecognizerDidOpenPatch(true);
    EXPECT_TRUE(handler_->patchError());
}

TEST_F(LifecycleTest, AnUnknownSampleRateFallsBackAndTearDownLetsTheDrumsGo) {
    session_.setSampleRate(0);
    openAndListen();
    EXPECT_TRUE(log_.contains("Audio configuration success. sampleRate=44100.0"));
    EXPECT_EQ(recognizer_->audioController()->sampleRate(), 44100);

    drums_.calls.clear();
    bool done = false;
    recognizer_->tearDown([&] { done = true; });
    EXPECT_TRUE(recognizer_->isPatchOpen()) << "tear-down runs on the main executor";
    run();
    EXPECT_TRUE(done);
    EXPECT_FALSE(recognizer_->isPatchOpen());
    EXPECT_EQ(recognizer_->audioController(), nullptr);
    EXPECT_EQ(recognizer_->dispatcher(), nullptr);
    EXPECT_EQ(PdBase::delegate(), nullptr);
    EXPECT_TRUE(log_.contains("KVPitchRecognizer deinitialized"));
    EXPECT_EQ(drums_.calls, "SL");
    // a recognizer that is gone drops what was queued for it
    recognizer_->receiveFloat(300.0f, "frequency");
    recognizer_.reset();
    run();
}

// The real patch in libpd, fed as the device would feed it.

std::vector<float> sine(double frequency, double seconds, double amplitude, double rate = 44100) {
    std::vector<float> samples(static_cast<std::size_t>(seconds * rate));
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(
            amplitude * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) / rate));
    return samples;
}

struct Readings {
    std::vector<double> frequencies;
    std::vector<double> times;
};

Readings track(const std::vector<float>& audio, double rate = 44100) {
    asio::io_context main;
    test::TemporaryFolder home;
    OfflinePitchTracker tracker(main, rate, home.path());
    Readings readings;
    EXPECT_TRUE(tracker.start([&](double f, double t) {
        readings.frequencies.push_back(f);
        readings.times.push_back(t);
    }));
    tracker.feed(audio);
    tracker.finish();
    return readings;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double cents(double f, double reference) {
    return 1200 * std::log2(f / reference);
}

TEST(RealPatch, PureTonesAreReadWithinACentAndSilenceGivesNothing) {
    struct Case {
        double frequency;
        double rate;
    };
    for (const Case c : {Case{82.4069, 44100}, Case{110.0, 48000}, Case{440.0, 44100},
                         Case{55.0, 44100}, Case{1318.51, 44100}}) {
        SCOPED_TRACE(c.frequency);
        const auto readings = track(sine(c.frequency, 1.0, 0.3, c.rate), c.rate);
        // a steady tone repeats one value, which is told once
        ASSERT_FALSE(readings.frequencies.empty());
        EXPECT_LT(std::abs(cents(median(readings.frequencies), c.frequency)), 1.0);
        // the first reading needs one analysis window, and no more than a few hops after it
        EXPECT_LT(readings.times.front(), 0.12);
    }
    // below the 46 dB gate (-54 dBFS) the analysis hears nothing at all
    EXPECT_TRUE(track(std::vector<float>(44100, 0.0f)).frequencies.empty());
    EXPECT_TRUE(track(sine(220.0, 1.0, 0.001)).frequencies.empty());
}

} // namespace
} // namespace fq::tuner
