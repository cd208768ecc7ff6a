// The loader's lock is one that the library shares with all others of the process.
#include "blocked_thread.hpp"
#include "dial_fixture.hpp"
#include "watchdog.hpp"

#include <dlfcn.h>
#include <future>
#include <gmock/gmock.h>
#include <memory>

using testing::UnorderedElementsAre;

namespace {

class LoaderLock : public DialFixture {
private:
    Watchdog m_watchdog;
};

} // namespace

// The re-read holds the container's mutex, and the loading thread the loader's lock.
TEST_F(LoaderLock, IsNotNeededForTheWorkersFirstMessageInAReRead) {
    sorrel_component* const net = buildLogger();
    std::unique_ptr<ObservedThread> loading;
    std::promise<void> hasLogged;
    journal::onEvent("isSyslog", [&](const PluginEvent&) {
        journal::onEvent("isSyslog", nullptr);
        loading = std::make_unique<ObservedThread>(
            [] { EXPECT_NE(dlopen(pluginPath("static_logger").c_str(), RTLD_NOW), nullptr); });
        EXPECT_TRUE(loading->waitUntilBlocked());
        _sorrel(net, SR_INFO, "from the worker");
        hasLogged.set_value();
    });
    turnDial(2);
    hasLogged.get_future().wait();
    loading.reset();
    EXPECT_THAT(journal::texts(), UnorderedElementsAre("from the worker", "constructed"));
}
