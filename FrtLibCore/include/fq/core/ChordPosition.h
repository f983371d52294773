#pragma once

#include "fq/core/BytesStore.h"
#include "fq/core/Error.h"

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <span>
#include <vector>

namespace fq::core {

/// One playable shape: frets and fingers per string, lowest string first.
struct ChordPosition {
    std::vector<int> position;  ///< -1 muted, 0 open
    std::vector<int> fingering; ///< 0 to 4, 0 for none; empty when no string is fretted

    friend bool operator==(const ChordPosition&, const ChordPosition&) = default;
};

/// [{"position": [...], "fingering": [...]}, ...]
nlohmann::ordered_json toJson(std::span<const ChordPosition> positions);
Bytes encodeChordPositions(std::span<const ChordPosition> positions);
tl::expected<std::vector<ChordPosition>, Error>
decodeChordPositions(std::span<const std::uint8_t> bytes);

} // namespace fq::core
