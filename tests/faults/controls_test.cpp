// The scenario program finds what it looks for: each of its looks fails when there is something to be seen.
#include "fault_run.hpp"
#include "temp_dir.hpp"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class FaultControls : public testing::Test {
protected:
    FaultControls() { setenv("TMPDIR", m_directory.path().c_str(), 1); }

    // The scenario without a failing call, but with this mistake.
    static FaultRun runWith(const std::string& mistake) {
        const FaultRun run = runScenario("container", "nothing", 0, 1, mistake);
        EXPECT_FALSE(run.hasFailed) << run.all;
        EXPECT_EQ(run.passed, mistake.empty()) << run.all;
        return run;
    }

private:
    TempDir m_directory;
};

} // namespace

TEST_F(FaultControls, WithoutAMistakeTheScenarioPasses) {
    const FaultRun run = runWith("");
    EXPECT_THAT(run.problems, IsEmpty());
    EXPECT_EQ(run.end, 0);
}

TEST_F(FaultControls, ADescriptorThatIsLeftIsAProblem) {
    EXPECT_THAT(runWith("descriptor").problems, ElementsAre("other descriptors than before"));
}

TEST_F(FaultControls, AThreadThatIsLeftIsAProblem) {
    EXPECT_THAT(runWith("thread").problems, testing::Contains("other threads than before"));
}

TEST_F(FaultControls, ABlockOfMemoryThatIsLeftIsAProblem) {
    EXPECT_THAT(runWith("memory").problems, ElementsAre("memory is left: blocks 1"));
}

TEST_F(FaultControls, ALockThatIsHeldEndsTheScenarioAsAFailure) {
    const FaultRun run = runWith("lock");
    EXPECT_THAT(run.all, HasSubstr("its threads are stuck"));
    EXPECT_EQ(run.end, EXIT_FAILURE);
}

TEST_F(FaultControls, AnExceptionOutOfNothingIsAProblem) {
    EXPECT_THAT(runWith("exception").problems, ElementsAre("an exception although nothing has failed"));
}

TEST_F(FaultControls, ACrashIsNoNormalEnd) {
    EXPECT_EQ(runWith("crash").end, -SIGABRT);
}

TEST_F(FaultControls, AFunctionThatIsNeverCalledIsNeverSaidToHaveFailed) {
    EXPECT_FALSE(runScenario("logger", "nothing", 0, 1).hasFailed);
}
