// Memory that runs out at each allocation: those of the library, and those that libc and libstdc++ make for it.
#include "expected_messages.hpp"
#include "fault_run.hpp"
#include "temp_dir.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <set>
#include <string>

using namespace messages;

namespace {

constexpr int kMostAllocations = 2000;

const Strings kMessages = {kNoThreadObject, kNoThreadResource, kNotOpened, kGivenUp, kNoLibrary, kNotLoaded};

class FailingAllocations : public testing::Test {
protected:
    FailingAllocations() { setenv("TMPDIR", m_directory.path().c_str(), 1); }

    void failEachAllocation(const std::string& scenario) {
        for (int number = 1; number <= kMostAllocations; ++number) {
            const FaultRun run = runScenario(scenario, "malloc", ENOMEM, number);
            SCOPED_TRACE("allocation " + std::to_string(number) + ":\n" + run.all);
            EXPECT_TRUE(run.passed);
            EXPECT_EQ(run.end, 0);
            if (!run.hasFailed) {
                EXPECT_GT(number, 1);
                return;
            }
            note(run);
        }
        ADD_FAILURE() << "more and more allocations";
    }

    const std::set<std::string>& seen() const { return m_seen; }
    int exceptions() const { return m_exceptions; }

private:
    void note(const FaultRun& run) {
        for (const std::string& message : run.logged) {
            const std::string words = general(message, ENOMEM);
            EXPECT_TRUE(contains(kMessages, words)) << "unexpected: " << words;
            m_seen.insert(words);
        }
        for (const std::string& exception : run.thrown) {
            EXPECT_EQ(exception.rfind("bad_alloc", 0), 0U) << "unexpected: " << exception;
            ++m_exceptions;
        }
    }

    TempDir m_directory;
    std::set<std::string> m_seen;
    int m_exceptions = 0;
};

} // namespace

TEST_F(FailingAllocations, OfAContainerAreReportedOrThrownAndLeaveNothingBehind) {
    failEachAllocation("container");
    for (const char* const message : {kNoThreadObject, kNotOpened, kGivenUp, kNoLibrary, kNotLoaded}) {
        EXPECT_TRUE(seen().count(message) > 0) << "never reported: " << message;
    }
    EXPECT_GT(exceptions(), 20);
}

TEST_F(FailingAllocations, OfTheLoggerAreReportedOrThrownAndLeaveNothingBehind) {
    failEachAllocation("logger");
    for (const std::string& message : kMessages) {
        EXPECT_TRUE(seen().count(message) > 0) << "never reported: " << message;
    }
    EXPECT_GT(exceptions(), 20);
}
