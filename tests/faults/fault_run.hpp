// Runs the scenario program, with one call in it that fails, and tells what it said.
#ifndef SORREL_TESTS_FAULT_RUN_HPP
#define SORREL_TESTS_FAULT_RUN_HPP

#include "child_process.hpp"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

struct FaultRun {
    std::vector<std::string> logged; // what the library reported, warnings and worse
    std::vector<std::string> thrown;
    std::vector<std::string> problems;
    bool hasFailed = false; // the call was made, and failed
    bool passed = false;
    int end = 0;     // see endOfChild
    std::string all; // that it said
};

inline std::string readAll(int fd) {
    std::string text;
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t got = read(fd, buffer.data(), buffer.size());
        if (got <= 0) {
            return text;
        }
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

// Takes the line for itself when it begins with the word.
inline bool take(const std::string& word, const std::string& line, std::vector<std::string>& lines) {
    if (line.rfind(word, 0) != 0) {
        return false;
    }
    lines.push_back(line.substr(word.size()));
    return true;
}

inline FaultRun understand(const std::string& text) {
    FaultRun run;
    run.all = text;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        const bool isKnown = take("logged ", line, run.logged) || take("threw ", line, run.thrown) ||
                             take("problem: ", line, run.problems);
        run.hasFailed = run.hasFailed || (!isKnown && line == "failed once");
        run.passed = run.passed || (!isKnown && line == "passed");
    }
    return run;
}

// Runs a command line, whose standard output and standard error are read to their end.
inline FaultRun runCommand(const std::vector<std::string>& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char*> arguments;
        for (const std::string& argument : command) {
            arguments.push_back(const_cast<char*>(argument.c_str()));
        }
        arguments.push_back(nullptr);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(ends[1]);
    FaultRun run = understand(readAll(ends[0]));
    close(ends[0]);
    run.end = endOfChild(child);
    return run;
}

inline FaultRun runScenario(const std::string& scenario, const std::string& function, int error, int number,
                            const std::string& mistake = "") {
    return runCommand(
        {SORREL_TEST_SCENARIO, scenario, function, std::to_string(error), std::to_string(number), mistake});
}

#endif // SORREL_TESTS_FAULT_RUN_HPP
