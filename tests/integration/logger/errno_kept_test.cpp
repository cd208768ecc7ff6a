// Every function that logs leaves errno as it was, whatever a target does to it.
#include "logger_fixture.hpp"

#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <ostream>
#include <stdexcept>

using testing::IsEmpty;
using testing::Not;

namespace {

sorrel_component ownComponent{"own", 0xffffffffU, {}}; // exists without a logger

struct Function {
    const char* name;
    void (*call)();
};

std::ostream& operator<<(std::ostream& out, const Function& function) {
    return out << function.name;
}

const Function kFunctions[] = {
    {"Message", [] { _sorrel(&ownComponent, SR_INFO, "hello"); }},
    {"SorSyslog", [] { sor_syslog(&ownComponent, SR_INFO, "hello"); }},
    {"Dump", [] { sorrel_dump(&ownComponent, SR_INFO, "some bytes, and some more", 25); }},
    {"DumpOfNothing", [] { sorrel_dump(&ownComponent, SR_INFO, nullptr, 4); }},
    {"Init", [] { sorrel_init(&ownComponent, "thread"); }},
    {"Done", [] { sorrel_done(&ownComponent); }},
    {"EnterFunction", [] { sorrel_enter_function(&ownComponent, "function"); }},
    {"LeaveFunction", [] { sorrel_leave_function(&ownComponent); }},
};

const Function kSilentFunctions[] = {
    {"MessageThatDoesNotPass", [] { _sorrel(nullptr, SR_INFO, "hello"); }},
    {"SorSyslogThatDoesNotPass", [] { sor_syslog(&ownComponent, nullptr, "hello"); }},
    {"DumpThatDoesNotPass", [] { sorrel_dump(&ownComponent, nullptr, "", 1); }},
    {"EmptyDump", [] { sorrel_dump(&ownComponent, SR_INFO, "", 0); }},
    {"InitWithoutComponent", [] { sorrel_init(nullptr, "thread"); }},
    {"InitNosorrel", [] { sorrel_init_nosorrel("thread"); }},
    {"DoneWithoutComponent", [] { sorrel_done(nullptr); }},
    {"EnterFunctionWithoutComponent", [] { sorrel_enter_function(nullptr, "function"); }},
    {"LeaveFunctionWithoutComponent", [] { sorrel_leave_function(nullptr); }},
};

std::string nameOf(const testing::TestParamInfo<Function>& info) {
    return info.param.name;
}

class ErrnoKept : public LoggerFixture, public testing::WithParamInterface<Function> {
protected:
    ErrnoKept() {
        configure(target("recording"));
        for (const char* const kind : {"init", "factory", "create", "getName", "isSyslog", "log"}) {
            m_hooks.push_back(std::make_unique<ScopedHook>(kind, [this](const PluginEvent& event) {
                errno = EPERM;
                if (m_throws && event.kind == "log") {
                    throw std::runtime_error("a target");
                }
            }));
        }
    }

    static void expectKept() {
        for (const int error : {EXDEV, 0}) { // the first one is nobody's
            errno = error;
            GetParam().call();
            EXPECT_EQ(errno, error);
        }
    }

    void makeTargetsThrow() { m_throws = true; }

private:
    bool m_throws = false;
    std::vector<std::unique_ptr<ScopedHook>> m_hooks;
};

} // namespace

TEST_P(ErrnoKept, ByTheFirstCallWhichBuildsTheLogger) {
    expectKept();
    EXPECT_THAT(messagesOf("recording"), Not(IsEmpty()));
}

TEST_P(ErrnoKept, ByEveryOtherCall) {
    CSorrel::getInstance();
    expectKept();
    EXPECT_THAT(messagesOf("recording"), Not(IsEmpty()));
}

TEST_P(ErrnoKept, ByACallThatATargetBreaksOff) {
    CSorrel::getInstance();
    makeTargetsThrow();
    errno = ENOENT;
    EXPECT_THROW(GetParam().call(), std::runtime_error);
    EXPECT_EQ(errno, ENOENT);
}

INSTANTIATE_TEST_SUITE_P(Logging, ErrnoKept, testing::ValuesIn(kFunctions), nameOf);

namespace {

class ErrnoKeptSilently : public ErrnoKept {};

} // namespace

TEST_P(ErrnoKeptSilently, ByACallThatLogsNothing) {
    expectKept();
    EXPECT_THAT(journal::texts(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Logging, ErrnoKeptSilently, testing::ValuesIn(kSilentFunctions), nameOf);
