// The whole road on a real, clocked device: the guitar engine plays into a private
// sound server's null sink, and the tuner session listens on its monitor (the server's
// default input) through the audio session, the shared engine and the patch in libpd.

#include "PulseTestServer.h"
#include "fq/test/TemporaryFolder.h"
#include "fq/tuner/TunerSession.h"

#include <fq/audio/DeviceAudio.h>

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace fq::tuner {
namespace {

using namespace std::chrono_literals;
using audio::testing::PulseTestServer;

struct Shown final : TunerSessionObserver {
    void tunerOpened(bool value) override { opened = value; }
    std::optional<bool> opened;
};

TEST(TunerOnADevice, TheGuitarsA2IsShownInTune) {
    auto* server = PulseTestServer::shared();
    if (!server->usable())
        GTEST_SKIP() << "no sound server for a device test: " << server->whyUnusable();
    test::TemporaryFolder cache;
    asio::io_context main;
    audio::DeviceAudio device(main.get_executor());
    DeviceCaptureSession capture(device.session(), device.engine());
    NoDrumEngine drums;
    Shown shown;
    TunerSession tuner(main.get_executor(), capture, drums, cache.path(), shown);

    device.session().sceneDidBecomeActive();
    tuner.appear();
    ASSERT_TRUE(audio::runUntil(
        main, [&] { return shown.opened.has_value(); }, 10s));
    ASSERT_TRUE(*shown.opened);
    std::optional<tl::expected<void, Error>> started;
    device.startPlayback([&](auto outcome) { started = outcome; });
    ASSERT_TRUE(audio::runUntil(
        main, [&] { return started.has_value(); }, 10s));
    ASSERT_TRUE(*started) << started->error().message;
    EXPECT_EQ(tuner.recognizer().frequency(), 0.0)
        << "the null sink is silent until the guitar plays";

    bool played = false;
    device.play({{{45}, 2000ms}}, [&] { played = true; });
    audio::runUntil(
        main, [&] { return played; }, 5s);
    bool tornDown = false;
    tuner.disappear([&] { tornDown = true; });
    audio::runUntil(
        main, [&] { return tornDown; }, 5s);
    bool released = false;
    device.release([&] { released = true; });
    EXPECT_TRUE(audio::runUntil(
        main, [&] { return released; }, 5s));

    const auto& display = tuner.display();
    EXPECT_EQ(display.displayNote(), "A₂");
    EXPECT_EQ(display.displayPianoNoteNumber(), 45);
    EXPECT_EQ(display.instruction().text, "In Tune") << display.displayDeviationCents();
}

} // namespace
} // namespace fq::tuner
