#include "fq/tuner/TunerDisplay.h"

#include <gtest/gtest.h>

#include <cmath>

namespace fq::tuner {
namespace {

double frequencyOf(double note) {
    return 440.0 * std::pow(2.0, (note - 69.0) / 12.0);
}

TEST(TunerDisplay, NearestNoteCentsAndNames) {
    struct Case {
        double frequency;
        int note;
        double cents;
        const char* name;
        const char* spoken;
    };
    const Case cases[] = {
        {440.0, 69, 0.0, "A₄", "A4"},
        {110.0, 45, 0.0, "A₂", "A2"},
        {frequencyOf(40), 40, 0.0, "E₂", "E2"},
        {frequencyOf(61.25), 61, 25.0, "C♯₄", "C♯4"},
        {frequencyOf(59.6), 60, -40.0, "C₄", "C4"},
        // a half step rounds away from zero: up to the next note
        {frequencyOf(69.5), 70, -50.0, "A♯₄", "A♯4"},
        {frequencyOf(127.0), 127, 0.0, "G₉", "G9"},
        {frequencyOf(11.0), 11, 0.0, "B-₁", "B-1"},
        {frequencyOf(120.0), 120, 0.0, "C₉", "C9"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.frequency);
        EXPECT_EQ(nearestNoteNumber(c.frequency), c.note);
        EXPECT_NEAR(deviationInCents(c.frequency), c.cents, 1e-6);
        EXPECT_EQ(noteDisplayName(c.note), c.name);
        EXPECT_EQ(noteAnnouncementName(c.note), c.spoken);
    }
    for (const double none : {0.0, -3.0}) {
        EXPECT_EQ(nearestNoteNumber(none), -1);
        EXPECT_EQ(deviationInCents(none), 0.0);
    }
    EXPECT_EQ(noteDisplayName(-1), std::nullopt);
    EXPECT_EQ(noteDisplayName(-13), std::nullopt);
    EXPECT_EQ(noteDisplayName(123), "D♯₉");
}

TEST(TunerDisplay, InTuneBoundsAndInstructions) {
    struct Case {
        double cents;
        const char* text;
        const char* symbol;
    };
    const Case cases[] = {
        {0.0, "In Tune", "checkmark.circle.fill"},
        {10.0, "In Tune", "checkmark.circle.fill"},
        {-10.0, "In Tune", "checkmark.circle.fill"},
        {10.01, "Tune Down", "arrow.down"},
        {-10.01, "Tune Up", "arrow.up"},
        {49.9, "Tune Down", "arrow.down"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cents);
        EXPECT_EQ(tuningInstruction(c.cents), (TuningInstruction{c.text, c.symbol}));
        EXPECT_EQ(isInTune(c.cents), std::string_view(c.text) == "In Tune");
    }
    EXPECT_EQ(title(TunerDisplayMode::gauge), "Gauge");
    EXPECT_EQ(title(TunerDisplayMode::graph), "Live Graph");
}

TEST(TunerDisplayModel, FirstReadingShowsAndAnnouncesOnce) {
    TunerDisplayModel model;
    EXPECT_EQ(model.accessibilityValue(), "No data");
    EXPECT_TRUE(model.handleFrequency(440.0, 0.0));
    EXPECT_EQ(model.displayNote(), "A₄");
    EXPECT_EQ(model.displayPianoNoteNumber(), 69);
    EXPECT_EQ(model.instruction().text, "In Tune");
    EXPECT_TRUE(model.graphNeedsUpdating());
    // at most two keys: the tuning announcement and the previous values stay untouched
    EXPECT_EQ(model.tuningAnnouncementText(), "");
    EXPECT_EQ(model.prevDisplayFrequency(), 0.0);
    EXPECT_EQ(model.noteAnnouncementText(), "A4");
    EXPECT_EQ(model.takeAnnouncement(), "A4");
    EXPECT_EQ(model.takeAnnouncement(), std::nullopt);
}

TEST(TunerDisplayModel, ThrottleLetsTheGraphRunAndHoldsTheNumbers) {
    TunerDisplayModel model;
    ASSERT_TRUE(model.handleFrequency(440.0, 1.0));
    // 0.1 s later: the graph takes the value, the numbers stay
    EXPECT_FALSE(model.handleFrequency(441.0, 1.1));
    EXPECT_TRUE(model.graphNeedsUpdating());
    EXPECT_EQ(model.displayFrequency(), 440.0);
    EXPECT_DOUBLE_EQ(model.deviationInCents(), deviationInCents(441.0));
    // exactly 0.2 s is not more than 0.2 s
    EXPECT_FALSE(model.handleFrequency(442.0, 1.2));
    EXPECT_TRUE(model.handleFrequency(443.0, 1.21));
    EXPECT_EQ(model.displayFrequency(), 443.0);
}

TEST(TunerDisplayModel, DensityDecidesWhichNoteMayShow) {
    const double a = 440.0, b = frequencyOf(71), c = frequencyOf(72);
    TunerDisplayModel model;
    double now = 0;
    for (int i = 0; i < 10; ++i)
        model.handleFrequency(a, now += 1);
    EXPECT_EQ(model.noteNumberDensityDictionary().at(69), 10);

    // a new note heard once is not on top: nothing shows and the graph stops
    EXPECT_FALSE(model.handleFrequency(b, now += 1));
    EXPECT_FALSE(model.graphNeedsUpdating());
    EXPECT_EQ(model.displayPianoNoteNumber(), 69);

    // the 11th reading of A wipes the others' counts but keeps their keys
    model.handleFrequency(a, now += 1);
    EXPECT_EQ(model.noteNumberDensityDictionary().at(71), 0);
    EXPECT_EQ(model.noteNumberDensityDictionary().size(), 2u);

    // with two keys, B shows as soon as it leads
    for (int i = 0; i < 10; ++i)
        model.handleFrequency(b, now += 1);
    EXPECT_EQ(model.displayPianoNoteNumber(), 69);
    EXPECT_TRUE(model.handleFrequency(b, now += 1)); // B: 10 and A wiped to 0
    EXPECT_EQ(model.displayPianoNoteNumber(), 71);

    // a third note is never on top while B holds 10; B's next reading wipes it
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(model.handleFrequency(c, now += 1));
    EXPECT_FALSE(model.graphNeedsUpdating());
    EXPECT_TRUE(model.handleFrequency(b, now += 1));
    EXPECT_EQ(model.noteNumberDensityDictionary().size(), 3u);
    EXPECT_EQ(model.noteNumberDensityDictionary().at(72), 0);
}

TEST(TunerDisplayModel, ALeadBelowSixLeavesTheGraphFlagAsItWas) {
    // equal counts rank the lower note first here, so each new lower note comes out on top
    TunerDisplayModel model;
    model.handleFrequency(frequencyOf(72), 0.0);
    EXPECT_TRUE(model.handleFrequency(frequencyOf(71), 1.0));
    ASSERT_TRUE(model.graphNeedsUpdating());
    EXPECT_FALSE(model.handleFrequency(frequencyOf(69), 2.0)); // three keys, lead 0
    EXPECT_TRUE(model.graphNeedsUpdating());
    EXPECT_EQ(model.displayPianoNoteNumber(), 71);
}

TEST(TunerDisplayModel, ThreeKeysNeedALeadOfSixAndTrackPreviousValues) {
    TunerDisplayModel model;
    double now = 0;
    // counts A4:3, B4:2, then C5 climbs
    for (int i = 0; i < 3; ++i)
        model.handleFrequency(440.0, now += 1);
    for (int i = 0; i < 2; ++i)
        model.handleFrequency(frequencyOf(71), now += 1);
    const double c = frequencyOf(72.2);
    model.handleFrequency(440.0, now += 1); // graph on
    ASSERT_TRUE(model.graphNeedsUpdating());
    // C is not on top until it passes A's 4, and then leads by less than 6 until 10
    bool shown = false;
    int readings = 0;
    while (!shown && readings < 20) {
        ++readings;
        shown = model.handleFrequency(c, now += 1);
        if (!shown) {
            EXPECT_FALSE(model.graphNeedsUpdating()) << readings;
        }
    }
    // C must reach 4 + 6 = 10 before it shows
    EXPECT_EQ(readings, 10);
    EXPECT_EQ(model.displayPianoNoteNumber(), 72);
    EXPECT_EQ(model.tuningAnnouncementText(), "Tune Down");
    EXPECT_TRUE(model.prevFrequencyValueLowerThanCurrent());
    EXPECT_EQ(model.prevDisplayFrequency(), c);
}

TEST(AnimatedGauge, TargetsAndTheShortWayRound) {
    EXPECT_EQ(AnimatedGauge::targetRotation(0), 0.0);
    // C4 (note 60) points straight up; each semitone is 30 degrees the other way
    EXPECT_NEAR(AnimatedGauge::targetRotation(frequencyOf(60)), 0.0, 1e-9);
    EXPECT_NEAR(AnimatedGauge::targetRotation(frequencyOf(61)), 330.0, 1e-9);
    EXPECT_NEAR(AnimatedGauge::targetRotation(frequencyOf(59)), 30.0, 1e-9);
    EXPECT_NEAR(AnimatedGauge::targetRotation(frequencyOf(60.5 - 1e-9)), 345.0, 1e-6);

    struct Case {
        double from;
        double note; // the frequency's note, fractional for cents
        double to;
    };
    const Case cases[] = {
        {350.0, 59.0 + 2.0 / 3.0, 370.0}, // target 10: forward 20, not back 340
        {10.0, 60.0 + 2.0 / 3.0, -20.0},  // target 340: back 30
        {90.0, 57.0, 90.0},
        {0.0, 63.0, -90.0}, // target 270: back 90
        {0.0, 66.0, 180.0}, // exactly 180 apart: forward as it stands
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.from);
        AnimatedGauge gauge;
        gauge.setRotation(c.from);
        gauge.show(frequencyOf(c.note));
        EXPECT_NEAR(gauge.rotation(), c.to, 1e-6);
    }
}

TEST(GraphScene, QueueBarAndPath) {
    GraphScene scene(200, 450);
    EXPECT_EQ(scene.offset(150), 100.0); // at the edge, not beyond
    EXPECT_EQ(scene.offset(-150), -100.0);
    EXPECT_EQ(scene.offset(10), 10.0);

    // the bar is ±10 cents: 10 counts as inside, 10.5 does not
    scene.receive(10);
    scene.receive(-10);
    EXPECT_EQ(scene.inRangeCount(), 2);
    scene.receive(10.5);
    EXPECT_EQ(scene.inRangeCount(), 0);

    for (int i = 0; i < 448; ++i)
        scene.receive(i);
    EXPECT_EQ(scene.valueQueue().size(), 450u);
    scene.receive(-1); // 452 values in all: the two oldest are gone
    EXPECT_EQ(scene.valueQueue().size(), 450u);
    EXPECT_EQ(scene.valueQueue().front(), -1.0);
    EXPECT_EQ(scene.valueQueue().back(), 10.5);
    EXPECT_EQ(scene.currentValue(), -1.0);

    EXPECT_TRUE(scene.update());
    EXPECT_FALSE(scene.update()); // once per frame, and only after new values
    ASSERT_EQ(scene.path().size(), 450u);
    EXPECT_DOUBLE_EQ(scene.path()[0].y, 450.0);
    EXPECT_DOUBLE_EQ(scene.path()[0].x, 99.0);
    EXPECT_DOUBLE_EQ(scene.path()[449].y, 1.0);
}

} // namespace
} // namespace fq::tuner
