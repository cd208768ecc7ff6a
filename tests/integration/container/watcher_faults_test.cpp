// The worker's loop when system calls answer what a test cannot bring about. Fakes stand in for these calls; the loop
// runs on the thread of the test.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <functional>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What a call does instead of working: its result, with an errno.
struct Answer {
    int result;
    int error;
};

// The next answers of each call; without one it works.
std::deque<Answer> waitAnswers;
std::deque<Answer> readAnswers;
std::deque<Answer> addWatchAnswers;

int waits = 0;
std::function<void()> afterWait; // what others do while the worker is on its way back from the call
std::function<void()> afterRead;

// Takes the next answer, if there is one.
bool take(std::deque<Answer>& answers, int& result) {
    if (answers.empty()) {
        return false;
    }
    result = answers.front().result;
    errno = answers.front().error;
    answers.pop_front();
    return true;
}

constexpr char kExit[] = "logtarget-container: got exit message - ending thread.";
constexpr char kChanged[] = "logtarget-container: sorrel configfile changed, triggering re-read.";

class WatcherFaults : public ContainerFixture {
protected:
    WatcherFaults() : m_container(directory(), false, nullptr) {
        configure("");
        EXPECT_EQ(m_container->init_fds(), 0);
        EXPECT_EQ(m_container->init_epoll_evts(), 0);
    }

    OpenContainer& container() { return m_container; }

    // The messages of the loop up to its end, which it is told at the beginning.
    std::vector<std::string> runToItsEnd() {
        m_container->threadNotifyTerminate();
        EXPECT_EQ(m_container->threadEventLoop(), 0);
        return diagnostics().texts();
    }

    // What a program has that closed all descriptors: a pipe on the numbers of the container's. Something is in it.
    void replacePipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const int terminate = 0;
        EXPECT_EQ(write(ends[1], &terminate, sizeof terminate), 4);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(dup3(ends[i], m_container.pipeFds[i], O_CLOEXEC), m_container.pipeFds[i]);
            EXPECT_EQ(close(ends[i]), 0);
        }
    }

    void expectForeignPipeUntouched() { EXPECT_EQ(bytesWaiting(m_container.pipeFds[0]), 4); }

    // Moves the watch to the file of "player", which the kernel refuses.
    void expectWatchRefused(const Answer& answer, const std::string& errorText) {
        configureApp("player", "");
        container().appname = "player";
        addWatchAnswers = {answer};
        container()->onAppnameChanged();
        EXPECT_EQ(diagnostics().texts().back(), "logtarget-container: Unable to watch application-specific "
                                                "config-file \"player\" for changes - errno=" +
                                                    errorText);
        EXPECT_EQ(diagnostics().records().back().priority, 3);
    }

private:
    OpenContainer m_container;
};

} // namespace

extern "C" int fakeEpollWait(int epollFd, epoll_event* events, int size, int timeout) __asm__("epoll_wait");
extern "C" int fakeEpollWait(int epollFd, epoll_event* events, int size, int timeout) {
    ++waits;
    int result = 0;
    if (!take(waitAnswers, result)) {
        result = epoll_pwait(epollFd, events, size, timeout, nullptr);
    }
    const int error = errno;
    if (afterWait) {
        afterWait();
    }
    errno = error;
    return result;
}

extern "C" ssize_t fakeRead(int fd, void* buffer, size_t size) __asm__("read");
extern "C" ssize_t fakeRead(int fd, void* buffer, size_t size) {
    int result = 0;
    if (take(readAnswers, result)) {
        return result;
    }
    const ssize_t got = syscall(SYS_read, fd, buffer, size);
    if (afterRead) {
        std::exchange(afterRead, nullptr)();
    }
    return got;
}

extern "C" ssize_t fakeReadChk(int fd, void* buffer, size_t size, size_t room) __asm__("__read_chk");
extern "C" ssize_t fakeReadChk(int fd, void* buffer, size_t size, size_t /*room*/) {
    return fakeRead(fd, buffer, size);
}

extern "C" int fakeAddWatch(int fd, const char* path, std::uint32_t mask) __asm__("inotify_add_watch");
extern "C" int fakeAddWatch(int fd, const char* path, std::uint32_t mask) {
    int result = 0;
    return take(addWatchAnswers, result) ? result : static_cast<int>(syscall(SYS_inotify_add_watch, fd, path, mask));
}

TEST_F(WatcherFaults, AnInterruptedWaitIsRepeatedInSilence) {
    waitAnswers = {{-1, EINTR}, {-1, EINTR}};
    EXPECT_THAT(runToItsEnd(), ElementsAre(kExit));
    EXPECT_THAT(waitAnswers, IsEmpty());
}

TEST_F(WatcherFaults, AWaitThatIsToBeTriedAgainIsRepeatedInSilence) {
    waitAnswers = {{-1, EAGAIN}};
    EXPECT_THAT(runToItsEnd(), ElementsAre(kExit));
    EXPECT_THAT(waitAnswers, IsEmpty());
}

