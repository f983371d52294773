// The session state machine with the main thread and the activation queue run by hand, over
// a recording stand-in for the platform.

#include "fq/audio/AudioSessionManager.h"

#include "AudioTestSupport.h"

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <thread>

namespace fq::audio {
namespace {

using ::testing::Contains;
using testing::DiagnosticCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

const AudioPort microphone{"Built-in Microphone", "MicrophoneBuiltIn"};
const AudioPort speaker{"Speaker", "LineOut"};

/// The platform, as the manager sees it: records every call, fails on request.
class FakeDeviceLayer final : public AudioDeviceLayer {
public:
    SessionCategory category() const override { return category_; }
    unsigned categoryOptions() const override { return options_; }
    SessionMode mode() const override { return mode_; }
    tl::expected<void, Error> setCategory(SessionCategory category, unsigned options) override {
        calls.push_back("setCategory " + std::to_string(options));
        if (failProfile) return tl::unexpected(Error{"profile refused"});
        category_ = category;
        options_ = options;
        return {};
    }
    tl::expected<void, Error> setMode(SessionMode mode) override {
        calls.push_back("setMode");
        mode_ = mode;
        return {};
    }
    tl::expected<void, Error> setPreferredSampleRate(double) override {
        calls.push_back("setPreferredSampleRate");
        return {};
    }
    tl::expected<void, Error> setPreferredIOBufferDuration(double) override {
        calls.push_back("setPreferredIOBufferDuration");
        return {};
    }
    tl::expected<void, Error> setActive(bool active, unsigned options) override {
        calls.push_back(std::string(active ? "activate " : "deactivate ") +
                        std::to_string(options));
        if (failActivation) return tl::unexpected(Error{"device busy"});
        isActive = active;
        return {};
    }
    AudioRoute currentRoute() const override {
        AudioRoute route;
        if (preferredInput) route.inputs.push_back(*preferredInput);
        route.outputs.push_back(speaker);
        return route;
    }
    std::vector<AudioPort> availableInputs() const override {
        return {{"USB Audio", "LineIn"}, microphone};
    }
    tl::expected<void, Error> setPreferredInput(std::optional<AudioPort> port) override {
        calls.push_back("setPreferredInput " + (port ? port->name : std::string("none")));
        if (failInput) return tl::unexpected(Error{"input refused"});
        preferredInput = std::move(port);
        return {};
    }
    double sampleRate() const override { return 44100.0; }
    double ioBufferDuration() const override { return 0.005804988662131519; }
    void setObservers(Observer interruption, Observer routeChange) override {
        interruptionObserver = std::move(interruption);
        routeChangeObserver = std::move(routeChange);
    }

    /// The calls since the last look.
    std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

    std::vector<std::string> calls;
    bool failProfile = false;
    bool failActivation = false;
    bool failInput = false;
    bool isActive = false;
    std::optional<AudioPort> preferredInput;
    Observer interruptionObserver;
    Observer routeChangeObserver;

private:
    SessionCategory category_ = SessionCategory::soloAmbient;
    unsigned options_ = 0;
    SessionMode mode_ = SessionMode::standard;
};

class FakeGuitar final : public GuitarEngineControl {
public:
    bool isEngineRunning() const override { return running; }
    void suspendForBackground() override {
        calls.push_back("suspend");
        running = false;
    }
    void resumeAfterActivation(bool rebuild) override {
        calls.push_back(rebuild ? "resume rebuilding" : "resume");
        running = true;
    }
    std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

    bool running = false;
    std::vector<std::string> calls;
};

const NotificationInfo began{{notificationKey::interruptionType, interruptionType::began}};
const NotificationInfo endedResuming{
    {notificationKey::interruptionType, interruptionType::ended},
    {notificationKey::interruptionOptions, interruptionShouldResume}};
const NotificationInfo endedPlainly{{notificationKey::interruptionType, interruptionType::ended}};

/// The main thread and the activation queue, both run by hand.
class AudioSessionManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        manager_ = AudioSessionManager::create(device_, guitar_, main_.get_executor(),
                                               activation_.get_executor());
    }

