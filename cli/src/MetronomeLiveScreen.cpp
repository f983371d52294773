// The live metronome's terminal screen over the metronome session.

#include "MetronomeLiveScreen.h"

#include "CommandSupport.h"
#include "LiveScreen.h"

#include <fq/audio/SerialQueue.h>
#include <fq/audio/SharedAudioEngine.h>
#include <fq/metronome/DetectorListeningPort.h>
#include <fq/metronome/MetronomeSession.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <tuple>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;
using namespace std::chrono_literals;

/// What + and - change the tempo by: the screen's smaller stepper.
constexpr int tempoStep = 5;

/// Keys without Enter and without echo while the metronome runs; the terminal is put
/// back as it was however the command ends. Ctrl-C still interrupts.
class RawKeys {
public:
    RawKeys() : active_(isatty(STDIN_FILENO) == 1 && tcgetattr(STDIN_FILENO, &saved_) == 0) {
        if (!active_) return;
        termios raw = saved_;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        raw.c_cc[VMIN] = 0;
        raw.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    ~RawKeys() {
        if (active_) tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
    }
    RawKeys(const RawKeys&) = delete;
    RawKeys& operator=(const RawKeys&) = delete;

    bool active() const { return active_; }
    std::optional<char> next() const {
        char key = 0;
        if (active_ && read(STDIN_FILENO, &key, 1) == 1) return key;
        return std::nullopt;
    }

private:
    termios saved_{};
    bool active_;
};

volatile std::sig_atomic_t interrupted = 0;

/// SIGINT and SIGTERM end the run cleanly while it lasts.
class InterruptGuard {
public:
    InterruptGuard() {
        interrupted = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { interrupted = 1; };
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &savedInt_);
        sigaction(SIGTERM, &action, &savedTerm_);
    }
    ~InterruptGuard() {
        sigaction(SIGINT, &savedInt_, nullptr);
        sigaction(SIGTERM, &savedTerm_, nullptr);
    }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    struct sigaction savedInt_ {};
    struct sigaction savedTerm_ {};
};

/// The terminal as the metronome's status surface: one status line that shows the
/// tempo and flashes the beat; or, with --json, one line per click. Haptics stay a
/// no-op: the flashing beat is the pulse.
class TerminalSurface final : public metronome::StatusSurface, public metronome::HapticsPort {
public:
    TerminalSurface(std::ostream& out, bool json, bool drawsLine)
        : out_(out), json_(json), line_(out, drawsLine && !json) {}

    bool areActivitiesEnabled() const override { return true; }
    tl::expected<void, Error>
    request(const metronome::MetronomeAttributes&,
            const metronome::MetronomeAttributes::ContentState& state) override {
        state_ = state;
        draw();
        return {};
    }
    void update(const metronome::MetronomeAttributes&,
                const metronome::MetronomeAttributes::ContentState& state) override {
        state_ = state;
        draw();
    }
    void end(const metronome::MetronomeAttributes&,
             const metronome::MetronomeAttributes::ContentState&) override {
        line_.clear();
    }
    void endAll() override { line_.clear(); }

    bool drawsLine() const { return line_.inPlace(); }
    void clear() { line_.clear(); }

    /// What listening shows: the message, the level bands and the tempo it has set.
    /// Lines and JSON only when the message, the heard tempo or the metronome's
    /// changes; the bars only on the status line.
    void listening(const metronome::MetronomeController& controller) {
        listening_ = controller.isListeningForTempo();
        message_ = controller.tempoDetectionMessage();
        levels_ = controller.tempoEQLevels();
        bpm_ = controller.bpm();
        const auto said = std::make_tuple(message_, controller.lastDetectedTempo(), bpm_);
        // the tempo set from listening counts only once there is a tempo heard
        const bool news = std::get<0>(said) != std::get<0>(lastSaid_) ||
                          std::get<1>(said) != std::get<1>(lastSaid_) ||
                          (std::get<1>(said) && bpm_ != std::get<2>(lastSaid_));
        lastSaid_ = said;
        if (json_) {
            if (news)
                out_ << Json{{"listening", listening_},
                             {"message", message_},
                             {"tempo", std::get<1>(said) ? Json(*std::get<1>(said)) : Json()},
                             {"bpm", bpm_}}
                            .dump()
                     << std::endl;
        } else if (line_.inPlace()) {
            draw();
        } else if (news && !message_.empty()) {
            out_ << message_ << std::endl;
        }
    }

