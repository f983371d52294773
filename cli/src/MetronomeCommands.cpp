#include "MetronomeCommands.h"

#include "CommandSupport.h"

#include <fq/audio/AudioDevices.h>
#include <fq/audio/SerialQueue.h>
#include <fq/audio/SharedAudioEngine.h>
#include <fq/core/Diagnostics.h>
#include <fq/metronome/DetectorListeningPort.h>
#include <fq/metronome/MetronomeController.h>
#include <fq/metronome/MetronomeRender.h>
#include <fq/personal/PreferenceKeys.h>
#include <fq/personal/UserPreferences.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <tuple>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;
using namespace std::chrono_literals;
using metronome::MetronomeSound;

/// How long to wait for the unit and the device to start before giving up.
constexpr auto startTimeout = 5s;
/// How much audio a device has played when it counts as running steadily.
constexpr std::chrono::duration<double> steadyAfter{0.2};
/// What + and - change the tempo by: the screen's smaller stepper.
constexpr int tempoStep = 5;

const std::map<std::string, MetronomeSound> soundNames{{"real", MetronomeSound::real},
                                                       {"sine", MetronomeSound::sine},
                                                       {"triangle", MetronomeSound::triangle},
                                                       {"square", MetronomeSound::square}};

std::string soundName(MetronomeSound sound) {
    for (const auto& [name, value] : soundNames)
        if (value == sound) return name;
    return "real";
}

struct MetronomeOptions {
    std::optional<int> bpm;
    std::optional<int> beats;
    std::optional<int> subdivisions;
    std::string sound;
    std::string key;
    bool accent = false;
    bool noAccent = false;
    std::string render;
    std::optional<double> seconds;
    bool json = false;
    bool listen = false;
};

/// The person's stored settings, with what the options say instead.
metronome::MetronomeSettings settingsFor(const MetronomeOptions& options) {
    if (options.accent && options.noAccent)
        throw CommandError("Give --accent or --no-accent, not both");
    metronome::MetronomeSettings settings;
    const auto store = appStore();
    const personal::UserPreferences preferences(store);
    settings.bpm = static_cast<int>(
        std::clamp<std::int64_t>(personal::read(*store, personal::keys::tempo),
                                 metronome::config::lowestTempo, metronome::config::highestTempo));
    settings.beats = static_cast<int>(
        std::clamp<std::int64_t>(personal::read(*store, personal::keys::beats), 1, 16));
    settings.subdivisions = static_cast<int>(
        std::clamp<std::int64_t>(personal::read(*store, personal::keys::subdivisions), 1, 8));
    const auto storedSound = preferences.metronomeSound();
    settings.sound = storedSound >= 1 && storedSound <= 3 ? static_cast<MetronomeSound>(storedSound)
                                                          : MetronomeSound::real;
    settings.keyIndex =
        static_cast<int>(std::clamp<std::int64_t>(preferences.metronomeKeyIndex(), 0, 12));
    settings.accentFirstBeat = preferences.accentFirstBeat();

    if (options.bpm) settings.bpm = *options.bpm;
    if (options.beats) settings.beats = *options.beats;
    if (options.subdivisions) settings.subdivisions = *options.subdivisions;
    if (!options.sound.empty()) settings.sound = soundNames.at(options.sound);
    if (!options.key.empty()) {
        const auto key = metronome::keyIndexFromText(options.key);
        if (!key)
            throw CommandError(
                fmt::format("Unknown key: {} (one of E (Low), F, F#/Gb, G, G#/Ab, A, A#/Bb, "
                            "B, C, C#/Db, D, D#/Eb, E, or 0 to 12)",
                            options.key));
        settings.keyIndex = *key;
    }
    if (options.accent) settings.accentFirstBeat = true;
    if (options.noAccent) settings.accentFirstBeat = false;
    return settings;
}

Json settingsJson(const metronome::MetronomeSettings& settings) {
    return Json{{"bpm", settings.bpm},
                {"beats", settings.beats},
                {"subdivisions", settings.subdivisions},
                {"sound", soundName(settings.sound)},
                {"key", metronome::keyNames[static_cast<std::size_t>(settings.keyIndex)]},
                {"accentFirstBeat", settings.accentFirstBeat}};
}

