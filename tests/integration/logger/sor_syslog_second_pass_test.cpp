// Foreign text on its way through the entry for programs that were written for syslog, which formats it twice.
#include "logger_fixture.hpp"
#include "syslog_recorder.hpp"

#include <cerrno>
#include <gmock/gmock.h>

using testing::ElementsAre;

// The sanitizers' own check of formats runs behind the end of an incomplete directive.
extern "C" const char* __asan_default_options() {
    return "check_printf=0";
}

extern "C" const char* __tsan_default_options() {
    return "check_printf=0";
}

namespace {

// The text that syslog gets, which is formatted once, and that of the targets.
class SorSyslogSecondPass : public LoggerFixture {
protected:
    SorSyslogSecondPass() {
        setenv("SORREL_VERBOSE_STARTUP", "1", 1);
        configure(target("recording"));
        m_net = sorrel_create_component("net", SR_ALL, "");
        m_syslog.clear();
    }

    void expectPrinted(const std::string& argument, const std::string& text) {
        sor_syslog(m_net, SR_INFO, "%s", argument.c_str());
        EXPECT_THAT(m_syslog.texts(), ElementsAre(argument));
        EXPECT_THAT(journal::texts(), ElementsAre(text));
        m_syslog.clear();
        journal::clear();
    }

    SyslogRecorder m_syslog;
    sorrel_component* m_net = nullptr;
};

} // namespace

TEST_F(SorSyslogSecondPass, ForeignDirectivesTakeNoArguments) {
    expectPrinted("%s %n %d %1$d", "  0 %1$d");
    expectPrinted("%p %5.1f %c|%x", "(nil)   0.0 |0");
    expectPrinted("%*d %.*s|%*.*f", "0 |0");
}

TEST_F(SorSyslogSecondPass, PositionsDoNotEndTheProcess) {
    expectPrinted("%1$", "%1$");
    expectPrinted("%2$q", "%2$q");
    expectPrinted("%1$s and %3$n", "%1$s and %3$n");
    expectPrinted("%1$%d", "%1$%d");
}

TEST_F(SorSyslogSecondPass, CountersWriteNothing) {
    for (const char* const text : {"a%nb", "a%hhnb", "a%5nb", "a%*nb"}) {
        expectPrinted(text, "ab");
    }
}

TEST_F(SorSyslogSecondPass, UnknownDirectivesStayAsTheyAre) {
    expectPrinted("%y", "%y");
    expectPrinted("50 %k", "50 %k");
}

TEST_F(SorSyslogSecondPass, AnIncompleteDirectiveCutsTheTextAsEverywhere) {
    expectPrinted("100 %", "100 ");
}

TEST_F(SorSyslogSecondPass, KeepsInterpretingDoubledPercentSignsAndPercentM) {
    expectPrinted("50%%", "50%");
    errno = ENOENT;
    expectPrinted("%m", "No such file or directory");
}

TEST_F(SorSyslogSecondPass, AWidthFillsTheMessageAndNoMore) {
    sor_syslog(m_net, SR_INFO, "%s", "%999999999d%s%n");
    EXPECT_THAT(journal::texts(), ElementsAre(std::string(2047, ' ')));
}

TEST_F(SorSyslogSecondPass, ATextOf2047CharactersOfDirectivesArrives) {
    std::string text;
    while (text.size() < 2040) {
        text += "%1$%";
    }
    sor_syslog(m_net, SR_INFO, "%s", text.c_str());
    EXPECT_THAT(journal::texts(), ElementsAre(text));
}
