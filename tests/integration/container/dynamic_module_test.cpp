// One target library opened at run time, with real libraries.
#include "container_fixture.hpp"

#include <sorrel/dynamic_module.hpp>

#include <gmock/gmock.h>

#include <cerrno>
#include <dlfcn.h>
#include <memory>

using sorrel::CDynamicModule;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class DynamicModule : public ContainerFixture {
protected:
    static std::string quoted(const std::string& plugin) { return "\"" + pluginPath(plugin) + "\""; }

    // All messages, each with its priority in front.
    std::vector<std::string> report() {
        std::vector<std::string> lines;
        for (const SyslogRecord& record : diagnostics().records()) {
            lines.push_back(std::to_string(record.priority) + " " + record.text);
        }
        return lines;
    }
};

} // namespace

TEST_F(DynamicModule, ANewModuleKeepsItsPathAndOpensNothing) {
    const CDynamicModule module(pluginPath("recording"));
    EXPECT_EQ(module.getLibPath(), pluginPath("recording"));
    EXPECT_FALSE(isLibraryOpen(pluginPath("recording")));
    EXPECT_THAT(report(), IsEmpty());
}

TEST_F(DynamicModule, LoadOpensTheLibraryAndCallsItsInitFunctionWithTheArgument) {
    CDynamicModule module(pluginPath("recording"));
    EXPECT_EQ(module.load(nullptr), 0);
    EXPECT_TRUE(isLibraryOpen(pluginPath("recording")));
    EXPECT_THAT(journal::lines(), ElementsAre("recording init null"));
    EXPECT_THAT(report(), ElementsAre("7 opened shared library " + quoted("recording"),
                                      "7 calling init function for shared library " + quoted("recording")));
    CDynamicModule second(pluginPath("recording_b"));
    EXPECT_EQ(second.load(&second), 0);
    EXPECT_EQ(journal::lines().back(), "recording_b init set");
}

TEST_F(DynamicModule, ALibraryWithoutAnInitFunctionLoadsWithoutTheMessage) {
    CDynamicModule module(pluginPath("without_hooks"));
    EXPECT_EQ(module.load(nullptr), 0);
    EXPECT_THAT(report(), ElementsAre("7 opened shared library " + quoted("without_hooks")));
}

TEST_F(DynamicModule, ASecondLoadIsRefusedAndChangesNothing) {
    CDynamicModule module(pluginPath("recording"));
    ASSERT_EQ(module.load(nullptr), 0);
    diagnostics().clear();
    EXPECT_EQ(module.load(nullptr), -1);
    EXPECT_THAT(report(), ElementsAre("7 Dynamic module " + pluginPath("recording") + " already loaded"));
    EXPECT_THAT(journal::lines(), ElementsAre("recording init null"));
    EXPECT_NE(module.getClassFactory(), nullptr);
}

TEST_F(DynamicModule, ALibraryThatCannotBeOpenedLeavesItClosed) {
    const std::string path = files().file("nowhere.so");
    CDynamicModule module(path);
    EXPECT_EQ(module.load(nullptr), -1);
    ASSERT_EQ(report().size(), 1U);
    EXPECT_THAT(report()[0], StartsWith("3 Unable to open shared library \"" + path + "\" - error="));
    EXPECT_EQ(module.getClassFactory(), nullptr);
    EXPECT_EQ(report().back(), "3 Library not loaded");
}

TEST_F(DynamicModule, AFailedLoadMayBeTriedAgain) {
    CDynamicModule module(files().file("later.so"));
    EXPECT_EQ(module.load(nullptr), -1);
    ASSERT_EQ(symlink(pluginPath("recording").c_str(), files().file("later.so").c_str()), 0);
    EXPECT_EQ(module.load(nullptr), 0);
    EXPECT_THAT(journal::lines(), ElementsAre("recording init null"));
}

TEST_F(DynamicModule, TheFactoryOfAClosedModuleIsNull) {
    const CDynamicModule module(pluginPath("recording"));
    EXPECT_EQ(module.getClassFactory(), nullptr);
    EXPECT_THAT(report(), ElementsAre("3 Library not loaded"));
}

TEST_F(DynamicModule, ALibraryWithoutAFactoryGivesNullAndAMessage) {
    CDynamicModule module(pluginPath("without_factory"));
    ASSERT_EQ(module.load(nullptr), 0);
    diagnostics().clear();
    EXPECT_EQ(module.getClassFactory(), nullptr);
    EXPECT_THAT(report(),
                ElementsAre("3 Symbol \"getClassFactory\" not found in shared library " + quoted("without_factory")));
}

