// The syslog target and a real rsyslogd.
#include "loaded_target.hpp"
#include "private_system.hpp"
#include "real_service.hpp"
#include "temp_dir.hpp"
#include "wait_until.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

constexpr char kLogSocket[] = "/dev/log";

constexpr char kClassicInput[] = R"(module(load="imuxsock" SysSock.RateLimit.Interval="0"
    SysSock.IgnoreTimestamp="off" SysSock.UseSysTimeStamp="off"))";
constexpr char kNewInput[] = R"(module(load="imuxsock" SysSock.RateLimit.Interval="0"
    SysSock.IgnoreTimestamp="off" SysSock.UseSysTimeStamp="off"
    SysSock.UseSpecialParser="off" SysSock.ParseHostname="on"))";

// What rsyslogd made of each message, a line each.
constexpr char kRsyslogRules[] = R"(
global(workDirectory="/run" internalmsg.severity="emerg")
template(name="seen" type="string" string="%pri-text%|%timereported:::date-rfc3339%|%hostname%|%app-name%|%procid%|%structured-data%|%msg%\n")
action(type="omfile" file="/run/seen" template="seen")
)";

// The lines that it has written.
std::vector<std::string> seen() {
    std::vector<std::string> lines;
    std::ifstream file("/run/seen");
    for (std::string line; std::getline(file, line) && !file.eof();) { // whole lines only
        lines.push_back(line);
    }
    return lines;
}

// The same, as soon as there are so many.
std::vector<std::string> seen(std::size_t count) {
    EXPECT_TRUE(waitUntil([&] { return seen().size() >= count; }));
    return seen();
}

class RealRsyslog : public testing::Test {
protected:
    void SetUp() override {
        SORREL_SKIP_WITHOUT("rsyslog");
        setenv("TZ", "UTC", 1);
        enterPrivateSystem();
        m_service = std::make_unique<RealService>(
            std::vector<std::string>{"/usr/sbin/rsyslogd", "-n", "-f", "/run/rsyslog.conf", "-i", "/run/rsyslogd.pid"},
            "/run/rsyslogd.output");
    }

    // `newForm`: whether it is told to expect RFC 5424.
    void startService(bool newForm = false) {
        std::ofstream("/run/rsyslog.conf") << (newForm ? kNewInput : kClassicInput) << kRsyslogRules;
        m_service->start(kLogSocket);
    }

    LoadedTarget& load(const std::string& parameters) {
        m_target = std::make_unique<LoadedTarget>(m_directory, targetPath("syslog"), parameters);
        return *m_target;
    }

    TempDir m_directory;
    std::unique_ptr<RealService> m_service;
    std::unique_ptr<LoadedTarget> m_target;
};

auto isAbout(const std::string& text) {
    return [text](const std::string& line) { return line.find(text) != std::string::npos; };
}

// How many messages have arrived, and how many are lost, as the target says in messages of its own.
long arrived() {
    const std::vector<std::string> lines = seen();
    return std::count_if(lines.begin(), lines.end(), isAbout("net/main: "));
}
long lossesTold() {
    const std::string start = "syslog/main: ";
    long losses = 0;
    for (const std::string& line : seen()) {
        if (isAbout(start)(line)) {
            EXPECT_THAT(line, HasSubstr("user.warning|"));
            EXPECT_THAT(line, HasSubstr(" lost: Resource temporarily unavailable"));
            losses += std::stol(line.substr(line.find(start) + start.size()));
        }
    }
    return losses;
}

} // namespace

TEST_F(RealRsyslog, UnderstandsTheClassicForm) {
    startService();
    LoadedTarget& target = load("facility=local3");
    target.container().setAppname("door-opener");
    TestMessage message;
    message.processId = 4711;
    message.function = "poll";
    message.numeric = 3;
    message.text = "two\nlines, \"\xc3\xa9\"";
    target.say(message);
    const std::vector<std::string> lines = seen(1);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0], HasSubstr("local3.err|"));
    EXPECT_THAT(lines[0], HasSubstr("-02-29T13:04:05"));
    EXPECT_THAT(lines[0], HasSubstr("|door-opener|4711|-| net/main: [poll] two\\nlines, \"\xc3\xa9\""));
}

TEST_F(RealRsyslog, UnderstandsTheNewForm) {
    startService(true);
    LoadedTarget& target = load("format=5424, facility=daemon, ident=door");
    TestMessage message;
    message.processId = 4711;
    message.component = "a\"b\\c]d";
    message.function = "poll";
    message.depth = -1;
    target.say(message);
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    EXPECT_THAT(seen(1), ElementsAre("daemon.info|2024-02-29T13:04:05.000042+00:00|" + std::string(host) +
                                     "|door|4711|[sorrel@32473 component=\"a\\\"b\\\\c\\]d\" depth=\"-1\" "
                                     "function=\"poll\" thread=\"main\"]|hello"));
}

TEST_F(RealRsyslog, NothingIsLostWhileItRuns) {
    constexpr int kMessages = 5000;
    startService();
    load("wait=10000");
    for (int i = 0; i < kMessages; ++i) {
        m_target->say(std::to_string(i));
    }
    const std::vector<std::string> lines = seen(kMessages);
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(kMessages));
    for (int i = 0; i < kMessages; ++i) {
        ASSERT_THAT(lines[static_cast<std::size_t>(i)], EndsWith(" net/main: " + std::to_string(i)));
    }
}

TEST_F(RealRsyslog, WhileItIsStoppedNoCallHangs) {
    constexpr int kMessages = 1000;
    startService();
    load("levels=all");
    m_service->stop();
    for (int i = 0; i < kMessages; ++i) {
        m_target->sayInTime("while stopped");
    }
    m_service->resume();
    const int more = m_target->sayUntilSeen([](const std::string& text) {
        const std::vector<std::string> lines = seen();
        return std::any_of(lines.begin(), lines.end(), isAbout("net/main: " + text));
    });
    ASSERT_GT(more, 0);
    EXPECT_EQ(arrived() + lossesTold(), kMessages + more);
    EXPECT_GT(lossesTold(), 0);
}

TEST_F(RealRsyslog, WhenItWasKilledMessagesAreLostUntilItIsBack) {
    startService();
    load("ident=door");
    m_target->say("before");
    EXPECT_EQ(seen(1).size(), 1U);
    m_service->kill();
    m_target->sayInTime("lost");
    m_target->sayInTime("lost");
    startService();
    m_target->say("after");
    const std::vector<std::string> lines = seen(3);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], HasSubstr(" net/main: before"));
    EXPECT_THAT(lines[1], HasSubstr(" syslog/main: 2 messages lost: Connection refused"));
    EXPECT_THAT(lines[2], HasSubstr(" net/main: after"));
}

TEST_F(RealRsyslog, ARestartBetweenTwoMessagesLosesNone) {
    startService();
    load("ident=door");
    m_target->say("before");
    EXPECT_EQ(seen(1).size(), 1U);
    m_service->terminate();
    startService();
    m_target->say("after");
    const std::vector<std::string> lines = seen(2);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], HasSubstr(" net/main: before"));
    EXPECT_THAT(lines[1], HasSubstr(" net/main: after"));
}
