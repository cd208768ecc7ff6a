// What the config-file reader does not accept, and what it reports.
#include "cfread_support.hpp"
#include "proc_self.hpp"

#include <filesystem>
#include <gmock/gmock.h>

using testing::ExitedWithCode;
using testing::IsEmpty;

namespace {

class CfreadErrors : public CfreadReportFixture {
protected:
    // Expects both modes to fail on a file of this name with this message.
    void expectUnreadable(const char* fileName, const std::string& message) {
        CfreadEntries entries;
        EXPECT_EQ(cfread_parse_with_callback(fileName, collectEntry, &entries, 1), -1);
        EXPECT_THAT(entries, IsEmpty());
        expectErrors({message});
        EXPECT_EQ(cfread_open(fileName), nullptr);
        expectErrors({message});
    }

    std::string keyTooLong(int line) const { return inLine("max. key length exceeded", line); }
    std::string valueTooLong(int line) const { return inLine("max. value length exceeded", line); }
    std::string notTerminated(int line) const { return inLine("non-terminated entry", line); }

private:
    std::string inLine(const std::string& what, int line) const {
        return "cfread: " + what + " in " + path() + " at line " + std::to_string(line);
    }
};

} // namespace

TEST_F(CfreadErrors, AFileNameIsNeeded) {
    expectUnreadable(nullptr, "cfread: no config file given");
    expectUnreadable("", "cfread: no config file given");
}

TEST_F(CfreadErrors, AMissingFileCannotBeOpened) {
    const std::string missing = path() + ".missing";
    expectUnreadable(missing.c_str(), "cfread: unable to open " + missing);
}

TEST_F(CfreadErrors, ADirectoryCannotBeRead) {
    const std::string directory = std::filesystem::path(path()).parent_path();
    expectUnreadable(directory.c_str(), "cfread: unable to open " + directory);
}

TEST_F(CfreadErrors, AFailingReadIsNotTheEndOfTheFile) {
    expectUnreadable("/proc/self/mem", "cfread: unable to open /proc/self/mem");
}

TEST_F(CfreadErrors, AKeyOf256CharactersIsTooLong) {
    expectAccepted(std::string(255, 'k') + "=v\n");
    expectRejected(std::string(256, 'k') + "=v\n", keyTooLong(1));
}

TEST_F(CfreadErrors, AKeyMayBeTooLongWithoutAnEqualsSign) {
    expectAccepted(std::string(255, 'k') + "\n");
    expectAccepted(std::string(255, 'k') + "\r\n");
    expectRejected(std::string(256, 'k') + "\n", keyTooLong(1));
}

TEST_F(CfreadErrors, KeepsRefusingEvenADroppedByteBehind255CharactersOfAKey) {
    expectRejected(std::string(255, 'k') + " =v\n", keyTooLong(1));
    expectRejected(std::string(255, 'k') + "\x80=v\n", keyTooLong(1));
}

TEST_F(CfreadErrors, AValueOf256CharactersIsTooLong) {
    expectAccepted("k=" + std::string(255, 'v') + "\n");
    expectRejected("k=" + std::string(256, 'v') + "\n", valueTooLong(1));
}

TEST_F(CfreadErrors, ASpaceBehindTheValueCountsForItsLength) {
    expectAccepted("k= " + std::string(255, 'v') + "\n");
    expectRejected("k=" + std::string(255, 'v') + " \n", valueTooLong(1));
}

TEST_F(CfreadErrors, TheLastLineNeedsItsLineFeed) {
    expectRejected("a=1\nb=2", notTerminated(2));
    expectRejected("a=1\nb", notTerminated(2));
    expectRejected("a=1\nb=  ", notTerminated(2));
    expectRejected(" #no comment", notTerminated(1));
}

TEST_F(CfreadErrors, ALineThatBeginsWithANullByteIsNotTerminated) {
    expectRejected(std::string("a=1\n") + kNullByte + "b=2\nc=3\n", notTerminated(2));
    expectRejected(std::string(1, kNullByte), notTerminated(1));
}

TEST_F(CfreadErrors, ALineThatContainsANullByteIsNotTerminated) {
    expectRejected(std::string("ke") + kNullByte + "y=v\n", notTerminated(1));
    expectRejected(std::string("key=v") + kNullByte + "\n", notTerminated(1));
}

TEST_F(CfreadErrors, ALineOf1024CharactersWithItsLineFeedIsNotTerminated) {
    expectAccepted("k" + std::string(1019, ' ') + "=v\n");
    expectRejected("k" + std::string(1020, ' ') + "=v\n", notTerminated(1));
}

TEST_F(CfreadErrors, EveryLineCountsAlsoCommentsEmptyLinesAndTheRestsOfLongComments) {
    const std::string twoLines = "#" + std::string(1022, 'x') + "k=v\n";
    expectRejected("#one\n\n" + twoLines + "a=1\nsix", notTerminated(6));
}

TEST_F(CfreadErrors, EveryErrorClosesTheFile) {
    const auto before = openDescriptors();
    expectRejected(std::string(256, 'k') + "=v\n", keyTooLong(1));
    expectRejected("k=" + std::string(256, 'v') + "\n", valueTooLong(1));
    expectRejected("k=v", notTerminated(1));
    expectUnreadable("/proc/self/mem", "cfread: unable to open /proc/self/mem");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CfreadErrors, ANullCallbackChangesNoMessage) {
    write("k=v");
    EXPECT_EQ(cfread_parse_with_callback(path().c_str(), nullptr, nullptr, 0), -1);
    expectErrors({notTerminated(1)});
}

TEST_F(CfreadErrors, AreReportedWhateverTheSwitchOfTheDiagnosticsSays) {
    for (const char* value : {"", "0", "1", "true"}) {
        setenv("SORREL_VERBOSE_STARTUP", value, 1);
        expectRejected("k=v", notTerminated(1));
    }
}

TEST_F(CfreadErrors, AGoodFileIsNotReported) {
    setenv("SORREL_VERBOSE_STARTUP", "1", 1);
    expectAccepted("#comment\n\na=1\n=v\nk\n");
}

// No file makes a table of this size, so this one is made by hand: its next 64 slots would make it 0.
TEST_F(CfreadErrors, ATableThatCannotGrowEndsTheProcess) {
    cfread_entry* slots[1] = {nullptr};
    cfread_handle handle = {};
    handle.file_name = "some.cfg";
    handle.capacity = -64;
    handle.table = slots;
    EXPECT_EXIT(cfread_set_entry(&handle, "k", "v"), ExitedWithCode(1), "");
    const std::vector<SyslogRecord> records = log().records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "cfread: unable to get a free index");
    EXPECT_EQ(records[0].priority, LOG_EMERG);
}
