// The navigation commands: following links and identifiers, searching the index.

#include "NavigationCommands.h"

#include "CommandSupport.h"
#include "FretDiagram.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/TodayChordLibrary.h>
#include <fq/navigation/LinkHandler.h>
#include <fq/navigation/SpotlightIndexer.h>
#include <fq/personal/PreferenceKeys.h>

#include <asio/io_context.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <set>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;
namespace nav = navigation;

std::string chordName(const core::Chord& chord) {
    return core::ChordDataManager::shared().name(chord.rootNote, chord.chordType, chord.variant);
}

Json routeJson(const nav::FretquillNavigationRoute& route) {
    if (const auto* chord = route.chord())
        return {{"kind", "chord"},
                {"chord", core::toJson(chord->chord)},
                {"selectedPosition",
                 chord->selectedPosition ? Json(*chord->selectedPosition) : Json()}};
    const auto& collection = *route.chordCollection();
    Json chords = Json::array();
    for (const auto& chord : collection.chords)
        chords.push_back(core::toJson(chord));
    Json preferred = Json::array();
    for (const auto& [chord, position] : collection.preferredPositions)
        preferred.push_back({{"chord", core::toJson(chord)}, {"position", position}});
    return {{"kind", "chordCollection"},
            {"collection",
             {{"id", collection.id},
              {"title", collection.title},
              {"subtitle", collection.subtitle},
              {"chords", chords},
              {"preferredPositions", preferred},
              {"allowsUserCollectionCreation", collection.allowsUserCollectionCreation}}}};
}

std::string buildVersion() {
    return std::string(FQ_VERSION) + " (" FQ_BUILD_NUMBER ")";
}

std::optional<core::Chord> todayChord(const personal::SharedStore& store) {
    const auto now = core::currentDateComponents();
    const std::chrono::year_month_day today{std::chrono::year{now.year},
                                            std::chrono::month{static_cast<unsigned>(now.month)},
                                            std::chrono::day{static_cast<unsigned>(now.day)}};
    const auto category =
        core::chordCategoryFromRawValue(personal::read(store, personal::keys::todayChordCategory))
            .value_or(core::ChordCategory::beginner);
    return core::TodayChordLibrary().chord(today, category);
}

/// The index of this run, brought up to date by its own rule: rebuilt in full when
/// the program, its language or the library changed, else only the person's
/// collections are refreshed, since they may have changed since the last run.
std::unique_ptr<nav::SqliteSearchIndex> readyIndex(bool forceRebuild) {
    auto opened = nav::SqliteSearchIndex::openDefault();
    if (!opened)
        throw CommandError(
            fmt::format("The search index cannot be opened: {}", opened.error().message));
    const auto store = appStore();
    nav::FretquillSpotlightIndexer indexer(**opened, store,
                                           {buildVersion(), nav::currentLanguageCode()});
    // an emptied cache folder needs the rebuild whatever the stored keys say
    if (forceRebuild || indexer.needsFullReindex() || (*opened)->count() == 0)
        indexer.reindexEverything(todayChord(*store));
    else
        indexer.reindexCollections();
    return std::move(*opened);
}

std::string linkOf(const nav::FretquillSearchIndexRecord& record) {
    return record.universalLink.value_or(record.appDeepLink.value_or(""));
}

} // namespace