std::string describe(const metronome::MetronomeSettings& settings) {
    std::string text =
        fmt::format("{} BPM, {} beats per bar, {} click{} per beat, {}", settings.bpm,
                    settings.beats, settings.subdivisions, settings.subdivisions == 1 ? "" : "s",
                    metronome::label(settings.sound));
    if (settings.sound != MetronomeSound::real)
        text +=
            fmt::format(" in {}", metronome::keyNames[static_cast<std::size_t>(settings.keyIndex)]);
    text += settings.accentFirstBeat ? ", first beat accented" : ", no accent";
    return text;
}

// The live metronome in a terminal.

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
/// tempo and flashes the beat, redrawn in place; or, with --json, one line per click.
/// Haptics stay a no-op: the flashing beat is the pulse.
class TerminalSurface final : public metronome::StatusSurface, public metronome::HapticsPort {
public:
    TerminalSurface(std::ostream& out, bool json, bool drawsLine)
        : out_(out), json_(json), drawsLine_(drawsLine) {}

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
        clearLine();
    }
    void endAll() override { clearLine(); }

    void redraw() { draw(); }

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
            return;
        }
        if (drawsLine_) {
            draw();
        } else if (news && !message_.empty()) {
            out_ << message_ << std::endl;
        }
    }

    void click(int beat, int subdivision) {
        beat_ = beat;
        subdivision_ = subdivision;
        if (json_) {
            out_ << Json{{"beat", beat}, {"subdivision", subdivision}, {"bpm", state_.bpm}}.dump()
                 << std::endl;
            return;
        }
        draw();
    }

private:
    void draw() {
        if (!drawsLine_ || json_) return;
        if (listening_) {
            drawListening();
            return;
        }
        std::string beats;
        for (int b = 0; b < state_.beats; ++b)
            beats += b == beat_ ? "● " : "○ ";
        std::string clicks;
        if (state_.subdivisions > 1)
            for (int s = 0; s < state_.subdivisions; ++s)
                clicks += s == subdivision_ ? "•" : "·";
        out_ << fmt::format("\r\x1b[2K  {:>3} BPM  {} {}   space: tap  +/-: tempo  q: quit",
                            state_.bpm, beats, clicks)
             << std::flush;
    }
    void drawListening() {
        // eight heights of block, from a quiet band to a full one
        static constexpr const char* blocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
        std::string bars;
        for (const float level : levels_)
            bars += blocks[std::clamp(static_cast<int>(level * 8.0f), 0, 7)];
        out_ << fmt::format(
                    "\r\x1b[2K  {:>3} BPM  {}  {}   enter: play  s: stop listening  q: quit", bpm_,
                    bars, message_)
             << std::flush;
    }
    void clearLine() {
        if (drawsLine_ && !json_) out_ << "\r\x1b[2K" << std::flush;
    }

    std::ostream& out_;
    bool json_;
    bool drawsLine_;
    metronome::MetronomeAttributes::ContentState state_;
    int beat_ = -1;
    int subdivision_ = 0;
    bool listening_ = false;
    std::string message_;
    std::vector<float> levels_;
    int bpm_ = 0;
    std::tuple<std::string, std::optional<int>, int> lastSaid_;
};

/// While the status line is drawn, the program's diagnostic lines (tap timestamps,
/// the live activity's messages) are collected here and printed above it, so that
/// they do not run into it.
class DiagnosticsAboveStatus {
public:
    explicit DiagnosticsAboveStatus(bool active) : file_(active ? std::tmpfile() : nullptr) {
        if (file_)
            setDiagnosticSink([file = file_](std::string_view line) {
                std::fwrite(line.data(), 1, line.size(), file);
                std::fputc('\n', file);
            });
    }
    ~DiagnosticsAboveStatus() {
        if (!file_) return;
        flush();
        setDiagnosticSink(toStandardError);
        std::fclose(file_);
    }
    DiagnosticsAboveStatus(const DiagnosticsAboveStatus&) = delete;
    DiagnosticsAboveStatus& operator=(const DiagnosticsAboveStatus&) = delete;

    /// True when lines were printed, and the status line must be drawn again.
    bool flush() {
        if (!file_) return false;
        std::fflush(file_);
        std::fseek(file_, read_, SEEK_SET);
        std::string text;
        for (int c = std::fgetc(file_); c != EOF; c = std::fgetc(file_))
            text.push_back(static_cast<char>(c));
        read_ += static_cast<long>(text.size());
        std::fseek(file_, 0, SEEK_END);
        if (text.empty()) return false;
        std::string lines;
        for (std::size_t start = 0; start < text.size();) {
            const auto end = text.find('\n', start);
            lines += "\r\x1b[2K" + text.substr(start, end - start) + "\r\n";
            if (end == std::string::npos) break;
            start = end + 1;
        }
        std::fputs(lines.c_str(), stderr);
        std::fflush(stderr);
        return true;
    }

private:
    std::FILE* file_;
    long read_ = 0;
};

