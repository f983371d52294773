#include "LiveScreen.h"

#include "CommandSupport.h"

#include <fq/core/Diagnostics.h>
#include <fq/documents/DataLocations.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>

namespace fq::cli {

std::string fittedToWidth(std::string_view text, std::size_t columns) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) == 0x80) continue;
        if (++count > columns) {
            // cut before the last character that fits, to make room for the ellipsis
            std::size_t cut = i;
            do
                --cut;
            while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80);
            return columns == 0 ? std::string() : std::string(text.substr(0, cut)) + "…";
        }
    }
    return std::string(text);
}

std::size_t terminalWidth() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    if (const char* columns = std::getenv("COLUMNS")) {
        std::size_t value = 0;
        const std::string_view text(columns);
        if (std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc{} &&
            value > 0)
            return value;
    }
    return 80;
}

void StatusLine::draw(std::string_view text) {
    if (!inPlace_) return;
    const auto width = terminalWidth();
    out_ << "\r\x1b[2K" << fittedToWidth(text, width > 1 ? width - 1 : 1) << std::flush;
    drawn_ = true;
}

void StatusLine::clear() {
    if (!inPlace_ || !drawn_) return;
    out_ << "\r\x1b[2K" << std::flush;
    drawn_ = false;
}

void StatusLine::end() {
    if (!inPlace_ || !drawn_) return;
    out_ << "\n" << std::flush;
    drawn_ = false;
}

LiveDiagnostics::LiveDiagnostics(bool verbose) {
    std::error_code ignored;
    const auto folder = documents::stateDirectory();
    std::filesystem::create_directories(folder, ignored);
    logFile_ = folder / "live.log";
    auto file = std::make_shared<std::ofstream>(logFile_, std::ios::app);
    setDiagnosticSink([file, verbose](std::string_view line) {
        if (*file) *file << line << std::endl;
        if (verbose) toStandardError(line);
    });
}

LiveDiagnostics::~LiveDiagnostics() {
    setDiagnosticSink(toStandardError);
}

} // namespace fq::cli
