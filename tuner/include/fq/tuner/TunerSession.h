#pragma once

// The live tuner as a screen drives it, with no drawing: it owns the recognizer and the
// display model, starts and stops listening as the screen appears, changes scene and goes
// away, and tells an observer what to show. The command and the desktop app both drive it.

#include "fq/tuner/KVPitchRecognizer.h"
#include "fq/tuner/OfflinePitchTracker.h"
#include "fq/tuner/PitchCaptureSession.h"
#include "fq/tuner/TunerDisplay.h"

#include <fq/core/Error.h>
#include <fq/core/Executor.h>

#include <tl/expected.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

namespace fq::tuner {

enum class ScenePhase : std::uint8_t { active, inactive, background };

/// What a front end shows of a tuner. Every call on the main executor.
class TunerSessionObserver {
public:
    virtual ~TunerSessionObserver() = default;
    /// Once per opening of the patch: true when it opened. After false the tuner stays
    /// without readings.
    virtual void tunerOpened(bool /*opened*/) {}
    /// The numbers on show changed (at most five times a second).
    virtual void displayChanged(const TunerDisplayModel& /*display*/) {}
    /// A deviation in cents for the live graph, on every reading of the note that may show.
    virtual void graphReceived(double /*cents*/) {}
};

/// The tuner screen's lifecycle. The desktop has no microphone permission to ask for, so
/// the screen counts as granted from the moment it appears.
///
/// Threads: the main executor.
class TunerSession {
public:
    /// Seconds on a steady clock, for the display's pacing.
    using Clock = std::function<double()>;

    /// `capture`, `drums` and `observer` must outlive the session. Without a clock the
    /// steady clock is used.
    TunerSession(Executor main, PitchCaptureSession& capture, DrumEngineSuspension& drums,
                 std::filesystem::path cacheDirectory, TunerSessionObserver& observer,
                 Clock clock = {});
    ~TunerSession();
    TunerSession(const TunerSession&) = delete;
    TunerSession& operator=(const TunerSession&) = delete;

    /// The screen appears: the recognizer starts, once.
    void appear();
    void changeScene(ScenePhase phase);
    /// The screen goes away: the recognizer stops and is torn down; `done` after that.
    void disappear(std::function<void()> done = {});

    const TunerDisplayModel& display() const { return display_; }
    const PitchRecognizerDelegateHandler& delegateHandler() const;
    bool isStarted() const { return isStarted_; }
    bool wasStoppedForInactiveScene() const { return wasStoppedForInactiveScene_; }
    KVPitchRecognizer& recognizer() { return *recognizer_; }

private:
    class Delegate;
    void handleFrequency(double frequency);

    PitchCaptureSession& capture_;
    TunerSessionObserver& observer_;
    Clock clock_;
    std::shared_ptr<Delegate> delegate_;
    std::shared_ptr<KVPitchRecognizer> recognizer_;
    TunerDisplayModel display_;
    bool isStarted_ = false;
    bool wasStoppedForInactiveScene_ = false;
};

namespace config {
/// Audio at another rate is resampled to this one before the analysis: the patch's
/// window of 2048 points must span a few periods of the lowest string.
inline constexpr double analysisRate = 44100.0;
} // namespace config

/// The audio at a rate the analysis reads correctly: 44.1 and 48 kHz as they are, any other
/// rate resampled to 44.1 kHz.
tl::expected<MonoAudio, Error> atAnalysisRate(MonoAudio audio);

/// A recording through the same recognizer and display, as if heard live: time is the
/// audio's own, so that a file gives the same readings however fast it runs. `beforeHop`
/// runs before each hop with the audio time (pacing). The observer is told on the calling
/// thread. Fails when the audio cannot be resampled or the patch does not open.
tl::expected<void, Error> tuneRecording(const MonoAudio& audio,
                                        const std::filesystem::path& cacheDirectory,
                                        TunerSessionObserver& observer,
                                        const std::function<void(double seconds)>& beforeHop = {});

} // namespace fq::tuner
