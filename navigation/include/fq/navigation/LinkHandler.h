#pragma once

// The single entries for links, item identifiers and user activities: each becomes a route or
// nothing.

#include "fq/navigation/Router.h"

#include <fq/personal/SharedStore.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::navigation {

namespace config {
inline constexpr std::string_view chordIdentifierPrefix = "com.kelvane.fretquill.chord.";
inline constexpr std::string_view chordIdentifierStem = "com.kelvane.fretquill.chord.guitar";
inline constexpr std::string_view collectionIdentifierPrefix = "com.kelvane.fretquill.collection.";
inline constexpr std::string_view todayChordIdentifierPrefix = "com.kelvane.fretquill.today-chord.";
inline constexpr std::string_view progressionIdentifierPrefix =
    "com.kelvane.fretquill.progression.";
inline constexpr std::string_view chordViewActivityType = "com.kelvane.frtqul.chord.view";
inline constexpr std::string_view linkScheme = "fretquill";
inline constexpr std::string_view spotlightHost = "spotlight";
inline constexpr std::string_view openHost = "open";
/// What the person's own collections say of themselves.
inline constexpr std::string_view userCollectionSubtitle = "This is a collection created by you";
// The platform's texts for a search hit and a browsed web page, kept as they are so
// that an activity handed over from elsewhere reads the same.
inline constexpr std::string_view searchableItemActionType = "com.apple.corespotlightitem";
inline constexpr std::string_view searchableItemActivityIdentifier =
    "kCSSearchableItemActivityIdentifier";
inline constexpr std::string_view browsingWebActivityType = "NSUserActivityTypeBrowsingWeb";
} // namespace config

/// A continued user activity: its type, the web page it was on and its extra values.
struct UserActivity {
    std::string type;
    std::optional<std::string> webpageURL;
    nlohmann::json userInfo = nlohmann::json::object();
};

/// What the handlers act on: the router, the shared store (links that open a
/// progression write to it; the person's collections are read from it) and the
/// calendar day that picks the chord of the day.
struct NavigationContext {
    Router& router;
    std::shared_ptr<personal::SharedStore> store; ///< may be null: nothing is written or read then
    std::function<std::chrono::year_month_day()> today; ///< null means the local date now
};

/// Every collection an identifier can name: the built-in packs in browsing order,
/// then the person's own from the store.
std::vector<FretquillResolvedChordCollection> builtInCollections();
std::vector<FretquillResolvedChordCollection>
userCollections(const std::shared_ptr<personal::SharedStore>& store);

/// "C♯", "c#", "C sharp", "db"… as a note by the "open" link's rule; none otherwise.
std::optional<core::Note> rootFromLinkText(std::string_view text);

// The entries for everything that points into the program. None ever reports a
// failure: what does not resolve does nothing. Routes arrive through the main queue.
void handleChordURL(std::string_view url, const NavigationContext& context);
void handleSearchIdentifier(std::string_view identifier, const NavigationContext& context);
void handleUserActivity(const UserActivity& activity, const NavigationContext& context);
void handleSearchActivity(const UserActivity& activity, const NavigationContext& context);

} // namespace fq::navigation
