// Starts two programs by turns, and prints the median times from before the start until the programs' first message:
// sorrel_bench_launcher COUNT PROGRAM PROGRAM
#include "clock.hpp"

#include <cstdio>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What the program writes, which is the time of its first message.
std::string outputOf(const char* program) {
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("no pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string name(program);
    char* const arguments[] = {name.data(), nullptr};
    pid_t child = -1;
    if (posix_spawn(&child, program, &actions, nullptr, arguments, environ) != 0) {
        throw std::runtime_error("cannot start " + name);
    }
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output;
    char buffer[256];
    for (ssize_t length = 0; (length = read(ends[0], buffer, sizeof buffer)) > 0;) {
        output.append(buffer, static_cast<std::size_t>(length));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) {
        throw std::runtime_error(name + " failed");
    }
    return output;
}

double millisecondsToFirstMessage(const char* program) {
    const double begin = nanosecondsNow();
    return (std::stod(outputOf(program)) - begin) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: COUNT PROGRAM PROGRAM\n");
        return 1;
    }
    std::vector<double> first;
    std::vector<double> second;
    for (int rest = std::stoi(argv[1]); rest > 0; --rest) {
        first.push_back(millisecondsToFirstMessage(argv[2]));
        second.push_back(millisecondsToFirstMessage(argv[3]));
    }
    printf("{\"first\": %.4f, \"second\": %.4f}\n", median(first), median(second));
    return 0;
}
