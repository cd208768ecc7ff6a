// The look-up of components without a lock.
#include "core/component_index.hpp"

#include <sorrel/logger.hpp>

#include <atomic>
#include <deque>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

constexpr int kMany = 100000;

std::string nameOf(int number) {
    return "component " + std::to_string(number);
}

// Components that live as long as the process, as those of a logger do: the index never forgets one.
sorrel_component& newComponent(const std::string& name) {
    static auto& all = *new std::deque<sorrel_component>;
    return all.emplace_back(sorrel_component{name, 0, {}});
}

sorrel_component& addComponent(unsigned int logger, const std::string& name) {
    sorrel_component& component = newComponent(name);
    sorrel::addToComponentIndex(logger, component);
    return component;
}

} // namespace

TEST(ComponentIndex, IsEmptyAtFirst) {
    EXPECT_EQ(sorrel::findInComponentIndex(sorrel::nextLoggerNumber(), "net"), nullptr);
}

TEST(ComponentIndex, FindsWhatWasAddedByAllBytesOfItsName) {
    const unsigned int logger = sorrel::nextLoggerNumber();
    const std::string withNull("net\0a", 5);
    sorrel_component& net = addComponent(logger, "net");
    sorrel_component& other = addComponent(logger, withNull);
    sorrel_component& empty = addComponent(logger, "");
    EXPECT_EQ(sorrel::findInComponentIndex(logger, "net"), &net);
    EXPECT_EQ(sorrel::findInComponentIndex(logger, withNull), &other);
    EXPECT_EQ(sorrel::findInComponentIndex(logger, ""), &empty);
    EXPECT_EQ(sorrel::findInComponentIndex(logger, "Net"), nullptr);
    EXPECT_EQ(sorrel::findInComponentIndex(logger, std::string("net\0b", 5)), nullptr);
}

TEST(ComponentIndex, LoggersDoNotSeeEachOthersComponents) {
    const unsigned int first = sorrel::nextLoggerNumber();
    const unsigned int second = sorrel::nextLoggerNumber();
    EXPECT_NE(first, second);
    sorrel_component& ofFirst = addComponent(first, "net");
    EXPECT_EQ(sorrel::findInComponentIndex(second, "net"), nullptr);
    sorrel_component& ofSecond = addComponent(second, "net");
    EXPECT_EQ(sorrel::findInComponentIndex(first, "net"), &ofFirst);
    EXPECT_EQ(sorrel::findInComponentIndex(second, "net"), &ofSecond);
}

TEST(ComponentIndex, FindsEachOfAHundredThousandComponents) {
    const unsigned int logger = sorrel::nextLoggerNumber();
    std::deque<sorrel_component*> added;
    for (int i = 0; i < kMany; ++i) {
        added.push_back(&addComponent(logger, nameOf(i)));
    }
    for (int i = 0; i < kMany; ++i) {
        ASSERT_EQ(sorrel::findInComponentIndex(logger, nameOf(i)), added[static_cast<std::size_t>(i)]) << i;
        ASSERT_EQ(sorrel::findInComponentIndex(logger, "un" + nameOf(i)), nullptr) << i;
    }
}

TEST(ComponentIndex, EveryNameThatWasPublishedIsFoundWhileOthersAreAdded) {
    const unsigned int logger = sorrel::nextLoggerNumber();
    std::atomic<int> published{0};
    std::thread writer([&] {
        for (int i = 0; i < kMany / 4; ++i) {
            addComponent(logger, nameOf(i));
            published.store(i + 1, std::memory_order_release);
        }
    });
    int missing = 0;
    int wrong = 0;
    for (int count = 0; count < kMany / 4;) {
        count = published.load(std::memory_order_acquire);
        for (int i = count > 100 ? count - 100 : 0; i < count; ++i) {
            const sorrel_component* const found = sorrel::findInComponentIndex(logger, nameOf(i));
            missing += found == nullptr ? 1 : 0;
            wrong += found != nullptr && found->name != nameOf(i) ? 1 : 0;
        }
    }
    writer.join();
    EXPECT_EQ(missing, 0);
    EXPECT_EQ(wrong, 0);
}

TEST(ComponentIndex, OfTwoLoggersThatAddAtTheSameTimeLosesNothing) {
    constexpr int kEach = 5000;
    CSorrel first(false);
    CSorrel second(false);
    const auto createAll = [](CSorrel& logger) {
        for (int i = 0; i < kEach; ++i) {
            logger.createComponent(nameOf(i), SR_INFO, "");
        }
    };
    std::thread other(createAll, std::ref(second));
    createAll(first);
    other.join();
    for (int i = 0; i < kEach; ++i) {
        const sorrel_component* const ofFirst = first.getComponentByName(nameOf(i));
        const sorrel_component* const ofSecond = second.getComponentByName(nameOf(i));
        ASSERT_NE(ofFirst, nullptr) << i;
        ASSERT_NE(ofSecond, nullptr) << i;
        ASSERT_NE(ofFirst, ofSecond) << i;
    }
}
