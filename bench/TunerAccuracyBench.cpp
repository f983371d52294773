// The tuner's accuracy on guitar notes, beside aubio's yinfft in the same run.
//
// Each note is rendered with FluidSynth from the General MIDI SoundFont (steel-string
// and nylon-string guitar, the program's medium hall at a low mix): 0.3 s of room
// noise, then the pluck, ringing for 2.5 s, peaking at -6 dBFS. The room noise is
// pink, 30 dB below the note's power from the pluck on. What was played is measured
// from the clean render, since the SoundFont's samples are not tuned exactly to equal
// temperament and their pitch glides down by a few cents as they ring: a harmonic fit
// of the partials (see HarmonicPitch) in 250 ms windows every 25 ms. A reading is
// compared with that pitch in the middle of the 2048-point window it came from.
//
// Both recognizers hear the same audio: ours is the whole recognizer (patch in libpd,
// receiving filter, "tell on change"); aubio's yinfft has the same window (2048) and
// hop (256), its silence threshold at the patch's gate (-54 dBFS), and every estimate
// in 10…6000 Hz counts as a reading. Per note, with `ours_` and `yin_` counters:
//   med_c, p95_c  median and 95th percentile of |error| in cents, readings from 150 ms
//                 after the pluck to the end;
//   first_ms      time from the pluck to the first stable reading: within 5 cents and
//                 every reading of the next 100 ms too (-1: never);
//   note_ms       time from the pluck to the first reading of the right note;
//   pre           readings during the 0.3 s of noise before the pluck;
//   n             readings after the pluck.
// `calib_c` is the note's pitch over 3.5 s of a clean render against equal temperament,
// `glide_c` how far its pitch moves while it rings.
// `ExactTone` rows are plucked tones with exactly harmonic partials at a known pitch.
// The signals without a note (silence, room noise, 50 Hz hum with its harmonics at two
// levels) report every reading as `ours_n` and `yin_n`.
// Targets: med_c <= 0.5 and p95_c <= 2 from A1 to E4; first_ms <= 120 at E2; no
// reading on silence or hum.

#include <fq/core/Diagnostics.h>
#include <fq/tuner/OfflinePitchTracker.h>

#include <aubio/aubio.h>
#include <benchmark/benchmark.h>
#include <fluidsynth.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Samples = std::vector<float>;

constexpr double rate = 44100.0;
constexpr double pluckAt = 0.3;
constexpr double ringSeconds = 2.5;
constexpr double settleSeconds = 0.15;
constexpr double snrDecibels = 30.0;
constexpr double stableCents = 5.0;
constexpr double stableHold = 0.1;
constexpr std::size_t window = 2048;
constexpr std::size_t hop = 256;
const fs::path soundFont = "/usr/share/sounds/sf2/FluidR3_GM.sf2";

struct Reading {
    double frequency;
    double seconds;
};

double cents(double frequency, double reference) {
    return 1200.0 * std::log2(frequency / reference);
}

double equalTempered(int note) {
    return 440.0 * std::pow(2.0, (note - 69) / 12.0);
}

/// One note alone, `lead` seconds of silence before the pluck.
Samples render(int program, int note, double lead, double seconds) {
    fluid_settings_t* settings = new_fluid_settings();
    fluid_settings_setnum(settings, "synth.sample-rate", rate);
    fluid_settings_setnum(settings, "synth.gain", 0.4);
    fluid_settings_setint(settings, "synth.chorus.active", 0);
    fluid_synth_t* synth = new_fluid_synth(settings);
    if (fluid_synth_sfload(synth, soundFont.c_str(), 1) == FLUID_FAILED) {
        std::fprintf(stderr, "Cannot load %s\n", soundFont.c_str());
        std::exit(1);
    }
    fluid_synth_program_change(synth, 0, program);
    fluid_synth_set_reverb_group_roomsize(synth, -1, 0.7);
    fluid_synth_set_reverb_group_damp(synth, -1, 0.3);
    fluid_synth_set_reverb_group_width(synth, -1, 0.9);
    fluid_synth_set_reverb_group_level(synth, -1, 0.05);
    const auto leadFrames = static_cast<int>(lead * rate);
    const auto frames = static_cast<int>(seconds * rate);
    Samples left(static_cast<std::size_t>(leadFrames + frames)), right(left.size());
    fluid_synth_write_float(synth, leadFrames, left.data(), 0, 1, right.data(), 0, 1);
    fluid_synth_noteon(synth, 0, note, 110);
    fluid_synth_write_float(synth, frames, left.data() + leadFrames, 0, 1,
                            right.data() + leadFrames, 0, 1);
    delete_fluid_synth(synth);
    delete_fluid_settings(settings);
    Samples mono(left.size());
    for (std::size_t i = 0; i < mono.size(); ++i)
        mono[i] = 0.5f * (left[i] + right[i]);
    return mono;
}

