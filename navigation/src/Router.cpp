#include "fq/navigation/Router.h"

namespace fq::navigation {

FretquillNavigationRoute chordRoute(core::Chord chord,
                                    std::optional<std::vector<int>> selectedPosition) {
    return {FretquillNavigationRoute::ChordPayload{std::move(chord), std::move(selectedPosition)}};
}

FretquillNavigationRoute collectionRoute(FretquillResolvedChordCollection collection) {
    return {std::move(collection)};
}

bool MainQueue::runOne() {
    if (tasks_.empty()) return false;
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
    return true;
}

std::size_t MainQueue::runAll(std::size_t limit) {
    std::size_t count = 0;
    while (count < limit && runOne())
        ++count;
    return count;
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
    main_.post([this, to = std::move(to)]() mutable {
        main_.post([this, to = std::move(to)]() mutable { setPath({std::move(to)}); });
    });
}

} // namespace fq::navigation
