// The socket of the targets that write to a service: what they do while it is slow, gone and back. Each case is run
// with all of them.
#include "child_process.hpp"
#include "datagram_service.hpp"
#include "loaded_target.hpp"
#include "plugin_path.hpp"
#include "proc_self.hpp"
#include "temp_dir.hpp"
#include "verbose_diagnostics.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::atomic<int> waits{0};
int lastTimeout = 0;

} // namespace

// Counts how often somebody waits for a socket.
extern "C" int poll(pollfd* descriptors, nfds_t count, int timeout) {
    ++waits;
    lastTimeout = timeout;
    const timespec time = {timeout / 1000, timeout % 1000 * 1000000L};
    return ppoll(descriptors, count, &time, nullptr);
}

namespace {

constexpr int kMostWaiting = 4000; // more datagrams than any kernel lets wait

class ServiceSocket : public DiagnosticFixture, public testing::WithParamInterface<const char*> {
protected:
    std::string library() const { return targetPath(GetParam()); }
    std::string socket() const { return "socket=" + m_directory.file("socket"); }

    void load(const std::string& parameters) {
        m_target = std::make_unique<LoadedTarget>(m_directory, library(), socket() + ", " + parameters);
    }
    void startService() { m_service = std::make_unique<DatagramService>(m_directory.file("socket")); }
    void say(const std::string& text) { m_target->say(text); }

    // Sends until the service takes no more. Returns how many it took.
    int fill() {
        const int before = waits;
        int count = 0;
        while (waits == before && count < kMostWaiting) {
            say("filling");
            ++count;
        }
        return count - 1;
    }

    // The descriptor of the target's socket, -1 when it has none.
    int socketDescriptor() const {
        for (const auto& descriptor : openDescriptors()) {
            struct sockaddr_un peer = {};
            socklen_t length = sizeof peer;
            if (getpeername(descriptor.first, reinterpret_cast<sockaddr*>(&peer), &length) == 0 &&
                m_directory.file("socket") == peer.sun_path) {
                return descriptor.first;
            }
        }
        return -1;
    }

