// Log target that appends each message as a line to a file: `target=sorrel-file.so, file=/var/log/app.log`. Without a
// file that can be opened there is no target; the diagnostic channel says why.
#include "log_line.hpp"

#include <sorrel/target_library.hpp>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

int openForAppending(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    if (fd == -1) {
        const int openErrno = errno;
        throw sorrel::TargetParameters::Error("parameter \"file\": \"" + path +
                                              "\" cannot be opened: " + std::strerror(openErrno));
    }
    return fd;
}

class FileTarget final : public sorrel::MessageTarget {
public:
    explicit FileTarget(sorrel::TargetParameters& parameters)
        : MessageTarget(parameters), m_fd(openForAppending(parameters.text("file"))) {}
    FileTarget(const FileTarget&) = delete;
    FileTarget& operator=(const FileTarget&) = delete;
    ~FileTarget() override { close(m_fd); }

private:
    int deliver(const sorrel::Message& message) override {
        return log_line::write(m_fd, log_line::date(message.seconds) + log_line::format(message));
    }

    const int m_fd;
};

} // namespace

SORREL_TARGET_LIBRARY(FileTarget, "file")