void runLive(std::ostream& out, const MetronomeOptions& options) {
    const auto settings = settingsFor(options);
    const auto devices = valueOrThrow(audio::listAudioDevices());
    if (auto output = audio::chooseAudioDevice(devices, audio::AudioDirection::output,
                                               audio::wantedAudioDevice());
        !output)
        throw CommandError(output.error().message +
                           "; write the clicks to a file with --render FILE.wav --seconds N");

    const auto store = appStore();
    personal::UserPreferences preferences(store);
    auto& engine = audio::SharedAudioEngine::shared();
    const RawKeys keys;
    const bool interactive = keys.active() && isatty(STDOUT_FILENO) == 1;
    TerminalSurface surface(out, options.json, interactive);
    DiagnosticsAboveStatus diagnostics(interactive);
    metronome::MetronomeAudioUnitManager manager(engine, audio::mainContext().get_executor());
    metronome::DetectorListeningPort listeningPort;
    metronome::MetronomeController controller(store, preferences, manager,
                                              audio::mainContext().get_executor(),
                                              {surface, surface, &listeningPort});
    controller.setOnClick(
        [&surface](int beat, int subdivision) { surface.click(beat, subdivision); });
    bool listenedOnce = false;
    controller.setOnListeningChange([&] {
        listenedOnce = listenedOnce || controller.isListeningForTempo();
        surface.listening(controller);
    });
    const InterruptGuard interrupts;

    controller.open();
    // the settings go in as the screen's controls would put them
    controller.setTempo(settings.bpm);
    controller.setBeats(settings.beats);
    controller.setSubdivisions(settings.subdivisions);
    controller.setSound(settings.sound);
    controller.setKeyIndex(settings.keyIndex);
    controller.setAccentFirstBeat(settings.accentFirstBeat);
    if (!audio::runMainUntil([&] { return manager.audioUnit() != nullptr && engine.isRunning(); },
                             startTimeout)) {
        controller.close();
        throw CommandError(manager.audioUnit() == nullptr ? "The metronome could not be set up"
                                                          : "The audio output did not start");
    }
    // A sound server may take the first blocks at once and then pause while it sets
    // up: clicks in that pause would stumble. Wait until it plays steadily.
    const auto started = engine.renderedFrames();
    const auto steady = static_cast<audio::FrameTime>(engine.sampleRate() * steadyAfter.count());
    audio::runMainUntil([&] { return engine.renderedFrames() - started > steady; }, startTimeout);

    // listening, asked here or by an intent on arrival, comes before the clicks
    const bool listen = options.listen || controller.isListeningForTempo();
    if (!options.json && !interactive)
        out << (listen ? "Listening for the tempo, then: " : "Metronome: ") << describe(settings)
            << std::endl;
    if (listen) {
        if (!controller.isListeningForTempo()) controller.startListening();
    } else {
        controller.setMetronomeOn(true);
    }
    const auto deadline = options.seconds
                              ? std::chrono::steady_clock::now() +
                                    std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                        std::chrono::duration<double>(*options.seconds))
                              : std::chrono::steady_clock::time_point::max();
    bool quit = false;
    std::optional<std::string> failure;
    if (!listen) audio::runMainUntil([&] { return manager.audioUnit()->isProcessing(); }, 1s);
    while (!quit && interrupted == 0 && std::chrono::steady_clock::now() < deadline) {
        audio::runMainFor(10ms);
        // another process (an intent, `fretquill prefs set isMetronomeOn false`) may
        // turn the switch off: the metronome follows it, and the run ends. A run that
        // listens turns the switch itself, and ends only when told.
        store->pollExternalChanges();
        if (!listen && !controller.isMetronomeOn()) {
            audio::runMainFor(10ms);
            break;
        }
        if (diagnostics.flush()) surface.redraw();
        while (const auto key = keys.next()) {
            if (*key == ' ')
                controller.tap();
            else if (*key == '+' || *key == '=')
                controller.setTempo(controller.bpm() + tempoStep);
            else if (*key == '-' || *key == '_')
                controller.setTempo(controller.bpm() - tempoStep);
            else if (*key == 'q' || *key == 'Q')
                quit = true;
            else if (listen && (*key == '\n' || *key == '\r' || *key == 'p'))
                controller.setMetronomeOn(true); // which ends listening
            else if (listen && *key == 'l')
                controller.startListening(); // which turns the clicks off
            else if (listen && *key == 's')
                controller.stopListening();
        }
        if (const auto event = engine.nextEvent(); event == audio::EngineEvent::outputStopped) {
            failure = "The audio output stopped";
            break;
        }
    }
    // killed or interrupted: the program ends as the app does when it is terminated
    if (interrupted != 0) controller.liveActivity().appWillTerminate();
    controller.setMetronomeOn(false);
    audio::runMainUntil([&] { return !manager.audioUnit()->isProcessing(); }, 1s);
    controller.close();
    // let the audio session take the microphone back before the devices stop
    if (listenedOnce) audio::runMainUntil([] { return false; }, 300ms);
    engine.stop();
    diagnostics.flush();
    if (failure) throw CommandError(*failure);
    if (!options.json)
        out << fmt::format("{}Stopped at {} BPM.\n", interactive ? "\r\x1b[2K" : "",
                           controller.bpm());
}

