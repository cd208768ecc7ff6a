// What a standard stream of a test may lead to: a file, a pipe, a terminal.
#ifndef SORREL_TESTS_STANDARD_STREAMS_HPP
#define SORREL_TESTS_STANDARD_STREAMS_HPP

#include "wait_until.hpp"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

// Leads a standard stream to a descriptor as long as this exists.
class Redirected {
public:
    Redirected(int stream, int fd) : m_stream(stream), m_saved(fcntl(stream, F_DUPFD_CLOEXEC, 0)) { dup2(fd, stream); }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;
    ~Redirected() {
        dup2(m_saved, m_stream);
        close(m_saved);
    }

private:
    const int m_stream;
    const int m_saved;
};

// Two ends: what is written into `input` is read from `output`.
class Ends {
public:
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;
    virtual ~Ends() {
        closeOutput();
        closeInput();
    }

    int input() const { return m_input; }
    int output() const { return m_output; }

    void closeInput() { closeEnd(m_input); }
    void closeOutput() { closeEnd(m_output); }

    // What has arrived.
    std::string read() const {
        std::string text;
        char buffer[4096];
        for (pollfd end = {m_output, POLLIN, 0}; poll(&end, 1, 0) == 1;) {
            const ssize_t count = ::read(m_output, buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            text.append(buffer, static_cast<std::size_t>(count));
        }
        return text;
    }

protected:
    Ends() = default;
    void set(int input, int output) {
        m_input = input;
        m_output = output;
    }
    static void check(int rc, const char* what) {
        if (rc == -1) {
            throw std::system_error(errno, std::generic_category(), what);
        }
    }

private:
    static void closeEnd(int& fd) {
        if (fd != -1) {
            close(fd);
            fd = -1;
        }
    }

    int m_input = -1;
    int m_output = -1;
};

class Pipe final : public Ends {
public:
    Pipe() {
        int ends[2];
        check(pipe2(ends, O_CLOEXEC), "pipe2");
        set(ends[1], ends[0]);
    }
};

class Connection final : public Ends {
public:
    Connection() {
        int ends[2];
        check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), "socketpair");
        set(ends[1], ends[0]);
    }
};

// A terminal that passes on what it gets as it is. The test has to be in a private system.
class Terminal final : public Ends {
public:
    Terminal() {
        mkdir("/dev/pts", 0755);
        check(mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666"), "mount /dev/pts");
        const int master = open("/dev/pts/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
        check(master, "/dev/pts/ptmx");
        int isLocked = 0;
        check(ioctl(master, TIOCSPTLCK, &isLocked), "TIOCSPTLCK");
        const int slave = open("/dev/pts/0", O_RDWR | O_NOCTTY | O_CLOEXEC);
        set(slave, master);
        check(slave, "/dev/pts/0");
        termios settings = {};
        check(tcgetattr(slave, &settings), "tcgetattr");
        cfmakeraw(&settings);
        check(tcsetattr(slave, TCSANOW, &settings), "tcsetattr");
    }

    // Lets the kernel look at each character, as terminals mostly do: then a line feed, too, waits for room.
    void processOutput() const {
        termios settings = {};
        check(tcgetattr(input(), &settings), "tcgetattr");
        settings.c_oflag = OPOST;
        check(tcsetattr(input(), TCSANOW, &settings), "tcsetattr");
    }

    // As Control-S and Control-Q do.
    void stop() const { check(tcflow(input(), TCOOFF), "TCOOFF"); }
    void goOn() const { check(tcflow(input(), TCOON), "TCOON"); }
};

#endif // SORREL_TESTS_STANDARD_STREAMS_HPP
