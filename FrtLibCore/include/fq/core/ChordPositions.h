#pragma once

#include "fq/core/BytesStore.h"
#include "fq/core/ChordPosition.h"
#include "fq/core/Note.h"

#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace fq::core {

/// The persistent memo that every positions query passes to the chord engine.
/// The program installs its preference store once at start; until then, and in
/// tests that install nothing, shapes are generated each time.
void installShapeMemo(std::shared_ptr<BytesStore> store);
std::shared_ptr<BytesStore> shapeMemo();

/// Shapes kept in memory for the life of the process, one caller at a time.
class ChordPositionsCache {
public:
    static ChordPositionsCache& shared();

    std::optional<std::vector<ChordPosition>> positions(std::string_view key) const;
    void setPositions(std::vector<ChordPosition> positions, std::string_view key);

    /// "C-major-0-EADGBE"
    static std::string key(Note note, std::string_view chordType, int variant,
                           std::span<const std::string_view> tuning);

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::vector<ChordPosition>, std::less<>> store_;
};

/// A chord's shapes in display order: the preferred shapes first (for this exact
/// chord and inversion), then the generator's order. `limit` -1 means all.
/// An unknown type gives an empty list.
std::vector<ChordPosition> positions(Note note, std::string_view chordType, int variant, int limit,
                                     std::span<const std::string_view> tuning);

/// What a caller knows when it asks for one shape of a chord.
struct PositionRequest {
    Note note = Note::C;
    std::string chordType;
    int variant = 0;
    std::vector<std::string> tuning; ///< six open notes, lowest string first
    std::vector<int> matching;       ///< the exact frets wanted, or empty
    std::vector<int> near;           ///< a fret per string to be close to (-1: no wish), or empty
    bool useCache = true;
};

/// Resolves one shape: the exact `matching` frets (else the first shape), or
/// the shape nearest to `near`, or the first shape. None when there is no shape
/// or the request was cancelled.
std::optional<ChordPosition> resolvePosition(const PositionRequest& request,
                                             std::stop_token stop = {});

/// The same, in a background task the caller awaits.
std::future<std::optional<ChordPosition>> position(PositionRequest request,
                                                   std::stop_token stop = {});

} // namespace fq::core
