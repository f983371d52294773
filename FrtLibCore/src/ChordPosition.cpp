#include "fq/core/ChordPosition.h"

namespace fq::core {

nlohmann::ordered_json toJson(std::span<const ChordPosition> positions) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& p : positions) array.push_back({{"position", p.position}, {"fingering", p.fingering}});
    return array;
}

Bytes encodeChordPositions(std::span<const ChordPosition> positions) {
    const auto text = toJson(positions).dump();
    return {text.begin(), text.end()};
}

tl::expected<std::vector<ChordPosition>, Error> decodeChordPositions(std::span<const std::uint8_t> bytes) {
    const auto json = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr, false);
    if (json.is_discarded() || !json.is_array())
        return tl::unexpected(Error{"The shape list is not a JSON array"});
    const auto integers = [](const nlohmann::json& list, std::vector<int>& into) {
        if (!list.is_array()) return false;
        for (const auto& value : list) {
            if (!value.is_number_integer()) return false;
            into.push_back(value.get<int>());
        }
        return true;
    };
    std::vector<ChordPosition> positions;
    positions.reserve(json.size());
    for (const auto& item : json) {
        ChordPosition position;
        if (!item.is_object() || !item.contains("position") || !item.contains("fingering") ||
            !integers(item["position"], position.position) ||
            !integers(item["fingering"], position.fingering) || position.position.size() != 6)
            return tl::unexpected(Error{"A shape needs six frets under \"position\" and its \"fingering\""});
        positions.push_back(std::move(position));
    }
    return positions;
}

} // namespace fq::core