    void click(int beat, int subdivision) {
        beat_ = beat;
        subdivision_ = subdivision;
        if (json_)
            out_ << Json{{"beat", beat}, {"subdivision", subdivision}, {"bpm", state_.bpm}}.dump()
                 << std::endl;
        else
            draw();
    }

private:
    void draw() {
        if (!line_.inPlace()) return;
        if (listening_) {
            // eight heights of block, from a quiet band to a full one
            static constexpr const char* blocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
            std::string bars;
            for (const float level : levels_)
                bars += blocks[std::clamp(static_cast<int>(level * 8.0f), 0, 7)];
            line_.draw(fmt::format("{:>3} BPM {} {}  enter: play  s: stop listening  q: quit", bpm_,
                                   bars, message_));
            return;
        }
        std::string beats;
        for (int b = 0; b < state_.beats; ++b)
            beats += b == beat_ ? "●" : "○";
        std::string clicks;
        if (state_.subdivisions > 1)
            for (int s = 0; s < state_.subdivisions; ++s)
                clicks += s == subdivision_ ? "•" : "·";
        line_.draw(fmt::format("{:>3} BPM {} {}  space: tap  +/-: tempo  q: quit", state_.bpm,
                               beats, clicks));
    }

    std::ostream& out_;
    bool json_;
    StatusLine line_;
    metronome::MetronomeAttributes::ContentState state_;
    int beat_ = -1;
    int subdivision_ = 0;
    bool listening_ = false;
    std::string message_;
    std::vector<float> levels_;
    int bpm_ = 0;
    std::tuple<std::string, std::optional<int>, int> lastSaid_;
};

/// One key of the running screen.
bool handleKey(char key, metronome::MetronomeSession& session) {
    const bool listens = session.listens();
    if (key == ' ')
        session.tap();
    else if (key == '+' || key == '=')
        session.stepTempo(tempoStep);
    else if (key == '-' || key == '_')
        session.stepTempo(-tempoStep);
    else if (key == 'q' || key == 'Q')
        return false;
    else if (listens && (key == '\n' || key == '\r' || key == 'p'))
        session.playClicks();
    else if (listens && key == 'l')
        session.listenAgain();
    else if (listens && key == 's')
        session.stopListening();
    return true;
}

} // namespace

void runLiveMetronome(std::ostream& out, const LiveMetronomeOptions& options) {
    const auto store = appStore();
    personal::UserPreferences preferences(store);
    auto& engine = audio::SharedAudioEngine::shared();
    const RawKeys keys;
    const bool interactive = keys.active() && isatty(STDOUT_FILENO) == 1;
    const LiveDiagnostics diagnostics(options.verbose);
    TerminalSurface surface(out, options.json, interactive);
    metronome::DetectorListeningPort listeningPort;
    metronome::MetronomeSession session({store, preferences, engine,
                                         audio::mainContext().get_executor(), surface, surface,
                                         &listeningPort});
    std::optional<tl::expected<void, Error>> started;
    std::optional<std::optional<Error>> ended;
    bool stopped = false;
    metronome::MetronomeSession::Observer observer;
    observer.onStarted = [&](const tl::expected<void, Error>& result) { started = result; };
    observer.onClick = [&](int beat, int subdivision) { surface.click(beat, subdivision); };
    observer.onListeningChange = [&] { surface.listening(session.controller()); };
    observer.onEnded = [&](const std::optional<Error>& error) { ended = error; };
    observer.onStopped = [&] { stopped = true; };
    const InterruptGuard interrupts;

    session.start(options.settings, options.listen, observer);
    audio::runMainUntil([&] { return started.has_value(); }, 10s);
    if (!started || !*started) {
        const auto message = started ? started->error().message : "The metronome did not start";
        const bool noOutput = started && started->error().kind == ErrorKind::notFound;
        throw CommandError(message + (noOutput ? "; write the clicks to a file with --render "
                                                 "FILE.wav --seconds N"
                                               : ""));
    }
    if (!options.json && !interactive)
        out << (session.listens() ? "Listening for the tempo, then: " : "Metronome: ")
            << metronome::describe(options.settings) << std::endl;
    const auto deadline = options.seconds
                              ? std::chrono::steady_clock::now() +
                                    std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                        std::chrono::duration<double>(*options.seconds))
                              : std::chrono::steady_clock::time_point::max();
    bool quit = false;
    while (!quit && !ended && interrupted == 0 && std::chrono::steady_clock::now() < deadline) {
        audio::runMainFor(10ms);
        while (const auto key = keys.next())
            quit = quit || !handleKey(*key, session);
    }
    // killed or interrupted: the program ends as the app does when it is terminated
    session.stop(interrupted != 0);
    audio::runMainUntil([&] { return stopped; }, 2s);
    surface.clear();
    if (ended && *ended) throw CommandError((*ended)->message);
    if (!options.json) out << fmt::format("Stopped at {} BPM.\n", session.controller().bpm());
}

} // namespace fq::cli