/// The pitch of a stretch of clean audio as a harmonic fit: each partial k below
/// 2 kHz (up to the eighth) is the strongest peak within 40 cents of k times `nominal`
/// in a Hann-windowed, zero-padded spectrum, refined by a parabola through the log
/// magnitudes; f0 minimises the power-weighted squared distance of the partials from
/// k·f0. The samples' partials do not sit exactly on one harmonic series, so no single
/// partial is the pitch.
class HarmonicPitch {
public:
    explicit HarmonicPitch(uint_t fftSize)
        : size_(fftSize), input_(new_fvec(fftSize)), spectrum_(new_cvec(fftSize)),
          fft_(new_aubio_fft(fftSize)) {}
    ~HarmonicPitch() {
        del_aubio_fft(fft_);
        del_cvec(spectrum_);
        del_fvec(input_);
    }
    HarmonicPitch(const HarmonicPitch&) = delete;
    HarmonicPitch& operator=(const HarmonicPitch&) = delete;

    double operator()(const Samples& clean, std::size_t from, std::size_t length, double nominal) {
        fvec_t* hann = new_aubio_window(const_cast<char*>("hanning"), static_cast<uint_t>(length));
        fvec_zeros(input_);
        for (std::size_t i = 0; i < length; ++i)
            input_->data[i] = clean[from + i] * hann->data[i];
        del_fvec(hann);
        aubio_fft_do(fft_, input_, spectrum_);
        const double binHz = rate / size_;
        struct Partial {
            int k;
            double frequency;
            double power;
        };
        std::vector<Partial> partials;
        double strongest = 0;
        for (int k = 1; k <= 8 && k * nominal < 2000; ++k) {
            const auto low = static_cast<uint_t>(k * nominal * std::pow(2.0, -40.0 / 1200) / binHz);
            const auto high =
                static_cast<uint_t>(k * nominal * std::pow(2.0, 40.0 / 1200) / binHz) + 1;
            uint_t peak = low;
            for (uint_t bin = low; bin <= high; ++bin)
                if (spectrum_->norm[bin] > spectrum_->norm[peak]) peak = bin;
            const double a = std::log(spectrum_->norm[peak - 1]);
            const double b = std::log(spectrum_->norm[peak]);
            const double c = std::log(spectrum_->norm[peak + 1]);
            const double shift = 0.5 * (a - c) / (a - 2 * b + c);
            const double power = std::pow(static_cast<double>(spectrum_->norm[peak]), 2);
            partials.push_back({k, (peak + shift) * binHz, power});
            strongest = std::max(strongest, power);
        }
        double numerator = 0, denominator = 0;
        for (const auto& partial : partials) {
            if (partial.power < strongest * 1e-4) continue; // 40 dB down: noise, not a partial
            numerator += partial.power * partial.k * partial.frequency;
            denominator += partial.power * partial.k * partial.k;
        }
        return numerator / denominator;
    }

private:
    uint_t size_;
    fvec_t* input_;
    cvec_t* spectrum_;
    aubio_fft_t* fft_;
};

/// The pitch over time of a clean render whose pluck is at `pluckAt`: 250 ms windows
/// every 25 ms, each dated at its centre.
struct PitchTrack {
    std::vector<double> seconds;
    std::vector<double> frequencies;

    /// Linear between the windows, constant beyond them.
    double at(double time) const {
        const auto after = std::upper_bound(seconds.begin(), seconds.end(), time);
        if (after == seconds.begin()) return frequencies.front();
        if (after == seconds.end()) return frequencies.back();
        const auto i = static_cast<std::size_t>(after - seconds.begin());
        const double share = (time - seconds[i - 1]) / (seconds[i] - seconds[i - 1]);
        return frequencies[i - 1] + share * (frequencies[i] - frequencies[i - 1]);
    }
};