// Presets.

Json presetsJson(const std::vector<metronome::MetronomePreset>& presets) {
    auto array = Json::array();
    for (const auto& preset : presets)
        array.push_back(metronome::toJson(preset));
    return array;
}

void printPresets(std::ostream& out, const std::vector<metronome::MetronomePreset>& presets,
                  bool json) {
    if (json) {
        out << presetsJson(presets).dump() << "\n";
        return;
    }
    if (presets.empty()) out << "This list is empty\n";
    for (const auto& preset : presets)
        out << fmt::format("{}  {}\n", preset.name, metronome::presetSummary(preset));
}

/// Nothing shows or sounds while presets are managed.
struct QuietSurface final : metronome::StatusSurface, metronome::HapticsPort {
    bool areActivitiesEnabled() const override { return false; }
    tl::expected<void, Error>
    request(const metronome::MetronomeAttributes&,
            const metronome::MetronomeAttributes::ContentState&) override {
        return {};
    }
    void update(const metronome::MetronomeAttributes&,
                const metronome::MetronomeAttributes::ContentState&) override {}
    void end(const metronome::MetronomeAttributes&,
             const metronome::MetronomeAttributes::ContentState&) override {}
    void endAll() override {}
};

/// The controller of the metronome screen, without a device: presets change the
/// stored tempo and meter as the screen would.
struct PresetSession {
    PresetSession()
        : store(appStore()), preferences(store), manager(engine, main.get_executor()),
          controller(store, preferences, manager, main.get_executor(),
                     {surface, surface, nullptr}) {}

    /// The first preset with this name, or with this id.
    metronome::MetronomePreset find(const std::string& nameOrId) const {
        const auto& presets = controller.presets();
        auto found = std::find_if(presets.begin(), presets.end(),
                                  [&](const auto& preset) { return preset.name == nameOrId; });
        if (found == presets.end())
            found = std::find_if(presets.begin(), presets.end(),
                                 [&](const auto& preset) { return preset.id.text() == nameOrId; });
        if (found == presets.end()) throw CommandError(fmt::format("No preset named {}", nameOrId));
        return *found;
    }

    std::shared_ptr<personal::SharedStore> store;
    personal::UserPreferences preferences;
    audio::ManualTimeline timeline;
    audio::SharedAudioEngine engine{timeline};
    asio::io_context main;
    QuietSurface surface;
    metronome::MetronomeAudioUnitManager manager;
    metronome::MetronomeController controller;
};

} // namespace

