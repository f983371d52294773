#pragma once

// The control layer on a real store, the real manager and unit, an offline engine and
// a main executor driven by hand; each test brings the ports it watches.

#include "fq/metronome/MetronomeController.h"

#include <fq/audio/Timeline.h>

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace fq::metronome {

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
