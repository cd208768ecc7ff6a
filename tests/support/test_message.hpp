// A message made by hand, and where the log targets of this tree are.
#ifndef SORREL_TESTS_TEST_MESSAGE_HPP
#define SORREL_TESTS_TEST_MESSAGE_HPP

#include <sorrel/level.h>
#include <sorrel/log_target_container.hpp>

#include <string>
#include <unistd.h>

// 2024-02-29 13:04:05 UTC
constexpr long long kLeapDay = 1709211845;

struct TestMessage {
    std::string text = "hello";
    int depth = 0;
    int numeric = 6; // of its level
    std::string function = {};
    std::string component = "net";
    std::string thread = "main";
    long long seconds = kLeapDay;
    int microseconds = 42;
    int processId = getpid();
};

inline void logTo(sorrel::CLogTargetContainer& container, const TestMessage& message) {
    sorrel_level level = {message.numeric, 1U << (static_cast<unsigned int>(message.numeric) % 32U)};
    container.log(message.processId, message.depth, message.seconds, message.microseconds, &level, message.thread,
                  message.component, message.function, message.text);
}

// The log target "console", "file", ...
inline std::string targetPath(const std::string& name) {
    return SORREL_TEST_TARGET_DIR "/sorrel-" + name + ".so";
}

#endif // SORREL_TESTS_TEST_MESSAGE_HPP