void addNavigationCommands(CLI::App& app, CommandContext& context) {
    struct OpenOptions {
        std::string target;
        bool json = false;
    };
    auto open = std::make_shared<OpenOptions>();
    auto* openCommand =
        app.add_subcommand("open", "Follow a link or a search item identifier as the app would");
    openCommand
        ->add_option(
            "LINK-OR-IDENTIFIER", open->target,
            "https://fretquill.app/chords/…, fretquill://open?…, fretquill://spotlight/… or an "
            "identifier such as com.kelvane.fretquill.chord.guitar.standard.c.major")
        ->required();
    openCommand->add_flag("--json", open->json, "Print JSON");
    openCommand->callback([&context, open] {
        *context.action = [&context, open] {
            const auto store = appStore();
            std::vector<std::string> written;
            auto token = store->addObserver([&](std::string_view key) {
                if (std::find(written.begin(), written.end(), key) == written.end())
                    written.emplace_back(key);
            });
            asio::io_context main;
            nav::Router router{main.get_executor()};
            const nav::NavigationContext navigation{router, store, nullptr};
            // a link has a scheme; anything else can only be an item identifier
            if (open->target.find(':') != std::string::npos)
                nav::handleChordURL(open->target, navigation);
            else
                nav::handleSearchIdentifier(open->target, navigation);
            main.run();
            token.reset();

            Json result = Json::object();
            if (!router.path().empty()) {
                result["route"] = routeJson(router.path().back());
            } else if (!written.empty()) {
                Json keys = Json::object();
                for (const auto& key : written)
                    if (const auto* declared = personal::preferenceKey(key))
                        keys[key] = personal::currentValue(*store, *declared);
                result["keys"] = keys;
            }
            if (open->json) {
                context.out << result.dump() << "\n";
            } else if (result.contains("route")) {
                const auto& route = router.path().back();
                if (const auto* chord = route.chord()) {
                    context.out << chordName(chord->chord);
                    if (chord->selectedPosition)
                        context.out << "  " << compactFrets(*chord->selectedPosition);
                    context.out << "\n";
                } else {
                    const auto& collection = *route.chordCollection();
                    context.out << printable(collection.title) << " (" << collection.chords.size()
                                << " chords)\n";
                }
            } else if (result.contains("keys")) {
                for (const auto& [key, value] : result["keys"].items())
                    context.out << key << " = " << value.dump() << "\n";
            }
            return 0;
        };
    });

    struct SearchOptions {
        std::string query;
        std::size_t limit = 10;
        bool json = false;
    };
    auto search = std::make_shared<SearchOptions>();
    auto* searchCommand =
        app.add_subcommand("search", "Find chords and collections as you would type them");
    searchCommand
        ->add_option("QUERY", search->query, "\"F#m7\", \"Bb maj7\", \"c sharp minor\", \"jazz\"")
        ->required();
    searchCommand->add_option("--limit", search->limit, "At most this many hits")
        ->check(CLI::Range(1, 1000));
    searchCommand->add_flag("--json", search->json, "Print JSON");
    searchCommand->callback([&context, search] {
        *context.action = [&context, search] {
            const auto index = readyIndex(false);
            const auto hits = index->search(search->query, search->limit);
            if (search->json) {
                Json list = Json::array();
                for (const auto& hit : hits)
                    list.push_back(nav::toJson(hit));
                context.out << list.dump() << "\n";
                return 0;
            }
            if (hits.empty()) context.out << "Nothing found.\n";
            for (const auto& hit : hits)
                context.out << fmt::format("{:<28} {:<12} {}\n", printable(hit.title),
                                           hit.symbol.value_or(""), printable(linkOf(hit)));
            return 0;
        };
    });

    struct IndexOptions {
        bool json = false;
    };
    auto indexOptions = std::make_shared<IndexOptions>();
    auto* index = app.add_subcommand("index", "The search index in the cache folder");
    index->require_subcommand(1);
    const auto printStatus = [&context, indexOptions](bool rebuilt) {
        auto opened = nav::SqliteSearchIndex::openDefault();
        if (!opened)
            throw CommandError(
                fmt::format("The search index cannot be opened: {}", opened.error().message));
        const auto store = appStore();
        const nav::FretquillSpotlightIndexer indexer(**opened, store,
                                                     {buildVersion(), nav::currentLanguageCode()});
        namespace keys = personal::keys;
        const Json status{
            {"items", (*opened)->count()},
            {"needsRebuild", indexer.needsFullReindex()},
            {"rebuilt", rebuilt},
            {"schemaVersion", personal::read(*store, keys::spotlightIndexedSchemaVersion)},
            {"buildVersion", personal::read(*store, keys::spotlightIndexedAppBuildVersion)},
            {"languageCode", personal::read(*store, keys::spotlightIndexedLanguageCode)},
            {"chordLibraryVersion", personal::read(*store, keys::spotlightChordLibraryVersion)}};
        if (indexOptions->json) {
            context.out << status.dump() << "\n";
            return;
        }
        for (const auto& [key, value] : status.items())
            context.out << key << ": " << value.dump() << "\n";
    };
    auto* rebuild = index->add_subcommand("rebuild", "Rebuild the whole index now");
    rebuild->add_flag("--json", indexOptions->json, "Print JSON");
    rebuild->callback([&context, printStatus] {
        *context.action = [printStatus] {
            (void)readyIndex(true);
            printStatus(true);
            return 0;
        };
    });
    auto* status = index->add_subcommand(
        "status", "How many items the index holds and whether it is due a rebuild");
    status->add_flag("--json", indexOptions->json, "Print JSON");
    status->callback([&context, printStatus] {
        *context.action = [printStatus] {
            printStatus(false);
            return 0;
        };
    });
}

} // namespace fq::cli
