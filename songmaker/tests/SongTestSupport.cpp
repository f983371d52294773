#include "SongTestSupport.h"

#include <fq/core/Diagnostics.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fq::songmaker::testing {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (fs::temp_directory_path() / "fq-songs-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code error;
    fs::remove_all(path_, error);
}

FrtQulDocumentData sampleSong(std::string title) {
    FrtQulDocumentData data;
    data.title = std::move(title);
    SongSection verse;
    verse.title = "Verse";
    verse.sectionType = SectionType::verse;
    verse.chords = {{core::Note::Fs, "minor 7th", 0},
                    {core::Note::Bf, "major", -2},
                    {core::Note::C, "sus4", 1}};
    verse.isBassEnabled = false;
    verse.shouldAddFillAtEnd = false;
    SongSection chorus;
    chorus.title = "Chorus — ♯";
    chorus.sectionType = SectionType::chorus;
    chorus.chords = {{core::Note::G, "major", 0}};
    chorus.isDrumsEnabled = false;
    data.sections = {verse, chorus};
    data.key = {core::Note::Ef, "minor", 0};
    data.bpm = -7;
    data.sequence = core::arpeggioSequences().at(1);
    return data;
}

nlohmann::json comparable(const FrtQulDocumentData& data) {
    auto json = nlohmann::json::parse(toJson(data).dump());
    auto& sequence = json["sequence"];
    sequence.erase("id");
    for (auto* list : {&sequence["associatedBassPatterns"], &sequence["associatedDrumPatterns"]})
        for (auto& item : *list) {
            item.erase("id");
            for (auto& [key, value] : item.items())
                if (value.is_object()) value.erase("id");
        }
    return json;
}

void writeBytes(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

std::string readBytes(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream contents;
    contents << in.rdbuf();
    return contents.str();
}

bool havePython() {
    return std::system("python3 -c 'import plistlib' >/dev/null 2>&1") == 0;
}

int runPython(const std::string& program, std::string* output) {
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0) return -1;
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(pipeEnds[1], STDOUT_FILENO);
        ::close(pipeEnds[0]);
        ::close(pipeEnds[1]);
        ::execlp("python3", "python3", "-c", program.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(pipeEnds[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = ::read(pipeEnds[0], buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(got));
    ::close(pipeEnds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (output) *output = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace fq::songmaker::testing
