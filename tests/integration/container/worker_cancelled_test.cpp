// A target that ends the thread it is called on, which is the one that watches the file.
#include "container_fixture.hpp"
#include "proc_self.hpp"

#include <atomic>
#include <pthread.h>
#include <unistd.h>

namespace {

class WorkerCancelled : public ContainerFixture {};

} // namespace

TEST_F(WorkerCancelled, LeavesNoLockHeldAndTheContainerAtWork) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "for the sanitizer of undefined behaviour, the exception that ends a thread is a null reference";
#endif
    configure("");
    OpenContainer container(directory(), true);
    std::atomic<int> worker{0};
    journal::onEvent("init", [&worker](const PluginEvent&) {
        worker = gettid();
        pthread_exit(nullptr);
    });
    configure(targetLine("recording"));
    ASSERT_TRUE(waitUntil([&] { return worker != 0 && threadIds().count(worker) == 0; })) << "the thread goes on";
    journal::onEvent("init", nullptr);
    EXPECT_TRUE(isLockFree(*container));
    container->onCfgUpdate();
    container.send("text");
    EXPECT_EQ(journal::texts(), std::vector<std::string>{"text"});
}
