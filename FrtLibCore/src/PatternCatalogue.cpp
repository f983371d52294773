#include "fq/core/AccompanimentPatterns.h"

#include <cassert>
#include <initializer_list>
#include <utility>

namespace fq::core {
namespace {

// Durations, pitches and drums under the short names a drummer writes on a chart.
constexpr auto m = NoteDuration::minim;
constexpr auto c = NoteDuration::crochet;
constexpr auto q = NoteDuration::quaver;
constexpr auto s = NoteDuration::semiquaver;
constexpr auto d = NoteDuration::demisemiquaver;

constexpr auto root = BassPitch::root;
constexpr auto fifth = BassPitch::fifth;
constexpr auto rest = BassPitch::rest;

constexpr auto kick = DrumNoteType::kick;
constexpr auto snare = DrumNoteType::snare;
constexpr auto rim = DrumNoteType::rim;
constexpr auto hat = DrumNoteType::closedHH;
constexpr auto openHat = DrumNoteType::openHH;
constexpr auto silence = DrumNoteType::rest;

using A = ArpeggioDirection;

constexpr auto ts44 = TimeSignature::ts_44;
constexpr auto ts34 = TimeSignature::ts_34;

struct BassStep {
    NoteDuration duration;
    BassPitch pitch;
    int velocity;
};

struct DrumHit {
    DrumNoteType type;
    std::uint8_t velocity;
};

struct DrumStep {
    NoteDuration duration;
    std::initializer_list<DrumHit> hits;
};

struct PickedNote {
    NoteDuration duration;
    ArpeggioDirection direction;
    std::uint8_t velocity;
};

using PickedStep = std::initializer_list<PickedNote>;

BassPattern bass(std::string_view name, TimeSignature metre,
                 std::initializer_list<BassStep> steps) {
    BassPattern pattern;
    pattern.name = name;
    pattern.timeSignature = metre;
    for (const auto& [duration, pitch, velocity] : steps)
        pattern.bassNotes.push_back(BassNote{duration, pitch, NoteArticulation::pick, velocity});
    return pattern;
}

DrumPattern drums(std::string_view name, TimeSignature metre,
                  std::initializer_list<DrumStep> steps) {
    DrumPattern pattern;
    pattern.name = name;
    pattern.timeSignature = metre;
    for (const auto& step : steps) {
        DrumNote note{{}, step.duration};
        for (const auto& [type, velocity] : step.hits)
            note.drumMIDINote.push_back(DrumMIDINote{type, velocity});
        pattern.drumNotes.push_back(std::move(note));
    }
    return pattern;
}

ArpeggioSequence arpeggio(std::string_view name, TimeSignature metre,
                          std::initializer_list<PickedStep> steps,
                          std::initializer_list<std::string_view> bassNames,
                          std::initializer_list<std::string_view> drumNames) {
    ArpeggioSequence sequence;
    sequence.name = name;
    sequence.timeSignature = metre;
    for (const auto& step : steps) {
        std::vector<ArpeggioNote> notes;
        for (const auto& [duration, direction, velocity] : step)
            notes.push_back(ArpeggioNote{duration, direction, NoteArticulation::pick, velocity});
        sequence.sequence.push_back(std::move(notes));
    }
    for (const auto bassName : bassNames) {
        auto pattern = bassPattern(bassName);
        assert(pattern && "an associated bass pattern is in the catalogue");
        if (pattern)
            sequence.associatedBassPatterns.push_back({Uuid::random(), std::move(*pattern), 1});
    }
    for (const auto drumName : drumNames) {
        auto pattern = drumPattern(drumName);
        assert(pattern && "an associated drum pattern is in the catalogue");
        if (pattern)
            sequence.associatedDrumPatterns.push_back({Uuid::random(), std::move(*pattern), 1});
    }
    return sequence;
}

} // namespace

std::vector<BassPattern> bassPatterns() {
    return {
        bass("Minimal", ts44, {{m, root, 120}, {m, rest, 120}}),
        bass("Minimal+", ts44, {{m, root, 120}, {c, rest, 120}, {c, root, 120}}),
        bass("Sleek", ts44, {{m, root, 120}, {q, fifth, 120}, {q, rest, 120}, {c, rest, 120}}),
        bass("Sleek+", ts44, {{m, root, 120}, {q, fifth, 120}, {q, rest, 120}, {c, root, 120}}),
        bass("Running", ts44,
             {{q, root, 120},
              {q, rest, 120},
              {q, root, 100},
              {q, rest, 120},
              {q, root, 120},
              {q, rest, 120},
              {q, root, 100},
              {q, rest, 120}}),
        bass("Short Picks", ts44,
             {{q, root, 120},
              {q, rest, 120},
              {q, rest, 100},
              {s, root, 100},
              {s, rest, 100},
              {q, root, 120},
              {q, rest, 100},
              {q, rest, 100},
              {q, rest, 120}}),
        bass("Zune", ts44,
             {{c, root, 120}, {q, rest, 120}, {q, root, 120}, {c, root, 120}, {c, rest, 120}}),
        bass("Minimized", ts44,
             {{c, root, 120}, {q, rest, 120}, {q, root, 120}, {c, rest, 120}, {c, rest, 120}}),
        bass("One", ts34, {{m, root, 120}, {c, rest, 120}}),
    };
}

std::vector<DrumPattern> drumPatterns() {
    return {
        drums("Rim", ts44,
              {{c, {{kick, 120}, {hat, 80}}},
               {c, {{hat, 80}}},
               {c, {{rim, 120}, {hat, 80}}},
               {c, {{hat, 80}}}}),
        drums("Hats Only", ts44,
              {{c, {{hat, 80}}}, {c, {{hat, 80}}}, {c, {{hat, 80}}}, {c, {{hat, 80}}}}),
        drums("Fewer Hats", ts44, {{m, {{hat, 80}}}, {m, {{hat, 80}}}}),
        drums(
            "Hats and Snare", ts44,
            {{c, {{kick, 120}, {hat, 80}}}, {c, {{hat, 80}}}, {c, {{hat, 80}}}, {c, {{hat, 80}}}}),
        drums("Snare", ts44,
              {{c, {{kick, 120}, {hat, 80}}},
               {c, {{hat, 80}}},
               {c, {{snare, 127}, {hat, 80}}},
               {c, {{hat, 80}}}}),
        drums("Ether Rim", ts44,
              {{q, {{kick, 120}, {hat, 80}}},
               {q, {{hat, 70}}},
               {q, {{rim, 120}, {hat, 80}}},
               {q, {{kick, 80}, {hat, 70}}},
               {q, {{kick, 120}, {hat, 80}}},
               {q, {{hat, 70}}},
               {q, {{rim, 120}, {hat, 80}}},
               {q, {{hat, 70}}}}),
        drums("Ether Snare", ts44,
              {{q, {{kick, 120}, {hat, 80}}},
               {q, {{hat, 70}}},
               {q, {{snare, 120}, {hat, 80}}},
               {q, {{kick, 80}, {hat, 70}}},
               {q, {{kick, 120}, {hat, 80}}},
               {q, {{hat, 70}}},
               {q, {{snare, 120}, {hat, 80}}},
               {q, {{hat, 70}}}}),
        drums("Zen Rim", ts44,
              {{q, {{kick, 120}, {hat, 80}}},
               {q, {{openHat, 70}}},
               {q, {{rim, 120}, {hat, 80}}},
               {q, {{hat, 70}}},
               {q, {{kick, 120}, {hat, 80}}},
               {q, {{hat, 70}}},
               {q, {{rim, 120}, {hat, 80}}},
               {q, {{hat, 70}}}}),
        drums("Zen Snare", ts44,
              {{q, {{kick, 120}, {hat, 80}}},
               {q, {{openHat, 70}}},
               {q, {{snare, 120}, {hat, 80}}},
               {q, {{hat, 70}}},
               {q, {{kick, 120}, {hat, 80}}},
               {q, {{hat, 70}}},
               {q, {{snare, 120}, {hat, 80}}},
               {q, {{hat, 70}}}}),
        drums("Forewing", ts44,
              {{c, {{kick, 120}, {hat, 80}}},
               {q, {{rim, 120}, {hat, 80}}},
               {s, {{silence, 120}}},
               {s, {{hat, 120}}},
               {c, {{kick, 120}, {hat, 80}}},
               {c, {{rim, 120}, {hat, 80}}}}),
        drums("Three Way", ts34,
              {{q, {{kick, 120}, {hat, 80}}},
               {q, {{hat, 65}}},
               {q, {{hat, 70}}},
               {q, {{snare, 120}, {hat, 80}}},
               {q, {{hat, 65}}},
               {q, {{hat, 70}}}}),
    };
}

std::vector<ArpeggioSequence> arpeggioSequences() {
    return {
        arpeggio("Modest", ts44, {{{m, A::t, 127}}, {{c, A::b, 120}}, {{c, A::t, 80}}},
                 {"Minimal", "Minimal+", "Sleek", "Sleek+", "Running"},
                 {"Rim", "Hats Only", "Fewer Hats", "Snare"}),
        arpeggio("Ethereal", ts44,
                 {{{q, A::t, 127}},
                  {{q, A::d, 80}},
                  {{q, A::d, 90}},
                  {{c, A::b, 120}},
                  {{q, A::d, 90}},
                  {{q, A::d, 80}},
                  {{q, A::b, 127}}},
                 {"Short Picks", "Minimal", "Minimal+", "Sleek", "Sleek+", "Running"},
                 {"Ether Rim", "Ether Snare", "Rim", "Hats Only", "Fewer Hats", "Snare"}),
        arpeggio("Velvet", ts44,
                 {{{q, A::t, 127}},
                  {{s, A::d, 80}},
                  {{s, A::d, 90}},
                  {{q, A::d, 80}},
                  {{c, A::b, 120}},
                  {{q, A::d, 90}},
                  {{q, A::d, 80}},
                  {{q, A::b, 127}}},
                 {"Minimal+", "Minimal", "Sleek", "Sleek+", "Running"},
                 {"Ether Snare", "Ether Rim", "Rim", "Hats Only", "Fewer Hats", "Snare"}),
        arpeggio("ThreeO", ts34,
                 {{{q, A::t, 127}},
                  {{q, A::d, 80}},
                  {{q, A::d, 60}},
                  {{q, A::b, 120}},
                  {{q, A::u, 80}},
                  {{q, A::u, 80}}},
                 {"One"}, {"Three Way"}),
        arpeggio("Stravolt", ts44,
                 {{{q, A::t, 127}},
                  {{q, A::d, 80}},
                  {{q, A::d, 60}},
                  {{q, A::d, 80}},
                  {{q, A::b, 120}},
                  {{q, A::u, 80}},
                  {{q, A::u, 75}},
                  {{q, A::d, 90}}},
                 {"Sleek", "Minimal", "Short Picks", "Minimal+", "Sleek+", "Running"},
                 {"Snare", "Rim", "Ether Snare", "Ether Rim", "Hats Only", "Fewer Hats"}),
        arpeggio("Fretzen", ts44,
                 {{{q, A::t, 127}},
                  {{s, A::d, 80}},
                  {{s, A::d, 80}},
                  {{q, A::b, 120}},
                  {{q, A::u, 80}},
                  {{q, A::t, 110}},
                  {{q, A::d, 80}},
                  {{c, A::b, 120}}},
                 {"Zune", "Minimized", "Minimal", "Minimal+", "Sleek", "Sleek+", "Running"},
                 {"Zen Rim", "Zen Snare", "Rim", "Hats Only", "Fewer Hats", "Snare"}),
        arpeggio("Swingy", ts44,
                 {{{c, A::t, 127}},
                  {{q, A::u, 80}},
                  {{d, A::r, 80}},
                  {{s, A::b, 80}},
                  {{d, A::r, 80}},
                  {{q, A::r, 80}},
                  {{d, A::r, 80}},
                  {{s, A::u, 120}},
                  {{d, A::r, 80}},
                  {{q, A::u, 80}},
                  {{d, A::r, 80}},
                  {{s, A::d, 110}},
                  {{d, A::r, 80}}},
                 {"Minimal", "Minimal+", "Sleek", "Sleek+", "Running"},
                 {"Forewing", "Rim", "Hats Only", "Fewer Hats", "Snare"}),
        arpeggio("Echolet", ts44,
                 {{{c, A::t, 120}, {c, A::b, 120}},
                  {{q, A::u, 80}},
                  {{q, A::u, 80}},
                  {{q, A::t, 100}},
                  {{q, A::b, 120}},
                  {{q, A::u, 110}},
                  {{q, A::u, 80}}},
                 {"Minimized", "Minimal", "Minimal+", "Sleek", "Sleek+", "Running"},
                 {"Ether Rim", "Ether Snare", "Rim", "Hats Only", "Fewer Hats", "Snare"}),
        arpeggio("Falling", ts44,
                 {{{q, A::t, 120}},
                  {{q, A::iii, 80}},
                  {{q, A::b, 110}},
                  {{q, A::t, 120}},
                  {{q, A::iii, 70}},
                  {{q, A::b, 100}},
                  {{q, A::t, 110}},
                  {{q, A::iii, 80}}},
                 {"Minimized", "Minimal", "Minimal+", "Sleek", "Sleek+", "Running"},
                 {"Ether Snare", "Ether Rim", "Rim", "Hats Only", "Fewer Hats", "Snare"}),
        arpeggio("Drezzle", ts44,
                 {{{c, A::t, 120}},
                  {{q, A::r, 80}},
                  {{c, A::b, 110}},
                  {{c, A::u, 70}},
                  {{q, A::u, 100}}},
                 {"Minimal", "Minimal+", "Sleek", "Sleek+", "Running"},
                 {"Rim", "Hats Only", "Fewer Hats", "Snare"}),
        arpeggio("Baskin", ts44,
                 {{{q, A::t, 127}},
                  {{q, A::iii, 80}},
                  {{q, A::d, 100}},
                  {{q, A::u, 80}},
                  {{q, A::b, 120}},
                  {{q, A::u, 80}},
                  {{q, A::u, 75}},
                  {{q, A::d, 90}}},
                 {"Minimal", "Short Picks", "Minimal+", "Sleek", "Sleek+", "Running"},
                 {"Rim", "Ether Snare", "Ether Rim", "Hats Only", "Fewer Hats", "Snare"}),
        arpeggio("Glint", ts44,
                 {{{c, A::t, 127}, {q, A::b, 127}},
                  {{q, A::iii, 80}},
                  {{c, A::b, 120}},
                  {{q, A::iii, 100}},
                  {{q, A::b, 127}},
                  {{q, A::iii, 80}}},
                 {"Minimal", "Short Picks", "Minimal+", "Sleek", "Sleek+", "Running"},
                 {"Hats Only", "Rim", "Ether Snare", "Ether Rim", "Fewer Hats", "Snare"}),
    };
}

std::optional<BassPattern> bassPattern(std::string_view name) {
    for (auto& pattern : bassPatterns())
        if (pattern.name == name) return std::move(pattern);
    return std::nullopt;
}

std::optional<DrumPattern> drumPattern(std::string_view name) {
    for (auto& pattern : drumPatterns())
        if (pattern.name == name) return std::move(pattern);
    return std::nullopt;
}

} // namespace fq::core
