#pragma once

// Routes, the one value that says what to show, and the router that owns the navigation path.

#include <fq/core/Chord.h>
#include <fq/core/Executor.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace fq::navigation {

/// A collection as the collection screen shows it, built-in or the person's own.
struct FretquillResolvedChordCollection {
    std::string id;
    std::string title;
    std::string subtitle;
    std::vector<core::Chord> chords;
    std::map<core::Chord, std::vector<int>> preferredPositions;
    bool allowsUserCollectionCreation = false;
    std::optional<std::vector<std::uint8_t>> songsheetImageData;

    friend bool operator==(const FretquillResolvedChordCollection&,
                           const FretquillResolvedChordCollection&) = default;
};

/// The one value that says what to show.
struct FretquillNavigationRoute {
    struct ChordPayload {
        core::Chord chord;
        std::optional<std::vector<int>> selectedPosition; ///< six frets, lowest string first
        friend bool operator==(const ChordPayload&, const ChordPayload&) = default;
    };
    enum class Kind : std::uint8_t { chord, chordCollection };

    std::variant<ChordPayload, FretquillResolvedChordCollection> kind;

    Kind kindCase() const { return kind.index() == 0 ? Kind::chord : Kind::chordCollection; }
    const ChordPayload* chord() const { return std::get_if<ChordPayload>(&kind); }
    const FretquillResolvedChordCollection* chordCollection() const {
        return std::get_if<FretquillResolvedChordCollection>(&kind);
    }
    friend bool operator==(const FretquillNavigationRoute&,
                           const FretquillNavigationRoute&) = default;
};

FretquillNavigationRoute
chordRoute(core::Chord chord, std::optional<std::vector<int>> selectedPosition = std::nullopt);
FretquillNavigationRoute collectionRoute(FretquillResolvedChordCollection collection);

/// Owns the navigation path the screens follow. Confined to the main executor.
class Router {
public:
    using Path = std::vector<FretquillNavigationRoute>;
    using Observer = std::function<void(const Path&)>;

    explicit Router(Executor main) : main_(std::move(main)) {}

    const Path& path() const { return path_; }
    /// Writing an equal path tells nobody.
    void setPath(Path path);
    /// Replaces the stack with exactly this route: at once when nothing is shown,
    /// else the stack is emptied first and the route follows one yield later, so
    /// the old screen pops before the new one is pushed.
    void navigate(FretquillNavigationRoute to);
    void addObserver(Observer observer) { observers_.push_back(std::move(observer)); }
    const Executor& executor() const { return main_; }

private:
    Executor main_;
    Path path_;
    std::vector<Observer> observers_;
};

} // namespace fq::navigation
