// Services of the system as tests run them.
#include "real_service.hpp"

#include "wait_until.hpp"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

bool isListening(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int result = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    close(fd);
    return result == 0;
}

// In the child; calls only what is safe after a fork.
[[noreturn]] void become(char* const* command, const char* output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that crashes leaves nothing behind
    const int fd = open(output, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    execv(command[0], command);
    _exit(127);
}

std::string contentOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

} // namespace

bool isServiceSwitchedOff(const std::string& service) {
    const char* const without = std::getenv("SORREL_TEST_WITHOUT");
    std::istringstream words(without != nullptr ? without : "");
    for (std::string word; std::getline(words, word, ',');) {
        if (word == service) {
            return true;
        }
    }
    return false;
}

RealService::~RealService() {
    if (m_child != -1) {
        ::kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
    }
}

void RealService::start(const std::string& socketPath) {
    if (access(m_command.front().c_str(), X_OK) != 0) {
        throw std::runtime_error(m_command.front() + ": " + std::strerror(errno));
    }
    std::vector<char*> command;
    for (std::string& word : m_command) {
        command.push_back(word.data());
    }
    command.push_back(nullptr);
    m_child = fork();
    if (m_child == 0) {
        become(command.data(), m_output.c_str());
    }
    bool hasEnded = m_child == -1;
    const bool isThere = waitUntil([&] {
        hasEnded = hasEnded || waitpid(m_child, nullptr, WNOHANG) == m_child;
        return hasEnded || isListening(socketPath);
    });
    if (hasEnded) {
        m_child = -1;
    }
    if (hasEnded || !isThere) {
        throw std::runtime_error(m_command.front() + (hasEnded ? " ended: " : " does not listen: ") +
                                 contentOf(m_output));
    }
}

void RealService::terminate() {
    end(SIGTERM);
}

void RealService::kill() {
    end(SIGKILL);
}

void RealService::stop() {
    send(SIGSTOP);
    int status = 0;
    if (waitpid(m_child, &status, WUNTRACED) != m_child || !WIFSTOPPED(status)) {
        throw std::runtime_error(m_command.front() + " does not stop");
    }
}

void RealService::resume() {
    send(SIGCONT);
}

void RealService::end(int signal) {
    send(signal);
    const bool hasEnded = waitUntil([&] { return waitpid(m_child, nullptr, WNOHANG) == m_child; });
    if (!hasEnded) {
        throw std::runtime_error(m_command.front() + " does not end");
    }
    m_child = -1;
}

void RealService::send(int signal) const {
    if (m_child == -1 || ::kill(m_child, signal) != 0) {
        throw std::runtime_error(m_command.front() + " does not run");
    }
}
