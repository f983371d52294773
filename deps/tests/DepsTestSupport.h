#pragma once

// For the smoke tests: runs a helper program with no shell in between.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

extern char** environ;

namespace fq::deps_test {

/// Runs argv[0] (an absolute path) in `cwd`, its standard output and error appended to `log`.
/// The exit code, or none when it could not start or did not exit normally.
inline std::optional<int> runProgram(const std::vector<std::string>& argv,
                                     const std::filesystem::path& log,
                                     const std::filesystem::path& cwd) {
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return std::nullopt;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return std::nullopt;
    if (!WIFEXITED(status)) return std::nullopt;
    return WEXITSTATUS(status);
}

} // namespace fq::deps_test
