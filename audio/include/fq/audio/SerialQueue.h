#pragma once

// A serial queue on a thread of its own for the slow platform calls.

#include <asio/any_io_executor.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace fq::audio {

/// A queue of its own thread that runs one item at a time, in the order given:
/// where the slow, blocking platform calls go so that the main thread never waits.
class SerialQueue {
public:
    /// `label` names the thread (shortened to what the system keeps) for debuggers.
    explicit SerialQueue(std::string label);
    /// Runs what was already queued, then ends the thread.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    asio::any_io_executor executor() { return context_.get_executor(); }
    const std::string& label() const { return label_; }

private:
    std::string label_;
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    std::thread thread_;
};

/// A process-wide main executor, kept for the metronome's commands and its tempo detector
/// until they take theirs from their owner as the tuner and the player do (DeviceAudio).
asio::io_context& mainContext();

/// Runs the main executor for about `slice`, sleeping instead when it has nothing to do.
void runMainFor(std::chrono::milliseconds slice);

/// Runs the main executor until `done` holds or `limit` has passed; tells whether it holds.
bool runMainUntil(const std::function<bool()>& done, std::chrono::milliseconds limit);

} // namespace fq::audio
