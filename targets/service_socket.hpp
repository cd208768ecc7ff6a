// A datagram socket to a service on this machine, which may be slow, stop, and come back.
#ifndef SORREL_TARGETS_SERVICE_SOCKET_HPP
#define SORREL_TARGETS_SERVICE_SOCKET_HPP

#include "descriptor.hpp"

#include <cerrno>
#include <cstddef>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

// Connects at the first datagram, and again at each one for which the service is found gone: with a socket of its own,
// so that a forked child, which shares the one that it got, never moves its parent's connection. Datagrams of several
// processes on one socket do not mix.
class ServiceSocket {
public:
    // The longest path that fits; those that are longer are cut.
    static constexpr std::size_t kMostPathBytes = sizeof sockaddr_un::sun_path - 1;

    // When the service takes no more, the first datagram waits for it this long, and none does until it reads again.
    ServiceSocket(const std::string& path, int waitMilliseconds) : m_wait(waitMilliseconds) {
        m_address.sun_family = AF_UNIX;
        path.copy(m_address.sun_path, kMostPathBytes);
    }
    ServiceSocket(const ServiceSocket&) = delete;
    ServiceSocket& operator=(const ServiceSocket&) = delete;
    ~ServiceSocket() = default;

    // Returns 0 or the error number; EAGAIN when the service takes no more.
    int send(std::string_view datagram) {
        int error = attempt(datagram);
        if (isConnectionLost(error)) {
            error = reconnect();
            if (error == 0) {
                error = attempt(datagram);
            }
        }
        if (error == EAGAIN && m_mayWait) {
            pollfd room = {m_socket.get(), POLLOUT, 0};
            poll(&room, 1, m_wait);
            error = attempt(datagram);
            m_mayWait = false;
        }
        m_mayWait = m_mayWait || error == 0;
        return error;
    }

private:
    // What a send says about a service that ended, or one that has not been connected yet.
    static bool isConnectionLost(int error) {
        return error == ECONNREFUSED || error == ENOTCONN || error == ECONNRESET || error == EPIPE;
    }

    int attempt(std::string_view datagram) const {
        if (!m_socket.isOpen()) {
            return ENOTCONN;
        }
        return ::send(m_socket.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT) == -1 ? errno : 0;
    }

    int reconnect() {
        m_socket.close();
        if (!m_socket.take(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))) {
            return errno;
        }
        if (connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&m_address), sizeof m_address) == 0) {
            return 0;
        }
        const int connectErrno = errno;
        m_socket.close();
        return connectErrno;
    }

    sockaddr_un m_address = {};
    const int m_wait;
    Descriptor m_socket;
    bool m_mayWait = true;
};

} // namespace

#endif // SORREL_TARGETS_SERVICE_SOCKET_HPP
