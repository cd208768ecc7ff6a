// The console target, when its reader is slow, has stopped or is gone.
#include "console_stream_fixture.hpp"
#include "watchdog.hpp"

#include <sys/ioctl.h>
#include <sys/resource.h>

using testing::HasSubstr;

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
    expectLossOfLongLines(terminal);
}

TEST_F(ConsoleStream, AFullPipeThatCannotBeOpenedOnceMoreToo) {
    const Watchdog watchdog;
    const Pipe pipe;
    const Redirected redirected(STDERR_FILENO, pipe.input());
    loadTarget();
    hideDescriptors();
    expectLossAndRecovery(pipe);
}

TEST_F(ConsoleStream, ATerminalThatCannotBeOpenedOnceMoreToo) {
    const Watchdog watchdog;
    const Terminal terminal;
    const Redirected redirected(STDERR_FILENO, terminal.input());
    loadTarget();
    hideDescriptors();
    expectLossOfLongLines(terminal);
    terminal.processOutput();
    expectLossOfLongLines(terminal);
}

TEST_F(ConsoleStream, TheTerminalOfTheSessionCanAlwaysBeOpened) {
    const Terminal terminal;
    const Redirected redirected(STDERR_FILENO, terminal.input());
    files().write("tty", "");
    ASSERT_EQ(symlink(files().file("tty").c_str(), "/dev/tty"), 0); // in place of the device
    EXPECT_TRUE(passesInChild([&] {
        loadTarget();
        hideDescriptors();
        log({"a"});
        setsid();
        ioctl(terminal.input(), TIOCSCTTY, 0);
        log({"b"});
        return true;
    }));
    EXPECT_EQ(textsIn("tty"), (std::vector<std::string>{"b"}));
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
        log({"hello"});
        return blocksBrokenPipes() && isBrokenPipePending();
    }));
}

TEST_F(ConsoleStream, TheModeOfTheProcessesDescriptorStaysAsItIs) {
    const Pipe pipe;
    const Redirected redirected(STDERR_FILENO, pipe.input());
    loadTarget();
    const std::map<int, std::string> before = openDescriptors();
    log({"hello"});
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
        log({"a"});
        log({"b"});
    }
    const Redirected redirected(STDERR_FILENO, pipe.input());
    log({"c"});
    dup2(file, STDERR_FILENO);
    log({"d"});
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
    log({"a"});
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
    log({"a"});
    log({"b"});
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
    log({"c"});
    EXPECT_EQ(textOf("out"), "INFO   net      main       a\n"
                             "INFO   net \n"
                             "WARN   console  main       1 message lost: File too large\n"
                             "INFO   net      main       c\n");
}
