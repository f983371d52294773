// The library commands: tunings, settings, favourites and collections.

#include "LibraryCommands.h"

#include "CommandSupport.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/GuitarTuning.h>
#include <fq/personal/PreferenceKeys.h>
#include <fq/personal/UserLibraryStore.h>
#include <fq/personal/UserPreferences.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <memory>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;
using personal::FretquillUserLibraryStore;

std::string chordName(const core::Chord& chord) {
    return core::ChordDataManager::shared().name(chord.rootNote, chord.chordType, chord.variant);
}

Json tuningsJson(const std::vector<core::TuningGroup>& groups) {
    auto result = Json::array();
    for (const auto& group : groups) {
        auto tunings = Json::array();
        for (const auto tuning : group.tunings) {
            const auto& data = core::tuningData(tuning);
            auto strings = Json::array();
            for (const auto& string : data.referenceToneButtonData)
                strings.push_back(
                    {{"buttonTitle", string.buttonTitle}, {"noteNumber", string.noteNumber}});
            tunings.push_back({{"id", core::identifier(tuning)},
                               {"title", data.title},
                               {"description", data.description},
                               {"strings", strings}});
        }
        result.push_back({{"header", group.header}, {"tunings", tunings}});
    }
    return result;
}

void printTunings(std::ostream& out, const std::vector<core::TuningGroup>& groups) {
    if (groups.empty()) {
        out << "No tuning matches.\n";
        return;
    }
    std::set<core::GuitarTuning> enabled;
    try {
        enabled = personal::UserPreferences(appStore()).enabledTunings();
    } catch (const CommandError&) {
        // without a store there is nothing to mark
    }
    for (const auto& group : groups) {
        out << group.header << "\n";
        for (const auto tuning : group.tunings) {
            const auto& data = core::tuningData(tuning);
            std::vector<std::string_view> strings;
            for (const auto& string : data.referenceToneButtonData)
                strings.push_back(string.buttonTitle);
            out << fmt::format("  {} {:<15} {:<24} {}\n", enabled.count(tuning) ? "✓" : " ",
                               core::identifier(tuning), data.title, fmt::join(strings, " "));
            out << fmt::format("    {:<15} {}\n", "", data.description);
        }
        out << "\n";
    }
}

Json chordsJson(const std::vector<core::Chord>& chords) {
    auto array = Json::array();
    for (const auto& chord : chords)
        array.push_back(core::toJson(chord));
    return array;
}

Json collectionsJson(const std::vector<personal::ChordCollection>& collections) {
    auto array = Json::array();
    for (const auto& collection : collections)
        array.push_back(personal::toJson(collection));
    return array;
}

void printChords(std::ostream& out, const std::vector<core::Chord>& chords, std::string_view none) {
    if (chords.empty()) out << none << "\n";
    for (const auto& chord : chords)
        out << chordName(chord) << "\n";
}

void printCollections(std::ostream& out,
                      const std::vector<personal::ChordCollection>& collections) {
    if (collections.empty())
        out << "No collections yet. Make one with: fretquill collections create NAME\n";
    for (const auto& collection : collections) {
        std::vector<std::string> names;
        for (const auto& chord : collection.chords)
            names.push_back(chordName(chord));
        out << fmt::format("{}  {}\n  {}\n", printable(collection.title), printable(collection.id),
                           names.empty() ? std::string("(no chords yet)")
                                         : fmt::format("{}", fmt::join(names, ", ")));
    }
}

/// A stored value as a line of text: stored text may hold anything, so it is made printable.
std::string textOf(const nlohmann::json& value) {
    return value.is_string() ? printable(value.get<std::string>()) : value.dump();
}

} // namespace

