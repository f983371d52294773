// `fretquill metronome`: its options, rendering to a file, and the presets.

#include "MetronomeCommands.h"

#include "CommandSupport.h"
#include "MetronomeLiveScreen.h"

#include <fq/metronome/MetronomePresets.h>
#include <fq/metronome/MetronomeRender.h>
#include <fq/metronome/MetronomeSettings.h>
#include <fq/personal/UserPreferences.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <optional>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;

struct MetronomeOptions {
    std::optional<long long> bpm;
    std::optional<long long> beats;
    std::optional<long long> subdivisions;
    std::optional<std::string> sound;
    std::optional<std::string> key;
    bool accent = false;
    bool noAccent = false;
    std::string render;
    std::optional<double> seconds;
    bool json = false;
    bool listen = false;
    bool verbose = false;
};

/// The person's stored settings, with what the options say instead.
metronome::MetronomeSettings settingsFor(const MetronomeOptions& options) {
    if (options.accent && options.noAccent)
        throw CommandError("Give --accent or --no-accent, not both");
    const auto store = appStore();
    const personal::UserPreferences preferences(store);
    metronome::MetronomeSettingsRequest request{options.bpm,   options.beats, options.subdivisions,
                                                options.sound, options.key,   std::nullopt};
    if (options.accent) request.accentFirstBeat = true;
    if (options.noAccent) request.accentFirstBeat = false;
    return valueOrThrow(
        metronome::withRequest(metronome::storedSettings(*store, preferences), request));
}

Json settingsJson(const metronome::MetronomeSettings& settings) {
    return Json{{"bpm", settings.bpm},
                {"beats", settings.beats},
                {"subdivisions", settings.subdivisions},
                {"sound", metronome::soundName(settings.sound)},
                {"key", metronome::keyNames[static_cast<std::size_t>(settings.keyIndex)]},
                {"accentFirstBeat", settings.accentFirstBeat}};
}

int render(std::ostream& out, const MetronomeOptions& options) {
    if (!options.seconds) throw CommandError("Give --seconds with --render");
    const auto settings = settingsFor(options);
    const auto frames =
        valueOrThrow(metronome::renderMetronome(settings, options.render, *options.seconds));
    if (options.json) {
        auto json = settingsJson(settings);
        json["rendered"] = options.render;
        json["frames"] = frames;
        out << json.dump() << "\n";
    } else {
        out << fmt::format("Rendered {:g} s at {} to {}\n", *options.seconds,
                           metronome::describe(settings), options.render);
    }
    return 0;
}

void printPresets(std::ostream& out, const std::vector<metronome::MetronomePreset>& presets,
                  bool json) {
    if (json) {
        auto array = Json::array();
        for (const auto& preset : presets)
            array.push_back(metronome::toJson(preset));
        out << array.dump() << "\n";
        return;
    }
    if (presets.empty()) out << "This list is empty\n";
    for (const auto& preset : presets)
        out << fmt::format("{}  {}\n", printable(preset.name), metronome::presetSummary(preset));
}

struct PresetOptions {
    std::string name;
    std::string newName;
    bool json = false;
};

using PresetStore = metronome::MetronomePresetStore;

/// One preset sub-command: what it takes, and what it does to the store.
struct PresetCommand {
    const char* name;
    const char* help;
    const char* argument;
    bool takesNewName;
    void (*run)(PresetStore&, const PresetOptions&, std::ostream&);
};

const PresetCommand presetCommands[] = {
    {"list", "List the presets", nullptr, false,
     [](PresetStore& store, const PresetOptions& o, std::ostream& out) {
         printPresets(out, store.list(), o.json);
     }},
    {"save", "Save the present tempo, beats and subdivisions under a name", "NAME", false,
     [](PresetStore& store, const PresetOptions& o, std::ostream& out) {
         valueOrThrow(store.saveCurrent(o.name));
         printPresets(out, store.list(), o.json);
     }},
    {"load", "Make a preset's tempo, beats and subdivisions the present ones", "NAME", false,
     [](PresetStore& store, const PresetOptions& o, std::ostream& out) {
         const auto preset = valueOrThrow(store.load(valueOrThrow(store.find(o.name))));
         if (o.json)
             out << metronome::toJson(preset).dump() << "\n";
         else
             out << fmt::format("Loaded {}: {}\n", printable(preset.name),
                                metronome::presetSummary(preset));
     }},
    {"rename", "Rename a preset", "OLD", true,
     [](PresetStore& store, const PresetOptions& o, std::ostream& out) {
         valueOrThrow(store.rename(valueOrThrow(store.find(o.name)).id, o.newName));
         printPresets(out, store.list(), o.json);
     }},
    {"delete", "Delete a preset", "NAME", false,
     [](PresetStore& store, const PresetOptions& o, std::ostream& out) {
         valueOrThrow(store.remove(valueOrThrow(store.find(o.name)).id));
         printPresets(out, store.list(), o.json);
     }},
    {"clear", "Delete every preset", nullptr, false,
     [](PresetStore& store, const PresetOptions& o, std::ostream& out) {
         valueOrThrow(store.clear());
         printPresets(out, store.list(), o.json);
     }},
};

} // namespace

void addMetronomeCommands(CLI::App& app, CommandContext& context) {
    auto options = std::make_shared<MetronomeOptions>();
    auto* command = app.add_subcommand(
        "metronome",
        "A sample-accurate metronome: clicks through the device, or rendered to a WAV file");
    command->add_option("--bpm", options->bpm, "Tempo, 30 to 300 (default: the last tempo)");
    command->add_option("--beats", options->beats, "Beats per bar, 1 to 16");
    command->add_option("--subdivisions", options->subdivisions, "Clicks per beat, 1 to 8");
    command->add_option("--sound", options->sound,
                        "real (recorded clicks), sine, triangle or square");
    command->add_option("--key", options->key,
                        "Pitch of the synth sounds: E (Low), F, F#/Gb … D#/Eb, E");
    command->add_flag("--accent", options->accent, "Accent the first beat of each bar");
    command->add_flag("--no-accent", options->noAccent, "Do not accent the first beat");
    command->add_option("--render", options->render,
                        "Write the clicks to this WAV file instead of playing them (RF64 "
                        "past 4 GB)");
    command->add_option("--seconds", options->seconds, "How long to render, or to play")
        ->check(CLI::Range(0.001, 86400.0));
    command->add_flag("--json", options->json, "Print JSON (one line per click while playing)");
    command->add_flag("--listen", options->listen,
                      "Listen to the player first and take the tempo heard (enter: play the "
                      "clicks, l: listen again, s: stop listening)");
    command->add_flag("--verbose", options->verbose,
                      "Also show the system's diagnostic lines on standard error");
    command->callback([&context, options, command] {
        if (!command->get_subcommands().empty()) return;
        *context.action = [&context, options] {
            if (!options->render.empty()) return render(context.out, *options);
            runLiveMetronome(context.out, {settingsFor(*options), options->seconds, options->json,
                                           options->listen, options->verbose});
            return 0;
        };
    });

    auto* presets = command->add_subcommand("presets", "Saved tempos and meters");
    presets->require_subcommand(1);
    for (const auto& entry : presetCommands) {
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
                PresetStore store(appStore());
                run(store, *presetOptions, context.out);
                return 0;
            };
        });
    }
}

} // namespace fq::cli
