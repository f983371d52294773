// Saves two different songs to one file, in turn, until it is killed: the durable write
// must leave one of them whole at every moment.
#include <fq/documents/DurableFile.h>
#include <fq/songmaker/SongDocument.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fq_song_writer FILE\n");
        return 2;
    }
    using namespace fq::songmaker;
    FrtQulDocument small;
    small.title = "Small";
    FrtQulDocument large;
    large.title = "Large";
    for (int index = 0; index < 400; ++index) {
        SongSection section;
        section.title = "Section " + std::to_string(index);
        section.chords.assign(8, fq::core::Chord{fq::core::Note::A, "minor", 0});
        large.sections.push_back(section);
    }
    const std::string versions[2] = {*small.fileWrapper(), *large.fileWrapper()};
    // tells the test that writing starts now, so its kill lands among the writes
    std::fputs("writing\n", stdout);
    std::fflush(stdout);
    for (unsigned long round = 0;; ++round)
        if (!fq::documents::writeFileDurably(argv[1], versions[round % 2])) return 1;
}
