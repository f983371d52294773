#pragma once

#include <fq/core/CapturedDiagnostics.h>
#include <fq/songmaker/SongDocument.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace fq::songmaker::testing {

using DiagnosticCapture = CapturedDiagnostics;

/// A fresh folder under the system's temporary folder, removed afterwards.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// A song with two sections, negative and unusual values included.
FrtQulDocumentData sampleSong(std::string title = "Sample Song");

/// The document's JSON form without the pattern identifiers, which are never read back.
nlohmann::json comparable(const FrtQulDocumentData& data);

void writeBytes(const std::filesystem::path& file, const std::string& bytes);
std::string readBytes(const std::filesystem::path& file);

/// Runs python3 with a program text; false (and the output untouched) when python3 is absent.
bool havePython();
int runPython(const std::string& program, std::string* output = nullptr);

} // namespace fq::songmaker::testing
