// The control layer's rules: tempo, taps, the switch, the live activity, presets.

#include "ControllerFixture.h"

#include <fq/core/CapturedDiagnostics.h>
#include <fq/core/Diagnostics.h>
#include <fq/personal/PreferenceKeys.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <thread>
#include <tuple>

namespace fq::metronome {
namespace {

namespace keys = personal::keys;
using namespace std::chrono_literals;

struct RecordingSurface final : StatusSurface, HapticsPort, TempoListeningPort {
    bool enabled = true;
    std::optional<Error> failure;
    std::vector<std::string> calls;
    std::vector<HapticStyle> impacts;
    bool idleTimerDisabled = false;

    bool areActivitiesEnabled() const override { return enabled; }
    tl::expected<void, Error> request(const MetronomeAttributes&,
                                      const MetronomeAttributes::ContentState& state) override {
        if (failure) return tl::unexpected(*failure);
        calls.push_back("request " + toJson(state).dump());
        return {};
    }
    void update(const MetronomeAttributes&,
                const MetronomeAttributes::ContentState& state) override {
        calls.push_back("update " + toJson(state).dump());
    }
    void end(const MetronomeAttributes&, const MetronomeAttributes::ContentState&) override {
        calls.push_back("end");
    }
    void endAll() override { calls.push_back("endAll"); }
    void setIdleTimerDisabled(bool disabled) override { idleTimerDisabled = disabled; }
    void impact(HapticStyle style) override { impacts.push_back(style); }
    void start(ListeningCallbacks::StateCallback onState, ListeningCallbacks::TempoCallback,
               ListeningCallbacks::LevelsCallback onLevels) override {
        calls.push_back("start");
        onState(ListeningState::listening("Listening for tempo"));
        onLevels(std::vector<float>(24, 0.5f));
    }
    void stop() override { calls.push_back("stop"); }
};

class MetronomeControllerTest : public ControllerFixture {
protected:
    MetronomeController& open() {
        auto& controller = openWith({surface_, surface_, &surface_});
        controller.open();
        poll();
        return controller;
    }
    MetronomeAudioUnit& unit() { return *manager_->audioUnit(); }
    /// Renders offline, then lets the main executor take the clicks.
    void render(std::size_t frames) {
        std::vector<float> left(frames), right(frames);
        engine_.renderOffline(left, right, timeline_.now());
        manager_->tickRelay().drain();
        poll();
    }

