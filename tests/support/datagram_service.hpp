// A service that a test plays itself: a datagram socket, read when the test says so.
#ifndef SORREL_TESTS_DATAGRAM_SERVICE_HPP
#define SORREL_TESTS_DATAGRAM_SERVICE_HPP

#include <array>
#include <cerrno>
#include <ctime>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <vector>

// A socket with this name, which is taken from an earlier one.
inline int boundSocket(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(path.c_str());
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::system_error(errno, std::generic_category(), "no service at " + path);
    }
    return fd;
}

// Its end is that of a service which crashed: the name of the socket stays behind.
class DatagramService {
public:
    explicit DatagramService(const std::string& path) : m_fd(boundSocket(path)) {}
    DatagramService(const DatagramService&) = delete;
    DatagramService& operator=(const DatagramService&) = delete;
    ~DatagramService() { close(m_fd); }

    // Waits for a datagram; throws when none comes.
    std::string next() {
        constexpr timespec kPatience = {10, 0};
        if (!hasArrived(kPatience)) {
            throw std::system_error(ETIMEDOUT, std::generic_category(), "no datagram came");
        }
        return read();
    }

    // All that have been sent.
    std::vector<std::string> sent() {
        std::vector<std::string> datagrams;
        while (hasArrived({0, 0})) {
            datagrams.push_back(read());
        }
        return datagrams;
    }

private:
    // Not with poll, which tests replace.
    bool hasArrived(timespec patience) const {
        pollfd arrival = {m_fd, POLLIN, 0};
        return ppoll(&arrival, 1, &patience, nullptr) == 1;
    }

    std::string read() const {
        std::array<char, 65536> buffer;
        const ssize_t length = recv(m_fd, buffer.data(), buffer.size(), 0);
        return std::string(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    }

    const int m_fd;
};

#endif // SORREL_TESTS_DATAGRAM_SERVICE_HPP
