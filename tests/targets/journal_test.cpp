// The journal target and a real systemd-journald, read back with journalctl.
#include "command_output.hpp"
#include "loaded_target.hpp"
#include "private_system.hpp"
#include "real_service.hpp"
#include "temp_dir.hpp"
#include "wait_until.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

using testing::ElementsAre;

namespace {

constexpr char kSocket[] = "/run/systemd/journal/socket";

// In memory, without limits; what the kernel says and whom it watches is left to the machine's own journal.
constexpr char kJournaldConfiguration[] = "[Journal]\nStorage=volatile\nRateLimitIntervalSec=0\nReadKMsg=no\nAudit=\n"
                                          "ForwardToSyslog=no\nForwardToWall=no\n";

// One entry of the journal, as journalctl shows it in JSON.
class Entry {
public:
    explicit Entry(const std::string& json) {
        std::istringstream stream(json);
        boost::property_tree::read_json(stream, m_fields);
    }

    // What is no UTF-8 is shown as an array of bytes.
    std::string operator[](const std::string& name) const {
        const auto& field = m_fields.get_child(name);
        std::string value = field.data();
        for (const auto& byte : field) {
            value += static_cast<char>(byte.second.get_value<int>());
        }
        return value;
    }

    bool has(const std::string& name) const { return m_fields.count(name) != 0; }

private:
    boost::property_tree::ptree m_fields;
};

class RealJournald : public testing::Test {
protected:
    void SetUp() override {
        SORREL_SKIP_WITHOUT("journald");
        enterPrivateSystem();
        std::filesystem::create_directories("/etc/systemd");
        std::filesystem::create_directories("/run/systemd/journal");
        std::filesystem::create_directories("/run/log/journal");
        std::ofstream("/etc/machine-id") << "0123456789abcdef0123456789abcdef\n";
        std::ofstream("/etc/systemd/journald.conf") << kJournaldConfiguration;
        m_service = std::make_unique<RealService>(std::vector<std::string>{"/lib/systemd/systemd-journald"},
                                                  "/run/journald.output");
        startService();
    }

    // It listens before it is ready: what it gets then lacks the sender's process id.
    void startService() {
        m_service->start(kSocket);
        ASSERT_TRUE(waitUntil(
            [] { return outputOf("journalctl --sync 2>&1 && echo synchronised || true") == "synchronised\n"; }));
    }

    LoadedTarget& load(const std::string& parameters) {
        m_target = std::make_unique<LoadedTarget>(m_directory, targetPath("journal"), parameters);
        return *m_target;
    }

    // The entries of the target, as soon as there are so many; the oldest comes first.
    static std::vector<Entry> entries(std::size_t count) {
        constexpr std::chrono::seconds kPatience(40); // one look at thousands may take seconds
        std::vector<Entry> found;
        EXPECT_TRUE(waitUntil(
            [&] {
                found.clear();
                std::istringstream lines(outputOf("journalctl --directory=/run/log/journal --output=json --all --quiet "
                                                  "_TRANSPORT=journal 2>>/run/journalctl.errors || true"));
                for (std::string line; std::getline(lines, line);) {
                    found.emplace_back(line);
                }
                return found.size() >= count;
            },
            kPatience))
            << found.size();
        return found;
    }

    static std::vector<std::string> texts(std::size_t count) {
        std::vector<std::string> found;
        for (const Entry& entry : entries(count)) {
            found.push_back(entry["MESSAGE"]);
        }
        return found;
    }

    TempDir m_directory;
    std::unique_ptr<RealService> m_service;
    std::unique_ptr<LoadedTarget> m_target;
};

} // namespace

