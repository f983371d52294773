// `fretquill detect-tempo`: its options, and the detector's reports as lines, JSON Lines
// or a status line of level bars.

#include "TempoCommands.h"

#include "CommandSupport.h"
#include "LiveScreen.h"

#include <fq/audio/SerialQueue.h>
#include <fq/metronome/MetronomeTempoDetector.h>
#include <fq/metronome/TempoFileDetection.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <memory>
#include <optional>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;
using namespace std::chrono_literals;
using metronome::ListeningState;

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

/// What the detector reports, each change once: as text lines or JSON Lines. On a
/// terminal the level bands are a status line of bars under the last state.
class TempoPrinter {
public:
    TempoPrinter(std::ostream& out, bool json)
        : out_(out), json_(json), bars_(out, !json && isatty(STDOUT_FILENO) != 0) {}

    void state(const ListeningState& state) {
        const bool repeated = last_ && *last_ == state;
        last_ = state;
        if (repeated) return;
        if (json_) {
            out_ << Json{{"state", metronome::kindName(state.kind)},
                         {"message", state.text()},
                         {"tempo", state.kind == ListeningState::Kind::detected ? Json(state.tempo)
                                                                                : Json()}}
                        .dump()
                 << "\n";
        } else {
            bars_.clear();
            out_ << (state.kind == ListeningState::Kind::idle ? "Stopped listening" : state.text())
                 << "\n";
        }
        out_.flush();
    }

    void levels(const std::vector<float>& levels) {
        if (json_) {
            auto rounded = Json::array();
            for (const float level : levels)
                rounded.push_back(std::round(static_cast<double>(level) * 1e4) / 1e4);
            if (rounded == lastLevels_) return;
            out_ << Json{{"levels", rounded}}.dump() << "\n";
            lastLevels_ = std::move(rounded);
            return;
        }
        // eight heights of block, from a quiet band to a full one
        static constexpr const char* blocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
        std::string bars;
        for (const float level : levels)
            bars += blocks[std::clamp(static_cast<int>(level * 8.0f), 0, 7)];
        bars_.draw(bars);
    }

    std::optional<ListeningState> last() const { return last_; }
    void end() { bars_.clear(); }

private:
    std::ostream& out_;
    bool json_;
    StatusLine bars_;
    std::optional<ListeningState> last_;
    Json lastLevels_;
};

/// The microphone, through the audio session, until Ctrl-C or the duration.
void detectLive(double duration, TempoPrinter& printer) {
    auto& detector = metronome::MetronomeTempoDetector::shared();
    detector.start([&printer](const ListeningState& state) { printer.state(state); },
                   [](int) {}, // the tempo arrives with its state, and is printed there
                   [&printer](const std::vector<float>& levels) { printer.levels(levels); });
    const auto unavailable = [&] {
        return printer.last() && printer.last()->kind == ListeningState::Kind::unavailable;
    };
    const auto limit = duration > 0 ? std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::duration<double>(duration))
                                    : std::chrono::milliseconds(24h);
    audio::runMainUntil([&] { return g_tempoInterrupted != 0 || unavailable(); }, limit);
    const auto failure = unavailable() ? std::optional(printer.last()->text()) : std::nullopt;
    detector.stop();
    // let the session give the devices back before the program ends
    audio::runMainUntil([] { return false; }, 2s);
    if (failure) throw CommandError(*failure);
}

} // namespace

void addTempoCommands(CLI::App& app, CommandContext& context) {
    struct Options {
        std::string input;
        bool fast = false;
        bool json = false;
        bool verbose = false;
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
    command->add_flag("--verbose", options->verbose,
                      "Also show the system's diagnostic lines on standard error");
    command->callback([&context, options] {
        *context.action = [&context, options] {
            if (options->fast && options->input.empty())
                throw CommandError("--fast needs --input FILE.wav");
            const LiveDiagnostics diagnostics(options->verbose);
            const InterruptGuard interrupt;
            TempoPrinter printer(context.out, options->json);
            if (options->input.empty()) {
                detectLive(options->duration, printer);
            } else {
                valueOrThrow(metronome::detectTempoInFile(
                    options->input, {!options->fast, options->duration},
                    [&printer](const ListeningState& state) { printer.state(state); },
                    [&printer](const std::vector<float>& levels) { printer.levels(levels); },
                    [] { return g_tempoInterrupted != 0; }));
            }
            printer.end();
            return 0;
        };
    });
}

} // namespace fq::cli
