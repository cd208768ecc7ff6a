// The names of the application that last.
#include "core/interned_name.hpp"

#include "private_system.hpp"

#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

#include <array>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using sorrel::internedName;

TEST(InternedName, IsTheSameStringForTheSameName) {
    std::string name = "player";
    const std::string& first = internedName(name);
    EXPECT_NE(&first, &name);
    EXPECT_EQ(first, "player");
    EXPECT_EQ(&internedName(std::string("play") + "er"), &first);
    name = "overwritten";
    EXPECT_EQ(first, "player");
}

TEST(InternedName, DiffersByAllBytesOfTheName) {
    const std::string withNull("a\0b", 3);
    EXPECT_NE(&internedName("a"), &internedName("A"));
    EXPECT_NE(&internedName("a"), &internedName(withNull));
    EXPECT_EQ(internedName(withNull), withNull);
    EXPECT_EQ(internedName(""), "");
}

TEST(InternedName, StaysWhereItIsWhileOthersComeUp) {
    const std::string& name = internedName("player");
    const char* const text = name.c_str();
    for (int i = 0; i < 10000; ++i) {
        internedName("name " + std::to_string(i));
    }
    EXPECT_EQ(internedName("player").c_str(), text);
    EXPECT_STREQ(text, "player");
}

TEST(InternedName, IsTheSameForThreadsThatAskAtTheSameTime) {
    constexpr std::size_t kNames = 500;
    std::array<std::array<const std::string*, kNames>, 4> found{};
    std::vector<std::thread> threads;
    for (auto& ofThread : found) {
        threads.emplace_back([&ofThread] {
            for (std::size_t i = 0; i < kNames; ++i) {
                ofThread[i] = &internedName("name " + std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto& ofThread : found) {
        EXPECT_EQ(ofThread, found[0]);
    }
}

TEST(InternedName, IsWhatALoggerAnswersAndItNeverChanges) {
    CSorrel logger(false);
    const std::string& before = logger.getAppname();
    EXPECT_EQ(&before, &internedName("[no-appname-set]"));
    logger.setApplicationname_Nosorrel("player");
    const std::string& player = logger.getAppname();
    EXPECT_EQ(&player, &internedName("player"));
    logger.setApplicationname_Nosorrel("recorder");
    EXPECT_EQ(logger.getAppname(), "recorder");
    EXPECT_EQ(before, "[no-appname-set]");
    EXPECT_EQ(player, "player");
    logger.setApplicationname_Nosorrel("player");
    EXPECT_EQ(&logger.getAppname(), &player);
}

TEST(InternedName, IsWhatTheCFunctionsReturn) {
    enterPrivateSystem();
    const char* const player = sorrel_set_applicationname("player");
    EXPECT_EQ(player, internedName("player").c_str());
    EXPECT_EQ(sorrel_set_applicationname("player"), player);
    EXPECT_EQ(sorrel_set_applicationname_nosorrel("player"), player);
    EXPECT_NE(sorrel_set_applicationname("recorder"), player);
    EXPECT_STREQ(player, "player");
}

TEST(InternedName, CanBeSetByThreadsAtTheSameTime) {
    CSorrel logger(false);
    std::vector<std::thread> threads;
    for (const std::size_t length : {40U, 400U, 4000U, 40000U}) {
        threads.emplace_back([&logger, name = std::string(length, 'a')] {
            for (int i = 0; i < 500; ++i) {
                logger.setApplicationname_Nosorrel(name);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(logger.getAppname().find_first_not_of('a'), std::string::npos);
}

TEST(InternedName, CanBeReadByAnyThreadWhileItChanges) {
    CSorrel logger(false);
    std::thread namer([&logger] {
        for (int i = 0; i < 2000; ++i) {
            logger.setApplicationname_Nosorrel(i % 2 == 0 ? "player" : "recorder");
        }
    });
    int others = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string& name = logger.getAppname();
        others += name != "player" && name != "recorder" && name != "[no-appname-set]" ? 1 : 0;
    }
    namer.join();
    EXPECT_EQ(others, 0);
}
