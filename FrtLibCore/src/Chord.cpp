#include "fq/core/Chord.h"

#include <functional>

namespace fq::core {

std::size_t ChordHash::operator()(const Chord& chord) const noexcept {
    const std::size_t type = std::hash<std::string>{}(chord.chordType);
    return type ^ (static_cast<std::size_t>(chord.rootNote) << 8) ^
           (static_cast<std::size_t>(chord.variant) << 16);
}

nlohmann::ordered_json toJson(const Chord& chord) {
    return {{"rootNote", rawValue(chord.rootNote)},
            {"chordType", chord.chordType},
            {"variant", chord.variant}};
}

namespace {

template <typename Json>
tl::expected<Chord, Error> decodeChord(const Json& json) {
    if (!json.is_object()) return tl::unexpected(Error{"A chord must be a JSON object"});
    const auto root = json.find("rootNote");
    if (root == json.end() || !root->is_string())
        return tl::unexpected(Error{"Missing text value for key: rootNote"});
    const auto type = json.find("chordType");
    if (type == json.end() || !type->is_string())
        return tl::unexpected(Error{"Missing text value for key: chordType"});
    Chord chord;
    const auto& rootText = root->template get_ref<const std::string&>();
    const auto note = noteFromRawValue(rootText);
    if (!note) return tl::unexpected(Error{"Unrecognised note: " + rootText});
    chord.rootNote = *note;
    chord.chordType = type->template get<std::string>();
    if (const auto variant = json.find("variant"); variant != json.end() && !variant->is_null()) {
        if (!variant->is_number_integer())
            return tl::unexpected(Error{"The value for key variant must be an integer"});
        const auto value = variant->template get<std::int64_t>();
        if (value < INT32_MIN || value > INT32_MAX)
            return tl::unexpected(Error{"The value for key variant is out of range"});
        chord.variant = static_cast<int>(value);
    }
    return chord;
}

} // namespace

tl::expected<Chord, Error> chordFromJson(const nlohmann::json& json) {
    return decodeChord(json);
}

tl::expected<Chord, Error> chordFromJson(const nlohmann::ordered_json& json) {
    return decodeChord(json);
}

} // namespace fq::core