PitchTrack pitchTrack(const Samples& clean, double nominal) {
    HarmonicPitch measure(1u << 18);
    const auto length = static_cast<std::size_t>(0.25 * rate);
    PitchTrack track;
    for (double start = pluckAt; start + 0.25 <= static_cast<double>(clean.size()) / rate;
         start += 0.025) {
        track.seconds.push_back(start + 0.125);
        track.frequencies.push_back(
            measure(clean, static_cast<std::size_t>(start * rate), length, nominal));
    }
    return track;
}

/// Pink noise (Paul Kellet's filter) at unit power, always the same for a seed.
Samples pinkNoise(std::size_t frames, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> white(0.0, 1.0);
    Samples noise(frames);
    double b0 = 0, b1 = 0, b2 = 0, b3 = 0, b4 = 0, b5 = 0, b6 = 0;
    double power = 0;
    for (auto& sample : noise) {
        const double w = white(random);
        b0 = 0.99886 * b0 + w * 0.0555179;
        b1 = 0.99332 * b1 + w * 0.0750759;
        b2 = 0.96900 * b2 + w * 0.1538520;
        b3 = 0.86650 * b3 + w * 0.3104856;
        b4 = 0.55000 * b4 + w * 0.5329522;
        b5 = -0.7616 * b5 - w * 0.0168980;
        const double value = b0 + b1 + b2 + b3 + b4 + b5 + b6 + w * 0.5362;
        b6 = w * 0.115926;
        sample = static_cast<float>(value);
        power += value * value;
    }
    const auto scale = static_cast<float>(1.0 / std::sqrt(power / static_cast<double>(frames)));
    for (auto& sample : noise)
        sample *= scale;
    return noise;
}

double power(const Samples& samples, std::size_t from) {
    double sum = 0;
    for (std::size_t i = from; i < samples.size(); ++i)
        sum += static_cast<double>(samples[i]) * samples[i];
    return sum / static_cast<double>(samples.size() - from);
}

struct Note {
    Samples noisy;
    PitchTrack truth;   ///< what was played, at each moment
    double overall = 0; ///< the long render's pitch
};

/// Rendered once per instrument and note.
const Note& note(int program, int number) {
    static std::map<std::pair<int, int>, Note> made;
    const auto key = std::pair(program, number);
    if (const auto found = made.find(key); found != made.end()) return found->second;
    Note result;
    result.noisy = render(program, number, pluckAt, ringSeconds);
    result.truth = pitchTrack(result.noisy, equalTempered(number));
    const auto clean = render(program, number, 0.0, 4.0);
    HarmonicPitch measure(1u << 20);
    result.overall = measure(clean, static_cast<std::size_t>(0.2 * rate),
                             static_cast<std::size_t>(3.5 * rate), equalTempered(number));
    // a guitar close to the microphone: peaks at -6 dBFS
    float peak = 0;
    for (const float sample : result.noisy)
        peak = std::max(peak, std::abs(sample));
    for (auto& sample : result.noisy)
        sample *= 0.5f / peak;
    const auto pluck = static_cast<std::size_t>(pluckAt * rate);
    const double noiseLevel =
        std::sqrt(power(result.noisy, pluck) / std::pow(10.0, snrDecibels / 10));
    const auto noise =
        pinkNoise(result.noisy.size(), static_cast<unsigned>(program * 128 + number));
    for (std::size_t i = 0; i < result.noisy.size(); ++i)
        result.noisy[i] += static_cast<float>(noiseLevel) * noise[i];
    return made.emplace(key, std::move(result)).first->second;
}

/// Where the recognizer writes its patch files; removed at the end.
fs::path g_cache;

std::vector<Reading> ours(const Samples& audio) {
    asio::io_context main;
    fq::tuner::OfflinePitchTracker tracker(main, rate, g_cache);
    std::vector<Reading> readings;
    if (!tracker.start([&](double f, double t) { readings.push_back({f, t}); })) {
        std::fprintf(stderr, "The pitch patch did not open\n");
        std::exit(1);
    }
    tracker.feed(audio);
    tracker.finish();
    return readings;
}

