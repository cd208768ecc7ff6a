// Calls that fail in the kernel, below libc: the start of a thread, and what libc does to open a library, to read a
// file, to get memory. Needs strace(1), and a machine on which it may trace.
#include "expected_messages.hpp"
#include "fault_run.hpp"
#include "temp_dir.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace messages;

namespace {

// The loader of libraries leaves errno alone: the text of the error may be any.
constexpr char kNoLibraryBegins[] = "Unable to open shared library \"{plugin}\" - error=";
constexpr char kNotLoadedBegins[] = "logtarget-container: Unable to load the logtarget-library \"{plugin}\" - errno=";

const Strings kOfBoth = {kNotOpened, kGivenUp, kNoLibraryBegins, kNotLoadedBegins};
const Strings kOfMaps = {kNoLibraryBegins, kNotLoadedBegins, kNoThreadResource};

// The one of the messages that begins like this, or "unexpected".
std::string asExpected(const std::string& message, const Strings& messages) {
    const auto found = std::find_if(messages.begin(), messages.end(), [&message](const std::string& beginning) {
        return message.rfind(beginning, 0) == 0;
    });
    return found != messages.end() ? *found : "unexpected";
}

// The calls that the main thread makes while a container is built. Later, where threads wait for each other, the calls
// have other numbers in each run.
class KernelFaults : public testing::Test {
protected:
    KernelFaults() { setenv("TMPDIR", m_directory.path().c_str(), 1); }

    // Lets each of these calls fail once. Only these messages come of it, each of them at some call.
    void failEachCall(const std::string& call, const std::vector<int>& errors, const Strings& messages) {
        const std::vector<int> numbers = callsInFirstStep(call);
        ASSERT_FALSE(numbers.empty()) << call
                                      << " is not called while a container is built, or strace may not trace here: "
                                      << m_said;
        std::set<std::string> seen;
        for (const int error : errors) {
            for (const int number : numbers) {
                failCall(call, error, number, messages, seen);
            }
        }
        for (const std::string& message : messages) {
            EXPECT_TRUE(seen.count(message) > 0) << "never reported: " << message;
        }
    }

private:
    void failCall(const std::string& call, int error, int number, const Strings& messages,
                  std::set<std::string>& seen) {
        const std::string which = call + ":error=" + strerrorname_np(error) + ":when=" + std::to_string(number);
        const FaultRun run = trace({"-e", "inject=" + which}, call);
        SCOPED_TRACE(which + ":\n" + run.all);
        EXPECT_TRUE(run.passed);
        EXPECT_EQ(run.end, 0);
        EXPECT_NE(m_directory.read("trace").find("(INJECTED)"), std::string::npos);
        for (const std::string& message : run.logged) {
            const std::string expected = asExpected(general(message, error), messages);
            EXPECT_NE(expected, "unexpected") << message;
            seen.insert(expected);
        }
        for (const std::string& exception : run.thrown) {
            EXPECT_EQ(exception.rfind("bad_alloc", 0), 0U) << "unexpected: " << exception;
        }
    }

    FaultRun trace(const Strings& options, const std::string& call) {
        Strings command = {"strace", "-o", m_directory.file("trace"), "-e", "trace=faccessat," + call};
        command.insert(command.end(), options.begin(), options.end());
        command.insert(command.end(), {SORREL_TEST_SCENARIO, "container", "traced", "0", "0"});
        return runCommand(command);
    }

    // Their numbers, counted from the start of the process.
    std::vector<int> callsInFirstStep(const std::string& call) {
        m_directory.write("trace", "");
        m_said = trace({}, call).all;
        std::istringstream lines(m_directory.read("trace"));
        std::vector<int> numbers;
        bool hasBegun = false;
        int number = 0;
        for (std::string line; std::getline(lines, line) && line.find("\"step ends") == std::string::npos;) {
            hasBegun = hasBegun || line.find("\"step begins") != std::string::npos;
            number += line.rfind(call + "(", 0) == 0 ? 1 : 0;
            if (hasBegun && line.rfind(call + "(", 0) == 0) {
                numbers.push_back(number);
            }
        }
        return numbers;
    }

    TempDir m_directory;
    std::string m_said; // by the run in which nothing fails
};

} // namespace

TEST_F(KernelFaults, AThreadThatCannotBeStartedIsReported) {
    failEachCall("clone3", {EAGAIN}, {kNoThread});
    failEachCall("clone3", {ENOMEM}, {kNoThreadResource});
}

TEST_F(KernelFaults, FilesAndLibrariesThatCannotBeOpenedAreReported) {
    failEachCall("openat", {EACCES, EMFILE, EIO}, kOfBoth);
}

TEST_F(KernelFaults, FilesAndLibrariesThatCannotBeReadAreReported) {
    failEachCall("read", {EIO}, kOfBoth);
}

TEST_F(KernelFaults, MemoryThatCannotBeMappedIsReported) {
    failEachCall("mmap", {ENOMEM}, kOfMaps);
    failEachCall("mprotect", {ENOMEM}, kOfMaps);
}
