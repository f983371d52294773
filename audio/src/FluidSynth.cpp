#include "FluidSynth.h"

#include <fmt/format.h>

#include <mutex>
#include <string>

namespace fq::audio::detail {
namespace {

// FluidSynth reports to standard error by default. Its messages are kept only while
// this thread loads something, to name what went wrong; otherwise they are dropped
// (they may come from the render thread, which must not write anywhere).
thread_local std::string* capturedMessage = nullptr;

void keepMessage(int level, const char* message, void*) {
    if (capturedMessage != nullptr && message != nullptr && level <= FLUID_ERR &&
        capturedMessage->empty())
        *capturedMessage = message;
}

void routeFluidLogs() {
    static std::once_flag once;
    std::call_once(once, [] {
        for (const int level : {FLUID_PANIC, FLUID_ERR, FLUID_WARN, FLUID_INFO, FLUID_DBG})
            fluid_set_log_function(level, &keepMessage, nullptr);
    });
}

// the share of the synthesizer's full scale that one voice may use: six strings at
// full velocity stay clear of clipping with room for the rest of the mix
constexpr double synthGain = 0.4;

} // namespace

tl::expected<std::unique_ptr<FluidInstrument>, Error>
FluidInstrument::create(const SamplerInstrument& wanted, double sampleRate,
                        const Reverb::Parameters& reverb) {
    const auto& soundFont = wanted.soundFont;
    routeFluidLogs();
    std::unique_ptr<FluidInstrument> instrument(new FluidInstrument);
    instrument->settings_ = new_fluid_settings();
    if (instrument->settings_ == nullptr)
        return tl::unexpected(Error{"FluidSynth cannot create its settings"});
    auto* settings = instrument->settings_;
    fluid_settings_setnum(settings, "synth.sample-rate", sampleRate);
    fluid_settings_setnum(settings, "synth.gain", synthGain);
    fluid_settings_setint(settings, "synth.threadsafe-api", 0);
    // only the chosen preset's samples are read: a GM SoundFont holds 140 MB
    fluid_settings_setint(settings, "synth.dynamic-sample-loading", 1);
    fluid_settings_setint(settings, "synth.chorus.active", 0);
    fluid_settings_setint(settings, "synth.reverb.active", 1);
    fluid_settings_setint(settings, "synth.cpu-cores", 1);
    instrument->synth_ = new_fluid_synth(settings);
    if (instrument->synth_ == nullptr)
        return tl::unexpected(Error{"FluidSynth cannot create a synthesizer"});

    std::string message;
    capturedMessage = &message;
    const int font = fluid_synth_sfload(instrument->synth_, soundFont.c_str(), 1);
    const int selected = font == FLUID_FAILED
                             ? FLUID_FAILED
                             : fluid_synth_program_select(instrument->synth_, 0, font,
                                                          static_cast<unsigned>(wanted.bank),
                                                          static_cast<unsigned>(wanted.program));
    capturedMessage = nullptr;
    if (font == FLUID_FAILED)
        return tl::unexpected(
            Error{message.empty() ? fmt::format("cannot read {}", soundFont.string()) : message});
    if (selected == FLUID_FAILED)
        return tl::unexpected(Error{fmt::format("{} has no preset {}:{}", soundFont.string(),
                                                wanted.bank, wanted.program)});
    if (wanted.releaseOffset != 0)
        fluid_synth_set_gen(instrument->synth_, 0, GEN_VOLENVRELEASE,
                            static_cast<float>(wanted.releaseOffset));
    instrument->applyReverb(reverb);
    return instrument;
}

FluidInstrument::~FluidInstrument() {
    if (synth_ != nullptr) delete_fluid_synth(synth_);
    if (settings_ != nullptr) delete_fluid_settings(settings_);
}

void FluidInstrument::applyReverb(const Reverb::Parameters& reverb) noexcept {
    fluid_synth_set_reverb_group_roomsize(synth_, -1, reverb.roomSize);
    fluid_synth_set_reverb_group_damp(synth_, -1, reverb.damping);
    fluid_synth_set_reverb_group_width(synth_, -1, reverb.width);
    fluid_synth_set_reverb_group_level(synth_, -1, reverb.level);
}

} // namespace fq::audio::detail
