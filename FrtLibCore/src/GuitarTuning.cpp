#include "fq/core/GuitarTuning.h"

#include <unicode/unistr.h>

#include <algorithm>

namespace fq::core {
namespace {

struct CatalogueRow {
    GuitarTuning tuning;
    std::string_view identifier;
    TuningData data;
};

// Kept exactly as published, oddities included: Nashville's B string is lower than
// its G string, Open G and the G Taro Patch sound the same, and Open G Minor and
// Open B♭ spell their accidentals with flats.
const std::array<CatalogueRow, guitarTuningCount> catalogue{{
    {GuitarTuning::standard,
     "standard",
     {"Standard Tuning",
      "Standard tuning for a six-string guitar",
      {{{"E2", 40}, {"A2", 45}, {"D3", 50}, {"G3", 55}, {"B3", 59}, {"E4", 64}}}}},
    {GuitarTuning::dropD,
     "dropD",
     {"Drop D",
      "Lower the low E string to D.",
      {{{"D2", 38}, {"A2", 45}, {"D3", 50}, {"G3", 55}, {"B3", 59}, {"E4", 64}}}}},
    {GuitarTuning::dropC,
     "dropC",
     {"Drop C",
      "Used in heavier rock and metal genres.",
      {{{"C2", 36}, {"G2", 43}, {"C3", 48}, {"F3", 53}, {"A3", 57}, {"D4", 62}}}}},
    {GuitarTuning::dropCs,
     "dropCs",
     {"Drop C♯",
      "Used in rock and metal, especially metalcore and hard rock.",
      {{{"C♯2", 37}, {"G♯2", 44}, {"C♯3", 49}, {"F♯3", 54}, {"A♯3", 58}, {"D♯4", 63}}}}},
    {GuitarTuning::openG,
     "openG",
     {"Open G",
      "Creates a G major chord when strummed open.",
      {{{"D2", 38}, {"G2", 43}, {"D3", 50}, {"G3", 55}, {"B3", 59}, {"D4", 62}}}}},
    {GuitarTuning::openD,
     "openD",
     {"Open D",
      "Creates a D major chord when strummed open.",
      {{{"D2", 38}, {"A2", 45}, {"D3", 50}, {"F♯3", 54}, {"A3", 57}, {"D4", 62}}}}},
    {GuitarTuning::openC,
     "openC",
     {"Open C",
      "Creates a C major chord when strummed open.",
      {{{"C2", 36}, {"G2", 43}, {"C3", 48}, {"G3", 55}, {"C4", 60}, {"E4", 64}}}}},
    {GuitarTuning::dadgad,
     "dadgad",
     {"DADGAD",
      "Popular in Celtic and folk music.",
      {{{"D2", 38}, {"A2", 45}, {"D3", 50}, {"G3", 55}, {"A3", 57}, {"D4", 62}}}}},
    {GuitarTuning::halfStepDown,
     "halfStepDown",
     {"Half-Step Down",
      "Standard tuning lowered by one semitone.",
      {{{"D♯2", 39}, {"G♯2", 44}, {"C♯3", 49}, {"F♯3", 54}, {"A♯3", 58}, {"D♯4", 63}}}}},
    {GuitarTuning::wholeStepDown,
     "wholeStepDown",
     {"Whole-Step Down",
      "Standard tuning lowered by two semitones.",
      {{{"D2", 38}, {"G2", 43}, {"C3", 48}, {"F3", 53}, {"A3", 57}, {"D4", 62}}}}},
    {GuitarTuning::doubleDropD,
     "doubleDropD",
     {"Double Drop D",
      "Both E strings dropped to D.",
      {{{"D2", 38}, {"A2", 45}, {"D3", 50}, {"G3", 55}, {"B3", 59}, {"D4", 62}}}}},
    {GuitarTuning::openA,
     "openA",
     {"Open A",
      "Creates an A major chord when strummed open.",
      {{{"E2", 40}, {"A2", 45}, {"E3", 52}, {"A3", 57}, {"C♯4", 61}, {"E4", 64}}}}},
    {GuitarTuning::openE,
     "openE",
     {"Open E",
      "Creates an E major chord when strummed open.",
      {{{"E2", 40}, {"B2", 47}, {"E3", 52}, {"G♯3", 56}, {"B3", 59}, {"E4", 64}}}}},
    {GuitarTuning::openB,
     "openB",
     {"Open B",
      "Creates a B major chord when strummed open. Used in experimental music.",
      {{{"B1", 35}, {"F♯2", 42}, {"B2", 47}, {"F♯3", 54}, {"B3", 59}, {"D♯4", 63}}}}},
    {GuitarTuning::openF,
     "openF",
     {"Open F",
      "Creates an F major chord when strummed open. Less common but used in blues.",
      {{{"C2", 36}, {"F2", 41}, {"C3", 48}, {"F3", 53}, {"A3", 57}, {"C4", 60}}}}},
    {GuitarTuning::dropB,
     "dropB",
     {"Drop B",
      "Lower all strings to a B tuning. Used in heavy metal and rock.",
      {{{"B1", 35}, {"F♯2", 42}, {"B2", 47}, {"E3", 52}, {"G♯3", 56}, {"C♯4", 61}}}}},
    {GuitarTuning::dropA,
     "dropA",
     {"Drop A",
      "Tuning used in extreme metal and djent, featuring a deep A note.",
      {{{"A1", 33}, {"E2", 40}, {"A2", 45}, {"D3", 50}, {"F♯3", 54}, {"B3", 59}}}}},
    {GuitarTuning::dropG,
     "dropG",
     {"Drop G",
      "One of the lowest tunings, often used in djent and extreme metal.",
      {{{"G1", 31}, {"D2", 38}, {"G2", 43}, {"C3", 48}, {"E3", 52}, {"A3", 57}}}}},
    {GuitarTuning::newStandard,
     "newStandard",
     {"New Standard Tuning",
      "Developed by Corvane, based on fifths instead of fourths.",
      {{{"C2", 36}, {"G2", 43}, {"D3", 50}, {"A3", 57}, {"E4", 64}, {"G4", 67}}}}},
    {GuitarTuning::majorThirds,
     "majorThirds",
     {"Major Thirds Tuning",
      "A tuning designed for easier chord shapes with major third intervals.",
      {{{"E2", 40}, {"G♯2", 44}, {"C3", 48}, {"E3", 52}, {"G♯3", 56}, {"C4", 60}}}}},
    {GuitarTuning::allFourths,
     "allFourths",
     {"All Fourths Tuning",
      "Each string is tuned to a perfect fourth apart, similar to bass guitar tuning.",
      {{{"E2", 40}, {"A2", 45}, {"D3", 50}, {"G3", 55}, {"C4", 60}, {"F4", 65}}}}},
    {GuitarTuning::nashville,
     "nashville",
     {"Nashville Tuning",
      "Uses lighter gauge strings for a bright, chorus-like effect. Common in studio recordings.",
      {{{"E3", 52}, {"A3", 57}, {"D4", 62}, {"G4", 67}, {"B3", 59}, {"E4", 64}}}}},
    {GuitarTuning::openGMinor,
     "openGMinor",
     {"Open G Minor",
      "Creates a G minor chord when strummed open. Great for blues and slide guitar.",
      {{{"D2", 38}, {"G2", 43}, {"D3", 50}, {"G3", 55}, {"B♭3", 58}, {"D4", 62}}}}},
    {GuitarTuning::openDMinor,
     "openDMinor",
     {"Open D Minor",
      "Creates a D minor chord when strummed open. Used in folk and blues music.",
      {{{"D2", 38}, {"A2", 45}, {"D3", 50}, {"F3", 53}, {"A3", 57}, {"D4", 62}}}}},
    {GuitarTuning::c6,
     "c6",
     {"C6 Tuning",
      "Common in Hawaiian slack key and lap steel guitar styles.",
      {{{"C2", 36}, {"E2", 40}, {"G2", 43}, {"A2", 45}, {"C3", 48}, {"E3", 52}}}}},
    {GuitarTuning::gTaroPatch,
     "gTaroPatch",
     {"DGDGBD (G Taro Patch)",
      "Popular Hawaiian slack key tuning for open G major chords.",
      {{{"D2", 38}, {"G2", 43}, {"D3", 50}, {"G3", 55}, {"B3", 59}, {"D4", 62}}}}},
    {GuitarTuning::csus2,
     "csus2",
     {"Csus2 Tuning",
      "Creates a suspended second sound, often used for ethereal tones.",
      {{{"C2", 36}, {"G2", 43}, {"C3", 48}, {"G3", 55}, {"D4", 62}, {"G4", 67}}}}},
    {GuitarTuning::openAMinor,
     "openAMinor",
     {"Open A Minor",
      "Creates an A minor chord when strummed open. Used in blues and folk.",
      {{{"E2", 40}, {"A2", 45}, {"E3", 52}, {"A3", 57}, {"C4", 60}, {"E4", 64}}}}},
    {GuitarTuning::orkney,
     "orkney",
     {"Orkney Tuning",
      "Common in Celtic music, offers a rich and resonant sound.",
      {{{"C2", 36}, {"G2", 43}, {"D3", 50}, {"G3", 55}, {"C4", 60}, {"D4", 62}}}}},
    {GuitarTuning::esus4,
     "esus4",
     {"E Sus4 Tuning",
      "Creates a suspended fourth chord, often used in rock and alternative music.",
      {{{"E2", 40}, {"A2", 45}, {"E3", 52}, {"A3", 57}, {"D4", 62}, {"E4", 64}}}}},
    {GuitarTuning::openBb,
     "openBb",
     {"Open B♭",
      "Creates a B♭ major chord when strummed open. Used in jazz and blues.",
      {{{"B♭1", 34}, {"F2", 41}, {"B♭2", 46}, {"F3", 53}, {"B♭3", 58}, {"D4", 62}}}}},
}};

std::array<GuitarTuning, guitarTuningCount> allInOrder() {
    std::array<GuitarTuning, guitarTuningCount> all{};
    for (std::size_t i = 0; i < catalogue.size(); ++i)
        all[i] = catalogue[i].tuning;
    return all;
}

/// Blanks removed and lower case, so that "Open  G" finds "open g" and "openg".
std::string folded(std::string_view text) {
    auto unicode = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
    unicode.findAndReplace(" ", "");
    std::string result;
    unicode.toLower().toUTF8String(result);
    return result;
}

} // namespace

std::span<const GuitarTuning> allGuitarTunings() {
    static const auto all = allInOrder();
    return all;
}

std::uint8_t rawValue(GuitarTuning tuning) {
    return static_cast<std::uint8_t>(tuning);
}

std::optional<GuitarTuning> guitarTuningFromRawValue(int raw) {
    if (raw < 0 || raw >= static_cast<int>(guitarTuningCount)) return std::nullopt;
    return static_cast<GuitarTuning>(raw);
}

std::string_view identifier(GuitarTuning tuning) {
    return catalogue[rawValue(tuning)].identifier;
}

std::optional<GuitarTuning> guitarTuningFromIdentifier(std::string_view name) {
    const auto found =
        std::find_if(catalogue.begin(), catalogue.end(),
                     [&](const CatalogueRow& row) { return row.identifier == name; });
    if (found == catalogue.end()) return std::nullopt;
    return found->tuning;
}

const TuningData& tuningData(GuitarTuning tuning) {
    return catalogue[rawValue(tuning)].data;
}

std::array<std::string_view, 6> openNotes(GuitarTuning tuning) {
    std::array<std::string_view, 6> notes;
    const auto& strings = tuningData(tuning).referenceToneButtonData;
    for (std::size_t s = 0; s < strings.size(); ++s) {
        const auto title = strings[s].buttonTitle;
        notes[s] = title.substr(0, title.find_first_of("0123456789"));
    }
    return notes;
}

const std::vector<TuningGroup>& tuningGroups() {
    using T = GuitarTuning;
    static const std::vector<TuningGroup> groups{
        {"Standard Tuning", {T::standard}},
        {"Common Alternate Tunings",
         {T::dropD, T::dropC, T::openG, T::openD, T::openC, T::dadgad, T::halfStepDown,
          T::wholeStepDown, T::doubleDropD, T::openA, T::openE, T::newStandard, T::majorThirds,
          T::allFourths, T::nashville}},
        {"Other Open Tunings",
         {T::openB, T::openF, T::openGMinor, T::openDMinor, T::gTaroPatch, T::openAMinor,
          T::openBb}},
        {"Other Drop Tunings", {T::dropCs, T::dropB, T::dropA, T::dropG}},
        {"Other Tunings", {T::c6, T::csus2, T::orkney, T::esus4}},
    };
    return groups;
}

std::vector<TuningGroup> searchTunings(std::string_view text) {
    const auto wanted = folded(text);
    std::vector<TuningGroup> result;
    for (const auto& group : tuningGroups()) {
        TuningGroup kept{group.header, {}};
        for (const auto tuning : group.tunings) {
            const auto& data = tuningData(tuning);
            if (wanted.empty() || folded(data.title).find(wanted) != std::string::npos ||
                folded(data.description).find(wanted) != std::string::npos)
                kept.tunings.push_back(tuning);
        }
        if (!kept.tunings.empty()) result.push_back(std::move(kept));
    }
    return result;
}

} // namespace fq::core
