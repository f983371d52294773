#include "fq/app/FretDiagram.h"

#include <fmt/format.h>

#include <algorithm>

namespace fq::app {

std::string renderFretDiagram(const core::FretList& frets) {
    constexpr int shownFrets = 4;
    int lowest = 99;
    int highest = 0;
    for (int fret : frets) {
        if (fret > 0) lowest = std::min(lowest, fret);
        highest = std::max(highest, fret);
    }
    const int first = highest <= shownFrets ? 1 : lowest;
    const int rows = std::max(shownFrets, highest - first + 1);

    std::string diagram = " ";
    for (int fret : frets) diagram += fret < 0 ? "× " : fret == 0 ? "○ " : "  ";
    diagram += "\n ";
    diagram += first == 1 ? "╒═╤═╤═╤═╤═╕" : "┌─┬─┬─┬─┬─┐";
    diagram += "\n";
    for (int row = 0; row < rows; ++row) {
        const int fret = first + row;
        diagram += " ";
        for (std::size_t string = 0; string < frets.size(); ++string) {
            diagram += frets[string] == fret ? "●" : "│";
            if (string + 1 < frets.size()) diagram += " ";
        }
        if (row == 0 && first > 1) diagram += fmt::format("  {}fr", first);
        diagram += "\n ";
        diagram += row + 1 < rows ? "├─┼─┼─┼─┼─┤" : "└─┴─┴─┴─┴─┘";
        diagram += "\n";
    }
    return diagram;
}

std::string compactFrets(const core::FretList& frets) {
    const bool oneDigitEach = std::all_of(frets.begin(), frets.end(), [](int fret) { return fret <= 9; });
    std::string text;
    for (int fret : frets) {
        if (!oneDigitEach && !text.empty()) text += ",";
        text += fret < 0 ? "x" : std::to_string(fret);
    }
    return text;
}

} // namespace fq::app
