// The configured logger with the target "recording", and a component of the configuration that shows which state of the
// file a process has read.
#ifndef SORREL_TESTS_DIAL_FIXTURE_HPP
#define SORREL_TESTS_DIAL_FIXTURE_HPP

#include "logger_fixture.hpp"

#include <algorithm>
#include <bitset>
#include <set>

class DialFixture : public LoggerFixture {
protected:
    DialFixture() { turnDial(1); }

    // Rewrites the file: the component's mask shall be `position`.
    void turnDial(unsigned int position) const { configure(textWith(position)); }
    void turnDialOf(const std::string& application, unsigned int position) const {
        configureApp(application, textWith(position));
    }

    // Waits until this process has read that.
    static bool readsDial(unsigned int position) {
        return waitUntil([&] { return sorrel::sorrel_get_component_level("dial") == position; });
    }

    static sorrel_component* buildLogger() { return sorrel_create_component("net", SR_ALL, "64=INFO"); }

    // For events, that is, and not for a lock.
    static bool isWorkerWaiting() {
        const std::set<int> ids = threadIds();
        return std::any_of(ids.begin(), ids.end(), waitsForEvents);
    }

    static std::size_t descriptorsOnto(const std::string& what) {
        std::size_t count = 0;
        for (const auto& descriptor : openDescriptors()) {
            count += descriptor.second == what ? 1U : 0U;
        }
        return count;
    }

    static bool isWatching() {
        return descriptorsOnto("anon_inode:inotify") == 1 && descriptorsOnto("anon_inode:[eventpoll]") == 1;
    }
    static bool hasNoWatch() {
        return descriptorsOnto("anon_inode:inotify") == 0 && descriptorsOnto("anon_inode:[eventpoll]") == 0;
    }

private:
    static std::string textWith(unsigned int position) {
        return target("recording") + "component=dial," + std::bitset<32>(position).to_string() + "\n";
    }
};

#endif // SORREL_TESTS_DIAL_FIXTURE_HPP
