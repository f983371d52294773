// The cost of the metronome's render step. Target: at least 2000 times real time on
// one core at 44.1 kHz, with the recorded clicks and with the synth, side by side.
// The "xRealTime" counter is seconds of audio rendered per second. Arguments: the
// sound (0 recorded clicks, 1 sine, 3 square), then the tempo; the fast case clicks
// eight times a beat at 240, so that a click is nearly always sounding.

#include <fq/audio/SharedAudioEngine.h>
#include <fq/audio/Timeline.h>
#include <fq/metronome/MetronomeAudioUnit.h>

#include <benchmark/benchmark.h>

#include <vector>

namespace {

using namespace fq;

constexpr int blockFrames = 256;
constexpr double sampleRate = 44100.0;

std::unique_ptr<metronome::MetronomeAudioUnit> startedUnit(const benchmark::State& state) {
    auto unit = std::move(*metronome::MetronomeAudioUnit::create());
    unit->soundParameter.setValue(static_cast<float>(state.range(0)));
    unit->bpmParameter.setValue(static_cast<float>(state.range(1)));
    unit->subdivisionParameter.setValue(state.range(1) >= 240 ? 8.0f : 1.0f);
    unit->fadeMsParameter.setValue(5);
    unit->resetRenderState();
    unit->setShouldTriggerImmediately(true);
    unit->setIsProcessing(true);
    return unit;
}

void setCounters(benchmark::State& state) {
    state.counters["xRealTime"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * blockFrames / sampleRate,
                           benchmark::Counter::kIsRate);
    state.SetLabel(state.range(0) == 0 ? "recorded" : state.range(0) == 1 ? "sine" : "square");
}

/// The render step alone, on plain float buffers.
void BM_RenderStep(benchmark::State& state) {
    const auto unit = startedUnit(state);
    std::vector<float> left(blockFrames), right(blockFrames);
    for (auto _ : state) {
        unit->renderBlock(blockFrames, left.data(), right.data());
        benchmark::DoNotOptimize(left.data());
        benchmark::DoNotOptimize(right.data());
    }
    setCounters(state);
}
BENCHMARK(BM_RenderStep)->ArgsProduct({{0, 1, 3}, {120, 240}});

/// The same through the shared engine's mix, as the device and file export run it.
void BM_RenderThroughTheEngine(benchmark::State& state) {
    audio::ManualTimeline timeline;
    audio::SharedAudioEngine engine{timeline};
    engine.enableManualRenderingMode();
    const auto unit = startedUnit(state);
    engine.attach(*unit);
    (void)engine.start();
    std::vector<float> left(blockFrames), right(blockFrames);
    for (auto _ : state) {
        engine.renderOffline(left, right, timeline.now());
        benchmark::DoNotOptimize(left.data());
    }
    setCounters(state);
    engine.detach(*unit);
}
BENCHMARK(BM_RenderThroughTheEngine)->ArgsProduct({{0, 1}, {120, 240}});

} // namespace

BENCHMARK_MAIN();
