// The recorder on a ring file of the test's own, and the messages that it leaves there.
#ifndef SORREL_TESTS_RING_FIXTURE_HPP
#define SORREL_TESTS_RING_FIXTURE_HPP

#include "container_fixture.hpp"
#include "test_message.hpp"

#include <sorrel/component.hpp>
#include <sorrelctl/ring_reader.hpp>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>

class RingFixture : public ContainerFixture {
protected:
    static constexpr std::size_t kSmallRing = 64 * 1024 - 512 - 16 * 256; // of a file of 64 KiB

    using Container = std::unique_ptr<sorrel::CLogTargetContainer>;

    static std::string library() { return targetPath("recorder"); }

    std::string path(const std::string& name) { return files().file(name); }

    // A container whose only target is a recorder with these parameters: " file=..., size=64k".
    Container open(const std::string& parameters, const std::string& applicationName = "") {
        configure("target=" + library() + "," + parameters + "\n");
        configureApp(applicationName, "target=" + library() + "," + parameters + "\n");
        auto container = std::make_unique<sorrel::CLogTargetContainer>(directory(), false, nullptr);
        if (applicationName.empty()) {
            container->onCfgUpdate();
        } else {
            container->setAppname(applicationName);
        }
        return container;
    }

    // With the smallest ring.
    Container openSmall(const std::string& name) { return open("file=" + path(name) + ",size=64k"); }

    static void log(sorrel::CLogTargetContainer& container, const std::string& text,
                    const std::string& component = "net", int numeric = 6) {
        TestMessage message{text};
        message.component = component;
        message.numeric = numeric;
        logTo(container, message);
    }

    sorrelctl::Ring read(const std::string& name) { return sorrelctl::readRing(sorrelctl::readFile(path(name))); }

    // What a numbered message says: texts of many lengths.
    static std::string numbered(std::uint64_t number) {
        constexpr std::uint64_t kLongest = 0x1ff;
        return std::to_string(number) + " " + std::string(number * 7919 & kLongest, '-') + "|";
    }

    // Whether these are numbered messages with nothing missing between them, and the sequence numbers are theirs.
    static testing::AssertionResult areNumbered(const sorrelctl::Ring& ring) {
        for (std::size_t i = 0; i < ring.records.size(); ++i) {
            const sorrelctl::Record& record = ring.records[i];
            if (record.sequence != ring.records.front().sequence + i || record.text != numbered(record.sequence)) {
                return testing::AssertionFailure() << "message " << record.sequence << " is: " << record.text;
            }
        }
        return testing::AssertionSuccess();
    }

    static std::vector<std::string> textsOf(const sorrelctl::Ring& ring) {
        std::vector<std::string> texts;
        for (const sorrelctl::Record& record : ring.records) {
            texts.emplace_back(record.text);
        }
        return texts;
    }

    // "NAME MESSAGES MASK ADDRESS", with "?" for what is not known; in no order.
    static std::set<std::string> componentsOf(const sorrelctl::Ring& ring) {
        std::set<std::string> found;
        for (const sorrelctl::Component& component : ring.components) {
            const std::string known = std::to_string(component.mask) + " " + std::to_string(component.address);
            found.insert(std::string(component.name) + " " + std::to_string(component.messages) + " " +
                         (component.isMaskKnown ? known : "?"));
        }
        return found;
    }

    // The same of an announced component.
    static std::string entry(const sorrel_component& component, int messages) {
        return component.name + " " + std::to_string(messages) + " " + std::to_string(component.mask) + " " +
               std::to_string(reinterpret_cast<std::uintptr_t>(&component.mask));
    }

    // How much of the ring the messages fill.
    static std::size_t bytesOf(const sorrelctl::Ring& ring) {
        constexpr std::size_t kFixed = 56;
        std::size_t sum = 0;
        for (const sorrelctl::Record& record : ring.records) {
            sum +=
                kFixed + record.thread.size() + record.component.size() + record.function.size() + record.text.size();
        }
        return sum;
    }
};

#endif // SORREL_TESTS_RING_FIXTURE_HPP
