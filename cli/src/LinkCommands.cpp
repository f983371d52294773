#include "LinkCommands.h"

#include "ChordInput.h"
#include "CommandSupport.h"
#include "FretDiagram.h"

#include <fq/core/ChordDataManager.h>
#include <fq/navigation/ChordURLParser.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;
namespace links = navigation::ChordURLParser;

Json routeJson(const links::ParsedChordRoute& route) {
    const auto orNull = [](const auto& value) { return value ? Json(*value) : Json(); };
    return {{"chord", core::toJson(route.chord)},
            {"chordSlug", route.chordSlug},
            {"bassNote", route.bassNote ? Json(core::rawValue(*route.bassNote)) : Json()},
            {"bassSlug", orNull(route.bassSlug)},
            {"selectedPosition", orNull(route.selectedPosition)}};
}

} // namespace

void addLinkCommands(CLI::App& app, CommandContext& context) {
    auto* link = app.add_subcommand("link", "Web links to chords: read one, or make one to share");
    link->require_subcommand(1);

    struct ParseOptions {
        std::string url;
        bool json = false;
    };
    auto parse = std::make_shared<ParseOptions>();
    auto* parseCommand =
        link->add_subcommand("parse", "Which chord (inversion, shape) a link points at");
    parseCommand
        ->add_option("URL", parse->url,
                     "A link such as https://fretquill.app/chords/c-major/e/x32010")
        ->required();
    parseCommand->add_flag("--json", parse->json, "Print JSON");
    parseCommand->callback([&context, parse] {
        *context.action = [&context, parse] {
            const auto route = links::parseChordURL(parse->url);
            if (!route) throw CommandError(fmt::format("Not a chord link: {}", parse->url));
            if (parse->json) {
                context.out << routeJson(*route).dump() << "\n";
            } else {
                const auto& chord = route->chord;
                context.out << core::ChordDataManager::shared().name(
                    chord.rootNote, chord.chordType, chord.variant);
                if (route->selectedPosition)
                    context.out << "  " << compactFrets(*route->selectedPosition);
                context.out << "\n";
            }
            return 0;
        };
    });

    struct MakeOptions {
        ChordSelection chord;
        std::string fingering;
        bool json = false;
    };
    auto make = std::make_shared<MakeOptions>();
    auto* makeCommand = link->add_subcommand("make", "The web link that opens a chord, to share");
    make->chord.addOptions(makeCommand);
    makeCommand->add_option("--fingering", make->fingering,
                            "A shape to open with the chord: x,3,2,0,1,0 or the link's code "
                            "x32010 (a-z for frets 10 to 35)");
    makeCommand->add_flag("--json", make->json, "Print JSON");
    makeCommand->callback([&context, make] {
        *context.action = [&context, make] {
            const auto chord = make->chord.resolve();
            std::optional<std::vector<int>> frets;
            if (!make->fingering.empty()) frets = valueOrThrow(fretsFromText(make->fingering));
            // a link that mutes every string would not open again
            if (frets && std::all_of(frets->begin(), frets->end(), [](int f) { return f < 0; }))
                throw CommandError(
                    fmt::format("A shape needs a sounding string: {}", make->fingering));
            const auto url = frets ? links::chordWebURL(chord, *frets) : links::chordWebURL(chord);
            if (make->json)
                context.out << Json{{"url", url}}.dump() << "\n";
            else
                context.out << url << "\n";
            return 0;
        };
    });
}

} // namespace fq::cli
