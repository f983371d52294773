// Shape generation: the whole catalogue cold for the fast generator and for the
// plain reading it must match (measured in the same run), a memo hit in the real
// preference store, and a positions call answered from memory.
#include "ChordEngineOracle.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/ChordEngine.h>
#include <fq/core/ChordPositions.h>
#include <fq/personal/SharedStore.h>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>

namespace {

using namespace fq::core;

/// Every root text × type × inversion on standard tuning, as positions ask for them.
template <typename Generate>
std::size_t wholeCatalogue(Generate generate) {
    std::size_t shapes = 0;
    for (const auto root : ChordDataManager::allRootNotes()) {
        for (const auto& data : ChordDataManager::shared().catalogue()) {
            for (std::size_t variant = 0; variant < data.notes.size(); ++variant) {
                auto intervals = data.notes;
                std::swap(intervals[0], intervals[variant]);
                shapes += generate(root, intervals).size();
            }
        }
    }
    return shapes;
}

void BM_WholeCatalogueFast(benchmark::State& state) {
    const ChordEngine engine; // no memo: every shape generated
    for (auto _ : state)
        benchmark::DoNotOptimize(
            wholeCatalogue([&](std::string_view root, const std::vector<int>& intervals) {
                return engine.chordPositions(root, intervals, -1, Tuning::standard);
            }));
}
BENCHMARK(BM_WholeCatalogueFast)->Unit(benchmark::kMillisecond)->MinTime(3);

void BM_WholeCatalogueOracle(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(
            wholeCatalogue([](std::string_view root, const std::vector<int>& intervals) {
                return oracle::chordPositions(root, intervals, -1, Tuning::standard);
            }));
}
BENCHMARK(BM_WholeCatalogueOracle)->Unit(benchmark::kMillisecond)->Iterations(1);

/// A store in a fresh temporary folder, removed afterwards.
struct TemporaryStore {
    std::filesystem::path folder;
    std::shared_ptr<fq::personal::SharedStore> store;

    TemporaryStore() {
        std::string pattern = (std::filesystem::temp_directory_path() / "fq-bench-XXXXXX").string();
        folder = mkdtemp(pattern.data());
        store = *fq::personal::SharedStore::open(folder / "store.sqlite");
    }
    ~TemporaryStore() {
        store.reset();
        std::filesystem::remove_all(folder);
    }
};

/// A memo hit: the store read and the JSON decode. Argument 0 is C major (143
/// shapes, about the catalogue's common case); 1 is C major 7th, among its longest lists.
void BM_MemoHit(benchmark::State& state) {
    TemporaryStore temporary;
    const ChordEngine engine(temporary.store.get());
    const auto intervals =
        state.range(0) == 0 ? std::vector<int>{0, 4, 7} : std::vector<int>{0, 4, 7, 11};
    const auto shapes = engine.chordPositions("C", intervals, -1, Tuning::standard).size();
    for (auto _ : state)
        benchmark::DoNotOptimize(engine.chordPositions("C", intervals, -1, Tuning::standard));
    state.counters["shapes"] = static_cast<double>(shapes);
}
BENCHMARK(BM_MemoHit)
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

void BM_PositionFromMemoryCache(benchmark::State& state) {
    PositionRequest request{
        Note::G, "major", 0, {"E", "A", "D", "G", "B", "E"}, {}, {3, -1, -1, -1, -1, -1}, true};
    resolvePosition(request);
    for (auto _ : state)
        benchmark::DoNotOptimize(resolvePosition(request));
}
BENCHMARK(BM_PositionFromMemoryCache)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
