// Target that sends each text as a datagram to the socket of its line, as those do that write to a service of the
// system.
#include <sorrel/target_library.hpp>

#include <cerrno>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

class DatagramTarget final : public sorrel::MessageTarget {
public:
    explicit DatagramTarget(sorrel::TargetParameters& parameters) : MessageTarget(parameters) {
        m_address.sun_family = AF_UNIX;
        parameters.text("socket").copy(m_address.sun_path, sizeof m_address.sun_path - 1);
    }

private:
    int deliver(const sorrel::Message& message) override {
        const auto* const address = reinterpret_cast<const sockaddr*>(&m_address);
        const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        const ssize_t count =
            sendto(fd, message.text.data(), message.text.size(), MSG_NOSIGNAL, address, sizeof m_address);
        const int error = count < 0 ? errno : 0;
        close(fd);
        return error;
    }

    sockaddr_un m_address = {};
};

} // namespace

SORREL_TARGET_LIBRARY(DatagramTarget, "datagram")