void addMetronomeCommands(CLI::App& app, CommandContext& context) {
    auto options = std::make_shared<MetronomeOptions>();
    auto* command = app.add_subcommand(
        "metronome",
        "A sample-accurate metronome: clicks through the device, or rendered to a WAV file");
    command->add_option("--bpm", options->bpm, "Tempo, 30 to 300 (default: the last tempo)")
        ->check(CLI::Range(metronome::config::lowestTempo, metronome::config::highestTempo));
    command->add_option("--beats", options->beats, "Beats per bar, 1 to 16")
        ->check(CLI::Range(1, 16));
    command->add_option("--subdivisions", options->subdivisions, "Clicks per beat, 1 to 8")
        ->check(CLI::Range(1, 8));
    command
        ->add_option("--sound", options->sound, "real (recorded clicks), sine, triangle or square")
        ->check(CLI::IsMember({"real", "sine", "triangle", "square"}));
    command->add_option("--key", options->key,
                        "Pitch of the synth sounds: E (Low), F, F#/Gb … D#/Eb, E");
    command->add_flag("--accent", options->accent, "Accent the first beat of each bar");
    command->add_flag("--no-accent", options->noAccent, "Do not accent the first beat");
    command->add_option("--render", options->render,
                        "Write the clicks to this WAV file instead of playing them");
    command->add_option("--seconds", options->seconds, "How long to render, or to play")
        ->check(CLI::Range(0.001, 86400.0));
    command->add_flag("--json", options->json, "Print JSON (one line per click while playing)");
    command->add_flag("--listen", options->listen,
                      "Listen to the player first and take the tempo heard (enter: play the "
                      "clicks, l: listen again, s: stop listening)");
    command->callback([&context, options, command] {
        if (!command->get_subcommands().empty()) return;
        *context.action = [&context, options] {
            if (options->render.empty()) {
                runLive(context.out, *options);
                return 0;
            }
            if (!options->seconds) throw CommandError("Give --seconds with --render");
            const auto settings = settingsFor(*options);
            const auto frames = valueOrThrow(
                metronome::renderMetronome(settings, options->render, *options->seconds));
            if (options->json) {
                auto json = settingsJson(settings);
                json["rendered"] = options->render;
                json["frames"] = frames;
                context.out << json.dump() << "\n";
            } else {
                context.out << fmt::format("Rendered {:g} s at {} to {}\n", *options->seconds,
                                           describe(settings), options->render);
            }
            return 0;
        };
    });

    auto* presets = command->add_subcommand("presets", "Saved tempos and meters");
    presets->require_subcommand(1);
    struct PresetOptions {
        std::string name;
        std::string newName;
        bool json = false;
    };
    struct PresetCommand {
        const char* name;
        const char* help;
        const char* argument;
        bool takesNewName;
        std::function<void(PresetSession&, const PresetOptions&, std::ostream&)> run;
    };
    const std::vector<PresetCommand> commands{
        {"list", "List the presets", nullptr, false,
         [](PresetSession& session, const PresetOptions& o, std::ostream& out) {
             printPresets(out, session.controller.presets(), o.json);
         }},
        {"save", "Save the present tempo, beats and subdivisions under a name", "NAME", false,
         [](PresetSession& session, const PresetOptions& o, std::ostream& out) {
             valueOrThrow(session.controller.savePreset(o.name));
             printPresets(out, session.controller.presets(), o.json);
         }},
        {"load", "Make a preset's tempo, beats and subdivisions the present ones", "NAME", false,
         [](PresetSession& session, const PresetOptions& o, std::ostream& out) {
             const auto preset = session.find(o.name);
             session.controller.loadPreset(preset);
             if (o.json)
                 out << metronome::toJson(preset).dump() << "\n";
             else
                 out << fmt::format("Loaded {}: {}\n", preset.name,
                                    metronome::presetSummary(preset));
         }},
        {"rename", "Rename a preset", "OLD", true,
         [](PresetSession& session, const PresetOptions& o, std::ostream& out) {
             valueOrThrow(session.controller.renamePreset(session.find(o.name).id, o.newName));
             printPresets(out, session.controller.presets(), o.json);
         }},
        {"delete", "Delete a preset", "NAME", false,
         [](PresetSession& session, const PresetOptions& o, std::ostream& out) {
             valueOrThrow(session.controller.deletePreset(session.find(o.name).id));
             printPresets(out, session.controller.presets(), o.json);
         }},
        {"clear", "Delete every preset", nullptr, false,
         [](PresetSession& session, const PresetOptions& o, std::ostream& out) {
             valueOrThrow(session.controller.clearPresets());
             printPresets(out, session.controller.presets(), o.json);
         }},
    };
    for (const auto& entry : commands) {
        auto presetOptions = std::make_shared<PresetOptions>();
        auto* sub = presets->add_subcommand(entry.name, entry.help);
        if (entry.argument)
            sub->add_option(entry.argument, presetOptions->name, "The preset's name (or id)")
                ->required();
        if (entry.takesNewName)
            sub->add_option("NEW", presetOptions->newName, "Its new name")->required();
        sub->add_flag("--json", presetOptions->json, "Print JSON");
        sub->callback([&context, presetOptions, run = entry.run] {
            *context.action = [&context, presetOptions, run] {
                PresetSession session;
                run(session, *presetOptions, context.out);
                return 0;
            };
        });
    }
}

} // namespace fq::cli
