// Logging leaves errno alone, and %m shows the caller's.
#include "logger_fixture.hpp"
#include "syslog_recorder.hpp"

#include <cerrno>
#include <gmock/gmock.h>

#pragma GCC diagnostic ignored "-Wformat" // %m is an extension of the C library

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kNoEntry[] = "No such file or directory"; // ENOENT

// Whatever the library calls leaves another errno behind.
void disturbErrno(const PluginEvent&) {
    errno = EPERM;
}

class Errno : public LoggerFixture {
protected:
    Errno() { configure(target("recording")); }

    // A component that exists without a logger.
    sorrel_component m_own{"own", 0xffffffffU, {}};

private:
    ScopedHook m_atCreation{"create", disturbErrno};
    ScopedHook m_atEnd{"isSyslog", disturbErrno};
    ScopedHook m_atMessages{"log", disturbErrno};
};

} // namespace

TEST_F(Errno, IsTheCallersAfterTheFirstMessage) {
    errno = ENOENT;
    _sorrel(&m_own, SR_INFO, "hello");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
}

TEST_F(Errno, IsTheCallersAfterEveryOtherMessage) {
    CSorrel::getInstance();
    errno = ENOENT;
    _sorrel(&m_own, SR_INFO, "hello");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(journal::texts(), ElementsAre("hello"));
}

TEST_F(Errno, IsTheCallersAfterAMessageThatDoesNotPass) {
    errno = ENOENT;
    _sorrel(nullptr, SR_INFO, "hello");
    EXPECT_EQ(errno, ENOENT) << "first call";
    _sorrel(nullptr, SR_INFO, "hello");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(journal::texts(), IsEmpty());
    EXPECT_EQ(journal::ofKind("create").size(), 1U);
}

TEST_F(Errno, IsShownByThePercentMOfTheFirstMessage) {
    errno = ENOENT;
    _sorrel(&m_own, SR_INFO, "%m");
    EXPECT_THAT(journal::texts(), ElementsAre(kNoEntry));
}

TEST_F(Errno, IsShownByThePercentMOfEveryOtherMessage) {
    CSorrel::getInstance();
    errno = ENOENT;
    _sorrel(&m_own, SR_INFO, "%m");
    _sorrel(&m_own, SR_INFO, "still %m");
    EXPECT_THAT(journal::texts(), ElementsAre(kNoEntry, std::string("still ") + kNoEntry));
}

TEST_F(Errno, OfSorSyslogIsTheCallersFromTheFirstCallOn) {
    setenv("SORREL_VERBOSE_STARTUP", "1", 1);
    SyslogRecorder syslog;
    for (int call = 0; call < 2; ++call) {
        errno = ENOENT;
        sor_syslog(&m_own, SR_INFO, "%m");
        EXPECT_EQ(errno, ENOENT);
    }
    EXPECT_EQ(syslog.count(kNoEntry), 2);
    EXPECT_THAT(journal::texts(), ElementsAre(kNoEntry, kNoEntry));
}
