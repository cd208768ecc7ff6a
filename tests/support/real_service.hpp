// Services of the system as tests run them: children of the test, in its private system, that end with it.
#ifndef SORREL_TESTS_REAL_SERVICE_HPP
#define SORREL_TESTS_REAL_SERVICE_HPP

#include <string>
#include <sys/types.h>
#include <vector>

// Whether the tests with this service are switched off: named in SORREL_TEST_WITHOUT, "rsyslog,journald".
bool isServiceSwitchedOff(const std::string& service);

// Gives the test up as skipped when it is.
#define SORREL_SKIP_WITHOUT(service)                                                                                   \
    if (isServiceSwitchedOff(service)) {                                                                               \
        GTEST_SKIP() << service " is switched off by SORREL_TEST_WITHOUT";                                             \
    }

// Errors are thrown as std::runtime_error, which fails the calling test.
class RealService {
public:
    // The absolute path of a program and its arguments; what it prints is appended to a file.
    RealService(std::vector<std::string> command, std::string output)
        : m_command(std::move(command)), m_output(std::move(output)) {}
    RealService(const RealService&) = delete;
    RealService& operator=(const RealService&) = delete;
    ~RealService();

    // Starts it, and returns when somebody listens on a datagram socket.
    void start(const std::string& socketPath);

    void terminate(); // lets it finish its work
    void kill();
    void stop(); // as SIGSTOP does: returns when all of it stands still
    void resume();

private:
    void end(int signal);
    void send(int signal) const;

    std::vector<std::string> m_command;
    std::string m_output;
    pid_t m_child = -1;
};

#endif // SORREL_TESTS_REAL_SERVICE_HPP
