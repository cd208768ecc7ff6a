// The configured logger of the process, on a configuration of the test's own.
#ifndef SORREL_TESTS_LOGGER_FIXTURE_HPP
#define SORREL_TESTS_LOGGER_FIXTURE_HPP

#include "plugin_journal.hpp"
#include "plugin_path.hpp"
#include "private_system.hpp"
#include "proc_self.hpp"
#include "temp_dir.hpp"
#include "wait_until.hpp"

#include <sorrel/component.hpp>
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// A hook of the journal while it lives.
class ScopedHook {
public:
    ScopedHook(const std::string& kind, journal::Hook hook) : m_kind(kind) { journal::onEvent(kind, std::move(hook)); }
    ScopedHook(const ScopedHook&) = delete;
    ScopedHook& operator=(const ScopedHook&) = delete;
    ~ScopedHook() { journal::onEvent(m_kind, nullptr); }

private:
    std::string m_kind;
};

// A private system, the diagnostic channel turned off, and an empty configuration. The logger is not built yet.
class LoggerFixture : public testing::Test {
protected:
    LoggerFixture() {
        enterPrivateSystem();
        unsetenv("SORREL_VERBOSE_STARTUP");
        setenv("SORL_PATH", m_directory.path().c_str(), 1);
        configure("");
        std::thread([] {}).join(); // a sanitizer starts a thread of its own with the first one of the program
        m_threadsBefore = threadIds();
    }

    // Rewrites the file of the configuration in place.
    void configure(const std::string& text) const { m_directory.write("sorrel.cfg", text); }
    void configureApp(const std::string& name, const std::string& text) const {
        m_directory.write("sorrel-" + name + ".cfg", text);
    }

    // Takes the file away. A logger that is built without it reads no configuration at first and has no thread to watch
    // one, but reads the file of an application when it is named.
    void removeConfiguration() const { std::remove(m_directory.file("sorrel.cfg").c_str()); }

    // The line that loads a test plug-in.
    static std::string target(const std::string& plugin, const std::string& parameters = "") {
        return "target=" + pluginPath(plugin) + "," + parameters + "\n";
    }

    // The messages that one target received.
    static std::vector<PluginEvent> messagesOf(const std::string& library) {
        std::vector<PluginEvent> found;
        for (PluginEvent& event : journal::ofKind("log")) {
            if (event.library == library) {
                found.push_back(std::move(event));
            }
        }
        return found;
    }

    static std::vector<std::string> textsOf(const std::string& library) {
        std::vector<std::string> texts;
        for (PluginEvent& event : messagesOf(library)) {
            texts.push_back(std::move(event.text));
        }
        return texts;
    }

    static std::vector<std::string> componentNames() {
        std::vector<std::string> names;
        sorrel::sorrel_get_component_names(names);
        return names;
    }

    // Whether as many threads run as were running before the test, and so many more. One that has been joined may take
    // a moment to go.
    bool hasMoreThreads(std::size_t count) const {
        return waitUntil([&] {
            std::size_t more = 0;
            for (const int id : threadIds()) {
                more += m_threadsBefore.count(id) == 0 ? 1U : 0U;
            }
            return more == count;
        });
    }

private:
    TempDir m_directory;
    std::set<int> m_threadsBefore;
};

#endif // SORREL_TESTS_LOGGER_FIXTURE_HPP
