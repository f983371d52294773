#include "fq/core/ChordPositions.h"

#include "fq/core/ChordDataManager.h"
#include "fq/core/ChordEngine.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>

namespace fq::core {
namespace {

std::atomic<std::shared_ptr<BytesStore>>& memoSlot() {
    static std::atomic<std::shared_ptr<BytesStore>> slot;
    return slot;
}

std::vector<std::string_view> views(const std::vector<std::string>& texts) {
    return {texts.begin(), texts.end()};
}

/// The position of `frets` among the preferred shapes; absent ones come last.
std::size_t preferenceRank(const std::vector<FretList>& preferred, const std::vector<int>& frets) {
    const auto found = std::find_if(preferred.begin(), preferred.end(), [&](const FretList& shape) {
        return std::equal(shape.begin(), shape.end(), frets.begin(), frets.end());
    });
    return static_cast<std::size_t>(found - preferred.begin());
}

std::vector<ChordPosition> listFor(const PositionRequest& request,
                                   std::span<const std::string_view> tuning) {
    if (!request.useCache)
        return positions(request.note, request.chordType, request.variant, -1, tuning);
    auto& cache = ChordPositionsCache::shared();
    const auto key =
        ChordPositionsCache::key(request.note, request.chordType, request.variant, tuning);
    if (auto cached = cache.positions(key)) return std::move(*cached);
    auto list = positions(request.note, request.chordType, request.variant, -1, tuning);
    cache.setPositions(list, key);
    return list;
}

std::optional<ChordPosition> nearest(const std::vector<ChordPosition>& list,
                                     const std::vector<int>& near) {
    const auto exact =
        std::find_if(list.begin(), list.end(), [&](const auto& p) { return p.position == near; });
    if (exact != list.end()) return *exact;
    std::vector<std::size_t> wished;
    for (std::size_t s = 0; s < near.size(); ++s)
        if (near[s] != -1) wished.push_back(s);
    if (wished.empty()) return list.front();
    const auto distance = [&](const ChordPosition& p) {
        long sum = 0;
        for (auto s : wished) {
            if (s >= p.position.size() || p.position[s] == -1)
                return std::numeric_limits<long>::max();
            sum += std::abs(near[s] - p.position[s]);
        }
        return sum;
    };
    return *std::min_element(list.begin(), list.end(), [&](const auto& a, const auto& b) {
        return distance(a) < distance(b);
    });
}

} // namespace

void installShapeMemo(std::shared_ptr<BytesStore> store) {
    memoSlot().store(std::move(store));
}

std::shared_ptr<BytesStore> shapeMemo() {
    return memoSlot().load();
}

ChordPositionsCache& ChordPositionsCache::shared() {
    static ChordPositionsCache cache;
    return cache;
}

std::optional<std::vector<ChordPosition>>
ChordPositionsCache::positions(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const auto found = store_.find(key);
    if (found == store_.end()) return std::nullopt;
    return found->second;
}

void ChordPositionsCache::setPositions(std::vector<ChordPosition> positions, std::string_view key) {
    const std::lock_guard lock(mutex_);
    store_.insert_or_assign(std::string(key), std::move(positions));
}

std::string ChordPositionsCache::key(Note note, std::string_view chordType, int variant,
                                     std::span<const std::string_view> tuning) {
    std::string key = std::string(rawValue(note)) + "-" + std::string(chordType) + "-" +
                      std::to_string(variant) + "-";
    for (const auto string : tuning)
        key += string;
    return key;
}

std::vector<ChordPosition> positions(Note note, std::string_view chordType, int variant, int limit,
                                     std::span<const std::string_view> tuning) {
    const auto& manager = ChordDataManager::shared();
    const auto* data = manager.chordData(chordType);
    if (!data || variant < 0 || variant >= static_cast<int>(data->notes.size()) || limit < -1)
        return {};
    const auto preferred = manager.priorityPositions(Chord{note, std::string(chordType), variant});

    auto intervals = data->notes;
    std::swap(intervals[0], intervals[static_cast<std::size_t>(variant)]);
    const auto memo = shapeMemo();
    auto shapes = ChordEngine(memo.get()).chordPositions(rawValue(note), intervals, -1, tuning);

    if (!preferred.empty()) {
        std::stable_sort(shapes.begin(), shapes.end(),
                         [&](const ChordPosition& a, const ChordPosition& b) {
                             return preferenceRank(preferred, a.position) <
                                    preferenceRank(preferred, b.position);
                         });
    }
    if (limit != -1 && static_cast<std::size_t>(limit) < shapes.size())
        shapes.resize(static_cast<std::size_t>(limit));
    return shapes;
}

std::optional<ChordPosition> resolvePosition(const PositionRequest& request, std::stop_token stop) {
    const auto tuning = views(request.tuning);
    const bool wishesNear =
        std::any_of(request.near.begin(), request.near.end(), [](int f) { return f != -1; });

    if (request.matching.empty() && !wishesNear) {
        std::vector<ChordPosition> first;
        if (request.useCache) {
            const auto key =
                ChordPositionsCache::key(request.note, request.chordType, request.variant, tuning);
            if (auto cached = ChordPositionsCache::shared().positions(key))
                first = std::move(*cached);
        }
        if (first.empty())
            first = positions(request.note, request.chordType, request.variant, 1, tuning);
        if (stop.stop_requested() || first.empty()) return std::nullopt;
        return first.front();
    }

    const auto list = listFor(request, tuning);
    if (stop.stop_requested() || list.empty()) return std::nullopt;
    if (!request.matching.empty()) {
        const auto exact = std::find_if(list.begin(), list.end(), [&](const auto& p) {
            return p.position == request.matching;
        });
        return exact != list.end() ? *exact : list.front();
    }
    return nearest(list, request.near);
}

std::future<std::optional<ChordPosition>> position(PositionRequest request, std::stop_token stop) {
    return std::async(std::launch::async, [request = std::move(request), stop] {
        return resolvePosition(request, stop);
    });
}

} // namespace fq::core
