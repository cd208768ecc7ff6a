// What every target that writes lines keeps to: it costs no memory, and leaves nothing behind.
#include "line_target_fixture.hpp"
#include "proc_self.hpp"
#include "replaced_new.hpp"
#include "standard_streams.hpp"

#include <algorithm>
#include <fstream>
#include <thread>

namespace {

class LineTargets : public LineTargetFixture {
protected:
    // Every one of them. What the console shows goes into a pipe.
    std::vector<std::string> all() {
        return {targetPath("console") + ",stream=stderr",
                targetPath("console") + ",stream=stderr,time=relative,colour=always",
                fileTarget(),
                fileTarget("flush=err"),
                fileTarget("format=json"),
                fileTarget("max_size=2k,max_files=3")};
    }

    void sayAll(int count) {
        for (int i = 0; i < count; ++i) {
            m_pipe.read();
            log({"a text that has\tto be\nmade safe \xff", i % 4, i % 9, "function", "net", "main",
                 kLeapDay + i / 100});
        }
    }

    static std::string libraryOf(const std::string& target) { return target.substr(0, target.find(',')); }

    static bool isMapped(const std::string& library) {
        std::ifstream maps("/proc/self/maps");
        const std::string name = library.substr(library.rfind('/') + 1);
        for (std::string line; std::getline(maps, line);) {
            if (line.find(name) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    Pipe m_pipe;
    const Redirected m_redirected{STDERR_FILENO, m_pipe.input()};
};

} // namespace

TEST_F(LineTargets, AWarmMessageAllocatesNothing) {
    if (!replacedNew::kActive) {
        GTEST_SKIP() << "the sanitizer has an operator new of its own";
    }
    for (const std::string& target : all()) {
        load(target);
        sayAll(10);
        const std::string text(2047, '\x01');
        const std::string none;
        sorrel_level level = {6, 0x40};
        const auto sayMany = [&] {
            for (int i = 0; i < 3; ++i) { // which a pipe has room for
                container().log(getpid(), 1, kLeapDay, i, &level, "main", "net", none, text);
            }
        };
        // what has been reported while it was loaded may still be on its way to the recorder of this test
        EXPECT_TRUE(waitUntil([&] {
            m_pipe.read();
            const long before = replacedNew::count;
            sayMany();
            return replacedNew::count == before;
        })) << target;
        unload();
    }
}

TEST_F(LineTargets, AHundredRoundsLeaveNothingBehind) {
    for (const std::string& target : all()) {
        load(target);
        unload();
        const std::map<int, std::string> descriptors = openDescriptors();
        const std::set<int> threads = threadIds();
        for (int round = 0; round < 100; ++round) {
            load(target);
            EXPECT_TRUE(isLibraryOpen(libraryOf(target)));
            sayAll(10);
            unload();
            ASSERT_FALSE(isLibraryOpen(libraryOf(target))) << target;
        }
        EXPECT_FALSE(isMapped(libraryOf(target))) << target;
        EXPECT_EQ(openDescriptors(), descriptors) << target;
        EXPECT_EQ(threadIds(), threads) << target;
    }
}

TEST_F(LineTargets, EightThreadsWriteWholeLines) {
    constexpr int kEach = 500;
    load(fileTarget() + "\ntarget=" + targetPath("console") + ",stream=stderr");
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this] {
            for (int number = 0; number < kEach; ++number) {
                log({"text"});
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> lines = linesOf(textOf("app.log"));
    EXPECT_EQ(lines.size(), 8U * kEach);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "2024-02-29 13:04:05.000042 INFO   net      main       text"),
              8 * kEach);
}
