#pragma once

// The metronome screen's decisions, its live activity, and the ports it shows them through.

#include "fq/metronome/ListeningState.h"
#include "fq/metronome/MetronomeAudioUnitManager.h"
#include "fq/metronome/MetronomePresets.h"

#include <fq/core/Uuid.h>
#include <fq/personal/SharedStore.h>
#include <fq/personal/UserPreferences.h>

#include <asio/any_io_executor.hpp>

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fq::metronome {

namespace config {
inline constexpr std::size_t maxTapHistory = 5;
inline constexpr std::chrono::duration<double> resetInterval{5.0};
/// The screen always runs the synth with these fades, not the parameter's initial 2.
inline constexpr float screenFadeMs = 5;
inline constexpr std::size_t tempoLevelBands = 24;
inline constexpr float tempoLevelAtRest = 0.08f;
/// What the screen shows, in place of listening, on a system without tempo detection.
inline constexpr const char* tempoDetectionMissingMessage = "Requires iOS 27";
} // namespace config

/// The live activity's record.
struct MetronomeAttributes {
    struct ContentState {
        int bpm = 120;
        int beats = 4;
        int subdivisions = 1;
        bool isMetronomeOn = false;
        friend bool operator==(const ContentState&, const ContentState&) = default;
    };
    core::Uuid id;
};

nlohmann::ordered_json toJson(const MetronomeAttributes::ContentState& state);

/// Where the live activity is shown: the terminal's status line now, the app's own
/// surface later. Also keeps the display awake while the metronome screen is up.
class StatusSurface {
public:
    virtual ~StatusSurface() = default;
    virtual bool areActivitiesEnabled() const = 0;
    virtual tl::expected<void, Error> request(const MetronomeAttributes& attributes,
                                              const MetronomeAttributes::ContentState& state) = 0;
    virtual void update(const MetronomeAttributes& attributes,
                        const MetronomeAttributes::ContentState& state) = 0;
    virtual void end(const MetronomeAttributes& attributes,
                     const MetronomeAttributes::ContentState& state) = 0;
    /// Every activity of this kind, including ones this process did not start.
    virtual void endAll() = 0;
    virtual void setIdleTimerDisabled(bool) {}
};

enum class HapticStyle : std::uint8_t { medium, heavy };

/// Impact feedback in time with the clicks. Nothing vibrates here: the default does
/// nothing, and the terminal flashes the beat instead.
class HapticsPort {
public:
    virtual ~HapticsPort() = default;
    virtual void impact(HapticStyle) {}
};

/// Tempo detection as the screen uses it: MetronomeTempoDetector behind an adapter
/// (DetectorListeningPort), or a double in tests. A controller without one stands for
/// a system that lacks the feature.
class TempoListeningPort {
public:
    virtual ~TempoListeningPort() = default;
    /// Main. Starts listening; the callbacks replace any earlier ones.
    virtual void start(ListeningCallbacks::StateCallback onStateChange,
                       ListeningCallbacks::TempoCallback onTempoDetected,
                       ListeningCallbacks::LevelsCallback onLevelsUpdated) = 0;
    /// Main. Ends listening; the state turns idle and the callbacks are forgotten.
    virtual void stop() = 0;
};

/// The rules of the live activity: start, update and end with their messages.
/// Threads: main.
class MetronomeLiveActivity {
public:
    MetronomeLiveActivity(StatusSurface& surface, std::shared_ptr<personal::SharedStore> store)
        : surface_(surface), store_(std::move(store)) {}

    void start(const MetronomeAttributes::ContentState& state);
    /// Also writes the tempo to "tempo".
    void update(const MetronomeAttributes::ContentState& state);
    void end();
    /// The program is about to end: the switches go off and every activity ends.
    void appWillTerminate();

    bool isActive() const { return current_.has_value(); }
    const std::optional<MetronomeAttributes>& current() const { return current_; }

private:
    StatusSurface& surface_;
    std::shared_ptr<personal::SharedStore> store_;
    std::optional<MetronomeAttributes> current_;
    MetronomeAttributes::ContentState lastState_;
};

/// The metronome screen's decisions: it holds the tempo, meter and sound the person
/// chose, pushes them into the unit once there is one, counts taps, keeps presets,
/// follows "isMetronomeOn", gives haptics in time with the clicks and keeps the live
/// activity up to date.
///
/// Threads: the main executor only; clicks reach it through the manager's relay.
class MetronomeController {
public:
    using Clock = std::chrono::system_clock;

    struct Ports {
        StatusSurface& status;
        HapticsPort& haptics;
        /// None on a system without tempo detection.
        TempoListeningPort* listening = nullptr;
    };

    /// Everything passed in must outlive the controller.
    MetronomeController(std::shared_ptr<personal::SharedStore> store,
                        personal::UserPreferences& preferences, MetronomeAudioUnitManager& manager,
                        asio::any_io_executor mainExecutor, Ports ports);
    ~MetronomeController();
    MetronomeController(const MetronomeController&) = delete;
    MetronomeController& operator=(const MetronomeController&) = delete;

    // The screen's life.

    /// Reads the tempo and presets, sets the unit up and keeps the display awake.
    void open();
    /// Ends listening and the clicks and the live activity.
    void close();

    // Controls.

    /// Limits the tempo to 30…300; the unit hears it in a main-thread task.
    void setTempo(int value);
    // Each of these keeps its value to its range (MetronomeSettings.h).
    /// Counts a tap at `now`; from the second tap on, sets the tempo from the mean
    /// interval of the last five taps. A pause over five seconds starts a new count.
    void tap(Clock::time_point now = Clock::now());
    void setBeats(int beats);
    void setSubdivisions(int subdivisions);
    void setAccentFirstBeat(bool accent);
    void setSound(MetronomeSound sound);
    void setKeyIndex(int index);
    /// Writes "isMetronomeOn"; the change handler makes the unit follow.
    void setMetronomeOn(bool on);

    // Presets.

    /// The list as last read or changed here.
    const std::vector<MetronomePreset>& presets() const { return presets_; }
    /// A new preset of the present tempo and meter, appended and stored.
    tl::expected<MetronomePreset, Error> savePreset(std::string name);
    /// Writes the preset's tempo, beats and subdivisions, and nothing else.
    void loadPreset(const MetronomePreset& preset);
    tl::expected<void, Error> renamePreset(const core::Uuid& id, std::string name);
    tl::expected<void, Error> deletePreset(const core::Uuid& id);
    tl::expected<void, Error> clearPresets();

    // Listening for the tempo. Listening and clicking exclude each other.

    /// Turns the metronome off and starts the detector afresh; its tempo becomes the
    /// metronome's, its state and level bands the screen's.
    void startListening();
    /// The "Stop listening" button: stops the detector and clears what it showed.
    void stopListening();

    // The screen's state.

    int bpm() const { return bpm_; }
    int beats() const;
    int subdivisions() const;
    bool isMetronomeOn() const;
    const std::deque<Clock::time_point>& tapTimestamps() const { return tapTimestamps_; }
    bool isOnBeat() const { return isOnBeat_; }
    int lastBeat() const { return lastBeat_; }
    bool isListeningForTempo() const { return isListeningForTempo_; }
    const std::string& tempoDetectionMessage() const { return tempoDetectionMessage_; }
    std::optional<int> lastDetectedTempo() const { return lastDetectedTempo_; }
    const std::vector<float>& tempoEQLevels() const { return tempoEQLevels_; }
    MetronomeLiveActivity& liveActivity() { return liveActivity_; }
    MetronomeAttributes::ContentState contentState() const;

    /// Called on the main executor with each click after haptics and the beat flip.
    void setOnClick(std::function<void(int beat, int subdivision)> observer) {
        onClick_ = std::move(observer);
    }
    /// Called on the main executor after each change of the listening state, the
    /// message, the detected tempo, the level bands, or the tempo set from listening.
    void setOnListeningChange(std::function<void()> observer) {
        onListeningChange_ = std::move(observer);
    }

private:
    void readTempoAndPresets();
    void unitReady(MetronomeAudioUnit& unit);
    void handleTick(int beat, int subdivision);
    void metronomeOnChanged(bool on);
    void clearListening();
    void listeningStateChanged(const ListeningState& state);
    void listeningChanged();
    void writeParameter(MetronomeParameter MetronomeAudioUnit::*parameter, float value);
    void refreshLiveActivity();

    std::shared_ptr<personal::SharedStore> store_;
    personal::UserPreferences& preferences_;
    MetronomeAudioUnitManager& manager_;
    asio::any_io_executor mainExecutor_;
    Ports ports_;
    MetronomeLiveActivity liveActivity_;
    personal::ObserverToken storeObserver_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);

    int bpm_ = 120;
    std::deque<Clock::time_point> tapTimestamps_;
    std::optional<Clock::time_point> lastTapTime_;
    bool isOnBeat_ = false;
    int lastBeat_ = 0;
    bool isListeningForTempo_ = false;
    std::string tempoDetectionMessage_;
    std::optional<int> lastDetectedTempo_;
    std::vector<float> tempoEQLevels_ =
        std::vector<float>(config::tempoLevelBands, config::tempoLevelAtRest);
    MetronomePresetStore presetStore_;
    std::vector<MetronomePreset> presets_;
    bool parametersPushed_ = false;
    bool lastMetronomeOn_ = false;
    std::function<void(int, int)> onClick_;
    std::function<void()> onListeningChange_;
};

} // namespace fq::metronome
