// Names as people choose them, with '*' for any characters and nothing else that is special.
#include <sorrel/component_set.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

bool has(const std::string& words, const std::string& name) {
    return sorrel::ComponentSet(words).contains(name);
}

} // namespace

TEST(ComponentSet, ANameStandsForItself) {
    EXPECT_TRUE(has("net", "net"));
    for (const char* name : {"", "ne", "nets", "Net", "inet"}) {
        EXPECT_FALSE(has("net", name)) << name;
    }
}

TEST(ComponentSet, NothingButAnAsteriskIsSpecial) {
    for (const char* name : {"queue[1]", "n?t", "a\\b", "\\", "[", "[!a]", "a.b", ".", "\xff", "\xc3\xa9"}) {
        EXPECT_TRUE(has(name, name)) << name;
        EXPECT_TRUE(has(name + std::string("*"), name)) << name;
    }
    EXPECT_FALSE(has("queue[1]", "queue1"));
    EXPECT_FALSE(has("n?t", "net"));
    EXPECT_FALSE(has("[!a]", "b"));
    EXPECT_FALSE(has("a\\*", "a*"));
}

TEST(ComponentSet, AnAsteriskStandsForAnyCharactersAndForNone) {
    for (const char* name : {"", "a", ".hidden", "a/b", "\xff", "queue[1]"}) {
        EXPECT_TRUE(has("*", name)) << name;
        EXPECT_TRUE(has("**", name)) << name;
    }
    for (const char* name : {"a", "ab", "a/b", "a*"}) {
        EXPECT_TRUE(has("a*", name)) << name;
    }
    EXPECT_FALSE(has("a*", ""));
    EXPECT_FALSE(has("a*", "ba"));
    for (const char* name : {"a", "ba", "aa", "ab.a"}) {
        EXPECT_TRUE(has("*a", name)) << name;
    }
    EXPECT_FALSE(has("*a", "ab"));
}

TEST(ComponentSet, PartsBetweenAsterisksComeInTheirOrder) {
    for (const char* name : {"abc", "abbc", "a-b-c", "abcbc", "acbc", "abcc"}) {
        EXPECT_TRUE(has("a*b*c", name)) << name;
    }
    for (const char* name : {"", "ac", "acb", "abcd", "xabc", "ab"}) {
        EXPECT_FALSE(has("a*b*c", name)) << name;
    }
    EXPECT_TRUE(has("*ab*", "aab"));
    EXPECT_FALSE(has("ab*ba", "aba"));
}

TEST(ComponentSet, OneOfSeveralNamesIsEnough) {
    EXPECT_TRUE(has("net;ui*", "net"));
    EXPECT_TRUE(has("net;ui*", "ui.menu"));
    EXPECT_FALSE(has("net;ui*", "net;ui"));
}

// It would take longer than the world has left, if it tried all ways.
TEST(ComponentSet, APatternOfManyAsterisksIsDoneAtOnce) {
    std::string pattern;
    for (int i = 0; i < 1000; ++i) {
        pattern += "*a";
    }
    EXPECT_FALSE(has(pattern + "*b", std::string(2000, 'a')));
    EXPECT_TRUE(has(pattern + "*b", std::string(2000, 'a') + "b"));
}

TEST(ComponentSet, AnEmptyWordIsNoName) {
    for (const char* words : {"", ";", "net;", ";net", "net;;ui"}) {
        try {
            const sorrel::ComponentSet set{std::string(words)};
            ADD_FAILURE() << words << " is taken";
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), "\"\" is no name");
        }
    }
}
