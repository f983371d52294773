// The `sheet` commands: saving page images as a sheet, listing, showing and deleting sheets.
#include "SheetCommands.h"

#include "CommandSupport.h"
#include "SongCommands.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/Diagnostics.h>
#include <fq/documents/DurableFile.h>
#include <fq/scanner/SheetsViewModel.h>

#include <asio/io_context.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace fq::cli {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using namespace scanner;

std::string chordName(const core::Chord& chord) {
    const auto& catalogue = core::ChordDataManager::shared();
    auto name = catalogue.shortestName(chord.rootNote, chord.chordType, chord.variant);
    if (name.empty()) name = catalogue.name(chord.rootNote, chord.chordType, chord.variant);
    if (name.empty()) name = fmt::format("{} {}", core::rawValue(chord.rootNote), chord.chordType);
    return name;
}

Json rowJson(const fs::path& file, const std::string& title) {
    const auto entry = documents::folderEntry(file);
    return {{"url", fileURL(file)},
            {"title", title},
            {"creationDate", isoDate(entry.creationDate)},
            {"modificationDate", isoDate(entry.modificationDate)}};
}

/// The listing, through the list screen's model: bad files are told and left out.
std::vector<SongsheetDocumentItem> listSheets() {
    asio::io_context main;
    SheetsViewModel model(main.get_executor());
    model.loadDocuments();
    main.run();
    return model.documentItems();
}

void printList(std::ostream& out, const std::vector<SongsheetDocumentItem>& sheets, bool json) {
    if (json) {
        auto array = Json::array();
        for (const auto& item : sheets)
            array.push_back(rowJson(item.url, item.title));
        out << dumped(array) << "\n";
        return;
    }
    if (sheets.empty())
        out << "No sheets yet. Save one with: fretquill sheet save --title \"My Song\" page1.png\n";
    for (const auto& item : sheets) {
        const auto modified = isoDate(documents::folderEntry(item.url).modificationDate);
        out << fmt::format("{:<32} {:>2} {:<5} {:<32} {}\n", printable(item.title),
                           item.pages.size(), item.pages.size() == 1 ? "page" : "pages",
                           printable(item.url.filename().string()),
                           modified.is_null() ? std::string() : modified.get<std::string>());
    }
}

void printSheet(std::ostream& out, const fs::path& file, const FrtSheetDocument& sheet, bool json) {
    if (json) {
        auto pages = Json::array();
        for (const auto& page : sheet.pages) {
            auto boxes = Json::array();
            for (const auto& box : page.detectedChordBoxes)
                boxes.push_back(toJson(box));
            pages.push_back({{"id", page.id.text()},
                             {"width", page.image.width()},
                             {"height", page.image.height()},
                             {"detectedChordBoxes", std::move(boxes)}});
        }
        out << dumped({{"title", sheet.title}, {"url", fileURL(file)}, {"pages", std::move(pages)}})
            << "\n";
        return;
    }
    out << fmt::format("{}\n  {}\n", printable(sheet.title), printable(file.string()));
    if (sheet.pages.empty()) out << "  No pages.\n";
    for (std::size_t index = 0; index < sheet.pages.size(); ++index) {
        const auto& page = sheet.pages[index];
        const auto count = page.detectedChordBoxes.size();
        out << fmt::format("  Page {} · {}×{} pixels · {} {}\n", index + 1, page.image.width(),
                           page.image.height(), count, count == 1 ? "chord" : "chords");
        for (const auto& box : page.detectedChordBoxes) {
            const auto& rect = box.boundingBox;
            out << fmt::format("    {:<8} at x {:.3f}, y {:.3f}, {:.3f} wide, {:.3f} high\n",
                               chordName(box.chord), rect.x, rect.y, rect.width, rect.height);
        }
    }
}

