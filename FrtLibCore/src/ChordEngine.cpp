// The shape generator. It walks the same windows, candidates, combinations and
// muting expansion as the plain reading of the rules, in the same order, but on
// integers: a note is its pitch class (the engine spells everything from the
// plain row, so a name and a pitch class stand for each other), a set of notes
// is a 12-bit mask, and a shape is six frets packed into one word.
//
// Two facts make it fast without changing a result:
//  - every expansion of a combination sounds the same notes as the combination
//    itself, and the bass test only mutes strings, so a combination that lacks a
//    required note can never yield a shape: whole subtrees of the product are
//    skipped as soon as the strings left cannot supply the missing notes;
//  - whether a shape passes, and what it becomes, depends on its frets alone, so
//    a shape met again (in the same window or a later one) is skipped.
#include "fq/core/ChordEngine.h"

#include "fq/core/Diagnostics.h"
#include "fq/core/Spelling.h"

#include <fmt/format.h>

#include <array>

namespace fq::core {
namespace {

constexpr int rowLength = 24; // the engine's rows hold two rounds
constexpr int muted = -1;

using Frets = std::array<int, 6>; // index 0 is the highest string
using Mask = std::uint16_t;

Mask bit(int pitchClass) {
    return static_cast<Mask>(1u << pitchClass);
}

int indexInRows(std::string_view name, std::initializer_list<SpellingRow> order) {
    for (const auto row : order) {
        const auto& entries = spellingRow(row);
        for (int i = 0; i < rowLength; ++i)
            if (entries[static_cast<std::size_t>(i)] == name) return i;
    }
    return -1;
}

/// Six frets in one word, five bits a string, so that shapes hash and compare cheaply.
std::uint32_t pack(const Frets& frets) {
    std::uint32_t key = 0;
    for (int fret : frets)
        key = (key << 5) | static_cast<std::uint32_t>(fret + 1);
    return key;
}

/// Packed shapes met so far: open addressing, since a query meets thousands of
/// shapes and node-based sets spend most of their time allocating.
class ShapeSet {
public:
    ShapeSet() : slots_(1024, empty) {}

    /// Adds the shape; false when it was there already.
    bool insert(std::uint32_t key) {
        if ((count_ + 1) * 2 > slots_.size()) grow();
        if (!place(slots_, key)) return false;
        ++count_;
        return true;
    }

private:
    static constexpr std::uint32_t empty = 0xFFFFFFFF; // no packed shape has all bits set

    static bool place(std::vector<std::uint32_t>& slots, std::uint32_t key) {
        const std::size_t mask = slots.size() - 1;
        for (std::size_t i = (key * 0x9E3779B1u) & mask;; i = (i + 1) & mask) {
            if (slots[i] == key) return false;
            if (slots[i] == empty) {
                slots[i] = key;
                return true;
            }
        }
    }

    void grow() {
        std::vector<std::uint32_t> larger(slots_.size() * 2, empty);
        for (auto key : slots_)
            if (key != empty) place(larger, key);
        slots_.swap(larger);
    }

    std::vector<std::uint32_t> slots_;
    std::size_t count_ = 0;
};

struct Chord {
    Mask notes = 0;
    Mask required = 0;
    int bass = -1;
};

struct Strings {
    std::array<int, 6> open{};         ///< position of the open note in the rows
    std::array<bool, 6> openInChord{}; ///< the open note as written is a chord note
};

class Generator {
public:
    Generator(const Chord& chord, const Strings& strings, int limit)
        : chord_(chord), strings_(strings), limit_(limit) {}

    std::vector<ChordPosition> run() {
        for (int span : {2, 3, 4}) {
            const int last = span == 2 ? 0 : 12;
            for (int start = 0; start <= last && !done_; ++start)
                window(start, span);
            if (done_) break;
        }
        auto result = lowestStringFirst(first_);
        if (!done_) {
            auto second = lowestStringFirst(second_);
            result.insert(result.end(), std::make_move_iterator(second.begin()),
                          std::make_move_iterator(second.end()));
        }
        return result;
    }

private:
    struct Shape {
        Frets frets;
        std::vector<int> fingers;
    };

    int pitchAt(int string, int fret) const {
        const int index = strings_.open[static_cast<std::size_t>(string)] + fret;
        return index < rowLength ? index % 12 : -1;
    }

