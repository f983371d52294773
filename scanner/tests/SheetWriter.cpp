// Saves two different sheets to one file, in turn, until it is killed: the durable write
// must leave one of them whole at every moment.
#include <fq/documents/DurableFile.h>
#include <fq/scanner/SheetDocument.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fq_sheet_writer FILE\n");
        return 2;
    }
    using namespace fq::scanner;
    FrtSheetDocument small{"Small",
                           {{fq::core::Uuid::random(), Bitmap::filled(4, 4, 0xff000000), {}}}};
    FrtSheetDocument large{"Large", {}};
    for (int index = 0; index < 6; ++index)
        large.pages.push_back({fq::core::Uuid::random(),
                               Bitmap::filled(300, 400, 0x20406000u + static_cast<unsigned>(index)),
                               {}});
    const std::string versions[2] = {*small.fileWrapper(), *large.fileWrapper()};
    for (unsigned long round = 0;; ++round)
        if (!fq::documents::writeFileDurably(argv[1], versions[round % 2])) return 1;
}
