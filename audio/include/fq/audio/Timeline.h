#pragma once

#include <asio/thread_pool.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

namespace fq::audio {

/// A moment on a timeline: time since the timeline's origin.
using TimelineTime = std::chrono::nanoseconds;

/// Where delayed work runs, and the clock it is measured by. Instruments stamp what
/// they send to the render thread with timeline time, and the engine turns the stamps
/// into frames by the same clock, so a note lands on its frame however late the work
/// item that sent it ran.
///
/// Threads: every function from any thread.
class Timeline {
public:
    virtual ~Timeline() = default;

    virtual TimelineTime now() const = 0;
    /// Runs `work` at `when`, or as soon as possible when that has passed. Work
    /// items are never cancelled; they find out themselves whether they are stale.
    virtual void runAt(TimelineTime when, std::function<void()> work) = 0;
    /// True when now() is the steady clock, which the render thread can read itself.
    virtual bool followsSteadyClock() const = 0;

    /// The process's timeline: the steady clock, with a small pool of worker
    /// threads (the user-initiated queue of delayed strum notes).
    static Timeline& shared();
};

/// The steady clock, and a pool of threads that run the work when it is due.
class ThreadPoolTimeline final : public Timeline {
public:
    explicit ThreadPoolTimeline(int threads = 2);
    /// Waits for the threads; work not yet due is dropped.
    ~ThreadPoolTimeline() override;

    TimelineTime now() const override;
    void runAt(TimelineTime when, std::function<void()> work) override;
    bool followsSteadyClock() const override { return true; }

private:
    asio::thread_pool pool_;
};

/// A timeline that moves only when told to. Tests drive it by hand, and offline
/// rendering moves it along with the audio it pulls.
class ManualTimeline final : public Timeline {
public:
    TimelineTime now() const override;
    void runAt(TimelineTime when, std::function<void()> work) override;
    bool followsSteadyClock() const override { return false; }

    /// Moves the clock forward to `when`, running every item due by then on the
    /// calling thread in time order (equal times in the order they were given), with
    /// now() at each item's own time. Items that an item adds run too if due.
    void advanceTo(TimelineTime when);
    void advanceBy(TimelineTime by) { advanceTo(now() + by); }
    std::size_t pendingCount() const;

private:
    mutable std::mutex mutex_;
    TimelineTime now_{0};
    std::uint64_t nextOrder_ = 0;
    std::multimap<std::pair<TimelineTime, std::uint64_t>, std::function<void()>> pending_;
};

} // namespace fq::audio
