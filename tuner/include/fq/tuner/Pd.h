#pragma once

// Thin wrappers over libpd in the shape the recognizer is written against: a base of
// process-wide calls, a dispatcher that routes received values to listeners, and an
// audio controller that runs the patch on captured input.

#include "fq/tuner/PitchCaptureSession.h"

#include <fq/audio/SpscQueue.h>

#include <asio/any_io_executor.hpp>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace fq::tuner {

/// Something that takes values sent from the patch.
class PdListener {
public:
    virtual ~PdListener() = default;
    /// Called on the thread that drains libpd's message queue (the main executor).
    virtual void receiveFloat(float value, const char* source) = 0;
};

class PdDispatcher;

/// libpd's process-wide calls. Pd is one instance per process: every call here
/// serialises on one lock with the audio processing. Values the patch sends are queued
/// by libpd on the processing thread and reach the delegate only in receiveMessages(),
/// which the main executor runs.
///
/// Threads: the main executor, except where noted.
class PdBase {
public:
    /// Initialises libpd once, with its queued message hooks.
    static void initialize();
    /// The patch handle, or null when libpd could not open it.
    static void* openFile(const std::string& name, const std::filesystem::path& directory);
    static void closeFile(void* patch);
    /// Null detaches. The dispatcher must outlive its time as delegate.
    static void setDelegate(PdDispatcher* dispatcher);
    static PdDispatcher* delegate();
    /// Delivers what the patch sent since the last call.
    static void receiveMessages();
    /// What Pd printed, as complete lines (its errors, such as an object it could not create).
    static std::vector<std::string> consoleLines();
    /// The lock every libpd call takes; any thread but a device callback.
    static std::mutex& lock();
};

/// Routes values by source name to listeners, binding a receiver in libpd for every
/// source that has one.
class PdDispatcher {
public:
    PdDispatcher() = default;
    ~PdDispatcher();
    PdDispatcher(const PdDispatcher&) = delete;
    PdDispatcher& operator=(const PdDispatcher&) = delete;

    void addListener(PdListener* listener, const std::string& source);
    void removeListener(PdListener* listener, const std::string& source);
    void removeAllListeners();
    std::size_t listenerCount(const std::string& source) const;

    void receiveFloat(float value, const char* source);

private:
    struct Binding {
        void* receiver = nullptr;
        std::set<PdListener*> listeners;
    };
    std::map<std::string, Binding> bindings_;
};

/// Runs libpd's DSP on captured input. The device callback only copies samples into a
/// lock-free queue; a processing thread of the controller's own feeds them through
/// libpd_process_float in blocks of libpd's tick and asks the main executor to drain
/// the messages that produced.
///
/// Threads: the main executor; captured() on the input callback.
class PdAudioController final : private audio::CaptureSink {
public:
    enum Status : int { success = 0, error = -1, propertyChanged = 1 };

    PdAudioController(PitchCaptureSession& session, asio::any_io_executor main);
    ~PdAudioController() override;
    PdAudioController(const PdAudioController&) = delete;
    PdAudioController& operator=(const PdAudioController&) = delete;

    /// Active: the input reaches the patch and DSP runs; inactive: neither.
    void setActive(bool active);
    bool isActive() const { return active_; }
    // Routing choices of the phone's session; the desktop has nothing to set for them.
    void setAllowBluetooth(bool allow) { allowBluetooth_ = allow; }
    void setAllowBluetoothA2DP(bool allow) { allowBluetoothA2DP_ = allow; }
    void setDefaultToSpeaker(bool value) { defaultToSpeaker_ = value; }
    /// Sets libpd's audio format. propertyChanged: the capture runs at another rate.
    Status configurePlayback(int sampleRate, int numberChannels, bool inputEnabled,
                             bool mixingEnabled);
    int sampleRate() const { return sampleRate_; }

    /// Frames that went through the patch so far (any thread).
    std::int64_t processedFrames() const { return processed_.load(std::memory_order_acquire); }
    /// Frames captured and not yet processed (any thread).
    std::size_t pendingFrames() const { return queue_.size(); }
    /// Frames dropped because processing fell behind (any thread).
    std::int64_t droppedFrames() const { return dropped_.load(std::memory_order_relaxed); }

private:
    void captured(std::span<const float> samples, double sampleRate) noexcept override;
    void process();

    PitchCaptureSession& session_;
    asio::any_io_executor main_;
    bool active_ = false;
    bool allowBluetooth_ = false;
    bool allowBluetoothA2DP_ = false;
    bool defaultToSpeaker_ = false;
    int sampleRate_ = 0;
    int channels_ = 1;
    audio::SpscQueue<float, 65536> queue_;
    std::atomic<std::int64_t> processed_{0};
    std::atomic<std::int64_t> dropped_{0};
    std::atomic<bool> stopping_{false};
    std::thread worker_;
};

} // namespace fq::tuner
