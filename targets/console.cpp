// Log target that writes each message as a line to the terminal: `target=sorrel-console.so, stream=stderr`. The stream
// is stdout unless the line says stderr.
#include "log_line.hpp"

#include <sorrel/target_library.hpp>

#include <string>
#include <unistd.h>

namespace {

class ConsoleTarget final : public sorrel::MessageTarget {
public:
    explicit ConsoleTarget(sorrel::TargetParameters& parameters)
        : MessageTarget(parameters),
          m_fd(parameters.choice("stream", STDOUT_FILENO, {{"stdout", STDOUT_FILENO}, {"stderr", STDERR_FILENO}})) {}

private:
    int deliver(const sorrel::Message& message) override { return log_line::write(m_fd, log_line::format(message)); }

    const int m_fd; // belongs to the process
};

} // namespace

SORREL_TARGET_LIBRARY(ConsoleTarget, "console")
