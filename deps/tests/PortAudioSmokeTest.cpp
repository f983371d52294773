#include <gtest/gtest.h>
#include <portaudio.h>

namespace {

// Pa_Initialize and Pa_Terminate pair up like a lock, with nothing to hold in between.
struct PortAudioSession {
    PortAudioSession() : error(Pa_Initialize()) {}
    ~PortAudioSession() {
        if (error == paNoError) Pa_Terminate();
    }
    PortAudioSession(const PortAudioSession&) = delete;
    PortAudioSession& operator=(const PortAudioSession&) = delete;
    const PaError error;
};

// Works with no sound card at all, as on CI: only the library and its host APIs are checked.
TEST(PortAudioSmoke, InitialisesWithoutADevice) {
    const PortAudioSession session;
    ASSERT_EQ(session.error, paNoError) << Pa_GetErrorText(session.error);

    EXPECT_GT(Pa_GetVersion(), 0);
    const PaVersionInfo* version = Pa_GetVersionInfo();
    ASSERT_NE(version, nullptr);
    EXPECT_NE(version->versionText, nullptr);
    EXPECT_GT(Pa_GetHostApiCount(), 0) << "built without any host API";
    EXPECT_GE(Pa_GetDeviceCount(), 0);
}

} // namespace
