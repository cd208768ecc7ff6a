// The end of a process while another thread is building the logger: nobody waits for what may never end, and nobody
// meets a logger that is half built.
#include "blocked_thread.hpp"
#include "exit_fixture.hpp"

#include <gmock/gmock.h>

#include <future>
#include <ostream>
#include <stdexcept>

using testing::AllOf;
using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;

namespace {

struct LateCall {
    const char* name;
    void (*run)();
};

void PrintTo(const LateCall& call, std::ostream* out) {
    *out << call.name;
}

// Never destroyed: threads look at it until the process is gone.
struct Builder {
    std::promise<void> isInside;
    std::promise<void> mayGo;
    std::promise<void> hasEnded;
};

class ExitWhileTheLoggerIsBuilt : public ExitFixture {
protected:
    ExitWhileTheLoggerIsBuilt() { startFromTheBeginning(); }

    // In the child of a death test: a thread is inside the target, in the first read, when this returns.
    static Builder& startToBuild() {
        alarm(kChildPatienceSeconds);
        netComponent = new sorrel_component{"net", 0xffffffffU, {}}; // exists without a logger
        auto& builder = *new Builder;
        journal::onEvent("create", [&builder](const PluginEvent&) {
            builder.isInside.set_value();
            builder.mayGo.get_future().get();
        });
        std::thread([&builder] {
            try {
                say("first");
            } catch (const std::runtime_error&) {
                std::fputs("thrown\n", stderr);
            }
            builder.hasEnded.set_value();
        }).detach();
        builder.isInside.get_future().wait();
        journal::echoTo(STDERR_FILENO);
        return builder;
    }
};

class ExitWhileTheLoggerIsBuiltForEver : public ExitWhileTheLoggerIsBuilt,
                                         public testing::WithParamInterface<LateCall> {};

} // namespace

TEST_P(ExitWhileTheLoggerIsBuiltForEver, CallsAfterTheEndDoNotWait) {
    EXPECT_EXIT(
        {
            startToBuild();
            static void (*const run)() = GetParam().run; // the parameters are gone by then
            lastWords.speak = [] {
                run();
                std::fputs("silent\n", stderr);
            };
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq("silent\n"));
}

constexpr LateCall kLateCalls[] = {
    {"Message", [] { say("late"); }},
    {"MessageThatIsFormattedTwice", [] { sor_syslog(netComponent, SR_INFO, "late"); }},
    {"Dump", [] { sorrel_dump(netComponent, SR_INFO, "late", 4); }},
    {"ThreadName", [] { sorrel_init(netComponent, "late"); }},
    {"Creation",
     [] { expectAtExit(sorrel_create_component("l", SR_INFO, "") == &CSorrel::ms_OOMFallbackComp, "creation"); }},
    {"Name", [] { expectAtExit(std::string(sorrel_set_applicationname("late")) == "late", "name"); }},
    {"LookUp", [] { expectAtExit(sorrel::sorrel_get_component_by_name("net") == nullptr, "look-up"); }},
    {"Level", [] { expectAtExit(sorrel::sorrel_get_component_level("net") == 0, "level"); }},
    {"Accessor", [] { expectAtExit(CSorrel::getInstance()->getAppname() == "[no-appname-set]", "stored name"); }},
    {"Everything", useEverything},
};

INSTANTIATE_TEST_SUITE_P(Of, ExitWhileTheLoggerIsBuiltForEver, testing::ValuesIn(kLateCalls),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_F(ExitWhileTheLoggerIsBuilt, ABuilderThatComesBackAfterwardsIsSilent) {
    EXPECT_EXIT(
        {
            static Builder& builder = startToBuild();
            lastWords.speak = [] {
                builder.mayGo.set_value();
                builder.hasEnded.get_future().wait();
                useEverythingAndTell();
            };
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), Eq("recording getName\nall silent\n"));
}

// A thread that waited for the builder would be the next to build.
TEST_F(ExitWhileTheLoggerIsBuilt, NobodyBuildsItAfterwardsWhenTheBuilderFails) {
    EXPECT_EXIT(
        {
            static Builder& builder = startToBuild();
            static ObservedThread& waiting = *new ObservedThread([] { say("waited"); });
            EXPECT_TRUE(waiting.waitUntilBlocked());
            lastWords.speak = [] {
                builder.mayGo.set_exception(std::make_exception_ptr(std::runtime_error("while it is created")));
                builder.hasEnded.get_future().wait();
                waiting.join();
                expectAtExit(hasNoWatch(), "nobody watches");
                useEverythingAndTell();
            };
            std::exit(EXIT_SUCCESS);
        },
        ExitedWithCode(0), AllOf(EndsWith("thrown\nall silent\n"), Not(HasSubstr("recording log"))));
}
