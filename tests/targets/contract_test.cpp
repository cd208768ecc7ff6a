// What every log target has to do, and to leave alone. An author runs it on a target of his own: see
// contract_targets.hpp.
#include "child_process.hpp"
#include "contract_fixture.hpp"
#include "replaced_new.hpp"

#include <gmock/gmock.h>

#include <fstream>
#include <malloc.h>
#include <sstream>
#include <thread>
#include <vector>

using testing::HasSubstr;
using testing::UnorderedElementsAre;

namespace {

constexpr int kRounds = 100;

class TargetContract : public ContractFixture {
protected:
    // Loads the target, logs, unloads it.
    void round() {
        loadIt();
        EXPECT_TRUE(isLibraryOpen(GetParam().library));
        logMany(SORREL_TEST_ROUND_MESSAGES);
        unload();
    }

    static std::vector<std::string> exportedNames() {
        std::istringstream symbols(outputOf("readelf --dyn-syms --wide " + GetParam().library));
        std::vector<std::string> names;
        for (std::string line; std::getline(symbols, line);) {
            std::istringstream words(line);
            std::string number, value, size, type, binding, visibility, section, name;
            words >> number >> value >> size >> type >> binding >> visibility >> section >> name;
            if (binding == "GLOBAL" || binding == "WEAK" || binding == "UNIQUE") {
                names.insert(names.end(), section == "UND" ? 0 : 1, name);
            }
        }
        return names;
    }

    // The diagnostics of the target itself that hold both texts.
    int refusals(const std::string& first, const std::string& second) {
        int count = 0;
        for (const std::string& text : diagnostics().texts()) {
            const bool isOwn = text.rfind(GetParam().name + "-target: ", 0) == 0;
            const bool holdsBoth = text.find(first) != std::string::npos && text.find(second) != std::string::npos;
            count += isOwn && holdsBoth ? 1 : 0;
        }
        return count;
    }

    void expectRefused(const std::string& parameter, const std::string& value) {
        const int others = refusals("", "");
        loadIt(", " + parameter + "=" + value);
        EXPECT_EQ(refusals("\"" + parameter + "\"", "\"" + value + "\""), 1);
        EXPECT_EQ(refusals("", ""), others + 1);
        EXPECT_TRUE(diagnostics().has("logtarget-container: Unable to create LogTarget from lib \"" +
                                      GetParam().library + "\""));
        EXPECT_FALSE(isLibraryOpen(GetParam().library));
    }
};

} // namespace

TEST_P(TargetContract, AfterAHundredRoundsNothingIsLeftOpen) {
    round();
    const auto descriptors = openDescriptors();
    const auto threads = threadIds();
    for (int i = 0; i < kRounds; ++i) {
        round();
        ASSERT_FALSE(isMapped());
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(threadIds(), threads);
}

TEST_P(TargetContract, AfterAHundredRoundsMemoryIsWhereItWas) {
    if (SORREL_TEST_SANITIZED) {
        GTEST_SKIP() << "the heap of a sanitizer keeps other accounts: memory is not counted here";
    }
    const auto memoryAfter = [this](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            round();
            diagnostics().sync();
            diagnostics().clear();
        }
        return mallinfo2().uordblks;
    };
    // What the allocator keeps for each thread varies; what is lost in each round is lost in every hundred of them.
    constexpr std::size_t kSmallestBlock = 16;
    std::size_t before = 0;
    std::size_t after = memoryAfter(10);
    for (int i = 0; i < 5 && after >= before + kRounds * kSmallestBlock; ++i) {
        before = after;
        after = memoryAfter(kRounds);
    }
    EXPECT_LT(after, before + kRounds * kSmallestBlock);
}

TEST_P(TargetContract, AnEmptyALongAndABrokenTextLeaveTheNextOneWhole) {
    loadIt();
    const std::string longest(2047, 'x');
    log({""});
    log({longest});
    log({"\xff\xfe broken \xc3"});
    log({std::string("\0\x01\x1b[2J\r\n\"\\", 9)});
    log({"last", 0, 6, "\xff\n", "\xff\n", "\xff\n"});
    log({"next"});
    EXPECT_TRUE(arrives(longest));
    EXPECT_TRUE(arrives("last"));
    EXPECT_TRUE(arrives("next"));
}

TEST_P(TargetContract, DepthsAndLevelsMayBeAnyNumber) {
    loadIt();
    for (const int depth : {-1, -1000, 1000}) {
        for (const int numeric : {-1, 0, 8, 9, 31, 4711}) {
            log({"entering", depth, numeric});
            log({"leaving", depth, numeric});
        }
    }
    EXPECT_TRUE(getsThrough("next"));
}