    /// Runs both queues until neither has anything left.
    void drive() {
        for (bool ran = true; ran;) {
            ran = false;
            activation_.restart();
            ran |= activation_.poll() > 0;
            main_.restart();
            ran |= main_.poll() > 0;
        }
    }
    void runActivationOnly() {
        activation_.restart();
        activation_.poll();
    }
    void runMainOnly() {
        main_.restart();
        main_.poll();
    }

    /// Configured, in the foreground, with the launch activation done.
    void startInForeground() {
        manager_->sceneDidBecomeActive();
        drive();
        device_.takeCalls();
        guitar_.takeCalls();
    }

    void interrupt() {
        device_.interruptionObserver(began);
        drive();
    }

    tl::expected<void, CaptureError> awaitCapture(CapturePurpose purpose) {
        std::optional<tl::expected<void, CaptureError>> result;
        asio::co_spawn(main_, manager_->beginCapture(purpose),
                       [&](std::exception_ptr, tl::expected<void, CaptureError> outcome) {
                           result = outcome;
                       });
        drive();
        EXPECT_TRUE(result.has_value()) << "the capture never finished";
        return result.value_or(tl::unexpected(CaptureError{Error{"never finished"}}));
    }

    asio::io_context main_;
    asio::io_context activation_;
    FakeDeviceLayer device_;
    FakeGuitar guitar_;
    std::shared_ptr<AudioSessionManager> manager_;
};

TEST_F(AudioSessionManagerTest, ConfiguringAppliesTheProfileOnceAndActivates) {
    EXPECT_FALSE(manager_->isConfigured());
    manager_->configureIfNeeded();
    EXPECT_TRUE(manager_->isConfigured());
    EXPECT_THAT(device_.takeCalls(), ElementsAre("setCategory 105", "setPreferredSampleRate",
                                                 "setPreferredIOBufferDuration"))
        << "the mode is already the default";
    drive();
    EXPECT_THAT(device_.takeCalls(), ElementsAre("activate 0"));
    EXPECT_EQ(manager_->activationRequestID(), 1u);

    manager_->configureIfNeeded();
    drive();
    EXPECT_THAT(device_.takeCalls(), IsEmpty());
    // a profile already in place is not set again, the preferences always are
    manager_->refreshPlaybackActivation(false);
    drive();
    EXPECT_THAT(device_.takeCalls(), ElementsAre("deactivate 1")) << "nothing allows playback yet";
}

TEST_F(AudioSessionManagerTest, AFailedConfigurationIsPrintedAndTriedAgainNextTime) {
    DiagnosticCapture diagnostics;
    device_.failProfile = true;
    manager_->configureIfNeeded();
    drive();
    EXPECT_FALSE(manager_->isConfigured());
    EXPECT_THAT(diagnostics.lines(),
                ElementsAre("Failed to configure audio session at launch: profile refused"));
    EXPECT_THAT(device_.takeCalls(), Not(Contains("activate 0")));
    device_.failProfile = false;
    manager_->configureIfNeeded();
    drive();
    EXPECT_TRUE(manager_->isConfigured());
    EXPECT_THAT(device_.takeCalls(), Contains("activate 0"));
}

TEST_F(AudioSessionManagerTest, OfTwoRapidRequestsOnlyTheNewestCompletes) {
    std::vector<std::string> completed;
    manager_->applySessionActivity(true, 0, [&] { completed.push_back("activate"); });
    manager_->applySessionActivity(false, 1, [&] { completed.push_back("deactivate"); });
    drive();
    EXPECT_THAT(device_.takeCalls(), ElementsAre("activate 0", "deactivate 1"))
        << "both run, in order";
    EXPECT_THAT(completed, ElementsAre("deactivate"));
    EXPECT_EQ(manager_->activationRequestID(), 2u);
}

