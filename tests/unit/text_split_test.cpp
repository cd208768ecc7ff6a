// Splitting and trimming of configuration texts.
#include "core/text_split.hpp"

#include <gmock/gmock.h>
#include <locale>

using sorrel::splitAt;
using sorrel::trimmed;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A classification of characters in which 'x' is white space, and nothing else is.
class XIsSpace : public std::ctype<char> {
public:
    XIsSpace() : std::ctype<char>(table()) {}

private:
    static const mask* table() {
        static mask classes[table_size] = {};
        classes[static_cast<unsigned char>('x')] = space;
        return classes;
    }
};

} // namespace

TEST(SplitAt, YieldsThePiecesBetweenTheDelimiters) {
    EXPECT_THAT(splitAt("a,bc,d", ","), ElementsAre("a", "bc", "d"));
    EXPECT_THAT(splitAt("name=value", "="), ElementsAre("name", "value"));
}

TEST(SplitAt, ATextWithoutDelimiterIsOnePiece) {
    EXPECT_THAT(splitAt("a=b", ","), ElementsAre("a=b"));
}

TEST(SplitAt, EmptyPiecesAreDropped) {
    EXPECT_THAT(splitAt(",,a,,b,", ","), ElementsAre("a", "b"));
    EXPECT_THAT(splitAt(",,,", ","), IsEmpty());
    EXPECT_THAT(splitAt("", ","), IsEmpty());
}

TEST(SplitAt, BlanksAreKept) {
    EXPECT_THAT(splitAt(" a , , b\t", ","), ElementsAre(" a ", " ", " b\t"));
}

TEST(SplitAt, NeitherQuotesNorBackslashesProtectADelimiter) {
    EXPECT_THAT(splitAt("\"a,b\",c\\,d", ","), ElementsAre("\"a", "b\"", "c\\", "d"));
}

TEST(SplitAt, NullBytesAndBytesWithTheHighBitAreOrdinaryCharacters) {
    const std::string text("a\0b,\xe4", 5);
    EXPECT_THAT(splitAt(text, ","), ElementsAre(std::string("a\0b", 3), "\xe4"));
}

TEST(Trimmed, WhiteSpaceAtBothEndsIsRemoved) {
    EXPECT_EQ(trimmed(" \t\n\v\f\ra b \t\n\v\f\r"), "a b");
    EXPECT_EQ(trimmed("a"), "a");
}

TEST(Trimmed, NothingButWhiteSpaceBecomesEmpty) {
    EXPECT_EQ(trimmed(" \t "), "");
    EXPECT_EQ(trimmed(""), "");
}

TEST(Trimmed, OtherBytesAreNoWhiteSpace) {
    const std::string text("\0\xa0\x85 a\0", 6);
    EXPECT_EQ(trimmed(text), text);
}

TEST(Trimmed, ADefaultConstructedLocaleSaysWhatWhiteSpaceIs) {
    std::locale::global(std::locale(std::locale::classic(), new XIsSpace));
    EXPECT_EQ(trimmed("xx a xx"), " a ");
}
