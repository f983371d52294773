// The cost of the audio engine's render path. Targets: one block of 256 frames
// with a six-note strum sounding takes at most 5% of the block's 5.8 ms on one
// core; offline rendering runs many times faster than real time.
// The "xRealTime" counter is seconds of audio rendered per second.

#include <fq/audio/GuitarAudioEngine.h>
#include <fq/audio/OfflineRender.h>
#include <fq/audio/Sampler.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

namespace {

using namespace fq::audio;

constexpr int blockFrames = 256;
constexpr double sampleRate = 44100.0;
const std::vector<int> cMajor{48, 55, 60, 64, 67, 72};

void BM_BlockWithAStrumSounding(benchmark::State& state) {
    ManualTimeline timeline;
    SharedAudioEngine engine{timeline};
    engine.enableManualRenderingMode();
    Sampler sampler;
    sampler.setReverb([] {
        Reverb reverb;
        reverb.loadFactoryPreset(config::guitarReverbPreset);
        reverb.setWetDryMix(config::guitarReverbWetDryMix);
        return reverb;
    }());
    const SamplerInstrument guitar{std::string(config::guitarSoundFonts[0]), config::guitarBank,
                                   config::guitarProgram, config::guitarReleaseOffset};
    if (!sampler.loadInstrument(guitar)) {
        state.SkipWithError("no SoundFont");
        return;
    }
    engine.attach(sampler);
    (void)engine.start();
    std::vector<float> left(blockFrames), right(blockFrames);
    const auto block = std::chrono::duration_cast<TimelineTime>(
        std::chrono::duration<double>(blockFrames / sampleRate));
    TimelineTime now{};
    long blocks = 0;
    for (auto _ : state) {
        // strike the chord again every half second so that six voices always ring
        if (blocks++ % 86 == 0)
            for (const int note : cMajor)
                sampler.startNote(note, config::noteVelocity, config::noteChannel, now);
        engine.renderOffline(left, right, now);
        benchmark::DoNotOptimize(left.data());
        now += block;
    }
    state.counters["xRealTime"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * blockFrames / sampleRate,
                           benchmark::Counter::kIsRate);
    engine.detach(sampler);
}
BENCHMARK(BM_BlockWithAStrumSounding)->Unit(benchmark::kMicrosecond);

void BM_OfflineRenderOfAStrum(benchmark::State& state) {
    ManualTimeline timeline;
    SharedAudioEngine engine{timeline};
    engine.enableManualRenderingMode();
    const auto guitar = GuitarAudioEngine::create(engine);
    const auto frames = static_cast<std::int64_t>(3 * sampleRate);
    for (auto _ : state) {
        guitar->playChord(cMajor);
        const auto audio = renderOffline(engine, timeline, frames);
        benchmark::DoNotOptimize(audio.left.data());
    }
    state.counters["xRealTime"] = benchmark::Counter(static_cast<double>(state.iterations()) * 3.0,
                                                     benchmark::Counter::kIsRate);
}
BENCHMARK(BM_OfflineRenderOfAStrum)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
