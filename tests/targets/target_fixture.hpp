// Log targets as an application loads them, and messages made by hand.
#ifndef SORREL_TESTS_TARGET_FIXTURE_HPP
#define SORREL_TESTS_TARGET_FIXTURE_HPP

#include "command_output.hpp"
#include "container_fixture.hpp"
#include "test_message.hpp"

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

// A container with the targets of a configuration, and a small disk.
class TargetFixture : public ContainerFixture {
protected:
    TargetFixture() { setenv("TZ", "UTC", 1); }

    // Makes a `target` line the whole configuration.
    void load(const std::string& targetLine) { configureTargets("target=" + targetLine + "\n"); }
    void unload() { configureTargets("component=net, 1\n"); }
    void configureTargets(const std::string& text) {
        configure(text);
        read();
    }
    void read() {
        if (!m_container) {
            m_container.emplace(directory(), false, nullptr);
        }
        m_container->onCfgUpdate();
    }

    sorrel::CLogTargetContainer& container() { return *m_container; }

    void log(const TestMessage& message) { logTo(*m_container, message); }

    // A disk of 128 KiB in the private system.
    static std::string disk() { return "/run/disk"; }
    static void mountSmallDisk() {
        mkdir(disk().c_str(), 0755);
        mountDisk(0, "size=128k");
    }
    static void growDisk() { mountDisk(MS_REMOUNT, "size=16m"); }

private:
    static void mountDisk(unsigned long flags, const char* options) {
        if (mount("sorrel-disk", disk().c_str(), "tmpfs", flags, options) != 0) {
            throw std::system_error(errno, std::generic_category(), "no disk for this test");
        }
    }

    std::optional<sorrel::CLogTargetContainer> m_container;
};

#endif // SORREL_TESTS_TARGET_FIXTURE_HPP
