// The cost of a message inside the container: nothing is allocated, nothing is copied.
#include "container_fixture.hpp"
#include "replaced_new.hpp"

#include <gmock/gmock.h>

#include <array>

namespace {

// Lives in the test, so that nothing but the container can allocate. Writes down where its arguments are.
class AddressTarget : public sorrel::ILogTarget {
public:
    void log(int, int, long long, int, sorrel_level* level, const std::string& threadName,
             const std::string& componentName, const std::string& functionName, const std::string& text) override {
        addresses = {level, &threadName, &componentName, &functionName, &text};
    }
    void onComponentAdded(sorrel_component*) override {}
    std::string getName() override { return "address"; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string&) override {}

    std::array<const void*, 5> addresses = {};
};

// A container with such targets, which come from no library.
class LocalContainer : public sorrel::CLogTargetContainer {
public:
    explicit LocalContainer(const std::string& directory) : CLogTargetContainer(directory, false, nullptr) {
        m_targets["one"] = {nullptr, &one, true};
        m_targets["two"] = {nullptr, &two, true};
    }
    LocalContainer(const LocalContainer&) = delete;
    LocalContainer& operator=(const LocalContainer&) = delete;
    ~LocalContainer() override { m_targets.clear(); }

    AddressTarget one;
    AddressTarget two;
};

class ContainerMessagePath : public ContainerFixture {};

} // namespace

TEST_F(ContainerMessagePath, AMessageAllocatesNothingInTheContainer) {
    if (!replacedNew::kActive) {
        GTEST_SKIP() << "not run: allocations cannot be counted with this sanitizer";
    }
    LocalContainer container(directory());
    sorrel_level level = {6, 0x40};
    const long beforeCopy = replacedNew::count;
    const std::string text = "longer than what a string keeps within itself";
    EXPECT_GT(replacedNew::count, beforeCopy) << "a copy would be counted";
    const long before = replacedNew::count;
    for (int i = 0; i < 10; ++i) {
        container.log(1, 2, 3, 4, &level, text, text, text, text);
    }
    EXPECT_EQ(replacedNew::count, before);
}

TEST_F(ContainerMessagePath, TheReferencesOfTheCallerAreHandedStraightThrough) {
    LocalContainer container(directory());
    sorrel_level level = {6, 0x40};
    const std::string thread = "thread";
    const std::string component = "component";
    const std::string function = "function";
    const std::string text = "text";
    container.log(1, 2, 3, 4, &level, thread, component, function, text);
    const std::array<const void*, 5> expected = {&level, &thread, &component, &function, &text};
    EXPECT_EQ(container.one.addresses, expected);
    EXPECT_EQ(container.two.addresses, expected);
}
