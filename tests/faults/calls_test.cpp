// Each function of libc that can fail, in each documented way, at each of its calls: the library reports it in the
// words that belong to it, goes on, and gives everything back.
#include "expected_messages.hpp"
#include "fault_run.hpp"
#include "temp_dir.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace messages;

enum class Silence { kForbidden, kAllowed };

// A function, the errors that it may have, and the messages that come of it: each of them at some call, and no others.
struct Row {
    const char* function;
    std::vector<int> errors;
    Strings messages;
    Silence silence = Silence::kForbidden; // of calls whose failure is not to be reported
    const char* exception = "none";
    const char* unavoidable = ""; // a problem
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.function;
}

// An object cannot be given back to a factory that is not found.
constexpr char kTargetIsLeft[] = "memory is left: blocks 1";

const std::vector<Row> kRows = {
    {"epoll_create", {EINVAL, EMFILE, ENFILE, ENOMEM}, {kNoWorker, kNoPipe, kNotTold}},
    {"inotify_init", {EMFILE, ENFILE, ENOMEM}, {kNoWorker, kNoPipe, kNotTold}},
    {"pipe", {EMFILE, ENFILE}, {kNoWorker, kNoPipe, kNotTold}},
    {"inotify_add_watch",
     {EACCES, EBADF, EINVAL, ENAMETOOLONG, ENOENT, ENOMEM, ENOSPC},
     {kNoWorker, kNoPipe, kNotTold, kNoMove}},
    {"epoll_ctl", {EBADF, EINVAL, ENOMEM, ENOSPC, EPERM}, {kNoWorker}},
    {"pthread_create", {EAGAIN, EPERM}, {kNoThread}},
    {"epoll_wait", {EBADF, EFAULT, EINVAL}, {kNoWait}},
    {"epoll_wait", {EINTR, EAGAIN}, {}, Silence::kAllowed},
    {"read", {EAGAIN, EBADF, EFAULT, EINVAL, EIO}, {kNoEvent, kNoNotification}},
    {"read", {EINTR}, {}, Silence::kAllowed},
    {"write", {EAGAIN, EBADF, EINTR, EIO, ENOSPC}, {kNotWritten, kNotTold, kForcedEnd}},
    {"inotify_rm_watch", {EBADF, EINVAL}, {kNotRemoved}, Silence::kAllowed},
    {"open", {EACCES, EINTR, EIO, ELOOP, EMFILE, ENFILE, ENOENT, ENOMEM}, {kNotOpened, kGivenUp}},
    {"fdopen", {EINVAL, ENOMEM}, {kNotOpened, kGivenUp}},
    {"fgets", {EAGAIN, EIO, EISDIR}, {kNotOpened, kGivenUp}, Silence::kAllowed},
    {"fstat", {EIO, ENOMEM, EOVERFLOW}, {kNotOpened, kGivenUp}, Silence::kAllowed},
    {"readlink", {EACCES, EIO, ENOENT, ENOMEM}, {}, Silence::kAllowed},
    {"fcntl", {EBADF, EINVAL}, {}, Silence::kAllowed},
    {"access", {EACCES, EIO, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM}, {}, Silence::kAllowed},
    {"close", {EINTR, EIO}, {}, Silence::kAllowed},
    {"fclose", {EINTR, EIO}, {}, Silence::kAllowed},
    {"fopen", {EACCES, EMFILE, ENOENT, ENOMEM}, {}, Silence::kAllowed},
    {"vsnprintf", {ENOMEM, EOVERFLOW}, {}, Silence::kAllowed},
    {"dlopen", {EACCES, ENOENT, ENOMEM}, {kNoLibrary, kNotLoaded}},
    {"dlsym", {0}, {kNoSymbol, kNoFactory}, Silence::kAllowed, "none", kTargetIsLeft},
    {"dlclose", {EBUSY}, {kNotClosed}},
    {"pthread_sigmask", {EINVAL}, {}, Silence::kAllowed},
    {"pthread_mutexattr_init", {ENOMEM}, {}, Silence::kAllowed},
    {"pthread_mutexattr_settype", {EINVAL}, {}, Silence::kAllowed},
    {"pthread_mutex_init", {EAGAIN, ENOMEM}, {}, Silence::kAllowed},
    {"pthread_mutex_lock", {EAGAIN, EINVAL}, {}, Silence::kAllowed, "system_error {errno}"},
    {"pthread_mutex_trylock", {EAGAIN}, {}, Silence::kAllowed, "system_error {errno}"},
};

constexpr int kMostCalls = 500; // of one function; there is no end in sight behind that

class FailingCalls : public testing::TestWithParam<Row> {
protected:
    FailingCalls() { setenv("TMPDIR", m_directory.path().c_str(), 1); }

    // Until a run in which nothing has failed, since there are no more calls. How many failed.
    int failEachCall(const std::string& scenario, int error) {
        for (int number = 1; number <= kMostCalls; ++number) {
            const FaultRun run = runScenario(scenario, GetParam().function, error, number);
            SCOPED_TRACE(scenario + ", call " + std::to_string(number) + ", errno " + std::to_string(error) + ":\n" +
                         run.all);
            expectEnd(run);
            if (!run.hasFailed) {
                EXPECT_TRUE(run.logged.empty() && run.thrown.empty()) << "nothing has failed";
                return number - 1;
            }
            expectWords(run, error);
        }
        ADD_FAILURE() << "more and more calls";
        return kMostCalls;
    }

    const std::set<std::string>& seen() const { return m_seen; }

private:
    // A process that is to end by force, which it has announced, was that of the scenario, or its child.
    static void expectEnd(const FaultRun& run) {
        if (isForced(run)) {
            EXPECT_TRUE(run.end == -SIGABRT || run.problems == Strings{"the child did not end well"});
            return;
        }
        EXPECT_TRUE(run.passed || run.problems == Strings{GetParam().unavoidable});
        EXPECT_EQ(run.end, 0);
    }

    static bool isForced(const FaultRun& run) {
        for (const std::string& message : run.logged) {
            if (message.find("forcing exit") != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    void expectWords(const FaultRun& run, int error) {
        for (const std::string& message : run.logged) {
            const std::string words = general(message, error);
            EXPECT_TRUE(contains(GetParam().messages, words)) << "unexpected: " << words;
            m_seen.insert(words);
        }
        for (const std::string& exception : run.thrown) {
            EXPECT_EQ(exception.rfind(replaced(GetParam().exception, "{errno}", std::to_string(error)), 0), 0U)
                << "unexpected: " << exception;
        }
        if (GetParam().silence == Silence::kForbidden) {
            EXPECT_FALSE(run.logged.empty()) << "nothing was reported";
        }
    }

    TempDir m_directory; // what a scenario leaves when it is ended by force
    std::set<std::string> m_seen;
};

std::string nameOf(const testing::TestParamInfo<Row>& info) {
    std::string name = info.param.function;
    for (const int error : info.param.errors) {
        name += std::string("_") + (error == 0 ? "null" : strerrorname_np(error));
    }
    return name;
}

} // namespace

TEST_P(FailingCalls, AreReportedAndLeaveNothingBehind) {
    for (const int error : GetParam().errors) {
        EXPECT_GT(failEachCall("container", error) + failEachCall("logger", error), 0)
            << "the function is never called";
    }
    for (const std::string& message : GetParam().messages) {
        EXPECT_TRUE(seen().count(message) > 0) << "never reported: " << message;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, FailingCalls, testing::ValuesIn(kRows), nameOf);
