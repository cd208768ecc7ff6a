// The diagnostic channel: what reaches syslog, and when.
#include "tangle_fixture.hpp"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <thread>

using sorrel::sorrel_tangleLog;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using TangleSwitch = TangleFixture;

class TangleLog : public TangleFixture {
protected:
    TangleLog() { turnDiagnosticsOn(); }
};

// What a program writes that is started with this value of the variable.
void logUnder(const char* value) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        setenv("SORREL_VERBOSE_STARTUP", value, 1);
        sorrel_tangleLog(LOG_ERR, "the value is \"%s\"", value);
        _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
}

} // namespace

TEST_F(TangleSwitch, WithoutTheVariableNothingIsWritten) {
    sorrel_tangleLog(LOG_ERR, "silent");
    EXPECT_THAT(log().texts(), IsEmpty());
}

TEST_F(TangleSwitch, WithTheValueOneTheTextIsWritten) {
    setenv("SORREL_VERBOSE_STARTUP", "1", 1);
    sorrel_tangleLog(LOG_ERR, "heard");
    EXPECT_THAT(log().texts(), ElementsAre("heard"));
}

TEST_F(TangleSwitch, WithAnyOtherValueNothingIsWritten) {
    for (const char* value : {"10", "true", "", "0", "2", "01", " 1", "1 ", "1"}) {
        logUnder(value);
    }
    EXPECT_THAT(log().texts(), ElementsAre("the value is \"1\""));
}

TEST_F(TangleSwitch, SettingTheVariableLaterHasNoEffect) {
    sorrel_tangleLog(LOG_ERR, "silent");
    turnDiagnosticsOn();
    sorrel_tangleLog(LOG_ERR, "still silent");
    EXPECT_THAT(log().texts(), IsEmpty());
}

TEST_F(TangleSwitch, TakingTheVariableAwayLaterHasNoEffect) {
    turnDiagnosticsOn();
    sorrel_tangleLog(LOG_ERR, "heard");
    unsetenv("SORREL_VERBOSE_STARTUP");
    sorrel_tangleLog(LOG_ERR, "heard again");
    EXPECT_THAT(log().texts(), ElementsAre("heard", "heard again"));
}

TEST_F(TangleLog, EveryPriorityIsPassedOn) {
    for (int priority = LOG_EMERG; priority <= LOG_DEBUG; ++priority) {
        sorrel_tangleLog(priority, "priority %d", priority);
    }
    const std::vector<SyslogRecord> records = log().records();
    ASSERT_EQ(records.size(), 8U);
    for (int priority = LOG_EMERG; priority <= LOG_DEBUG; ++priority) {
        const SyslogRecord& record = records[static_cast<std::size_t>(priority)];
        EXPECT_EQ(record.text, "priority " + std::to_string(priority));
        EXPECT_EQ(record.priority, priority);
        EXPECT_EQ(record.facility, LOG_USER);
    }
}

TEST_F(TangleLog, ValuesAreFormatted) {
    sorrel_tangleLog(LOG_INFO, "%s has %d of %.1f%%", "it", -3, 99.5);
    EXPECT_THAT(log().texts(), ElementsAre("it has -3 of 99.5%"));
}

TEST_F(TangleLog, ATextIsNoFormat) {
    sorrel_tangleLog(LOG_INFO, "%s", "100%s %n %d%%");
    EXPECT_THAT(log().texts(), ElementsAre("100%s %n %d%%"));
}

TEST_F(TangleLog, ATextOf1023CharactersArrivesWhole) {
    const std::string longest(1023, 'x');
    sorrel_tangleLog(LOG_INFO, "%s", longest.c_str());
    EXPECT_THAT(log().texts(), ElementsAre(longest));
}

TEST_F(TangleLog, ALongerTextIsCutTo1023Characters) {
    const std::string kept(1023, 'x');
    for (const std::size_t tooMany : {1U, 2U, 5000U}) {
        sorrel_tangleLog(LOG_INFO, "%s", (kept + std::string(tooMany, 'y')).c_str());
    }
    EXPECT_THAT(log().texts(), ElementsAre(kept, kept, kept));
}

TEST_F(TangleLog, TheMaskOfTheSystemLogApplies) {
    setlogmask(LOG_UPTO(LOG_ERR));
    sorrel_tangleLog(LOG_WARNING, "masked");
    sorrel_tangleLog(LOG_ERR, "let through");
    EXPECT_THAT(log().texts(), ElementsAre("let through"));
}

TEST_F(TangleLog, ErrnoStaysAsItWas) {
    openlog(nullptr, LOG_NDELAY, LOG_USER);
    restartLog();
    errno = EDOM;
    syslog(LOG_INFO, "changes errno");
    ASSERT_NE(errno, EDOM);
    restartLog();
    errno = EDOM;
    sorrel_tangleLog(LOG_INFO, "does not");
    EXPECT_EQ(errno, EDOM);
    EXPECT_THAT(log().texts(), ElementsAre("does not"));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat" // %m is not of ISO C++
TEST_F(TangleLog, ErrnoCanBeFormatted) {
    errno = ENOENT;
    sorrel_tangleLog(LOG_INFO, "%m");
    EXPECT_THAT(log().texts(), ElementsAre("No such file or directory"));
}
#pragma GCC diagnostic pop

TEST_F(TangleSwitch, ErrnoStaysAsItWasWithoutTheVariable) {
    errno = EDOM;
    sorrel_tangleLog(LOG_INFO, "silent");
    EXPECT_EQ(errno, EDOM);
}

TEST_F(TangleLog, ThreadsMayMakeTheFirstCallTogether) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] { sorrel_tangleLog(LOG_INFO, "thread %d", thread); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(log().texts(), testing::UnorderedElementsAre("thread 0", "thread 1", "thread 2", "thread 3"));
}
