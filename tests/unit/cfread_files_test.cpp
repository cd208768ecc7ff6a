// Files that are no configuration: none of them holds up the reader.
#include "cfread_support.hpp"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr off_t kGibibyte = 1024L * 1024L * 1024L;

class CfreadFiles : public CfreadReportFixture {
protected:
    ~CfreadFiles() override {
        if (m_descriptor != -1) {
            close(m_descriptor);
        }
    }

    // Kept open until the test is over.
    void keepOpen(int descriptor) {
        ASSERT_NE(descriptor, -1);
        m_descriptor = descriptor;
    }

    // Expects both modes to fail on the file with this message, before they have seen an entry.
    void expectRefused(const std::string& fileName, const std::string& message) {
        CfreadEntries entries;
        EXPECT_EQ(cfread_parse_with_callback(fileName.c_str(), collectEntry, &entries, 1), -1);
        EXPECT_THAT(entries, IsEmpty());
        expectErrors({message});
        EXPECT_EQ(cfread_open(fileName.c_str()), nullptr);
        expectErrors({message});
    }

    void expectUnopened(const std::string& fileName) { expectRefused(fileName, "cfread: unable to open " + fileName); }

    void expectNotTerminated(int line) {
        expectRefused(path(), "cfread: non-terminated entry in " + path() + " at line " + std::to_string(line));
    }

    // Root reads everything otherwise.
    static void giveUpCapabilities() {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct none[2] = {};
        ASSERT_EQ(syscall(SYS_capset, &header, none), 0);
    }

private:
    int m_descriptor = -1;
};

// A terminal, which the private system has no name for, with an entry typed in.
class Terminal {
public:
    Terminal() : m_master(posix_openpt(O_RDWR | O_NOCTTY)) {
        grantpt(m_master);
        unlockpt(m_master);
        std::array<char, 64> name{};
        ptsname_r(m_master, name.data(), name.size());
        m_line = open(name.data(), O_RDWR | O_NOCTTY);
        EXPECT_EQ(::write(m_master, "k=v\n", 4), 4);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() {
        close(m_line);
        close(m_master);
    }

    int line() const { return m_line; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(m_line); }

private:
    int m_master;
    int m_line = -1;
};

class CfreadTerminal : public Terminal, public CfreadFiles {
protected:
    using Terminal::path;
};

} // namespace

TEST_F(CfreadFiles, AFifoWithoutAWriterIsRefusedAtOnce) {
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    expectUnopened(path());
}

TEST_F(CfreadFiles, AFifoThatHoldsAnEntryIsRefusedAndNotRead) {
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    const int fifo = open(path().c_str(), O_RDWR);
    keepOpen(fifo);
    ASSERT_EQ(::write(fifo, "k=v\n", 4), 4);
    expectUnopened(path());
    char text[4] = "";
    EXPECT_EQ(::read(fifo, text, 4), 4);
    EXPECT_EQ(std::memcmp(text, "k=v\n", 4), 0);
}

TEST_F(CfreadFiles, ASocketIsRefused) {
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    keepOpen(listener);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path().size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, path().c_str());
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    expectUnopened(path());
}

TEST_F(CfreadTerminal, IsRefusedEvenWhenALineIsWaiting) {
    expectUnopened(path());
}

TEST_F(CfreadTerminal, DoesNotBecomeTheControllingOneOfADaemon) {
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        cfread_parse_with_callback(path().c_str(), collectEntry, nullptr, 1);
        _exit(tcgetsid(line()) == -1 && errno == ENOTTY ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(CfreadFiles, TheNullDeviceReadsAsEmpty) {
    CfreadEntries entries;
    EXPECT_EQ(cfread_parse_with_callback("/dev/null", collectEntry, &entries, 1), 0);
    EXPECT_THAT(entries, IsEmpty());
    const CfreadTable table(cfread_open("/dev/null"));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->count, 0);
    expectErrors({});
}

TEST_F(CfreadFiles, ALinkToTheNullDeviceReadsAsEmpty) {
    std::filesystem::create_symlink("/dev/null", path());
    EXPECT_EQ(cfread_parse_with_callback(path().c_str(), collectEntry, nullptr, 1), 0);
    expectErrors({});
}

TEST_F(CfreadFiles, OtherDevicesAreRefused) {
    for (const char* const device : {"/dev/zero", "/dev/full", "/dev/random", "/dev/urandom"}) {
        expectUnopened(device);
    }
}

TEST_F(CfreadFiles, ALinkToADeviceIsRefused) {
    std::filesystem::create_symlink("/dev/zero", path());
    expectUnopened(path());
}

TEST_F(CfreadFiles, ADirectoryIsReportedAsAFileThatCannotBeOpened) {
    expectUnopened(std::filesystem::path(path()).parent_path());
}

TEST_F(CfreadFiles, ALinkThatLeadsToItselfIsReported) {
    std::filesystem::create_symlink(path(), path());
    expectUnopened(path());
}

TEST_F(CfreadFiles, AFileThatMustNotBeReadIsReported) {
    write("k=v\n");
    ASSERT_EQ(chmod(path().c_str(), 0), 0);
    giveUpCapabilities();
    expectUnopened(path());
}

TEST_F(CfreadFiles, ARegularFileIsReadThroughALink) {
    write("k=v\n");
    const std::string link = path() + ".link";
    std::filesystem::create_symlink(path(), link);
    CfreadEntries entries;
    EXPECT_EQ(cfread_parse_with_callback(link.c_str(), collectEntry, &entries, 0), 0);
    EXPECT_THAT(entries, ElementsAre(Pair("k", "v")));
}

TEST_F(CfreadFiles, AGibibyteOfZeroBytesEndsAtItsFirstLine) {
    write("");
    ASSERT_EQ(truncate(path().c_str(), kGibibyte), 0);
    expectNotTerminated(1);
}

TEST_F(CfreadFiles, AGibibyteOfZeroBytesBehindACommentEndsSoon) {
    write("# comment");
    ASSERT_EQ(truncate(path().c_str(), kGibibyte), 0);
    expectNotTerminated(2);
}

TEST_F(CfreadFiles, AFileThatWasFilledWithZeroBytesAtAPowerFailureIsReported) {
    write(std::string(4096, '\0'));
    expectNotTerminated(1);
}

TEST_F(CfreadFiles, AFileThatWasCutInALineGivesWhatCameBeforeAndIsReported) {
    const CfreadResult result = parse("first=1\nsecond=2\nthi");
    EXPECT_EQ(result.rc, -1);
    EXPECT_THAT(result.entries, ElementsAre(Pair("first", "1"), Pair("second", "2")));
    expectErrors({"cfread: non-terminated entry in " + path() + " at line 3"});
}

TEST_F(CfreadFiles, AProgramIsReported) {
    std::ofstream(path(), std::ios::binary) << std::ifstream("/proc/self/exe", std::ios::binary).rdbuf();
    expectNotTerminated(1);
}

TEST_F(CfreadFiles, TextOfTwoBytesACharacterIsReported) {
    write(std::string("\xff\xfek\0=\0v\0\n\0", 10));
    expectNotTerminated(1);
}
