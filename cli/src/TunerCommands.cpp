#include "TunerCommands.h"

#include "CommandSupport.h"

#include <fq/audio/AudioDevices.h>
#include <fq/audio/AudioSessionManager.h>
#include <fq/audio/GuitarAudioEngine.h>
#include <fq/audio/OfflineRender.h>
#include <fq/audio/SerialQueue.h>
#include <fq/core/GuitarTuning.h>
#include <fq/documents/DataLocations.h>
#include <fq/personal/UserPreferences.h>
#include <fq/tuner/KVPitchRecognizer.h>
#include <fq/tuner/OfflinePitchTracker.h>
#include <fq/tuner/TunerDisplay.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;
using namespace std::chrono_literals;

constexpr auto activationTimeout = 5s;
/// How long a reference tone sounds.
constexpr auto toneLength = 2500ms;
/// A whole tuning's strings follow one another this far apart.
constexpr auto stringSpacing = 1500ms;
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
    if (!model.hasReading()) return "Listening…";
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

/// Shows each display change: a line redrawn in place on a terminal, one line each
/// otherwise, or one JSON object per line.
class TunerPrinter {
public:
    TunerPrinter(std::ostream& out, bool json)
        : out_(out), json_(json), inPlace_(!json && isatty(STDOUT_FILENO) != 0) {}

    void begin() {
        if (!json_ && inPlace_) draw("Listening…");
    }
    void show(const tuner::TunerDisplayModel& model) {
        if (json_)
            out_ << displayJson(model).dump() << "\n";
        else
            draw(gaugeLine(model));
        out_.flush();
        ++changes_;
    }
    void end() {
        if (!json_ && inPlace_) out_ << "\n";
        if (!json_ && changes_ == 0) out_ << "No pitch heard.\n";
        out_.flush();
    }

private:
    void draw(const std::string& line) {
        if (inPlace_)
            out_ << "\r\033[K" << line;
        else
            out_ << line << "\n";
        out_.flush();
    }

    std::ostream& out_;
    bool json_;
    bool inPlace_;
    int changes_ = 0;
};

void tuneFile(const std::string& fileText, bool fast, bool json, std::ostream& out) {
    const auto file = resolveFile(fileText);
    const auto audio = valueOrThrow(tuner::readMonoAudio(file));
    asio::io_context main;
    tuner::OfflinePitchTracker tracker(main, audio.sampleRate, documents::cacheDirectory());
    tuner::TunerDisplayModel model;
    TunerPrinter printer(out, json);
    printer.begin();
    valueOrThrow(tracker.start([&](double frequency, double seconds) {
        if (model.handleFrequency(frequency, seconds)) printer.show(model);
    }));
    const InterruptGuard interrupt;
    const auto started = std::chrono::steady_clock::now();
    tracker.feed(audio.samples, [&](double seconds) {
        if (fast || g_interrupted) return;
        std::this_thread::sleep_until(started +
                                      std::chrono::duration_cast<std::chrono::nanoseconds>(
                                          std::chrono::duration<double>(seconds)));
    });
    tracker.finish();
    printer.end();
}

void requireDevice(audio::AudioDirection direction) {
    const auto devices = valueOrThrow(audio::listAudioDevices());
    if (auto chosen = audio::chooseAudioDevice(devices, direction, audio::wantedAudioDevice());
        !chosen)
        throw CommandError(chosen.error().message);
}

/// Lets the device go as the shell does when nothing sounds any more.
void releaseSession(audio::AudioSessionManager& session) {
    session.setSceneActive(false);
    audio::GuitarAudioEngine::shared().suspendForBackground();
    bool released = false;
    session.applySessionActivity(false, audio::config::notifyOthersOnDeactivation,
                                 [&] { released = true; });
    audio::runMainUntil([&] { return released; }, activationTimeout);
}

void tuneLive(double duration, bool json, std::ostream& out) {
    requireDevice(audio::AudioDirection::input);
    auto& session = audio::AudioSessionManager::shared();
    tuner::DeviceCaptureSession capture;
    tuner::NoDrumEngine drums;
    const auto handler = std::make_shared<tuner::PitchRecognizerDelegateHandler>();
    const auto recognizer = tuner::KVPitchRecognizer::create(
        audio::mainContext().get_executor(), capture, drums, documents::cacheDirectory());
    recognizer->setDelegate(handler);
    tuner::TunerDisplayModel model;
    TunerPrinter printer(out, json);
    const auto clockStart = std::chrono::steady_clock::now();
    const auto now = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - clockStart).count();
    };
    recognizer->observeFrequency([&](double frequency) {
        if (model.handleFrequency(frequency, now())) printer.show(model);
    });

    const InterruptGuard interrupt;
    session.sceneDidBecomeActive();
    recognizer->start();
    if (!audio::runMainUntil([&] { return handler->isPatchOpened() || handler->patchError(); },
                             activationTimeout) ||
        handler->patchError()) {
        recognizer->stop();
        releaseSession(session);
        throw CommandError("The tuner could not start listening");
    }
    printer.begin();
    const auto limit = duration > 0 ? std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::duration<double>(duration))
                                    : std::chrono::milliseconds::max() / 2;
    audio::runMainUntil([] { return g_interrupted != 0; }, limit);

    recognizer->stop();
    bool tornDown = false;
    recognizer->tearDown([&] { tornDown = true; });
    audio::runMainUntil([&] { return tornDown; }, activationTimeout);
    releaseSession(session);
    printer.end();
}

