// The main function of every test program. A test may build the loggers, set variables that are read once, or end the
// process, so each one gets a process of its own: with one test selected, as under ctest, this process; with several,
// one new process each.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// A leak check asks for it, when there is one. In a forked child the stacks of the parent's other threads are nobody's,
// so what they hold would be taken for lost.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off();

namespace {

using Strings = std::vector<std::string>;

// Runs this program again with one test selected; tells whether the test passed.
bool passesAlone(Strings arguments, const std::string& testName) {
    arguments.push_back("--gtest_filter=" + testName); // the last filter is the one that counts
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    pid_t child = -1;
    if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, argv.data(), environ) != 0) {
        return false;
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

Strings selectedTests(const testing::UnitTest& program) {
    Strings names;
    for (int i = 0; i < program.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *program.GetTestSuite(i);
        for (int k = 0; k < suite.total_test_count(); ++k) {
            const testing::TestInfo& test = *suite.GetTestInfo(k);
            if (test.should_run()) {
                names.push_back(std::string(test.test_suite_name()) + "." + test.name());
            }
        }
    }
    return names;
}

// Takes over when more than one test is selected, and ends the program.
class Isolation : public testing::EmptyTestEventListener {
public:
    explicit Isolation(const Strings& arguments) : m_arguments(arguments) {}

    void OnTestProgramStart(const testing::UnitTest& program) override {
        if (program.test_to_run_count() <= 1) {
            return;
        }
        const Strings names = selectedTests(program);
        Strings failed;
        for (const std::string& name : names) {
            if (!passesAlone(m_arguments, name)) {
                failed.push_back(name);
            }
            if (!failed.empty() && GTEST_FLAG_GET(fail_fast)) {
                break;
            }
        }
        std::printf("\n%zu tests, each in a process of its own: %zu failed\n", names.size(), failed.size());
        for (const std::string& name : failed) {
            std::printf("  FAILED  %s\n", name.c_str());
        }
        std::exit(failed.empty() ? EXIT_SUCCESS : EXIT_FAILURE);
    }

private:
    Strings m_arguments;
};

const pid_t kTestProcess = getpid();

} // namespace

int __lsan_is_turned_off() {
    return getpid() != kTestProcess ? 1 : 0;
}

int main(int argc, char** argv) {
    const Strings arguments(argv, argv + argc);
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new Isolation(arguments));
    return RUN_ALL_TESTS();
}
