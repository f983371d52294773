#include <fluidsynth.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

struct SettingsDeleter {
    void operator()(fluid_settings_t* s) const { delete_fluid_settings(s); }
};
struct SynthDeleter {
    void operator()(fluid_synth_t* s) const { delete_fluid_synth(s); }
};
using Settings = std::unique_ptr<fluid_settings_t, SettingsDeleter>;
using Synth = std::unique_ptr<fluid_synth_t, SynthDeleter>;

constexpr int kSampleRate = 44100;
constexpr int kChannel = 0;
constexpr int kSteelStringGuitar = 25; // General MIDI program 26, zero-based
constexpr int kLowE = 40;              // E2, the open sixth string

std::string generalMidiSoundFont() {
    for (const char* candidate :
         {"/usr/share/sounds/sf2/FluidR3_GM.sf2", "/usr/share/sounds/sf2/TimGM6mb.sf2"}) {
        if (std::filesystem::exists(candidate)) return candidate;
    }
    return {};
}

// Renders offline, no audio device needed, and gives the RMS over both channels.
double renderRms(fluid_synth_t* synth, double seconds) {
    const auto frames = static_cast<int>(seconds * kSampleRate);
    std::vector<float> left(static_cast<std::size_t>(frames));
    std::vector<float> right(left.size());
    if (fluid_synth_write_float(synth, frames, left.data(), 0, 1, right.data(), 0, 1) != FLUID_OK)
        return -1.0;
    double sum = 0.0;
    for (std::size_t i = 0; i < left.size(); ++i) {
        sum += static_cast<double>(left[i]) * left[i] + static_cast<double>(right[i]) * right[i];
    }
    return std::sqrt(sum / (2.0 * frames));
}

class FluidSynthSmoke : public ::testing::Test {
protected:
    void SetUp() override {
        settings_.reset(new_fluid_settings());
        ASSERT_NE(settings_, nullptr);
        ASSERT_EQ(fluid_settings_setnum(settings_.get(), "synth.sample-rate", kSampleRate),
                  FLUID_OK);
        synth_.reset(new_fluid_synth(settings_.get()));
        ASSERT_NE(synth_, nullptr);

        const std::string soundFont = generalMidiSoundFont();
        ASSERT_FALSE(soundFont.empty()) << "no General MIDI SoundFont installed";
        ASSERT_NE(fluid_synth_sfload(synth_.get(), soundFont.c_str(), 1), FLUID_FAILED)
            << soundFont;
        ASSERT_EQ(fluid_synth_program_change(synth_.get(), kChannel, kSteelStringGuitar), FLUID_OK);
    }

    fluid_synth_t* synth() const { return synth_.get(); }

private:
    Settings settings_; // declared first: the synth must go before its settings
    Synth synth_;
};

TEST_F(FluidSynthSmoke, ProgramChangeSelectsTheSteelStringGuitar) {
    fluid_preset_t* preset = fluid_synth_get_channel_preset(synth(), kChannel);
    ASSERT_NE(preset, nullptr);
    EXPECT_EQ(fluid_preset_get_banknum(preset), 0);
    EXPECT_EQ(fluid_preset_get_num(preset), kSteelStringGuitar);
    EXPECT_NE(std::string(fluid_preset_get_name(preset)).find("Guitar"), std::string::npos)
        << fluid_preset_get_name(preset);
}

TEST_F(FluidSynthSmoke, HeldNoteSoundsAndAllSoundOffSilences) {
    EXPECT_LT(renderRms(synth(), 0.1), 1e-6) << "output before any note";

    ASSERT_EQ(fluid_synth_noteon(synth(), kChannel, kLowE, 100), FLUID_OK);
    EXPECT_GT(renderRms(synth(), 0.5), 1e-3) << "a plucked string at velocity 100";

    ASSERT_EQ(fluid_synth_noteoff(synth(), kChannel, kLowE), FLUID_OK);
    ASSERT_EQ(fluid_synth_cc(synth(), kChannel, 120, 0), FLUID_OK); // all sound off
    renderRms(synth(), 0.05);
    EXPECT_EQ(fluid_synth_get_active_voice_count(synth()), 0) << "voices outlive all sound off";

    // Only the reverb's tail is left; after two seconds it is below -120 dBFS.
    renderRms(synth(), 2.0);
    EXPECT_LT(renderRms(synth(), 0.25), 1e-6);
}

} // namespace
