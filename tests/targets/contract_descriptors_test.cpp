// What log targets have to leave alone: descriptors that were theirs, before the process closed them all and used their
// numbers for something else.
#include "child_process.hpp"
#include "contract_fixture.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <vector>

namespace {

class TargetContractOfDescriptors : public ContractFixture {
protected:
    TargetContractOfDescriptors() {
        loadIt(); // what the process opens for good is open now
        log({"before"});
        unload();
        const auto others = openDescriptors();
        loadIt();
        log({"before"});
        for (const auto& descriptor : openDescriptors()) {
            if (others.count(descriptor.first) == 0) {
                m_held.push_back(descriptor.first);
            }
        }
    }

    ~TargetContractOfDescriptors() override {
        for (const int fd : {m_own, m_peer}) {
            close(fd);
        }
    }

    void SetUp() override {
        if (m_held.empty()) {
            GTEST_SKIP() << "the target holds no descriptor";
        }
    }

    void makeFile() { m_own = open(files().file("own").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); }

    void makeSocket() {
        int pair[2] = {-1, -1};
        socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair);
        m_own = pair[0];
        m_peer = pair[1];
    }

    // The file or the socket takes the places of the target's descriptors. Returns whether it still has them at the
    // end of the target.
    bool keepsThePlaces(const std::string& text) {
        for (const int fd : m_held) {
            dup2(m_own, fd);
        }
        constexpr int kLater = 2; // seconds, since a target may look once in a second
        for (int i = 0; i < 2; ++i) {
            log({text, 0, 6, "", "net", "main", kLeapDay + kLater});
        }
        unload();
        bool isKept = true;
        for (const int fd : m_held) {
            isKept = isKept && isOwn(fd);
            close(fd);
        }
        return isKept;
    }

    bool isFileEmpty() { return files().read("own").empty(); }

    bool isNothingReceived() const {
        char byte = 0;
        return recv(m_peer, &byte, 1, MSG_DONTWAIT) == -1 && errno == EAGAIN;
    }

private:
    bool isOwn(int fd) const {
        struct stat there = {};
        struct stat own = {};
        return fstat(fd, &there) == 0 && fstat(m_own, &own) == 0 && there.st_dev == own.st_dev &&
               there.st_ino == own.st_ino;
    }

    std::vector<int> m_held; // by the target
    int m_own = -1;          // the application's
    int m_peer = -1;         // of m_own, when that is a socket
};

} // namespace

TEST_P(TargetContractOfDescriptors, AFileInTheirPlaceStaysAsItIs) {
    makeFile();
    EXPECT_TRUE(keepsThePlaces("afterwards"));
    EXPECT_TRUE(isFileEmpty());
    EXPECT_TRUE(arrives("afterwards"));
}

TEST_P(TargetContractOfDescriptors, ASocketInTheirPlaceGetsNothing) {
    makeSocket();
    EXPECT_TRUE(keepsThePlaces("afterwards"));
    EXPECT_TRUE(isNothingReceived());
    EXPECT_TRUE(arrives("afterwards"));
}

TEST_P(TargetContractOfDescriptors, AFileOfAForkChildStaysAsItIs) {
    makeFile();
    EXPECT_TRUE(passesInChild([this] { return keepsThePlaces("in the child"); }));
    EXPECT_TRUE(isFileEmpty());
    EXPECT_TRUE(arrives("in the child"));
    log({"in the parent"});
    EXPECT_TRUE(arrives("in the parent"));
}

TEST_P(TargetContractOfDescriptors, ASocketOfAForkChildGetsNothing) {
    makeSocket();
    EXPECT_TRUE(passesInChild([this] { return keepsThePlaces("in the child"); }));
    EXPECT_TRUE(isNothingReceived());
    EXPECT_TRUE(arrives("in the child"));
    log({"in the parent"});
    EXPECT_TRUE(arrives("in the parent"));
}

INSTANTIATE_TEST_SUITE_P(Each, TargetContractOfDescriptors, testing::ValuesIn(contractTargets()), nameOfTarget);
