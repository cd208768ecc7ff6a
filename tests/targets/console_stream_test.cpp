// The console target, when its reader is slow, has stopped or is gone.
#include "child_process.hpp"
#include "line_target_fixture.hpp"
#include "proc_self.hpp"
#include "standard_streams.hpp"
#include "watchdog.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <regex>
#include <sys/resource.h>

using testing::HasSubstr;
using testing::Le;
using testing::SizeIs;

namespace {

class ConsoleStream : public LineTargetFixture {
protected:
    // Loads a target that writes to standard error; failures of the test go to standard output.
    void loadTarget() { load(pathOf("console") + ",stream=stderr,time=none,colour=never"); }

    void sayNumbers(int first, int last) {
        for (int i = first; i <= last; ++i) {
            say({"number " + std::to_string(i)});
        }
    }

    // More than any stream takes while nobody reads, then again something that is read.
    void expectLossAndRecovery(const Ends& ends) {
        constexpr int kMany = 20000;
        sayNumbers(1, kMany);
        const std::string first = ends.read();
        EXPECT_THAT(first, HasSubstr("number 1\n"));
        sayNumbers(kMany + 1, kMany + 1);
        std::string second;
        waitUntil([&] { return (second += ends.read()).find("number 20001\n") != std::string::npos; });
        EXPECT_THAT(second, HasSubstr("WARN   console  main       "));
        EXPECT_THAT(second, HasSubstr(" messages lost: Resource temporarily unavailable\n"));
        expectLinesToBeWhole(first + second);
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
        EXPECT_THAT(torn, SizeIs(Le(1U)));
    }

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
            say("a");
            dup2(pipe.input(), STDERR_FILENO);
            say("b");
            return true;
        }));
    }
};

} // namespace

TEST_F(ConsoleStream, AFullPipeLosesMessagesAndHoldsNobodyUp) {
    const Watchdog watchdog;
    const Pipe pipe;
    const Redirected redirected(STDERR_FILENO, pipe.input());
    loadTarget();
    expectLossAndRecovery(pipe);
}

TEST_F(ConsoleStream, AFullNonBlockingPipeToo) {
    const Watchdog watchdog;
    const Pipe pipe;
    ASSERT_EQ(fcntl(pipe.input(), F_SETFL, O_NONBLOCK), 0);
    const Redirected redirected(STDERR_FILENO, pipe.input());
    loadTarget();
    expectLossAndRecovery(pipe);
}

TEST_F(ConsoleStream, AFullConnectionToo) {
    const Watchdog watchdog;
    const Connection connection;
    const Redirected redirected(STDERR_FILENO, connection.input());
    loadTarget();
    expectLossAndRecovery(connection);
}

TEST_F(ConsoleStream, ATerminalThatNobodyReadsToo) {
    const Watchdog watchdog;
    const Terminal terminal;
    const Redirected redirected(STDERR_FILENO, terminal.input());
    loadTarget();
    expectLossAndRecovery(terminal);
}

TEST_F(ConsoleStream, ATerminalWithRoomForAPartOfTheLineToo) {
    const Watchdog watchdog;
    const Terminal terminal;
    const Redirected redirected(STDERR_FILENO, terminal.input());
    loadTarget();
    for (std::size_t length = 2047; length > 1047; length -= 100) { // so that some of them end in the middle
        for (int i = 0; i < 100; ++i) {
            say({std::string(length, '\x01')});
        }
        terminal.read();
    }
    std::string text;
    EXPECT_TRUE(waitUntil([&] {
        say("the end");
        return (text += terminal.read()).find(" the end\n") != std::string::npos;
    }));
    EXPECT_THAT(text, HasSubstr("\nWARN   console  main       "));
}

TEST_F(ConsoleStream, AFullPipeThatCannotBeOpenedOnceMoreToo) {
    const Watchdog watchdog;
    const Pipe pipe;
    const Redirected redirected(STDERR_FILENO, pipe.input());
    loadTarget();
    ASSERT_EQ(mount("sorrel-test", "/proc/self/fd", "tmpfs", 0, nullptr), 0);
    expectLossAndRecovery(pipe);
}

