#pragma once

// For tests: the diagnostic lines sent while one of these lives.

#include <fq/core/Diagnostics.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace fq {

class CapturedDiagnostics {
public:
    CapturedDiagnostics()
        : previous_(setDiagnosticSink([this](std::string_view line) {
              const std::lock_guard lock(mutex_);
              lines_.emplace_back(line);
          })) {}
    ~CapturedDiagnostics() { setDiagnosticSink(std::move(previous_)); }
    CapturedDiagnostics(const CapturedDiagnostics&) = delete;
    CapturedDiagnostics& operator=(const CapturedDiagnostics&) = delete;

    std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }
    /// Everything sent so far, one line each.
    std::string text() const {
        std::string result;
        for (const auto& line : lines())
            result += line + '\n';
        return result;
    }
    bool contains(const std::string& line) const {
        const auto all = lines();
        return std::find(all.begin(), all.end(), line) != all.end();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    DiagnosticSink previous_;
};

} // namespace fq
