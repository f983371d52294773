// Links, identifiers and activities turned into routes or hand-over keys.

#include "fq/navigation/LinkHandler.h"

#include "LinkParts.h"
#include "Unicode.h"
#include "fq/navigation/ChordURLParser.h"
#include "fq/navigation/SpotlightItemFactory.h"

#include <fq/core/ChordLists.h>
#include <fq/core/TodayChordLibrary.h>
#include <fq/core/Uuid.h>
#include <fq/personal/PreferenceKeys.h>
#include <fq/personal/UserLibraryStore.h>

#include <asio/post.hpp>

#include <algorithm>

namespace fq::navigation {
namespace {

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

/// The first item of that name, compared in lower case, trimmed; empty counts as absent.
std::optional<std::string> queryItem(const LinkParts& parts, std::string_view name) {
    for (const auto& [key, value] : parts.queryItems) {
        if (unicode::lowerCased(key) != name) continue;
        const auto trimmedValue = unicode::trimmed(value);
        if (trimmedValue.empty()) return std::nullopt;
        return std::string(trimmedValue);
    }
    return std::nullopt;
}

std::chrono::year_month_day todayOf(const NavigationContext& context) {
    if (context.today) return context.today();
    const auto now = core::currentDateComponents();
    return std::chrono::year_month_day{std::chrono::year{now.year},
                                       std::chrono::month{static_cast<unsigned>(now.month)},
                                       std::chrono::day{static_cast<unsigned>(now.day)}};
}

/// Writes the library's hand-over keys in the order the library screen expects
/// them: the deep-link identifier last, since that is the key it watches.
void openProgression(personal::SharedStore& store, core::Note root, const std::string& progression,
                     const std::string& pattern) {
    namespace keys = personal::keys;
    (void)personal::write(store, keys::selectedTab, 2);
    (void)personal::write(store, keys::rootNote, core::rawValue(root));
    (void)personal::write(store, keys::libraryProgressionType, progression);
    (void)personal::write(store, keys::libraryProgressionPattern, pattern);
    (void)personal::write(store, keys::libraryProgressionDeepLinkID, core::Uuid::random().text());
}

std::optional<FretquillResolvedChordCollection>
collectionWithIdentifier(std::string_view identifier, const NavigationContext& context) {
    // both lookups run in full; the built-in pack wins a tie
    const auto builtIn = builtInCollections();
    std::vector<FretquillResolvedChordCollection> own;
    own = userCollections(context.store);
    const auto matches = [&](const auto& collection) { return collection.id == identifier; };
    if (const auto hit = std::find_if(builtIn.begin(), builtIn.end(), matches);
        hit != builtIn.end())
        return *hit;
    if (const auto hit = std::find_if(own.begin(), own.end(), matches); hit != own.end())
        return *hit;
    return std::nullopt;
}

} // namespace

std::vector<FretquillResolvedChordCollection> builtInCollections() {
    std::vector<FretquillResolvedChordCollection> result;
    for (const auto category : core::allChordListCategories()) {
        const auto* list = core::Chords::list(category);
        if (!list) continue;
        FretquillResolvedChordCollection collection;
        collection.id = std::string(config::collectionIdentifierPrefix) +
                        ChordURLParser::identifierSlug(list->title);
        collection.title = list->title;
        collection.subtitle = list->description;
        collection.chords = list->chords;
        for (const auto& [chord, frets] : list->preferredPositions)
            collection.preferredPositions[chord] = std::vector<int>(frets.begin(), frets.end());
        // a pack can be copied into a collection of one's own
        collection.allowsUserCollectionCreation = true;
        result.push_back(std::move(collection));
    }
    return result;
}

std::vector<FretquillResolvedChordCollection>
userCollections(const std::shared_ptr<personal::SharedStore>& store) {
    std::vector<FretquillResolvedChordCollection> result;
    if (!store) return result;
    for (const auto& own : personal::FretquillUserLibraryStore(store).collections()) {
        FretquillResolvedChordCollection collection;
        collection.id = std::string(config::collectionIdentifierPrefix) +
                        ChordURLParser::identifierSlug(own.title);
        collection.title = own.title;
        collection.subtitle = config::userCollectionSubtitle;
        collection.chords = own.chords;
        result.push_back(std::move(collection));
    }
    return result;
}

std::optional<core::Note> rootFromLinkText(std::string_view text) {
    const auto lower = unicode::lowerCased(text);
    const auto notes = core::allNotes();
    const auto named = [&](const std::string& wanted) {
        return std::find_if(notes.begin(), notes.end(), [&](core::Note note) {
            return unicode::lowerCased(core::rawValue(note)) == wanted;
        });
    };
    if (const auto hit = named(lower); hit != notes.end()) return *hit;
    auto typed = replaceAll(replaceAll(lower, "-", ""), " ", "");
    typed = replaceAll(replaceAll(replaceAll(typed, "sharp", "♯"), "#", "♯"), "flat", "♭");
    if (const auto hit = named(typed); hit != notes.end()) return *hit;
    return std::nullopt;
}

void handleChordURL(std::string_view url, const NavigationContext& context) {
    // a URL never holds a NUL, and text after one would be silently cut off
    if (!unicode::isValidUtf8(url) || url.find('\0') != std::string_view::npos) return;
    if (const auto parts = linkParts(url); parts && parts->scheme == config::linkScheme) {
        if (parts->host == config::spotlightHost) {
            if (!parts->pathSegments.empty())
                handleSearchIdentifier(parts->pathSegments.back(), context);
            return;
        }
        if (parts->host == config::openHost) {
            const auto progression = queryItem(*parts, "progression");
            const auto rootText = queryItem(*parts, "root");
            if (progression && rootText) {
                if (const auto root = rootFromLinkText(*rootText)) {
                    if (context.store) {
                        const auto pattern = queryItem(*parts, "pattern");
                        const auto sequence = queryItem(*parts, "sequence");
                        openProgression(*context.store, *root, *progression,
                                        pattern ? *pattern : sequence.value_or(""));
                    }
                    return;
                }
            }
            if (auto collection = queryItem(*parts, "collection")) {
                if (!collection->starts_with(config::collectionIdentifierPrefix))
                    *collection = std::string(config::collectionIdentifierPrefix) +
                                  ChordURLParser::identifierSlug(*collection);
                handleSearchIdentifier(*collection, context);
                return;
            }
        }
    }
    const auto parsed = ChordURLParser::parseChordURL(url);
    if (!parsed) return;
    auto& router = context.router;
    asio::post(router.executor(),
               [&router, route = chordRoute(parsed->chord, parsed->selectedPosition)]() mutable {
                   router.navigate(std::move(route));
               });
}

void handleSearchIdentifier(std::string_view identifier, const NavigationContext& context) {
    std::optional<FretquillNavigationRoute> route;
    if (identifier.starts_with(config::chordIdentifierPrefix)) {
        // resolved by enumeration, never by reading the identifier's parts
        for (const auto& chord : FretquillSpotlightItemFactory::indexedChords()) {
            if (FretquillSpotlightItemFactory::chordIdentifier(chord.rootNote, chord.chordType,
                                                               0) == identifier) {
                route = chordRoute(chord);
                break;
            }
        }
    } else if (identifier.starts_with(config::collectionIdentifierPrefix)) {
        if (auto collection = collectionWithIdentifier(identifier, context))
            route = collectionRoute(std::move(*collection));
    } else if (identifier.starts_with(config::todayChordIdentifierPrefix)) {
        auto category = core::ChordCategory::beginner;
        if (context.store)
            category = core::chordCategoryFromRawValue(
                           personal::read(*context.store, personal::keys::todayChordCategory))
                           .value_or(core::ChordCategory::beginner);
        if (const auto chord = core::TodayChordLibrary().chord(todayOf(context), category))
            route = chordRoute(*chord);
    }
    if (!route) return;
    auto& router = context.router;
    asio::post(router.executor(), [&router, route = std::move(*route)]() mutable {
        router.navigate(std::move(route));
    });
}

void handleSearchActivity(const UserActivity& activity, const NavigationContext& context) {
    if (!activity.userInfo.is_object()) return;
    const auto found = activity.userInfo.find(config::searchableItemActivityIdentifier);
    if (found == activity.userInfo.end() || !found->is_string()) return;
    handleSearchIdentifier(found->get<std::string>(), context);
}

void handleUserActivity(const UserActivity& activity, const NavigationContext& context) {
    if (activity.type == config::searchableItemActionType) {
        handleSearchActivity(activity, context);
        return;
    }
    if (activity.type != config::browsingWebActivityType &&
        activity.type != config::chordViewActivityType)
        return;
    std::optional<std::string> url = activity.webpageURL;
    if (!url && activity.userInfo.is_object()) {
        const auto found = activity.userInfo.find("url");
        if (found != activity.userInfo.end() && found->is_string()) url = found->get<std::string>();
    }
    if (url) handleChordURL(*url, context);
}

} // namespace fq::navigation
