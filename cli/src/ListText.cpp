// Wrapping and joining lists of names for the terminal.
#include "ListText.h"

#include <fq/core/ChordDataManager.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace fq::cli {
namespace {

/// Characters as the terminal shows them, not bytes.
std::size_t characters(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

} // namespace

std::string wrappedItems(const std::vector<std::string>& items, std::size_t width,
                         std::string_view firstIndent, std::string_view indent) {
    std::string result(firstIndent);
    std::size_t lineLength = characters(firstIndent);
    bool lineEmpty = true;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const auto item = items[i] + (i + 1 < items.size() ? "," : "");
        const auto length = characters(item);
        if (!lineEmpty && lineLength + 1 + length > width) {
            result.append("\n").append(indent);
            lineLength = characters(indent);
            lineEmpty = true;
        }
        if (!lineEmpty) {
            result += ' ';
            ++lineLength;
        }
        result += item;
        lineLength += length;
        lineEmpty = false;
    }
    return result;
}

std::string choices(const std::vector<std::string>& names) {
    if (names.size() < 2) return fmt::format("{}", fmt::join(names, ""));
    const std::vector<std::string> head(names.begin(), names.end() - 1);
    return fmt::format("{} or {}", fmt::join(head, ", "), names.back());
}

nlohmann::ordered_json chordArray(const std::vector<core::Chord>& chords) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& chord : chords)
        array.push_back(core::toJson(chord));
    return array;
}

std::string chordName(const core::Chord& chord) {
    return core::ChordDataManager::shared().name(chord.rootNote, chord.chordType, chord.variant);
}

} // namespace fq::cli
