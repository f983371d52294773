#include "fq/tuner/Pd.h"

#include <asio/post.hpp>
#include <z_libpd.h>
#include <z_queued.h>

#include <array>
#include <chrono>

namespace fq::tuner {
namespace {

// libpd's hooks are plain functions without a user argument, so its state lives here.
std::mutex g_pdLock;
PdDispatcher* g_delegate = nullptr; // main executor only
std::mutex g_consoleLock;
std::string g_consolePartial;
std::vector<std::string> g_console;

void onPrint(const char* text) {
    const std::lock_guard guard(g_consoleLock);
    g_consolePartial += text;
    for (auto end = g_consolePartial.find('\n'); end != std::string::npos;
         end = g_consolePartial.find('\n')) {
        g_console.push_back(g_consolePartial.substr(0, end));
        g_consolePartial.erase(0, end + 1);
    }
}

void onFloat(const char* source, float value) {
    if (g_delegate != nullptr) g_delegate->receiveFloat(value, source);
}

} // namespace

void PdBase::initialize() {
    static const bool initialized = [] {
        const std::lock_guard guard(g_pdLock);
        libpd_set_queued_printhook(onPrint);
        libpd_set_queued_floathook(onFloat);
        libpd_queued_init();
        return true;
    }();
    (void)initialized;
}

void* PdBase::openFile(const std::string& name, const std::filesystem::path& directory) {
    initialize();
    const std::lock_guard guard(g_pdLock);
    return libpd_openfile(name.c_str(), directory.c_str());
}

void PdBase::closeFile(void* patch) {
    if (patch == nullptr) return;
    const std::lock_guard guard(g_pdLock);
    libpd_closefile(patch);
}

void PdBase::setDelegate(PdDispatcher* dispatcher) {
    g_delegate = dispatcher;
}

PdDispatcher* PdBase::delegate() {
    return g_delegate;
}

void PdBase::receiveMessages() {
    initialize();
    libpd_queued_receive_pd_messages();
}

std::vector<std::string> PdBase::consoleLines() {
    receiveMessages();
    const std::lock_guard guard(g_consoleLock);
    return g_console;
}

std::mutex& PdBase::lock() {
    return g_pdLock;
}

PdDispatcher::~PdDispatcher() {
    if (PdBase::delegate() == this) PdBase::setDelegate(nullptr);
    removeAllListeners();
}

void PdDispatcher::addListener(PdListener* listener, const std::string& source) {
    PdBase::initialize();
    auto& binding = bindings_[source];
    if (binding.receiver == nullptr) {
        const std::lock_guard guard(PdBase::lock());
        binding.receiver = libpd_bind(source.c_str());
    }
    binding.listeners.insert(listener);
}

void PdDispatcher::removeListener(PdListener* listener, const std::string& source) {
    const auto found = bindings_.find(source);
    if (found == bindings_.end()) return;
    found->second.listeners.erase(listener);
    if (!found->second.listeners.empty()) return;
    if (found->second.receiver != nullptr) {
        const std::lock_guard guard(PdBase::lock());
        libpd_unbind(found->second.receiver);
    }
    bindings_.erase(found);
}

void PdDispatcher::removeAllListeners() {
    const std::lock_guard guard(PdBase::lock());
    for (auto& [source, binding] : bindings_)
        if (binding.receiver != nullptr) libpd_unbind(binding.receiver);
    bindings_.clear();
}

std::size_t PdDispatcher::listenerCount(const std::string& source) const {
    const auto found = bindings_.find(source);
    return found == bindings_.end() ? 0 : found->second.listeners.size();
}

void PdDispatcher::receiveFloat(float value, const char* source) {
    const auto found = bindings_.find(source == nullptr ? std::string() : std::string(source));
    if (found == bindings_.end()) return;
    // a listener may remove itself while told
    const auto listeners = found->second.listeners;
    for (auto* listener : listeners)
        listener->receiveFloat(value, source);
}

PdAudioController::PdAudioController(PitchCaptureSession& session, asio::any_io_executor main)
    : session_(session), main_(std::move(main)) {
    PdBase::initialize();
    worker_ = std::thread([this] { process(); });
}

PdAudioController::~PdAudioController() {
    if (active_) session_.detachCapture(*this);
    stopping_.store(true);
    worker_.join();
}

void PdAudioController::setActive(bool active) {
    if (active == active_) return;
    active_ = active;
    if (active) {
        session_.attachCapture(*this);
    } else {
        session_.detachCapture(*this);
    }
    const std::lock_guard guard(PdBase::lock());
    libpd_start_message(1);
    libpd_add_float(active ? 1.0f : 0.0f);
    libpd_finish_message("pd", "dsp");
}

PdAudioController::Status PdAudioController::configurePlayback(int sampleRate, int numberChannels,
                                                               bool inputEnabled, bool) {
    if (sampleRate <= 0 || numberChannels <= 0) return error;
    {
        const std::lock_guard guard(PdBase::lock());
        if (libpd_init_audio(inputEnabled ? numberChannels : 0, numberChannels, sampleRate) != 0)
            return error;
    }
    sampleRate_ = sampleRate;
    channels_ = numberChannels;
    const double running = session_.sampleRate();
    return running > 0 && running != sampleRate ? propertyChanged : success;
}

void PdAudioController::captured(std::span<const float> samples, double) noexcept {
    for (const float sample : samples)
        if (!queue_.push(sample)) dropped_.fetch_add(1, std::memory_order_relaxed);
}

void PdAudioController::process() {
    constexpr int maximumTicks = 16;
    const int tick = libpd_blocksize();
    std::vector<float> in(static_cast<std::size_t>(tick * maximumTicks));
    std::vector<float> out(in.size() * 2);
    while (!stopping_.load()) {
        const auto ticks =
            std::min<std::size_t>(queue_.size() / static_cast<std::size_t>(tick), maximumTicks);
        if (ticks == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(300));
            continue;
        }
        const auto frames = ticks * static_cast<std::size_t>(tick);
        for (std::size_t i = 0; i < frames; ++i)
            in[i] = queue_.pop().value_or(0.0f);
        {
            const std::lock_guard guard(PdBase::lock());
            // one input channel: the patch listens to the first
            libpd_process_float(static_cast<int>(ticks), in.data(), out.data());
        }
        // posted before the count moves, so that whoever waits for the count finds it queued
        asio::post(main_, [] { PdBase::receiveMessages(); });
        processed_.fetch_add(static_cast<std::int64_t>(frames), std::memory_order_release);
    }
}

} // namespace fq::tuner
