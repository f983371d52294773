// The chord catalogue's cold start (every alias of 17 roots × 49 types and their
// inversions) and the lookups that follow it on every typed chord name.
#include <fq/core/ChordDataManager.h>

#include <benchmark/benchmark.h>

#include <array>
#include <string_view>

namespace {

using fq::core::ChordDataManager;

void BM_BuildChordDataManager(benchmark::State& state) {
    for (auto _ : state) {
        ChordDataManager manager;
        benchmark::DoNotOptimize(manager.aliasCount());
    }
}
BENCHMARK(BM_BuildChordDataManager)->Unit(benchmark::kMillisecond);

void BM_DictionaryLookup(benchmark::State& state) {
    const auto& manager = ChordDataManager::shared();
    constexpr std::array<std::string_view, 8> aliases{"C",   "Bb7",      "C♯minor 7th", "Am7",
                                                      "G/B", "Ebmaj7/D", "F#m7♭5",      "Dsus4"};
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(manager.chord(aliases[next++ % aliases.size()]));
    }
}
BENCHMARK(BM_DictionaryLookup);

void BM_ChordsMatchingNotes(benchmark::State& state) {
    const auto& manager = ChordDataManager::shared();
    for (auto _ : state)
        benchmark::DoNotOptimize(manager.chordsMatching("E, G, C, B♭"));
}
BENCHMARK(BM_ChordsMatchingNotes)->Unit(benchmark::kMicrosecond);

void BM_SimilarChords(benchmark::State& state) {
    const auto& manager = ChordDataManager::shared();
    for (auto _ : state)
        benchmark::DoNotOptimize(manager.similarChords("C, E, B"));
}
BENCHMARK(BM_SimilarChords)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
