// Everything at once that takes the library's two locks: nobody may stand still.
#include "logger_fixture.hpp"
#include "storm_size.hpp"
#include "storm_standstill.hpp"

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <sys/ioctl.h>

namespace {

// Everything takes longer under a sanitizer.
constexpr std::chrono::seconds kPatienceWithOne(20);
constexpr std::chrono::seconds kPatience(SORREL_STORM_DIVISOR == 1 ? 2 : kPatienceWithOne.count());

constexpr char kComponentLines[] = "component=net,11111111\ncomponent=audio,1\ncomponent=video,1111111\n";

class LockStress : public LoggerFixture {
protected:
    LockStress() {
        const std::string lines = target("registry_user") + kComponentLines;
        configure(lines);
        configureApp("player", lines + target("registry_user_b"));
        configureApp("viewer", lines);
        m_net = sorrel_create_component("net", SR_ALL, "8=ERR,64=INFO");
        sorrel_set_applicationname("player");
        m_inotify = inotifyDescriptor();
    }

    // Does this over and over in a thread of its own. `duty` ends the sentence "the thread that ...".
    void start(const std::string& duty, std::function<void(unsigned long)> operation) {
        m_threads.emplace_back([this, duty, operation = std::move(operation)] {
            StandstillGuard::Pulse pulse(m_guard, duty);
            while (!m_over) {
                operation(pulse.beats());
                pulse.beat();
            }
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_operations[duty] += pulse.beats();
        });
    }

    void runFor(std::chrono::seconds duration) {
        std::this_thread::sleep_for(duration);
        m_over = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        for (const auto& entry : m_operations) {
            std::printf("%10lu operations: the thread that %s\n", entry.second, entry.first.c_str());
        }
    }

    // Closes the file of each name like a writer, whichever is watched, and waits until the worker has taken the event:
    // when it stands still, so does the caller.
    void letTheWorkerReread() const {
        for (const std::string name : {"player", "viewer"}) {
            std::ofstream(std::getenv("SORL_PATH") + ("/sorrel-" + name + ".cfg"), std::ios::app).close();
        }
        EXPECT_TRUE(waitUntil([this] { return bytesOfEvents() == 0; }, std::chrono::minutes(1)));
    }

    void log() const { _sorrel(m_net, SR_INFO, "a message"); }

private:
    static int inotifyDescriptor() {
        for (const auto& descriptor : openDescriptors()) {
            if (descriptor.second == "anon_inode:inotify") {
                return descriptor.first;
            }
        }
        ADD_FAILURE() << "nothing is watched";
        return -1;
    }

    int bytesOfEvents() const {
        int bytes = 0;
        EXPECT_EQ(ioctl(m_inotify, FIONREAD, &bytes), 0);
        return bytes;
    }

    sorrel_component* m_net = nullptr;
    int m_inotify = -1;
    std::mutex m_mutex;
    std::map<std::string, unsigned long> m_operations; // guarded by m_mutex
    std::vector<std::thread> m_threads;
    std::atomic<bool> m_over{false};
    StandstillGuard m_guard{kPatience, kPatienceWithOne};
};

// Makes a component now and then; more often it meets one that is there.
void useComponents(unsigned long round) {
    const std::string name = "created " + std::to_string(round % 2000);
    sorrel_create_component(name.c_str(), SR_INFO, "64=INFO");
}

void readRegistry() {
    std::vector<std::string> names;
    sorrel::sorrel_get_component_names(names);
    std::vector<std::pair<unsigned int, std::string>> descriptions;
    sorrel::sorrel_get_level_descriptions("net", descriptions);
    CSorrel::getInstance()->lockComponents();
    sorrel::sorrel_set_component_level("video", sorrel::sorrel_get_component_level("video") + 1);
    CSorrel::getInstance()->unlockComponents();
}

} // namespace

TEST_F(LockStress, NobodyStandsStill) {
    start("logs", [this](unsigned long) { log(); });
    start("logs, too", [this](unsigned long) { log(); });
    start("creates components", useComponents);
    start("sets levels like a re-read", [](unsigned long round) {
        CSorrel::getInstance()->updateComponentLevel("updated " + std::to_string(round % 100), "1000000");
    });
    start("reads the registry", [](unsigned long) { readRegistry(); });
    start("names the application",
          [](unsigned long round) { sorrel_set_applicationname(round % 2 == 0 ? "viewer" : "player"); });
    start("lets the worker re-read", [this](unsigned long) { letTheWorkerReread(); });
    runFor(std::chrono::seconds(stormCount(60)));
}