/// "C#2", "Db2" and "c♯2" all name "C♯2".
std::string normalisedNoteTitle(std::string text) {
    if (!text.empty())
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    if (text.size() > 1 && text[1] == '#') text.replace(1, 1, "♯");
    if (text.size() > 1 && text[1] == 'b') text.replace(1, 1, "♭");
    return text;
}

struct Tone {
    core::GuitarTuning tuning;
    core::ReferenceToneButtonData button;
};

/// A string by its note ("A2", "C#2") or by its number, 1 being the highest string and
/// 6 the lowest, as guitarists count them.
Tone resolveTone(const std::string& tuningText, const std::string& stringText) {
    const auto tuning = core::guitarTuningFromIdentifier(tuningText);
    if (!tuning) throw CommandError(fmt::format("Unknown tuning: {}", tuningText));
    const auto& strings = core::tuningData(*tuning).referenceToneButtonData;
    if (stringText.size() == 1 && stringText[0] >= '1' && stringText[0] <= '6')
        return {*tuning, strings[static_cast<std::size_t>(6 - (stringText[0] - '0'))]};
    const auto wanted = normalisedNoteTitle(stringText);
    for (const auto& button : strings)
        if (button.buttonTitle == wanted) return {*tuning, button};
    std::string titles;
    for (const auto& button : strings)
        titles += (titles.empty() ? "" : ", ") + std::string(button.buttonTitle);
    throw CommandError(fmt::format("No string {} in {}: give 1 to 6 or one of {}", stringText,
                                   core::tuningData(*tuning).title, titles));
}

std::chrono::milliseconds soundingTime(std::size_t index, std::size_t count) {
    return index + 1 == count
               ? std::chrono::duration_cast<std::chrono::milliseconds>(toneLength)
               : std::chrono::duration_cast<std::chrono::milliseconds>(stringSpacing);
}

/// The notes one after another, as a row of reference tone buttons tapped in turn.
void renderTones(std::span<const int> notes, const std::string& file) {
    audio::ManualTimeline timeline;
    audio::SharedAudioEngine engine{timeline};
    engine.enableManualRenderingMode();
    const auto guitar = audio::GuitarAudioEngine::create(engine);
    audio::StereoBuffer all;
    for (std::size_t i = 0; i < notes.size(); ++i) {
        guitar->playChord(notes.subspan(i, 1));
        const auto frames = static_cast<std::int64_t>(
            engine.sampleRate() *
            std::chrono::duration<double>(soundingTime(i, notes.size())).count());
        auto part = audio::renderOffline(engine, timeline, frames);
        all.left.insert(all.left.end(), part.left.begin(), part.left.end());
        all.right.insert(all.right.end(), part.right.begin(), part.right.end());
    }
    valueOrThrow(audio::writeWav(file, all, engine.sampleRate()));
}

void playTones(std::span<const int> notes) {
    requireDevice(audio::AudioDirection::output);
    auto& session = audio::AudioSessionManager::shared();
    auto& guitar = audio::GuitarAudioEngine::shared();
    session.sceneDidBecomeActive();
    bool ready = false;
    session.refreshPlaybackActivation(false, [&] { ready = true; });
    if (!audio::runMainUntil([&] { return ready; }, activationTimeout) || !guitar.isEngineRunning())
        throw CommandError("The audio output did not start");
    for (std::size_t i = 0; i < notes.size(); ++i) {
        guitar.playChord(notes.subspan(i, 1));
        audio::runMainUntil([] { return false; }, soundingTime(i, notes.size()));
    }
    guitar.stopAllNotes();
    releaseSession(session);
}

Json stringsJson(std::span<const core::ReferenceToneButtonData> strings) {
    auto array = Json::array();
    for (const auto& string : strings)
        array.push_back({{"buttonTitle", string.buttonTitle}, {"noteNumber", string.noteNumber}});
    return array;
}

