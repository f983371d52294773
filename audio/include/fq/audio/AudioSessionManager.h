#pragma once

#include "fq/audio/AudioDeviceLayer.h"
#include "fq/audio/GuitarAudioEngine.h"

#include <fq/core/Error.h>

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>
#include <tl/expected.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <variant>
#include <vector>

namespace fq::audio {

/// Who holds the microphone.
enum class CapturePurpose : std::uint8_t { tuner, tempoDetection };

enum class AudioSessionManagerError : std::uint8_t { interrupted, captureCancelled };

/// Why a capture did not start: the manager's own reason, or the platform's error.
using CaptureError = std::variant<AudioSessionManagerError, Error>;

/// The single owner of the audio session. It decides when the session is active,
/// keeps one profile for playback and capture alike, runs the slow activation calls
/// on a serial queue of their own (only the newest request counts), and carries the
/// program through interruptions, route changes and scene changes, including the
/// rebuild of the guitar sampler afterwards. Everyone else only states what they
/// want: a purpose for capture, or that the scene changed.
///
/// Threads: every function and field on the main executor, except the two
/// notification handlers, which may be called on any thread and hop to it. The
/// blocking platform calls run on the activation executor, one at a time.
class AudioSessionManager : public std::enable_shared_from_this<AudioSessionManager> {
public:
    using Completion = std::function<void()>;

    /// A process-wide manager on mainContext(), for the metronome's tempo detector; every
    /// other owner makes its own through DeviceAudio on its own main executor.
    static AudioSessionManager& shared();

    /// `device` and `guitar` must outlive the manager and the work it queued.
    static std::shared_ptr<AudioSessionManager> create(AudioDeviceLayer& device,
                                                       GuitarEngineControl& guitar,
                                                       asio::any_io_executor mainExecutor,
                                                       asio::any_io_executor activationExecutor);
    ~AudioSessionManager();

    void configureIfNeeded();
    void sceneDidBecomeActive();
    void refreshPlaybackActivation(bool rebuildGuitar, Completion completion = {});
    /// Only the newest request's outcome counts: an older one's completion never runs.
    void applySessionActivity(bool active, unsigned options, Completion completion = {});
    /// The tuner's form: `completion` runs once the microphone is ready, or later,
    /// when the interruption in progress ends.
    void beginCapture(CapturePurpose purpose, Completion completion);
    /// Tempo detection's form, to be awaited on the main executor.
    asio::awaitable<tl::expected<void, CaptureError>> beginCapture(CapturePurpose purpose);
    void endCapture(CapturePurpose purpose);
    bool currentActivationAllowsPlayback() const;

    /// The device layer's notifications; any thread.
    void handleInterruption(const NotificationInfo& info);
    void handleRouteChange(const NotificationInfo& info);

    bool isConfigured() const { return isConfigured_; }
    /// Something sounds while the scene is in the background; the shell writes it.
    bool shouldKeepPlayingInBackground() const { return shouldKeepPlayingInBackground_; }
    void setShouldKeepPlayingInBackground(bool value) { shouldKeepPlayingInBackground_ = value; }
    bool isSceneActive() const { return isSceneActive_; }
    void setSceneActive(bool value) { isSceneActive_ = value; }
    bool wasInterrupted() const { return wasInterrupted_; }
    void setWasInterrupted(bool value) { wasInterrupted_ = value; }
    bool needsGuitarPresetReloadAfterInterruption() const {
        return needsGuitarPresetReloadAfterInterruption_;
    }
    void setNeedsGuitarPresetReloadAfterInterruption(bool value) {
        needsGuitarPresetReloadAfterInterruption_ = value;
    }
    std::uint64_t activationRequestID() const { return activationRequestID_; }
    bool isRecoveringFromInterruption() const { return isRecoveringFromInterruption_; }
    bool wasGuitarEngineRunningBeforeInterruption() const {
        return wasGuitarEngineRunningBeforeInterruption_;
    }
    std::size_t pendingPitchRecognitionCompletionCount() const {
        return pendingPitchRecognitionCompletions_.size();
    }
    const std::set<CapturePurpose>& capturePurposes() const { return capturePurposes_; }

private:
    struct Private {};

public:
    AudioSessionManager(Private, AudioDeviceLayer& device, GuitarEngineControl& guitar,
                        asio::any_io_executor mainExecutor,
                        asio::any_io_executor activationExecutor);

private:
    tl::expected<void, Error> applyProfile();
    void reconfigureAfterInterruption();
    void afterActivation(bool rebuildGuitar, const Completion& completion);
    void interruptionBegan();
    void interruptionEnded(std::int64_t options);
    void routeChanged(std::int64_t reason);
    void logRoute(std::string_view context);
    void preferBuiltInMicrophone();
    void reconcileAfterCancelledCapture();
    void runDeferredTunerRequests();
    Completion runDeferredTunerRequestsLater();

    AudioDeviceLayer& audioSession_;
    GuitarEngineControl& guitar_;
    asio::any_io_executor mainExecutor_;
    asio::any_io_executor activationQueue_;
    bool isConfigured_ = false;
    bool shouldKeepPlayingInBackground_ = false;
    bool isSceneActive_ = false;
    bool wasInterrupted_ = false;
    bool needsGuitarPresetReloadAfterInterruption_ = false;
    std::uint64_t activationRequestID_ = 0;
    bool isRecoveringFromInterruption_ = false;
    bool wasGuitarEngineRunningBeforeInterruption_ = false;
    std::vector<Completion> pendingPitchRecognitionCompletions_;
    std::set<CapturePurpose> capturePurposes_;
};

} // namespace fq::audio
