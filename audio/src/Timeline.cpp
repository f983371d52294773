#include "fq/audio/Timeline.h"

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <memory>

namespace fq::audio {

Timeline& Timeline::shared() {
    static ThreadPoolTimeline timeline;
    return timeline;
}

ThreadPoolTimeline::ThreadPoolTimeline(int threads) : pool_(static_cast<std::size_t>(threads)) {}

ThreadPoolTimeline::~ThreadPoolTimeline() {
    pool_.stop();
    pool_.join();
}

TimelineTime ThreadPoolTimeline::now() const {
    return std::chrono::duration_cast<TimelineTime>(
        std::chrono::steady_clock::now().time_since_epoch());
}

void ThreadPoolTimeline::runAt(TimelineTime when, std::function<void()> work) {
    const auto due = std::chrono::steady_clock::time_point(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(when));
    auto timer = std::make_shared<asio::steady_timer>(pool_, due);
    timer->async_wait([timer, work = std::move(work)](const std::error_code& error) {
        if (!error) work();
    });
}

TimelineTime ManualTimeline::now() const {
    const std::lock_guard lock(mutex_);
    return now_;
}

void ManualTimeline::runAt(TimelineTime when, std::function<void()> work) {
    const std::lock_guard lock(mutex_);
    pending_.emplace(std::pair{std::max(when, now_), nextOrder_++}, std::move(work));
}

void ManualTimeline::advanceTo(TimelineTime when) {
    for (;;) {
        std::function<void()> work;
        {
            const std::lock_guard lock(mutex_);
            const auto first = pending_.begin();
            if (first == pending_.end() || first->first.first > when) {
                now_ = std::max(now_, when);
                return;
            }
            now_ = std::max(now_, first->first.first);
            work = std::move(first->second);
            pending_.erase(first);
        }
        // outside the lock: the item may schedule more
        work();
    }
}

std::size_t ManualTimeline::pendingCount() const {
    const std::lock_guard lock(mutex_);
    return pending_.size();
}

} // namespace fq::audio
