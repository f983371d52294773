// The search index: a full rebuild (target: at most 300 ms) and one query as a person
// types it (target: p99 at most 2 ms; run with --benchmark_repetitions to see spread).

#include <fq/navigation/LinkHandler.h>
#include <fq/navigation/SpotlightIndexer.h>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

namespace {

using namespace fq::navigation;

std::filesystem::path scratchFolder() {
    const auto folder = std::filesystem::temp_directory_path() /
                        ("fq-navigation-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    return folder;
}

void BM_FullRebuild(benchmark::State& state) {
    const auto folder = scratchFolder();
    auto index = SqliteSearchIndex::open(folder / "rebuild.sqlite");
    auto store = fq::personal::SharedStore::open(folder / "store.sqlite");
    if (!index || !store) {
        state.SkipWithError("cannot open the scratch index");
        return;
    }
    FretquillSpotlightIndexer indexer(**index, *store, {"bench", "en"});
    for (auto _ : state)
        indexer.reindexEverything();
    state.counters["items"] = static_cast<double>((*index)->count());
    index->reset();
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_FullRebuild)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_Query(benchmark::State& state) {
    const auto folder = scratchFolder();
    auto index = SqliteSearchIndex::open(folder / "query.sqlite");
    auto store = fq::personal::SharedStore::open(folder / "store.sqlite");
    if (!index || !store) {
        state.SkipWithError("cannot open the scratch index");
        return;
    }
    FretquillSpotlightIndexer(**index, *store, {"bench", "en"}).reindexEverything();
    constexpr std::array<std::string_view, 8> queries{
        "F#m7", "Bb maj7", "c sharp minor", "half diminished", "jazz", "dimin", "E7#9", "major"};
    std::size_t next = 0;
    for (auto _ : state) {
        auto hits = (*index)->search(queries[next++ % queries.size()], 10);
        benchmark::DoNotOptimize(hits);
    }
    index->reset();
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_Query)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
