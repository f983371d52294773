#pragma once

// The command as the tests run it: in this process for what it prints, or as the real
// program for its exit status and streams.

#include "Cli.h"

#include <fq/test/TemporaryFolder.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace fq::cli {

/// A home of the test's own for the commands it runs; the home before it is put back after,
/// so that tests sharing one process never write into a folder another test removed.
class OwnHome : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* before = std::getenv("FRETQUILL_HOME")) before_ = before;
        setenv("FRETQUILL_HOME", (folder_ / "home").c_str(), 1);
    }
    void TearDown() override {
        if (before_)
            setenv("FRETQUILL_HOME", before_->c_str(), 1);
        else
            unsetenv("FRETQUILL_HOME");
    }
    test::TemporaryFolder folder_;

private:
    std::optional<std::string> before_;
};

struct Run {
    int status;
    std::string out;
    std::string err;
};

inline Run run(std::vector<const char*> arguments) {
    std::ostringstream out, err;
    const int status = runCli(arguments, out, err);
    return {status, out.str(), err.str()};
}

/// What a command prints with --json: one document on one line. A failed run fails
/// the test, and output that is no JSON reads as a discarded value.
inline nlohmann::ordered_json json(std::vector<const char*> arguments) {
    arguments.push_back("--json");
    const auto result = run(std::move(arguments));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1) << result.out;
    return nlohmann::ordered_json::parse(result.out, nullptr, false);
}

inline std::string bytesOf(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The real program in FRETQUILL_HOME, for what it tells on its standard error and
/// how it exits.
inline Run program(const std::vector<std::string>& arguments) {
    const auto folder = std::filesystem::path(std::getenv("FRETQUILL_HOME"));
    std::string command = std::string("'") + FQ_FRETQUILL + "'";
    for (const auto& argument : arguments)
        command += " '" + argument + "'";
    command += " >'" + (folder / "out").string() + "' 2>'" + (folder / "err").string() + "'";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, bytesOf(folder / "out"),
            bytesOf(folder / "err")};
}

} // namespace fq::cli
