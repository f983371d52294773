#include "fq/audio/AudioSessionManager.h"

#include "fq/audio/PortAudioDeviceLayer.h"
#include "fq/audio/SerialQueue.h"

#include <fq/core/Diagnostics.h>

#include <asio/async_result.hpp>
#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>
#include <fmt/format.h>

#include <cmath>
#include <utility>

namespace fq::audio {
namespace {

/// A double as the session's own messages print it: the shortest text that reads
/// back exactly, with ".0" on whole numbers ("44100.0", "0.005804988662131519").
std::string number(double value) {
    auto text = fmt::format("{}", value);
    if (std::isfinite(value) && text.find_first_of(".e") == std::string::npos) text += ".0";
    return text;
}

std::optional<std::int64_t> valueOf(const NotificationInfo& info, const char* key) {
    const auto found = info.find(key);
    if (found == info.end()) return std::nullopt;
    return found->second;
}

} // namespace

AudioSessionManager& AudioSessionManager::shared() {
    // destroyed in reverse: the manager first, then the queue (which finishes its
    // items), then the platform those items call
    struct Process {
        PortAudioDeviceLayer device{SharedAudioEngine::shared()};
        SerialQueue activation{"AudioSessionManager.activation"};
        std::shared_ptr<AudioSessionManager> manager =
            AudioSessionManager::create(device, GuitarAudioEngine::shared(),
                                        mainContext().get_executor(), activation.executor());
    };
    static Process process;
    return *process.manager;
}

std::shared_ptr<AudioSessionManager>
AudioSessionManager::create(AudioDeviceLayer& device, GuitarEngineControl& guitar,
                            asio::any_io_executor mainExecutor,
                            asio::any_io_executor activationExecutor) {
    return std::make_shared<AudioSessionManager>(Private{}, device, guitar, std::move(mainExecutor),
                                                 std::move(activationExecutor));
}

AudioSessionManager::AudioSessionManager(Private, AudioDeviceLayer& device,
                                         GuitarEngineControl& guitar,
                                         asio::any_io_executor mainExecutor,
                                         asio::any_io_executor activationExecutor)
    : audioSession_(device), guitar_(guitar), mainExecutor_(std::move(mainExecutor)),
      activationQueue_(std::move(activationExecutor)) {}

AudioSessionManager::~AudioSessionManager() {
    if (isConfigured_) audioSession_.setObservers({}, {});
}

bool AudioSessionManager::currentActivationAllowsPlayback() const {
    return isSceneActive_ || shouldKeepPlayingInBackground_ || !capturePurposes_.empty();
}

tl::expected<void, Error> AudioSessionManager::applyProfile() {
    if (audioSession_.category() != config::sessionCategory ||
        audioSession_.categoryOptions() != config::sessionCategoryOptions) {
        if (auto set =
                audioSession_.setCategory(config::sessionCategory, config::sessionCategoryOptions);
            !set)
            return set;
    }
    if (audioSession_.mode() != config::sessionMode) {
        if (auto set = audioSession_.setMode(config::sessionMode); !set) return set;
    }
    if (auto set = audioSession_.setPreferredSampleRate(config::sessionSampleRate); !set)
        return set;
    return audioSession_.setPreferredIOBufferDuration(config::sessionIOBufferDuration);
}

void AudioSessionManager::configureIfNeeded() {
    if (isConfigured_) return;
    if (auto applied = applyProfile(); !applied) {
        diagnostic("Failed to configure audio session at launch: " + applied.error().message);
        return;
    }
    const std::weak_ptr<AudioSessionManager> weak = weak_from_this();
    audioSession_.setObservers(
        [weak](const NotificationInfo& info) {
            if (const auto self = weak.lock()) self->handleInterruption(info);
        },
        [weak](const NotificationInfo& info) {
            if (const auto self = weak.lock()) self->handleRouteChange(info);
        });
    applySessionActivity(true, 0);
    isConfigured_ = true;
}

void AudioSessionManager::applySessionActivity(bool active, unsigned options,
                                               Completion completion) {
    const auto requestID = ++activationRequestID_;
    asio::post(activationQueue_,
               [weak = weak_from_this(), session = &audioSession_, main = mainExecutor_, active,
                options, requestID, completion = std::move(completion)]() mutable {
                   auto outcome = session->setActive(active, options);
                   asio::post(main, [weak, active, requestID, completion = std::move(completion),
                                     outcome = std::move(outcome)] {
                       const auto self = weak.lock();
                       if (!self) return;
                       // a newer request has overtaken this one: its outcome no longer matters
                       if (self->activationRequestID_ != requestID) return;
                       if (!outcome)
                           diagnostic(std::string(active ? "Failed to activate audio session: "
                                                         : "Failed to deactivate audio session: ") +
                                      outcome.error().message);
                       if (completion) completion();
                   });
               });
}

void AudioSessionManager::refreshPlaybackActivation(bool rebuildGuitar, Completion completion) {
    if (!currentActivationAllowsPlayback()) {
        applySessionActivity(false, config::notifyOthersOnDeactivation);
        return;
    }
    if (auto applied = applyProfile(); !applied)
        diagnostic("Failed to configure audio session for current state: " +
                   applied.error().message);
    applySessionActivity(
        true, 0, [weak = weak_from_this(), rebuildGuitar, completion = std::move(completion)] {
            if (const auto self = weak.lock()) self->afterActivation(rebuildGuitar, completion);
        });
}

void AudioSessionManager::afterActivation(bool rebuildGuitar, const Completion& completion) {
    if (rebuildGuitar) {
        preferBuiltInMicrophone();
        logRoute("before guitar sampler recovery");
    }
    guitar_.resumeAfterActivation(rebuildGuitar);
    if (isRecoveringFromInterruption_) {
        isRecoveringFromInterruption_ = false;
        diagnostic(fmt::format(
            "AudioSession interruption recovery completed. sampleRate={}, ioBufferDuration={}",
            number(audioSession_.sampleRate()), number(audioSession_.ioBufferDuration())));
    }
    if (completion) completion();
}

void AudioSessionManager::sceneDidBecomeActive() {
    isSceneActive_ = true;
    configureIfNeeded();
    if (wasInterrupted_) {
        needsGuitarPresetReloadAfterInterruption_ = true;
        diagnostic("AudioSession scene became active during interruption; deferring recovery until "
                   "interruption ends");
        return;
    }
    bool reconfigured = false;
    if (std::exchange(needsGuitarPresetReloadAfterInterruption_, false)) {
        if (wasGuitarEngineRunningBeforeInterruption_) {
            diagnostic(
                "AudioSession scene became active: applying deferred guitar sampler recovery");
            reconfigureAfterInterruption();
            reconfigured = true;
        } else {
            diagnostic("AudioSession scene became active: skipping guitar sampler recovery because "
                       "GuitarAudioEngine was not running before interruption");
        }
    }
    refreshPlaybackActivation(reconfigured, runDeferredTunerRequestsLater());
}

void AudioSessionManager::reconfigureAfterInterruption() {
    if (auto applied = applyProfile(); !applied) {
        diagnostic("Failed to reconfigure audio session after interruption: " +
                   applied.error().message);
        return;
    }
    isRecoveringFromInterruption_ = true;
    diagnostic(fmt::format("AudioSession interruption recovery reconfigured session. "
                           "sampleRate={}, ioBufferDuration={}",
                           number(audioSession_.sampleRate()),
                           number(audioSession_.ioBufferDuration())));
}

void AudioSessionManager::handleInterruption(const NotificationInfo& info) {
    // the payload is read here, on the notifying thread; the fields only on the main one
    const auto type = valueOf(info, notificationKey::interruptionType);
    if (!type) {
        diagnostic("AudioSession interruption notification missing type: " + describe(info));
        return;
    }
    const auto options = valueOf(info, notificationKey::interruptionOptions).value_or(0);
    diagnostic(
        fmt::format("AudioSession interruption received typeValue={}, optionsValue={}, userInfo={}",
                    *type, options, describe(info)));
    if (*type == interruptionType::began) {
        asio::post(mainExecutor_, [weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->interruptionBegan();
        });
    } else if (*type == interruptionType::ended) {
        asio::post(mainExecutor_, [weak = weak_from_this(), options] {
            if (const auto self = weak.lock()) self->interruptionEnded(options);
        });
    } else {
        diagnostic(fmt::format("AudioSession interruption received unknown future type={}", *type));
    }
}

void AudioSessionManager::interruptionBegan() {
    wasGuitarEngineRunningBeforeInterruption_ = guitar_.isEngineRunning();
    wasInterrupted_ = true;
    diagnostic(fmt::format(
        "AudioSession interruption began. isSceneActive={}, shouldKeepPlayingInBackground={}, "
        "wasInterrupted={}, wasGuitarEngineRunningBeforeInterruption={}",
        isSceneActive_, shouldKeepPlayingInBackground_, wasInterrupted_,
        wasGuitarEngineRunningBeforeInterruption_));
    guitar_.suspendForBackground();
    diagnostic("AudioSession interruption began: GuitarAudioEngine paused");
}

void AudioSessionManager::interruptionEnded(std::int64_t options) {
    diagnostic(fmt::format("AudioSession interruption ended. optionsValue={}, isSceneActive={}, "
                           "shouldKeepPlayingInBackground={}, wasInterrupted={}",
                           options, isSceneActive_, shouldKeepPlayingInBackground_,
                           wasInterrupted_));
    if (!wasInterrupted_) {
        diagnostic("AudioSession interruption ended but wasInterrupted is false; ignoring resume");
        return;
    }
    wasInterrupted_ = false;
    const bool shouldResumeOption = (options & interruptionShouldResume) != 0;
    const bool shouldResume =
        shouldResumeOption || shouldKeepPlayingInBackground_ || isSceneActive_;
    needsGuitarPresetReloadAfterInterruption_ = true;
    diagnostic(
        fmt::format("AudioSession interruption ended. shouldResumeOption={}, shouldResume={}",
                    shouldResumeOption, shouldResume));
    if (!isSceneActive_ && !shouldKeepPlayingInBackground_) {
        // nothing may start now: the debt stays for the scene to settle
        diagnostic(shouldResume ? "AudioSession interruption ended: deferred audio session "
                                  "activation until scene becomes active"
                                : "AudioSession interruption ended: deferred guitar sampler "
                                  "recovery until scene becomes active");
        return;
    }
    needsGuitarPresetReloadAfterInterruption_ = false;
    if (wasGuitarEngineRunningBeforeInterruption_) {
        reconfigureAfterInterruption();
        refreshPlaybackActivation(true, runDeferredTunerRequestsLater());
        diagnostic("AudioSession interruption ended: requested guitar sampler recovery for current "
                   "playback state");
    } else {
        guitar_.suspendForBackground();
        runDeferredTunerRequests();
        diagnostic("AudioSession interruption ended: skipped guitar sampler recovery because "
                   "GuitarAudioEngine was "
                   "not running before interruption");
    }
}

void AudioSessionManager::handleRouteChange(const NotificationInfo& info) {
    const auto reason =
        valueOf(info, notificationKey::routeChangeReason).value_or(routeChangeReason::unknown);
    diagnostic(fmt::format("AudioSession route change received reasonValue={}, userInfo={}", reason,
                           describe(info)));
    asio::post(mainExecutor_, [weak = weak_from_this(), reason] {
        if (const auto self = weak.lock()) self->routeChanged(reason);
    });
}

void AudioSessionManager::routeChanged(std::int64_t reason) {
    diagnostic(fmt::format("AudioSession route changed. reason={}, isSceneActive={}, "
                           "shouldKeepPlayingInBackground={}, "
                           "wasInterrupted={}",
                           routeChangeReasonName(reason), isSceneActive_,
                           shouldKeepPlayingInBackground_, wasInterrupted_));
    logRoute("after route change");
    if (reason == routeChangeReason::categoryChange) return;
    if (!capturePurposes_.empty()) return;
    if (wasInterrupted_) {
        needsGuitarPresetReloadAfterInterruption_ = true;
        diagnostic(
            "AudioSession route changed during interruption; deferring guitar sampler recovery");
        return;
    }
    // rebuilt on the new route once the session is active again
    guitar_.suspendForBackground();
    refreshPlaybackActivation(true);
}

void AudioSessionManager::logRoute(std::string_view context) {
    const auto route = audioSession_.currentRoute();
    diagnostic(fmt::format(
        "AudioSession route {}. inputs=[{}] outputs=[{}] sampleRate={}, ioBufferDuration={}",
        context, describe(route.inputs), describe(route.outputs),
        number(audioSession_.sampleRate()), number(audioSession_.ioBufferDuration())));
}

void AudioSessionManager::preferBuiltInMicrophone() {
    const auto inputs = audioSession_.availableInputs();
    const auto builtIn = std::find_if(inputs.begin(), inputs.end(), [](const AudioPort& port) {
        return port.type == portType::builtInMicrophone;
    });
    if (builtIn == inputs.end()) return;
    const auto current = audioSession_.currentRoute().inputs;
    if (std::find(current.begin(), current.end(), *builtIn) != current.end()) return;
    if (auto preferred = audioSession_.setPreferredInput(*builtIn); !preferred)
        diagnostic("Unable to prefer built-in microphone input: " + preferred.error().message);
}

void AudioSessionManager::beginCapture(CapturePurpose purpose, Completion completion) {
    configureIfNeeded();
    capturePurposes_.insert(purpose);
    if (wasInterrupted_) {
        if (purpose == CapturePurpose::tuner && completion)
            pendingPitchRecognitionCompletions_.push_back(std::move(completion));
        diagnostic("AudioSession capture requested during interruption; deferring until "
                   "interruption ends");
        return;
    }
    if (auto applied = applyProfile(); !applied)
        diagnostic("Failed to configure audio session for capture: " + applied.error().message);
    applySessionActivity(true, 0,
                         [weak = weak_from_this(), purpose, completion = std::move(completion)] {
                             const auto self = weak.lock();
                             if (!self) return;
                             if (!self->capturePurposes_.count(purpose)) {
                                 // cancelled meanwhile
                                 self->reconcileAfterCancelledCapture();
                                 return;
                             }
                             self->preferBuiltInMicrophone();
                             self->logRoute("capture prepared");
                             if (completion) completion();
                         });
}

asio::awaitable<tl::expected<void, CaptureError>>
AudioSessionManager::beginCapture(CapturePurpose purpose) {
    const auto keepAlive = shared_from_this(); // for as long as the caller awaits
    configureIfNeeded();
    if (wasInterrupted_)
        co_return tl::unexpected(CaptureError{AudioSessionManagerError::interrupted});
    capturePurposes_.insert(purpose);
    if (auto applied = applyProfile(); !applied) {
        capturePurposes_.erase(purpose);
        co_return tl::unexpected(CaptureError{applied.error()});
    }
    auto activated = co_await asio::async_initiate<decltype(asio::use_awaitable),
                                                   void(tl::expected<void, Error>)>(
        [this](auto handler) {
            asio::post(activationQueue_, [session = &audioSession_, main = mainExecutor_,
                                          handler = std::move(handler)]() mutable {
                auto outcome = session->setActive(true, 0);
                asio::post(main,
                           [handler = std::move(handler), outcome = std::move(outcome)]() mutable {
                               std::move(handler)(std::move(outcome));
                           });
            });
        },
        asio::use_awaitable);
    if (!activated) co_return tl::unexpected(CaptureError{activated.error()});
    if (!capturePurposes_.count(purpose)) {
        reconcileAfterCancelledCapture();
        co_return tl::unexpected(CaptureError{AudioSessionManagerError::captureCancelled});
    }
    preferBuiltInMicrophone();
    logRoute("capture prepared");
    co_return tl::expected<void, CaptureError>{};
}

void AudioSessionManager::reconcileAfterCancelledCapture() {
    if (auto applied = applyProfile(); !applied)
        diagnostic("Failed to reconcile audio session profile: " + applied.error().message);
    if (!currentActivationAllowsPlayback())
        applySessionActivity(false, config::notifyOthersOnDeactivation);
    else
        refreshPlaybackActivation(false);
}

void AudioSessionManager::endCapture(CapturePurpose purpose) {
    capturePurposes_.erase(purpose);
    if (capturePurposes_.empty()) {
        if (auto restored = audioSession_.setPreferredInput(std::nullopt); !restored)
            diagnostic("Failed to restore default audio input: " + restored.error().message);
        logRoute("default input restored");
    }
    reconcileAfterCancelledCapture();
}

AudioSessionManager::Completion AudioSessionManager::runDeferredTunerRequestsLater() {
    return [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->runDeferredTunerRequests();
    };
}

void AudioSessionManager::runDeferredTunerRequests() {
    if (!capturePurposes_.count(CapturePurpose::tuner)) {
        pendingPitchRecognitionCompletions_.clear();
        return;
    }
    if (pendingPitchRecognitionCompletions_.empty()) return;
    auto completions = std::exchange(pendingPitchRecognitionCompletions_, {});
    diagnostic(fmt::format("AudioSession running {} deferred pitch recognition request(s)",
                           completions.size()));
    if (auto applied = applyProfile(); !applied)
        diagnostic("Failed to configure audio session for capture: " + applied.error().message);
    applySessionActivity(true, 0, [weak = weak_from_this(), completions = std::move(completions)] {
        const auto self = weak.lock();
        if (!self) return;
        self->preferBuiltInMicrophone();
        for (const auto& completion : completions)
            completion();
    });
}

} // namespace fq::audio
