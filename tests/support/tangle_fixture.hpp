// A private system in which the legacy interface finds its files: /etc/tanglelog.cfg, /var/run/syslogd.pid, /dev/log.
#ifndef SORREL_TESTS_TANGLE_FIXTURE_HPP
#define SORREL_TESTS_TANGLE_FIXTURE_HPP

#include "private_system.hpp"
#include "syslog_recorder.hpp"

#include <sorrel/tangle_log.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <memory>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

// The program is called "myprog", the switch of the diagnostics is not set, and there are no files yet.
class TangleFixture : public testing::Test {
protected:
    static constexpr char kLevelFile[] = "/etc/tanglelog.cfg";
    static constexpr char kPidFile[] = "/var/run/syslogd.pid";

    TangleFixture() {
        unsetenv("SORREL_VERBOSE_STARTUP");
        enterPrivateSystem();
        m_recorder = std::make_unique<SyslogRecorder>();
        setProgramName("myprog");
    }

    ~TangleFixture() override { program_invocation_short_name = m_realName; }

    SyslogRecorder& log() { return *m_recorder; }

    // Breaks the connection to the log: syslog(3) makes a new one, and that changes errno.
    void restartLog() {
        m_recorder.reset();
        m_recorder = std::make_unique<SyslogRecorder>();
    }

    static void turnDiagnosticsOn() { setenv("SORREL_VERBOSE_STARTUP", "1", 1); }

    void setProgramName(const std::string& name) {
        m_programName = name;
        program_invocation_short_name = m_programName.data();
    }

    static void writeLevels(const std::string& text) { std::ofstream(kLevelFile) << text; }
    static void writePidFile() { std::ofstream(kPidFile) << "1\n"; }

    static std::string levels() {
        std::ostringstream text;
        text << std::ifstream(kLevelFile).rdbuf();
        return text.str();
    }

    static bool levelFileExists() { return access(kLevelFile, F_OK) == 0; }

    // The mask of the system log.
    static int mask() { return setlogmask(0); }

    // Writes these levels and reads them as a program does that starts. Returns the mask.
    static int maskAtStart(const std::string& levelLines) {
        writeLevels(levelLines);
        setlogmask(LOG_MASK(LOG_NOTICE)); // what no level gives
        sorrel::sorrel_tangleLogInit();
        return mask();
    }

    // Sends a message of each priority to syslog, and tells which ones arrived.
    std::vector<int> arrivingPriorities() {
        log().clear();
        for (int priority = LOG_EMERG; priority <= LOG_DEBUG; ++priority) {
            syslog(priority, "a message");
        }
        std::vector<int> arrived;
        for (const SyslogRecord& record : log().records()) {
            arrived.push_back(record.priority);
        }
        log().clear();
        return arrived;
    }

    static void makeEtcReadOnly() {
        ASSERT_EQ(mount(nullptr, "/etc", nullptr, MS_REMOUNT | MS_RDONLY | MS_NOSUID, nullptr), 0);
    }

    // Sets the mode of a file, and makes this process, which may be root's, obey it.
    static void setObeyedMode(const char* path, mode_t mode) {
        ASSERT_EQ(chmod(path, mode), 0);
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct none[2] = {};
        ASSERT_EQ(syscall(SYS_capset, &header, none), 0);
    }

private:
    char* const m_realName = program_invocation_short_name;
    std::string m_programName;
    std::unique_ptr<SyslogRecorder> m_recorder;
};

#endif // SORREL_TESTS_TANGLE_FIXTURE_HPP
