#include "ChordInput.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/GuitarTuning.h>

#include <fmt/format.h>

#include <charconv>
#include <string>

namespace fq::cli {
namespace {

/// Length in bytes of the root at the start of a symbol: a letter and its signs.
std::size_t rootLength(std::string_view text) {
    if (text.empty() || text[0] < 'A' || text[0] > 'G') return 0;
    std::size_t length = 1;
    for (;;) {
        const auto rest = text.substr(length);
        if (rest.starts_with("♯") || rest.starts_with("♭"))
            length += 3;
        else if (rest.starts_with("𝄪"))
            length += 4;
        else if (rest.starts_with("#") || rest.starts_with("b"))
            length += 1;
        else
            return length;
    }
}

std::string withTrueSigns(std::string_view root) {
    if (root.empty()) return {};
    std::string result(root.substr(0, 1));
    for (char c : root.substr(1)) {
        if (c == '#')
            result += "♯";
        else if (c == 'b')
            result += "♭";
        else
            result += c;
    }
    return result;
}

} // namespace

std::optional<core::Note> noteFromUserText(std::string_view text) {
    if (rootLength(text) != text.size()) return std::nullopt;
    return core::noteFromTypedName(text);
}

tl::expected<core::Chord, Error> chordFromSymbol(std::string_view text) {
    const auto& manager = core::ChordDataManager::shared();
    const auto root = text.substr(0, rootLength(text));
    auto rest = text.substr(root.size());
    if (rest.starts_with(' ')) rest.remove_prefix(1);
    for (const auto& candidate :
         {std::string(text), std::string(root).append(rest), withTrueSigns(root).append(rest)})
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

tl::expected<std::vector<int>, Error> fretsFromText(std::string_view text) {
    const auto invalid = [&] {
        return tl::unexpected(
            Error{fmt::format("Frets must be six values from x (or -1) to 24, lowest string first, "
                              "like x,3,2,0,1,0 or x32010: {}",
                              text)});
    };
    std::vector<std::string_view> pieces;
    if (text.find(',') == std::string_view::npos) {
        for (std::size_t i = 0; i < text.size(); ++i)
            pieces.push_back(text.substr(i, 1));
    } else {
        for (std::size_t start = 0;;) {
            const auto end = text.find(',', start);
            pieces.push_back(text.substr(start, end == text.npos ? text.npos : end - start));
            if (end == text.npos) break;
            start = end + 1;
        }
    }
    if (pieces.size() != 6) return invalid();
    std::vector<int> frets;
    for (auto piece : pieces) {
        while (!piece.empty() && piece.front() == ' ')
            piece.remove_prefix(1);
        while (!piece.empty() && piece.back() == ' ')
            piece.remove_suffix(1);
        if (piece == "x" || piece == "X") {
            frets.push_back(-1);
            continue;
        }
        int fret = 0;
        const auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), fret);
        if (piece.empty() || error != std::errc{} || end != piece.data() + piece.size() ||
            fret < -1 || fret > 24)
            return invalid();
        frets.push_back(fret);
    }
    return frets;
}

tl::expected<std::vector<std::string>, Error> tuningFromText(std::string_view text) {
    if (text.find(',') == std::string_view::npos) {
        const auto tuning = core::guitarTuningFromIdentifier(text);
        if (!tuning)
            return tl::unexpected(Error{fmt::format("Unknown tuning: {} (name one such as dropD or "
                                                    "dadgad, or give six notes like D,A,D,G,B,E)",
                                                    text)});
        const auto notes = core::openNotes(*tuning);
        return std::vector<std::string>(notes.begin(), notes.end());
    }
    std::vector<std::string> notes;
    for (std::size_t start = 0;;) {
        const auto end = text.find(',', start);
        auto piece = text.substr(start, end == text.npos ? text.npos : end - start);
        while (!piece.empty() && piece.front() == ' ')
            piece.remove_prefix(1);
        while (!piece.empty() && piece.back() == ' ')
            piece.remove_suffix(1);
        const auto note = noteFromUserText(piece);
        if (!note) return tl::unexpected(Error{fmt::format("Unknown note in tuning: {}", piece)});
        notes.emplace_back(core::rawValue(*note));
        if (end == text.npos) break;
        start = end + 1;
    }
    if (notes.size() != 6)
        return tl::unexpected(Error{fmt::format(
            "A tuning needs six notes, lowest string first, like D,A,D,G,B,E: {}", text)});
    return notes;
}

} // namespace fq::cli
