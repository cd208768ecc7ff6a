// What the config-file reader makes of a text, and what it reports.
#ifndef SORREL_TESTS_CFREAD_SUPPORT_HPP
#define SORREL_TESTS_CFREAD_SUPPORT_HPP

#include "private_system.hpp"
#include "syslog_recorder.hpp"
#include "temp_dir.hpp"

#include <sorrel/cfread.h>

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <syslog.h>
#include <utility>
#include <vector>

constexpr char kNullByte = '\0';

using CfreadEntries = std::vector<std::pair<std::string, std::string>>;

struct CfreadResult {
    int rc;
    CfreadEntries entries; // as the callback got them
};

inline int collectEntry(const char* key, const char* value, void* entries) {
    static_cast<CfreadEntries*>(entries)->emplace_back(key, value);
    return 0;
}

struct CfreadCloser {
    void operator()(cfread_handle* handle) const { cfread_close(handle); }
};
using CfreadTable = std::unique_ptr<cfread_handle, CfreadCloser>;

// A file for the reader.
class CfreadFixture : public testing::Test {
protected:
    const std::string& path() const { return m_path; }
    void write(const std::string& text) const { m_directory.write("some.cfg", text); }

    CfreadResult parse(const std::string& text, int reportEmpty = 0) const {
        write(text);
        CfreadResult result = {0, {}};
        result.rc = cfread_parse_with_callback(m_path.c_str(), collectEntry, &result.entries, reportEmpty);
        return result;
    }

    CfreadTable openTable(const std::string& text) const {
        write(text);
        return CfreadTable(cfread_open(m_path.c_str()));
    }

private:
    TempDir m_directory;
    std::string m_path = m_directory.file("some.cfg");
};

// Listens to the system log as well. The switch of the library's own diagnostics is not set.
class CfreadReportFixture : public CfreadFixture {
protected:
    // The connection to the log is opened first, for the tests that count descriptors.
    CfreadReportFixture() {
        unsetenv("SORREL_VERBOSE_STARTUP");
        enterPrivateSystem();
        m_recorder = std::make_unique<SyslogRecorder>();
        openlog(nullptr, LOG_NDELAY, LOG_USER);
    }

    SyslogRecorder& log() { return *m_recorder; }

    // Expects these messages and no others, each as an error, and forgets them.
    void expectErrors(const std::vector<std::string>& texts) {
        EXPECT_EQ(m_recorder->texts(), texts);
        for (const SyslogRecord& record : m_recorder->records()) {
            EXPECT_EQ(record.priority, LOG_ERR) << record.text;
            EXPECT_EQ(record.facility, LOG_USER) << record.text;
        }
        m_recorder->clear();
    }

    // Expects both modes to fail on this text with this message.
    void expectRejected(const std::string& text, const std::string& message) {
        EXPECT_EQ(parse(text).rc, -1);
        expectErrors({message});
        EXPECT_EQ(openTable(text), nullptr);
        expectErrors({message});
    }

    // Expects both modes to take this text, and to say nothing.
    void expectAccepted(const std::string& text) {
        EXPECT_EQ(parse(text).rc, 0);
        EXPECT_NE(openTable(text), nullptr);
        expectErrors({});
    }

private:
    std::unique_ptr<SyslogRecorder> m_recorder;
};

#endif // SORREL_TESTS_CFREAD_SUPPORT_HPP