    bool isMapped() const {
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);) {
            if (line.find(library()) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    TempDir m_directory;
    std::unique_ptr<DatagramService> m_service;
    std::unique_ptr<LoadedTarget> m_target;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Of, ServiceSocket, testing::Values("syslog", "journal"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(ServiceSocket, AServiceThatComesLaterIsFound) {
    load("wait=0");
    const std::size_t descriptors = openDescriptors().size();
    say("lost");
    say("lost");
    EXPECT_EQ(openDescriptors().size(), descriptors);
    startService();
    say("hello");
    EXPECT_THAT(m_service->sent(),
                ElementsAre(HasSubstr("2 messages lost: No such file or directory"), HasSubstr("hello")));
}

TEST_P(ServiceSocket, AServiceThatComesBackIsFoundAtOnce) {
    startService();
    load("wait=0");
    say("before");
    m_service.reset();
    startService();
    say("after");
    EXPECT_THAT(m_service->sent(), ElementsAre(HasSubstr("after")));
}

TEST_P(ServiceSocket, WhileAServiceIsGoneMessagesAreLost) {
    startService();
    load("wait=0");
    say("before");
    m_service.reset();
    say("lost");
    startService();
    say("after");
    EXPECT_THAT(m_service->sent(), ElementsAre(HasSubstr("1 message lost: Connection refused"), HasSubstr("after")));
}

TEST_P(ServiceSocket, AServiceThatIsFullIsWaitedForOnceUntilItReadsAgain) {
    startService();
    load("wait=20");
    const int taken = fill();
    EXPECT_EQ(waits, 1);
    EXPECT_EQ(lastTimeout, 20);
    say("lost");
    say("lost");
    EXPECT_EQ(waits, 1);
    EXPECT_EQ(m_service->sent().size(), static_cast<std::size_t>(taken));
    say("after");
    EXPECT_THAT(m_service->sent(),
                ElementsAre(HasSubstr("3 messages lost: Resource temporarily unavailable"), HasSubstr("after")));
    fill();
    EXPECT_EQ(waits, 2);
}

TEST_P(ServiceSocket, TenMillisecondsAreTheDefault) {
    startService();
    load("levels=all");
    fill();
    EXPECT_EQ(lastTimeout, 10);
}

TEST_P(ServiceSocket, NothingHangsThoughSomebodyHasMadeTheSocketBlocking) {
    startService();
    load("wait=10");
    say("hello");
    ASSERT_EQ(fcntl(socketDescriptor(), F_SETFL, 0), 0); // as a child may that shares it
    fill();
    say("lost");
    EXPECT_EQ(waits, 1);
}

TEST_P(ServiceSocket, WithoutWaitingLossesAreCountedAllTheSame) {
    startService();
    load("wait=0");
    for (int i = 0; i < kMostWaiting; ++i) {
        say("filling");
    }
    const std::size_t taken = m_service->sent().size();
    m_target->unload();
    EXPECT_TRUE(diagnostics().has(std::string(GetParam()) + "-target: " + std::to_string(taken) +
                                  " messages written, " + std::to_string(kMostWaiting - taken) + " dropped, 0 failed"));
}

TEST_P(ServiceSocket, AServiceThatReadsInTimeLosesNothing) {
    constexpr int kThreads = 8;
    constexpr int kMessages = 500;
    startService();
    load("wait=10000");
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([this] {
            for (int k = 0; k < kMessages; ++k) {
                say("hello");
            }
        });
    }
    int arrived = 0;
    for (; arrived < kThreads * kMessages; ++arrived) {
        EXPECT_THAT(m_service->next(), HasSubstr("hello"));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(m_service->sent(), IsEmpty());
}

TEST_P(ServiceSocket, ChildrenUseTheConnectionAndMakeTheirOwn) {
    startService();
    load("wait=0");
    say("parent");
    EXPECT_TRUE(passesInChild([this] {
        say("child");
        return true;
    }));
    EXPECT_THAT(m_service->sent(), ElementsAre(HasSubstr("parent"), HasSubstr("child")));
    m_service.reset();
    const std::unique_ptr<DatagramService> first = std::make_unique<DatagramService>(m_directory.file("socket"));
    EXPECT_TRUE(passesInChild([this] {
        say("child");
        return true;
    }));
    startService(); // at the same path: a connection that the child had made for both would still lead to the first
    say("parent");
    EXPECT_THAT(first->sent(), ElementsAre(HasSubstr("child")));
    EXPECT_THAT(m_service->sent(), ElementsAre(HasSubstr("parent")));
}

TEST_P(ServiceSocket, TheDescriptorIsClosedInOtherPrograms) {
    startService();
    load("wait=0");
    say("hello");
    ASSERT_NE(socketDescriptor(), -1);
    EXPECT_EQ(fcntl(socketDescriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(fcntl(socketDescriptor(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
}

TEST_P(ServiceSocket, ADescriptorThatTheProcessHasClosedIsReplaced) {
    startService();
    load("wait=0");
    say("hello");
    close(socketDescriptor());
    say("again");
    const int descriptor = socketDescriptor();
    ASSERT_NE(descriptor, -1);
    close(descriptor);
    const int file = open("/dev/null", O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(file, descriptor);
    say("and again");
    m_target->unload();
    EXPECT_NE(fcntl(file, F_GETFD), -1) << "the file was taken for the socket and closed";
    EXPECT_THAT(m_service->sent(), ElementsAre(HasSubstr("hello"), HasSubstr("again"), HasSubstr("and again")));
}

TEST_P(ServiceSocket, InstancesFromTwoPathsGetAlong) {
    startService();
    const std::string copy = m_directory.file("copy.so");
    std::filesystem::copy_file(library(), copy);
    m_target = std::make_unique<LoadedTarget>(
        m_directory, library(), socket() + ", ident=one\ntarget=" + copy + ", " + socket() + ", ident=two");
    say("hello");
    EXPECT_THAT(m_service->sent(), testing::UnorderedElementsAre(HasSubstr("one"), HasSubstr("two")));
    m_target->configure("target=" + copy + "\n");
    EXPECT_FALSE(isMapped());
    say("hello");
    EXPECT_THAT(m_service->sent(), ElementsAre(HasSubstr("two")));
}

TEST_P(ServiceSocket, NothingIsLeftOfTargetsThatAreUnloaded) {
    startService();
    m_target = std::make_unique<LoadedTarget>(m_directory, library(), socket());
    m_target->unload();
    const std::size_t descriptors = openDescriptors().size();
    const std::size_t threads = threadIds().size();
    for (int i = 0; i < 100; ++i) {
        m_target->configure("target=" + library() + ", " + socket() + "\n");
        say("hello");
        EXPECT_EQ(m_service->sent().size(), 1U);
        m_target->unload();
        ASSERT_FALSE(isMapped());
    }
    EXPECT_EQ(openDescriptors().size(), descriptors);
    EXPECT_EQ(threadIds().size(), threads);
}

TEST_P(ServiceSocket, BadParametersRefuseTheTarget) {
    const std::string longest = "/" + std::string(106, 'x');
    const std::string refused = std::string(GetParam()) + "-target: parameter ";
    for (const std::string& path : {std::string("socket"), longest + "x"}) {
        m_target = std::make_unique<LoadedTarget>(m_directory, library(), "socket=" + path);
        EXPECT_TRUE(
            diagnostics().has(refused + "\"socket\": \"" + path + "\" is no absolute path of at most 107 bytes"));
        EXPECT_FALSE(isMapped());
    }
    m_target = std::make_unique<LoadedTarget>(m_directory, library(), "socket=" + longest);
    EXPECT_TRUE(isMapped());
    m_target.reset();
    load("wait=60001");
    EXPECT_TRUE(diagnostics().has(refused + "\"wait\": \"60001\" is not a number from 0 to 60000"));
    m_directory.write("empty", "ident=\n");
    load("conf=" + m_directory.file("empty"));
    EXPECT_TRUE(diagnostics().has(refused + "\"ident\": \"\" is no name"));
}
