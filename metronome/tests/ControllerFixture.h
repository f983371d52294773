#pragma once

// The control layer on a real store, the real manager and unit, an offline engine and
// a main executor driven by hand; each test brings the ports it watches.

#include "fq/metronome/MetronomeController.h"

#include <fq/audio/Timeline.h>

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace fq::metronome {

/// A status surface and haptics that show nothing.
struct QuietSurface final : StatusSurface, HapticsPort {
    bool areActivitiesEnabled() const override { return true; }
    tl::expected<void, Error> request(const MetronomeAttributes&,
                                      const MetronomeAttributes::ContentState&) override {
        return {};
    }
    void update(const MetronomeAttributes&, const MetronomeAttributes::ContentState&) override {}
    void end(const MetronomeAttributes&, const MetronomeAttributes::ContentState&) override {}
    void endAll() override {}
};

/// Records what the controller asks of listening, and lets the test speak as the detector.
struct ScriptedPort final : TempoListeningPort {
    void start(ListeningCallbacks::StateCallback state, ListeningCallbacks::TempoCallback tempo,
               ListeningCallbacks::LevelsCallback levels) override {
        calls.push_back("start");
        onState = std::move(state);
        onTempo = std::move(tempo);
        onLevels = std::move(levels);
    }
    void stop() override {
        calls.push_back("stop");
        if (onState) onState(ListeningState::idle());
        onState = nullptr;
        onTempo = nullptr;
        onLevels = nullptr;
    }
    /// As the detector reports a state, and a tempo with `detected`.
    void report(const ListeningState& state) {
        onState(state);
        if (state.kind == ListeningState::Kind::detected) onTempo(state.tempo);
    }

    std::vector<std::string> calls;
    ListeningCallbacks::StateCallback onState;
    ListeningCallbacks::TempoCallback onTempo;
    ListeningCallbacks::LevelsCallback onLevels;
};

class ControllerFixture : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "fq-metronome-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        store_ = *personal::SharedStore::open(folder_ / "store.sqlite");
        preferences_ = std::make_unique<personal::UserPreferences>(store_);
        engine_.enableManualRenderingMode();
        manager_ = std::make_unique<MetronomeAudioUnitManager>(engine_, main_.get_executor());
    }
    void TearDown() override {
        controller_.reset();
        manager_.reset();
        preferences_.reset();
        store_.reset();
        std::filesystem::remove_all(folder_);
    }
    MetronomeController& openWith(MetronomeController::Ports ports) {
        controller_ = std::make_unique<MetronomeController>(store_, *preferences_, *manager_,
                                                            main_.get_executor(), ports);
        return *controller_;
    }
    /// Runs what is due on the main executor (which stops whenever it runs out of work).
    void poll() {
        main_.restart();
        main_.poll();
    }
    /// Renders offline while the main executor runs (its timers in real time), until
    /// `done` or about two seconds of audio.
    bool renderUntil(const std::function<bool()>& done) {
        std::vector<float> left(441), right(441);
        for (int i = 0; i < 200 && !done(); ++i) {
            engine_.renderOffline(left, right, timeline_.now());
            main_.restart();
            main_.run_for(std::chrono::milliseconds(2));
        }
        return done();
    }

    std::filesystem::path folder_;
    std::shared_ptr<personal::SharedStore> store_;
    std::unique_ptr<personal::UserPreferences> preferences_;
    audio::ManualTimeline timeline_;
    audio::SharedAudioEngine engine_{timeline_};
    asio::io_context main_;
    std::unique_ptr<MetronomeAudioUnitManager> manager_;
    std::unique_ptr<MetronomeController> controller_;
};

} // namespace fq::metronome