    RecordingSurface surface_;
};

TEST_F(MetronomeControllerTest, TempoIsLimitedAndReachesTheUnitInAMainTask) {
    auto& controller = open();
    for (const auto& [asked, given] :
         std::vector<std::pair<int, int>>{{29, 30}, {301, 300}, {97, 97}, {-5, 30}}) {
        controller.setTempo(asked);
        EXPECT_EQ(controller.bpm(), given);
        poll();
        EXPECT_EQ(unit().bpmParameter.value(), static_cast<float>(given));
    }
    EXPECT_EQ(personal::read(*store_, keys::tempo), 30);
}

TEST_F(MetronomeControllerTest, TapTempo) {
    CapturedDiagnostics diagnostics;
    auto& controller = open();
    const auto t0 = MetronomeController::Clock::time_point{} + 1'700'000'000s;
    controller.tap(t0);
    controller.tap(t0 + 1s);
    EXPECT_EQ(controller.bpm(), 60);
    controller.tap(t0 + 7s); // six seconds later: a new count
    EXPECT_EQ(controller.bpm(), 60);
    EXPECT_EQ(controller.tapTimestamps().size(), 1u);
    EXPECT_TRUE(diagnostics.contains("Tap timestamps: [2023-11-14 22:13:27 +0000]"))
        << testing::PrintToString(diagnostics.lines());

    // five taps half a second apart, then one a quarter later: the last four intervals
    for (int i = 1; i <= 4; ++i)
        controller.tap(t0 + 7s + i * 500ms);
    EXPECT_EQ(controller.bpm(), 120);
    controller.tap(t0 + 9s + 250ms);
    EXPECT_EQ(controller.tapTimestamps().size(), 5u);
    EXPECT_EQ(controller.bpm(), 137); // 60 ÷ 0.4375, truncated

    controller.tap(t0 + 20s);
    controller.tap(t0 + 20s + 100ms); // 600, limited
    EXPECT_EQ(controller.bpm(), 300);
    controller.setTempo(100);
    controller.tap(t0 + 40s);
    controller.tap(t0 + 40s); // taps at one instant
    EXPECT_EQ(controller.bpm(), 300);
}

TEST_F(MetronomeControllerTest, PushesTheSettingsWhenTheUnitArrives) {
    for (const bool launchedByIntent : {false, true}) {
        SCOPED_TRACE(launchedByIntent);
        TearDown();
        SetUp();
        ASSERT_TRUE(personal::write(*store_, keys::tempo, 97));
        ASSERT_TRUE(personal::write(*store_, keys::beats, 3));
        ASSERT_TRUE(personal::write(*store_, keys::subdivisions, 2));
        ASSERT_TRUE(preferences_->setMetronomeSound(2));
        ASSERT_TRUE(preferences_->setMetronomeKeyIndex(5));
        ASSERT_TRUE(preferences_->setAccentFirstBeat(false));
        ASSERT_TRUE(personal::write(*store_, keys::isMetronomeOn, true));
        ASSERT_TRUE(personal::write(*store_, keys::isLaunchedUsingAppIntent, launchedByIntent));
        open();
        ASSERT_NE(manager_->audioUnit(), nullptr);
        std::vector<float> values;
        for (const auto* parameter : unit().parameterTree())
            values.push_back(parameter->value());
        EXPECT_EQ(values, (std::vector<float>{97, 3, 2, 0, 0, 2, 5, 5}));
        EXPECT_TRUE(surface_.idleTimerDisabled);
        EXPECT_TRUE(engine_.isRunning());
        // the metronome resumes by itself only when an intent asked for this run
        EXPECT_EQ(personal::read(*store_, keys::isMetronomeOn), launchedByIntent);
        EXPECT_EQ(unit().isProcessing(), launchedByIntent);
    }
}

TEST_F(MetronomeControllerTest, TheSwitchDrivesTheUnitListeningAndTheLiveActivity) {
    CapturedDiagnostics diagnostics;
    ASSERT_TRUE(personal::write(*store_, keys::isLaunchedUsingAppIntent, true));
    auto& controller = open();
    controller.startListening();
    ASSERT_TRUE(controller.isListeningForTempo());
    surface_.calls.clear();

    controller.setMetronomeOn(true);
    poll();
    EXPECT_TRUE(unit().isProcessing());
    EXPECT_FALSE(personal::read(*store_, keys::isLaunchedUsingAppIntent));
    EXPECT_FALSE(controller.isListeningForTempo());
    EXPECT_EQ(controller.tempoEQLevels(), std::vector<float>(24, 0.08f));
    EXPECT_EQ(
        surface_.calls,
        (std::vector<std::string>{
            "stop", R"(request {"bpm":120,"beats":4,"subdivisions":1,"isMetronomeOn":true})"}));
    EXPECT_TRUE(diagnostics.contains("Live Activity started successfully"));

    controller.setBeats(3);
    EXPECT_EQ(surface_.calls.back(),
              R"(update {"bpm":120,"beats":3,"subdivisions":1,"isMetronomeOn":true})");
    EXPECT_EQ(unit().beatsParameter.value(), 3);

    controller.setMetronomeOn(false);
    poll();
    EXPECT_FALSE(unit().isProcessing());
    EXPECT_EQ(surface_.calls.back(), "end");
    EXPECT_TRUE(diagnostics.contains("Live Activity ended"));

    controller.close();
    EXPECT_TRUE(diagnostics.contains("No active metronomeLiveActivity to update/end."));
    EXPECT_FALSE(surface_.idleTimerDisabled);

    surface_.enabled = false;
    controller.liveActivity().start(controller.contentState());
    EXPECT_TRUE(diagnostics.contains("Live Activities are not enabled for this app."));
    surface_.enabled = true;
    surface_.failure = Error{"no surface"};
    controller.liveActivity().start(controller.contentState());
    EXPECT_TRUE(diagnostics.contains("Error starting Live Activity: no surface"));
    EXPECT_FALSE(controller.liveActivity().isActive());

    ASSERT_TRUE(personal::write(*store_, keys::showMetronome, true));
    controller.liveActivity().appWillTerminate();
    EXPECT_TRUE(diagnostics.contains("App is about to terminate!"));
    EXPECT_FALSE(personal::read(*store_, keys::isMetronomeOn));
    EXPECT_FALSE(personal::read(*store_, keys::showMetronome));
    EXPECT_EQ(surface_.calls.back(), "endAll");
}

TEST_F(MetronomeControllerTest, EveryClickGivesAHapticAndBeatsFlipThePulse) {
    struct Case {
        bool accent;
        bool haptics;
        std::vector<HapticStyle> impacts;
    };
    using enum HapticStyle;
    const std::vector<Case> cases{
        {true, true, {heavy, medium, medium, medium, heavy}},
        {false, true, {medium, medium, medium, medium, medium}},
        {true, false, {}},
    };
    for (const auto& c : cases) {
        TearDown();
        SetUp();
        surface_.impacts.clear();
        ASSERT_TRUE(preferences_->setAccentFirstBeat(c.accent));
        ASSERT_TRUE(preferences_->setHapticsEnabled(c.haptics));
        ASSERT_TRUE(personal::write(*store_, keys::beats, 2));
        ASSERT_TRUE(personal::write(*store_, keys::subdivisions, 2));
        auto& controller = open();
        std::vector<bool> pulses;
        controller.setOnClick([&](int, int) { pulses.push_back(controller.isOnBeat()); });
        controller.setMetronomeOn(true);
        poll();
        render(4 * 11025 + 1); // five clicks: a bar of two beats of two, and the next bar's first
        EXPECT_EQ(surface_.impacts, c.impacts) << c.accent << c.haptics;
        EXPECT_EQ(pulses, (std::vector<bool>{true, true, false, false, true}));
    }
}

TEST_F(MetronomeControllerTest, PresetsAreStoredWithExactlyFiveKeys) {
    ASSERT_TRUE(personal::write(*store_, keys::tempo, 88));
    ASSERT_TRUE(preferences_->setMetronomeSound(1));
    auto& controller = open();
    controller.setSubdivisions(3);
    ASSERT_TRUE(controller.savePreset("Ballad"));
    controller.setTempo(140);
    ASSERT_TRUE(controller.savePreset("Ballad")); // names need not be unique

    const auto bytes = *store_->bytes(keys::metronomePresets.name);
    const auto stored = nlohmann::json::parse(bytes.begin(), bytes.end());
    ASSERT_EQ(stored.size(), 2u);
    for (const auto& item : stored) {
        std::vector<std::string> names;
        for (const auto& [key, value] : item.items())
            names.push_back(key);
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, (std::vector<std::string>{"beats", "bpm", "id", "name", "subdivisions"}));
    }
    EXPECT_EQ(stored[1]["bpm"], 140);
    EXPECT_EQ(stored[0]["subdivisions"], 3);

