// Reading frets as typed: numbers separated by commas, or a link's six-character code.
#include "ChordInput.h"

#include <fq/navigation/ChordURLParser.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <string>

namespace fq::cli {

tl::expected<std::vector<int>, Error> fretsFromText(std::string_view text) {
    const auto invalid = [&](std::string_view why) {
        return tl::unexpected(
            Error{fmt::format("{}, lowest string first, like x,3,2,0,1,0 or x32010: {}", why, text),
                  ErrorKind::refused});
    };
    const auto sixValues = "Frets must be six values from x (or -1) to 24";
    if (text.find(',') == std::string_view::npos) {
        if (text.size() != 6) return invalid(sixValues);
        if (std::all_of(text.begin(), text.end(), [](char c) { return c == 'x' || c == 'X'; }))
            return std::vector<int>(6, -1);
        if (auto frets = navigation::ChordURLParser::decodeFingering(text))
            return std::move(*frets);
        return invalid("Frets must be six characters from x, 0-9 and a-z as a link writes them");
    }
    std::vector<int> frets;
    for (std::size_t start = 0;;) {
        const auto end = text.find(',', start);
        auto piece = text.substr(start, end == text.npos ? text.npos : end - start);
        while (!piece.empty() && piece.front() == ' ')
            piece.remove_prefix(1);
        while (!piece.empty() && piece.back() == ' ')
            piece.remove_suffix(1);
        int fret = 0;
        if (piece == "x" || piece == "X") {
            fret = -1;
        } else {
            const auto [last, error] =
                std::from_chars(piece.data(), piece.data() + piece.size(), fret);
            if (piece.empty() || error != std::errc{} || last != piece.data() + piece.size() ||
                fret < -1)
                return invalid(sixValues);
            if (fret > highestTypedFret)
                return tl::unexpected(Error{fmt::format("Fret {} is past the 24th: {}", fret, text),
                                            ErrorKind::refused});
        }
        frets.push_back(fret);
        if (end == text.npos) break;
        start = end + 1;
    }
    if (frets.size() != 6) return invalid(sixValues);
    return frets;
}

} // namespace fq::cli
