// Targets come and go while many threads log: the one that stays gets every message, and the process stays as it was.
#include "logger_fixture.hpp"
#include "storm_messages.hpp"
#include "storm_size.hpp"

#include <atomic>
#include <bitset>
#include <chrono>
#include <fstream>
#include <map>
#include <memory>

namespace {

constexpr std::size_t kThreads = 8;
constexpr std::size_t kMainSender = kThreads;
constexpr int kRereadsBeforeTheFirstLook = 100;
constexpr long kAllowedGrowthKiB = 256;

// A thread's share of the messages. They carry on with the number at which they were left off.
class Sender {
public:
    Sender(sorrel_component* component, std::size_t number) : m_component(component), m_sender(number) {}

    void send() { _sorrel(m_component, SR_INFO, "%s", storm::numberedText(m_sender, m_sent++).c_str()); }

    std::string sentRange() const { return storm::rangeOf(m_sender, 0, m_sent); }

private:
    sorrel_component* m_component;
    std::size_t m_sender;
    unsigned long m_sent = 0;
};

// What must not grow with the number of re-reads.
struct Belongings {
    std::map<int, std::string> descriptors = openDescriptors();
    std::set<int> threads = threadIds();
    std::map<std::string, int> mappedFiles = countMappings();

    static std::map<std::string, int> countMappings() {
        std::map<std::string, int> found;
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);) {
            const std::size_t path = line.find('/');
            if (path != std::string::npos) {
                ++found[line.substr(path)];
            }
        }
        return found;
    }
};

// Exact, unlike VmRSS, whose counters each processor keeps for itself for a while.
long residentKiB() {
    std::ifstream rollup("/proc/self/smaps_rollup");
    for (std::string line; std::getline(rollup, line);) {
        long size = 0;
        if (std::sscanf(line.c_str(), "Rss: %ld kB", &size) == 1) {
            return size;
        }
    }
    ADD_FAILURE() << "the kernel does not tell";
    return 0;
}

class RereadStorm : public LoggerFixture {
protected:
    RereadStorm() {
        configure(textOf(0));
        sorrel_init(nullptr, storm::senderName(kMainSender).c_str());
        m_component = sorrel_create_component("storm", SR_ALL, "64=INFO");
        m_ownSender = std::make_unique<Sender>(m_component, kMainSender);
    }

    // Every fourth state of the file has the one target that is always there; the others add one to it, replace that
    // by another, and have both. The last line shows which state has been read.
    static bool hasB(int state) { return state % 4 == 1 || state % 4 == 3; }
    static bool hasC(int state) { return state % 4 == 2 || state % 4 == 3; }
    static std::string textOf(int state) {
        return (hasB(state) ? target("counting_b") : "") + target("counting") +
               (hasC(state) ? target("counting_c") : "") + "component=state," +
               std::bitset<32>(static_cast<unsigned int>(state)).to_string() + "\n";
    }

    // The worker reads the file in this state, or, now and then, this thread reads it once more. The file is written
    // again only when nobody reads it: a writer truncates it first.
    void rereadState(int state) {
        configure(textOf(state));
        ASSERT_TRUE(waitForState(static_cast<unsigned int>(state)));
        if (state % 10 == 0) {
            sorrel_set_applicationname(state % 20 == 0 ? "player" : "tuner"); // which have no files of their own
        }
        m_ownSender->send(); // waits for the end of the re-read
        EXPECT_EQ(isLibraryOpen(pluginPath("counting_b")), hasB(state));
        EXPECT_EQ(isLibraryOpen(pluginPath("counting_c")), hasC(state));
        takeReports();
    }

    // The tallies of the targets that are gone. The journal is emptied: it must not grow either.
    void takeReports() {
        for (const PluginEvent& end : journal::ofKind("destroy")) {
            m_reports.at(end.library) = end.text;
            EXPECT_EQ(end.text.find("FAULT"), std::string::npos) << end.library << ": " << end.text;
        }
        journal::clear();
    }

    void startThreads() {
        for (std::size_t i = 0; i < kThreads; ++i) {
            m_senders.emplace_back(m_component, i);
        }
        for (std::size_t i = 0; i < kThreads; ++i) {
            m_threads.emplace_back([this, i] {
                sorrel_init(nullptr, storm::senderName(i).c_str());
                while (!m_over) {
                    m_senders[i].send();
                }
            });
        }
    }

    void endThreads() {
        m_over = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

    // What the target that was always there must have got.
    std::string allSentRanges() const {
        std::string ranges;
        for (const Sender& sender : m_senders) {
            ranges += sender.sentRange();
        }
        return ranges + m_ownSender->sentRange();
    }

    // Ends the targets, which then report.
    const std::map<std::string, std::string>& finalReports() {
        configure("");
        EXPECT_TRUE(journal::waitFor(
            [](const PluginEvent& event) { return event.kind == "destroy" && event.library == "counting"; }));
        takeReports();
        return m_reports;
    }

private:
    static bool waitForState(unsigned int state) {
        return waitUntil([&] { return sorrel::sorrel_get_component_level("state") == state; },
                         std::chrono::seconds(60));
    }

    sorrel_component* m_component = nullptr;
    std::unique_ptr<Sender> m_ownSender;
    std::vector<Sender> m_senders;
    std::vector<std::thread> m_threads;
    std::atomic<bool> m_over{false};
    std::map<std::string, std::string> m_reports = {{"counting", ""}, {"counting_b", ""}, {"counting_c", ""}};
};

} // namespace

TEST_F(RereadStorm, LosesNothingAndKeepsNothing) {
    const int rereads = stormCount(1000);
    for (int state = 1; state <= 4; ++state) { // all that is built once is there then
        rereadState(state);
    }
    const Belongings before;
    startThreads();
    long residentBefore = 0;
    for (int state = 5; state <= rereads; ++state) {
        rereadState(state);
        if (HasFailure()) {
            endThreads();
            return; // what follows would fail for the same reason
        }
        residentBefore = state == kRereadsBeforeTheFirstLook ? residentKiB() : residentBefore;
    }
    const long residentAfter = residentKiB();
    endThreads();

    EXPECT_TRUE(waitUntil([&] { return threadIds() == before.threads; }));
    EXPECT_EQ(openDescriptors(), before.descriptors);
    EXPECT_EQ(Belongings::countMappings(), before.mappedFiles);
    // Sanitizers keep what was freed, and the storm is too short there.
    if constexpr (SORREL_STORM_DIVISOR == 1) {
        EXPECT_LE(residentAfter - residentBefore, kAllowedGrowthKiB);
        RecordProperty("grownKiB", static_cast<int>(residentAfter - residentBefore));
    }
    const std::string sent = allSentRanges();
    RecordProperty("sent", sent);
    EXPECT_EQ(finalReports().at("counting"), sent);
}
