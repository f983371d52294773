#include "FretDiagram.h"

#include <fmt/format.h>

#include <algorithm>

namespace fq::cli {
namespace {

/// Display width of a line: every character of a diagram is one column wide.
std::size_t columns(std::string_view line) {
    std::size_t count = 0;
    for (unsigned char byte : line)
        count += (byte & 0xC0) != 0x80;
    return count;
}

} // namespace

std::vector<std::string> renderFretDiagram(std::span<const int> frets, std::span<const int> fingers,
                                           std::span<const std::string_view> strings) {
    constexpr int shownFrets = 4;
    int lowest = 99;
    int highest = 0;
    for (int fret : frets) {
        if (fret > 0) lowest = std::min(lowest, fret);
        highest = std::max(highest, fret);
    }
    const int first = highest <= shownFrets ? 1 : lowest;
    const int rows = std::max(shownFrets, highest - first + 1);
    const auto last = frets.size() - 1;

    std::vector<std::string> lines;
    std::string markers;
    for (std::size_t s = 0; s < frets.size(); ++s) {
        markers += frets[s] < 0 ? "×" : frets[s] == 0 ? "○" : " ";
        if (s < last) markers += " ";
    }
    lines.push_back(markers);
    lines.emplace_back(first == 1 ? "╒═╤═╤═╤═╤═╕" : "┌─┬─┬─┬─┬─┐");
    for (int row = 0; row < rows; ++row) {
        const int fret = first + row;
        std::string line;
        for (std::size_t s = 0; s < frets.size(); ++s) {
            if (frets[s] != fret)
                line += "│";
            else if (s < fingers.size() && fingers[s] > 0)
                line += std::to_string(fingers[s]);
            else
                line += "●";
            if (s < last) line += " ";
        }
        if (row == 0 && first > 1) line += fmt::format(" {}fr", first);
        lines.push_back(line);
        lines.emplace_back(row + 1 < rows ? "├─┼─┼─┼─┼─┤" : "└─┴─┴─┴─┴─┘");
    }
    if (strings.size() == frets.size()) {
        std::string names;
        for (std::size_t s = 0; s < strings.size(); ++s) {
            // a sign makes a name two characters wide; the first letter is enough under the box
            names += columns(strings[s]) == 1 ? std::string(strings[s])
                                              : std::string(strings[s].substr(0, 1));
            if (s < last) names += " ";
        }
        lines.push_back(names);
    }
    return lines;
}

std::string renderDiagramRows(const std::vector<std::vector<std::string>>& diagrams,
                              const std::vector<std::string>& titles, std::size_t perRow) {
    constexpr std::size_t width = 17;
    std::string out;
    const auto endLine = [&out] {
        while (!out.empty() && out.back() == ' ')
            out.pop_back();
        out += "\n";
    };
    for (std::size_t start = 0; start < diagrams.size(); start += perRow) {
        const auto end = std::min(diagrams.size(), start + perRow);
        std::size_t height = 0;
        for (auto i = start; i < end; ++i)
            height = std::max(height, diagrams[i].size());
        const auto cell = [&](std::string_view text, bool lastCell) {
            out += text;
            if (!lastCell) out += std::string(width - std::min(width - 1, columns(text)), ' ');
        };
        for (auto i = start; i < end; ++i)
            cell(i < titles.size() ? titles[i] : "", i + 1 == end);
        endLine();
        for (std::size_t line = 0; line < height; ++line) {
            for (auto i = start; i < end; ++i)
                cell(line < diagrams[i].size() ? diagrams[i][line] : "", i + 1 == end);
            endLine();
        }
        if (end < diagrams.size()) out += "\n";
    }
    return out;
}

std::string compactFrets(std::span<const int> frets) {
    const bool oneDigitEach =
        std::all_of(frets.begin(), frets.end(), [](int fret) { return fret <= 9; });
    std::string text;
    for (int fret : frets) {
        if (!oneDigitEach && !text.empty()) text += ",";
        text += fret < 0 ? "x" : std::to_string(fret);
    }
    return text;
}

} // namespace fq::cli