std::vector<Reading> yinfft(const Samples& audio) {
    aubio_pitch_t* pitch = new_aubio_pitch("yinfft", window, hop, static_cast<uint_t>(rate));
    aubio_pitch_set_unit(pitch, "Hz");
    aubio_pitch_set_silence(pitch, -54.0f);
    fvec_t* in = new_fvec(hop);
    fvec_t* out = new_fvec(1);
    std::vector<Reading> readings;
    for (std::size_t start = 0; start + hop <= audio.size(); start += hop) {
        std::copy_n(audio.begin() + static_cast<long>(start), hop, in->data);
        aubio_pitch_do(pitch, in, out);
        const double f = out->data[0];
        if (f >= 10 && f <= 6000) readings.push_back({f, static_cast<double>(start + hop) / rate});
    }
    del_fvec(out);
    del_fvec(in);
    del_aubio_pitch(pitch);
    return readings;
}

double percentile(std::vector<double> values, double share) {
    if (values.empty()) return -1;
    std::sort(values.begin(), values.end());
    const auto index =
        static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size()))) - 1;
    return values[std::min(index, values.size() - 1)];
}

/// A reading's error against what sounded in the middle of the window it came from.
double error(const Reading& reading, const PitchTrack& truth) {
    return cents(reading.frequency, truth.at(reading.seconds - 0.5 * window / rate));
}

double firstStableMs(const std::vector<Reading>& readings, const PitchTrack& truth) {
    for (std::size_t i = 0; i < readings.size(); ++i) {
        if (readings[i].seconds < pluckAt || std::abs(error(readings[i], truth)) > stableCents)
            continue;
        bool held = true;
        for (std::size_t j = i + 1;
             j < readings.size() && readings[j].seconds <= readings[i].seconds + stableHold; ++j)
            held = held && std::abs(error(readings[j], truth)) <= stableCents;
        if (held) return (readings[i].seconds - pluckAt) * 1000.0;
    }
    return -1;
}

void report(benchmark::State& state, const std::string& prefix,
            const std::vector<Reading>& readings, const PitchTrack& truth) {
    std::vector<double> errors;
    int before = 0, after = 0;
    for (const auto& reading : readings) {
        if (reading.seconds < pluckAt) {
            ++before;
            continue;
        }
        ++after;
        if (reading.seconds >= pluckAt + settleSeconds)
            errors.push_back(std::abs(error(reading, truth)));
    }
    state.counters[prefix + "med_c"] = percentile(errors, 0.5);
    state.counters[prefix + "p95_c"] = percentile(errors, 0.95);
    state.counters[prefix + "first_ms"] = firstStableMs(readings, truth);
    const auto named = std::find_if(readings.begin(), readings.end(), [&](const Reading& reading) {
        return reading.seconds >= pluckAt && std::abs(error(reading, truth)) < 50;
    });
    state.counters[prefix + "note_ms"] =
        named == readings.end() ? -1 : (named->seconds - pluckAt) * 1000.0;
    state.counters[prefix + "pre"] = before;
    state.counters[prefix + "n"] = after;
}

void BM_Note(benchmark::State& state, int program, int number) {
    const auto& rendered = note(program, number);
    std::vector<Reading> readings;
    for (auto _ : state)
        readings = ours(rendered.noisy);
    report(state, "ours_", readings, rendered.truth);
    report(state, "yin_", yinfft(rendered.noisy), rendered.truth);
    state.counters["calib_c"] = cents(rendered.overall, equalTempered(number));
    // how far the pitch glides while the note rings
    const auto [low, high] =
        std::minmax_element(rendered.truth.frequencies.begin(), rendered.truth.frequencies.end());
    state.counters["glide_c"] = cents(*high, *low);
}

/// A plucked tone with exactly harmonic partials at a known pitch, in the same room:
/// what the recognizer makes of a pitch that is not in doubt.
void BM_ExactTone(benchmark::State& state, int number) {
    const double f0 = equalTempered(number);
    Samples audio(static_cast<std::size_t>((pluckAt + ringSeconds) * rate), 0.0f);
    const auto pluck = static_cast<std::size_t>(pluckAt * rate);
    for (std::size_t i = pluck; i < audio.size(); ++i) {
        const double t = static_cast<double>(i - pluck) / rate;
        double value = 0;
        for (int k = 1; k <= 10; ++k)
            value +=
                std::exp(-t * (1.0 + 0.4 * k)) / k * std::sin(2 * std::numbers::pi * k * f0 * t);
        audio[i] = static_cast<float>(0.3 * value);
    }
    const double noiseLevel = std::sqrt(power(audio, pluck) / std::pow(10.0, snrDecibels / 10));
    const auto noise = pinkNoise(audio.size(), static_cast<unsigned>(number));
    for (std::size_t i = 0; i < audio.size(); ++i)
        audio[i] += static_cast<float>(noiseLevel) * noise[i];
    const PitchTrack truth{{0.0}, {f0}};
    std::vector<Reading> readings;
    for (auto _ : state)
        readings = ours(audio);
    report(state, "ours_", readings, truth);
    report(state, "yin_", yinfft(audio), truth);
}