TEST_F(AudioSessionManagerTest, AFailedActivationPrintsAndStillCompletesIfNewest) {
    struct Case {
        bool active;
        std::string message;
    };
    for (const auto& c : {Case{true, "Failed to activate audio session: device busy"},
                          Case{false, "Failed to deactivate audio session: device busy"}}) {
        DiagnosticCapture diagnostics;
        device_.failActivation = true;
        int completions = 0;
        manager_->applySessionActivity(c.active, 0, [&] { ++completions; });
        drive();
        EXPECT_EQ(completions, 1);
        EXPECT_THAT(diagnostics.lines(), ElementsAre(c.message));
    }
    // overtaken, a failure is neither printed nor completed
    DiagnosticCapture diagnostics;
    int completions = 0;
    manager_->applySessionActivity(true, 0, [&] { ++completions; });
    runActivationOnly();
    device_.failActivation = false;
    manager_->applySessionActivity(true, 0, [&] { completions += 10; });
    drive();
    EXPECT_EQ(completions, 10);
    EXPECT_THAT(diagnostics.lines(), IsEmpty());
}

TEST_F(AudioSessionManagerTest, AResultForAManagerThatIsGoneIsDropped) {
    bool completed = false;
    manager_->applySessionActivity(true, 0, [&] { completed = true; });
    manager_.reset();
    drive();
    EXPECT_THAT(device_.takeCalls(), ElementsAre("activate 0"))
        << "the platform call holds no manager";
    EXPECT_FALSE(completed);
}

TEST_F(AudioSessionManagerTest, ATunerCaptureIsPreparedThenItsCompletionRuns) {
    startInForeground();
    DiagnosticCapture diagnostics;
    int ready = 0;
    manager_->beginCapture(CapturePurpose::tuner, [&] { ++ready; });
    EXPECT_EQ(ready, 0) << "not before the activation";
    drive();
    EXPECT_EQ(ready, 1);
    EXPECT_THAT(device_.takeCalls(),
                ElementsAre("setPreferredSampleRate", "setPreferredIOBufferDuration", "activate 0",
                            "setPreferredInput Built-in Microphone"));
    EXPECT_THAT(
        diagnostics.lines(),
        ElementsAre(
            "AudioSession route capture prepared. inputs=[Built-in Microphone (MicrophoneBuiltIn)] "
            "outputs=[Speaker (LineOut)] sampleRate=44100.0, "
            "ioBufferDuration=0.005804988662131519"));

    // ending the last capture restores the default input, reconciles the profile and
    // keeps playing for the scene (whose refresh applies the profile once more)
    manager_->endCapture(CapturePurpose::tuner);
    drive();
    EXPECT_THAT(device_.takeCalls(),
                ElementsAre("setPreferredInput none", "setPreferredSampleRate",
                            "setPreferredIOBufferDuration", "setPreferredSampleRate",
                            "setPreferredIOBufferDuration", "activate 0"));
    EXPECT_THAT(guitar_.takeCalls(), ElementsAre("resume"));
    EXPECT_TRUE(diagnostics.contains(
        "AudioSession route default input restored. inputs=[] outputs=[Speaker (LineOut)] "
        "sampleRate=44100.0, ioBufferDuration=0.005804988662131519"));
}

TEST_F(AudioSessionManagerTest, ACaptureEndedBeforeItsActivationCompletesNeverCompletes) {
    manager_->configureIfNeeded();
    drive();
    device_.takeCalls();
    int ready = 0;
    manager_->beginCapture(CapturePurpose::tuner, [&] { ++ready; });
    runActivationOnly();
    manager_->endCapture(CapturePurpose::tuner);
    drive();
    EXPECT_EQ(ready, 0);
    // nothing else allows playback: the session goes quiet
    EXPECT_FALSE(device_.isActive);
    EXPECT_THAT(device_.takeCalls(), Contains("deactivate 1"));
}

