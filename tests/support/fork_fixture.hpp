// A process that logs and forks.
#ifndef SORREL_TESTS_FORK_FIXTURE_HPP
#define SORREL_TESTS_FORK_FIXTURE_HPP

#include "child_process.hpp"
#include "dial_fixture.hpp"

#include <algorithm>

class ForkFixture : public DialFixture {
protected:
    // Builds the logger, and waits until its worker waits, too: the sanitizers' allocators do not like a fork while
    // another thread allocates.
    void build() {
        net = buildLogger();
        waitUntil(isWorkerWaiting);
    }

    void say(const char* text) const { _sorrel(net, SR_INFO, "%s", text); }

    static bool hasText(const std::string& text) {
        const std::vector<std::string> texts = journal::texts();
        return std::find(texts.begin(), texts.end(), text) != texts.end();
    }

    // Expects the process to read a change of the configuration that is made now.
    void expectParentStillWatches() const {
        turnDial(9);
        EXPECT_TRUE(readsDial(9));
        EXPECT_TRUE(hasMoreThreads(1));
    }

    sorrel_component* net = nullptr;
};

#endif // SORREL_TESTS_FORK_FIXTURE_HPP
