// The system log of a test: a datagram socket at /dev/log and a thread that empties it.
#include "syslog_recorder.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <pthread.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr char kPath[] = "/dev/log";
constexpr std::string_view kSyncMarker("\0sync", 5); // no message begins with a null byte
constexpr std::string_view kEndMarker("\0end", 4);
constexpr std::size_t kTimestampLength = 16; // "Jan  1 00:00:00 "
constexpr unsigned long kPriorityMask = 7;

// There is one /dev/log, hence one recorder and one mutex. The reader holds it whenever it allocates, and a fork waits
// for it, so that no child gets an allocator that is locked or memory that only the reader knew.
std::mutex recordsMutex;

void beforeFork() {
    recordsMutex.lock();
}

void afterFork() {
    recordsMutex.unlock();
}

void check(ssize_t rc, const char* what) {
    if (rc == -1) {
        throw std::system_error(errno, std::generic_category(), std::string(what) + " " + kPath);
    }
}

sockaddr_un logAddress() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(std::begin(kPath), std::end(kPath), address.sun_path);
    return address;
}

int openLogSocket() {
    const sockaddr_un address = logAddress();
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    check(fd, "socket");
    check(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
    return fd;
}

// "<PRI>TIMESTAMP IDENT[PID]: TEXT", where "[PID]" may be missing.
SyslogRecord parse(const std::string& datagram) {
    const std::size_t headerEnd = datagram.find('>');
    const std::size_t identStart = headerEnd + 1 + kTimestampLength;
    const std::size_t identEnd = datagram.find(": ", identStart);
    if (datagram.empty() || datagram[0] != '<' || headerEnd == std::string::npos || identEnd == std::string::npos) {
        return {-1, -1, "", 0, "not in the format of syslog: " + datagram};
    }
    const unsigned long code = std::strtoul(datagram.c_str() + 1, nullptr, 10);
    SyslogRecord record = {static_cast<int>(code & kPriorityMask), static_cast<int>(code & ~kPriorityMask),
                           datagram.substr(identStart, identEnd - identStart), 0, datagram.substr(identEnd + 2)};
    const std::size_t bracket = record.ident.rfind('[');
    if (bracket != std::string::npos && record.ident.back() == ']') {
        record.pid = std::atoi(record.ident.c_str() + bracket + 1);
        record.ident.resize(bracket);
    }
    return record;
}

} // namespace

// The reader blocks all signals, so that a signal of the test reaches the threads that it is meant for.
SyslogRecorder::SyslogRecorder() : m_socket(openLogSocket()) {
    static const int forkHandlers = pthread_atfork(beforeFork, afterFork, afterFork);
    if (forkHandlers != 0) {
        throw std::system_error(forkHandlers, std::generic_category(), "pthread_atfork");
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    m_reader = std::thread(&SyslogRecorder::readUntilEnd, this);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    sync(); // a thread that is being started allocates, too
}

SyslogRecorder::~SyslogRecorder() {
    sendMarker(std::string(kEndMarker));
    m_reader.join();
    close(m_socket);
    unlink(kPath);
}

std::vector<SyslogRecord> SyslogRecorder::records() {
    sync();
    const std::lock_guard<std::mutex> lock(recordsMutex);
    return m_records;
}

std::vector<std::string> SyslogRecorder::texts() {
    std::vector<std::string> texts;
    for (SyslogRecord& record : records()) {
        texts.push_back(std::move(record.text));
    }
    return texts;
}

int SyslogRecorder::count(const std::string& text) {
    int found = 0;
    for (const SyslogRecord& record : records()) {
        found += record.text == text ? 1 : 0;
    }
    return found;
}

bool SyslogRecorder::has(const std::string& text) {
    return count(text) > 0;
}

void SyslogRecorder::clear() {
    sync();
    const std::lock_guard<std::mutex> lock(recordsMutex);
    m_records.clear();
}

bool SyslogRecorder::waitFor(const std::string& text, std::chrono::milliseconds timeout) {
    return waitFor([&text](const SyslogRecord& record) { return record.text == text; }, timeout);
}

bool SyslogRecorder::waitFor(const Predicate& predicate, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(recordsMutex);
    return m_changed.wait_for(lock, timeout,
                              [&] { return std::any_of(m_records.begin(), m_records.end(), predicate); });
}

void SyslogRecorder::sync() {
    std::unique_lock<std::mutex> lock(recordsMutex);
    const unsigned long marker = ++m_markersSent;
    lock.unlock();
    sendMarker(std::string(kSyncMarker));
    lock.lock();
    if (!m_changed.wait_for(lock, kPatience, [&] { return m_markersSeen >= marker; })) {
        throw std::runtime_error("the reader of the system log is stuck");
    }
}

void SyslogRecorder::sendMarker(const std::string& marker) const {
    const sockaddr_un address = logAddress();
    check(
        sendto(m_socket, marker.data(), marker.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address),
        "send to");
}

void SyslogRecorder::readUntilEnd() {
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t length = recv(m_socket, buffer.data(), buffer.size(), 0);
        if (length < 0) {
            continue;
        }
        const std::string_view datagram(buffer.data(), static_cast<std::size_t>(length));
        if (datagram == kEndMarker) {
            return;
        }
        const std::lock_guard<std::mutex> lock(recordsMutex);
        if (datagram == kSyncMarker) {
            ++m_markersSeen;
        } else {
            m_records.push_back(parse(std::string(datagram)));
        }
        m_changed.notify_all();
    }
}
