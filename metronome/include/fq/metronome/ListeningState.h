#pragma once

// What tempo detection shows, and the callbacks that tell it.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::metronome {

/// What tempo detection shows.
struct ListeningState {
    enum class Kind : std::uint8_t { listening, detected, unavailable, idle };

    Kind kind = Kind::idle;
    std::string message; ///< listening and unavailable
    int tempo = 0;       ///< detected

    static ListeningState listening(std::string message) {
        return {Kind::listening, std::move(message), 0};
    }
    static ListeningState detected(int tempo) { return {Kind::detected, {}, tempo}; }
    static ListeningState unavailable(std::string message) {
        return {Kind::unavailable, std::move(message), 0};
    }
    static ListeningState idle() { return {}; }

    /// The text shown: the message, "Detected " and the tempo, or nothing when idle.
    std::string text() const;

    friend bool operator==(const ListeningState&, const ListeningState&) = default;
};

/// "listening", "detected", "unavailable" or "idle".
std::string_view kindName(ListeningState::Kind kind);

/// The three things a listener is told, each on the main executor.
struct ListeningCallbacks {
    using StateCallback = std::function<void(const ListeningState&)>;
    using TempoCallback = std::function<void(int)>;
    using LevelsCallback = std::function<void(const std::vector<float>&)>;
};

} // namespace fq::metronome
