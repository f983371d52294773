#pragma once

#include "fq/tuner/Pd.h"
#include "fq/tuner/PitchCaptureSession.h"

#include <asio/any_io_executor.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace fq::tuner {

namespace config {
/// Values outside this range, both bounds included in it, are dropped: below it lies
/// what the patch sends for a rejected pitch (mtof(0), about 8.18 Hz).
inline constexpr float lowestFrequency = 10.0f;
inline constexpr float highestFrequency = 6000.0f;
inline constexpr double fallbackSampleRate = 44100.0;
inline constexpr std::string_view frequencySource = "frequency";
/// Registered beside "frequency"; the patch never sends to it.
inline constexpr std::string_view envelopeSource = "envelope";
} // namespace config

/// Told once, on the main executor, whether the patch opened.
class KVPitchRecognizerDelegate {
public:
    virtual ~KVPitchRecognizerDelegate() = default;
    virtual void pitchRecognizerDidOpenPatch(bool opened) = 0;
};

/// What the screens give the recognizer as delegate. Neither flag is ever cleared, and
/// a success does not clear an earlier error.
class PitchRecognizerDelegateHandler final : public KVPitchRecognizerDelegate {
public:
    void pitchRecognizerDidOpenPatch(bool opened) override {
        if (opened)
            _isPatchOpened = true;
        else
            _patchError = true;
    }
    bool isPatchOpened() const { return _isPatchOpened; }
    bool patchError() const { return _patchError; }

private:
    bool _isPatchOpened = false;
    bool _patchError = false;
};

/// The drum engine, which must not share the audio hardware with the recognizer while
/// the patch opens.
class DrumEngineSuspension {
public:
    virtual ~DrumEngineSuspension() = default;
    /// Puts the engine in its suspended state and stops it.
    virtual void suspendAndStop() = 0;
    /// Leaves the suspended state without restarting any sound.
    virtual void leaveSuspension() = 0;
};

/// Where no drum engine exists yet.
class NoDrumEngine final : public DrumEngineSuspension {
public:
    void suspendAndStop() override {}
    void leaveSuspension() override {}
};

/// The microphone as one number: the frequency of the note being played, from a fixed
/// Pure Data patch that libpd runs on the captured input. The class owns the patch's
/// lifecycle (opening in two halves, start, stop, resume, tear-down), the audio
/// configuration and the filtering of what the patch reports.
///
/// Queued work holds the recognizer weakly and carries the `_lifecycleGeneration` it
/// was made under: every start, stop and opening adds 1, so a late completion finds
/// itself stale and does nothing.
///
/// Threads: everything on the main executor; receiveFloat() only posts there.
class KVPitchRecognizer final : public PdListener,
                                public std::enable_shared_from_this<KVPitchRecognizer> {
public:
    using FrequencyObserver = std::function<void(double)>;

    /// `session` and `drums` must outlive the recognizer and the work it queued. The
    /// patch file goes into `cacheDirectory`, created when missing.
    static std::shared_ptr<KVPitchRecognizer> create(asio::any_io_executor main,
                                                     PitchCaptureSession& session,
                                                     DrumEngineSuspension& drums,
                                                     std::filesystem::path cacheDirectory);
    /// Closes a patch still open, silently; tearDown() is the orderly way.
    ~KVPitchRecognizer() override;

    void start();
    void stop();
    void resumeAudio();
    /// Asynchronous: runs on the main executor, then `done`.
    void tearDown(std::function<void()> done = {});

    double frequency() const { return _frequency; }
    double amplitude() const { return _amplitude; }
    /// Told on the main executor whenever the stored frequency changes.
    void observeFrequency(FrequencyObserver observer) { observer_ = std::move(observer); }
    void setDelegate(std::weak_ptr<KVPitchRecognizerDelegate> delegate) {
        _delegate = std::move(delegate);
    }
    void setOnPianoNoteNumberUpdated(std::function<void()> closure) {
        _onPianoNoteNumberUpdated = std::move(closure);
    }

    bool isPatchOpen() const { return _patch != nullptr; }
    bool isInitializing() const { return _isInitializing; }
    std::uint64_t lifecycleGeneration() const { return _lifecycleGeneration; }
    PdAudioController* audioController() const { return _audioController.get(); }
    PdDispatcher* dispatcher() const { return _dispatcher.get(); }
    /// The file the patch was last written to.
    const std::filesystem::path& patchFile() const { return patchFile_; }

    /// libpd's side: posts the value to the main executor.
    void receiveFloat(float value, const char* source) override;

private:
    struct Private {};

public:
    KVPitchRecognizer(Private, asio::any_io_executor main, PitchCaptureSession& session,
                      DrumEngineSuspension& drums, std::filesystem::path cacheDirectory);

private:
    void openPatch();
    void openPatchWithCapture(std::uint64_t generation);
    void configureAudio();
    void attach();
    void notifyDelegate(bool opened);
    void accept(const std::string& source, float value);

    double _frequency = 0;
    double _amplitude = 0;
    std::unique_ptr<PdAudioController> _audioController;
    std::weak_ptr<KVPitchRecognizerDelegate> _delegate;
    std::unique_ptr<PdDispatcher> _dispatcher;
    void* _patch = nullptr;
    bool _isInitializing = false;
    std::uint64_t _lifecycleGeneration = 0;
    std::function<void()> _onPianoNoteNumberUpdated = [] {};

    asio::any_io_executor main_;
    PitchCaptureSession& session_;
    DrumEngineSuspension& drums_;
    std::filesystem::path cacheDirectory_;
    std::filesystem::path patchFile_;
    FrequencyObserver observer_;
};

} // namespace fq::tuner
