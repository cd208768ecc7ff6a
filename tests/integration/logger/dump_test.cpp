// Hex dumps as messages.
#include "logger_fixture.hpp"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::string kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefg";

class Dump : public LoggerFixture {
protected:
    Dump() {
        configure(target("recording"));
        m_net = sorrel_create_component("net", SR_INFO, "");
    }

    sorrel_component* m_net = nullptr;
};

} // namespace

TEST_F(Dump, SixteenBytesGiveOneFullLine) {
    sorrel_dump(m_net, SR_INFO, kLetters.data(), 16);
    EXPECT_THAT(journal::texts(),
                ElementsAre("0x00000000 - 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 | ABCDEFGHIJKLMNOP"));
}

TEST_F(Dump, SeventeenBytesGiveAFullLineAndALineOfOneByte) {
    sorrel_dump(m_net, SR_INFO, kLetters.data(), 17);
    EXPECT_THAT(journal::texts(),
                ElementsAre("0x00000000 - 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 | ABCDEFGHIJKLMNOP",
                            "0x00000010 - 51 " + std::string(45, ' ') + "| Q"));
}

TEST_F(Dump, ThirtyTwoBytesGiveTwoFullLinesAndNothingAfterThem) {
    sorrel_dump(m_net, SR_INFO, kLetters.data(), 32);
    ASSERT_THAT(journal::texts(), SizeIs(2));
    EXPECT_EQ(journal::texts()[1], "0x00000010 - 51 52 53 54 55 56 57 58 59 5a 61 62 63 64 65 66 | QRSTUVWXYZabcdef");
}

TEST_F(Dump, FewerThanSixteenBytesGiveOneShortLine) {
    sorrel_dump(m_net, SR_INFO, kLetters.data(), 3);
    EXPECT_THAT(journal::texts(), ElementsAre("0x00000000 - 41 42 43 " + std::string(39, ' ') + "| ABC"));
}

TEST_F(Dump, ALengthOf0GivesNothing) {
    sorrel_dump(m_net, SR_INFO, kLetters.data(), 0);
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(Dump, NullDataGivesOneMessageThatSaysSo) {
    sorrel_dump(m_net, SR_INFO, nullptr, 17);
    sorrel_dump(m_net, SR_INFO, nullptr, 0);
    EXPECT_THAT(journal::texts(), ElementsAre("<NULL>", "<NULL>"));
}

TEST_F(Dump, NullDataOfAMessageThatDoesNotPassGivesNothing) {
    sorrel_dump(m_net, SR_DEBUG, nullptr, 17);
    sorrel_dump(nullptr, SR_INFO, nullptr, 17);
    sorrel_dump(m_net, nullptr, nullptr, 17);
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(Dump, DataOfAMessageThatDoesNotPassIsNotRead) {
    const void* const unreadable = reinterpret_cast<const void*>(1);
    sorrel_dump(m_net, SR_DEBUG, unreadable, 17);
    sorrel_dump(nullptr, SR_INFO, unreadable, 17);
    sorrel_dump(m_net, nullptr, unreadable, 17);
    EXPECT_THAT(journal::texts(), IsEmpty());
}

TEST_F(Dump, PercentSignsAreOnlyCharacters) {
    sorrel_dump(m_net, SR_INFO, "%%%%%%%%%%%%%%%%%%%%", 20);
    std::string hex;
    for (int i = 0; i < 16; ++i) {
        hex += "25 ";
    }
    EXPECT_THAT(journal::texts(),
                ElementsAre("0x00000000 - " + hex + "| " + std::string(16, '%'),
                            "0x00000010 - 25 25 25 25 " + std::string(36, ' ') + "| " + std::string(4, '%')));
}

TEST_F(Dump, EachLineIsAMessageLikeAnyOther) {
    sorrel_enter_function(nullptr, "receive");
    sorrel_dump(m_net, SR_INFO, kLetters.data(), 17);
    const std::vector<PluginEvent> messages = messagesOf("recording");
    ASSERT_THAT(messages, SizeIs(2));
    for (const PluginEvent& message : messages) {
        EXPECT_EQ(message.level, SR_INFO);
        EXPECT_EQ(message.componentName, "net");
        EXPECT_EQ(message.functionName, "receive");
        EXPECT_EQ(message.depth, 1);
    }
}

TEST_F(Dump, TheMaskIsTestedForEachLine) {
    const ScopedHook hook("log", [](const PluginEvent&) { sorrel::sorrel_set_component_level("net", 0); });
    sorrel_dump(m_net, SR_INFO, kLetters.data(), 33);
    EXPECT_THAT(journal::texts(), SizeIs(1));
}

TEST_F(Dump, OfTheLoggerWithoutConfigurationGoesThroughTheConfiguredOne) {
    CSorrel::getInstance_NoSorrel()->dump(m_net, SR_INFO, kLetters.data(), 1);
    EXPECT_THAT(journal::texts(), SizeIs(1));
}
