#include "fq/core/Diagnostics.h"

#include <atomic>

namespace fq {
namespace {
std::atomic<std::FILE*> stream{stdout};
} // namespace

void diagnostic(std::string_view line) {
    std::FILE* out = stream.load();
    std::fwrite(line.data(), 1, line.size(), out);
    std::fputc('\n', out);
    std::fflush(out);
}

void setDiagnosticStream(std::FILE* to) { stream.store(to); }

} // namespace fq
