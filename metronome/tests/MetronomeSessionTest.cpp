// The live metronome's run as a front end drives it, on the offline engine: start, clicks,
// the switch turned off elsewhere, listening first, and the stop.

#include "fq/metronome/MetronomeSession.h"

#include "ControllerFixture.h"

#include <fq/personal/PreferenceKeys.h>

#include <gtest/gtest.h>

namespace fq::metronome {
namespace {

namespace keys = personal::keys;

class MetronomeSessionTest : public ControllerFixture {
protected:
    std::unique_ptr<MetronomeSession> begin(const MetronomeSettings& settings, bool listen) {
        auto session = std::make_unique<MetronomeSession>(MetronomeSession::Environment{
            store_, *preferences_, engine_, main_.get_executor(), surface_, surface_, &port_});
        MetronomeSession::Observer observer;
        observer.onStarted = [this](const tl::expected<void, Error>& result) { started_ = result; };
        observer.onClick = [this](int beat, int subdivision) {
            clicks_.emplace_back(beat, subdivision);
        };
        observer.onEnded = [this](const std::optional<Error>& error) { ended_ = error; };
        observer.onStopped = [this] { stopped_ = true; };
        session->start(settings, listen, observer);
        return session;
    }

    QuietSurface surface_;
    ScriptedPort port_;
    std::optional<tl::expected<void, Error>> started_;
    std::vector<std::pair<int, int>> clicks_;
    std::optional<std::optional<Error>> ended_;
    bool stopped_ = false;
};

TEST_F(MetronomeSessionTest, ClicksWithItsSettingsUntilTheSwitchIsTurnedOffElsewhere) {
    auto session = begin({100, 3, 2, MetronomeSound::sine, 5, false}, false);
    ASSERT_TRUE(renderUntil([&] { return started_.has_value(); }));
    ASSERT_TRUE(*started_);
    EXPECT_FALSE(session->listens());
    EXPECT_TRUE(personal::read(*store_, keys::isMetronomeOn));
    EXPECT_EQ(personal::read(*store_, keys::tempo), 100);
    EXPECT_EQ(personal::read(*store_, keys::beats), 3);
    EXPECT_EQ(preferences_->metronomeSound(), 1);
    // clicks at 100 BPM in twos: 13230 frames apart
    ASSERT_TRUE(renderUntil([&] { return clicks_.size() >= 4; }));
    EXPECT_EQ(std::vector(clicks_.begin(), clicks_.begin() + 4),
              (std::vector<std::pair<int, int>>{{0, 0}, {0, 1}, {1, 0}, {1, 1}}));
    session->stepTempo(-80);
    EXPECT_EQ(session->controller().bpm(), 30);

    // another process turns the switch off: the run ends by itself, without an error
    auto other = *personal::SharedStore::open(folder_ / "store.sqlite");
    ASSERT_TRUE(personal::write(*other, keys::isMetronomeOn, false));
    ASSERT_TRUE(renderUntil([&] { return ended_.has_value(); }));
    EXPECT_FALSE(ended_->has_value());
    session->stop();
    ASSERT_TRUE(renderUntil([&] { return stopped_; }));
    EXPECT_FALSE(engine_.isRunning());
}

TEST_F(MetronomeSessionTest, ListensFirstThenClicksWhenTold) {
    auto session = begin({}, true);
    ASSERT_TRUE(renderUntil([&] { return started_.has_value(); }));
    EXPECT_TRUE(session->listens());
    EXPECT_EQ(port_.calls, std::vector<std::string>{"start"});
    port_.report(ListeningState::detected(133));
    EXPECT_EQ(session->controller().bpm(), 133);
    // a run that listens turns the switch itself: it goes on while the clicks are off
    ASSERT_FALSE(renderUntil([&] { return ended_.has_value(); }));

    session->playClicks();
    ASSERT_TRUE(renderUntil([&] { return !clicks_.empty(); }));
    EXPECT_EQ(port_.calls, (std::vector<std::string>{"start", "stop"}));
    session->listenAgain();
    EXPECT_FALSE(session->controller().isMetronomeOn());
    session->stop(true);
    EXPECT_FALSE(personal::read(*store_, keys::showMetronome));
    ASSERT_TRUE(renderUntil([&] { return stopped_; }));
    EXPECT_FALSE(personal::read(*store_, keys::isMetronomeOn));
}

} // namespace
} // namespace fq::metronome
