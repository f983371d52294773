#include "fq/core/Spelling.h"

#include "fq/core/Text.h"

#include <cassert>
#include <utility>

namespace fq::core {
namespace {

using Twelve = std::array<std::string_view, 12>;

constexpr SpellingRowEntries threeRounds(const Twelve& row) {
    SpellingRowEntries entries{};
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i] = row[i % row.size()];
    return entries;
}

constexpr std::array<SpellingRowEntries, 5> rows{
    threeRounds({"C", "C♯", "D", "D♯", "E", "F", "F♯", "G", "G♯", "A", "A♯", "B"}),
    threeRounds({"B♯", "C♯", "D", "D♯", "E", "E♯", "F♯", "G", "G♯", "A", "A♯", "B"}),
    threeRounds({"C", "D♭", "D", "E♭", "F♭", "F", "G♭", "G", "A♭", "A", "B♭", "C♭"}),
    threeRounds({"A♯𝄪", "B𝄪", "C𝄪", "C♯𝄪", "D𝄪", "D♯𝄪", "E𝄪", "F𝄪", "F♯𝄪", "G𝄪", "G♯𝄪", "A𝄪"}),
    threeRounds(
        {"D♭♭", "E♭♭♭", "E♭♭", "F♭♭", "G♭♭♭", "G♭♭", "A♭♭♭", "A♭♭", "B♭♭♭", "B♭♭", "C♭♭", "D♭♭♭"}),
};

constexpr std::array<std::string_view, 21> letters{"C", "D", "E", "F", "G", "A", "B",
                                                   "C", "D", "E", "F", "G", "A", "B",
                                                   "C", "D", "E", "F", "G", "A", "B"};

constexpr std::array<std::pair<std::string_view, std::string_view>, 39> intervalNames{{
    {"1", "Unison"},
    {"♯1", "Augmented Unison"},
    {"♭2", "Minor Second"},
    {"2", "Major Second"},
    {"♯2", "Augmented Second"},
    {"♭3", "Minor Third"},
    {"3", "Major Third"},
    {"4", "Perfect Fourth"},
    {"♯4", "Augmented Fourth"},
    {"♭5", "Diminished Fifth"},
    {"5", "Perfect Fifth"},
    {"♯5", "Augmented Fifth"},
    {"♭6", "Minor Sixth"},
    {"6", "Major Sixth"},
    {"♯6", "Augmented Sixth"},
    {"♭♭7", "Diminished Seventh"},
    {"♭7", "Minor Seventh"},
    {"7", "Major Seventh"},
    {"♯7", "Augmented Seventh"},
    {"8", "Octave"},
    {"♯8", "Augmented Octave"},
    {"♭9", "Minor Ninth"},
    {"9", "Major Ninth"},
    {"♯9", "Augmented Ninth"},
    {"♭10", "Minor Tenth"},
    {"10", "Major Tenth"},
    {"♯10", "Augmented Tenth"},
    {"11", "Perfect Eleventh"},
    {"♯11", "Augmented Eleventh"},
    {"♭12", "Diminished Twelfth"},
    {"12", "Perfect Twelfth"},
    {"♯12", "Augmented Twelfth"},
    {"♭13", "Minor Thirteenth"},
    {"13", "Major Thirteenth"},
    {"♯13", "Augmented Thirteenth"},
    {"♭14", "Minor Fourteenth"},
    {"14", "Major Fourteenth"},
    {"♯14", "Augmented Fourteenth"},
    {"15", "Double Octave"},
}};

constexpr std::array<std::string_view, 12> midiNoteNames{"C",  "C♯", "D",  "D♯", "E",  "F",
                                                         "F♯", "G",  "G♯", "A",  "A♯", "B"};

} // namespace

const SpellingRowEntries& spellingRow(SpellingRow row) {
    return rows[static_cast<std::size_t>(row)];
}

const std::array<std::string_view, 21>& naturalLetters() {
    return letters;
}

std::optional<int> semitoneIndex(std::string_view name) {
    for (int position = 0; position < 12; ++position)
        for (const auto& row : rows)
            if (row[static_cast<std::size_t>(position)] == name) return position;
    return std::nullopt;
}

std::optional<int> pitchOfTypedNote(std::string_view token) {
    auto name = text::replaceAll(text::asciiUpper(text::trimmed(token)), "#", "♯");
    if (text::characterCount(name) == 2 &&
        std::string_view("ABCDEFG").find(name[0]) != std::string_view::npos && name[1] == 'B')
        name = name.substr(0, 1) + "♭";
    return semitoneIndex(name);
}

std::vector<int> noteNumbers(Note root, std::span<const int> intervals) {
    std::vector<int> numbers;
    numbers.reserve(intervals.size());
    const int base = baseNoteNumber(root);
    for (int interval : intervals) {
        int value = base + interval;
        if (!numbers.empty())
            while (value <= numbers.back())
                value += 12;
        numbers.push_back(value);
    }
    return numbers;
}

std::optional<NoteAndOctave> noteAndOctave(int midiNumber) {
    if (midiNumber < 0 || midiNumber > 127) return std::nullopt;
    assert(midiNumber >= 12 && "octave below zero: pass a number from a guitar's range");
    if (midiNumber < 12) return std::nullopt;
    const auto name = midiNoteNames[static_cast<std::size_t>(midiNumber % 12)];
    return NoteAndOctave{*noteFromRawValue(name), static_cast<std::uint8_t>(midiNumber / 12 - 1)};
}

std::string spelledNote(int semitones, int degree, std::string_view root) {
    // semitoneIndex walks position by position, the name map row by row: each name
    // sits at a single pitch, so both find the same position.
    const auto rootPosition = semitoneIndex(root);
    if (!rootPosition) return {};
    const auto letter = text::withoutSigns(root);
    int letterIndex = -1;
    for (int i = 0; i < 7; ++i)
        if (letters[static_cast<std::size_t>(i)] == letter) letterIndex = i;
    if (letterIndex < 0) return {};
    assert(letterIndex + degree - 1 >= 0 && "degree 0 on a C root");
    const int target = (((letterIndex + degree - 1) % 7) + 7) % 7;
    const auto targetLetter = letters[static_cast<std::size_t>(target)];
    const int position = *rootPosition + semitones;
    if (position < 0 || position >= static_cast<int>(spellingRowLength)) return {};
    for (const auto& row : rows) {
        const auto entry = row[static_cast<std::size_t>(position)];
        if (entry.starts_with(targetLetter)) return std::string(entry);
    }
    return {};
}

int formulaDegree(std::string_view token) {
    const auto first = token.find_first_of("0123456789");
    if (first == std::string_view::npos) return 0;
    int degree = 0;
    for (auto i = first; i < token.size() && token[i] >= '0' && token[i] <= '9'; ++i)
        degree = degree * 10 + (token[i] - '0');
    return degree;
}

std::string_view intervalName(std::string_view symbol) {
    for (const auto& [key, name] : intervalNames)
        if (key == symbol) return name;
    return {};
}

} // namespace fq::core