/// An image file in any format the image library reads, refused with its name.
FrtSheetDocument::Page readPage(const std::string& name) {
    auto bytes = documents::readWholeFile(name);
    if (!bytes)
        throw CommandError(
            fmt::format("Couldn’t read the image {}: {}", name, bytes.error().message));
    auto image = Bitmap::decode(
        std::span(reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size()));
    if (!image)
        throw CommandError(
            fmt::format("Couldn’t read the image {}: {}", name, image.error().message));
    return {core::Uuid::random(), std::move(*image), {}};
}

struct SheetOptions {
    std::string title = std::string(scanner::config::defaultSheetName);
    std::vector<std::string> files;
    bool json = false;
};

CLI::App* command(CLI::App* parent, const char* name, const char* description,
                  SheetOptions& options) {
    auto* made = parent->add_subcommand(name, description);
    made->add_flag("--json", options.json, "Print JSON");
    return made;
}

} // namespace

void addSheetCommands(CLI::App& app, CommandContext& context) {
    auto* sheet = app.add_subcommand(
        "sheet", "Scanned song sheets: page images with the chords found on them");
    sheet->require_subcommand(1);

    auto saving = std::make_shared<SheetOptions>();
    auto* save =
        command(sheet, "save", "Save images as the pages of a new sheet, stored as PNG", *saving);
    save->add_option("--title", saving->title, "The sheet's title; its file name is made from it");
    save->add_option("IMAGE", saving->files, "The page images in order (PNG, JPEG, TIFF, …)")
        ->required();
    save->callback([&context, saving] {
        *context.action = [&context, saving] {
            std::vector<FrtSheetDocument::Page> pages;
            for (const auto& file : saving->files)
                pages.push_back(readPage(file));
            const auto saved = saveSheet(saving->title, pages);
            if (!saved) {
                diagnostic("Failed to save .frtqulsheet: " + saved.error().message);
                return 1;
            }
            if (saving->json)
                context.out << dumped(rowJson(*saved, saving->title)) << "\n";
            else
                context.out << fmt::format("Saved “{}” ({} {}): {}\n", printable(saving->title),
                                           pages.size(), pages.size() == 1 ? "page" : "pages",
                                           printable(saved->string()));
            return 0;
        };
    });

    auto listing = std::make_shared<SheetOptions>();
    command(sheet, "list", "Your sheets, by file name", *listing)->callback([&context, listing] {
        *context.action = [&context, listing] {
            printList(context.out, listSheets(), listing->json);
            return 0;
        };
    });

    auto showing = std::make_shared<SheetOptions>();
    auto* show = command(sheet, "show", "A sheet's pages and the chords found on them", *showing);
    show->add_option("FILE", showing->files, "The sheet: a path or a name in the documents folder")
        ->required()
        ->expected(1);
    show->callback([&context, showing] {
        *context.action = [&context, showing] {
            const auto file = valueOrThrow(findSheet(showing->files.front()));
            printSheet(context.out, file, valueOrThrow(FrtSheetDocument::read(file)),
                       showing->json);
            return 0;
        };
    });

    auto removing = std::make_shared<SheetOptions>();
    auto* remove =
        command(sheet, "delete", "Delete sheets (all named files must exist)", *removing);
    remove
        ->add_option("FILE", removing->files, "The sheets: paths or names in the documents folder")
        ->required();
    remove->callback([&context, removing] {
        *context.action = [&context, removing] {
            // every name must be found before anything is removed
            std::vector<fs::path> files;
            for (const auto& name : removing->files)
                if (auto file = valueOrThrow(findSheet(name));
                    std::find(files.begin(), files.end(), file) == files.end())
                    files.push_back(std::move(file));
            int status = 0;
            for (const auto& file : files) {
                if (auto removed = documents::removeFileDurably(file); !removed) {
                    diagnostic(fmt::format("Failed to delete {}: {}", file.filename().string(),
                                           removed.error().message));
                    status = 1;
                } else if (!removing->json) {
                    context.out << fmt::format("Deleted {}\n", printable(file.string()));
                }
            }
            if (removing->json) printList(context.out, listSheets(), true);
            return status;
        };
    });
}

} // namespace fq::cli
