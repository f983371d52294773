#include "fq/core/Diagnostics.h"

#include <cstdio>
#include <mutex>
#include <utility>

namespace fq {
namespace {

void toStandardOutput(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

struct Sink {
    std::mutex mutex;
    DiagnosticSink sink = toStandardOutput;
};

Sink& current() {
    static Sink instance;
    return instance;
}

} // namespace

void diagnostic(std::string_view line) {
    auto& state = current();
    const std::lock_guard lock(state.mutex);
    state.sink(line);
}

DiagnosticSink setDiagnosticSink(DiagnosticSink sink) {
    auto& state = current();
    const std::lock_guard lock(state.mutex);
    if (!sink) sink = toStandardOutput;
    return std::exchange(state.sink, std::move(sink));
}

} // namespace fq
