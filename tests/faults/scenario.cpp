// The program in which one call fails: scenario SCENARIO FUNCTION ERRNO NUMBER [MISTAKE]. Writes a line for each error
// that the library reports, each exception, and each thing that must not be; at last "passed", when there was none.
#include "scenario.hpp"

#include "private_system.hpp"
#include "wait_until.hpp"
#include "watchdog.hpp"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <new>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>

using failingCalls::report;

namespace {

constexpr std::chrono::seconds kPatience{3};

int problems = 0;
bool traced = false;
std::string_view mistake;

// A descriptor that was not open before, or -1. The ends of a pipe have the same text: the first is the read end.
int newDescriptor(const Footprint& before, const std::string& what, bool last) {
    int found = -1;
    for (const auto& [fd, target] : openDescriptors()) {
        if (before.descriptors.count(fd) == 0 && target.rfind(what, 0) == 0 && (found == -1 || last)) {
            found = fd;
        }
    }
    return found;
}

bool isEmpty(int fd) {
    int count = 0;
    return ioctl(fd, FIONREAD, &count) == 0 && count == 0;
}

// A worker that has ended by itself leaves what is waiting.
bool waitUntilTaken(const Footprint& before, int fd) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!isEmpty(fd) && threadIds() != before.threads) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

bool runs(const std::string& scenario, const TempDir& files) {
    if (scenario == "container") {
        runContainerScenario(files);
        return true;
    }
    if (scenario == "logger") {
        runLoggerScenario(files);
        return true;
    }
    return false;
}

} // namespace

Footprint footprint() {
    Footprint now{openDescriptors(), threadIds(), 0};
    now.blocks = failingCalls::liveBlocks();
    return now;
}

void problem(const std::string& what) {
    ++problems;
    report("problem: %s", what.c_str());
}

bool hasProblems() {
    return problems > 0;
}

bool isTraced() {
    return traced;
}

bool makesMistake(const char* name) {
    return mistake == name;
}

void reportException(const char* step) {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        report("threw bad_alloc: %s", step);
    } catch (const std::system_error& error) {
        report("threw system_error %d: %s", error.code().value(), step);
    } catch (const std::exception& error) {
        report("threw %s: %s", error.what(), step);
    } catch (...) {
        report("threw something: %s", step);
    }
    if (!failingCalls::hasFailed() && !traced) {
        problem("an exception although nothing has failed");
    }
}

void markForTracers(const char* name) {
    syscall(SYS_faccessat, AT_FDCWD, name, F_OK);
}

// The event is taken out before it is dealt with, so a further notification, which is ignored, is taken out after that.
void settle(const Footprint& before) {
    const int inotify = newDescriptor(before, "anon_inode:inotify", false);
    const int readEnd = newDescriptor(before, "pipe:", false);
    const int writeEnd = newDescriptor(before, "pipe:", true);
    if (inotify == -1 || readEnd == -1 || threadIds() == before.threads) {
        return;
    }
    const int ignored = 77;
    const bool settled = waitUntilTaken(before, readEnd) && waitUntilTaken(before, inotify) &&
                         write(writeEnd, &ignored, sizeof ignored) == sizeof ignored && waitUntilTaken(before, readEnd);
    if (!settled) {
        problem("the worker does not take what is waiting for it");
    }
}

void expectNothingLeft(const Footprint& before, long allowedBlocks) {
    if (!waitUntil([&] { return threadIds() == before.threads; }, kPatience)) {
        problem("other threads than before");
    }
    if (openDescriptors() != before.descriptors) {
        problem("other descriptors than before");
    }
    const long more = failingCalls::liveBlocks() - before.blocks;
    if (more > allowedBlocks) {
        problem("memory is left: blocks " + std::to_string(more));
    }
}

int main(int argc, char** argv) {
    if (argc < 5) {
        return EXIT_FAILURE;
    }
    enterPrivateSystem();
    setenv("SORREL_VERBOSE_STARTUP", "1", 1);
    unsetenv("SORL_PATH");
    mistake = argc > 5 ? argv[5] : "";
    static TempDir files;
    new Watchdog(std::chrono::seconds(10)); // until the process is gone
    traced = std::string_view(argv[2]) == "traced";
    failingCalls::choose({argv[2], std::atoi(argv[3]), std::atoi(argv[4])});
    return runs(argv[1], files) ? EXIT_SUCCESS : EXIT_FAILURE;
}
