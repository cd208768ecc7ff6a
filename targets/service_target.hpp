// A target whose messages go to a service on this machine, under the name of the application.
#ifndef SORREL_TARGETS_SERVICE_TARGET_HPP
#define SORREL_TARGETS_SERVICE_TARGET_HPP

#include "service_socket.hpp"
#include "wait_parameter.hpp"

#include <sorrel/target_library.hpp>

#include <cerrno>
#include <string>
#include <string_view>

namespace {

// Takes the parameters
//
//     socket=/dev/log    the service's socket
//     wait=10            milliseconds for which it may be slow: see ServiceSocket
//     ident=door         the name under which messages appear: without it the application's, or else the program's
class ServiceTarget : public sorrel::MessageTarget {
public:
    ServiceTarget(sorrel::TargetParameters& parameters, const char* defaultSocket)
        : MessageTarget(parameters), m_socket(socketPath(parameters, defaultSocket), waitFrom(parameters)),
          m_isNamed(!parameters.text("ident", "").empty()), m_ident(parameters.text("ident", "")) {
        if (parameters.text("ident", "-").empty()) {
            sorrel::TargetParameters::refuse("ident", "", "is no name");
        }
        follow(parameters.applicationName());
    }

    void setAppname(const std::string& name) override { follow(name); }

protected:
    const std::string& ident() const { return m_ident; }
    int send(std::string_view datagram) { return m_socket.send(datagram); }

private:
    static std::string socketPath(sorrel::TargetParameters& parameters, const char* defaultSocket) {
        std::string path = parameters.text("socket", defaultSocket);
        if (path.rfind('/', 0) != 0 || path.size() > ServiceSocket::kMostPathBytes) {
            sorrel::TargetParameters::refuse("socket", path,
                                             "is no absolute path of at most " +
                                                 std::to_string(ServiceSocket::kMostPathBytes) + " bytes");
        }
        return path;
    }

    void follow(const std::string& application) {
        if (!m_isNamed) {
            m_ident = application.empty() ? program_invocation_short_name : application;
        }
    }

    ServiceSocket m_socket;
    const bool m_isNamed;
    std::string m_ident;
};

} // namespace

#endif // SORREL_TARGETS_SERVICE_TARGET_HPP
