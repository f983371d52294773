#pragma once

#include "fq/tuner/KVPitchRecognizer.h"
#include "fq/tuner/PitchCaptureSession.h"

#include <fq/core/Error.h>

#include <asio/io_context.hpp>
#include <tl/expected.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace fq::tuner {

/// One channel of audio from a file.
struct MonoAudio {
    std::vector<float> samples;
    double sampleRate = 0;
};

/// Reads any file libsndfile knows, its channels mixed to one.
tl::expected<MonoAudio, Error> readMonoAudio(const std::filesystem::path& file);

/// The recognizer on audio handed over by the caller instead of the microphone: the
/// same patch, lifecycle and filter, fed a hop at a time, with time counted in the
/// audio's own frames so that a file gives the same readings however fast it runs.
///
/// Threads: one thread, which also runs `main`.
class OfflinePitchTracker {
public:
    /// A value the recognizer accepted, and the audio time at which it came out.
    using Observer = std::function<void(double frequency, double seconds)>;
    static constexpr std::size_t hopFrames = 256;

    OfflinePitchTracker(asio::io_context& main, double sampleRate,
                        std::filesystem::path cacheDirectory);
    ~OfflinePitchTracker();

    /// Opens the patch and starts listening. Fails when the patch does not open.
    tl::expected<void, Error> start(Observer observer);
    /// Runs the samples through the patch, a hop at a time, telling the observer of each
    /// accepted value. `beforeHop` runs before each hop with the audio time (pacing).
    void feed(std::span<const float> samples,
              const std::function<void(double seconds)>& beforeHop = {});
    /// Audio time processed so far, in seconds.
    double seconds() const;
    /// Stops and tears the recognizer down.
    void finish();

    KVPitchRecognizer& recognizer() { return *recognizer_; }

private:
    void drain();

    asio::io_context& main_;
    double sampleRate_;
    ManualCaptureSession session_;
    NoDrumEngine drums_;
    std::shared_ptr<PitchRecognizerDelegateHandler> handler_;
    std::shared_ptr<KVPitchRecognizer> recognizer_;
    Observer observer_;
    std::int64_t fed_ = 0;
    bool finished_ = false;
};

} // namespace fq::tuner
