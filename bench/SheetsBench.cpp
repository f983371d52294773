// Sheets: saving a photographed page, and listing a folder of sheets the first time
// (every page image decoded) beside listing it again (served from the cache).

#include <fq/scanner/SheetsViewModel.h>

#include <benchmark/benchmark.h>
#include <leptonica/allheaders.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>

namespace {

using namespace fq::scanner;
namespace fs = std::filesystem;

/// A page like a phone photo of paper: a soft gradient with sensor noise, so that PNG
/// has real work to do.
Bitmap photographedPage(int width, int height, unsigned seed) {
    Pix* pix = pixCreate(width, height, 32);
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> noise(-6, 6);
    l_uint32* data = pixGetData(pix);
    const int wordsPerLine = pixGetWpl(pix);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int base = 200 + (x * 40) / width - (y * 30) / height;
            const auto channel = [&] {
                return static_cast<l_uint32>(std::clamp(base + noise(random), 0, 255));
            };
            data[y * wordsPerLine + x] = (channel() << 24) | (channel() << 16) | (channel() << 8);
        }
    return Bitmap::adopt(pix);
}

fs::path scratchFolder(const char* name) {
    const auto folder = fs::temp_directory_path() /
                        (std::string("fq-sheets-bench-") + name + "-" + std::to_string(::getpid()));
    fs::remove_all(folder);
    fs::create_directories(folder);
    return folder;
}

fq::documents::DocumentsDirectory at(const fs::path& folder) {
    return [folder]() -> tl::expected<fs::path, fq::Error> { return folder; };
}

void BM_SaveSheetOfOnePage(benchmark::State& state) {
    const auto folder = scratchFolder("save");
    const std::vector<FrtSheetDocument::Page> pages{
        {fq::core::Uuid::random(),
         photographedPage(static_cast<int>(state.range(0)),
                          static_cast<int>(state.range(0)) * 4 / 3, 1),
         {}}};
    for (auto _ : state) {
        const auto saved = saveSheet("Page", pages, at(folder));
        if (!saved) state.SkipWithError(saved.error().message.c_str());
        state.PauseTiming();
        fs::remove(*saved);
        state.ResumeTiming();
    }
    state.counters["bytes"] = static_cast<double>(pages[0].image.pngData()->size());
    fs::remove_all(folder);
}
BENCHMARK(BM_SaveSheetOfOnePage)->Arg(1500)->Unit(benchmark::kMillisecond);

/// Ten sheets of two 1200 × 1600 pages; argument 1 lists once beforehand so the timed
/// listing is served from the cache.
void BM_ListTenSheets(benchmark::State& state) {
    const auto folder = scratchFolder(state.range(0) ? "cached" : "cold");
    for (unsigned index = 0; index < 10; ++index) {
        const std::vector<FrtSheetDocument::Page> pages{
            {fq::core::Uuid::random(), photographedPage(1200, 1600, 2 * index), {}},
            {fq::core::Uuid::random(), photographedPage(1200, 1600, 2 * index + 1), {}}};
        if (!saveSheet("Sheet", pages, at(folder))) state.SkipWithError("cannot save the sheets");
    }
    SheetsViewModel warm(at(folder));
    warm.loadDocuments();
    for (auto _ : state) {
        if (state.range(0)) {
            warm.loadDocuments();
            benchmark::DoNotOptimize(warm.documentItems().size());
        } else {
            SheetsViewModel fresh(at(folder));
            fresh.loadDocuments();
            benchmark::DoNotOptimize(fresh.documentItems().size());
        }
    }
    state.counters["sheets"] = static_cast<double>(warm.documentItems().size());
    fs::remove_all(folder);
}
BENCHMARK(BM_ListTenSheets)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
