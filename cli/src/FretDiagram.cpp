// Drawing chord boxes with box-drawing characters, in the form the player prefers.
#include "FretDiagram.h"

#include "CommandSupport.h"

#include <fq/personal/PreferenceKeys.h>

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

/// A horizontal line of the box: `left`, then `cross` at every inner string, then `right`.
std::string border(std::size_t strings, std::string_view left, std::string_view fill,
                   std::string_view cross, std::string_view right) {
    std::string line(left);
    for (std::size_t s = 1; s < strings; ++s)
        line.append(fill).append(s + 1 < strings ? cross : right);
    return line;
}

/// The row of one fret: finger numbers on the strings pressed there, and a bar between
/// the outer strings that one finger holds down together.
std::string fretRow(int fret, const std::vector<int>& frets, const std::vector<int>& fingers) {
    const auto fingerAt = [&](std::size_t s) { return s < fingers.size() ? fingers[s] : 0; };
    std::vector<bool> barred(frets.size(), false);
    for (std::size_t s = 0; s < frets.size(); ++s) {
        if (frets[s] != fret || fingerAt(s) <= 0) continue;
        for (std::size_t t = frets.size(); t-- > s + 1;)
            if (frets[t] == fret && fingerAt(t) == fingerAt(s)) {
                std::fill(barred.begin() + static_cast<long>(s),
                          barred.begin() + static_cast<long>(t) + 1, true);
                break;
            }
    }
    std::string line;
    for (std::size_t s = 0; s < frets.size(); ++s) {
        if (frets[s] == fret)
            line += fingerAt(s) > 0 ? std::to_string(fingerAt(s)) : "●";
        else
            line += barred[s] ? "━" : "│";
        if (s + 1 < frets.size()) line += barred[s] && barred[s + 1] ? "━" : " ";
    }
    return line;
}

} // namespace

std::vector<std::string> renderFretDiagram(std::span<const int> fretSpan,
                                           std::span<const int> fingerSpan,
                                           std::span<const std::string_view> stringSpan,
                                           DiagramForm form) {
    std::vector<int> frets(fretSpan.begin(), fretSpan.end());
    std::vector<int> fingers(fingerSpan.begin(), fingerSpan.end());
    std::vector<std::string_view> strings(stringSpan.begin(), stringSpan.end());
    if (form.leftHanded) {
        std::reverse(frets.begin(), frets.end());
        std::reverse(fingers.begin(), fingers.end());
        std::reverse(strings.begin(), strings.end());
    }
    constexpr int shownFrets = 4;
    int lowest = 99;
    int highest = 0;
    for (int fret : frets) {
        if (fret > 0) lowest = std::min(lowest, fret);
        highest = std::max(highest, fret);
    }
    const int first = highest <= shownFrets ? 1 : lowest;
    const int rows = std::max(shownFrets, highest - first + 1);
    const auto count = frets.size();

    std::string markers;
    for (std::size_t s = 0; s < count; ++s) {
        markers += frets[s] < 0 ? "×" : frets[s] == 0 ? "○" : " ";
        if (s + 1 < count) markers += " ";
    }
    // Built nut first; turned over afterwards for the upside-down form.
    std::vector<std::string> body;
    if (first == 1)
        body.push_back(form.upsideDown ? border(count, "╘", "═", "╧", "╛")
                                       : border(count, "╒", "═", "╤", "╕"));
    else
        body.push_back(form.upsideDown ? border(count, "└", "─", "┴", "┘")
                                       : border(count, "┌", "─", "┬", "┐"));
    for (int row = 0; row < rows; ++row) {
        auto line = fretRow(first + row, frets, fingers);
        if (row == 0 && first > 1) line += fmt::format(" {}fr", first);
        body.push_back(line);
        if (row + 1 < rows)
            body.push_back(border(count, "├", "─", "┼", "┤"));
        else
            body.push_back(form.upsideDown ? border(count, "┌", "─", "┬", "┐")
                                           : border(count, "└", "─", "┴", "┘"));
    }
    std::string names;
    if (strings.size() == count) {
        for (std::size_t s = 0; s < count; ++s) {
            // a sign makes a name two characters wide; the first letter is enough under the box
            names += columns(strings[s]) == 1 ? std::string(strings[s])
                                              : std::string(strings[s].substr(0, 1));
            if (s + 1 < count) names += " ";
        }
    }
    std::vector<std::string> lines;
    if (form.upsideDown) {
        if (!names.empty()) lines.push_back(names);
        lines.insert(lines.end(), body.rbegin(), body.rend());
        lines.push_back(markers);
    } else {
        lines.push_back(markers);
        lines.insert(lines.end(), body.begin(), body.end());
        if (!names.empty()) lines.push_back(names);
    }
    return lines;
}

std::string renderDiagramRows(const std::vector<std::vector<std::string>>& diagrams,
                              const std::vector<std::string>& titles, std::size_t perRow) {
    constexpr std::size_t gap = 2;
    constexpr std::size_t narrowest = 15;
    std::string out;
    const auto endLine = [&out] {
        while (!out.empty() && out.back() == ' ')
            out.pop_back();
        out += "\n";
    };
    std::size_t width = narrowest;
    for (std::size_t i = 0; i < diagrams.size(); ++i) {
        if (i < titles.size()) width = std::max(width, columns(titles[i]));
        for (const auto& line : diagrams[i])
            width = std::max(width, columns(line));
    }
    width += gap;
    for (std::size_t start = 0; start < diagrams.size(); start += perRow) {
        const auto end = std::min(diagrams.size(), start + perRow);
        std::size_t height = 0;
        for (auto i = start; i < end; ++i)
            height = std::max(height, diagrams[i].size());
        const auto cell = [&](std::string_view text, bool lastCell) {
            out += text;
            if (!lastCell) out += std::string(width - columns(text), ' ');
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

DiagramForm preferredDiagramForm() {
    try {
        const auto store = appStore();
        return {personal::read(*store, personal::keys::leftHanded),
                personal::read(*store, personal::keys::invertFretboard)};
    } catch (const CommandError&) {
        return {};
    }
}

} // namespace fq::cli