TEST_F(WatcherFaults, AWaitThatEndsWithoutAnEventIsReportedAndRepeated) {
    waitAnswers = {{0, 0}};
    EXPECT_THAT(runToItsEnd(), ElementsAre("logtarget-container: epoll reported timeout!?", kExit));
    EXPECT_EQ(diagnostics().records().front().priority, 3);
}

TEST_F(WatcherFaults, AnyOtherFailureOfTheWaitEndsTheLoop) {
    waitAnswers = {{-1, ENOMEM}};
    EXPECT_THAT(runToItsEnd(), ElementsAre("logtarget-container: epoll failed with errno=Cannot allocate memory - "
                                           "terminating watcher thread."));
}

TEST_F(WatcherFaults, AnInterruptedReadOfANotificationIsRepeated) {
    readAnswers = {{-1, EINTR}, {-1, EINTR}};
    EXPECT_THAT(runToItsEnd(), ElementsAre(kExit));
    EXPECT_THAT(readAnswers, IsEmpty());
}

TEST_F(WatcherFaults, AFailingReadOfANotificationEndsTheLoop) {
    readAnswers = {{-1, EIO}};
    EXPECT_THAT(runToItsEnd(),
                ElementsAre("logtarget-container: worker unable to receive notification - terminating thread."));
}

TEST_F(WatcherFaults, AnInterruptedReadOfAnEventIsRepeated) {
    files().append("sorrel.cfg", "");
    readAnswers = {{-1, EINTR}};
    EXPECT_THAT(
        runToItsEnd(),
        ElementsAre(kChanged, "logtarget-container: reading sorrel-config from file \"" + defaultFile() + "\"", kExit));
}

TEST_F(WatcherFaults, AFailingReadOfAnEventDropsItAndTakesOutNothing) {
    files().append("sorrel.cfg", "");
    readAnswers = {{-1, EAGAIN}};
    EXPECT_THAT(runToItsEnd(),
                ElementsAre("logtarget-container: unable to read inotify event - dropped event.", kExit));
    EXPECT_EQ(bytesWaiting(container().inotifyFd), 16) << "only an event with a name is thrown away";
}

TEST_F(WatcherFaults, WithoutItsDescriptorsTheLoopDoesNotEvenBegin) {
    container()->threadNotifyTerminate();
    replacePipe();
    EXPECT_EQ(container()->threadEventLoop(), 0);
    EXPECT_EQ(waits, 0);
    expectForeignPipeUntouched();
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}

TEST_F(WatcherFaults, AnInterruptedWaitIsNotRepeatedWithTheDescriptorsOfOthers) {
    waitAnswers = {{-1, EINTR}};
    afterWait = [this] { replacePipe(); };
    EXPECT_THAT(runToItsEnd(), IsEmpty());
    EXPECT_EQ(waits, 1);
    expectForeignPipeUntouched();
}

TEST_F(WatcherFaults, AFailureOfTheWaitOnTheDescriptorsOfOthersIsNotReported) {
    waitAnswers = {{-1, EBADF}};
    afterWait = [this] { replacePipe(); };
    EXPECT_THAT(runToItsEnd(), IsEmpty());
}

TEST_F(WatcherFaults, NothingIsReadFromTheDescriptorsOfOthers) {
    afterWait = [this] { replacePipe(); };
    EXPECT_THAT(runToItsEnd(), IsEmpty());
    expectForeignPipeUntouched();
}

TEST_F(WatcherFaults, NothingIsReadFromTheDescriptorsOfOthersAfterAReRead) {
    files().append("sorrel.cfg", "");
    afterRead = [this] { replacePipe(); };
    EXPECT_THAT(runToItsEnd(), ElementsAre(kChanged, "logtarget-container: reading sorrel-config from file \"" +
                                                         defaultFile() + "\""));
    expectForeignPipeUntouched();
}

TEST_F(WatcherFaults, TheWatchesOfOthersStayWhereTheyAre) {
    configureApp("player", "");
    container().appname = "player";
    replacePipe();
    container()->onAppnameChanged();
    EXPECT_EQ(inotifyWatches(container().inotifyFd).size(), 1U);
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}

TEST_F(WatcherFaults, KeepsTheNameInsteadOfThePathWhenTheFileOfTheApplicationCannotBeWatched) {
    expectWatchRefused({-1, ENOSPC}, "No space left on device");
}

TEST_F(WatcherFaults, AWatchBelowOneCountsAsRefused) {
    expectWatchRefused({0, EACCES}, "Permission denied");
}

TEST_F(WatcherFaults, AfterARefusedMoveNothingIsWatchedAndNoMoveIsTried) {
    expectWatchRefused({-1, ENOSPC}, "No space left on device");
    EXPECT_EQ(container().watchFd, -1);
    diagnostics().clear();
    container()->onAppnameChanged();
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}
