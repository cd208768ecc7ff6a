// The end of a process inside more operations than the container keeps account of.
#include "exit_fixture.hpp"

#include <gmock/gmock.h>

using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr std::size_t kDeep = 20;

class ExitDeepInside : public ExitFixture {};

} // namespace

TEST_F(ExitDeepInside, LeavesAllTargetsAlone) {
    configure(target("recording") + target("recording_b"));
    EXPECT_EXIT(
        {
            start();
            journal::onEvent("log", [](const PluginEvent&) {
                if (journal::ofKind("log").size() == kDeep) {
                    std::exit(EXIT_SUCCESS);
                }
                say("again");
            });
            say("the first");
        },
        ExitedWithCode(0), Not(HasSubstr("destroy")));
}
