// The whole road on a real, clocked device: the guitar engine plays into a private
// sound server's null sink, and the tuner listens on its monitor (the server's default
// input) through the audio session, the shared engine and the patch in libpd.

#include "PulseTestServer.h"
#include "fq/tuner/KVPitchRecognizer.h"
#include "fq/tuner/TunerDisplay.h"

#include <fq/audio/AudioSessionManager.h>
#include <fq/audio/GuitarAudioEngine.h>
#include <fq/audio/SerialQueue.h>
#include <fq/audio/SharedAudioEngine.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace fq::tuner {
namespace {

using namespace std::chrono_literals;
using audio::testing::PulseTestServer;
namespace fs = std::filesystem;

TEST(TunerOnADevice, TheGuitarsA2IsShownInTune) {
    auto* server = PulseTestServer::shared();
    if (!server->usable())
        GTEST_SKIP() << "no sound server for a device test: " << server->whyUnusable();
    std::string pattern = (fs::temp_directory_path() / "fq-tuner-device-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    const fs::path cache = pattern;

    auto& session = audio::AudioSessionManager::shared();
    auto& guitar = audio::GuitarAudioEngine::shared();
    DeviceCaptureSession capture;
    NoDrumEngine drums;
    const auto handler = std::make_shared<PitchRecognizerDelegateHandler>();
    const auto recognizer =
        KVPitchRecognizer::create(audio::mainContext().get_executor(), capture, drums, cache);
    recognizer->setDelegate(handler);
    TunerDisplayModel model;
    const auto began = std::chrono::steady_clock::now();
    std::vector<double> heard;
    recognizer->observeFrequency([&](double frequency) {
        heard.push_back(frequency);
        model.handleFrequency(
            frequency,
            std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count());
    });

    session.sceneDidBecomeActive();
    recognizer->start();
    ASSERT_TRUE(audio::runMainUntil(
        [&] { return handler->isPatchOpened() || handler->patchError(); }, 10s));
    ASSERT_TRUE(handler->isPatchOpened());
    bool ready = false;
    session.refreshPlaybackActivation(false, [&] { ready = true; });
    ASSERT_TRUE(audio::runMainUntil([&] { return ready; }, 10s));
    ASSERT_TRUE(guitar.isEngineRunning());
    // let the server settle into a steady pace before the note
    audio::runMainUntil([] { return false; }, 300ms);
    EXPECT_TRUE(heard.empty()) << "the null sink is silent until the guitar plays";

    const int a2[] = {45};
    guitar.playChord(a2);
    audio::runMainUntil([] { return false; }, 2000ms);
    guitar.stopAllNotes();

    recognizer->stop();
    bool tornDown = false;
    recognizer->tearDown([&] { tornDown = true; });
    audio::runMainUntil([&] { return tornDown; }, 5s);
    session.setSceneActive(false);
    guitar.suspendForBackground();
    bool released = false;
    session.applySessionActivity(false, audio::config::notifyOthersOnDeactivation,
                                 [&] { released = true; });
    audio::runMainUntil([&] { return released; }, 5s);
    fs::remove_all(cache);

    ASSERT_FALSE(heard.empty()) << "nothing reached the tuner";
    EXPECT_EQ(model.displayNote(), "A₂");
    EXPECT_EQ(model.displayPianoNoteNumber(), 45);
    EXPECT_EQ(model.instruction().text, "In Tune") << model.displayDeviationCents();
}

} // namespace
} // namespace fq::tuner