/// The rows of reference tones the tuner offers: the enabled tunings, in catalogue order.
void listEnabledTones(bool json, std::ostream& out) {
    const auto enabled = personal::UserPreferences(appStore()).enabledTunings();
    if (json) {
        auto rows = Json::array();
        for (const auto tuning : enabled) {
            const auto& data = core::tuningData(tuning);
            rows.push_back({{"id", core::identifier(tuning)},
                            {"title", data.title},
                            {"description", data.description},
                            {"strings", stringsJson(data.referenceToneButtonData)}});
        }
        out << rows.dump() << "\n";
        return;
    }
    if (enabled.empty()) {
        out << "No tuning is enabled (fretquill tunings lists them all).\n";
        return;
    }
    for (const auto tuning : enabled) {
        const auto& data = core::tuningData(tuning);
        std::string titles;
        for (const auto& string : data.referenceToneButtonData)
            titles += (titles.empty() ? "" : " ") + std::string(string.buttonTitle);
        out << fmt::format("{:<15} {:<24} {}\n", core::identifier(tuning), data.title, titles);
    }
}

} // namespace

void addTunerCommands(CLI::App& app, CommandContext& context) {
    struct TuneOptions {
        std::string input;
        bool fast = false;
        bool json = false;
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
    tuneCommand->callback([&context, tuneOptions] {
        *context.action = [&context, tuneOptions] {
            if (tuneOptions->fast && tuneOptions->input.empty())
                throw CommandError("--fast needs --input FILE.wav");
            if (!tuneOptions->input.empty())
                tuneFile(tuneOptions->input, tuneOptions->fast, tuneOptions->json, context.out);
            else
                tuneLive(tuneOptions->duration, tuneOptions->json, context.out);
            return 0;
        };
    });

    struct ToneOptions {
        std::string tuning;
        std::string string;
        std::string render;
        bool json = false;
    };
    auto toneOptions = std::make_shared<ToneOptions>();
    const auto playWholeTuning = [](const ToneOptions& options, std::ostream& out) {
        const auto tuning = core::guitarTuningFromIdentifier(options.tuning);
        if (!tuning) throw CommandError(fmt::format("Unknown tuning: {}", options.tuning));
        const auto& data = core::tuningData(*tuning);
        std::vector<int> notes;
        std::string titles;
        for (const auto& string : data.referenceToneButtonData) {
            notes.push_back(string.noteNumber);
            titles += (titles.empty() ? "" : " ") + std::string(string.buttonTitle);
        }
        if (!options.render.empty())
            renderTones(notes, options.render);
        else
            playTones(notes);
        if (options.json)
            out << Json{{"tuning", core::identifier(*tuning)},
                        {"title", data.title},
                        {"strings", stringsJson(data.referenceToneButtonData)},
                        {"rendered", options.render.empty() ? Json() : Json(options.render)}}
                       .dump()
                << "\n";
        else
            out << fmt::format("{} {} of {}{}\n", options.render.empty() ? "Played" : "Rendered",
                               titles, data.title,
                               options.render.empty() ? "" : " to " + options.render);
    };
    auto* toneCommand = app.add_subcommand(
        "tone", "Play the reference tone of one string of a tuning on the guitar");
    toneCommand->add_option("TUNING", toneOptions->tuning,
                            "The tuning: standard, dropD, dadgad, … (none: list the enabled "
                            "tunings' reference tones)");
    toneCommand->add_option("STRING", toneOptions->string,
                            "The string: its note (E2, C#2) or its number, 1 (highest) to 6 "
                            "(none: all six in turn)");
    toneCommand->add_option("--render", toneOptions->render,
                            "Write the tone to this WAV file instead of playing it");
    toneCommand->add_flag("--json", toneOptions->json, "Print JSON");
    toneCommand->callback([&context, toneOptions, playWholeTuning] {
        *context.action = [&context, toneOptions, playWholeTuning] {
            if (toneOptions->tuning.empty()) {
                listEnabledTones(toneOptions->json, context.out);
                return 0;
            }
            if (toneOptions->string.empty()) {
                playWholeTuning(*toneOptions, context.out);
                return 0;
            }
            const auto tone = resolveTone(toneOptions->tuning, toneOptions->string);
            const int notes[] = {tone.button.noteNumber};
            if (!toneOptions->render.empty())
                renderTones(notes, toneOptions->render);
            else
                playTones(notes);
            const auto& data = core::tuningData(tone.tuning);
            if (toneOptions->json) {
                context.out << Json{{"tuning", core::identifier(tone.tuning)},
                                    {"title", data.title},
                                    {"buttonTitle", tone.button.buttonTitle},
                                    {"noteNumber", tone.button.noteNumber},
                                    {"rendered", toneOptions->render.empty()
                                                     ? Json()
                                                     : Json(toneOptions->render)}}
                                   .dump()
                            << "\n";
            } else {
                context.out << fmt::format(
                    "{} {} of {} (MIDI {}){}\n",
                    toneOptions->render.empty() ? "Played" : "Rendered", tone.button.buttonTitle,
                    data.title, tone.button.noteNumber,
                    toneOptions->render.empty() ? "" : " to " + toneOptions->render);
            }
            return 0;
        };
    });
}

} // namespace fq::cli
