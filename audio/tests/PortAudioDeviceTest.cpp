// The engine, the device layer and the session on a real, clocked device: a private
// PulseAudio server with a null sink, reached through ALSA as on any desktop.

#include "AudioTestSupport.h"
#include "PulseTestServer.h"
#include "fq/audio/DeviceAudio.h"
#include "fq/audio/PortAudioDeviceLayer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <condition_variable>
#include <mutex>
#include <numbers>
#include <optional>

namespace fq::audio {
namespace {

using namespace std::chrono_literals;
using testing::PulseTestServer;

/// Waits up to ten seconds for `done`, checking every few milliseconds.
template <typename Predicate>
bool eventually(Predicate done) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

/// A steady tone of 441 Hz at half scale.
class Tone final : public AudioSource {
public:
    void prepare(double sampleRate, int) override {
        step_ = 2 * std::numbers::pi * 441.0 / sampleRate;
    }
    void render(const BlockTiming& timing, float* left, float* right) noexcept override {
        for (int i = 0; i < timing.frames; ++i) {
            const auto value = static_cast<float>(0.5 * std::sin(phase_));
            left[i] += value;
            right[i] += value;
            phase_ += step_;
        }
    }
    void reset() override {}

private:
    double phase_ = 0;
    double step_ = 0;
};

/// Sums the squares of what it hears.
class Listener final : public CaptureSink {
public:
    void captured(std::span<const float> samples, double) noexcept override {
        double sum = 0;
        for (const float sample : samples)
            sum += static_cast<double>(sample) * sample;
        energy.store(energy.load() + sum);
        frames.fetch_add(static_cast<long>(samples.size()));
    }
    double rms() const {
        return frames.load() > 0 ? std::sqrt(energy.load() / static_cast<double>(frames.load()))
                                 : 0;
    }
    std::atomic<double> energy{0};
    std::atomic<long> frames{0};
};

class DeviceTest : public ::testing::Test {
protected:
    void SetUp() override {
        server_ = PulseTestServer::shared();
        if (!server_->usable())
            GTEST_SKIP() << "no sound server for a device test: " << server_->whyUnusable();
    }
    PulseTestServer* server_ = nullptr;
};

TEST_F(DeviceTest, TheServerIsTheDefaultDevice) {
    const auto devices = listAudioDevices();
    ASSERT_TRUE(devices) << devices.error().message;
    const auto output = chooseAudioDevice(*devices, AudioDirection::output, std::nullopt);
    ASSERT_TRUE(output) << output.error().message;
    EXPECT_TRUE(output->isDefaultOutput);
    EXPECT_GE(output->maxOutputChannels, 2);
    const auto input = chooseAudioDevice(*devices, AudioDirection::input, std::nullopt);
    ASSERT_TRUE(input) << input.error().message;
    // a device named in the environment, by part of its name
    const auto named =
        chooseAudioDevice(*devices, AudioDirection::output, output->name.substr(0, 3));
    ASSERT_TRUE(named);
    EXPECT_EQ(named->name.substr(0, 3), output->name.substr(0, 3));
}

TEST_F(DeviceTest, ActivationStartsTheStreamsAndDeactivationStopsThem) {
    SharedAudioEngine engine{Timeline::shared()};
    Tone tone;
    engine.attach(tone);
    {
        PortAudioDeviceLayer layer{engine};
        ASSERT_TRUE(layer.setActive(true, 0));
        EXPECT_TRUE(engine.isRunning());
        EXPECT_TRUE(eventually([&] { return engine.renderedFrames() > 8820; }))
            << "the device asks for audio";
        EXPECT_EQ(layer.sampleRate(), 44100.0);
        EXPECT_NEAR(layer.ioBufferDuration(), config::sessionIOBufferDuration, 1e-9);
        const auto route = layer.currentRoute();
        ASSERT_EQ(route.outputs.size(), 1u);
        EXPECT_EQ(route.outputs[0].type, portType::lineOut);
        EXPECT_TRUE(route.inputs.empty()) << "no input is held open without a capture";

        ASSERT_TRUE(layer.setActive(false, config::notifyOthersOnDeactivation));
        EXPECT_FALSE(engine.isRunning());
        const auto stopped = engine.renderedFrames();
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(engine.renderedFrames(), stopped);
    }
    engine.detach(tone);
}

TEST_F(DeviceTest, ACaptureOnTheBuiltInMicrophoneHearsWhatIsPlayed) {
    // the server's default source is the sink's monitor: the input hears the output
    SharedAudioEngine engine{Timeline::shared()};
    Tone tone;
    Listener listener;
    engine.attach(tone);
    engine.attachCapture(listener);
    {
        PortAudioDeviceLayer layer{engine};
        ASSERT_TRUE(layer.setActive(true, 0));
        const auto inputs = layer.availableInputs();
        const auto builtIn = std::find_if(inputs.begin(), inputs.end(), [](const auto& port) {
            return port.type == portType::builtInMicrophone;
        });
        ASSERT_NE(builtIn, inputs.end());
        ASSERT_TRUE(layer.setPreferredInput(*builtIn));
        EXPECT_THAT(layer.currentRoute().inputs, ::testing::ElementsAre(*builtIn));
        ASSERT_TRUE(eventually([&] { return listener.frames.load() > 44100; }));
        EXPECT_GT(listener.rms(), 0.2) << "a tone at half scale has an RMS of 0.35";
        ASSERT_TRUE(layer.setPreferredInput(std::nullopt));
        EXPECT_TRUE(layer.currentRoute().inputs.empty());
        layer.setActive(false, 0);
    }
    engine.detachCapture(listener);
    engine.detach(tone);
}

TEST_F(DeviceTest, ADeviceThatGoesAwayInterruptsAndItsReturnEndsTheInterruption) {
    SharedAudioEngine engine{Timeline::shared()};
    Tone tone;
    engine.attach(tone);
    {
        PortAudioDeviceLayer layer{engine, {.pollInterval = 20ms, .retryInterval = 200ms}};
        std::mutex mutex;
        std::vector<NotificationInfo> heard;
        layer.setObservers(
            [&](const NotificationInfo& info) {
                const std::lock_guard lock(mutex);
                heard.push_back(info);
            },
            {});
        const auto count = [&] {
            const std::lock_guard lock(mutex);
            return heard.size();
        };
        ASSERT_TRUE(layer.setActive(true, 0));
        ASSERT_TRUE(eventually([&] { return engine.renderedFrames() > 4410; }));

        server_->stop(true); // the sound server dies
        ASSERT_TRUE(eventually([&] { return count() >= 1; })) << "no interruption";
        EXPECT_TRUE(layer.isInterrupted());
        EXPECT_FALSE(engine.isRunning());

        ASSERT_TRUE(server_->start());
        ASSERT_TRUE(eventually([&] { return count() >= 2; })) << "the interruption never ended";
        {
            const std::lock_guard lock(mutex);
            EXPECT_EQ(heard[0], (NotificationInfo{
                                    {notificationKey::interruptionType, interruptionType::began}}));
            EXPECT_EQ(heard[1],
                      (NotificationInfo{
                          {notificationKey::interruptionType, interruptionType::ended},
                          {notificationKey::interruptionOptions, interruptionShouldResume}}));
        }
        // and the device plays again
        const auto before = engine.renderedFrames();
        ASSERT_TRUE(layer.setActive(true, 0));
        EXPECT_TRUE(eventually([&] { return engine.renderedFrames() > before + 4410; }));
        layer.setActive(false, 0);
    }
    engine.detach(tone);
}

TEST_F(DeviceTest, AStrumThroughTheDeviceHasSixOnsetsFiftyMillisecondsApart) {
    asio::io_context main;
    DeviceAudio device(main.get_executor());
    std::optional<tl::expected<void, Error>> started;
    device.startPlayback([&](auto outcome) { started = outcome; });
    ASSERT_TRUE(runUntil(
        main, [&] { return started.has_value(); }, 10s));
    ASSERT_TRUE(*started) << started->error().message;

    PulseTestServer::Recording recording(*server_, server_->directory() / "strum.raw");
    ASSERT_TRUE(recording.waitUntilRecording());
    const std::vector<int> cMajor{48, 55, 60, 64, 67, 72}; // the barre on the eighth fret
    bool played = false;
    device.play({{cMajor, 1200ms}}, [&] { played = true; });
    ASSERT_TRUE(runUntil(
        main, [&] { return played; }, 5s));
    const auto recorded = recording.stop();
    const auto onsets = testing::noteOnsets(recorded, cMajor, PulseTestServer::sampleRate, 441);
    ASSERT_EQ(onsets.size(), 6u) << "recorded " << recorded.size() << " frames";
    for (std::size_t i = 1; i < onsets.size(); ++i)
        EXPECT_NEAR(onsets[i] - onsets[i - 1], 2205, 220.5) << ::testing::PrintToString(onsets);

    bool released = false;
    device.release([&] { released = true; });
    ASSERT_TRUE(runUntil(
        main, [&] { return released; }, 5s));
    EXPECT_FALSE(device.engine().isRunning()) << "the device is let go";
}

} // namespace
} // namespace fq::audio
