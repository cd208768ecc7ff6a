// Tests that look at what the library reports about itself.
#ifndef SORREL_TESTS_VERBOSE_DIAGNOSTICS_HPP
#define SORREL_TESTS_VERBOSE_DIAGNOSTICS_HPP

#include "private_system.hpp"
#include "syslog_recorder.hpp"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>

// Turns the diagnostic channel on. The library looks once, at its first diagnostic, so call this before anything else.
inline void setVerboseDiagnostics() {
    setenv("SORREL_VERBOSE_STARTUP", "1", 1);
}

// A private system whose /dev/log is recorded, and the diagnostic channel turned on.
class DiagnosticFixture : public testing::Test {
protected:
    DiagnosticFixture() {
        setVerboseDiagnostics();
        enterPrivateSystem();
        m_recorder = std::make_unique<SyslogRecorder>();
    }

    SyslogRecorder& diagnostics() { return *m_recorder; }

private:
    std::unique_ptr<SyslogRecorder> m_recorder;
};

#endif // SORREL_TESTS_VERBOSE_DIAGNOSTICS_HPP
