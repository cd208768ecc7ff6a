// Log targets that write lines, each loaded as an application loads it.
#ifndef SORREL_TESTS_LINE_TARGET_FIXTURE_HPP
#define SORREL_TESTS_LINE_TARGET_FIXTURE_HPP

#include "container_fixture.hpp"

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

// 2024-02-29 13:04:05 UTC
constexpr long long kLeapDay = 1709211845;

struct Sent {
    std::string text = {};
    int depth = 0;
    int numeric = 6;
    std::string function = {};
    std::string component = "net";
    std::string thread = "main";
    long long seconds = kLeapDay;
    int microseconds = 42;
};

inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class LineTargetFixture : public ContainerFixture {
protected:
    LineTargetFixture() { setenv("TZ", "UTC", 1); }

    // Loads what follows "target=" in a line of the configuration.
    void load(const std::string& target) {
        configure("target=" + target + "\n");
        m_container = std::make_unique<sorrel::CLogTargetContainer>(directory(), false, nullptr);
        m_container->onCfgUpdate();
    }

    // As a re-read does whose file does not name the target.
    void unload() {
        configure("component=net, 1\n");
        m_container->onCfgUpdate();
    }

    sorrel::CLogTargetContainer& container() { return *m_container; }

    void say(const Sent& message) {
        sorrel_level level = {message.numeric, 0x40};
        m_container->log(getpid(), message.depth, message.seconds, message.microseconds, &level, message.thread,
                         message.component, message.function, message.text);
    }
    void say(const char* text) { say(Sent{text}); }

    static std::string pathOf(const std::string& target) { return SORREL_TEST_TARGET_DIR "/sorrel-" + target + ".so"; }

    std::string fileTarget(const std::string& parameters = "", const std::string& file = "app.log") {
        return pathOf("file") + ",file=" + files().file(file) + (parameters.empty() ? "" : "," + parameters);
    }

    std::string textOf(const std::string& file) { return files().read(file); }

    // The texts of the messages in a file, which have no spaces.
    std::vector<std::string> textsIn(const std::string& file) {
        std::vector<std::string> texts;
        for (const std::string& line : linesOf(textOf(file))) {
            texts.push_back(line.substr(line.rfind(' ') + 1));
        }
        return texts;
    }

    bool exists(const std::string& file) { return access(files().file(file).c_str(), F_OK) == 0; }

    // Moves a file of the test's directory.
    void move(const std::string& from, const std::string& to) {
        ASSERT_EQ(std::rename(files().file(from).c_str(), files().file(to).c_str()), 0);
    }

private:
    std::unique_ptr<sorrel::CLogTargetContainer> m_container;
};

#endif // SORREL_TESTS_LINE_TARGET_FIXTURE_HPP