TEST_F(AudioSessionManagerTest, TempoDetectionCapturesOrFailsWithTheReason) {
    startInForeground();
    EXPECT_TRUE(awaitCapture(CapturePurpose::tempoDetection));
    EXPECT_THAT(manager_->capturePurposes(), ElementsAre(CapturePurpose::tempoDetection));
    EXPECT_EQ(device_.preferredInput, microphone);
    manager_->endCapture(CapturePurpose::tempoDetection);
    drive();

    // the platform's refusal reaches the caller
    device_.failActivation = true;
    const auto refused = awaitCapture(CapturePurpose::tempoDetection);
    ASSERT_FALSE(refused);
    EXPECT_EQ(std::get<Error>(refused.error()).message, "device busy");
    device_.failActivation = false;
    manager_->endCapture(CapturePurpose::tempoDetection);
    drive();

    // a profile that cannot be set removes the purpose again
    device_.setCategory(SessionCategory::ambient, 0); // so that the profile must be set again
    device_.failProfile = true;
    const auto failed = awaitCapture(CapturePurpose::tempoDetection);
    ASSERT_FALSE(failed);
    EXPECT_EQ(std::get<Error>(failed.error()).message, "profile refused");
    EXPECT_THAT(manager_->capturePurposes(), IsEmpty());
}

TEST_F(AudioSessionManagerTest, TempoDetectionEndedWhileActivatingIsCancelled) {
    startInForeground();
    std::optional<tl::expected<void, CaptureError>> result;
    asio::co_spawn(
        main_, manager_->beginCapture(CapturePurpose::tempoDetection),
        [&](std::exception_ptr, tl::expected<void, CaptureError> outcome) { result = outcome; });
    runMainOnly(); // up to the activation
    EXPECT_THAT(manager_->capturePurposes(), ElementsAre(CapturePurpose::tempoDetection));
    manager_->endCapture(CapturePurpose::tempoDetection);
    drive();
    ASSERT_TRUE(result);
    ASSERT_FALSE(*result);
    EXPECT_EQ(std::get<AudioSessionManagerError>(result->error()),
              AudioSessionManagerError::captureCancelled);
}

TEST_F(AudioSessionManagerTest, TempoDetectionDuringAnInterruptionFailsAtOnce) {
    startInForeground();
    interrupt();
    device_.takeCalls();
    const auto result = awaitCapture(CapturePurpose::tempoDetection);
    ASSERT_FALSE(result);
    EXPECT_EQ(std::get<AudioSessionManagerError>(result.error()),
              AudioSessionManagerError::interrupted);
    EXPECT_THAT(device_.takeCalls(), IsEmpty());
    EXPECT_THAT(manager_->capturePurposes(), IsEmpty());
}

