// Log target that writes each message as a line to the terminal: `target=sorrel-console.so, stream=stderr`. The stream
// is stdout unless the line says stderr.
#include "log_line.hpp"

#include <sorrel/target_library.hpp>

#include <string>
#include <unistd.h>

namespace {

class ConsoleTarget final : public sorrel::NamedLogTarget {
public:
    explicit ConsoleTarget(sorrel::TargetParameters& parameters)
        : NamedLogTarget(parameters),
          m_fd(parameters.choice("stream", STDOUT_FILENO, {{"stdout", STDOUT_FILENO}, {"stderr", STDERR_FILENO}})) {}

    void log(int /*processId*/, int depth, long long seconds, int microseconds, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& text) override {
        log_line::write(m_fd, log_line::format(depth, seconds, microseconds, *level, threadName, componentName,
                                               functionName, text));
    }

private:
    const int m_fd; // belongs to the process
};

} // namespace

SORREL_TARGET_LIBRARY(ConsoleTarget, "console")
