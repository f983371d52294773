#pragma once

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::audio {

/// What the session is for. The program uses one profile for everything.
enum class SessionCategory : std::uint8_t {
    ambient,
    soloAmbient,
    playback,
    record,
    playAndRecord,
    multiRoute
};
enum class SessionMode : std::uint8_t { standard, measurement };

namespace config {
inline constexpr SessionCategory sessionCategory = SessionCategory::playAndRecord;
/// Mix with others (1), default to speaker (8), allow Bluetooth A2DP (32) and AirPlay (64).
inline constexpr unsigned sessionCategoryOptions = 105;
inline constexpr SessionMode sessionMode = SessionMode::standard;
inline constexpr double sessionSampleRate = 44100.0;
/// 256 frames at 44100 Hz.
inline constexpr double sessionIOBufferDuration = 0.005804988662131519;
/// The deactivation option that lets other programs know they may play again.
inline constexpr unsigned notifyOthersOnDeactivation = 1;
} // namespace config

/// An input or output of the route.
struct AudioPort {
    std::string name;
    std::string type; ///< one of the port types below

    friend bool operator==(const AudioPort&, const AudioPort&) = default;
};

namespace portType {
/// The input the program listens on unless told otherwise: the system's default
/// input, or the device named in FRETQUILL_AUDIO_DEVICE.
inline constexpr std::string_view builtInMicrophone = "MicrophoneBuiltIn";
inline constexpr std::string_view lineIn = "LineIn";
inline constexpr std::string_view lineOut = "LineOut";
} // namespace portType

struct AudioRoute {
    std::vector<AudioPort> inputs;
    std::vector<AudioPort> outputs;

    friend bool operator==(const AudioRoute&, const AudioRoute&) = default;
};

/// A notification's user information, as the device layer hands it over.
using NotificationInfo = std::map<std::string, std::int64_t>;

namespace notificationKey {
inline constexpr const char* interruptionType = "InterruptionType";
inline constexpr const char* interruptionOptions = "InterruptionOptions";
inline constexpr const char* routeChangeReason = "RouteChangeReason";
} // namespace notificationKey

namespace interruptionType {
inline constexpr std::int64_t ended = 0;
inline constexpr std::int64_t began = 1;
} // namespace interruptionType

/// The option of an ended interruption that says playback may resume.
inline constexpr std::int64_t interruptionShouldResume = 1;

namespace routeChangeReason {
inline constexpr std::int64_t unknown = 0;
inline constexpr std::int64_t newDeviceAvailable = 1;
inline constexpr std::int64_t oldDeviceUnavailable = 2;
inline constexpr std::int64_t categoryChange = 3;
inline constexpr std::int64_t outputOverride = 4;
inline constexpr std::int64_t wakeFromSleep = 6;
inline constexpr std::int64_t noSuitableRouteForCategory = 7;
inline constexpr std::int64_t routeConfigurationChange = 8;
} // namespace routeChangeReason

/// "newDeviceAvailable", or the number for a reason without a name.
std::string routeChangeReasonName(std::int64_t reason);
/// "[InterruptionOptions: 1, InterruptionType: 0]"
std::string describe(const NotificationInfo& info);
/// "default (MicrophoneBuiltIn), pulse (LineIn)"
std::string describe(const std::vector<AudioPort>& ports);

/// The platform under the audio session: the profile, the blocking activation,
/// the route and the two notifications. The session manager is written against
/// this seam; PortAudioDeviceLayer is the real one.
///
/// Threads: safe from any thread. setActive blocks and is called off the main
/// thread; the observers are called on any thread.
class AudioDeviceLayer {
public:
    using Observer = std::function<void(const NotificationInfo&)>;

    virtual ~AudioDeviceLayer() = default;

    virtual SessionCategory category() const = 0;
    virtual unsigned categoryOptions() const = 0;
    virtual SessionMode mode() const = 0;
    virtual tl::expected<void, Error> setCategory(SessionCategory category, unsigned options) = 0;
    virtual tl::expected<void, Error> setMode(SessionMode mode) = 0;
    virtual tl::expected<void, Error> setPreferredSampleRate(double sampleRate) = 0;
    virtual tl::expected<void, Error> setPreferredIOBufferDuration(double duration) = 0;

    /// Activation opens and starts the device streams; deactivation stops them.
    virtual tl::expected<void, Error> setActive(bool active, unsigned options) = 0;

    virtual AudioRoute currentRoute() const = 0;
    virtual std::vector<AudioPort> availableInputs() const = 0;
    /// None restores the default: no input is held open.
    virtual tl::expected<void, Error> setPreferredInput(std::optional<AudioPort> port) = 0;
    virtual double sampleRate() const = 0;
    virtual double ioBufferDuration() const = 0;

    /// Replaces the observers of interruptions and route changes.
    virtual void setObservers(Observer interruption, Observer routeChange) = 0;
};

} // namespace fq::audio
