// The serial queue, and the process-wide main executor the metronome still uses.

#include "fq/audio/SerialQueue.h"

#include "fq/audio/DeviceAudio.h"

#include <pthread.h>

namespace fq::audio {

SerialQueue::SerialQueue(std::string label)
    : label_(std::move(label)), work_(context_.get_executor()),
      thread_([this] { context_.run(); }) {
    // the system keeps 15 bytes of a thread's name: keep the end, where the role is
    const auto shown = label_.size() > 15 ? label_.substr(label_.size() - 15) : label_;
    pthread_setname_np(thread_.native_handle(), shown.c_str());
}

SerialQueue::~SerialQueue() {
    work_.reset();
    thread_.join();
}

asio::io_context& mainContext() {
    static asio::io_context context;
    return context;
}

void runMainFor(std::chrono::milliseconds slice) {
    auto& main = mainContext();
    main.restart();
    if (main.run_for(slice) == 0) std::this_thread::sleep_for(slice);
}

bool runMainUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
    return runUntil(mainContext(), done, limit);
}

} // namespace fq::audio
