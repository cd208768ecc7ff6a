// syslog(3), with a daemon of its own: a socket at /dev/log of a private system, and a thread that empties it.
#include "../../tests/support/private_system.hpp"
#include "peer.hpp"
#include "tally.hpp"

#include <array>
#include <cerrno>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::string_view kEndOfIdent = "bench: ";
constexpr sockaddr_un kAddress = {AF_UNIX, "/dev/log"};

int logSocket = -1;
std::thread reader;

const sockaddr* address() {
    return reinterpret_cast<const sockaddr*>(&kAddress);
}

void check(ssize_t result, const char* what) {
    if (result == -1) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

// An empty datagram, which syslog(3) never sends, is the end.
void readUntilEnd() {
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t length = recv(logSocket, buffer.data(), buffer.size(), 0);
        check(length, "recv");
        if (length == 0) {
            return;
        }
        std::string_view datagram(buffer.data(), static_cast<std::size_t>(length));
        datagram.remove_prefix(datagram.find(kEndOfIdent) + kEndOfIdent.size());
        sorrelBenchTally.take(datagram.data(), datagram.size());
    }
}

} // namespace

const char* const peer::kName = "syslog(3)";

void peer::start() {
    enterPrivateSystem();
    logSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    check(logSocket, "socket");
    check(bind(logSocket, address(), sizeof kAddress), "bind");
    openlog("bench", LOG_NDELAY, LOG_USER);
    reader = std::thread(readUntilEnd);
}

void peer::logMessage(const char* word, int number, double fraction) {
    syslog(LOG_INFO, "%s %d %f", word, number, fraction);
}

void peer::finish() {
    check(sendto(logSocket, "", 0, 0, address(), sizeof kAddress), "sendto");
    reader.join();
}