Samples hum(double level) {
    // mains hum: 50 Hz with its odd harmonics, as a transformer's field induces it
    Samples samples(static_cast<std::size_t>((pluckAt + ringSeconds) * rate));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        double value = 0;
        for (const auto& [harmonic, weight] : {std::pair{1, 1.0}, {3, 0.3}, {5, 0.1}})
            value += weight * std::sin(2 * std::numbers::pi * 50.0 * harmonic * t);
        samples[i] = static_cast<float>(level * value);
    }
    return samples;
}

void BM_NoNote(benchmark::State& state, const Samples& audio) {
    std::vector<Reading> readings;
    for (auto _ : state)
        readings = ours(audio);
    state.counters["ours_n"] = static_cast<double>(readings.size());
    state.counters["yin_n"] = static_cast<double>(yinfft(audio).size());
    if (!readings.empty()) state.counters["ours_first_Hz"] = readings.front().frequency;
}

} // namespace

int main(int argc, char** argv) {
    // the recognizer's console lines would break the table
    fq::setDiagnosticSink([](std::string_view) {});
    std::string pattern = (fs::temp_directory_path() / "fq-tuner-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) return 1;
    g_cache = pattern;
    struct Instrument {
        const char* name;
        int program;
    };
    struct Named {
        const char* name;
        int number;
    };
    const Named notes[] = {{"G1", 31}, {"A1", 33}, {"B1", 35}, {"C2", 36}, {"D2", 38}, {"E2", 40},
                           {"A2", 45}, {"D3", 50}, {"G3", 55}, {"B3", 59}, {"E4", 64}};
    for (const auto instrument : {Instrument{"steel", 25}, Instrument{"nylon", 24}})
        for (const auto& n : notes)
            benchmark::RegisterBenchmark(
                (std::string("Note/") + instrument.name + "/" + n.name).c_str(),
                [program = instrument.program, number = n.number](benchmark::State& state) {
                    BM_Note(state, program, number);
                })
                ->Iterations(1)
                ->Unit(benchmark::kMillisecond);

    for (const auto& n : {Named{"A1", 33}, Named{"E2", 40}, Named{"E4", 64}})
        benchmark::RegisterBenchmark(
            (std::string("ExactTone/") + n.name).c_str(),
            [number = n.number](benchmark::State& state) { BM_ExactTone(state, number); })
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);

    const auto frames = static_cast<std::size_t>((pluckAt + ringSeconds) * rate);
    static const Samples silence(frames, 0.0f);
    static const Samples roomNoise = [&] {
        // the noise of a mid-level note above: -6 dBFS peaks, 30 dB below its power
        auto noise = pinkNoise(frames, 7);
        const double level =
            std::sqrt(power(note(25, 45).noisy, static_cast<std::size_t>(pluckAt * rate))) /
            std::pow(10.0, snrDecibels / 20);
        for (auto& sample : noise)
            sample *= static_cast<float>(level);
        return noise;
    }();
    static const Samples quietHum = hum(std::pow(10.0, -60.0 / 20));
    static const Samples loudHum = hum(std::pow(10.0, -40.0 / 20));
    const std::pair<const char*, const Samples*> alone[] = {{"NoNote/silence", &silence},
                                                            {"NoNote/roomNoise", &roomNoise},
                                                            {"NoNote/hum-60dBFS", &quietHum},
                                                            {"NoNote/hum-40dBFS", &loudHum}};
    for (const auto& [name, audio] : alone)
        benchmark::RegisterBenchmark(
            name, [audio = audio](benchmark::State& state) { BM_NoNote(state, *audio); })
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    fs::remove_all(g_cache, ignored);
    return 0;
}
