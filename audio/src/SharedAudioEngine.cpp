#include "fq/audio/SharedAudioEngine.h"

#include "PortAudioHost.h"

#include <fmt/format.h>
#include <portaudio.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <thread>

namespace fq::audio {

struct EngineCallbacks {
    static int output(const void*, void* output, unsigned long frames,
                      const PaStreamCallbackTimeInfo*, PaStreamCallbackFlags, void* user) {
        static_cast<SharedAudioEngine*>(user)->renderDeviceBlock(static_cast<float* const*>(output),
                                                                 static_cast<int>(frames));
        return paContinue;
    }
    static int input(const void* input, void*, unsigned long frames,
                     const PaStreamCallbackTimeInfo*, PaStreamCallbackFlags, void* user) {
        if (input != nullptr)
            static_cast<SharedAudioEngine*>(user)->captureDeviceBlock(
                static_cast<const float*>(input), static_cast<int>(frames));
        return paContinue;
    }
    // PortAudio calls these on the stream's own thread when it ends, asked or not
    static void outputFinished(void* user) {
        auto& engine = *static_cast<SharedAudioEngine*>(user);
        if (engine.stoppingOutput_.load()) return;
        engine.outputFailed_.store(true);
        engine.running_.store(false);
        engine.outputEvents_.push(EngineEvent::outputStopped);
    }
    static void inputFinished(void* user) {
        auto& engine = *static_cast<SharedAudioEngine*>(user);
        if (!engine.stoppingInput_.load()) engine.inputEvents_.push(EngineEvent::inputStopped);
    }
};

namespace {

PaStream* paStream(void* stream) {
    return static_cast<PaStream*>(stream);
}

int framesFor(double sampleRate, double duration) {
    return std::max(16, static_cast<int>(std::lround(sampleRate * duration)));
}

} // namespace

SharedAudioEngine& SharedAudioEngine::shared() {
    static SharedAudioEngine engine(Timeline::shared());
    return engine;
}

SharedAudioEngine::SharedAudioEngine(Timeline& timeline)
    : timeline_(timeline), preferredSampleRate_(config::preferredSampleRate),
      preferredIOBufferDuration_(config::preferredIOBufferDuration),
      sampleRate_(config::preferredSampleRate),
      framesPerBuffer_(framesFor(config::preferredSampleRate, config::preferredIOBufferDuration)),
      scratchLeft_(config::maximumBlockFrames), scratchRight_(config::maximumBlockFrames) {}

SharedAudioEngine::~SharedAudioEngine() {
    const std::lock_guard lock(controlMutex_);
    closeStreamsLocked();
}

bool SharedAudioEngine::attach(AudioSource& source) {
    const std::lock_guard lock(controlMutex_);
    if (source.engine_.load() == this) return true;
    const auto free = std::find_if(sources_.begin(), sources_.end(),
                                   [](const auto& slot) { return slot.load() == nullptr; });
    if (free == sources_.end()) return false;
    source.prepare(sampleRate_.load(), config::maximumBlockFrames);
    source.engine_.store(this);
    free->store(&source);
    return true;
}

void SharedAudioEngine::detach(AudioSource& source) {
    const std::lock_guard lock(controlMutex_);
    for (auto& slot : sources_)
        if (slot.load() == &source) slot.store(nullptr);
    // A render that began before the store may still hold the pointer; one that
    // begins after it cannot see it (both sides use sequentially consistent order).
    while (outputBusy_.load())
        std::this_thread::yield();
    if (source.engine_.load() == this) source.engine_.store(nullptr);
}

bool SharedAudioEngine::attachCapture(CaptureSink& sink) {
    const std::lock_guard lock(controlMutex_);
    if (std::any_of(sinks_.begin(), sinks_.end(),
                    [&](const auto& slot) { return slot.load() == &sink; }))
        return true;
    const auto free = std::find_if(sinks_.begin(), sinks_.end(),
                                   [](const auto& slot) { return slot.load() == nullptr; });
    if (free == sinks_.end()) return false;
    free->store(&sink);
    return true;
}

void SharedAudioEngine::detachCapture(CaptureSink& sink) {
    const std::lock_guard lock(controlMutex_);
    for (auto& slot : sinks_)
        if (slot.load() == &sink) slot.store(nullptr);
    while (inputBusy_.load())
        std::this_thread::yield();
}

void SharedAudioEngine::enableManualRenderingMode() {
    const std::lock_guard lock(controlMutex_);
    closeStreamsLocked();
    manualRendering_.store(true);
}

bool SharedAudioEngine::isInManualRenderingMode() const {
    return manualRendering_.load();
}

void SharedAudioEngine::prepare() {
    const std::lock_guard lock(controlMutex_);
    prepareSourcesLocked();
}

void SharedAudioEngine::prepareSourcesLocked() {
    if (preparedSampleRate_ == sampleRate_.load()) return;
    for (auto& slot : sources_)
        if (auto* source = slot.load())
            source->prepare(sampleRate_.load(), config::maximumBlockFrames);
    preparedSampleRate_ = sampleRate_.load();
}

tl::expected<void, Error> SharedAudioEngine::start() {
    const std::lock_guard lock(controlMutex_);
    if (running_.load()) return {};
    if (manualRendering_.load()) {
        running_.store(true);
        return {};
    }
    if (auto opened = openOutputLocked(); !opened) return opened;
    if (wantedInput_ && inputStream_ == nullptr) {
        if (auto opened = openInputLocked(); !opened) return opened;
    }
    prepareSourcesLocked();
    auto host = detail::PortAudioHost::instance().lock();
    reanchor_.store(true);
    stoppingOutput_.store(false);
    if (const PaError error = Pa_StartStream(paStream(outputStream_)); error != paNoError) {
        closeStreamsLocked();
        return tl::unexpected(Error{"Cannot start the audio output: " + detail::errorText(error)});
    }
    running_.store(true);
    if (inputStream_ != nullptr && Pa_IsStreamActive(paStream(inputStream_)) != 1) {
        stoppingInput_.store(false);
        if (const PaError error = Pa_StartStream(paStream(inputStream_)); error != paNoError)
            return tl::unexpected(
                Error{"Cannot start the audio input: " + detail::errorText(error)});
    }
    return {};
}

tl::expected<void, Error> SharedAudioEngine::openOutputLocked() {
    if (outputStream_ != nullptr) {
        if (!outputFailed_.load()) return {};
        // a stream that ended by itself does not start again: open it afresh
        closeStreamsLocked();
    }
    auto& host = detail::PortAudioHost::instance();
    auto hostLock = host.lock();
    if (auto scanned = host.rescan(); !scanned) return tl::unexpected(scanned.error());
    auto chosen = chooseAudioDevice(host.devices(), AudioDirection::output, wantedAudioDevice());
    if (!chosen) return tl::unexpected(chosen.error());

    outputChannels_ = std::min(2, chosen->maxOutputChannels);
    PaStreamParameters parameters{};
    parameters.device = chosen->index;
    parameters.channelCount = outputChannels_;
    parameters.sampleFormat = paFloat32 | paNonInterleaved;
    parameters.suggestedLatency = std::max(Pa_GetDeviceInfo(chosen->index)->defaultLowOutputLatency,
                                           config::minimumDeviceLatency.count());
    double rate = preferredSampleRate_;
    if (Pa_IsFormatSupported(nullptr, &parameters, rate) != paFormatIsSupported)
        rate = chosen->defaultSampleRate;
    const int frames = framesFor(rate, preferredIOBufferDuration_);
    PaStream* stream = nullptr;
    const PaError error =
        Pa_OpenStream(&stream, nullptr, &parameters, rate, static_cast<unsigned long>(frames),
                      paNoFlag, &EngineCallbacks::output, this);
    if (error != paNoError)
        return tl::unexpected(Error{fmt::format("Cannot open the audio output \"{}\": {}",
                                                chosen->name, detail::errorText(error))});
    Pa_SetStreamFinishedCallback(stream, &EngineCallbacks::outputFinished);
    host.streamOpened();
    outputStream_ = stream;
    outputFailed_.store(false);
    const PaStreamInfo* info = Pa_GetStreamInfo(stream);
    const double latency = (info != nullptr ? info->outputLatency : 0.0) +
                           std::chrono::duration<double>(config::deviceEventMargin).count();
    eventLatencyFrames_.store(static_cast<FrameTime>(std::llround(latency * rate)));
    outputDevice_ = *chosen;
    sampleRate_.store(rate);
    framesPerBuffer_.store(frames);
    while (outputEvents_.pop()) {
    }
    return {};
}

tl::expected<void, Error> SharedAudioEngine::openInputLocked() {
    auto& host = detail::PortAudioHost::instance();
    auto hostLock = host.lock();
    if (auto initialised = host.ensureInitialised(); !initialised)
        return tl::unexpected(initialised.error());
    const auto devices = host.devices();
    const auto device = std::find_if(devices.begin(), devices.end(), [&](const auto& found) {
        return found.name == wantedInput_->name;
    });
    if (device == devices.end() || device->maxInputChannels < 1)
        return tl::unexpected(
            Error{fmt::format("The audio input \"{}\" is not there", wantedInput_->name)});
    PaStreamParameters parameters{};
    parameters.device = device->index;
    parameters.channelCount = 1;
    parameters.sampleFormat = paFloat32;
    parameters.suggestedLatency = std::max(Pa_GetDeviceInfo(device->index)->defaultLowInputLatency,
                                           config::minimumDeviceLatency.count());
    PaStream* stream = nullptr;
    const PaError error = Pa_OpenStream(&stream, &parameters, nullptr, sampleRate_.load(),
                                        static_cast<unsigned long>(framesPerBuffer_.load()),
                                        paNoFlag, &EngineCallbacks::input, this);
    if (error != paNoError)
        return tl::unexpected(Error{fmt::format("Cannot open the audio input \"{}\": {}",
                                                device->name, detail::errorText(error))});
    Pa_SetStreamFinishedCallback(stream, &EngineCallbacks::inputFinished);
    host.streamOpened();
    inputStream_ = stream;
    inputDevice_ = *device;
    while (inputEvents_.pop()) {
    }
    return {};
}

void SharedAudioEngine::pause() {
    const std::lock_guard lock(controlMutex_);
    stopStreamsLocked();
    running_.store(false);
}

void SharedAudioEngine::stop() {
    const std::lock_guard lock(controlMutex_);
    closeStreamsLocked();
    running_.store(false);
}

void SharedAudioEngine::stopStreamsLocked() {
    auto host = detail::PortAudioHost::instance().lock();
    if (outputStream_ != nullptr && Pa_IsStreamStopped(paStream(outputStream_)) == 0) {
        stoppingOutput_.store(true);
        Pa_StopStream(paStream(outputStream_));
    }
    if (inputStream_ != nullptr && Pa_IsStreamStopped(paStream(inputStream_)) == 0) {
        stoppingInput_.store(true);
        Pa_StopStream(paStream(inputStream_));
    }
}

void SharedAudioEngine::closeStreamsLocked() {
    auto& host = detail::PortAudioHost::instance();
    auto hostLock = host.lock();
    stopStreamsLocked();
    for (void** stream : {&outputStream_, &inputStream_}) {
        if (*stream == nullptr) continue;
        Pa_CloseStream(paStream(*stream));
        host.streamClosed();
        *stream = nullptr;
    }
    inputDevice_.reset();
    running_.store(false);
}

void SharedAudioEngine::reset() {
    const std::lock_guard lock(controlMutex_);
    for (auto& slot : sources_)
        if (auto* source = slot.load()) source->reset();
}

void SharedAudioEngine::setPreferredFormat(double sampleRate, double ioBufferDuration) {
    const std::lock_guard lock(controlMutex_);
    preferredSampleRate_ = sampleRate;
    preferredIOBufferDuration_ = ioBufferDuration;
    if (outputStream_ == nullptr) {
        sampleRate_.store(sampleRate);
        framesPerBuffer_.store(framesFor(sampleRate, ioBufferDuration));
    }
}

double SharedAudioEngine::sampleRate() const {
    return sampleRate_.load();
}

int SharedAudioEngine::framesPerBuffer() const {
    return framesPerBuffer_.load();
}

tl::expected<void, Error> SharedAudioEngine::setInputDevice(std::optional<AudioDeviceInfo> device) {
    const std::lock_guard lock(controlMutex_);
    const bool same = device && inputDevice_ && device->name == inputDevice_->name;
    wantedInput_ = std::move(device);
    if (same || manualRendering_.load()) return {};
    if (inputStream_ != nullptr) {
        auto& host = detail::PortAudioHost::instance();
        auto hostLock = host.lock();
        if (Pa_IsStreamStopped(paStream(inputStream_)) == 0) {
            stoppingInput_.store(true);
            Pa_StopStream(paStream(inputStream_));
        }
        Pa_CloseStream(paStream(inputStream_));
        host.streamClosed();
        inputStream_ = nullptr;
        inputDevice_.reset();
    }
    if (!wantedInput_ || !running_.load()) return {};
    if (auto opened = openInputLocked(); !opened) return opened;
    auto hostLock = detail::PortAudioHost::instance().lock();
    stoppingInput_.store(false);
    if (const PaError error = Pa_StartStream(paStream(inputStream_)); error != paNoError)
        return tl::unexpected(Error{"Cannot start the audio input: " + detail::errorText(error)});
    return {};
}

std::optional<AudioDeviceInfo> SharedAudioEngine::inputDevice() const {
    const std::lock_guard lock(controlMutex_);
    return inputDevice_ ? inputDevice_ : wantedInput_;
}

std::optional<AudioDeviceInfo> SharedAudioEngine::outputDevice() const {
    const std::lock_guard lock(controlMutex_);
    return outputDevice_;
}

std::optional<EngineEvent> SharedAudioEngine::nextEvent() {
    if (auto event = outputEvents_.pop()) return event;
    return inputEvents_.pop();
}

void SharedAudioEngine::renderOffline(std::span<float> left, std::span<float> right,
                                      TimelineTime firstFrameTime) {
    assert(manualRendering_.load() && "a device engine renders only in its callback");
    const auto frames = std::min(left.size(), right.size());
    const bool rendering = running_.load();
    BlockTiming timing;
    timing.sampleRate = sampleRate_.load();
    timing.anchorFrame = renderedFrames_.load();
    timing.anchorTime = firstFrameTime;
    for (std::size_t done = 0; done < frames;) {
        const auto count = std::min<std::size_t>(frames - done, config::maximumBlockFrames);
        timing.firstFrame = renderedFrames_.load();
        timing.frames = static_cast<int>(count);
        if (rendering) {
            mix(timing, left.data() + done, right.data() + done);
        } else {
            std::fill_n(left.data() + done, count, 0.0f);
            std::fill_n(right.data() + done, count, 0.0f);
            renderedFrames_.fetch_add(static_cast<FrameTime>(count));
        }
        done += count;
    }
}

void SharedAudioEngine::mix(const BlockTiming& timing, float* left, float* right) noexcept {
    std::fill_n(left, timing.frames, 0.0f);
    std::fill_n(right, timing.frames, 0.0f);
    outputBusy_.store(true);
    for (auto& slot : sources_)
        if (auto* source = slot.load()) source->render(timing, left, right);
    outputBusy_.store(false);
    renderedFrames_.fetch_add(timing.frames, std::memory_order_release);
}

void SharedAudioEngine::renderDeviceBlock(float* const* channels, int frames) noexcept {
    // Timeline time here is the steady clock. Callbacks come unevenly (in bursts, or
    // after a pause while the sound server starts), so the relation to the frames is
    // the latest any callback has shown, and an event sounds the device's latency
    // plus a margin after its stamp: its frame is rendered no sooner than the margin
    // after the stamp, and an event sent within the margin is always in time.
    const double rate = sampleRate_.load();
    const auto now = std::chrono::duration_cast<TimelineTime>(
        std::chrono::steady_clock::now().time_since_epoch());
    const FrameTime first = renderedFrames_.load(std::memory_order_relaxed);
    const auto origin = now - std::chrono::duration_cast<TimelineTime>(
                                  std::chrono::duration<double>(static_cast<double>(first) / rate));
    if (reanchor_.exchange(false)) {
        origin_ = origin;
    } else {
        // the device's clock may run a little fast: let the relation follow it back
        origin_ = std::max(origin, origin_ - (now - lastCallback_) / config::clockDriftAllowance);
    }
    lastCallback_ = now;
    BlockTiming timing;
    timing.sampleRate = rate;
    timing.anchorTime = origin_;
    timing.anchorFrame = eventLatencyFrames_.load(std::memory_order_relaxed);
    if (!timeline_.followsSteadyClock())
        timing.anchorTime = TimelineTime::max() / 2; // everything at once

    for (int done = 0; done < frames;) {
        const int count = std::min(frames - done, config::maximumBlockFrames);
        timing.firstFrame = renderedFrames_.load(std::memory_order_relaxed);
        timing.frames = count;
        if (outputChannels_ == 2) {
            mix(timing, channels[0] + done, channels[1] + done);
        } else {
            mix(timing, scratchLeft_.data(), scratchRight_.data());
            for (int i = 0; i < count; ++i)
                channels[0][done + i] = 0.5f * (scratchLeft_[i] + scratchRight_[i]);
        }
        done += count;
    }
}

void SharedAudioEngine::captureDeviceBlock(const float* samples, int frames) noexcept {
    const double rate = sampleRate_.load();
    inputBusy_.store(true);
    for (auto& slot : sinks_)
        if (auto* sink = slot.load())
            sink->captured(std::span(samples, static_cast<std::size_t>(frames)), rate);
    inputBusy_.store(false);
}

} // namespace fq::audio
