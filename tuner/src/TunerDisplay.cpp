#include "fq/tuner/TunerDisplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace fq::tuner {
namespace {

constexpr std::array<std::string_view, 12> pitchNames{"C",  "C♯", "D",  "D♯", "E",  "F",
                                                      "F♯", "G",  "G♯", "A",  "A♯", "B"};
constexpr std::array<std::string_view, 10> subscriptDigits{"₀", "₁", "₂", "₃", "₄",
                                                           "₅", "₆", "₇", "₈", "₉"};

std::optional<std::string> noteName(int noteNumber, bool subscript) {
    const int pitchClass = noteNumber % 12; // truncating, as is the octave
    if (pitchClass < 0) return std::nullopt;
    const int octave = noteNumber / 12 - 1;
    std::string name(pitchNames[static_cast<std::size_t>(pitchClass)]);
    for (const char c : std::to_string(octave)) {
        if (subscript && c >= '0' && c <= '9')
            name += subscriptDigits[static_cast<std::size_t>(c - '0')];
        else
            name += c;
    }
    return name;
}

} // namespace

int nearestNoteNumber(double frequency) {
    if (!(frequency > 0)) return -1;
    return static_cast<int>(std::round(12.0 * std::log2(frequency / config::referenceFrequency) +
                                       config::referenceNoteNumber));
}

double deviationInCents(double frequency) {
    if (!(frequency > 0)) return 0;
    const int note = nearestNoteNumber(frequency);
    const double target =
        config::referenceFrequency * std::pow(2.0, (note - config::referenceNoteNumber) / 12.0);
    return 1200.0 * std::log2(frequency / target);
}

std::optional<std::string> noteDisplayName(int noteNumber) {
    return noteName(noteNumber, true);
}

std::optional<std::string> noteAnnouncementName(int noteNumber) {
    return noteName(noteNumber, false);
}

bool isInTune(double cents) {
    return cents >= -config::inTuneCents && cents <= config::inTuneCents;
}

TuningInstruction tuningInstruction(double cents) {
    if (cents < -config::inTuneCents) return {"Tune Up", "arrow.up"};
    if (cents > config::inTuneCents) return {"Tune Down", "arrow.down"};
    return {"In Tune", "checkmark.circle.fill"};
}

std::string_view title(TunerDisplayMode mode) {
    return mode == TunerDisplayMode::gauge ? "Gauge" : "Live Graph";
}

bool TunerDisplayModel::handleFrequency(double frequency, double now) {
    deviationInCents_ = tuner::deviationInCents(frequency);
    const int note = nearestNoteNumber(frequency);

    auto& counts = noteNumberDensityDictionary_;
    auto& count = counts[note]; // a first hearing enters with 0
    if (count < config::densityLimit) {
        ++count;
    } else {
        for (auto& [other, otherCount] : counts)
            if (other != note) otherCount = 0;
    }

    // highest count first; among equals, the map's order
    std::vector<std::pair<int, int>> ranked(counts.begin(), counts.end());
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    if (ranked.front().first != note) {
        graphNeedsUpdating_ = false;
        return false;
    }
    const bool fewKeys = ranked.size() <= 2;
    if (!fewKeys && ranked[0].second - ranked[1].second < config::densityLead) return false;

    bool changed = false;
    if (now - lastUpdateTime_ > config::displayInterval) {
        displayFrequency_ = frequency;
        displayDeviationCents_ = deviationInCents_;
        displayPianoNoteNumber_ = note;
        displayNote_ = noteDisplayName(note);
        if (!fewKeys) {
            prevFrequencyValueLowerThanCurrent_ = prevDisplayFrequency_ < displayFrequency_;
            prevDisplayFrequency_ = displayFrequency_;
            prevDeviationValueLowerThanCurrent_ =
                prevDisplayDeviationCents_ < displayDeviationCents_;
            prevDisplayDeviationCents_ = displayDeviationCents_;
        }
        noteAnnouncementText_ = noteAnnouncementName(displayPianoNoteNumber_).value_or("");
        lastUpdateTime_ = now;
        lastNoteNumber_ = note;
        if (!fewKeys)
            tuningAnnouncementText_ = std::string(tuningInstruction(displayDeviationCents_).text);
        changed = true;
    }
    graphNeedsUpdating_ = true;
    return changed;
}

std::string TunerDisplayModel::accessibilityValue() const {
    if (!hasReading()) return "No data";
    return fmt::format("{}, {:.1f} Cents, {:.1f} Hertz", displayNote_.value_or("Unknown"),
                       displayDeviationCents_, displayFrequency_);
}

std::optional<std::string> TunerDisplayModel::takeAnnouncement() {
    if (noteAnnouncementText_.empty()) return std::nullopt;
    auto text = tuningAnnouncementText_.empty()
                    ? noteAnnouncementText_
                    : noteAnnouncementText_ + ", " + tuningAnnouncementText_;
    if (text == lastAnnouncement_) return std::nullopt;
    lastAnnouncement_ = text;
    return text;
}

double AnimatedGauge::targetRotation(double frequency) {
    if (!(frequency > 0)) return 0;
    const int note = nearestNoteNumber(frequency);
    if (note < 0) return 0;
    const double cents = deviationInCents(frequency);
    return std::fmod((note + cents / 100.0 - 60.0) * -config::gaugeDegreesPerNote + 360.0, 360.0);
}

void AnimatedGauge::show(double frequency) {
    double target = targetRotation(frequency);
    if (std::abs(target - rotation_) > 180.0) target += target < rotation_ ? 360.0 : -360.0;
    rotation_ += target - rotation_;
    previousFrequency_ = frequency;
}

double GraphScene::offset(double deviation) const {
    return std::clamp(deviation, -100.0, 100.0) / 100.0 * (width_ / 2.0);
}

void GraphScene::receive(double deviation) {
    currentValue_ = deviation;
    valueQueue_.push_front(deviation);
    if (valueQueue_.size() > maxQueueSize) valueQueue_.pop_back();
    const double halfBar = greenBarWidthPercentage / 100.0 * width_ / 2.0;
    if (std::abs(offset(deviation)) <= halfBar)
        ++inRangeCount_;
    else
        inRangeCount_ = 0;
    needsUpdatingGraph_ = true;
}

bool GraphScene::update() {
    if (!needsUpdatingGraph_) return false;
    path_.clear();
    for (std::size_t i = 0; i < valueQueue_.size(); ++i)
        path_.push_back(
            {width_ / 2.0 + offset(valueQueue_[i]),
             height_ - static_cast<double>(i) * height_ / static_cast<double>(maxQueueSize)});
    needsUpdatingGraph_ = false;
    avgCount_ = 0;
    return true;
}

} // namespace fq::tuner
