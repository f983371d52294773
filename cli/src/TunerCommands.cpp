// `fretquill tune`: options, printing and the tuner's terminal screen over the tuner session.

#include "TunerCommands.h"

#include "CommandSupport.h"
#include "DevicePlayback.h"
#include "LiveScreen.h"
#include "ToneCommands.h"

#include <fq/audio/DeviceAudio.h>
#include <fq/documents/DataLocations.h>
#include <fq/tuner/TunerSession.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <optional>
#include <thread>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;

/// The gauge bar: this many characters from -50 to +50 cents.
constexpr int gaugeWidth = 41;

volatile std::sig_atomic_t g_interrupted = 0;

void onInterrupt(int) {
    g_interrupted = 1;
}

/// Ctrl-C ends a live tuner in order instead of killing it with the device open.
class InterruptGuard {
public:
    InterruptGuard() : previous_(std::signal(SIGINT, onInterrupt)) { g_interrupted = 0; }
    ~InterruptGuard() { std::signal(SIGINT, previous_); }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    void (*previous_)(int);
};

/// A path, or the name of a file in the documents folder.
std::filesystem::path resolveFile(const std::string& text) {
    std::filesystem::path file(text);
    std::error_code error;
    if (!std::filesystem::exists(file, error) && file.is_relative()) {
        const auto documents = documents::documentsDirectory() / file;
        if (std::filesystem::exists(documents, error)) return documents;
    }
    return file;
}

/// "E₂  +3.2 cents  In Tune     [.........|....|..●.|.........]  82.6 Hz"
std::string gaugeLine(const tuner::TunerDisplayModel& model) {
    const double cents = model.displayDeviationCents();
    std::string bar(gaugeWidth, '-');
    const int centre = gaugeWidth / 2;
    const auto column = [&](double value) {
        return std::clamp(centre + static_cast<int>(std::lround(value * centre / 50.0)), 0,
                          gaugeWidth - 1);
    };
    bar[static_cast<std::size_t>(column(-tuner::config::inTuneCents))] = '[';
    bar[static_cast<std::size_t>(column(tuner::config::inTuneCents))] = ']';
    bar[static_cast<std::size_t>(centre)] = '|';
    std::string drawn;
    for (int i = 0; i < gaugeWidth; ++i)
        drawn += i == column(cents) ? std::string("●")
                                    : std::string(1, bar[static_cast<std::size_t>(i)]);
    return fmt::format("{:<5} {:+6.1f} cents  {:<9}  {}  {:.1f} Hz",
                       model.displayNote().value_or("?"), cents, model.instruction().text, drawn,
                       model.displayFrequency());
}

Json displayJson(const tuner::TunerDisplayModel& model) {
    return Json{{"frequency", model.displayFrequency()},
                {"noteNumber", model.displayPianoNoteNumber()},
                {"note", model.displayNote() ? Json(*model.displayNote()) : Json()},
                {"cents", model.displayDeviationCents()},
                {"instruction", model.instruction().text}};
}

/// The tuner on the terminal: a status line redrawn in place, one line per change on a
/// pipe, or one JSON object per line.
class TunerScreen final : public tuner::TunerSessionObserver {
public:
    TunerScreen(std::ostream& out, bool json)
        : out_(out), json_(json), line_(out, !json && isatty(STDOUT_FILENO) != 0) {}

    void tunerOpened(bool opened) override { opened_ = opened; }
    void displayChanged(const tuner::TunerDisplayModel& model) override {
        ++changes_;
        if (json_)
            out_ << displayJson(model).dump() << "\n" << std::flush;
        else if (line_.inPlace())
            line_.draw(gaugeLine(model));
        else
            out_ << gaugeLine(model) << "\n" << std::flush;
    }

    const std::optional<bool>& opened() const { return opened_; }
    void begin() { line_.draw("Listening…"); }
    void end() {
        if (changes_ > 0) {
            line_.end();
        } else {
            line_.clear();
            if (!json_) out_ << "No pitch heard.\n" << std::flush;
        }
    }

private:
    std::ostream& out_;
    bool json_;
    StatusLine line_;
    std::optional<bool> opened_;
    int changes_ = 0;
};

