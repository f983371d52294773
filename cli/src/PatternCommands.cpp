// The `patterns` command: the pattern catalogue as text with its letters explained, or JSON.
#include "PatternCommands.h"

#include "CommandSupport.h"
#include "ListText.h"

#include <fq/core/AccompanimentPatterns.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <array>
#include <memory>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;

std::string_view durationLetter(core::NoteDuration duration) {
    constexpr std::array<std::string_view, 6> letters{"sb", "m", "c", "q", "s", "d"};
    return letters[static_cast<std::size_t>(duration)];
}

std::string stepsText(const core::BassPattern& pattern) {
    std::vector<std::string> steps;
    for (const auto& note : pattern.bassNotes)
        steps.push_back(fmt::format("{} {} {}", durationLetter(note.noteDuration),
                                    core::caseName(note.pitch), note.noteVelocity));
    return fmt::format("{}", fmt::join(steps, ", "));
}

std::string stepsText(const core::DrumPattern& pattern) {
    std::vector<std::string> steps;
    for (const auto& step : pattern.drumNotes) {
        std::vector<std::string> hits;
        for (const auto& hit : step.drumMIDINote)
            hits.push_back(fmt::format("{} {}", core::caseName(hit.noteType), hit.noteVelocity));
        steps.push_back(
            fmt::format("{} {}", durationLetter(step.noteDuration), fmt::join(hits, " + ")));
    }
    return fmt::format("{}", fmt::join(steps, "; "));
}

std::string stepsText(const core::ArpeggioSequence& sequence) {
    std::vector<std::string> steps;
    for (const auto& step : sequence.sequence) {
        std::vector<std::string> notes;
        for (const auto& note : step)
            notes.push_back(fmt::format("{} {} {}", durationLetter(note.noteDuration),
                                        core::caseName(note.arpeggioDirection), note.noteVelocity));
        steps.push_back(fmt::format("{}", fmt::join(notes, " + ")));
    }
    return fmt::format("{}", fmt::join(steps, "; "));
}

void printPatterns(std::ostream& out) {
    out << "Picking patterns (duration, direction, velocity; + sounds together)\n\n";
    for (const auto& sequence : core::arpeggioSequences()) {
        std::vector<std::string> bass, drums;
        for (const auto& b : sequence.associatedBassPatterns)
            bass.push_back(b.bassPattern.name);
        for (const auto& d : sequence.associatedDrumPatterns)
            drums.push_back(d.drumPattern.name);
        out << fmt::format("  {:<10} {}\n", sequence.name, core::rawValue(sequence.timeSignature));
        out << wrapped(stepsText(sequence), 78, "    ") << "\n";
        out << wrappedItems(bass, 78, "    bass:  ", "           ") << "\n";
        out << wrappedItems(drums, 78, "    drums: ", "           ") << "\n\n";
    }
    out << "Bass patterns\n\n";
    for (const auto& pattern : core::bassPatterns())
        out << fmt::format("  {:<12} {}  {}\n", pattern.name, core::rawValue(pattern.timeSignature),
                           stepsText(pattern));
    out << "\nDrum patterns\n\n";
    for (const auto& pattern : core::drumPatterns()) {
        out << fmt::format("  {:<15} {}\n", pattern.name, core::rawValue(pattern.timeSignature));
        out << wrapped(stepsText(pattern), 78, "    ") << "\n";
    }
    out << "\nDurations: m minim, c crochet, q quaver, s semiquaver, d demisemiquaver.\n"
           "Directions: t thumb on the bass string, d a treble string picked going down,\n"
           "  u a treble string picked going up, b a brush across the treble strings,\n"
           "  iii the third string, r a rest.\n";
}

template <typename T>
Json jsonArray(const std::vector<T>& items) {
    Json array = Json::array();
    for (const auto& item : items)
        array.push_back(core::toJson(item));
    return array;
}

} // namespace

void addPatternCommands(CLI::App& app, CommandContext& context) {
    auto json = std::make_shared<bool>(false);
    auto* command = app.add_subcommand(
        "patterns", "The jam's picking, bass and drum patterns, with the ones that go together");
    command->add_flag("--json", *json, "Print JSON");
    command->callback([&context, json] {
        *context.action = [&context, json] {
            if (*json)
                context.out << Json{{"arpeggioSequences", jsonArray(core::arpeggioSequences())},
                                    {"bassPatterns", jsonArray(core::bassPatterns())},
                                    {"drumPatterns", jsonArray(core::drumPatterns())}}
                                   .dump()
                            << "\n";
            else
                printPatterns(context.out);
            return 0;
        };
    });
}

} // namespace fq::cli
