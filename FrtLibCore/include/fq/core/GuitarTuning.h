#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::core {

/// A named set of six open strings. The raw value is the position in the catalogue.
enum class GuitarTuning : std::uint8_t {
    standard,
    dropD,
    dropC,
    dropCs,
    openG,
    openD,
    openC,
    dadgad,
    halfStepDown,
    wholeStepDown,
    doubleDropD,
    openA,
    openE,
    openB,
    openF,
    dropB,
    dropA,
    dropG,
    newStandard,
    majorThirds,
    allFourths,
    nashville,
    openGMinor,
    openDMinor,
    c6,
    gTaroPatch,
    csus2,
    openAMinor,
    orkney,
    esus4,
    openBb
};

inline constexpr std::size_t guitarTuningCount = 31;

/// Every tuning in catalogue order.
std::span<const GuitarTuning> allGuitarTunings();
std::uint8_t rawValue(GuitarTuning tuning);
std::optional<GuitarTuning> guitarTuningFromRawValue(int raw);
/// The case name ("dropD", "dadgad") by which a person names a tuning on the command line.
std::string_view identifier(GuitarTuning tuning);
std::optional<GuitarTuning> guitarTuningFromIdentifier(std::string_view identifier);

/// One string of a tuning: its note and octave ("C♯2") and MIDI note number.
struct ReferenceToneButtonData {
    std::string_view buttonTitle;
    int noteNumber = 0;

    friend bool operator==(const ReferenceToneButtonData&,
                           const ReferenceToneButtonData&) = default;
};

struct TuningData {
    std::string_view title;
    std::string_view description;
    std::array<ReferenceToneButtonData, 6> referenceToneButtonData; ///< lowest string first
};

/// The catalogue record of a tuning.
const TuningData& tuningData(GuitarTuning tuning);

/// The open notes without octaves, lowest string first, as shape queries take them.
std::array<std::string_view, 6> openNotes(GuitarTuning tuning);

struct TuningGroup {
    std::string_view header;
    std::vector<GuitarTuning> tunings;

    friend bool operator==(const TuningGroup&, const TuningGroup&) = default;
};

/// The five groups in order, each with its tunings in order.
const std::vector<TuningGroup>& tuningGroups();

/// The groups with only the tunings whose title, or else description, contains the
/// text once blanks are removed and case is ignored; groups left empty are dropped.
std::vector<TuningGroup> searchTunings(std::string_view text);

} // namespace fq::core
