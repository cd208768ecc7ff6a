// What log targets have to do when the disk is full, and when a service hangs or is not there.
#include "contract_fixture.hpp"
#include "watchdog.hpp"

#include <algorithm>
#include <chrono>

using std::chrono::steady_clock;
using TargetContractOfFiles = ContractFixture;
using TargetContractOfServices = ContractFixture;

TEST_P(TargetContractOfFiles, AFullDiskLosesMessagesAndIsSurvived) {
    mountSmallDisk();
    setDirectory(disk());
    loadIt();
    logMany(10 * kMessages);
    growDisk();
    logMany(2 * kMessages); // a target that gathers lines writes them at last
    unload();
    EXPECT_TRUE(arrives("messages lost: No space left on device"));
    EXPECT_GT(countOf("message"), 2 * kMessages);
    EXPECT_FALSE(isMapped());
}

TEST_P(TargetContractOfServices, AServiceThatComesBackIsFound) {
    loadIt();
    log({"first"});
    EXPECT_TRUE(arrives("first"));
    stopService();
    logMany(kMessages);
    startService();
    service().read();
    EXPECT_TRUE(getsThrough("back again"));
    EXPECT_TRUE(arrives("messages lost: "));
}

TEST_P(TargetContractOfServices, AServiceThatIsNotThereYetIsFound) {
    stopService();
    loadIt();
    log({"nobody hears"});
    startService();
    service().read();
    EXPECT_TRUE(getsThrough("there"));
}

// A watchdog: a call that waits for the service never ends, one that gives up takes far less.
TEST_P(TargetContractOfServices, AServiceThatHangsHoldsNobodyUp) {
    const Watchdog watchdog;
    stopService();
    startService();
    loadIt();
    steady_clock::duration longest{};
    for (int i = 0; i < kMessages; ++i) {
        const auto start = steady_clock::now();
        log({"message"});
        longest = std::max(longest, steady_clock::now() - start);
    }
    EXPECT_LT(longest, std::chrono::seconds(10));
    service().read();
    EXPECT_TRUE(getsThrough("awake"));
    EXPECT_TRUE(arrives("messages lost: "));
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(TargetContractOfFiles);
INSTANTIATE_TEST_SUITE_P(Each, TargetContractOfFiles, testing::ValuesIn(contractTargetsWith("{file}")), nameOfTarget);

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(TargetContractOfServices);
INSTANTIATE_TEST_SUITE_P(Each, TargetContractOfServices, testing::ValuesIn(contractTargetsWith("{socket}")),
                         nameOfTarget);
