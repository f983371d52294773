#include "TempoCommands.h"

#include "CommandSupport.h"

#include <fq/audio/AudioSessionManager.h>
#include <fq/audio/SerialQueue.h>
#include <fq/metronome/MetronomeTempoDetector.h>

#include <asio/io_context.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <memory>
#include <thread>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;
using namespace std::chrono_literals;
using metronome::ListeningState;
using metronome::MetronomeTempoDetector;

volatile std::sig_atomic_t g_tempoInterrupted = 0;
extern "C" void onTempoInterrupt(int) {
    g_tempoInterrupted = 1;
}

/// Ctrl-C ends listening cleanly instead of the program.
class InterruptGuard {
public:
    InterruptGuard() : previous_(std::signal(SIGINT, onTempoInterrupt)) { g_tempoInterrupted = 0; }
    ~InterruptGuard() { std::signal(SIGINT, previous_); }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    void (*previous_)(int);
};

/// What the detector reports, as text lines or JSON Lines. On a terminal the level
/// bands are one line of bars redrawn in place under the last state.
class TempoPrinter {
public:
    TempoPrinter(std::ostream& out, bool json)
        : out_(out), json_(json), inPlace_(!json && isatty(STDOUT_FILENO) != 0) {}

    void state(const ListeningState& state) {
        if (json_) {
            out_ << Json{{"state", metronome::kindName(state.kind)},
                         {"message", state.text()},
                         {"tempo", state.kind == ListeningState::Kind::detected ? Json(state.tempo)
                                                                                : Json()}}
                        .dump()
                 << "\n";
        } else {
            clearBars();
            out_ << (state.kind == ListeningState::Kind::idle ? "Stopped listening" : state.text())
                 << "\n";
        }
        out_.flush();
        last_ = state;
    }

    void levels(const std::vector<float>& levels) {
        if (json_) {
            auto rounded = Json::array();
            for (const float level : levels)
                rounded.push_back(std::round(static_cast<double>(level) * 1e4) / 1e4);
            out_ << Json{{"levels", rounded}}.dump() << "\n";
            return;
        }
        if (!inPlace_) return;
        // eight heights of block, from a quiet band to a full one
        static constexpr const char* blocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
        std::string bars;
        for (const float level : levels)
            bars += blocks[std::clamp(static_cast<int>(level * 8.0f), 0, 7)];
        out_ << "\r" << bars << std::flush;
        barsShown_ = true;
    }

    const ListeningState& last() const { return last_; }

private:
    void clearBars() {
        if (!barsShown_) return;
        out_ << "\r\033[K";
        barsShown_ = false;
    }

    std::ostream& out_;
    bool json_;
    bool inPlace_;
    bool barsShown_ = false;
    ListeningState last_;
};

void startDetector(MetronomeTempoDetector& detector, TempoPrinter& printer) {
    detector.start([&printer](const ListeningState& state) { printer.state(state); },
                   [](int) {}, // the tempo arrives with its state, and is printed there
                   [&printer](const std::vector<float>& levels) { printer.levels(levels); });
}

/// A file fed through the detector's own tap, in real time or as fast as it goes,
/// on a clock of its own.
int detectFromFile(const std::string& file, bool fast, double duration, TempoPrinter& printer) {
    const auto audio = valueOrThrow(metronome::readTempoAudioFile(file));
    asio::io_context main;
    metronome::ManualTempoScheduler scheduler;
    metronome::OpenTempoCapture session;
    metronome::TempoBufferInput input(audio.sampleRate);
    metronome::AubioBeatTracker tracker;
    const auto detector = MetronomeTempoDetector::create(
        {main.get_executor(), main.get_executor(), scheduler, session, input, tracker});
    const auto runMain = [&] {
        main.restart();
        main.poll();
    };
    const InterruptGuard interrupt;
    startDetector(*detector, printer);
    runMain();

    const auto begin = std::chrono::steady_clock::now();
    const auto clock = [&](std::size_t frames) {
        const double seconds = static_cast<double>(frames) / audio.sampleRate;
        if (!fast) std::this_thread::sleep_until(begin + std::chrono::duration<double>(seconds));
        scheduler.advanceTo(std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::duration<double>(seconds)));
        runMain();
    };
    constexpr std::size_t chunk = 1024;
    auto frames = audio.samples.size();
    if (duration > 0)
        frames = std::min(frames, static_cast<std::size_t>(duration * audio.sampleRate));
    std::size_t done = 0;
    for (; done < frames && g_tempoInterrupted == 0; done += chunk) {
        const auto count = std::min(chunk, frames - done);
        input.feed(std::span(audio.samples).subspan(done, count));
        clock(done + count);
    }
    // the pass that follows the end of the file still has its window to analyse
    const auto end = done;
    for (std::size_t extra = 0;
         g_tempoInterrupted == 0 && extra < static_cast<std::size_t>(3.05 * audio.sampleRate) &&
         detector->isListening();
         extra += chunk)
        clock(end + extra + chunk);
    detector->stop();
    runMain();
    return 0;
}

/// The microphone, through the audio session, until Ctrl-C or the duration.
int detectLive(double duration, TempoPrinter& printer) {
    auto& detector = MetronomeTempoDetector::shared();
    const InterruptGuard interrupt;
    startDetector(detector, printer);
    const auto limit = duration > 0 ? std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::duration<double>(duration))
                                    : std::chrono::milliseconds(24h);
    audio::runMainUntil(
        [&] {
            return g_tempoInterrupted != 0 ||
                   printer.last().kind == ListeningState::Kind::unavailable;
        },
        limit);
    const bool unavailable = printer.last().kind == ListeningState::Kind::unavailable;
    detector.stop();
    // let the session give the devices back before the program ends
    audio::runMainUntil([] { return false; }, 2s);
    if (unavailable) throw CommandError(printer.last().text());
    return 0;
}

} // namespace

void addTempoCommands(CLI::App& app, CommandContext& context) {
    struct Options {
        std::string input;
        bool fast = false;
        bool json = false;
        double duration = 0;
    };
    auto options = std::make_shared<Options>();
    auto* command = app.add_subcommand(
        "detect-tempo", "Listen to the player and report the tempo (Ctrl-C to stop)");
    command->add_option("--input", options->input,
                        "Listen to this audio file, fed in real time, instead of the microphone");
    command->add_flag("--fast", options->fast, "With --input: as fast as possible");
    command->add_flag("--json", options->json,
                      "Print JSON Lines: {\"state\",\"message\",\"tempo\"} and {\"levels\"}");
    command->add_option("--duration", options->duration, "Stop after this many seconds")
        ->check(CLI::NonNegativeNumber);
    command->callback([&context, options] {
        *context.action = [&context, options] {
            if (options->fast && options->input.empty())
                throw CommandError("--fast needs --input FILE.wav");
            TempoPrinter printer(context.out, options->json);
            if (!options->input.empty())
                return detectFromFile(options->input, options->fast, options->duration, printer);
            return detectLive(options->duration, printer);
        };
    });
}

} // namespace fq::cli
