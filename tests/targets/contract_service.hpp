// A service that listens at a datagram socket, as the system's logging services do.
#ifndef SORREL_TESTS_CONTRACT_SERVICE_HPP
#define SORREL_TESTS_CONTRACT_SERVICE_HPP

#include "datagram_service.hpp"

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

// Listens as long as it lives, and reads from when it is told to: until then it is a service that hangs.
class ContractService {
public:
    explicit ContractService(const std::string& path) : m_path(path), m_socket(boundSocket(path)) {
        constexpr std::size_t kRoom = 4 << 20U; // memory that is counted is not taken while a target is watched
        m_received.reserve(kRoom);
    }
    ContractService(const ContractService&) = delete;
    ContractService& operator=(const ContractService&) = delete;
    ~ContractService() {
        if (m_reader.joinable()) {
            m_isOver = true;
            shutdown(m_socket, SHUT_RD); // wakes the reader
            m_reader.join();
        }
        close(m_socket);
        unlink(m_path.c_str());
    }

    void read() {
        m_reader = std::thread([this] {
            char buffer[65536];
            while (!m_isOver) {
                const ssize_t count = recv(m_socket, buffer, sizeof buffer, 0);
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_received.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
            }
        });
    }

    std::string received() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_received;
    }

private:
    const std::string m_path;
    const int m_socket;
    std::mutex m_mutex;
    std::string m_received; // guarded by m_mutex
    std::atomic<bool> m_isOver{false};
    std::thread m_reader;
};

#endif // SORREL_TESTS_CONTRACT_SERVICE_HPP