TEST_F(RealJournald, HoldsEveryField) {
    LoadedTarget& target = load("levels=all");
    target.container().setAppname("door-opener");
    TestMessage message;
    message.processId = 4711;
    message.numeric = 8;
    message.depth = -2;
    message.function = "poll";
    target.say(message);
    const Entry entry = entries(1).at(0);
    EXPECT_EQ(entry["MESSAGE"], "hello");
    EXPECT_EQ(entry["PRIORITY"], "7");
    EXPECT_EQ(entry["SYSLOG_IDENTIFIER"], "door-opener");
    EXPECT_EQ(entry["SYSLOG_PID"], "4711");
    EXPECT_EQ(entry["TID"], std::to_string(gettid()));
    EXPECT_EQ(entry["CODE_FUNC"], "poll");
    EXPECT_EQ(entry["SORREL_COMPONENT"], "net");
    EXPECT_EQ(entry["SORREL_DEPTH"], "-2");
    EXPECT_EQ(entry["SORREL_THREAD"], "main");
    EXPECT_EQ(entry["SORREL_LEVEL_MASK"], "0x100");
    EXPECT_EQ(entry["SORREL_TIMESTAMP"], "1709211845000042");
    EXPECT_EQ(entry["_PID"], std::to_string(getpid())); // what journald itself adds
}

TEST_F(RealJournald, HoldsLineFeedsAndBytesThatAreNoUtf8) {
    load("ident=door");
    const std::string longest(2047, 'x');
    const std::vector<std::string> said = {"two\nlines\n", "\xc3\xa9\t\xff\xfe", "", longest, "a\x1b[2J"};
    for (const std::string& text : said) {
        m_target->say(text);
    }
    EXPECT_THAT(texts(said.size()), ElementsAre("two\nlines\n", "\xc3\xa9\t\xff\xfe", "", longest, "a\\x1b[2J"));
}

TEST_F(RealJournald, FieldsAreFoundByTheirValues) {
    load("ident=door");
    TestMessage message;
    for (const char* component : {"net", "ui", "net"}) {
        message.component = component;
        m_target->say(message);
    }
    entries(3);
    EXPECT_EQ(outputOf("journalctl --directory=/run/log/journal --output=cat --quiet SORREL_COMPONENT=net"),
              "hello\nhello\n");
}

TEST_F(RealJournald, NothingIsLostWhileItRuns) {
    constexpr std::size_t kMessages = 2000;
    load("wait=10000");
    for (std::size_t i = 0; i < kMessages; ++i) {
        m_target->say(std::to_string(i));
    }
    const std::vector<std::string> found = texts(kMessages);
    ASSERT_EQ(found.size(), kMessages);
    for (std::size_t i = 0; i < kMessages; ++i) {
        ASSERT_EQ(found[i], std::to_string(i));
    }
}

TEST_F(RealJournald, WhileItIsStoppedNoCallHangs) {
    constexpr int kMessages = 1000;
    load("ident=door");
    m_service->stop();
    for (int i = 0; i < kMessages; ++i) {
        m_target->sayInTime("while stopped");
    }
    m_service->resume();
    const int more = m_target->sayUntilSeen([](const std::string& text) {
        const std::vector<std::string> found = texts(0);
        return std::find(found.begin(), found.end(), text) != found.end();
    });
    ASSERT_GT(more, 0);
    int arrived = 0;
    int losses = 0;
    for (const std::string& text : texts(0)) {
        const bool isLoss = text.find(" lost: Resource temporarily unavailable") != std::string::npos;
        losses += isLoss ? std::stoi(text) : 0;
        arrived += isLoss ? 0 : 1;
    }
    EXPECT_EQ(arrived + losses, kMessages + more);
    EXPECT_GT(losses, 0);
}

TEST_F(RealJournald, WhenItWasKilledMessagesAreLostUntilItIsBack) {
    load("ident=door");
    m_target->say("before");
    entries(1);
    m_service->kill();
    m_target->sayInTime("lost");
    m_target->sayInTime("lost");
    startService();
    m_target->say("after");
    const std::vector<Entry> found = entries(3);
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[0]["MESSAGE"], "before");
    EXPECT_EQ(found[1]["MESSAGE"], "2 messages lost: Connection refused");
    EXPECT_EQ(found[1]["SORREL_COMPONENT"], "journal");
    EXPECT_EQ(found[1]["PRIORITY"], "4");
    EXPECT_FALSE(found[1].has("CODE_FUNC"));
    EXPECT_EQ(found[2]["MESSAGE"], "after");
}

TEST_F(RealJournald, ARestartBetweenTwoMessagesLosesNone) {
    load("ident=door");
    m_target->say("before");
    entries(1);
    m_service->terminate();
    startService();
    m_target->say("after");
    EXPECT_THAT(texts(2), ElementsAre("before", "after"));
}