TEST_F(ConsoleStream, AStoppedTerminalHoldsNobodyUp) {
    const Watchdog watchdog;
    const Terminal terminal;
    const Redirected redirected(STDERR_FILENO, terminal.input());
    loadTarget();
    terminal.stop();
    sayNumbers(1, 1000);
    terminal.goOn();
    sayNumbers(1001, 1001);
    std::string text;
    EXPECT_TRUE(waitUntil([&] { return (text += terminal.read()).find("number 1001\n") != std::string::npos; }));
    EXPECT_THAT(text, HasSubstr("WARN   console  main       1000 messages lost: Resource temporarily unavailable\n"));
}

TEST_F(ConsoleStream, APipeWithoutAReaderKillsNobody) {
    expectToOutliveTheReader<Pipe>();
}

TEST_F(ConsoleStream, AConnectionWithoutAReaderKillsNobody) {
    expectToOutliveTheReader<Connection>();
}

TEST_F(ConsoleStream, ABrokenPipeThatWaitedBeforeStaysWithTheProcess) {
    Pipe pipe;
    const Redirected redirected(STDERR_FILENO, pipe.input());
    pipe.closeOutput();
    EXPECT_TRUE(passesInChild([&] {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        raise(SIGPIPE);
        loadTarget();
        say("hello");
        return blocksBrokenPipes() && isBrokenPipePending();
    }));
}

TEST_F(ConsoleStream, TheModeOfTheProcessesDescriptorStaysAsItIs) {
    const Pipe pipe;
    const Redirected redirected(STDERR_FILENO, pipe.input());
    loadTarget();
    const std::map<int, std::string> before = openDescriptors();
    say("hello");
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ConsoleStream, AStreamThatIsClosedKillsNobody) {
    const Pipe pipe;
    const Redirected redirected(STDERR_FILENO, pipe.input());
    close(STDERR_FILENO);
    loadTarget();
    sayNumbers(1, 3);
    dup2(pipe.input(), STDERR_FILENO);
    sayNumbers(4, 4);
    EXPECT_EQ(pipe.read(), "WARN   console  main       3 messages lost: Bad file descriptor\n"
                           "INFO   net      main       number 4\n");
}

TEST_F(ConsoleStream, FollowsTheStreamWhereTheProcessLeadsIt) {
    const Pipe pipe;
    const int file = open(files().file("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    {
        const Redirected redirected(STDERR_FILENO, file);
        loadTarget();
        say("a");
        say("b");
    }
    const Redirected redirected(STDERR_FILENO, pipe.input());
    say("c");
    dup2(file, STDERR_FILENO);
    say("d");
    close(file);
    EXPECT_EQ(pipe.read(), "INFO   net      main       c\n");
    EXPECT_EQ(textsIn("out"), (std::vector<std::string>{"a", "b", "d"}));
}

TEST_F(ConsoleStream, AFileThatBecameABrokenPipeKillsNobody) {
    expectToOutliveTheEndOf(files().file("out"));
    EXPECT_EQ(textsIn("out"), (std::vector<std::string>{"a"}));
}

TEST_F(ConsoleStream, ADeviceThatBecameABrokenPipeKillsNobody) {
    expectToOutliveTheEndOf("/dev/null");
}

TEST_F(ConsoleStream, AFileThatBecameAPipeHoldsNobodyUpWhenThatIsFull) {
    const Watchdog watchdog;
    const Pipe pipe;
    const Redirected redirected(STDERR_FILENO, pipe.input());
    redirectTo(files().file("out"));
    loadTarget();
    say("a");
    dup2(pipe.input(), STDERR_FILENO);
    expectLossAndRecovery(pipe);
}

TEST_F(ConsoleStream, ALineThatAFullFileCutOffStaysAlone) {
    const int file = open(files().file("out").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const Redirected redirected(STDERR_FILENO, file);
    close(file);
    loadTarget();
    signal(SIGXFSZ, SIG_IGN);
    const rlimit usual = {RLIM_INFINITY, RLIM_INFINITY};
    const rlimit little = {40, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
    say("a");
    say("b");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
    say("c");
    EXPECT_EQ(textOf("out"), "INFO   net      main       a\n"
                             "INFO   net \n"
                             "WARN   console  main       1 message lost: File too large\n"
                             "INFO   net      main       c\n");
}
