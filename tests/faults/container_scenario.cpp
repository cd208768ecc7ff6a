// A container of the scenario's own, from its building to its destruction. It gives back all that it took.
#include "plugin_journal.hpp"
#include "plugin_path.hpp"
#include "scenario.hpp"
#include "wait_until.hpp"

#include <sorrel/component.hpp>
#include <sorrel/component_cfg_update_sink.hpp>
#include <sorrel/level.h>
#include <sorrel/log_target_container.hpp>

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <set>
#include <thread>
#include <unistd.h>

using sorrel::CLogTargetContainer;

namespace {

// How many blocks a library keeps that stays open for good: the module and its path.
constexpr long kBlocksOfModule = 2;

class CountingSink final : public sorrel::IComponentCfgUpdateSink {
public:
    int updateComponentLevel(const std::string& /*name*/, const std::string& /*level*/) override {
        ++m_updates;
        return 0;
    }

    int updates() const { return m_updates; }

private:
    std::atomic<int> m_updates{0};
};

class ContainerScenario {
public:
    ContainerScenario(const TempDir& files, bool counts) : m_files(files), m_counts(counts), m_before(footprint()) {}

    void run() {
        m_files.write("sorrel.cfg", m_text);
        m_files.write("sorrel-player.cfg", m_text);
        failingCalls::setCounting(m_counts);
        step("build", [&] { m_container = std::make_unique<CLogTargetContainer>(m_files.path(), true, &m_sink); });
        if (m_container) {
            use();
            failingCalls::setCounting(false);
            expectWorksForOthers();
            failingCalls::setCounting(m_counts);
            step("destroy", [&] { m_container.reset(); });
        }
        failingCalls::setCounting(false);
    }

private:
    void use() {
        settle(m_before);
        step("log", [&] { send("hello"); });
        step("announce", [&] { m_container->onComponentAdded(&m_component); });
        step("name", [&] { m_container->setAppname("player"); });
        settle(m_before);
        m_files.write("sorrel-player.cfg", m_text);
        settle(m_before);
        m_files.write("sorrel.cfg", m_text); // not watched any more, unless the watch could not be moved
        settle(m_before);
        step("re-read", [&] { m_container->onCfgUpdate(); });
        if (makesMistake("lock")) {
            m_container->lock();
        }
    }

    // Whatever has failed before: another thread re-reads, and the target is there. A lock that is held hangs it.
    void expectWorksForOthers() {
        journal::clear();
        const int updates = m_sink.updates();
        std::thread([&] {
            step("re-read by another thread", [&] { m_container->onCfgUpdate(); });
            step("announce by another thread", [&] { m_container->onComponentAdded(&m_component); });
            step("log by another thread", [&] { send("afterwards"); });
        }).join();
        if (journal::texts() != std::vector<std::string>{"afterwards"} || journal::ofKind("component").size() != 1 ||
            m_sink.updates() != updates + 1) {
            problem("the container does not work afterwards");
        }
    }

    void send(const std::string& text) {
        m_container->log(1, 0, 2, 3, SR_INFO, "thread", "component", "function", text);
    }

    const TempDir& m_files;
    const bool m_counts; // the calls of the library
    const Footprint m_before;
    const std::string m_text = "# a comment\ntarget=" + pluginPath("recording") + ", tag=x\ncomponent=net,101\n";
    CountingSink m_sink;
    sorrel_component m_component{"net", 5, {}};
    std::unique_ptr<CLogTargetContainer> m_container;
};

void makeMistakes() {
    static void* leaked = nullptr;
    if (makesMistake("descriptor") && open("/dev/null", O_RDONLY | O_CLOEXEC) == -1) {
        std::abort();
    }
    if (makesMistake("memory")) {
        leaked = std::malloc(1);
    }
    if (makesMistake("thread")) {
        std::thread([] { pause(); }).detach();
    }
    if (makesMistake("exception")) {
        step("mistake", [] { throw leaked; });
    }
    if (makesMistake("crash")) {
        std::abort();
    }
}

// Deliberate: a library stays open whose code an exception may have needed. Closes it, so that all that the loader
// keeps for it goes; the number of blocks that may be left.
long closeKeptLibrary() {
    long kept = 0;
    const std::string path = pluginPath("recording");
    while (isLibraryOpen(path) && kept < 10) {
        void* const handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        dlclose(handle);
        dlclose(handle);
        ++kept;
    }
    dlerror(); // the text of an error is kept until it was asked for twice
    dlerror();
    return kept * kBlocksOfModule;
}

} // namespace

// The first containers, which nothing happens to, bring about what is kept for good. Those who trace the calls want to
// know their numbers, and so have none of these: where threads wait for each other, the numbers vary.
void runContainerScenario(const TempDir& files) {
    constexpr long kAnyNumber = 1000000;
    const std::set<int> threads = threadIds();
    for (int i = 0; i < 2 && !isTraced(); ++i) {
        ContainerScenario(files, false).run();
        waitUntil([&] { return threadIds() == threads; }); // one that was joined may still be listed
    }
    journal::clear();
    const Footprint before = footprint();
    ContainerScenario(files, true).run();
    makeMistakes();
    journal::clear();
    const long allowedBlocks = closeKeptLibrary();
    expectNothingLeft(before, isTraced() ? kAnyNumber : allowedBlocks);
    if (!hasProblems()) {
        failingCalls::report("passed");
    }
}