    void window(int start, int span) {
        // candidates per string: muted first, then each fret in turn, an open string
        // standing in for a fret that is no chord note
        for (int s = 0; s < 6; ++s) {
            auto& list = candidates_[static_cast<std::size_t>(s)];
            list.count = 0;
            list.notes = 0;
            const auto add = [&](int fret) {
                for (int i = 0; i < list.count; ++i)
                    if (list.frets[static_cast<std::size_t>(i)] == fret) return;
                list.frets[static_cast<std::size_t>(list.count++)] = fret;
                if (fret != muted) list.notes |= bit(pitchAt(s, fret));
            };
            add(muted);
            for (int j = 0; j < span; ++j) {
                const int pc = pitchAt(s, start + j);
                if (pc >= 0 && (chord_.notes & bit(pc)))
                    add(start + j);
                else if (strings_.openInChord[static_cast<std::size_t>(s)])
                    add(0);
            }
        }
        reachable_[6] = 0;
        for (int s = 5; s >= 0; --s)
            reachable_[static_cast<std::size_t>(s)] =
                reachable_[static_cast<std::size_t>(s + 1)] |
                candidates_[static_cast<std::size_t>(s)].notes;
        Frets frets{};
        combine(0, 0, frets);
    }

    void combine(int string, Mask sounding, Frets& frets) {
        if (done_) return;
        if (string == 6) {
            // no expansion can add a note, nor a bass on strings 1 to 5 that the combination lacks
            if ((sounding & chord_.required) == chord_.required && holdsBass(frets)) expand(frets);
            return;
        }
        const Mask possible = sounding | reachable_[static_cast<std::size_t>(string)];
        if ((possible & chord_.required) != chord_.required)
            return; // the strings left cannot supply a required note
        const auto& list = candidates_[static_cast<std::size_t>(string)];
        for (int i = 0; i < list.count && !done_; ++i) {
            const int fret = list.frets[static_cast<std::size_t>(i)];
            frets[static_cast<std::size_t>(string)] = fret;
            combine(string + 1,
                    fret == muted ? sounding : Mask(sounding | bit(pitchAt(string, fret))), frets);
        }
    }

    bool holdsBass(const Frets& frets) const {
        for (int s = 1; s < 6; ++s)
            if (frets[static_cast<std::size_t>(s)] != muted &&
                pitchAt(s, frets[static_cast<std::size_t>(s)]) == chord_.bass)
                return true;
        return false;
    }

    /// Mutes strings 5, 4, … in turn, keeping each step that sounds the same notes
    /// over the same lowest note.
    void expand(const Frets& combination) {
        // notes and lowest sounding string of strings 0 to s - 1, for every s
        std::array<Mask, 7> notesAbove{};
        std::array<int, 7> lowestAbove{};
        lowestAbove[0] = -1;
        for (int s = 0; s < 6; ++s) {
            const int fret = combination[static_cast<std::size_t>(s)];
            const bool sounds = fret != muted;
            notesAbove[static_cast<std::size_t>(s + 1)] =
                notesAbove[static_cast<std::size_t>(s)] |
                (sounds ? bit(pitchAt(s, fret)) : Mask(0));
            lowestAbove[static_cast<std::size_t>(s + 1)] =
                sounds ? s : lowestAbove[static_cast<std::size_t>(s)];
        }
        const int lowest = lowestAbove[6];
        if (lowest < 0) return;
        const auto bassOf = [&](int s) {
            return pitchAt(s, combination[static_cast<std::size_t>(s)]);
        };
        const int bass = bassOf(lowest);
        const Mask notes = notesAbove[6];
        consider(combination);
        Frets frets = combination;
        for (int s = 5; s >= 1 && !done_; --s) {
            const bool wasSounding = frets[static_cast<std::size_t>(s)] != muted;
            frets[static_cast<std::size_t>(s)] = muted;
            const int now = lowestAbove[static_cast<std::size_t>(s)];
            if (now < 0) break;
            // muting a muted string repeats the shape before it, which was considered already
            if (wasSounding && bassOf(now) == bass &&
                notesAbove[static_cast<std::size_t>(s)] == notes)
                consider(frets);
        }
    }

    /// The sounding notes.
    Mask sounding(const Frets& frets) const {
        Mask notes = 0;
        for (int s = 0; s < 6; ++s)
            if (frets[static_cast<std::size_t>(s)] != muted)
                notes |= bit(pitchAt(s, frets[static_cast<std::size_t>(s)]));
        return notes;
    }

