// The library calls into a plug-in whose tables were written by hand.
#include "raw_target.hpp"

#include <sorrel/component.hpp>
#include <sorrel/level.h>
#include <sorrel/log_target_container.hpp>

#include <gmock/gmock.h>
#include <sstream>

namespace {

using testing::ElementsAre;

std::string infoMessageOf(const char* start, const char* end) {
    std::ostringstream line;
    line << start << ' ' << static_cast<void*>(SR_INFO) << ' ' << end;
    return line.str();
}

class RawTarget : public RawTargetFixture {};

TEST_F(RawTarget, EveryOperationReachesItsOwnSlot) {
    {
        sorrel::CLogTargetContainer container(directory().path(), true, nullptr);
        EXPECT_TRUE(container.hasSyslogTarget());
        container.log(1, -2, 5000000000LL, 4, SR_INFO, "thread", "net", "connect", "hello");
        sorrel_component component{"net", 0, {}};
        container.onComponentAdded(&component);
        container.setAppname("app");
    }
    EXPECT_THAT(calls(), ElementsAre("create LogTarget", "getName", "isSyslogTarget",
                                     infoMessageOf("log 1 -2 5000000000 4", "[thread] [net] [connect] [hello]"),
                                     "component net", "isSyslogTarget", "appname app", "destroy"));
}

TEST_F(RawTarget, UnloadingAsksForTheNameAndDestroysThroughTheFactory) {
    sorrel::CLogTargetContainer container(directory().path(), true, nullptr);
    ASSERT_EQ(calls().size(), 3U);
    container.lock(); // the watcher waits, so that the only re-read is the one below
    directory().write("sorrel.cfg", "# no target\n");
    container.onCfgUpdate();
    container.unlock();
    EXPECT_THAT(calls(), ElementsAre("create LogTarget", "getName", "isSyslogTarget", "getName", "destroy"));
    EXPECT_FALSE(container.hasSyslogTarget());
}

} // namespace