TEST_P(TargetContract, TwoInstancesWorkSideBySide) {
    const std::filesystem::path library = GetParam().library;
    const std::string again = (library.parent_path() / "." / library.filename()).string();
    const std::string one = "target=" + targetLine() + "\n";
    const std::string other = "target=" + targetLine(again, "other") + "\n";
    configureTargets(one + other);
    log({"both"});
    EXPECT_TRUE(arrives("both", 2));
    configureTargets(other);
    log({"one of them"});
    EXPECT_TRUE(arrives("one of them"));
    EXPECT_EQ(countOf("one of them"), 1);
    configureTargets(one + other);
    log({"both again"});
    EXPECT_TRUE(arrives("both again", 2));
    unload();
    EXPECT_FALSE(isMapped());
}

TEST_P(TargetContract, BothSidesOfAForkGoOn) {
    loadIt();
    log({"before"});
    const pid_t child = startChild([this] {
        log({"the child"});
        unload();
        return true;
    });
    log({"the parent"});
    EXPECT_EQ(endOfChild(child), kChildPassed);
    log({"after the child"});
    EXPECT_TRUE(arrives("the child"));
    EXPECT_TRUE(arrives("the parent"));
    EXPECT_TRUE(arrives("after the child"));
    EXPECT_EQ(countOf("the parent"), 1);
}

TEST_P(TargetContract, TheApplicationMayBeRenamed) {
    loadIt();
    for (const std::string name : {"station", "", "\xff\n\"\\"}) {
        container().setAppname(name);
        log({"named " + name});
    }
    log({"next"});
    EXPECT_TRUE(arrives("named station"));
    EXPECT_TRUE(arrives("next"));
}

TEST_P(TargetContract, ParametersThatAllShareChooseMessages) {
    loadIt(", levels=err, components=net;ui*");
    log({"grave", 0, 3});
    log({"harmless", 0, 6});
    log({"foreign", 0, 3, "", "door"});
    log({"next", 0, 3, "", "uiw"});
    EXPECT_TRUE(arrives("next"));
    EXPECT_EQ(countOf("grave"), 1);
    EXPECT_EQ(countOf("harmless"), 0);
    EXPECT_EQ(countOf("foreign"), 0);
}

TEST_P(TargetContract, AParameterThatDoesNotExistRefusesIt) {
    expectRefused("flie", "twice");
}

TEST_P(TargetContract, AParameterThatIsWrongRefusesIt) {
    expectRefused("levels", "eror");
}

TEST_P(TargetContract, ARefusedOneMakesAndMovesNothing) {
    const auto nothing = writtenFiles();
    loadIt(", flie=twice");
    EXPECT_EQ(writtenFiles(), nothing);
    round();
    const auto good = writtenFiles();
    loadIt(", flie=twice");
    EXPECT_EQ(writtenFiles(), good);
}

TEST_P(TargetContract, EightThreadsMayLog) {
    loadIt();
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this, i] {
            for (int k = 0; k < kMessages / 2; ++k) {
                log({"of eight", 0, 6, "", "net", "thread " + std::to_string(i)});
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const bool mayLose = GetParam().has("{socket}") || GetParam().has("{ring}"); // where no more is taken for now
    EXPECT_TRUE(arrives("of eight", mayLose ? 1 : 4 * kMessages));
    EXPECT_LE(countOf("of eight"), 4 * kMessages);
    EXPECT_TRUE(getsThrough("next"));
}

TEST_P(TargetContract, AWarmTargetAllocatesNothing) {
    if (!replacedNew::kActive) {
        GTEST_SKIP() << "operator new is the sanitizer's: allocations cannot be counted";
    }
    loadIt();
    sorrel_level level = {6, 0x40};
    const std::string thread = "a thread with a long name", component = "a component with a long name";
    const std::string function = "a function with a long name", text(200, 'x');
    const auto logHundred = [&] {
        for (int i = 0; i < 100; ++i) {
            container().log(getpid(), i % 3, 1709211845 + i / 10, i, &level, thread, component, function, text);
        }
    };
    logHundred();
    diagnostics().sync(); // its thread is idle now
    const long before = replacedNew::count;
    logHundred();
    EXPECT_EQ(replacedNew::count, before);
}

TEST_P(TargetContract, NothingIsExportedButTheContract) {
    EXPECT_THAT(exportedNames(), UnorderedElementsAre("dynamic_module_done", "dynamic_module_init", "getClassFactory"));
}

TEST_P(TargetContract, MissingFunctionsAreFoundWhenItIsLoaded) {
    EXPECT_THAT(outputOf("readelf --dynamic --wide " + GetParam().library), HasSubstr("NOW"));
}

#ifdef SORREL_TEST_STRIP // in a release build
TEST_P(TargetContract, ItIsSmall) {
    const std::string stripped = files().file("stripped.so");
    outputOf(std::string(SORREL_TEST_STRIP) + " -o " + stripped + " " + GetParam().library);
    EXPECT_LT(std::filesystem::file_size(stripped), 120U * 1024U);
}
#endif

INSTANTIATE_TEST_SUITE_P(Each, TargetContract, testing::ValuesIn(contractTargets()), nameOfTarget);