    void consider(Frets frets) {
        if (!seen_.insert(pack(frets))) return;
        int bassString = -1;
        for (int s = 5; s >= 1 && bassString < 0; --s)
            if (frets[static_cast<std::size_t>(s)] != muted &&
                pitchAt(s, frets[static_cast<std::size_t>(s)]) == chord_.bass)
                bassString = s;
        if (bassString < 0) return;
        for (int s = bassString + 1; s < 6; ++s)
            frets[static_cast<std::size_t>(s)] = muted;
        if ((sounding(frets) & chord_.required) != chord_.required) return;
        if (!tested_.insert(pack(frets))) return;

        const std::array<int, 6> lowFirst{frets[5], frets[4], frets[3],
                                          frets[2], frets[1], frets[0]};
        auto fingers = ChordEngine::fingering(lowFirst);
        for (std::size_t s = 0; s < fingers.size(); ++s)
            if (lowFirst[s] > 0 && fingers[s] == 0) return;

        const bool secondClass = frets[0] == muted || frets[1] == muted || frets[2] == muted ||
                                 frets[3] == muted || (frets[4] == muted && frets[5] == 0);
        (secondClass ? second_ : first_).push_back({frets, std::move(fingers)});
        if (!secondClass && limit_ != -1 && static_cast<int>(first_.size()) >= limit_) done_ = true;
    }

    static std::vector<ChordPosition> lowestStringFirst(const std::vector<Shape>& shapes) {
        std::vector<ChordPosition> positions;
        positions.reserve(shapes.size());
        for (const auto& shape : shapes)
            positions.push_back({{shape.frets.rbegin(), shape.frets.rend()}, shape.fingers});
        return positions;
    }

    struct Candidates {
        std::array<int, 6> frets{};
        int count = 0;
        Mask notes = 0;
    };

    const Chord& chord_;
    const Strings& strings_;
    const int limit_;
    std::array<Candidates, 6> candidates_{};
    std::array<Mask, 7> reachable_{};
    ShapeSet seen_;   ///< shapes met in any window
    ShapeSet tested_; ///< shapes after the bass test
    std::vector<Shape> first_;
    std::vector<Shape> second_;
    bool done_ = false;
};

std::string joined(auto values) {
    return fmt::format("{}", fmt::join(values, ","));
}

} // namespace

std::string ChordEngine::memoKey(std::string_view root, std::span<const int> intervals, int limit,
                                 std::span<const std::string_view> tuning) {
    return fmt::format("chordPositions-{}-{}-{}-{}-g{}-v{}-b{}", root, joined(intervals), limit,
                       joined(tuning), chordShapeGeneratorVersion, appVersion(), appBuild());
}

std::vector<ChordPosition>
ChordEngine::chordPositions(std::string_view root, std::span<const int> intervals, int limit,
                            std::span<const std::string_view> tuning) const {
    const auto key = memoKey(root, intervals, limit, tuning);
    if (memo_) {
        if (const auto stored = memo_->data(key)) {
            if (auto decoded = decodeChordPositions(*stored)) return std::move(*decoded);
            // an unreadable memo is generated afresh and stored over
        }
    }

    const int r = indexInRows(root, {SpellingRow::regular, SpellingRow::flat, SpellingRow::sharp,
                                     SpellingRow::doubleSharp, SpellingRow::doubleFlat});
    if (r < 0 || tuning.size() != 6) return {};

    Chord chord;
    Mask fifths = 0;
    bool first = true;
    for (int interval : intervals) {
        const int index = r + (interval <= 12 ? interval : interval % 12);
        if (index < 0 || index >= rowLength) {
            diagnostic("Out of Bounds");
            continue;
        }
        const int pc = index % 12;
        chord.notes |= bit(pc);
        if (first) chord.bass = pc;
        first = false;
        if (((interval % 12) + 12) % 12 == 7) fifths |= bit(pc);
    }
    chord.required = intervals.size() >= 4 && fifths ? Mask(chord.notes & ~fifths) : chord.notes;

    Strings strings;
    const auto& plain = spellingRow(SpellingRow::regular);
    for (int s = 0; s < 6; ++s) {
        const auto written = tuning[static_cast<std::size_t>(5 - s)];
        const int o =
            indexInRows(written, {SpellingRow::regular, SpellingRow::sharp, SpellingRow::flat,
                                  SpellingRow::doubleSharp, SpellingRow::doubleFlat});
        if (o < 0) return {};
        strings.open[static_cast<std::size_t>(s)] = o;
        // only a name of the plain row can equal a chord note
        strings.openInChord[static_cast<std::size_t>(s)] =
            plain[static_cast<std::size_t>(o)] == written && (chord.notes & bit(o % 12));
    }

    auto positions = Generator(chord, strings, limit).run();
    if (memo_) memo_->setData(key, encodeChordPositions(positions));
    return positions;
}

} // namespace fq::core
