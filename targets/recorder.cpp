// Keeps the last messages in a mapped file that survives the process, however that ends. No message costs a system
// call.
#include "recorder_ring.hpp"
#include "thread_id.hpp"

#include <sorrel/target_library.hpp>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

class RecorderTarget final : public sorrel::MessageTarget {
public:
    explicit RecorderTarget(sorrel::TargetParameters& parameters)
        : MessageTarget(parameters), m_applicationName(parameters.applicationName()), m_name(ringName(parameters)),
          m_size(ringSize(parameters)), m_keep(parameters.number<std::size_t>("keep", 3, 0, 1000)) {
        parameters.refuseUnknown(); // before there is a file
        try {
            openRing();
        } catch (const std::system_error& error) {
            sorrel::TargetParameters::refuse("file", pattern(parameters),
                                             std::string("gives no ring: ") + error.what());
        }
    }
    RecorderTarget(const RecorderTarget&) = delete;
    RecorderTarget& operator=(const RecorderTarget&) = delete;
    ~RecorderTarget() override {
        if (m_ring != nullptr && m_processId == getpid()) {
            m_ring->end();
        }
    }

    void onComponentAdded(sorrel_component* component) override {
        if (isReadyFor(getpid())) {
            m_ring->announce(*component);
        }
    }

    void setAppname(const std::string& name) override {
        m_applicationName = name;
        if (isReadyFor(getpid())) {
            m_ring->setApplicationName(name);
        }
    }

private:
    static std::string pattern(sorrel::TargetParameters& parameters) {
        return parameters.pathPattern("file", "/run/sorrel/%a-%p.ring");
    }

    static recorder::RingName ringName(sorrel::TargetParameters& parameters) {
        try {
            return {pattern(parameters), parameters.applicationName()};
        } catch (const std::invalid_argument& error) {
            sorrel::TargetParameters::refuse("file", pattern(parameters), error.what());
        }
    }

    static std::size_t ringSize(sorrel::TargetParameters& parameters) {
        constexpr long long kLeast = 64 << 10U;
        constexpr long long kUsual = 1 << 20U;
        constexpr long long kMost = 1 << 30U;
        constexpr std::size_t kPage = 4096;
        const auto size = static_cast<std::size_t>(parameters.bytes("size", kUsual, kLeast, kMost));
        return (size + kPage - 1) / kPage * kPage;
    }

    int deliver(const sorrel::Message& message) override {
        if ((message.processId != m_processId || m_ring == nullptr) && !isReadyFor(getpid())) {
            return m_error;
        }
        m_ring->write(message, static_cast<std::uint32_t>(threadIdIn(m_processId)));
        return 0;
    }

    // Whether there is a ring of this process. The child of a process makes its own, once.
    bool isReadyFor(pid_t processId) {
        if (processId != m_processId) {
            try {
                openRing();
            } catch (const std::system_error& error) {
                m_error = error.code().value();
            } catch (const std::bad_alloc&) {
                m_error = ENOMEM;
            }
        }
        return m_ring != nullptr;
    }

    // Where it fails there is no ring: that of the parent is not ours.
    void openRing() {
        const std::unique_ptr<recorder::Ring> parents = std::move(m_ring);
        m_processId = getpid();
        recorder::removeOldRings(m_name, m_keep);
        auto ring = std::make_unique<recorder::Ring>(m_name, m_size);
        ring->setApplicationName(m_applicationName);
        if (parents != nullptr) {
            ring->takeComponentsOf(*parents);
        }
        m_ring = std::move(ring);
    }

    std::string m_applicationName;
    const recorder::RingName m_name;
    const std::size_t m_size;
    const std::size_t m_keep;
    pid_t m_processId = 0; // whose ring it is
    std::unique_ptr<recorder::Ring> m_ring;
    int m_error = 0; // why there is none
};

} // namespace

SORREL_TARGET_LIBRARY(RecorderTarget, "recorder")
