// `fretquill play` and `fretquill audio devices`: options and printing over the guitar and
// the device list.

#include "AudioCommands.h"

#include "ChordInput.h"
#include "CommandSupport.h"
#include "DevicePlayback.h"
#include "FretDiagram.h"

#include <fq/audio/AudioDevices.h>
#include <fq/audio/ChordSound.h>
#include <fq/audio/OfflineRender.h>
#include <fq/core/ChordDataManager.h>
#include <fq/core/ChordPositions.h>
#include <fq/core/GuitarTuning.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <memory>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;

struct ChordSound {
    core::Chord chord;
    std::vector<int> frets;
    std::vector<int> notes;
};

/// The open strings of a tuning given by name or as six notes.
std::array<int, 6> openStrings(std::string_view tuningText) {
    if (const auto named = core::guitarTuningFromIdentifier(tuningText))
        return audio::openStringNotes(*named);
    const auto names = valueOrThrow(tuningFromText(tuningText));
    const auto notes = audio::openStringNotes(names);
    if (!notes) throw CommandError(fmt::format("Unknown tuning: {}", tuningText));
    return *notes;
}

ChordSound chordSound(const ChordSelection& selection, const std::string& fretsText,
                      const std::string& tuningText) {
    ChordSound sound{selection.resolve(), {}, {}};
    const auto strings = openStrings(tuningText);
    if (!fretsText.empty()) {
        sound.frets = valueOrThrow(fretsFromText(fretsText));
    } else {
        const auto names = valueOrThrow(tuningFromText(tuningText));
        const std::vector<std::string_view> tuning(names.begin(), names.end());
        useShapeMemo();
        const auto shapes = core::positions(sound.chord.rootNote, sound.chord.chordType,
                                            sound.chord.variant, 1, tuning);
        if (shapes.empty())
            throw CommandError(
                fmt::format("No shape of {} in this tuning; give one with --frets",
                            core::ChordDataManager::shared().name(
                                sound.chord.rootNote, sound.chord.chordType, sound.chord.variant)));
        sound.frets = shapes.front().position;
    }
    sound.notes = audio::chordNotes(sound.frets, strings);
    if (sound.notes.empty()) throw CommandError("Nothing to play: every string is muted");
    return sound;
}

Json soundJson(const ChordSound& sound, const std::string& rendered) {
    return Json{{"chord", core::toJson(sound.chord)},
                {"position", sound.frets},
                {"notes", sound.notes},
                {"rendered", rendered.empty() ? Json() : Json(rendered)}};
}

std::string describe(const ChordSound& sound) {
    return fmt::format("{} ({}): MIDI notes {}",
                       core::ChordDataManager::shared().name(
                           sound.chord.rootNote, sound.chord.chordType, sound.chord.variant),
                       compactFrets(sound.frets), fmt::join(sound.notes, " "));
}

/// Renders the strum to a WAV file, or plays it through the device.
void playOrRender(const ChordSound& sound, const std::string& file) {
    const audio::TimedNotes strum[] = {{sound.notes, audio::config::chordLength}};
    if (file.empty()) {
        requireDevice(audio::AudioDirection::output,
                      "; write the sound to a file with --render FILE.wav");
        playOnDevice({std::begin(strum), std::end(strum)});
        return;
    }
    const auto rendered = audio::renderGuitar(strum);
    valueOrThrow(audio::writeWav(file, rendered.audio, rendered.sampleRate));
}

Json devicesJson(const std::vector<audio::AudioDeviceInfo>& devices) {
    auto array = Json::array();
    for (const auto& device : devices)
        array.push_back({{"index", device.index},
                         {"name", device.name},
                         {"hostApi", device.hostApi},
                         {"maxInputChannels", device.maxInputChannels},
                         {"maxOutputChannels", device.maxOutputChannels},
                         {"defaultSampleRate", device.defaultSampleRate},
                         {"isDefaultInput", device.isDefaultInput},
                         {"isDefaultOutput", device.isDefaultOutput}});
    return array;
}

void printDevices(std::ostream& out, const std::vector<audio::AudioDeviceInfo>& devices) {
    if (devices.empty()) {
        out << "No audio devices.\n";
        return;
    }
    for (const auto& device : devices) {
        std::vector<std::string> roles;
        if (device.isDefaultOutput) roles.emplace_back("default output");
        if (device.isDefaultInput) roles.emplace_back("default input");
        out << fmt::format("{:>3}  {:<32} {:<6} {:>3} in {:>3} out  {:>6g} Hz{}\n", device.index,
                           device.name, device.hostApi, device.maxInputChannels,
                           device.maxOutputChannels, device.defaultSampleRate,
                           roles.empty() ? "" : fmt::format("  ({})", fmt::join(roles, ", ")));
    }
    const auto wanted = audio::wantedAudioDevice();
    for (const auto direction : {audio::AudioDirection::output, audio::AudioDirection::input}) {
        const auto chosen = audio::chooseAudioDevice(devices, direction, wanted);
        out << fmt::format("\nfretquill {}: {}",
                           direction == audio::AudioDirection::output ? "plays through"
                                                                      : "listens on",
                           chosen ? chosen->name : chosen.error().message);
    }
    out << fmt::format("\n(set {} to choose another)\n", audio::config::audioDeviceVariable);
}

} // namespace

void addAudioCommands(CLI::App& app, CommandContext& context) {
    struct PlayOptions {
        ChordSelection chord;
        std::string frets;
        std::string tuning = "standard";
        std::string render;
        bool json = false;
    };
    auto playOptions = std::make_shared<PlayOptions>();
    auto* playCommand = app.add_subcommand(
        "play", "Strum a chord on the guitar, or render the strum to a WAV file");
    playOptions->chord.addOptions(playCommand);
    playCommand->add_option(
        "--frets", playOptions->frets,
        "The shape to play, lowest string first: x32010 or x,3,2,0,1,0 (default: the first shape)");
    playCommand->add_option(
        "--tuning", playOptions->tuning,
        "A tuning by name (dropD, dadgad, …) or six open notes, lowest string first");
    playCommand->add_option("--render", playOptions->render,
                            "Write the strum to this WAV file instead of playing it");
    playCommand->add_flag("--json", playOptions->json, "Print JSON");
    playCommand->callback([&context, playOptions] {
        *context.action = [&context, playOptions] {
            const auto sound =
                chordSound(playOptions->chord, playOptions->frets, playOptions->tuning);
            playOrRender(sound, playOptions->render);
            if (playOptions->json)
                context.out << soundJson(sound, playOptions->render).dump() << "\n";
            else if (!playOptions->render.empty())
                context.out << fmt::format("Rendered {} to {}\n", describe(sound),
                                           playOptions->render);
            else
                context.out << fmt::format("Played {}\n", describe(sound));
            return 0;
        };
    });

    auto* audioCommand = app.add_subcommand("audio", "The sound devices");
    audioCommand->require_subcommand(1);
    auto devicesJsonFlag = std::make_shared<bool>(false);
    auto* devicesCommand =
        audioCommand->add_subcommand("devices", "List the audio devices and which ones are used");
    devicesCommand->add_flag("--json", *devicesJsonFlag, "Print JSON");
    devicesCommand->callback([&context, devicesJsonFlag] {
        *context.action = [&context, devicesJsonFlag] {
            const auto devices = valueOrThrow(audio::listAudioDevices());
            if (*devicesJsonFlag)
                context.out << devicesJson(devices).dump() << "\n";
            else
                printDevices(context.out, devices);
            return 0;
        };
    });
}

} // namespace fq::cli
