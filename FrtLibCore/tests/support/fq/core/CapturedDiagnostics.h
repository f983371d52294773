#pragma once

// For tests: the diagnostic lines printed while one of these lives.

#include <fq/core/Diagnostics.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace fq {

class CapturedDiagnostics {
public:
    CapturedDiagnostics() : file_(std::tmpfile()) { setDiagnosticStream(file_); }
    ~CapturedDiagnostics() {
        setDiagnosticStream(stdout);
        std::fclose(file_);
    }
    CapturedDiagnostics(const CapturedDiagnostics&) = delete;
    CapturedDiagnostics& operator=(const CapturedDiagnostics&) = delete;

    /// Everything printed so far.
    std::string text() const {
        std::fflush(file_);
        std::rewind(file_);
        std::string result;
        for (int c; (c = std::fgetc(file_)) != EOF;)
            result += static_cast<char>(c);
        std::fseek(file_, 0, SEEK_END);
        return result;
    }
    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        std::string line;
        for (const char c : text()) {
            if (c != '\n') {
                line += c;
                continue;
            }
            result.push_back(line);
            line.clear();
        }
        return result;
    }
    bool contains(const std::string& line) const {
        const auto all = lines();
        return std::find(all.begin(), all.end(), line) != all.end();
    }

private:
    std::FILE* file_;
};

} // namespace fq
