// What the base class of targets does for them: it chooses messages, and counts what becomes of them.
#include "temp_dir.hpp"
#include "verbose_diagnostics.hpp"

#include <sorrel/target_library.hpp>

#include <gmock/gmock.h>

#include <functional>
#include <pthread.h>
#include <sys/wait.h>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Keeps what it gets, unless `failure` says that this is impossible.
class BookTarget final : public sorrel::MessageTarget {
public:
    explicit BookTarget(sorrel::TargetParameters& parameters) : MessageTarget(parameters) {}

    std::vector<std::string> pages; // "LEVEL COMPONENT TEXT"
    std::function<int()> failure = [] { return 0; };
    using MessageTarget::countLost;

private:
    int deliver(const sorrel::Message& message) override {
        const int error = failure();
        if (error == 0) {
            pages.push_back(std::to_string(message.level.numeric) + " " + message.componentName + " " + message.text);
        }
        return error;
    }
};

class MessageTarget : public DiagnosticFixture {
protected:
    BookTarget& open(const std::map<std::string, std::string>& params) {
        sorrel::TargetParameters parameters("book", params);
        m_book = std::make_unique<BookTarget>(parameters);
        parameters.refuseUnknown();
        return *m_book;
    }

    void say(const std::string& text, sorrel_level* level = SR_INFO, const std::string& component = "net") {
        m_book->log(1, 0, 0, 0, level, "main", component, "", text);
    }

    void close() { m_book.reset(); }

    std::unique_ptr<BookTarget> m_book;
};

} // namespace

TEST_F(MessageTarget, WithoutParametersEverythingIsDelivered) {
    BookTarget& book = open({});
    say("a", SR_EMERG);
    say("b", SR_ENTERLEAVE, "");
    EXPECT_THAT(book.pages, ElementsAre("0 net a", "8  b"));
}

TEST_F(MessageTarget, LevelsAreChosen) {
    BookTarget& book = open({{"levels", "err;warning"}});
    say("a", SR_ERR);
    say("b", SR_INFO);
    say("c", SR_WARNING);
    EXPECT_THAT(book.pages, ElementsAre("3 net a", "4 net c"));
}

TEST_F(MessageTarget, ComponentsAreChosen) {
    BookTarget& book = open({{"components", "net;ui*"}});
    for (const char* component : {"net", "ui", "ui.menu", "network", "disk", "net", "disk"}) {
        say("a", SR_INFO, component);
    }
    EXPECT_THAT(book.pages, ElementsAre("6 net a", "6 ui a", "6 ui.menu a", "6 net a"));
}

TEST_F(MessageTarget, WhatIsNoLevelRefusesTheTarget) {
    try {
        open({{"levels", "err;eror"}});
        FAIL() << "accepted";
    } catch (const sorrel::TargetParameters::Error& error) {
        EXPECT_STREQ(error.what(), "parameter \"levels\": \"err;eror\" is refused: \"eror\" is no level");
    }
}

TEST_F(MessageTarget, WhatIsNoComponentRefusesTheTarget) {
    for (const std::string words : {"", ";", "net;"}) {
        try {
            open({{"components", words}});
            ADD_FAILURE() << "accepted";
        } catch (const sorrel::TargetParameters::Error& error) {
            EXPECT_EQ(error.what(), "parameter \"components\": \"" + words + "\" is refused: \"\" is no name");
        }
    }
}

TEST_F(MessageTarget, ALossIsAnnouncedOnceItIsOver) {
    BookTarget& book = open({{"levels", "info"}});
    book.failure = [] { return ENOSPC; };
    say("a");
    say("b");
    book.failure = [] { return 0; };
    say("c");
    say("d");
    EXPECT_THAT(book.pages, ElementsAre("4 book 2 messages lost: No space left on device", "6 net c", "6 net d"));
}

TEST_F(MessageTarget, WhileTheAnnouncementIsLostMessagesAre) {
    BookTarget& book = open({});
    int calls = 0;
    book.failure = [&] { return ++calls <= 3 ? EPIPE : 0; };
    say("a");
    say("b");
    say("c");
    say("d");
    EXPECT_THAT(book.pages, ElementsAre("4 book 3 messages lost: Broken pipe", "6 net d"));
}

TEST_F(MessageTarget, AMessageThatIsLostBehindTheAnnouncementIsCountedAnew) {
    BookTarget& book = open({});
    int calls = 0;
    book.failure = [&] { return ++calls == 2 ? 0 : calls <= 3 ? EIO : 0; };
    say("a"); // 1 fails
    say("b"); // 2 announces, 3 fails
    say("c");
    EXPECT_THAT(book.pages, ElementsAre("4 book 1 message lost: Input/output error",
                                        "4 book 1 message lost: Input/output error", "6 net c"));
}

TEST_F(MessageTarget, TheFirstReasonOfALossIsTheOneThatIsTold) {
    BookTarget& book = open({});
    std::vector<int> errors = {EAGAIN, EPIPE, 0};
    std::size_t calls = 0;
    book.failure = [&] { return errors[std::min(calls++, errors.size() - 1)]; };
    say("a");
    say("b");
    say("c");
    EXPECT_THAT(book.pages, ElementsAre("4 book 2 messages lost: Resource temporarily unavailable", "6 net c"));
}

