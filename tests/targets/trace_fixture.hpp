// The trace target, and its file as viewers understand it.
#ifndef SORREL_TESTS_TRACE_FIXTURE_HPP
#define SORREL_TESTS_TRACE_FIXTURE_HPP

#include "target_fixture.hpp"

#include <gmock/gmock.h>

#include <string>
#include <unistd.h>

class TraceFixture : public TargetFixture {
protected:
    static constexpr int kEnterLeave = 8;

    void open(const std::string& parameters = "") {
        load(SORREL_TEST_TARGET_DIR "/sorrel-trace.so, file=" + files().file("%p.json") + parameters);
    }

    std::string path() { return files().path() + "/" + std::to_string(getpid()) + ".json"; }
    std::string content() { return files().read(std::to_string(getpid()) + ".json"); }

    void enter(int depth, const std::string& function) { record("entering", depth, kEnterLeave, function); }
    void leave(int depth, const std::string& function) { record("leaving", depth, kEnterLeave, function); }
    void say(const std::string& text, int depth = 0, const std::string& function = "") {
        record(text, depth, 6, function);
    }
    void sayAs(const std::string& threadName, const std::string& text) { log({text, 0, 6, "", "net", threadName}); }

    // What a viewer would show below the line that names the process.
    std::string shown(const std::string& file, const std::string& option = "") {
        const std::string all = outputOf(SORREL_TEST_SHOW_TRACE " " + option + file + " 2>&1");
        EXPECT_THAT(all, testing::StartsWith("process "));
        return all.substr(all.find('\n') + 1);
    }
    std::string shown() { return shown(path()); }

    int m_time = 0; // of the last message, in microseconds since the leap day's; may be negative

private:
    void record(const std::string& text, int depth, int numeric, const std::string& function) {
        constexpr int kSecond = 1000000;
        ++m_time;
        const int seconds = m_time / kSecond - (m_time < 0 ? 1 : 0);
        log({text, depth, numeric, function, "net", "main", kLeapDay + seconds, m_time - seconds * kSecond});
    }
};

#endif // SORREL_TESTS_TRACE_FIXTURE_HPP
