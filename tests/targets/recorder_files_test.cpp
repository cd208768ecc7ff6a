// The files of the recorder: their names, which are made, which stay, which are refused.
#include "child_process.hpp"
#include "proc_self.hpp"
#include "ring_fixture.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

bool hasRandomNumbers = true;

} // namespace

// The kernel's, which has none to give early at boot.
extern "C" ssize_t getrandom(void* buffer, std::size_t size, unsigned int flags) {
    if (!hasRandomNumbers) {
        errno = EAGAIN;
        return -1;
    }
    return syscall(SYS_getrandom, buffer, size, flags);
}

namespace {

class RecorderFiles : public RingFixture {
protected:
    RecorderFiles() { std::filesystem::create_directory(path("rings")); }

    static std::vector<std::string> namesIn(const std::string& directory) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    std::vector<std::string> rings() { return namesIn(path("rings")); }

    static bool isLoaded() { return isLibraryOpen(library()); }

    // Whether the target is refused with this text, and leaves no file.
    testing::AssertionResult isRefused(const std::string& parameters, const std::string& why) {
        const Container container = open(parameters);
        if (isLoaded()) {
            return testing::AssertionFailure() << "accepted";
        }
        for (const std::string& text : diagnostics().texts()) {
            if (text.find(why) != std::string::npos) {
                return testing::AssertionSuccess();
            }
        }
        return testing::AssertionFailure() << testing::PrintToString(diagnostics().texts());
    }
};

} // namespace

TEST_F(RecorderFiles, WithoutParametersTheRingLiesInRun) {
    const std::string program = program_invocation_short_name;
    const std::string number = std::to_string(getpid());
    open("").reset();
    EXPECT_THAT(namesIn("/run/sorrel"), ElementsAre(program + "-" + number + ".ring"));
    EXPECT_EQ(std::filesystem::file_size("/run/sorrel/" + program + "-" + number + ".ring"), 1024U * 1024);
}

TEST_F(RecorderFiles, TheNameHoldsProcessAndApplication) {
    const Container container = open("file=" + path("rings") + "/100%%-%a-%p,size=64k", "player");
    EXPECT_THAT(rings(), ElementsAre("100%-player-" + std::to_string(getpid())));
}

TEST_F(RecorderFiles, AnApplicationNameStaysInTheDirectory) {
    const Container container = open("file=" + path("rings") +
                                     "/%a,size=64k,application-name=../../etc/\x1b"
                                     "passwd");
    EXPECT_THAT(rings(), ElementsAre("_._.._etc__passwd"));
}

