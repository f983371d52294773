// The search index: a full rebuild (target: at most 300 ms) and one query as a person
// types it (target: p99 at most 2 ms).

#include <fq/navigation/LinkHandler.h>
#include <fq/navigation/SpotlightIndexer.h>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

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

/// Each query timed on its own, as a person types it letter by letter and as whole
/// words, so that the slow tail shows: the counters give the median, p99 and worst.
void BM_QueryLatency(benchmark::State& state) {
    const auto folder = scratchFolder();
    auto index = SqliteSearchIndex::open(folder / "query.sqlite");
    auto store = fq::personal::SharedStore::open(folder / "store.sqlite");
    if (!index || !store) {
        state.SkipWithError("cannot open the scratch index");
        return;
    }
    FretquillSpotlightIndexer(**index, *store, {"bench", "en"}).reindexEverything();
    std::vector<std::string> queries;
    for (const std::string_view typed : {"F#m7", "Bb maj7", "c sharp minor", "half diminished",
                                         "jazz", "diminished", "E7#9", "major", "sus4", "open"})
        for (std::size_t length = 1; length <= typed.size(); ++length)
            if (typed[length - 1] != ' ') queries.emplace_back(typed.substr(0, length));
    std::vector<double> micros;
    for (auto _ : state) {
        for (const auto& query : queries) {
            const auto start = std::chrono::steady_clock::now();
            auto hits = (*index)->search(query, 10);
            benchmark::DoNotOptimize(hits);
            micros.push_back(
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                    .count());
        }
    }
    std::sort(micros.begin(), micros.end());
    const auto at = [&](double share) {
        return micros[std::min(micros.size() - 1, static_cast<std::size_t>(
                                                      share * static_cast<double>(micros.size())))];
    };
    state.counters["queries"] = static_cast<double>(micros.size());
    state.counters["median_us"] = at(0.5);
    state.counters["p99_us"] = at(0.99);
    state.counters["worst_us"] = micros.back();
    index->reset();
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_QueryLatency)->Unit(benchmark::kMillisecond)->Iterations(20);

/// What opening the index for a search costs on top: the person's collections are
/// refreshed, as they may have changed since the last run.
void BM_RefreshCollections(benchmark::State& state) {
    const auto folder = scratchFolder();
    auto index = SqliteSearchIndex::open(folder / "refresh.sqlite");
    auto store = fq::personal::SharedStore::open(folder / "store.sqlite");
    if (!index || !store) {
        state.SkipWithError("cannot open the scratch index");
        return;
    }
    FretquillSpotlightIndexer indexer(**index, *store, {"bench", "en"});
    indexer.reindexEverything();
    for (auto _ : state)
        indexer.reindexCollections();
    index->reset();
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_RefreshCollections)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
