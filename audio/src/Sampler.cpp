#include "fq/audio/Sampler.h"

#include "FluidSynth.h"
#include "fq/audio/SharedAudioEngine.h"

#include <algorithm>
#include <memory>

namespace fq::audio {
namespace {

struct RoomShape {
    double roomSize;
    double damping;
    double width;
};

// Rooms in the spirit of the platform's presets, in preset order: small rooms are
// short and damped, halls long and open, a plate bright.
constexpr std::array<RoomShape, 13> rooms{{
    {0.20, 0.60, 0.5},  // smallRoom
    {0.40, 0.50, 0.7},  // mediumRoom
    {0.60, 0.45, 0.8},  // largeRoom
    {0.70, 0.30, 0.9},  // mediumHall
    {0.85, 0.25, 1.0},  // largeHall
    {0.50, 0.10, 1.0},  // plate
    {0.55, 0.40, 0.8},  // mediumChamber
    {0.70, 0.35, 0.9},  // largeChamber
    {0.95, 0.20, 1.0},  // cathedral
    {0.65, 0.40, 0.8},  // largeRoom2
    {0.72, 0.30, 0.9},  // mediumHall2
    {0.75, 0.30, 0.95}, // mediumHall3
    {0.90, 0.25, 1.0},  // largeHall2
}};

std::uint8_t midiByte(int value) {
    return static_cast<std::uint8_t>(std::clamp(value, 0, 127));
}

} // namespace

void Reverb::setWetDryMix(float percent) {
    wetDryMix_ = std::clamp(percent, 0.0f, 100.0f);
}

Reverb::Parameters Reverb::parameters() const {
    const auto& room = rooms[static_cast<std::size_t>(preset_)];
    return {room.roomSize, room.damping, room.width, wetDryMix_ / 100.0};
}

Sampler::Sampler() = default;

Sampler::~Sampler() {
    // detached: nothing renders any more, so everything is this thread's to free
    while (auto event = events_.pop())
        delete event->instrument;
    freeRetired();
    delete instrument_;
}

tl::expected<void, Error> Sampler::loadInstrument(const SamplerInstrument& wanted) {
    double rate = 0;
    Reverb::Parameters reverb;
    {
        const std::lock_guard lock(writerMutex_);
        rate = sampleRate_;
        reverb = reverb_;
    }
    freeRetired();
    if (inFlight_.load() >= static_cast<int>(decltype(retired_)::capacity) - 1)
        return tl::unexpected(Error{"the sampler has not rendered the instruments already loaded"});
    auto instrument = detail::FluidInstrument::create(wanted, rate, reverb);
    if (!instrument) return tl::unexpected(instrument.error());
    const std::lock_guard lock(writerMutex_);
    Event event;
    event.kind = Kind::instrument;
    event.at = TimelineTime::min();
    event.instrument = instrument->get();
    if (!events_.push(event)) return tl::unexpected(Error{"the sampler's queue is full"});
    (void)instrument->release();
    ++inFlight_;
    loaded_ = wanted;
    return {};
}

bool Sampler::hasInstrument() const {
    const std::lock_guard lock(writerMutex_);
    return loaded_.has_value();
}

void Sampler::setReverb(const Reverb& reverb) {
    Event event;
    event.kind = Kind::reverb;
    event.at = TimelineTime::min();
    event.reverb = reverb.parameters();
    const std::lock_guard lock(writerMutex_);
    reverb_ = event.reverb;
    if (!events_.push(event)) ++dropped_;
}

TimelineTime Sampler::stampNow() const {
    // unattached, nothing keeps time: the event sounds with the first block rendered
    const auto* attached = engine();
    return attached != nullptr ? attached->timeline().now() : TimelineTime::min();
}

void Sampler::startNote(int note, int velocity, int channel, std::optional<TimelineTime> at) {
    Event event;
    event.kind = Kind::noteOn;
    event.channel = static_cast<std::uint8_t>(std::clamp(channel, 0, 15));
    event.data1 = midiByte(note);
    event.data2 = midiByte(velocity);
    event.at = at.value_or(stampNow());
    send(event);
}

void Sampler::sendController(int controller, int value, int channel) {
    Event event;
    event.kind = Kind::controller;
    event.channel = static_cast<std::uint8_t>(std::clamp(channel, 0, 15));
    event.data1 = midiByte(controller);
    event.data2 = midiByte(value);
    event.at = stampNow();
    send(event);
}

void Sampler::reset() {
    Event event;
    event.kind = Kind::reset;
    event.at = TimelineTime::min();
    send(event);
}

void Sampler::send(const Event& event) {
    const std::lock_guard lock(writerMutex_);
    if (!events_.push(event)) ++dropped_;
}

std::uint64_t Sampler::droppedEvents() const {
    return dropped_.load();
}

void Sampler::freeRetired() {
    while (auto retired = retired_.pop()) {
        delete *retired;
        --inFlight_;
    }
}

void Sampler::prepare(double sampleRate, int /*maximumFrames*/) {
    std::optional<SamplerInstrument> instrument;
    {
        const std::lock_guard lock(writerMutex_);
        if (sampleRate == sampleRate_) return;
        sampleRate_ = sampleRate;
        instrument = loaded_;
    }
    // FluidSynth's rate is fixed at creation: build the instrument again at the new one
    if (instrument) (void)loadInstrument(*instrument);
}

void Sampler::render(const BlockTiming& timing, float* left, float* right) noexcept {
    while (auto event = events_.pop()) {
        switch (event->kind) {
        case Kind::instrument:
            // the old one goes back to be freed off this thread; loads keep the
            // number in flight below the return queue's size, so the push succeeds
            if (instrument_ != nullptr) retired_.push(instrument_);
            instrument_ = event->instrument;
            break;
        case Kind::reverb:
            if (instrument_ != nullptr) instrument_->applyReverb(event->reverb);
            break;
        case Kind::reset:
            scheduledCount_ = 0;
            if (instrument_ != nullptr) {
                fluid_synth_all_sounds_off(instrument_->synth(), -1);
                // FluidSynth works in blocks of 64 frames and may hold the rest of
                // one made before the reset: let it out here, not in the output
                discard_.fill(0.0f);
                float* out[2] = {discard_.data(), discard_.data()};
                fluid_synth_process(instrument_->synth(), static_cast<int>(discard_.size()), 2, out,
                                    2, out);
            }
            break;
        case Kind::noteOn:
        case Kind::controller: {
            if (scheduledCount_ == scheduled_.size()) {
                play(*event);
                break;
            }
            // after everything stamped the same, so that equal stamps keep their order
            const auto end = scheduled_.begin() + static_cast<std::ptrdiff_t>(scheduledCount_);
            const auto at = std::upper_bound(
                scheduled_.begin(), end, event->at,
                [](TimelineTime stamp, const Event& other) { return stamp < other.at; });
            std::move_backward(at, end, end + 1);
            *at = *event;
            ++scheduledCount_;
            break;
        }
        }
    }

    int position = 0;
    const FrameTime end = timing.firstFrame + timing.frames;
    std::size_t done = 0;
    for (; done < scheduledCount_; ++done) {
        const FrameTime frame = timing.frameFor(scheduled_[done].at);
        if (frame >= end) break;
        const int offset = static_cast<int>(frame - timing.firstFrame);
        synthesize(left, right, position, offset);
        position = std::max(position, offset);
        play(scheduled_[done]);
    }
    if (done > 0) {
        std::move(scheduled_.begin() + static_cast<std::ptrdiff_t>(done),
                  scheduled_.begin() + static_cast<std::ptrdiff_t>(scheduledCount_),
                  scheduled_.begin());
        scheduledCount_ -= done;
    }
    synthesize(left, right, position, timing.frames);
}

void Sampler::play(const Event& event) noexcept {
    if (instrument_ == nullptr) return;
    auto* synth = instrument_->synth();
    if (event.kind == Kind::noteOn)
        fluid_synth_noteon(synth, event.channel, event.data1, event.data2);
    else
        fluid_synth_cc(synth, event.channel, event.data1, event.data2);
}

void Sampler::synthesize(float* left, float* right, int from, int to) noexcept {
    if (instrument_ == nullptr || to <= from) return;
    // the reverb's output goes to the same two buffers as the dry sound
    float* out[2] = {left + from, right + from};
    float* effects[2] = {left + from, right + from};
    fluid_synth_process(instrument_->synth(), to - from, 2, effects, 2, out);
}

} // namespace fq::audio