TEST_F(RecorderFiles, OthersCannotReadTheRing) {
    umask(0);
    const Container container = openSmall("rings/ring");
    struct stat status = {};
    ASSERT_EQ(stat(path("rings/ring").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(status.st_size, 64 * 1024);
    EXPECT_GE(status.st_blocks * 512, 64 * 1024) << "not all of it has room on the disk";
}

TEST_F(RecorderFiles, SeedsDifferWithoutRandomNumbersToo) {
    constexpr std::size_t kSeedAt = 40;
    hasRandomNumbers = false;
    std::set<std::string> seeds{std::string(4, '\0')};
    for (const char* const ring : {"rings/one", "rings/other", "rings/third"}) {
        openSmall(ring).reset();
        seeds.insert(files().read(ring).substr(kSeedAt, 4));
    }
    EXPECT_EQ(seeds.size(), 4U);
}

TEST_F(RecorderFiles, SizesHaveUnits) {
    for (const auto& [size, bytes] : std::vector<std::pair<std::string, std::uintmax_t>>{
             {"64k", 65536}, {"65k", 69632}, {"65537", 69632}, {"2M", 2097152}}) {
        open("file=" + path("ring" + size) + ",size=" + size).reset();
        EXPECT_EQ(std::filesystem::file_size(path("ring" + size)), bytes) << size;
    }
}

TEST_F(RecorderFiles, WrongParametersAreRefused) {
    const std::string file = "file=" + path("rings/ring");
    for (const std::string size : {"63k", "0", "-1", "2G", "1025M", "4kk", "k", "99999999999999999999", "65535"}) {
        EXPECT_TRUE(isRefused(file + ",size=" + size, "recorder-target: parameter \"size\": \"" + size +
                                                          "\" is not a number of bytes from 65536 to 1073741824"));
    }
    EXPECT_TRUE(isRefused(file + ",keep=x", "parameter \"keep\": \"x\" is not a number from 0 to 1000"));
    EXPECT_TRUE(isRefused("file=" + path("rings") + "/%x", "/%x\" holds a % that is none of %p, %a and %%"));
    EXPECT_TRUE(isRefused("file=" + path("rings") + "/%", "/%\" holds a % that is none of %p, %a and %%"));
    EXPECT_TRUE(isRefused(file + ",flie=x", "parameter \"flie\": \"x\" is given to a parameter that does not exist"));
    EXPECT_THAT(rings(), IsEmpty());
}

TEST_F(RecorderFiles, APatternByWhichOldRingsAreNotFoundIsRefused) {
    for (const std::string name : {"rings/r-%p0.ring", "rings/%p%a", "rings/%p%p", "%p/ring", "d%p/r-%p"}) {
        EXPECT_TRUE(isRefused("file=" + path(name) + ",size=64k",
                              "recorder-target: parameter \"file\": \"" + path(name) +
                                  "\" has a %p where old rings are not found: before the last / or in front of a "
                                  "digit, %a or %p"))
            << name;
    }
    EXPECT_THAT(rings(), IsEmpty());
    for (const std::string name : {"0%p", "%a%p.0", "%p%%", "%p-%p", "%p.%p"}) {
        open("file=" + path("rings/" + name) + ",size=64k").reset();
        EXPECT_THAT(rings(), testing::SizeIs(1)) << name;
        open("file=" + path("rings/" + name) + ",size=64k,keep=0").reset();
        EXPECT_THAT(rings(), testing::SizeIs(1)) << name;
        std::filesystem::remove_all(path("rings"));
    }
}

TEST_F(RecorderFiles, AFullFileSystemIsRefusedAndStaysAsItWas) {
    ASSERT_EQ(mount("sorrel-test", path("rings").c_str(), "tmpfs", 0, "size=256k"), 0) << strerror(errno);
    EXPECT_TRUE(isRefused("file=" + path("rings/ring") + ",size=1M",
                          "gives no ring: " + path("rings/ring") + " does not get its room: No space left on device"));
    EXPECT_THAT(rings(), IsEmpty());
    umount(path("rings").c_str());
}

TEST_F(RecorderFiles, ADiskThatFillsUpLaterEndsNobody) {
    ASSERT_EQ(mount("sorrel-test", path("rings").c_str(), "tmpfs", 0, "size=256k"), 0) << strerror(errno);
    Container container = openSmall("rings/ring");
    const std::string rest(512 * 1024, 'x');
    files().write("rings/other", ""); // and then as much as there is room for
    const int fd = ::open(path("rings/other").c_str(), O_WRONLY | O_CLOEXEC);
    const ssize_t written = ::write(fd, rest.data(), rest.size());
    EXPECT_LT(written, static_cast<ssize_t>(rest.size()));
    close(fd);
    for (std::uint64_t i = 1; i <= 1000; ++i) {
        log(*container, numbered(i));
    }
    EXPECT_TRUE(areNumbered(read("rings/ring")));
    EXPECT_EQ(read("rings/ring").records.back().sequence, 1000U);
    container.reset();
    umount(path("rings").c_str());
}

TEST_F(RecorderFiles, ALinkIsRefused) {
    files().write("victim", "text");
    std::filesystem::create_symlink(path("victim"), path("rings/ring"));
    EXPECT_TRUE(isRefused("file=" + path("rings/ring") + ",size=64k", "rings/ring is a symbolic link: File exists"));
    EXPECT_EQ(files().read("victim"), "text");
    std::filesystem::create_symlink(path("missing"), path("dangling"));
    EXPECT_TRUE(isRefused("file=" + path("dangling") + ",size=64k", "dangling is a symbolic link: File exists"));
    EXPECT_FALSE(std::filesystem::exists(path("missing")));
}

TEST_F(RecorderFiles, WhatIsNoFileIsRefused) {
    EXPECT_TRUE(isRefused("file=" + path("rings") + ",size=64k", "rings is no file: File exists"));
    EXPECT_TRUE(
        isRefused("file=" + path("no/such/ring") + ",size=64k", "cannot be created: No such file or directory"));
}

TEST_F(RecorderFiles, ASecondInstanceTakesTheNextName) {
    std::filesystem::copy_file(library(), path("copy.so"));
    const std::string file = ", file=" + path("rings/ring") + ", size=64k, keep=0\n";
    configure("target=" + library() + file + "target=" + path("copy.so") + file);
    sorrel::CLogTargetContainer container(directory(), false, nullptr);
    container.onCfgUpdate();
    log(container, "to both");
    EXPECT_THAT(rings(), UnorderedElementsAre("ring", "ring.1"));
    EXPECT_EQ(read("rings/ring").records.front().text, "to both");
    EXPECT_EQ(read("rings/ring.1").records.front().text, "to both");
}

TEST_F(RecorderFiles, TheRingsThatWereMadeLastAreKept) {
    for (int i = 0; i < 5; ++i) {
        const Container container = open("file=" + path("rings/ring") + ",size=64k,keep=2");
        log(*container, std::to_string(i));
        EXPECT_LE(rings().size(), 3U);
    }
    std::set<std::string> texts;
    for (const std::string& name : rings()) {
        texts.insert(std::string(read("rings/" + name).records.front().text));
    }
    EXPECT_THAT(texts, ElementsAre("2", "3", "4"));
}

TEST_F(RecorderFiles, NothingButOldRingsOfThePatternIsRemoved) {
    openSmall("rings/app-7.ring").reset();
    openSmall("rings/app-x.ring").reset();
    openSmall("rings/app-7.ring.bak").reset();
    openSmall("rings/other-7.ring").reset();
    openSmall("rings/app-8.ring.3").reset();
    files().write("rings/app-9.ring", "no ring");
    const Container container = open("file=" + path("rings") + "/app-%p.ring,size=64k,keep=0");
    EXPECT_THAT(rings(), UnorderedElementsAre("app-x.ring", "app-7.ring.bak", "other-7.ring", "app-9.ring",
                                              "app-" + std::to_string(getpid()) + ".ring"));
}

TEST_F(RecorderFiles, TheRingsOfOthersNeitherCountNorGo) {
    openSmall("rings/app-7.ring").reset();
    openSmall("rings/app-8.ring").reset(); // newer
    if (chown(path("rings/app-8.ring").c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root may give files away";
    }
    open("file=" + path("rings") + "/app-%p.ring,size=64k,keep=1").reset();
    EXPECT_THAT(rings(), testing::IsSupersetOf({"app-7.ring", "app-8.ring"}));
    const Container container = open("file=" + path("rings") + "/app-%p.ring,size=64k,keep=0");
    EXPECT_THAT(rings(), UnorderedElementsAre("app-8.ring", "app-" + std::to_string(getpid()) + ".ring"));
}

TEST_F(RecorderFiles, TheRingOfARunningProcessStays) {
    int ready[2] = {};
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t other = startChild([&]() -> bool {
        const Container container = openSmall("rings/app-%p.ring");
        log(*container, "running");
        const bool isTold = ::write(ready[1], "x", 1) == 1;
        pause();
        return isTold;
    });
    char told = 0;
    ASSERT_EQ(::read(ready[0], &told, 1), 1);
    const std::string othersRing = "app-" + std::to_string(other) + ".ring";
    const std::string pattern = "file=" + path("rings") + "/app-%p.ring,size=64k,keep=0";
    open(pattern).reset();
    EXPECT_THAT(rings(), testing::Contains(othersRing));
    kill(other, SIGKILL);
    EXPECT_EQ(endOfChild(other), -SIGKILL);
    const Container container = open(pattern);
    EXPECT_THAT(rings(), testing::Not(testing::Contains(othersRing)));
    close(ready[0]);
    close(ready[1]);
}

TEST_F(RecorderFiles, AHundredRoundsLeaveNothingBehind) {
    std::thread([] {}).join();
    open("file=" + path("rings/ring") + ",size=64k,keep=0").reset();
    const auto descriptors = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        const Container container = open("file=" + path("rings/ring") + ",size=64k,keep=0");
        ASSERT_TRUE(isLoaded());
        for (std::uint64_t k = 1; k <= 1000; ++k) {
            log(*container, numbered(k));
        }
        configure("component=net, 1\n");
        container->onCfgUpdate();
        ASSERT_FALSE(isLoaded());
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_THAT(rings(), ElementsAre("ring"));
}