TEST_F(AudioSessionManagerTest, AnInterruptionWhileTheGuitarPlaysIsRecoveredWhenItEnds) {
    startInForeground();
    guitar_.running = true;
    DiagnosticCapture diagnostics;
    interrupt();
    EXPECT_TRUE(manager_->wasInterrupted());
    EXPECT_TRUE(manager_->wasGuitarEngineRunningBeforeInterruption());
    EXPECT_THAT(guitar_.takeCalls(), ElementsAre("suspend"));
    EXPECT_THAT(diagnostics.lines(),
                ElementsAre("AudioSession interruption received typeValue=1, optionsValue=0, "
                            "userInfo=[InterruptionType: 1]",
                            "AudioSession interruption began. isSceneActive=true, "
                            "shouldKeepPlayingInBackground=false, "
                            "wasInterrupted=true, wasGuitarEngineRunningBeforeInterruption=true",
                            "AudioSession interruption began: GuitarAudioEngine paused"));

    DiagnosticCapture recovery;
    device_.interruptionObserver(endedResuming);
    runMainOnly();
    EXPECT_FALSE(manager_->wasInterrupted());
    EXPECT_TRUE(manager_->isRecoveringFromInterruption()) << "reconfigured, rebuild outstanding";
    drive();
    EXPECT_FALSE(manager_->isRecoveringFromInterruption());
    EXPECT_FALSE(manager_->needsGuitarPresetReloadAfterInterruption());
    EXPECT_THAT(guitar_.takeCalls(), ElementsAre("resume rebuilding"));
    EXPECT_THAT(
        recovery.lines(),
        ElementsAre(
            "AudioSession interruption received typeValue=0, optionsValue=1, "
            "userInfo=[InterruptionOptions: 1, InterruptionType: 0]",
            "AudioSession interruption ended. optionsValue=1, isSceneActive=true, "
            "shouldKeepPlayingInBackground=false, wasInterrupted=true",
            "AudioSession interruption ended. shouldResumeOption=true, shouldResume=true",
            "AudioSession interruption recovery reconfigured session. sampleRate=44100.0, "
            "ioBufferDuration=0.005804988662131519",
            "AudioSession interruption ended: requested guitar sampler recovery for current "
            "playback state",
            "AudioSession route before guitar sampler recovery. inputs=[Built-in Microphone "
            "(MicrophoneBuiltIn)] outputs=[Speaker (LineOut)] sampleRate=44100.0, "
            "ioBufferDuration=0.005804988662131519",
            "AudioSession interruption recovery completed. sampleRate=44100.0, "
            "ioBufferDuration=0.005804988662131519"));
}

TEST_F(AudioSessionManagerTest, AnInterruptionWhileTheGuitarWasIdleSkipsTheRebuild) {
    startInForeground();
    guitar_.running = false;
    interrupt();
    DiagnosticCapture diagnostics;
    device_.interruptionObserver(endedPlainly);
    drive();
    EXPECT_THAT(guitar_.takeCalls(), ElementsAre("suspend", "suspend"))
        << "once on the start, once more at the end";
    EXPECT_TRUE(diagnostics.contains(
        "AudioSession interruption ended. shouldResumeOption=false, shouldResume=true"));
    EXPECT_TRUE(diagnostics.contains(
        "AudioSession interruption ended: skipped guitar sampler recovery because "
        "GuitarAudioEngine was not running before interruption"));
    EXPECT_FALSE(manager_->needsGuitarPresetReloadAfterInterruption());
}

class DeferredTunerTest : public AudioSessionManagerTest,
                          public ::testing::WithParamInterface<bool> {};

TEST_P(DeferredTunerTest, ATunerStartDuringAnInterruptionWaitsForItsEnd) {
    startInForeground();
    guitar_.running = GetParam(); // recovered through the activation, or at once
    interrupt();
    DiagnosticCapture diagnostics;
    int ready = 0;
    manager_->beginCapture(CapturePurpose::tuner, [&] { ++ready; });
    drive();
    EXPECT_EQ(ready, 0);
    EXPECT_EQ(manager_->pendingPitchRecognitionCompletionCount(), 1u);
    EXPECT_THAT(diagnostics.lines(),
                ElementsAre("AudioSession capture requested during interruption; deferring until "
                            "interruption ends"));
    device_.interruptionObserver(endedResuming);
    drive();
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(manager_->pendingPitchRecognitionCompletionCount(), 0u);
    EXPECT_TRUE(
        diagnostics.contains("AudioSession running 1 deferred pitch recognition request(s)"));
    EXPECT_EQ(device_.preferredInput, microphone);
}

INSTANTIATE_TEST_SUITE_P(GuitarBeforeTheInterruption, DeferredTunerTest,
                         ::testing::Values(true, false), [](const auto& parameter) {
                             return parameter.param ? "running" : "idle";
                         });

TEST_F(AudioSessionManagerTest, ATunerStoppedDuringTheInterruptionIsDroppedUnrun) {
    startInForeground();
    interrupt();
    int ready = 0;
    manager_->beginCapture(CapturePurpose::tuner, [&] { ++ready; });
    manager_->endCapture(CapturePurpose::tuner);
    device_.interruptionObserver(endedResuming);
    drive();
    EXPECT_EQ(ready, 0);
    EXPECT_EQ(manager_->pendingPitchRecognitionCompletionCount(), 0u);
}

