// What the journal target sends, field by field.
#include "child_process.hpp"
#include "datagram_service.hpp"
#include "loaded_target.hpp"
#include "temp_dir.hpp"

#include <gmock/gmock.h>

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

using testing::ElementsAre;
using testing::Pair;

namespace {

using Fields = std::map<std::string, std::string>;

// The fields of an entry, as the journal's protocol describes them. No field comes twice.
Fields fieldsOf(const std::string& entry) {
    Fields fields;
    for (std::size_t at = 0; at < entry.size();) {
        const std::size_t lineEnd = entry.find('\n', at);
        const std::string line = entry.substr(at, lineEnd - at);
        const std::size_t equals = line.find('=');
        std::size_t length = 0;
        bool isNew = false;
        if (equals != std::string::npos) {
            isNew = fields.emplace(line.substr(0, equals), line.substr(equals + 1)).second;
            at = lineEnd + 1;
        } else {
            for (std::size_t i = 8; i > 0; --i) {
                length = length << 8U | static_cast<unsigned char>(entry.at(lineEnd + i));
            }
            isNew = fields.emplace(line, entry.substr(lineEnd + 9, length)).second;
            at = lineEnd + 9 + length + 1;
        }
        if (!isNew || lineEnd == std::string::npos || entry.at(at - 1) != '\n') {
            throw std::runtime_error("not in the journal's protocol: " + entry);
        }
    }
    return fields;
}

class JournalFormat : public testing::Test {
protected:
    JournalFormat() { m_message.processId = 4711; }

    LoadedTarget& load(const std::string& parameters) {
        m_target = std::make_unique<LoadedTarget>(m_directory, targetPath("journal"),
                                                  "socket=" + m_directory.file("socket") + ", wait=0, " + parameters);
        return *m_target;
    }

    Fields sent() {
        m_target->say(m_message);
        return fieldsOf(m_service.next());
    }

    TestMessage m_message;

private:
    TempDir m_directory;
    DatagramService m_service{m_directory.file("socket")};
    std::unique_ptr<LoadedTarget> m_target;
};

} // namespace

TEST_F(JournalFormat, AnEntryHoldsAllValuesOfTheMessage) {
    load("ident=door");
    m_message.function = "poll";
    m_message.depth = -2;
    m_message.numeric = 8;
    EXPECT_THAT(sent(), ElementsAre(Pair("CODE_FUNC", "poll"), Pair("MESSAGE", "hello"), Pair("PRIORITY", "7"),
                                    Pair("SORREL_COMPONENT", "net"), Pair("SORREL_DEPTH", "-2"),
                                    Pair("SORREL_LEVEL_MASK", "0x100"), Pair("SORREL_THREAD", "main"),
                                    Pair("SORREL_TIMESTAMP", "1709211845000042"), Pair("SYSLOG_IDENTIFIER", "door"),
                                    Pair("SYSLOG_PID", "4711"), Pair("TID", std::to_string(gettid()))));
}

TEST_F(JournalFormat, OutsideOfTracedFunctionsNoneIsNamed) {
    load("ident=door");
    EXPECT_EQ(sent().count("CODE_FUNC"), 0U);
}

TEST_F(JournalFormat, LineFeedsOfTheTextAreKeptAndOtherControlCharactersShown) {
    load("ident=door");
    m_message.text = "a\nb\tc\x1b[2J\x7f \xc2\x9b \xff=\n";
    EXPECT_EQ(sent()["MESSAGE"], "a\nb\tc\\x1b[2J\\x7f \\xc2\\x9b \xff=\n");
    m_message.text = "";
    EXPECT_EQ(sent()["MESSAGE"], "");
}

TEST_F(JournalFormat, NamesCannotMakeFields) {
    load("ident=door");
    m_message.thread = "a\nPRIORITY=0";
    m_message.component = "b\nPRIORITY=0";
    m_message.function = "c\nPRIORITY=0";
    Fields fields = sent();
    EXPECT_EQ(fields["SORREL_THREAD"], "a\\nPRIORITY=0");
    EXPECT_EQ(fields["SORREL_COMPONENT"], "b\\nPRIORITY=0");
    EXPECT_EQ(fields["CODE_FUNC"], "c\\nPRIORITY=0");
    EXPECT_EQ(fields["PRIORITY"], "6");
}

TEST_F(JournalFormat, LongTextsArriveWhole) {
    load("ident=door");
    m_message.text = std::string(2047, 'x');
    EXPECT_EQ(sent()["MESSAGE"], m_message.text);
    m_message.text = std::string(2047, '\x1b');
    EXPECT_EQ(sent()["MESSAGE"].size(), 4U * 2047);
}

TEST_F(JournalFormat, EachThreadHasItsId) {
    load("ident=door");
    m_message.processId = getpid();
    EXPECT_EQ(sent()["TID"], std::to_string(gettid()));
    pid_t other = 0;
    std::string sentId;
    std::thread([&] {
        other = gettid();
        sent();
        sentId = sent()["TID"];
    }).join();
    EXPECT_EQ(sentId, std::to_string(other));
    EXPECT_EQ(sent()["TID"], std::to_string(gettid()));
}

TEST_F(JournalFormat, AChildHasAnotherId) {
    load("ident=door");
    m_message.processId = getpid();
    sent();
    EXPECT_TRUE(passesInChild([this] {
        m_message.processId = getpid();
        return sent()["TID"] == std::to_string(getpid());
    }));
}

TEST_F(JournalFormat, TheNameFollowsTheApplications) {
    LoadedTarget& target = load("levels=all");
    EXPECT_EQ(sent()["SYSLOG_IDENTIFIER"], program_invocation_short_name);
    target.container().setAppname("gate\n");
    EXPECT_EQ(sent()["SYSLOG_IDENTIFIER"], "gate\\n");
    LoadedTarget& named = load("ident=door");
    named.container().setAppname("gate");
    EXPECT_EQ(sent()["SYSLOG_IDENTIFIER"], "door");
    EXPECT_FALSE(named.container().hasSyslogTarget());
}
