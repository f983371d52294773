#pragma once

// What every command shares: its failure type, the chord a person names, and the
// preference store of this run.

#include <fq/core/Chord.h>
#include <fq/core/Error.h>
#include <fq/personal/SharedStore.h>

#include <CLI/CLI.hpp>
#include <tl/expected.hpp>

#include <memory>
#include <stdexcept>
#include <string>

namespace fq::cli {

/// A command failure that reaches the person as one line on standard error.
struct CommandError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <typename T>
T valueOrThrow(tl::expected<T, Error> result) {
    if (!result) throw CommandError(result.error().message);
    if constexpr (!std::is_void_v<T>) return std::move(*result);
}

/// The program's diagnostic sink: one line on standard error, so that standard output
/// stays one JSON document.
void toStandardError(std::string_view line);

/// Stored text (a title, a collection's name) made safe for a terminal: control characters,
/// escape sequences among them, and bytes that are not UTF-8 are shown as \xNN.
std::string printable(std::string_view text);

/// Text broken into lines of at most `width` characters, each starting with `indent`.
std::string wrapped(std::string_view text, std::size_t width, std::string_view indent);

/// A chord named by one symbol, or by --root, --type and --variant.
struct ChordSelection {
    std::string symbol;
    std::string root;
    std::string type = "major";
    int variant = 0;
    CLI::App* command = nullptr;

    /// Adds the symbol as a positional argument and the three options.
    void addOptions(CLI::App* to, const char* positionalName = "CHORD");
    core::Chord resolve() const;
};

/// The preference store of this run, opened on first use (in FRETQUILL_HOME when
/// set). A store that cannot be opened fails the command with its message.
std::shared_ptr<personal::SharedStore> appStore();

/// Lets shape queries remember their results in the store. A store that cannot be
/// opened only costs the time to generate shapes again.
void useShapeMemo();

} // namespace fq::cli
