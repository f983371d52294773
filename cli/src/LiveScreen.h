#pragma once

// What every live terminal screen (tune, detect-tempo, a live metronome) shares: one status
// line redrawn in place that never wraps, and diagnostics kept off the display.

#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>

namespace fq::cli {

/// `text` cut to at most `columns` characters, with "…" where it was cut.
std::string fittedToWidth(std::string_view text, std::size_t columns);

/// The terminal's width in columns: the terminal's own answer, else $COLUMNS, else 80.
std::size_t terminalWidth();

/// One line drawn over itself. Each draw is cut to the terminal's width less one column, so
/// that a redraw never scrolls; the line is ended when the screen stops.
class StatusLine {
public:
    /// `inPlace` false (a pipe, JSON Lines) makes every call a no-op.
    StatusLine(std::ostream& out, bool inPlace) : out_(out), inPlace_(inPlace) {}
    ~StatusLine() { end(); }
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    bool inPlace() const { return inPlace_; }
    void draw(std::string_view text);
    /// Wipes the line, so that ordinary output can follow on it.
    void clear();
    /// Leaves what is drawn and moves to the next line.
    void end();

private:
    std::ostream& out_;
    bool inPlace_;
    bool drawn_ = false;
};

/// While one of these lives, the system's diagnostic lines go to "live.log" in the state
/// folder instead of over the display, and with `verbose` also to standard error.
class LiveDiagnostics {
public:
    explicit LiveDiagnostics(bool verbose);
    ~LiveDiagnostics();
    LiveDiagnostics(const LiveDiagnostics&) = delete;
    LiveDiagnostics& operator=(const LiveDiagnostics&) = delete;

    const std::filesystem::path& logFile() const { return logFile_; }

private:
    std::filesystem::path logFile_;
};

} // namespace fq::cli
