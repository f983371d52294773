// The recognizer fed from a file instead of the microphone.

#include "fq/tuner/OfflinePitchTracker.h"

#include <sndfile.h>

#include <chrono>
#include <memory>
#include <thread>

namespace fq::tuner {

tl::expected<MonoAudio, Error> readMonoAudio(const std::filesystem::path& file) {
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> handle(sf_open(file.c_str(), SFM_READ, &info),
                                                             sf_close);
    if (!handle) {
        std::error_code ignored;
        return tl::unexpected(Error{
            "Cannot read audio file " + file.string() + ": " + sf_strerror(nullptr),
            std::filesystem::exists(file, ignored) ? ErrorKind::corrupt : ErrorKind::notFound});
    }
    if (info.channels <= 0 || info.samplerate <= 0 || info.frames < 0)
        return tl::unexpected(Error{"Not an audio file: " + file.string(), ErrorKind::corrupt});
    const auto channels = static_cast<std::size_t>(info.channels);
    std::vector<float> interleaved(static_cast<std::size_t>(info.frames) * channels);
    const auto read = sf_readf_float(handle.get(), interleaved.data(), info.frames);
    MonoAudio audio;
    audio.sampleRate = info.samplerate;
    audio.samples.resize(static_cast<std::size_t>(std::max<sf_count_t>(read, 0)));
    for (std::size_t frame = 0; frame < audio.samples.size(); ++frame) {
        float sum = 0;
        for (std::size_t channel = 0; channel < channels; ++channel)
            sum += interleaved[frame * channels + channel];
        audio.samples[frame] = sum / static_cast<float>(channels);
    }
    return audio;
}

OfflinePitchTracker::OfflinePitchTracker(asio::io_context& main, double sampleRate,
                                         std::filesystem::path cacheDirectory)
    : main_(main), sampleRate_(sampleRate), session_(main.get_executor(), sampleRate),
      handler_(std::make_shared<PitchRecognizerDelegateHandler>()),
      recognizer_(KVPitchRecognizer::create(main.get_executor(), session_, drums_,
                                            std::move(cacheDirectory))) {
    recognizer_->setDelegate(handler_);
}

OfflinePitchTracker::~OfflinePitchTracker() {
    finish();
}

tl::expected<void, Error> OfflinePitchTracker::start(Observer observer) {
    observer_ = std::move(observer);
    recognizer_->observeFrequency([this](double frequency) {
        if (observer_) observer_(frequency, seconds());
    });
    recognizer_->start();
    // the opening takes a few turns of the main executor
    for (int turn = 0; turn < 100 && !handler_->isPatchOpened() && !handler_->patchError();
         ++turn) {
        main_.restart();
        main_.poll();
    }
    if (!handler_->isPatchOpened())
        return tl::unexpected(Error{"The pitch patch did not open", ErrorKind::io});
    return {};
}

void OfflinePitchTracker::feed(std::span<const float> samples,
                               const std::function<void(double)>& beforeHop) {
    auto* controller = recognizer_->audioController();
    for (std::size_t start = 0; start < samples.size(); start += hopFrames) {
        if (beforeHop) beforeHop(seconds());
        const auto hop = samples.subspan(start, std::min(hopFrames, samples.size() - start));
        session_.feed(hop);
        fed_ += static_cast<std::int64_t>(hop.size());
        // libpd works in whole ticks: wait for every full one that was fed
        if (controller != nullptr) {
            const auto due = fed_ - fed_ % 64;
            while (controller->processedFrames() < due)
                std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
        drain();
    }
}

void OfflinePitchTracker::drain() {
    // the first turn delivers libpd's messages, the second the values they posted
    main_.restart();
    main_.poll();
    main_.restart();
    main_.poll();
}

double OfflinePitchTracker::seconds() const {
    const auto* controller = recognizer_->audioController();
    return controller == nullptr ? 0.0
                                 : static_cast<double>(controller->processedFrames()) / sampleRate_;
}

void OfflinePitchTracker::finish() {
    if (finished_) return;
    finished_ = true;
    recognizer_->stop();
    bool done = false;
    recognizer_->tearDown([&done] { done = true; });
    for (int turn = 0; turn < 100 && !done; ++turn) {
        main_.restart();
        main_.poll();
    }
}

} // namespace fq::tuner
