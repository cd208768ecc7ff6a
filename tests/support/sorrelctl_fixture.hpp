// sorrelctl, run as people run it, and a ring for it.
#ifndef SORREL_TESTS_SORRELCTL_FIXTURE_HPP
#define SORREL_TESTS_SORRELCTL_FIXTURE_HPP

#include "ring_fixture.hpp"

#include <cstdlib>
#include <string>

class SorrelctlFixture : public RingFixture {
protected:
    struct Result {
        int status;
        std::string out;
        std::string err;
    };

    SorrelctlFixture() {
        setenv("TZ", "UTC", 1);
        const Container container = open("file=" + path("ring") + ",size=64k", "player");
        say(*container, 10, 8, 0, "main", "net", "poll", "entering");
        say(*container, 20, 6, 1, "main", "net", "poll", "first\tline");
        say(*container, 30, 3, 0, "worker", "disk", "", "second \"quoted\" line");
        say(*container, 40, 8, 0, "main", "net", "poll", "leaving");
        say(*container, 50, 4, 0, "main", "ui.menu", "", "last");
    }

    static void say(sorrel::CLogTargetContainer& container, int seconds, int numeric, int depth,
                    const std::string& thread, const std::string& component, const std::string& function,
                    const std::string& text) {
        constexpr long long kBegin = 1709211800; // 13:03:20 on that day
        logTo(container, {text, depth, numeric, function, component, thread, kBegin + seconds, 5, 4711});
    }

    // Runs "sorrelctl ARGUMENTS".
    Result run(const std::string& arguments) {
        const std::string command =
            std::string(SORREL_TEST_TOOL " ") + arguments + " > " + path("out") + " 2> " + path("err") + " < /dev/null";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, files().read("out"), files().read("err")};
    }

    Result record(const std::string& arguments) { return run("record " + arguments); }
};

#endif // SORREL_TESTS_SORRELCTL_FIXTURE_HPP
