#include "fq/app/ChordInput.h"

#include <fq/core/ChordDataManager.h>

#include <fmt/format.h>

#include <string>

namespace fq::app {
namespace {

/// Length in bytes of the root at the start of a symbol: a letter and its signs.
std::size_t rootLength(std::string_view text) {
    if (text.empty() || text[0] < 'A' || text[0] > 'G') return 0;
    std::size_t length = 1;
    for (;;) {
        const auto rest = text.substr(length);
        if (rest.starts_with("♯") || rest.starts_with("♭")) length += 3;
        else if (rest.starts_with("𝄪")) length += 4;
        else if (rest.starts_with("#") || rest.starts_with("b")) length += 1;
        else return length;
    }
}

std::string withTrueSigns(std::string_view root) {
    if (root.empty()) return {};
    std::string result(root.substr(0, 1));
    for (char c : root.substr(1)) {
        if (c == '#') result += "♯";
        else if (c == 'b') result += "♭";
        else result += c;
    }
    return result;
}

} // namespace

std::optional<core::Note> noteFromUserText(std::string_view text) {
    if (rootLength(text) != text.size()) return std::nullopt;
    return core::noteFromRawValue(withTrueSigns(text));
}

tl::expected<core::Chord, Error> chordFromSymbol(std::string_view text) {
    const auto& manager = core::ChordDataManager::shared();
    const auto root = text.substr(0, rootLength(text));
    auto rest = text.substr(root.size());
    if (rest.starts_with(' ')) rest.remove_prefix(1);
    for (const auto& candidate : {std::string(text), std::string(root).append(rest),
                                  withTrueSigns(root).append(rest)})
        if (const auto* chord = manager.chord(candidate)) return *chord;
    return tl::unexpected(Error{fmt::format("Unknown chord: {}", text)});
}

tl::expected<core::Chord, Error> chordFromParts(std::string_view root, std::string_view type,
                                                int variant) {
    const auto note = noteFromUserText(root);
    if (!note) return tl::unexpected(Error{fmt::format("Unknown note: {}", root)});
    const auto& manager = core::ChordDataManager::shared();
    const auto* data = manager.chordData(type);
    if (!data) return tl::unexpected(Error{fmt::format("Unknown chord type: {}", type)});
    const int last = static_cast<int>(data->notes.size()) - 1;
    if (variant < 0 || variant > last)
        return tl::unexpected(Error{fmt::format("Variant {} is out of range for {} (0 to {})",
                                                variant, manager.name(*note, type, 0), last)});
    return core::Chord{*note, std::string(type), variant};
}

} // namespace fq::app
