// The shared preference store: opening it (every command does, and the pages are checked for
// damage each time), a poll that finds nothing (run on a timer by the main loop, so it must cost
// next to nothing), a poll that finds one change, and the reads and writes behind every setting.
#include <fq/personal/SharedStore.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using fq::personal::SharedStore;

/// A store file in a fresh temporary folder, removed afterwards.
struct TemporaryFolder {
    std::filesystem::path folder;

    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "fq-bench-XXXXXX").string();
        folder = mkdtemp(pattern.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(folder); }

    std::shared_ptr<SharedStore> open() const {
        auto store = SharedStore::open(folder / "store.sqlite");
        if (!store) {
            std::fprintf(stderr, "%s\n", store.error().message.c_str());
            std::exit(1);
        }
        return *store;
    }
};

/// A store holding `state.range(0)` remembered shape lists of about a kilobyte each.
void BM_Open(benchmark::State& state) {
    TemporaryFolder temporary;
    {
        auto store = temporary.open();
        (void)store->update([&](SharedStore::Transaction& transaction) {
            for (std::int64_t i = 0; i < state.range(0); ++i)
                (void)transaction.set("positions." + std::to_string(i),
                                      fq::core::Bytes(1000, static_cast<std::uint8_t>(i)));
        });
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(temporary.open());
}
BENCHMARK(BM_Open)->Arg(0)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_PollWithoutChanges(benchmark::State& state) {
    TemporaryFolder temporary;
    auto store = temporary.open();
    (void)store->set("tempo", std::int64_t{120});
    for (auto _ : state)
        store->pollExternalChanges();
}
BENCHMARK(BM_PollWithoutChanges)->Unit(benchmark::kMicrosecond);

void BM_PollAfterAnotherWriter(benchmark::State& state) {
    TemporaryFolder temporary;
    auto store = temporary.open();
    auto other = temporary.open();
    int heard = 0;
    auto token = store->addObserver([&heard](std::string_view) { ++heard; });
    std::int64_t tempo = 0;
    for (auto _ : state) {
        state.PauseTiming();
        (void)other->set("tempo", ++tempo);
        state.ResumeTiming();
        store->pollExternalChanges();
    }
    benchmark::DoNotOptimize(heard);
}
BENCHMARK(BM_PollAfterAnotherWriter)->Unit(benchmark::kMicrosecond);

void BM_ReadValue(benchmark::State& state) {
    TemporaryFolder temporary;
    auto store = temporary.open();
    (void)store->set("a4Frequency", 440.0);
    for (auto _ : state)
        benchmark::DoNotOptimize(store->real("a4Frequency"));
}
BENCHMARK(BM_ReadValue)->Unit(benchmark::kMicrosecond);

void BM_SetValue(benchmark::State& state) {
    TemporaryFolder temporary;
    auto store = temporary.open();
    std::int64_t tempo = 0;
    for (auto _ : state)
        (void)store->set("tempo", ++tempo);
}
BENCHMARK(BM_SetValue)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
