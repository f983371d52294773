// The seams of tempo detection: the audio session, the engine's input, buffers, timers, files.

#include "fq/metronome/TempoCapture.h"

#include <fq/audio/AudioSessionManager.h>
#include <fq/audio/SharedAudioEngine.h>

#include <asio/co_spawn.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <sndfile.h>

#include <algorithm>
#include <atomic>

namespace fq::metronome {

// The audio session.

AudioSessionTempoCapture::AudioSessionTempoCapture(audio::AudioSessionManager& manager,
                                                   asio::any_io_executor main)
    : manager_(manager), main_(std::move(main)) {}

void AudioSessionTempoCapture::beginCapture(std::function<void(bool)> done) {
    asio::co_spawn(main_, manager_.beginCapture(audio::CapturePurpose::tempoDetection),
                   [done = std::move(done)](std::exception_ptr error,
                                            tl::expected<void, audio::CaptureError> outcome) {
                       done(!error && outcome.has_value());
                   });
}

void AudioSessionTempoCapture::endCapture() {
    manager_.endCapture(audio::CapturePurpose::tempoDetection);
}

// The shared engine's input.

/// Gathers the device's blocks into whole buffers of the tap's size.
class EngineTempoInput::Sink final : public audio::CaptureSink {
public:
    Sink(int bufferSize, Tap tap)
        : buffer_(static_cast<std::size_t>(bufferSize)), tap_(std::move(tap)) {}

    void captured(std::span<const float> samples, double sampleRate) noexcept override {
        while (!samples.empty()) {
            const auto count = std::min(samples.size(), buffer_.size() - filled_);
            std::copy_n(samples.begin(), count, buffer_.begin() + static_cast<long>(filled_));
            filled_ += count;
            samples = samples.subspan(count);
            if (filled_ == buffer_.size()) {
                tap_(buffer_, sampleRate);
                filled_ = 0;
            }
        }
    }

private:
    std::vector<float> buffer_;
    std::size_t filled_ = 0;
    Tap tap_;
};

EngineTempoInput::EngineTempoInput(audio::SharedAudioEngine& engine) : engine_(engine) {}

EngineTempoInput::~EngineTempoInput() {
    removeTap();
}

TempoInputFormat EngineTempoInput::inputFormat() const {
    return {engine_.sampleRate(), engine_.inputDevice() ? 1 : 0};
}

void EngineTempoInput::installTap(int bufferSize, Tap tap) {
    removeTap();
    sink_ = std::make_unique<Sink>(bufferSize, std::move(tap));
    engine_.attachCapture(*sink_);
}

void EngineTempoInput::removeTap() {
    if (!sink_) return;
    engine_.detachCapture(*sink_);
    sink_.reset();
}

tl::expected<void, Error> EngineTempoInput::start() {
    if (engine_.isRunning()) return {};
    return engine_.start();
}

void EngineTempoInput::stop() {
    removeTap();
}

// Audio fed by hand.

void TempoBufferInput::installTap(int bufferSize, Tap tap) {
    tap_ = std::move(tap);
    bufferSize_ = static_cast<std::size_t>(bufferSize);
    pending_.clear();
    pending_.reserve(bufferSize_);
}

void TempoBufferInput::removeTap() {
    tap_ = nullptr;
    pending_.clear();
}

void TempoBufferInput::feed(std::span<const float> samples) {
    while (tap_ && !samples.empty()) {
        const auto count = std::min(samples.size(), bufferSize_ - pending_.size());
        pending_.insert(pending_.end(), samples.begin(),
                        samples.begin() + static_cast<long>(count));
        samples = samples.subspan(count);
        if (pending_.size() == bufferSize_) {
            tap_(pending_, sampleRate_);
            pending_.clear();
        }
    }
}

// Schedulers.

struct AsioTempoScheduler::Timer {
    explicit Timer(const asio::any_io_executor& executor) : timer(executor) {}
    asio::steady_timer timer;
};

AsioTempoScheduler::~AsioTempoScheduler() {
    for (auto& [id, timer] : timers_)
        timer->timer.cancel();
}

std::uint64_t AsioTempoScheduler::after(Duration delay, std::function<void()> work) {
    const auto id = nextId_++;
    auto timer = std::make_shared<Timer>(main_);
    timer->timer.expires_after(delay);
    timers_[id] = timer;
    timer->timer.async_wait([this, id, timer, work = std::move(work)](std::error_code error) {
        if (error) return; // cancelled
        timers_.erase(id);
        work();
    });
    return id;
}

void AsioTempoScheduler::cancel(std::uint64_t id) {
    const auto found = timers_.find(id);
    if (found == timers_.end()) return;
    found->second->timer.cancel();
    timers_.erase(found);
}

std::uint64_t ManualTempoScheduler::after(Duration delay, std::function<void()> work) {
    const auto id = nextId_++;
    pending_.emplace(std::pair{now_ + std::max(delay, Duration{0}), id}, std::move(work));
    return id;
}

void ManualTempoScheduler::cancel(std::uint64_t id) {
    std::erase_if(pending_, [id](const auto& item) { return item.first.second == id; });
}

void ManualTempoScheduler::advanceTo(Duration when) {
    while (!pending_.empty() && pending_.begin()->first.first <= when) {
        auto item = pending_.extract(pending_.begin());
        now_ = std::max(now_, item.key().first);
        item.mapped()();
    }
    now_ = std::max(now_, when);
}

// Files.

tl::expected<TempoBuffer, Error> readTempoAudioFile(const std::filesystem::path& file) {
    SF_INFO info{};
    SNDFILE* handle = sf_open(file.c_str(), SFM_READ, &info);
    if (handle == nullptr)
        return tl::unexpected(
            Error{"Cannot read the audio file " + file.string() + ": " + sf_strerror(nullptr),
                  std::filesystem::exists(file) ? ErrorKind::corrupt : ErrorKind::notFound});
    const std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> closer(handle, sf_close);
    if (info.channels < 1 || info.samplerate <= 0)
        return tl::unexpected(
            Error{"The audio file " + file.string() + " has no audio", ErrorKind::corrupt});
    TempoBuffer audio;
    audio.sampleRate = info.samplerate;
    std::vector<float> frames(4096 * static_cast<std::size_t>(info.channels));
    while (true) {
        const auto read = sf_readf_float(handle, frames.data(), 4096);
        if (read <= 0) break;
        for (sf_count_t i = 0; i < read; ++i)
            audio.samples.push_back(frames[static_cast<std::size_t>(i * info.channels)]);
    }
    return audio;
}

} // namespace fq::metronome
