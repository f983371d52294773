#include "fq/audio/SerialQueue.h"

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

} // namespace fq::audio
