// A log target of the library, loaded as an application loads it, and the messages that it gets.
#ifndef SORREL_TESTS_LOADED_TARGET_HPP
#define SORREL_TESTS_LOADED_TARGET_HPP

#include "temp_dir.hpp"
#include "test_message.hpp"
#include "wait_until.hpp"

#include <sorrel/log_target_container.hpp>

#include <chrono>
#include <gtest/gtest.h>
#include <string>

// A container of its own, with one target or more. The directory is where its configuration lies.
class LoadedTarget {
public:
    // What follows the library in its line: "socket=/run/x, wait=0".
    LoadedTarget(const TempDir& directory, const std::string& library, const std::string& parameters)
        : m_directory(directory), m_container(directory.path(), false, nullptr) {
        configure("target=" + library + ", " + parameters + "\n");
    }

    void configure(const std::string& text) {
        m_directory.write("sorrel.cfg", text);
        m_container.onCfgUpdate();
    }
    void unload() { configure("component=net, 1\n"); }

    void say(const TestMessage& message) { logTo(m_container, message); }
    void say(const std::string& text) { say(TestMessage{text}); }

    // A call takes 100 ms at most. What is allowed is far beyond what a busy machine adds to that, and far below a call
    // that hangs.
    void sayInTime(const std::string& text) {
        const auto begin = std::chrono::steady_clock::now();
        say(text);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    }

    // Says something new until it is seen, since a service that was slow may still lose some. All that was said before
    // has then arrived, or is said to be lost. Returns how many messages it took, 0 when none was seen.
    template <class IsSeen>
    int sayUntilSeen(IsSeen isSeen) {
        constexpr int kMostMessages = 20;
        for (int i = 1; i <= kMostMessages; ++i) {
            const std::string text = "message after message " + std::to_string(i) + "!";
            say(text);
            if (waitUntil([&] { return isSeen(text); }, std::chrono::seconds(2))) {
                return i;
            }
        }
        return 0;
    }

    sorrel::CLogTargetContainer& container() { return m_container; }

private:
    const TempDir& m_directory;
    sorrel::CLogTargetContainer m_container;
};

#endif // SORREL_TESTS_LOADED_TARGET_HPP
