#include "fq/core/Note.h"

#include <algorithm>
#include <string>

namespace fq::core {
namespace {

struct NoteRow {
    Note note;
    std::string_view raw;
    int base;
};

constexpr std::array<NoteRow, noteCount> noteTable{{
    {Note::C, "C", 48},       {Note::D, "D", 50},       {Note::E, "E", 40},
    {Note::F, "F", 41},       {Note::G, "G", 43},       {Note::A, "A", 45},
    {Note::B, "B", 47},       {Note::Cs, "C♯", 49},     {Note::Ds, "D♯", 51},
    {Note::Es, "E♯", 41},     {Note::Fs, "F♯", 42},     {Note::Gs, "G♯", 44},
    {Note::As, "A♯", 46},     {Note::Bs, "B♯", 48},     {Note::Cf, "C♭", 47},
    {Note::Df, "D♭", 49},     {Note::Ef, "E♭", 51},     {Note::Ff, "F♭", 40},
    {Note::Gf, "G♭", 42},     {Note::Af, "A♭", 44},     {Note::Bf, "B♭", 46},
    {Note::Cds, "C𝄪", 50},    {Note::Csds, "C♯𝄪", 51},  {Note::Dds, "D𝄪", 52},
    {Note::Dsds, "D♯𝄪", 53},  {Note::Eds, "E𝄪", 42},    {Note::Fds, "F𝄪", 43},
    {Note::Fsds, "F♯𝄪", 44},  {Note::Gds, "G𝄪", 45},    {Note::Gsds, "G♯𝄪", 46},
    {Note::Ads, "A𝄪", 47},    {Note::Asds, "A♯𝄪", 48},  {Note::Bds, "B𝄪", 49},
    {Note::Cdf, "C♭♭", 46},   {Note::Dfdf, "D♭♭♭", 47}, {Note::Ddf, "D♭♭", 48},
    {Note::Efdf, "E♭♭♭", 49}, {Note::Edf, "E♭♭", 50},   {Note::Fdf, "F♭♭", 51},
    {Note::Gfdf, "G♭♭♭", 40}, {Note::Gdf, "G♭♭", 41},   {Note::Afdf, "A♭♭♭", 42},
    {Note::Adf, "A♭♭", 43},   {Note::Bfdf, "B♭♭♭", 44}, {Note::Bdf, "B♭♭", 45},
}};

constexpr bool tableFollowsDeclaredOrder() {
    for (std::size_t i = 0; i < noteTable.size(); ++i)
        if (static_cast<std::size_t>(noteTable[i].note) != i) return false;
    return true;
}
static_assert(tableFollowsDeclaredOrder());

constexpr std::array<Note, noteCount> makeAllNotes() {
    std::array<Note, noteCount> notes{};
    for (std::size_t i = 0; i < noteCount; ++i)
        notes[i] = noteTable[i].note;
    return notes;
}
constexpr std::array<Note, noteCount> allNotesInOrder = makeAllNotes();

using N = Note;
constexpr std::array<N, 3> sameAsC{N::Bs, N::Asds, N::Ddf};
constexpr std::array<N, 2> sameAsD{N::Cds, N::Edf};
constexpr std::array<N, 2> sameAsE{N::Ff, N::Dds};
constexpr std::array<N, 3> sameAsF{N::Es, N::Dsds, N::Gdf};
constexpr std::array<N, 2> sameAsG{N::Fds, N::Adf};
constexpr std::array<N, 2> sameAsA{N::Gds, N::Bdf};
constexpr std::array<N, 3> sameAsB{N::Cf, N::Ads, N::Dfdf};
constexpr std::array<N, 2> sameAsCs{N::Df, N::Bds};
constexpr std::array<N, 2> sameAsDs{N::Ef, N::Csds};
constexpr std::array<N, 3> sameAsEs{N::F, N::Dsds, N::Gdf};
constexpr std::array<N, 2> sameAsFs{N::Gf, N::Eds};
constexpr std::array<N, 2> sameAsGs{N::Af, N::Fsds};
constexpr std::array<N, 2> sameAsAs{N::Bf, N::Gsds};
constexpr std::array<N, 3> sameAsBs{N::C, N::Asds, N::Ddf};

constexpr std::array<std::span<const Note>, 14> enharmonics{
    sameAsC,  sameAsD,  sameAsE,  sameAsF,  sameAsG,  sameAsA,  sameAsB,
    sameAsCs, sameAsDs, sameAsEs, sameAsFs, sameAsGs, sameAsAs, sameAsBs,
};

constexpr std::array<double, 6> durationValues{1.0, 0.5, 0.25, 0.125, 0.0625, 0.03125};
constexpr std::array<std::string_view, 2> timeSignatureValues{"3/4", "4/4"};
constexpr std::array<std::string_view, 8> inversionKeys{
    "inversion.root_position", "inversion.first", "inversion.second", "inversion.third",
    "inversion.fourth",        "inversion.fifth", "inversion.sixth",  "inversion.seventh",
};
constexpr std::array<std::string_view, 8> inversionTitles{
    "Root position",    "First inversion", "Second inversion", "Third inversion",
    "Fourth inversion", "Fifth inversion", "Sixth inversion",  "Seventh inversion",
};

template <typename Enum, typename Values, typename Value>
std::optional<Enum> caseOf(const Values& values, const Value& raw) {
    const auto found = std::find(values.begin(), values.end(), raw);
    if (found == values.end()) return std::nullopt;
    return static_cast<Enum>(found - values.begin());
}

} // namespace

std::span<const Note, noteCount> allNotes() {
    return allNotesInOrder;
}

std::string_view rawValue(Note note) {
    return noteTable[static_cast<std::size_t>(note)].raw;
}

std::optional<Note> noteFromRawValue(std::string_view raw) {
    for (const auto& row : noteTable)
        if (row.raw == raw) return row.note;
    return std::nullopt;
}

std::optional<Note> noteFromTypedName(std::string_view text) {
    if (text.empty()) return std::nullopt;
    std::string name(text.substr(0, 1));
    for (const char c : text.substr(1)) {
        if (c == '#')
            name += "♯";
        else if (c == 'b')
            name += "♭";
        else
            name += c;
    }
    return noteFromRawValue(name);
}

int baseNoteNumber(Note note) {
    return noteTable[static_cast<std::size_t>(note)].base;
}

std::span<const Note> equalSpellings(Note note) {
    const auto index = static_cast<std::size_t>(note);
    return index < enharmonics.size() ? enharmonics[index] : std::span<const Note>{};
}

double rawValue(NoteDuration duration) {
    return durationValues[static_cast<std::size_t>(duration)];
}

std::optional<NoteDuration> noteDurationFromRawValue(double raw) {
    return caseOf<NoteDuration>(durationValues, raw);
}

std::string_view rawValue(TimeSignature signature) {
    return timeSignatureValues[static_cast<std::size_t>(signature)];
}

std::optional<TimeSignature> timeSignatureFromRawValue(std::string_view raw) {
    return caseOf<TimeSignature>(timeSignatureValues, raw);
}

std::string_view rawValue(Inversion inversion) {
    return inversionKeys[static_cast<std::size_t>(inversion)];
}

std::optional<Inversion> inversionFromRawValue(std::string_view raw) {
    return caseOf<Inversion>(inversionKeys, raw);
}

std::optional<Inversion> inversionFromVariant(int variant) {
    if (variant < 0 || variant >= static_cast<int>(inversionKeys.size())) return std::nullopt;
    return static_cast<Inversion>(variant);
}

std::string_view localizedTitle(Inversion inversion) {
    return inversionTitles[static_cast<std::size_t>(inversion)];
}

} // namespace fq::core