TEST_F(DynamicModule, TheFactoryEntryOfTheLibraryIsCalledEachTime) {
    CDynamicModule module(pluginPath("recording"));
    ASSERT_EQ(module.load(nullptr), 0);
    journal::clear();
    diagnostics().clear();
    void* const first = module.getClassFactory();
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(module.getClassFactory(), first);
    EXPECT_THAT(journal::lines(), ElementsAre("recording factory", "recording factory"));
    const std::string retrieving = "7 Retrieving classfactory from shared library " + quoted("recording");
    EXPECT_THAT(report(), ElementsAre(retrieving, retrieving));
}

TEST_F(DynamicModule, WhatTheLibraryReturnsAsItsFactoryIsHandedOut) {
    CDynamicModule module(pluginPath("null_factory"));
    ASSERT_EQ(module.load(nullptr), 0);
    EXPECT_EQ(module.getClassFactory(), nullptr);
    EXPECT_EQ(journal::lines().back(), "null_factory factory");
}

TEST_F(DynamicModule, DestructionCallsTheDoneFunctionAndClosesTheLibrary) {
    {
        CDynamicModule module(pluginPath("recording"));
        ASSERT_EQ(module.load(nullptr), 0);
        diagnostics().clear();
    }
    EXPECT_EQ(journal::lines().back(), "recording done");
    EXPECT_FALSE(isLibraryOpen(pluginPath("recording")));
    EXPECT_THAT(report(), ElementsAre("7 Calling done function for shared library " + quoted("recording"),
                                      "7 closing shared library " + quoted("recording")));
}

TEST_F(DynamicModule, ALibraryWithoutADoneFunctionIsClosedWithoutTheMessage) {
    {
        CDynamicModule module(pluginPath("without_hooks"));
        ASSERT_EQ(module.load(nullptr), 0);
        diagnostics().clear();
    }
    EXPECT_FALSE(isLibraryOpen(pluginPath("without_hooks")));
    EXPECT_THAT(report(), ElementsAre("7 closing shared library " + quoted("without_hooks")));
}

// Had it looked for anything, the loader would have forgotten its error, and would have found the function that an open
// library shows to all.
TEST_F(DynamicModule, AModuleThatWasNeverLoadedEndsWithoutTouchingTheLoader) {
    CDynamicModule open(pluginPath("recording"));
    ASSERT_EQ(open.load(nullptr), 0);
    journal::clear();
    diagnostics().clear();
    auto closed = std::make_unique<CDynamicModule>(pluginPath("recording_b"));
    ASSERT_EQ(dlopen("/nowhere/no.so", RTLD_LAZY), nullptr);
    closed.reset();
    const char* const pending = dlerror();
    ASSERT_NE(pending, nullptr);
    EXPECT_THAT(pending, StartsWith("/nowhere/no.so"));
    EXPECT_THAT(journal::lines(), IsEmpty());
    EXPECT_THAT(report(), IsEmpty());
}

TEST_F(DynamicModule, LastErrorIsThatOfTheLoaderAndIsClearedByReading) {
    const CDynamicModule module(pluginPath("recording"));
    ASSERT_EQ(dlopen("/nowhere/no.so", RTLD_LAZY), nullptr);
    const char* const error = module.lastError();
    ASSERT_NE(error, nullptr);
    EXPECT_THAT(error, HasSubstr("/nowhere/no.so"));
    EXPECT_EQ(module.lastError(), nullptr);
}

TEST_F(DynamicModule, KeepsTheSymbolsOfALibraryVisibleToAll) {
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "getClassFactory"), nullptr);
    CDynamicModule module(pluginPath("recording"));
    ASSERT_EQ(module.load(nullptr), 0);
    EXPECT_NE(dlsym(RTLD_DEFAULT, "getClassFactory"), nullptr);
}

TEST_F(DynamicModule, ALibraryOpenedTwiceClosesWithTheSecond) {
    CDynamicModule first(pluginPath("recording"));
    ASSERT_EQ(first.load(nullptr), 0);
    {
        CDynamicModule second(pluginPath("recording"));
        ASSERT_EQ(second.load(nullptr), 0);
    }
    EXPECT_TRUE(isLibraryOpen(pluginPath("recording")));
    EXPECT_THAT(journal::lines(), ElementsAre("recording init null", "recording init null", "recording done"));
}
