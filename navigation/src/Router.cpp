// The navigation path and its replace-after-one-yield rule.

#include "fq/navigation/Router.h"

#include <asio/post.hpp>

namespace fq::navigation {

FretquillNavigationRoute chordRoute(core::Chord chord,
                                    std::optional<std::vector<int>> selectedPosition) {
    return {FretquillNavigationRoute::ChordPayload{std::move(chord), std::move(selectedPosition)}};
}

FretquillNavigationRoute collectionRoute(FretquillResolvedChordCollection collection) {
    return {std::move(collection)};
}

void Router::setPath(Path path) {
    if (path == path_) return;
    path_ = std::move(path);
    for (const auto& observer : observers_)
        observer(path_);
}

void Router::navigate(FretquillNavigationRoute to) {
    if (path_.empty()) {
        setPath({std::move(to)});
        return;
    }
    setPath({});
    // the task's one yield: go to the back of the queue once before pushing
    asio::post(main_, [this, to = std::move(to)]() mutable {
        asio::post(main_, [this, to = std::move(to)]() mutable { setPath({std::move(to)}); });
    });
}

} // namespace fq::navigation
