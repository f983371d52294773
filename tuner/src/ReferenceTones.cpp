// Finding a tuning's string from what a player types, and the timing of tones in a row.

#include "fq/tuner/ReferenceTones.h"

#include <fmt/format.h>

#include <cctype>
#include <string>

namespace fq::tuner {
namespace {

/// "C#2", "Db2" and "c♯2" all name "C♯2"; "a" names "A".
std::string normalisedNoteTitle(std::string_view typed) {
    std::string text(typed);
    if (!text.empty())
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    if (text.size() > 1 && text[1] == '#') text.replace(1, 1, "♯");
    if (text.size() > 1 && text[1] == 'b') text.replace(1, 1, "♭");
    return text;
}

/// The button's note without its octave: "C♯2" → "C♯".
std::string_view pitchName(std::string_view title) {
    const auto end = title.find_last_not_of("0123456789");
    return end == std::string_view::npos ? title : title.substr(0, end + 1);
}

std::string titlesOf(std::span<const core::ReferenceToneButtonData> strings) {
    std::string titles;
    for (const auto& string : strings)
        titles += (titles.empty() ? "" : ", ") + std::string(string.buttonTitle);
    return titles;
}

} // namespace

tl::expected<core::ReferenceToneButtonData, Error> findReferenceTone(core::GuitarTuning tuning,
                                                                     std::string_view text) {
    const auto& data = core::tuningData(tuning);
    const auto& strings = data.referenceToneButtonData;
    if (text.size() == 1 && text[0] >= '1' && text[0] <= '6')
        return strings[static_cast<std::size_t>(6 - (text[0] - '0'))];
    const auto wanted = normalisedNoteTitle(text);
    std::vector<core::ReferenceToneButtonData> sameNote;
    for (const auto& button : strings) {
        if (button.buttonTitle == wanted) return button;
        if (!wanted.empty() && pitchName(button.buttonTitle) == wanted) sameNote.push_back(button);
    }
    if (sameNote.size() == 1) return sameNote.front();
    if (sameNote.size() > 1)
        return tl::unexpected(Error{fmt::format("{} has {} {} strings: give one of {}", data.title,
                                                sameNote.size(), wanted, titlesOf(sameNote)),
                                    ErrorKind::refused});
    return tl::unexpected(Error{fmt::format("No string {} in {}: give 1 to 6 or one of {}", text,
                                            data.title, titlesOf(strings)),
                                ErrorKind::notFound});
}

std::vector<audio::TimedNotes> referenceToneParts(std::span<const int> notes) {
    std::vector<audio::TimedNotes> parts;
    for (std::size_t i = 0; i < notes.size(); ++i)
        parts.push_back(
            {{notes[i]}, i + 1 == notes.size() ? config::toneLength : config::toneSpacing});
    return parts;
}

} // namespace fq::tuner
