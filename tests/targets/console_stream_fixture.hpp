// The console target, and streams whose reader is slow, has stopped or is gone.
#ifndef SORREL_TESTS_CONSOLE_STREAM_FIXTURE_HPP
#define SORREL_TESTS_CONSOLE_STREAM_FIXTURE_HPP

#include "child_process.hpp"
#include "line_target_fixture.hpp"
#include "proc_self.hpp"
#include "standard_streams.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <regex>
#include <string>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

class ConsoleStream : public LineTargetFixture {
protected:
    // Loads a target that writes to standard error; failures of the test go to standard output.
    void loadTarget(const std::string& parameters = "levels=all") {
        load(targetPath("console") + ",stream=stderr,time=none,colour=never," + parameters);
    }

    void sayNumbers(int first, int last) {
        for (int i = first; i <= last; ++i) {
            log({"number " + std::to_string(i)});
        }
    }

    // More than any stream takes while nobody reads, then again something that is read.
    void expectLossAndRecovery(const Ends& ends) {
        constexpr int kMany = 20000;
        sayNumbers(1, kMany);
        const std::string first = ends.read();
        EXPECT_THAT(first, testing::HasSubstr("number 1\n"));
        sayNumbers(kMany + 1, kMany + 1);
        std::string second;
        waitUntil([&] { return (second += ends.read()).find("number 20001\n") != std::string::npos; });
        EXPECT_THAT(second, testing::HasSubstr("WARN   console  main       "));
        EXPECT_THAT(second, testing::HasSubstr(" messages lost: Resource temporarily unavailable\n"));
        expectLinesToBeWhole(first + second);
    }

    // The same with lines of which a terminal has room for a part, mostly: what follows has a line of its own.
    void expectLossOfLongLines(const Terminal& terminal) {
        std::string text;
        for (std::size_t length = 2047; length > 1047; length -= 100) { // so that most of them end in the middle
            for (int i = 0; i < 100; ++i) {
                log({std::string(length, '\x01')});
            }
            text += terminal.read();
        }
        EXPECT_TRUE(waitUntil([&] {
            log({"the end"});
            return (text += terminal.read()).find(" the end\n") != std::string::npos;
        }));
        const std::vector<std::string> lines = linesOf(text);
        EXPECT_THAT(lines, testing::Contains(testing::StartsWith("WARN   console  main       ")));
        EXPECT_THAT(lines, testing::Each(testing::Not(testing::ContainsRegex(".WARN"))));
    }

    // At most one line is torn: the one that had no room any more. It has a line of its own.
    static void expectLinesToBeWhole(const std::string& text) {
        std::vector<std::string> torn;
        for (const std::string& line : linesOf(text)) {
            if (!std::regex_match(line,
                                  std::regex("INFO   net      main       number [0-9]+|WARN   console  main   .*"))) {
                torn.push_back(line);
            }
        }
        EXPECT_THAT(torn, testing::SizeIs(testing::Le(1U)));
    }

    // From now on no descriptor can be opened once more.
    static void hideDescriptors() { EXPECT_EQ(mount("sorrel-test", "/proc/self/fd", "tmpfs", 0, nullptr), 0); }

    static bool blocksBrokenPipes() { return ((blockedSignals(gettid()) >> (SIGPIPE - 1)) & 1U) != 0; }

    static bool isBrokenPipePending() {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 1;
    }

    // Writes into a stream whose reader is gone, in a child with the usual disposition of SIGPIPE.
    template <class AnyEnds>
    void expectToOutliveTheReader() {
        AnyEnds ends;
        const Redirected redirected(STDERR_FILENO, ends.input());
        ends.closeOutput();
        EXPECT_TRUE(passesInChild([&] {
            signal(SIGPIPE, SIG_DFL);
            loadTarget();
            sayNumbers(1, 100);
            return !blocksBrokenPipes() && !isBrokenPipePending() && signal(SIGPIPE, SIG_DFL) == SIG_DFL;
        }));
    }

    static void redirectTo(const std::string& path) {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        dup2(file, STDERR_FILENO);
        close(file);
    }

    // Writes into what becomes a pipe without a reader from one message to the next.
    void expectToOutliveTheEndOf(const std::string& path) {
        Pipe pipe;
        pipe.closeOutput();
        EXPECT_TRUE(passesInChild([&] {
            signal(SIGPIPE, SIG_DFL);
            redirectTo(path);
            loadTarget();
            log({"a"});
            dup2(pipe.input(), STDERR_FILENO);
            log({"b"});
            return true;
        }));
    }
};

#endif // SORREL_TESTS_CONSOLE_STREAM_FIXTURE_HPP
