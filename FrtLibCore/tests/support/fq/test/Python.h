#pragma once

// For tests: Python's standard library as an independent oracle (plistlib reads and writes
// the property lists our documents use).

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace fq::test {

inline bool havePython() {
    return std::system("python3 -c 'import plistlib' >/dev/null 2>&1") == 0;
}

/// Runs python3 with a program text and gives its exit status; `output` gets what it printed.
inline int runPython(const std::string& program, std::string* output = nullptr) {
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

} // namespace fq::test
