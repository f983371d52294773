// The sound devices for one owner: activation, steady start, timed parts and release.

#include "fq/audio/DeviceAudio.h"

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <thread>

namespace fq::audio {

bool runUntil(asio::io_context& main, const std::function<bool()>& done,
              std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    constexpr std::chrono::milliseconds slice{10};
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        main.restart();
        if (main.run_for(slice) == 0) std::this_thread::sleep_for(slice);
    }
    return done();
}

DeviceAudio::DeviceAudio(Executor main)
    : main_(std::move(main)), device_(SharedAudioEngine::shared()),
      activation_("AudioSessionManager.activation"),
      session_(AudioSessionManager::create(device_, GuitarAudioEngine::shared(), main_,
                                           activation_.executor())) {}

DeviceAudio::~DeviceAudio() {
    *alive_ = false;
    // the manager first, then the queue (which finishes its items), then the platform
    // those items call
    session_.reset();
}

namespace {

/// One wait on the main executor that ends once: by its condition or by its deadline.
class SteadyWait : public std::enable_shared_from_this<SteadyWait> {
public:
    SteadyWait(Executor main, DeviceAudio::Ready ready)
        : timer_(std::move(main)), ready_(std::move(ready)),
          deadline_(std::chrono::steady_clock::now() + config::activationTimeout) {}

    void finish(tl::expected<void, Error> outcome) {
        if (!ready_) return;
        auto told = std::exchange(ready_, {});
        told(std::move(outcome));
    }

    /// Looks again every few milliseconds until the engine has played `steady` frames
    /// past `started`; a device that never gets there still counts as started.
    void poll(SharedAudioEngine& engine, FrameTime started, FrameTime steady) {
        if (!ready_) return;
        if (engine.renderedFrames() - started > steady ||
            std::chrono::steady_clock::now() >= deadline_) {
            finish({});
            return;
        }
        timer_.expires_after(std::chrono::milliseconds(10));
        timer_.async_wait([self = shared_from_this(), &engine, started, steady](auto) {
            self->poll(engine, started, steady);
        });
    }

private:
    asio::steady_timer timer_;
    DeviceAudio::Ready ready_;
    std::chrono::steady_clock::time_point deadline_;
};

/// Parts sounded one after another, each for its length, on a timer of the main executor.
class Playing : public std::enable_shared_from_this<Playing> {
public:
    Playing(Executor main, GuitarAudioEngine& guitar, std::vector<TimedNotes> parts,
            std::function<void()> done)
        : timer_(std::move(main)), guitar_(guitar), parts_(std::move(parts)),
          done_(std::move(done)) {}

    void next() {
        if (index_ == parts_.size()) {
            guitar_.stopAllNotes();
            if (done_) done_();
            return;
        }
        const auto& part = parts_[index_++];
        guitar_.playChord(part.notes);
        timer_.expires_after(part.length);
        timer_.async_wait([self = shared_from_this()](auto) { self->next(); });
    }

private:
    asio::steady_timer timer_;
    GuitarAudioEngine& guitar_;
    std::vector<TimedNotes> parts_;
    std::function<void()> done_;
    std::size_t index_ = 0;
};

} // namespace

void DeviceAudio::startPlayback(Ready ready) {
    auto wait = std::make_shared<SteadyWait>(main_, std::move(ready));
    session_->sceneDidBecomeActive();
    // the newest request's completion runs after the guitar has resumed on the device
    session_->refreshPlaybackActivation(false, [this, wait, alive = alive_] {
        if (!*alive) return;
        if (!guitar().isEngineRunning()) {
            wait->finish(
                tl::unexpected(Error{"The audio output did not start", ErrorKind::device}));
            return;
        }
        // A sound server may take the first blocks at once and then pause while it sets
        // up: a strum in that pause would lose its spacing.
        const auto steady = static_cast<FrameTime>(
            engine().sampleRate() * std::chrono::duration<double>(config::steadyAfter).count());
        wait->poll(engine(), engine().renderedFrames(), steady);
    });
    auto timeout = std::make_shared<asio::steady_timer>(main_, config::activationTimeout);
    timeout->async_wait([wait, timeout](auto) {
        wait->finish(tl::unexpected(Error{"The audio output did not start", ErrorKind::device}));
    });
}

void DeviceAudio::play(std::vector<TimedNotes> parts, std::function<void()> done) {
    asio::post(main_, [playing = std::make_shared<Playing>(main_, guitar(), std::move(parts),
                                                           std::move(done))] { playing->next(); });
}

void DeviceAudio::release(std::function<void()> done) {
    session_->setSceneActive(false);
    guitar().suspendForBackground();
    session_->applySessionActivity(false, config::notifyOthersOnDeactivation, std::move(done));
}

} // namespace fq::audio