TEST_F(AudioSessionManagerTest, AnEndInTheBackgroundWithNothingSoundingWaitsForTheScene) {
    startInForeground();
    guitar_.running = true;
    manager_->setSceneActive(false);
    interrupt();
    device_.takeCalls();
    guitar_.takeCalls();
    for (const auto& [info, message] :
         {std::pair{
              endedResuming,
              "AudioSession interruption ended: deferred audio session activation until scene "
              "becomes active"},
          std::pair{endedPlainly,
                    "AudioSession interruption ended: deferred guitar sampler recovery until scene "
                    "becomes active"}}) {
        manager_->setWasInterrupted(true);
        DiagnosticCapture diagnostics;
        device_.interruptionObserver(info);
        drive();
        EXPECT_TRUE(diagnostics.contains(message)) << message;
        EXPECT_TRUE(manager_->needsGuitarPresetReloadAfterInterruption());
        EXPECT_THAT(device_.takeCalls(), IsEmpty()) << "nothing may start now";
        EXPECT_THAT(guitar_.takeCalls(), IsEmpty());
    }
    // the scene settles the debt
    DiagnosticCapture diagnostics;
    manager_->sceneDidBecomeActive();
    drive();
    EXPECT_FALSE(manager_->needsGuitarPresetReloadAfterInterruption());
    EXPECT_TRUE(diagnostics.contains(
        "AudioSession scene became active: applying deferred guitar sampler recovery"));
    EXPECT_THAT(guitar_.takeCalls(), ElementsAre("resume rebuilding"));
}

TEST_F(AudioSessionManagerTest, TheSceneDuringAnInterruptionOnlyRecordsTheDebt) {
    startInForeground();
    guitar_.running = false;
    interrupt();
    DiagnosticCapture diagnostics;
    manager_->sceneDidBecomeActive();
    drive();
    EXPECT_TRUE(manager_->needsGuitarPresetReloadAfterInterruption());
    EXPECT_THAT(diagnostics.lines(),
                ElementsAre("AudioSession scene became active during interruption; deferring "
                            "recovery until interruption ends"));
    // a debt with an idle guitar is settled without a rebuild
    manager_->setWasInterrupted(false);
    DiagnosticCapture later;
    manager_->sceneDidBecomeActive();
    drive();
    EXPECT_TRUE(
        later.contains("AudioSession scene became active: skipping guitar sampler recovery because "
                       "GuitarAudioEngine was not running before interruption"));
    EXPECT_THAT(guitar_.takeCalls(), ElementsAre("suspend", "resume"));
}

TEST_F(AudioSessionManagerTest, NotificationsOutOfTurnOrOfNoKnownTypeOnlyLog) {
    startInForeground();
    const std::pair<NotificationInfo, std::vector<std::string>> cases[] = {
        {endedResuming,
         {"AudioSession interruption received typeValue=0, optionsValue=1, "
          "userInfo=[InterruptionOptions: 1, InterruptionType: 0]",
          "AudioSession interruption ended. optionsValue=1, isSceneActive=true, "
          "shouldKeepPlayingInBackground=false, wasInterrupted=false",
          "AudioSession interruption ended but wasInterrupted is false; ignoring resume"}},
        {{{"Other", 3}}, {"AudioSession interruption notification missing type: [Other: 3]"}},
        {{{notificationKey::interruptionType, 7}},
         {"AudioSession interruption received typeValue=7, optionsValue=0, "
          "userInfo=[InterruptionType: 7]",
          "AudioSession interruption received unknown future type=7"}},
    };
    for (const auto& [info, lines] : cases) {
        DiagnosticCapture diagnostics;
        device_.interruptionObserver(info);
        drive();
        EXPECT_EQ(diagnostics.lines(), lines);
        EXPECT_THAT(device_.takeCalls(), IsEmpty());
        EXPECT_THAT(guitar_.takeCalls(), IsEmpty());
        EXPECT_FALSE(manager_->wasInterrupted());
        EXPECT_FALSE(manager_->needsGuitarPresetReloadAfterInterruption());
    }
}