void tuneFile(const std::string& fileText, bool fast, TunerScreen& screen) {
    const auto audio = valueOrThrow(tuner::readMonoAudio(resolveFile(fileText)));
    const InterruptGuard interrupt;
    const auto started = std::chrono::steady_clock::now();
    screen.begin();
    valueOrThrow(tuner::tuneRecording(audio, documents::cacheDirectory(), screen, [&](double at) {
        if (fast || g_interrupted) return;
        std::this_thread::sleep_until(started +
                                      std::chrono::duration_cast<std::chrono::nanoseconds>(
                                          std::chrono::duration<double>(at)));
    }));
    screen.end();
}

void tuneLive(double duration, TunerScreen& screen) {
    requireDevice(audio::AudioDirection::input);
    asio::io_context main;
    audio::DeviceAudio device(main.get_executor());
    tuner::DeviceCaptureSession capture(device.session(), device.engine());
    tuner::NoDrumEngine drums;
    tuner::TunerSession tuner(main.get_executor(), capture, drums, documents::cacheDirectory(),
                              screen);
    const auto stop = [&] {
        bool tornDown = false;
        tuner.disappear([&] { tornDown = true; });
        audio::runUntil(
            main, [&] { return tornDown; }, audio::config::activationTimeout);
        bool released = false;
        device.release([&] { released = true; });
        audio::runUntil(
            main, [&] { return released; }, audio::config::activationTimeout);
    };

    const InterruptGuard interrupt;
    device.session().sceneDidBecomeActive();
    tuner.appear();
    audio::runUntil(
        main, [&] { return screen.opened().has_value(); }, audio::config::activationTimeout);
    if (screen.opened() != true) {
        stop();
        throw CommandError("The tuner could not start listening");
    }
    screen.begin();
    const auto limit = duration > 0 ? std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::duration<double>(duration))
                                    : std::chrono::milliseconds::max() / 2;
    audio::runUntil(
        main, [] { return g_interrupted != 0; }, limit);
    stop();
    screen.end();
}

} // namespace

void addTunerCommands(CLI::App& app, CommandContext& context) {
    struct TuneOptions {
        std::string input;
        bool fast = false;
        bool json = false;
        bool verbose = false;
        double duration = 0;
    };
    auto tuneOptions = std::make_shared<TuneOptions>();
    auto* tuneCommand = app.add_subcommand(
        "tune", "A chromatic tuner: listens to the microphone (or a file) and shows the nearest "
                "note, how far off it is in cents, and which way to turn the peg");
    tuneCommand->add_option("--input", tuneOptions->input,
                            "Listen to this audio file instead of the microphone");
    tuneCommand->add_flag("--fast", tuneOptions->fast,
                          "With --input: run through the file as fast as possible");
    tuneCommand->add_flag("--json", tuneOptions->json,
                          "One JSON object per display change (JSON Lines)");
    tuneCommand
        ->add_option("--duration", tuneOptions->duration,
                     "Listen live for this many seconds (default: until Ctrl-C)")
        ->check(CLI::NonNegativeNumber);
    tuneCommand->add_flag("--verbose", tuneOptions->verbose,
                          "Also show the tuner's diagnostic lines on standard error (they are "
                          "always kept in live.log in the state folder)");
    tuneCommand->callback([&context, tuneOptions] {
        *context.action = [&context, tuneOptions] {
            if (tuneOptions->fast && tuneOptions->input.empty())
                throw CommandError("--fast needs --input FILE.wav");
            const LiveDiagnostics diagnostics(tuneOptions->verbose);
            TunerScreen screen(context.out, tuneOptions->json);
            if (!tuneOptions->input.empty())
                tuneFile(tuneOptions->input, tuneOptions->fast, screen);
            else
                tuneLive(tuneOptions->duration, screen);
            return 0;
        };
    });

    addToneCommand(app, context);
}

} // namespace fq::cli
