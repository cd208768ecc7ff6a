// Containers of a test's own: a directory for the configuration files, and a look at what a container keeps to itself.
#ifndef SORREL_TESTS_CONTAINER_FIXTURE_HPP
#define SORREL_TESTS_CONTAINER_FIXTURE_HPP

#include "plugin_journal.hpp"
#include "plugin_path.hpp"
#include "temp_dir.hpp"
#include "verbose_diagnostics.hpp"
#include "wait_until.hpp"

#include <sorrel/component_cfg_update_sink.hpp>
#include <sorrel/level.h>
#include <sorrel/log_target_container.hpp>

#include <cstring>
#include <mutex>
#include <pthread.h>
#include <string>
#include <sys/ioctl.h>
#include <syslog.h>
#include <thread>
#include <utility>
#include <vector>

// Hands a message to the targets of which only the text matters.
inline void sendMessage(sorrel::CLogTargetContainer& container, const std::string& text) {
    static sorrel_level level = {6, 0x40};
    container.log(1, 0, 2, 3, &level, "thread", "component", "", text);
}

// A container and its fields. Not derived from it: the worker of an active container runs before a derived part stands,
// and after it is gone.
class OpenContainer {
    struct Fields : sorrel::CLogTargetContainer {
        Fields() = delete;
        using CLogTargetContainer::m_appname;
        using CLogTargetContainer::m_epollFd;
        using CLogTargetContainer::m_inotifyFd;
        using CLogTargetContainer::m_mutex;
        using CLogTargetContainer::m_pipeFds;
        using CLogTargetContainer::m_targets;
        using CLogTargetContainer::m_watchFd;
        using CLogTargetContainer::m_worker;
    };

    sorrel::CLogTargetContainer m_container;

public:
    OpenContainer(const std::string& directory, bool active, sorrel::IComponentCfgUpdateSink* sink = nullptr)
        : m_container(directory, active, sink) {}

    sorrel::CLogTargetContainer* operator->() { return &m_container; }
    sorrel::CLogTargetContainer& operator*() { return m_container; }
    void send(const std::string& text) { sendMessage(m_container, text); }

    static pthread_mutex_t* mutexOf(sorrel::CLogTargetContainer& container) {
        return reinterpret_cast<pthread_mutex_t*>(&(container.*(&Fields::m_mutex)));
    }

    std::map<std::string, sorrel::CPluggableLogModule>& targets = m_container.*(&Fields::m_targets);
    std::thread*& worker = m_container.*(&Fields::m_worker);
    std::string& appname = m_container.*(&Fields::m_appname);
    int& epollFd = m_container.*(&Fields::m_epollFd);
    int& inotifyFd = m_container.*(&Fields::m_inotifyFd);
    int& watchFd = m_container.*(&Fields::m_watchFd);
    int (&pipeFds)[2] = m_container.*(&Fields::m_pipeFds);
};

// Whether another thread could take the container's mutex now.
inline bool isLockFree(sorrel::CLogTargetContainer& container) {
    pthread_mutex_t* const mutex = OpenContainer::mutexOf(container);
    bool taken = false;
    std::thread([mutex, &taken] {
        taken = pthread_mutex_trylock(mutex) == 0;
        if (taken) {
            pthread_mutex_unlock(mutex);
        }
    }).join();
    return taken;
}

// Remembers the levels that it is given, and answers with `result`.
class RecordingSink final : public sorrel::IComponentCfgUpdateSink {
public:
    using Levels = std::vector<std::pair<std::string, std::string>>;

    explicit RecordingSink(int result = 0) : m_result(result) {}

    int updateComponentLevel(const std::string& name, const std::string& level) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_levels.emplace_back(name, level);
        return m_result;
    }

    Levels levels() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_levels;
    }

    // Waits until a line of the configuration has given this level.
    bool waitFor(const std::string& name, const std::string& level) {
        return waitUntil([&] {
            for (const auto& entry : levels()) {
                if (entry == std::make_pair(name, level)) {
                    return true;
                }
            }
            return false;
        });
    }

private:
    int m_result;
    std::mutex m_mutex;
    Levels m_levels; // guarded by m_mutex
};

// The line of the configuration that loads a test plug-in.
inline std::string targetLine(const std::string& plugin, const std::string& parameters = "") {
    return "target=" + pluginPath(plugin) + (parameters.empty() ? "" : "," + parameters) + "\n";
}

// A line that the reader gives up at.
inline const std::string kTooLongLine = "k=" + std::string(256, 'v') + "\n";

// How many bytes could be read from a descriptor now.
inline int bytesWaiting(int fd) {
    int count = -1;
    return ioctl(fd, FIONREAD, &count) == 0 ? count : -1;
}

// The diagnostic channel recorded, and a directory with configuration files.
class ContainerFixture : public DiagnosticFixture {
protected:
    // The connection to the log is opened first, for the tests that count descriptors.
    ContainerFixture() {
        unsetenv("SORL_PATH");
        openlog(nullptr, LOG_NDELAY, LOG_USER);
    }

    const std::string& directory() const { return m_directory.path(); }
    TempDir& files() { return m_directory; }
    std::string defaultFile() const { return m_directory.file("sorrel.cfg"); }
    std::string appFile(const std::string& name) const { return m_directory.file("sorrel-" + name + ".cfg"); }

    // Rewrite a file of the configuration in place.
    void configure(const std::string& text) { m_directory.write("sorrel.cfg", text); }
    void configureApp(const std::string& name, const std::string& text) {
        m_directory.write("sorrel-" + name + ".cfg", text);
    }

    // How many re-reads the worker has begun, and how many were begun in all.
    int workerRereads() {
        return diagnostics().count("logtarget-container: sorrel configfile changed, triggering re-read.");
    }
    int readsOf(const std::string& file) {
        return diagnostics().count("logtarget-container: reading sorrel-config from file \"" + file + "\"");
    }

    // Waits until the worker has done this many re-reads, counted from the beginning.
    bool waitForWorkerRereads(OpenContainer& container, int count) {
        const bool begun = waitUntil([&] { return workerRereads() >= count; });
        waitUntilHandled(container);
        return begun;
    }

    // Waits until the worker has dealt with all that was waiting for it: it answers to a notification that it ignores
    // only when it has finished what it read before.
    bool waitUntilHandled(OpenContainer& container) {
        return handlesAll(container) && handlesAll(container); // a watch that moves is an event of its own
    }

private:
    bool handlesAll(OpenContainer& container) {
        const bool noEvents = waitUntil([&] { return bytesWaiting(container.inotifyFd) == 0; });
        const auto ignored = static_cast<sorrel::CLogTargetContainer::thread_notification>(77);
        return noEvents && container->notifyThread(ignored) == 0 &&
               waitUntil([&] { return bytesWaiting(container.pipeFds[0]) == 0; });
    }

    TempDir m_directory;
};

#endif // SORREL_TESTS_CONTAINER_FIXTURE_HPP
