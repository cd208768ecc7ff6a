// The system log of a test.
#ifndef SORREL_TESTS_SYSLOG_RECORDER_HPP
#define SORREL_TESTS_SYSLOG_RECORDER_HPP

#include <chrono>
#include <condition_variable>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// One message as syslog(3) sent it.
struct SyslogRecord {
    int priority;      // 0 to 7
    int facility;      // as in <syslog.h>: LOG_USER, ...
    std::string ident; // given to openlog(3), else the program's name
    int pid;           // 0 without LOG_PID
    std::string text;
};

// Owns /dev/log of the private system (see enterPrivateSystem) and records what syslog(3) sends there, from this
// process and from its children, in order. Every question below is answered with all that was sent before it was asked,
// so that "nothing was logged" needs no waiting. Texts are compared whole. Any thread may ask, also from inside a
// target. A child may not ask; it may be forked at any time, and end in any way.
class SyslogRecorder {
public:
    using Predicate = std::function<bool(const SyslogRecord&)>;
    static constexpr std::chrono::seconds kPatience{10};

    SyslogRecorder();
    SyslogRecorder(const SyslogRecorder&) = delete;
    SyslogRecorder& operator=(const SyslogRecorder&) = delete;
    ~SyslogRecorder();

    std::vector<SyslogRecord> records();
    std::vector<std::string> texts();
    int count(const std::string& text);
    bool has(const std::string& text);
    void clear();

    // Wait until a message is there, recorded earlier or still to come; false when the time is over.
    bool waitFor(const std::string& text, std::chrono::milliseconds timeout = kPatience);
    bool waitFor(const Predicate& predicate, std::chrono::milliseconds timeout = kPatience);

    // Waits until everything that was sent so far is recorded.
    void sync();

private:
    void sendMarker(const std::string& marker) const;
    void readUntilEnd();

    int m_socket;
    std::condition_variable m_changed;
    std::vector<SyslogRecord> m_records; // guarded by recordsMutex, and so are the two counters
    unsigned long m_markersSent = 0;
    unsigned long m_markersSeen = 0;
    std::thread m_reader;
};

#endif // SORREL_TESTS_SYSLOG_RECORDER_HPP