void addLibraryCommands(CLI::App& app, CommandContext& context) {
    // tunings
    struct TuningsOptions {
        std::string search;
        bool json = false;
    };
    auto tunings = std::make_shared<TuningsOptions>();
    auto* tuningsCommand =
        app.add_subcommand("tunings", "The tunings, in their groups; ✓ marks the enabled ones");
    tuningsCommand->add_option("--search", tunings->search,
                               "Show only tunings whose title or description has this text");
    tuningsCommand->add_flag("--json", tunings->json, "Print JSON");
    tuningsCommand->callback([&context, tunings] {
        *context.action = [&context, tunings] {
            const auto groups = core::searchTunings(tunings->search);
            if (tunings->json)
                context.out << tuningsJson(groups).dump() << "\n";
            else
                printTunings(context.out, groups);
            return 0;
        };
    });

    // prefs
    auto* prefs = app.add_subcommand("prefs", "Read and change settings");
    prefs->require_subcommand(1);
    struct PrefsOptions {
        std::string key;
        std::string value;
        bool json = false;
        bool all = false;
    };
    const auto keyOf = [](const std::string& name) {
        const auto* key = personal::preferenceKey(name);
        if (!key) throw CommandError(fmt::format("Unknown preference: {}", name));
        return key;
    };
    const auto printValues = [&context](const Json& values, bool json) {
        if (json) {
            context.out << values.dump() << "\n";
            return;
        }
        for (const auto& [name, value] : values.items())
            context.out << fmt::format("{} = {}\n", name, textOf(value));
    };

    auto list = std::make_shared<PrefsOptions>();
    auto* listCommand = prefs->add_subcommand(
        "list", "Your settings with their values (the default where none is stored)");
    listCommand->add_flag("--all", list->all,
                          "Also the keys the program keeps for itself (always in --json)");
    listCommand->add_flag("--json", list->json, "Print JSON");
    listCommand->callback([&context, list, printValues] {
        *context.action = [&context, list, printValues] {
            const auto store = appStore();
            Json values = Json::object();
            std::size_t hidden = 0;
            for (const auto& key : personal::allPreferenceKeys()) {
                if (list->json || list->all || personal::isPersonalSetting(key))
                    values[std::string(personal::nameOf(key))] =
                        personal::currentValue(*store, key);
                else
                    ++hidden;
            }
            printValues(values, list->json);
            if (hidden > 0)
                context.out << fmt::format("({} keys the program keeps: prefs list --all)\n",
                                           hidden);
            return 0;
        };
    });

    auto get = std::make_shared<PrefsOptions>();
    auto* getCommand = prefs->add_subcommand("get", "One setting's value");
    getCommand->add_option("KEY", get->key, "The setting, e.g. a4Frequency")->required();
    getCommand->add_flag("--json", get->json, "Print JSON");
    getCommand->callback([&context, get, keyOf, printValues] {
        *context.action = [get, keyOf, printValues] {
            const auto* key = keyOf(get->key);
            printValues(Json{{get->key, personal::currentValue(*appStore(), *key)}}, get->json);
            return 0;
        };
    });

    auto set = std::make_shared<PrefsOptions>();
    auto* setCommand = prefs->add_subcommand("set", "Change a setting");
    setCommand->add_option("KEY", set->key, "The setting, e.g. a4Frequency")->required();
    setCommand
        ->add_option("VALUE", set->value,
                     "Its new value: a number, true or false, a note, text or JSON")
        ->required();
    setCommand->add_flag("--json", set->json, "Print JSON");
    setCommand->callback([&context, set, keyOf, printValues] {
        *context.action = [set, keyOf, printValues] {
            const auto* key = keyOf(set->key);
            valueOrThrow(personal::setFromText(*appStore(), *key, set->value));
            printValues(Json{{set->key, personal::currentValue(*appStore(), *key)}}, set->json);
            return 0;
        };
    });

    // favorites
    auto* favorites = app.add_subcommand("favorites", "Your favourite chords");
    favorites->alias("favourites");
    favorites->require_subcommand(1);
    struct ChordOptions {
        ChordSelection chord;
        std::string collection;
        std::string name;
        bool json = false;
    };
    const auto showFavorites = [&context](bool json) {
        const auto chords = FretquillUserLibraryStore(appStore()).favoriteChords();
        if (json)
            context.out << chordsJson(chords).dump() << "\n";
        else
            printChords(context.out, chords,
                        "No favourites yet. Add one with: fretquill favorites add Am7");
        return 0;
    };
    auto favoritesList = std::make_shared<ChordOptions>();
    auto* favoritesListCommand = favorites->add_subcommand("list", "List your favourites");
    favoritesListCommand->add_flag("--json", favoritesList->json, "Print JSON");
    favoritesListCommand->callback([&context, favoritesList, showFavorites] {
        *context.action = [favoritesList, showFavorites] {
            return showFavorites(favoritesList->json);
        };
    });
    for (const bool adding : {true, false}) {
        auto options = std::make_shared<ChordOptions>();
        auto* command = favorites->add_subcommand(
            adding ? "add" : "remove", adding ? "Make a chord a favourite" : "Remove a favourite");
        options->chord.addOptions(command);
        command->add_flag("--json", options->json, "Print JSON");
        command->callback([&context, options, showFavorites, adding] {
            *context.action = [options, showFavorites, adding] {
                const auto chord = options->chord.resolve();
                valueOrThrow(FretquillUserLibraryStore(appStore()).setFavorite(chord, adding));
                return showFavorites(options->json);
            };
        });
    }

    // collections
    auto* collections = app.add_subcommand("collections", "Your own collections of chords");
    collections->require_subcommand(1);
    const auto showCollections = [&context](bool json) {
        const auto all = FretquillUserLibraryStore(appStore()).collections();
        if (json)
            context.out << collectionsJson(all).dump() << "\n";
        else
            printCollections(context.out, all);
        return 0;
    };
    struct CollectionCommand {
        const char* name;
        const char* help;
        bool takesID;
        bool takesName;
        bool takesChord;
        std::function<tl::expected<void, Error>(FretquillUserLibraryStore&, const ChordOptions&)>
            run;
    };
    const std::vector<CollectionCommand> commands{
        {"list", "List your collections", false, false, false, {}},
        {"create", "Make a new collection", false, true, false,
         [](auto& library, const auto& o) -> tl::expected<void, Error> {
             auto created = library.createCollection(o.name);
             if (!created) return tl::unexpected(created.error());
             return {};
         }},
        {"rename", "Rename a collection", true, true, false,
         [](auto& library, const auto& o) {
             return library.renameCollection(o.collection, o.name);
         }},
        {"delete", "Delete a collection", true, false, false,
         [](auto& library, const auto& o) { return library.deleteCollection(o.collection); }},
        {"add", "Add a chord to a collection", true, false, true,
         [](auto& library, const auto& o) {
             return library.addChord(o.chord.resolve(), o.collection);
         }},
        {"remove", "Remove a chord from a collection", true, false, true,
         [](auto& library, const auto& o) {
             return library.removeChord(o.chord.resolve(), o.collection);
         }},
    };
    for (const auto& entry : commands) {
        auto options = std::make_shared<ChordOptions>();
        auto* command = collections->add_subcommand(entry.name, entry.help);
        if (entry.takesID)
            command
                ->add_option("ID", options->collection,
                             "The collection's id or title (collections list shows both)")
                ->required();
        if (entry.takesName)
            command->add_option("NAME", options->name, "The collection's name")->required();
        if (entry.takesChord) options->chord.addOptions(command);
        command->add_flag("--json", options->json, "Print JSON");
        command->callback([&context, options, showCollections, run = entry.run] {
            *context.action = [options, showCollections, run] {
                if (run) {
                    FretquillUserLibraryStore library(appStore());
                    valueOrThrow(run(library, *options));
                }
                return showCollections(options->json);
            };
        });
    }
}

} // namespace fq::cli
