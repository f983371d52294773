#include "AudioTestSupport.h"

#include <fq/core/Diagnostics.h>

#include <fluidsynth.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <mutex>
#include <utility>

namespace fq::audio::testing {

double rms(std::span<const float> samples) {
    if (samples.empty()) return 0;
    double sum = 0;
    for (const float sample : samples)
        sum += static_cast<double>(sample) * sample;
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

std::vector<float> isolatedGuitarNote(int note, double sampleRate, double seconds) {
    static std::mutex mutex;
    static std::map<std::pair<int, double>, std::vector<float>> made;
    const std::lock_guard lock(mutex);
    if (const auto found = made.find({note, sampleRate}); found != made.end()) return found->second;

    fluid_settings_t* settings = new_fluid_settings();
    fluid_settings_setnum(settings, "synth.sample-rate", sampleRate);
    fluid_settings_setnum(settings, "synth.gain", 0.4);
    fluid_settings_setint(settings, "synth.chorus.active", 0);
    fluid_settings_setint(settings, "synth.dynamic-sample-loading", 1);
    fluid_synth_t* synth = new_fluid_synth(settings);
    fluid_synth_sfload(synth, "/usr/share/sounds/sf2/FluidR3_GM.sf2", 1);
    fluid_synth_program_change(synth, 0, 25);
    // the program's room: a medium hall at a low mix
    fluid_synth_set_reverb_group_roomsize(synth, -1, 0.7);
    fluid_synth_set_reverb_group_damp(synth, -1, 0.3);
    fluid_synth_set_reverb_group_width(synth, -1, 0.9);
    fluid_synth_set_reverb_group_level(synth, -1, 0.05);
    fluid_synth_noteon(synth, 0, note, 127);
    const auto frames = static_cast<int>(seconds * sampleRate);
    std::vector<float> left(static_cast<std::size_t>(frames)), right(left.size());
    fluid_synth_write_float(synth, frames, left.data(), 0, 1, right.data(), 0, 1);
    delete_fluid_synth(synth);
    delete_fluid_settings(settings);
    auto sound = mono(left, right);
    made[{note, sampleRate}] = sound;
    return sound;
}

std::vector<float> mono(std::span<const float> left, std::span<const float> right) {
    std::vector<float> mixed(std::min(left.size(), right.size()));
    for (std::size_t i = 0; i < mixed.size(); ++i)
        mixed[i] = 0.5f * (left[i] + right[i]);
    return mixed;
}

std::vector<double> noteOnsets(std::span<const float> audio, std::span<const int> notes,
                               double sampleRate, long minimumGap, double searchSpan) {
    std::vector<double> residual(audio.begin(), audio.end());
    const auto size = static_cast<long>(residual.size());
    const auto frames = [sampleRate](double seconds) {
        return static_cast<long>(seconds * sampleRate);
    };
    std::vector<double> onsets;
    long from = 0;
    for (const int note : notes) {
        const auto sound = isolatedGuitarNote(note, sampleRate, 1.0);
        const auto length = static_cast<long>(sound.size());
        float peak = 0;
        for (const float sample : sound)
            peak = std::max(peak, std::abs(sample));

        // The first note is where the residual first rises to a fifth of the note's
        // peak (there is silence before it); each later one lies within the span
        // after the previous. Within that, the note is where its first 20 ms match best.
        const long window = frames(0.020);
        long searchFrom = from;
        long searchTo = from + frames(searchSpan);
        if (onsets.empty()) {
            long rough = -1;
            for (long i = from; i < size && rough < 0; ++i)
                if (std::abs(residual[static_cast<std::size_t>(i)]) > 0.2 * peak) rough = i;
            if (rough < 0) break;
            searchFrom = std::max(from, rough - frames(0.010));
            searchTo = rough + frames(0.002);
        }
        searchTo = std::min(searchTo, size - window); // whole windows only
        if (searchTo < searchFrom) break;
        long best = searchFrom;
        double bestScore = -2;
        for (long start = searchFrom; start <= searchTo; ++start) {
            double dot = 0, energy = 0, own = 0;
            for (long k = 0; k < window; ++k) {
                const double value = residual[static_cast<std::size_t>(start + k)];
                const double expected = sound[static_cast<std::size_t>(k)];
                dot += value * expected;
                energy += value * value;
                own += expected * expected;
            }
            const double score = energy > 0 && own > 0 ? dot / std::sqrt(energy * own) : -1;
            if (score > bestScore) {
                bestScore = score;
                best = start;
            }
        }
        onsets.push_back(static_cast<double>(best));

        // take the note away, at the level it sounds here (measured before the next
        // note can have begun)
        double dot = 0, own = 0;
        for (long k = 0; k < window && best + k < size; ++k) {
            dot +=
                residual[static_cast<std::size_t>(best + k)] * sound[static_cast<std::size_t>(k)];
            own += static_cast<double>(sound[static_cast<std::size_t>(k)]) *
                   sound[static_cast<std::size_t>(k)];
        }
        const double gain = own > 0 ? dot / own : 0;
        for (long k = 0; k < length && best + k < size; ++k)
            residual[static_cast<std::size_t>(best + k)] -=
                gain * sound[static_cast<std::size_t>(k)];
        from = best + minimumGap;
    }
    return onsets;
}

} // namespace fq::audio::testing
