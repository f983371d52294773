// The `progression` and `progressions` commands: numerals as typed, in a key, and the catalogue.
#include "ProgressionCommands.h"

#include "CommandSupport.h"
#include "ListText.h"

#include <fq/core/ChordProgressions.h>
#include <fq/core/TypedInput.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <memory>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;
namespace Progressions = core::ChordProgressions;

std::string modeFrom(const std::string& mode) {
    if (mode != "major" && mode != "minor")
        throw CommandError(fmt::format("Unknown mode: {} (choose major or minor)", mode));
    return mode;
}

/// A description as the catalogue writes it, with the placeholders' hyphens removed.
std::string plainDescription(std::string_view description) {
    std::string text(description);
    for (auto found = text.find("--"); found != std::string::npos; found = text.find("--", found))
        text.erase(found, 2);
    return text;
}

void printProgressions(std::ostream& out, std::string_view heading,
                       const std::vector<core::ChordProgression>& records) {
    out << heading << "\n\n";
    for (const auto& record : records) {
        std::vector<std::string_view> styles;
        for (const auto style : record.styles)
            styles.push_back(core::rawValue(style));
        out << fmt::format("  {:<16} {}\n", record.progression, fmt::join(styles, ", "));
        out << wrapped(plainDescription(record.description), 78, "    ") << "\n\n";
    }
}

struct ProgressionOptions {
    std::string numerals;
    std::string key;
    std::string mode = "major";
    bool json = false;
    CLI::App* command = nullptr;
};

int runProgression(std::ostream& out, const ProgressionOptions& options) {
    const auto key = valueOrThrow(core::keyFromText(options.key));
    std::string mode = key.mode.value_or("major");
    if (options.command->count("--mode") > 0) {
        mode = modeFrom(options.mode);
        if (key.mode && *key.mode != mode)
            throw CommandError(
                fmt::format("The key {} is {}, but --mode says {}", options.key, *key.mode, mode));
    }
    const auto typed = valueOrThrow(core::progressionFromText(key.tonic, mode, options.numerals));
    std::vector<std::string> names;
    for (const auto& chord : typed.chords)
        names.push_back(std::string(core::rawValue(chord.rootNote)) + " " + chord.chordType);
    const auto description = Progressions::filledDescription(typed.numerals, key.tonic, mode);
    if (options.json) {
        out << Json{{"chords", chordArray(typed.chords)},
                    {"names", names},
                    {"description", description}}
                   .dump()
            << "\n";
        return 0;
    }
    out << fmt::format("{} in {} {}\n\n", typed.numerals, core::rawValue(key.tonic), mode);
    if (names.empty())
        out << "  No chord can be spelled from these numerals.\n";
    else
        out << fmt::format("  {}\n", fmt::join(names, "  –  "));
    if (!description.empty()) out << "\n" << wrapped(description, 78, "  ") << "\n";
    return 0;
}

} // namespace

void addProgressionCommands(CLI::App& app, CommandContext& context) {
    auto progression = std::make_shared<ProgressionOptions>();
    auto* progressionCommand = app.add_subcommand(
        "progression", "The chords of a progression in Roman numerals, in a key");
    progression->command = progressionCommand;
    progressionCommand
        ->add_option("NUMERALS", progression->numerals,
                     "Numerals joined by -, commas or blanks, with suffixes as on a chart: "
                     "I-V-vi-IV, \"ii7 V7 Imaj7\", \"i ♭VII ♭VI V7\", vii°, iiø")
        ->required();
    progressionCommand
        ->add_option("--key", progression->key,
                     "The key's note, m for a minor key: C, F#, B♭, Am, f#m")
        ->required();
    progressionCommand->add_option("--mode", progression->mode,
                                   "major (the default) or minor; a key like Am says minor");
    progressionCommand->add_flag("--json", progression->json, "Print JSON");
    progressionCommand->callback([&context, progression] {
        *context.action = [&context, progression] {
            return runProgression(context.out, *progression);
        };
    });

    struct ProgressionsOptions {
        std::string mode;
        bool json = false;
    };
    auto progressions = std::make_shared<ProgressionsOptions>();
    auto* progressionsCommand =
        app.add_subcommand("progressions", "The catalogue of progressions, in display order");
    progressionsCommand->add_option("--mode", progressions->mode,
                                    "Only major or only minor progressions");
    progressionsCommand->add_flag("--json", progressions->json, "Print JSON");
    progressionsCommand->callback([&context, progressions, progressionsCommand] {
        *context.action = [&context, progressions, progressionsCommand] {
            std::vector<std::string> modes{"major", "minor"};
            if (progressionsCommand->count("--mode") > 0) modes = {modeFrom(progressions->mode)};
            Json all = Json::array();
            for (const auto& mode : modes) {
                const auto records = Progressions::all(mode);
                if (progressions->json)
                    for (const auto& record : records)
                        all.push_back(core::toJson(record));
                else
                    printProgressions(context.out, mode == "major" ? "Major keys" : "Minor keys",
                                      records);
            }
            if (progressions->json)
                context.out << all.dump() << "\n";
            else
                context.out << "In a key: fretquill progression I-V-vi-IV --key G\n";
            return 0;
        };
    });
}

} // namespace fq::cli