TEST_F(AudioSessionManagerTest, NotificationsFromOtherThreadsTouchNothingUntilTheMainThreadRuns) {
    startInForeground();
    std::thread notifier([&] { device_.interruptionObserver(began); });
    notifier.join();
    EXPECT_FALSE(manager_->wasInterrupted());
    EXPECT_THAT(guitar_.calls, IsEmpty());
    runMainOnly();
    EXPECT_TRUE(manager_->wasInterrupted());
}

TEST_F(AudioSessionManagerTest, ARouteChangeRebuildsTheGuitarOnTheNewRoute) {
    startInForeground();
    DiagnosticCapture diagnostics;
    device_.routeChangeObserver(
        {{notificationKey::routeChangeReason, routeChangeReason::newDeviceAvailable}});
    drive();
    EXPECT_THAT(guitar_.takeCalls(), ElementsAre("suspend", "resume rebuilding"));
    const auto lines = diagnostics.lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0],
              "AudioSession route change received reasonValue=1, userInfo=[RouteChangeReason: 1]");
    EXPECT_EQ(lines[1],
              "AudioSession route changed. reason=newDeviceAvailable, isSceneActive=true, "
              "shouldKeepPlayingInBackground=false, wasInterrupted=false");
    EXPECT_EQ(lines[2],
              "AudioSession route after route change. inputs=[] outputs=[Speaker (LineOut)] "
              "sampleRate=44100.0, ioBufferDuration=0.005804988662131519");
}

TEST_F(AudioSessionManagerTest, SomeRouteChangesOnlyLog) {
    startInForeground();
    // a category change
    device_.routeChangeObserver(
        {{notificationKey::routeChangeReason, routeChangeReason::categoryChange}});
    drive();
    EXPECT_THAT(guitar_.takeCalls(), IsEmpty());
    // while someone captures
    manager_->beginCapture(CapturePurpose::tuner, {});
    drive();
    device_.takeCalls();
    device_.routeChangeObserver(
        {{notificationKey::routeChangeReason, routeChangeReason::oldDeviceUnavailable}});
    drive();
    EXPECT_THAT(guitar_.takeCalls(), IsEmpty());
    EXPECT_THAT(device_.takeCalls(), IsEmpty());
    manager_->endCapture(CapturePurpose::tuner);
    drive();
    guitar_.takeCalls();
    // during an interruption: only the debt
    interrupt();
    guitar_.takeCalls();
    DiagnosticCapture diagnostics;
    device_.routeChangeObserver(
        {{notificationKey::routeChangeReason, routeChangeReason::oldDeviceUnavailable}});
    drive();
    EXPECT_TRUE(manager_->needsGuitarPresetReloadAfterInterruption());
    EXPECT_TRUE(diagnostics.contains(
        "AudioSession route changed during interruption; deferring guitar sampler recovery"));
    EXPECT_THAT(guitar_.takeCalls(), IsEmpty());
}

TEST_F(AudioSessionManagerTest, FailuresOfTheInputArePrintedAndSurvived) {
    startInForeground();
    device_.failInput = true;
    DiagnosticCapture diagnostics;
    int ready = 0;
    manager_->beginCapture(CapturePurpose::tuner, [&] { ++ready; });
    drive();
    EXPECT_EQ(ready, 1);
    EXPECT_TRUE(diagnostics.contains("Unable to prefer built-in microphone input: input refused"));
    manager_->endCapture(CapturePurpose::tuner);
    drive();
    EXPECT_TRUE(diagnostics.contains("Failed to restore default audio input: input refused"));
}

} // namespace
} // namespace fq::audio
