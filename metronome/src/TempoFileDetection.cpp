// A recording fed through the tempo detector's own tap, on a clock of its own.

#include "fq/metronome/TempoFileDetection.h"

#include "fq/metronome/MetronomeTempoDetector.h"

#include <asio/io_context.hpp>

#include <algorithm>
#include <chrono>
#include <thread>

namespace fq::metronome {

tl::expected<void, Error> detectTempoInFile(const std::filesystem::path& file,
                                            const TempoFileOptions& options,
                                            const ListeningCallbacks::StateCallback& onState,
                                            const ListeningCallbacks::LevelsCallback& onLevels,
                                            const std::function<bool()>& shouldStop) {
    const auto audio = readTempoAudioFile(file);
    if (!audio) return tl::unexpected(audio.error());
    asio::io_context main;
    ManualTempoScheduler scheduler;
    OpenTempoCapture session;
    TempoBufferInput input(audio->sampleRate);
    AubioBeatTracker tracker;
    const auto detector = MetronomeTempoDetector::create(
        {main.get_executor(), main.get_executor(), scheduler, session, input, tracker});
    const auto runMain = [&] {
        main.restart();
        main.poll();
    };
    const auto stopping = [&] { return shouldStop && shouldStop(); };
    detector->start(
        onState, [](int) {}, onLevels);
    runMain();

    const auto begin = std::chrono::steady_clock::now();
    const auto clock = [&](std::size_t frames) {
        const double seconds = static_cast<double>(frames) / audio->sampleRate;
        if (options.realTime)
            std::this_thread::sleep_until(
                begin + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                            std::chrono::duration<double>(seconds)));
        scheduler.advanceTo(std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::duration<double>(seconds)));
        runMain();
    };
    constexpr std::size_t chunk = 1024;
    auto frames = audio->samples.size();
    if (options.duration > 0)
        frames = std::min(frames, static_cast<std::size_t>(options.duration * audio->sampleRate));
    std::size_t done = 0;
    for (; done < frames && !stopping(); done += chunk) {
        const auto count = std::min(chunk, frames - done);
        input.feed(std::span(audio->samples).subspan(done, count));
        clock(done + count);
    }
    // the pass that follows the end of the file still has its window to analyse
    const auto end = done;
    const auto passFrames = static_cast<std::size_t>(
        (std::chrono::duration<double>(config::analysisPeriod).count() + 0.05) * audio->sampleRate);
    for (std::size_t extra = 0; !stopping() && extra < passFrames && detector->isListening();
         extra += chunk)
        clock(end + extra + chunk);
    detector->stop();
    runMain();
    return {};
}

} // namespace fq::metronome
