#pragma once

// The tuner's display decisions, apart from any drawing: nearest note and cents, which
// note may be shown and when, the instruction, the gauge's rotation and the graph's
// history. Chromatic: the target is always the nearest semitone of A = 440 Hz.

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::tuner {

namespace config {
inline constexpr double referenceFrequency = 440.0;
inline constexpr int referenceNoteNumber = 69;
/// The numbers on show change at most this often, in seconds.
inline constexpr double displayInterval = 0.2;
/// In tune from -10 to 10 cents, both included.
inline constexpr double inTuneCents = 10.0;
/// A note's count stops here; holding it there wipes the other counts.
inline constexpr int densityLimit = 10;
/// Among three notes or more, the shown one must lead the next by this much.
inline constexpr int densityLead = 6;
inline constexpr double gaugeDegreesPerNote = 30.0;
} // namespace config

/// 12·log2(f/440) + 69, halves rounded away from zero; -1 for f at or below 0.
int nearestNoteNumber(double frequency);
/// Cents from the nearest note, between -50 and 50; 0 for f at or below 0.
double deviationInCents(double frequency);
/// "A₄": the pitch name and the octave in subscript digits; none for a negative pitch class.
std::optional<std::string> noteDisplayName(int noteNumber);
/// "A4": the same name as it is spoken.
std::optional<std::string> noteAnnouncementName(int noteNumber);

struct TuningInstruction {
    std::string_view text;   ///< "Tune Up", "Tune Down" or "In Tune"
    std::string_view symbol; ///< "arrow.up", "arrow.down" or "checkmark.circle.fill"

    friend bool operator==(const TuningInstruction&, const TuningInstruction&) = default;
};

bool isInTune(double cents);
TuningInstruction tuningInstruction(double cents);

enum class TunerDisplayMode : std::uint8_t { gauge, graph };
/// "Gauge", "Live Graph".
std::string_view title(TunerDisplayMode mode);

/// What TunerView decides on each frequency the recognizer reports. Times are seconds
/// on any steady clock; the first reading is free to show.
///
/// Threads: the main executor.
class TunerDisplayModel {
public:
    /// One change of the recognizer's frequency. True when the numbers on show changed.
    bool handleFrequency(double frequency, double now);

    double displayFrequency() const { return displayFrequency_; }
    double displayDeviationCents() const { return displayDeviationCents_; }
    double prevDisplayFrequency() const { return prevDisplayFrequency_; }
    double prevDisplayDeviationCents() const { return prevDisplayDeviationCents_; }
    bool prevFrequencyValueLowerThanCurrent() const { return prevFrequencyValueLowerThanCurrent_; }
    bool prevDeviationValueLowerThanCurrent() const { return prevDeviationValueLowerThanCurrent_; }
    int displayPianoNoteNumber() const { return displayPianoNoteNumber_; }
    const std::optional<std::string>& displayNote() const { return displayNote_; }
    bool graphNeedsUpdating() const { return graphNeedsUpdating_; }
    double deviationInCents() const { return deviationInCents_; }
    double lastUpdateTime() const { return lastUpdateTime_; }
    const std::string& tuningAnnouncementText() const { return tuningAnnouncementText_; }
    const std::string& noteAnnouncementText() const { return noteAnnouncementText_; }
    const std::map<int, int>& noteNumberDensityDictionary() const {
        return noteNumberDensityDictionary_;
    }

    /// Whether a reading is on show: a frequency of 0 or less is none.
    bool hasReading() const { return displayFrequency_ > 0; }
    /// The instruction for the deviation on show.
    TuningInstruction instruction() const { return tuningInstruction(displayDeviationCents_); }
    /// "A₄, 2.0 Cents, 440.0 Hertz", "No data" without a reading, "Unknown" for the note
    /// when it has no name.
    std::string accessibilityValue() const;
    /// What to say when the announcement texts changed since the last call; announced on
    /// change, nothing otherwise.
    std::optional<std::string> takeAnnouncement();

private:
    double displayFrequency_ = 0;
    double displayDeviationCents_ = 0;
    double prevDisplayFrequency_ = 0;
    double prevDisplayDeviationCents_ = 0;
    bool prevFrequencyValueLowerThanCurrent_ = false;
    bool prevDeviationValueLowerThanCurrent_ = false;
    int displayPianoNoteNumber_ = -1;
    std::optional<std::string> displayNote_;
    bool graphNeedsUpdating_ = false;
    bool graphNeedsClearing_ = false;
    int lastNoteNumber_ = -1;
    double lastUpdateTime_ = -1e300;
    double deviationInCents_ = 0;
    std::string tuningAnnouncementText_;
    std::string noteAnnouncementText_;
    std::string lastAnnouncement_;
    std::map<int, int> noteNumberDensityDictionary_;
};

/// The gauge's needle: a note every 30 degrees, moving the short way round.
class AnimatedGauge {
public:
    /// Where the gauge points for a frequency, in [0, 360).
    static double targetRotation(double frequency);
    /// Turns to the frequency the short way; `rotation` is left unreduced.
    void show(double frequency);
    double rotation() const { return rotation_; }
    void setRotation(double degrees) { rotation_ = degrees; }
    double previousFrequency() const { return previousFrequency_; }

private:
    double rotation_ = 0;
    double previousFrequency_ = 0;
};

/// The live graph: the latest deviations, newest first, drawn as a path over a green
/// in-tune bar.
class GraphScene {
public:
    static constexpr std::size_t maxQueueSize = 450;
    static constexpr double greenBarWidthPercentage = 10.0;
    static constexpr double lineWidth = 3.6;
    static constexpr int maxInRangeCount = 50;

    struct Point {
        double x = 0;
        double y = 0;
    };

    GraphScene(double width, double height) : width_(width), height_(height) {}

    /// A new deviation in cents.
    void receive(double deviation);
    /// Horizontal offset from the centre: the deviation limited to ±100, as a share of
    /// half the width.
    double offset(double deviation) const;
    /// The per-frame update: rebuilds the path if a value arrived since. True if it did.
    bool update();
    /// One point per value, newest at the bottom.
    const std::vector<Point>& path() const { return path_; }

    double currentValue() const { return currentValue_; }
    const std::deque<double>& valueQueue() const { return valueQueue_; }
    int inRangeCount() const { return inRangeCount_; }
    bool needsUpdatingGraph() const { return needsUpdatingGraph_; }

private:
    double width_;
    double height_;
    double currentValue_ = 0;
    std::deque<double> valueQueue_;
    int inRangeCount_ = 0;
    bool needsUpdatingGraph_ = false;
    int avgCount_ = 0;
    std::vector<Point> path_;
};

} // namespace fq::tuner