TEST_F(MessageTarget, AnExceptionIsALoss) {
    BookTarget& book = open({});
    book.failure = []() -> int { throw std::bad_alloc(); };
    say("a");
    book.failure = [] { return 0; };
    say("b");
    EXPECT_THAT(book.pages, ElementsAre("4 book 1 message lost: Cannot allocate memory", "6 net b"));
}

TEST_F(MessageTarget, SoIsOneThatIsNoException) {
    BookTarget& book = open({});
    book.failure = []() -> int { throw 42; };
    say("a");
    book.failure = [] { return 0; };
    say("b");
    EXPECT_THAT(book.pages, ElementsAre("4 book 1 message lost: Operation canceled", "6 net b"));
}

TEST_F(MessageTarget, AThreadThatIsCancelledEnds) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "for the sanitizer of undefined behaviour, the exception that ends a thread is a null reference";
#endif
    open({}).failure = []() -> int { pthread_exit(nullptr); };
    std::thread([this] {
        say("a");
        ADD_FAILURE() << "the thread goes on";
    }).join();
}

TEST_F(MessageTarget, AtTheEndTheCountersAreTold) {
    BookTarget& book = open({});
    say("a");
    say("b");
    for (const int error : {EAGAIN, ENOBUFS, EIO}) {
        book.failure = [error] { return error; };
        say("c");
    }
    close();
    EXPECT_THAT(diagnostics().texts(), ElementsAre("book-target: 3 messages lost: Resource temporarily unavailable",
                                                   "book-target: 2 messages written, 2 dropped, 1 failed"));
    EXPECT_EQ(diagnostics().records().front().priority, 4);
    EXPECT_EQ(diagnostics().records().back().priority, 7);
}

TEST_F(MessageTarget, WhatWasKeptAndIsLostLaterIsNotCountedAsWritten) {
    BookTarget& book = open({});
    say("a");
    say("b");
    say("c");
    book.countLost(2, EIO);
    close();
    EXPECT_THAT(diagnostics().texts(), ElementsAre("book-target: 2 messages lost: Input/output error",
                                                   "book-target: 1 messages written, 0 dropped, 2 failed"));
}

TEST_F(MessageTarget, NoLessThanNothingIsWrittenWhereAnAnnouncementIsLostToo) {
    BookTarget& book = open({});
    book.countLost(1, EIO);
    close();
    EXPECT_THAT(diagnostics().texts(), ElementsAre("book-target: 1 message lost: Input/output error",
                                                   "book-target: 0 messages written, 0 dropped, 1 failed"));
}

TEST_F(MessageTarget, WithoutALossNoneIsTold) {
    open({});
    say("a");
    close();
    EXPECT_THAT(diagnostics().texts(), ElementsAre("book-target: 1 messages written, 0 dropped, 0 failed"));
}

TEST_F(MessageTarget, WithoutAMessageNothingIsTold) {
    open({});
    close();
    EXPECT_THAT(diagnostics().texts(), ElementsAre());
}

TEST_F(MessageTarget, ThePriorityIsThatOfSyslog) {
    const std::string none;
    for (const int numeric : {0, 3, 6, 7, 8, 32, -1}) {
        sorrel_level level = {numeric, 1};
        const sorrel::Message message = {1, 0, 0, 0, level, none, none, none, none};
        EXPECT_EQ(message.priority(), sorrel_level_to_prio(&level)) << numeric;
    }
}

TEST_F(MessageTarget, TheTimeOfAMessageIsThatSince1970) {
    const std::string none;
    const sorrel::Message message = {1, 0, 1709211845, 42, *SR_INFO, none, none, none, none};
    EXPECT_EQ(message.microsecondsSinceEpoch(), 1709211845000042);
}

TEST_F(MessageTarget, AForkedChildCountsFromTheBeginning) {
    BookTarget& book = open({});
    book.failure = [] { return EIO; };
    say("a");
    const pid_t child = fork();
    if (child == 0) {
        book.failure = [] { return 0; };
        m_book->log(getpid(), 0, 0, 0, SR_INFO, "main", "net", "", "b");
        const bool passed = book.pages == std::vector<std::string>{"6 net b"};
        close();
        _exit(passed ? 42 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 42);
    close();
    EXPECT_THAT(diagnostics().texts(), ElementsAre("book-target: 1 messages written, 0 dropped, 0 failed",
                                                   "book-target: 1 message lost: Input/output error",
                                                   "book-target: 0 messages written, 0 dropped, 1 failed"));
}

TEST_F(MessageTarget, AForkedChildThatLogsNothingHasCountedNothing) {
    BookTarget& book = open({});
    book.failure = [] { return EIO; };
    say("a");
    const pid_t child = fork();
    if (child == 0) {
        close();
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_THAT(diagnostics().texts(), ElementsAre());
}