    // loading writes the three values and leaves the sound alone
    const auto first = controller.presets()[0];
    controller.setBeats(7);
    controller.setSound(MetronomeSound::square);
    controller.loadPreset(first);
    EXPECT_EQ(controller.bpm(), 88);
    EXPECT_EQ(controller.beats(), 4);
    EXPECT_EQ(preferences_->metronomeSound(), 3);

    const auto second = controller.presets()[1];
    ASSERT_TRUE(controller.renamePreset(second.id, "Fast"));
    EXPECT_EQ(controller.renamePreset(core::Uuid::random(), "x").error().kind, ErrorKind::notFound);
    EXPECT_EQ(controller.savePreset("").error().kind, ErrorKind::refused);
    ASSERT_TRUE(controller.deletePreset(first.id));
    EXPECT_FALSE(controller.deletePreset(first.id));
    EXPECT_EQ(loadPresets(*store_), (std::vector<MetronomePreset>{{second.id, "Fast", 140, 4, 3}}));

    // data that does not decode is no presets, and the next save overwrites it
    const std::string broken =
        R"([{"id":"not a uuid","name":"x","bpm":1,"beats":1,"subdivisions":1}])";
    ASSERT_TRUE(
        store_->set(keys::metronomePresets.name, core::Bytes(broken.begin(), broken.end())));
    open();
    EXPECT_TRUE(controller_->presets().empty());
    ASSERT_TRUE(controller_->savePreset("New"));
    EXPECT_EQ(loadPresets(*store_).size(), 1u);
    ASSERT_TRUE(controller_->clearPresets());
    EXPECT_TRUE(loadPresets(*store_).empty());
}

TEST_F(MetronomeControllerTest, PresetsChangedByTwoProcessesAtOnceAreAllKept) {
    // a screen whose list was read before another process saved, and that process
    auto& controller = open();
    auto other = *personal::SharedStore::open(folder_ / "store.sqlite");
    MetronomePresetStore elsewhere(other);
    ASSERT_TRUE(elsewhere.save("From the intent", 90, 3, 1));
    ASSERT_TRUE(controller.savePreset("From the screen"));
    EXPECT_EQ(controller.presets().size(), 2u);

    std::vector<std::thread> writers;
    for (int w = 0; w < 4; ++w)
        writers.emplace_back([&, w] {
            auto own = *personal::SharedStore::open(folder_ / "store.sqlite");
            MetronomePresetStore presets(own);
            for (int i = 0; i < 10; ++i)
                EXPECT_TRUE(presets.save(fmt::format("{}-{}", w, i), 100 + i, 4, 1));
        });
    for (auto& writer : writers)
        writer.join();
    EXPECT_EQ(MetronomePresetStore(store_).list().size(), 42u);

    // a stored preset out of range loads within the ranges
    ASSERT_TRUE(elsewhere.clear());
    const auto wild = *elsewhere.save("Wild", 900, 0, 99);
    const auto loaded = elsewhere.load(*elsewhere.find(wild.id.text()));
    ASSERT_TRUE(loaded);
    EXPECT_EQ(std::tie(loaded->bpm, loaded->beats, loaded->subdivisions),
              std::make_tuple(300, 1, 8));
    EXPECT_EQ(personal::read(*store_, keys::tempo), 300);
    EXPECT_EQ(elsewhere.find("Tango").error().message, "No preset named Tango");
}

TEST_F(MetronomeControllerTest, TheManagerReportsAMissingClickAndStartsOnlyOnce) {
    CapturedDiagnostics diagnostics;
    MetronomeAudioUnitManager broken(engine_, main_.get_executor(), [](std::string_view name) {
        return name == "tick" ? embeddedClick(name) : std::nullopt;
    });
    broken.setUp();
    broken.start();
    poll();
    EXPECT_EQ(broken.audioUnit(), nullptr);
    EXPECT_TRUE(diagnostics.contains("Error in setting up audio unit: tock.wav not found"));

    manager_->setUp();
    manager_->setUp();
    poll();
    ASSERT_NE(manager_->audioUnit(), nullptr);
    manager_->start();
    std::vector<float> left(100), right(100);
    engine_.renderOffline(left, right, timeline_.now());
    manager_->start(); // running: no new immediate click
    engine_.renderOffline(left, right, timeline_.now());
    EXPECT_EQ(unit().beatIndex(), 1);
    EXPECT_FALSE(unit().shouldTriggerImmediately());
}

} // namespace
} // namespace fq::metronome
