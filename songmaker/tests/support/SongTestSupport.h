#pragma once

#include <fq/core/CapturedDiagnostics.h>
#include <fq/songmaker/SongDocument.h>
#include <fq/test/Python.h>
#include <fq/test/TemporaryFolder.h>

#include <cstdio>
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

} // namespace fq::songmaker::testing
