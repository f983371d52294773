// `fretquill tone`: a tuning's reference tones, played, rendered or listed.

#include "ToneCommands.h"

#include "CommandSupport.h"
#include "DevicePlayback.h"

#include <fq/audio/OfflineRender.h>
#include <fq/core/GuitarTuning.h>
#include <fq/personal/UserPreferences.h>
#include <fq/tuner/ReferenceTones.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <memory>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;

core::GuitarTuning tuningNamed(const std::string& text) {
    const auto tuning = core::guitarTuningFromIdentifier(text);
    if (!tuning) throw CommandError(fmt::format("Unknown tuning: {}", text));
    return *tuning;
}

/// Renders the notes to `file`, or plays them when there is none.
void playOrRender(std::span<const int> notes, const std::string& file) {
    const auto parts = tuner::referenceToneParts(notes);
    if (file.empty()) {
        requireDevice(audio::AudioDirection::output);
        playOnDevice(parts);
        return;
    }
    const auto rendered = audio::renderGuitar(parts);
    valueOrThrow(audio::writeWav(file, rendered.audio, rendered.sampleRate));
}

Json stringsJson(std::span<const core::ReferenceToneButtonData> strings) {
    auto array = Json::array();
    for (const auto& string : strings)
        array.push_back({{"buttonTitle", string.buttonTitle}, {"noteNumber", string.noteNumber}});
    return array;
}

std::string titlesOf(std::span<const core::ReferenceToneButtonData> strings) {
    std::string titles;
    for (const auto& string : strings)
        titles += (titles.empty() ? "" : " ") + std::string(string.buttonTitle);
    return titles;
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
        out << fmt::format("{:<15} {:<24} {}\n", core::identifier(tuning), data.title,
                           titlesOf(data.referenceToneButtonData));
    }
}

struct ToneOptions {
    std::string tuning;
    std::string string;
    std::string render;
    bool json = false;
};

void tone(const ToneOptions& options, std::ostream& out) {
    const auto tuning = tuningNamed(options.tuning);
    const auto& data = core::tuningData(tuning);
    const Json rendered = options.render.empty() ? Json() : Json(options.render);
    const std::string verb = options.render.empty() ? "Played" : "Rendered";
    const std::string where = options.render.empty() ? "" : " to " + options.render;
    if (options.string.empty()) {
        std::vector<int> notes;
        for (const auto& string : data.referenceToneButtonData)
            notes.push_back(string.noteNumber);
        playOrRender(notes, options.render);
        if (options.json)
            out << Json{{"tuning", core::identifier(tuning)},
                        {"title", data.title},
                        {"strings", stringsJson(data.referenceToneButtonData)},
                        {"rendered", rendered}}
                       .dump()
                << "\n";
        else
            out << fmt::format("{} {} of {}{}\n", verb, titlesOf(data.referenceToneButtonData),
                               data.title, where);
        return;
    }
    const auto button = valueOrThrow(tuner::findReferenceTone(tuning, options.string));
    const int notes[] = {button.noteNumber};
    playOrRender(notes, options.render);
    if (options.json)
        out << Json{{"tuning", core::identifier(tuning)},
                    {"title", data.title},
                    {"buttonTitle", button.buttonTitle},
                    {"noteNumber", button.noteNumber},
                    {"rendered", rendered}}
                   .dump()
            << "\n";
    else
        out << fmt::format("{} {} of {} (MIDI {}){}\n", verb, button.buttonTitle, data.title,
                           button.noteNumber, where);
}

} // namespace

void addToneCommand(CLI::App& app, CommandContext& context) {
    auto toneOptions = std::make_shared<ToneOptions>();
    auto* toneCommand = app.add_subcommand(
        "tone", "Play the reference tone of one string of a tuning on the guitar");
    toneCommand->add_option("TUNING", toneOptions->tuning,
                            "The tuning: standard, dropD, dadgad, … (none: list the enabled "
                            "tunings' reference tones)");
    toneCommand->add_option("STRING", toneOptions->string,
                            "The string: its number, 1 (highest) to 6 (lowest), or its note "
                            "(E2, C#2, or A when the tuning has one A string) (none: all six "
                            "in turn)");
    toneCommand->add_option("--render", toneOptions->render,
                            "Write the tone to this WAV file instead of playing it");
    toneCommand->add_flag("--json", toneOptions->json, "Print JSON");
    toneCommand->callback([&context, toneOptions] {
        *context.action = [&context, toneOptions] {
            if (toneOptions->tuning.empty())
                listEnabledTones(toneOptions->json, context.out);
            else
                tone(*toneOptions, context.out);
            return 0;
        };
    });
}

} // namespace fq::cli
