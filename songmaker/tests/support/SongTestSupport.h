#pragma once

// For the song maker's tests: a sample song, and a documents folder with a main executor
// the test drives by hand.

#include <fq/core/CapturedDiagnostics.h>
#include <fq/documents/DocumentsFolder.h>
#include <fq/songmaker/SongDocument.h>
#include <fq/test/Python.h>
#include <fq/test/TemporaryFolder.h>

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace fq::songmaker::testing {

using DiagnosticCapture = CapturedDiagnostics;

using test::havePython;
using test::readBytes;
using test::runPython;
using test::TemporaryFolder;
using test::writeBytes;

/// A song with two sections, negative and unusual values included.
FrtQulDocumentData sampleSong(std::string title = "Sample Song");

/// The document's JSON form without the pattern identifiers, which are never read back.
nlohmann::json comparable(const FrtQulDocumentData& data);

struct CountingObserver : documents::DocumentsChangeObserver {
    int changes = 0;
    void documentsChanged() override { ++changes; }
};

/// A documents folder, and a main executor that runs only when the test says so.
class SongFolderTest : public ::testing::Test {
protected:
    const std::filesystem::path& documents() const { return folder_.path(); }
    documents::DocumentsDirectory location() const;
    Executor executor() { return main_.get_executor(); }
    /// Runs what was posted to the main executor, including what that posts in turn.
    void runMain() {
        main_.restart();
        main_.run();
    }
    /// Writes the sample song under this title.
    std::filesystem::path song(const std::string& fileName, const std::string& title);
    /// The names in the folder, sorted.
    std::vector<std::string> files() const;

    TemporaryFolder folder_;
    asio::io_context main_;
    CountingObserver observer_;
};

} // namespace fq::songmaker::testing
