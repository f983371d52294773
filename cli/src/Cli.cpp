#include "Cli.h"

#include "AudioCommands.h"
#include "ChordCommands.h"
#include "CommandSupport.h"
#include "LibraryCommands.h"
#include "LinkCommands.h"
#include "MetronomeCommands.h"
#include "NavigationCommands.h"
#include "SheetCommands.h"
#include "SongCommands.h"
#include "TempoCommands.h"
#include "TheoryCommands.h"
#include "TunerCommands.h"

#include <fq/core/Diagnostics.h>

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace fq::cli {
namespace {

/// The first line of a parse error: CLI11 may add usage lines, and errors are one line.
std::string firstLine(std::string text) {
    if (const auto end = text.find('\n'); end != std::string::npos) text.resize(end);
    return text;
}

} // namespace

int runCli(std::span<const char* const> arguments, std::ostream& out, std::ostream& err) {
    CLI::App app{"Fret Quill: a guitarist's companion. Chords, shapes and theory.", "fretquill"};
    app.set_version_flag("--version", std::string(FQ_VERSION) + " (build " FQ_BUILD_NUMBER ")");
    CommandAction action;
    CommandContext context{out, &action};
    addChordCommands(app, context);
    addAudioCommands(app, context);
    addLibraryCommands(app, context);
    addLinkCommands(app, context);
    addMetronomeCommands(app, context);
    addNavigationCommands(app, context);
    addSheetCommands(app, context);
    addSongCommands(app, context);
    addTempoCommands(app, context);
    addTheoryCommands(app, context);
    addTunerCommands(app, context);

    std::vector<std::string> args(arguments.begin(), arguments.end());
    std::reverse(args.begin(), args.end()); // CLI11 takes them last first
    try {
        app.parse(args);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return 0;
    } catch (const CLI::CallForAllHelp&) {
        out << app.help("", CLI::AppFormatMode::All);
        return 0;
    } catch (const CLI::CallForVersion&) {
        out << app.version() << "\n";
        return 0;
    } catch (const CLI::ParseError& error) {
        err << firstLine(error.what()) << "\n";
        return 1;
    }
    // our own output must stay parseable: survived failures are told on standard error
    setDiagnosticSink(toStandardError);
    if (!action) {
        printWelcome(out);
        return 0;
    }
    try {
        return action();
    } catch (const std::exception& error) {
        err << firstLine(error.what()) << "\n";
        return 1;
    }
}

} // namespace fq::cli
