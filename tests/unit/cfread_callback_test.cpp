// The callback mode of the config-file reader.
#include "cfread_support.hpp"
#include "proc_self.hpp"

#include <atomic>
#include <climits>
#include <gmock/gmock.h>
#include <stdexcept>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

using CfreadCallback = CfreadFixture;

// A callback that counts its calls and, from a certain one on, answers with a number of the test's choice.
struct Stopper {
    int stopAt;
    int answer;
    int calls = 0;

    static int call(const char* /*key*/, const char* /*value*/, void* self) {
        auto& stopper = *static_cast<Stopper*>(self);
        return ++stopper.calls >= stopper.stopAt ? stopper.answer : 0;
    }
};

int throwFromCallback(const char* key, const char* /*value*/, void* /*userData*/) {
    throw std::runtime_error(key);
}

int keepUserData(const char* /*key*/, const char* /*value*/, void* userData) {
    EXPECT_EQ(userData, nullptr);
    return 1;
}

int countDescriptors(const char* /*key*/, const char* /*value*/, void* count) {
    *static_cast<std::size_t*>(count) = openDescriptors().size();
    return 0;
}

} // namespace

TEST_F(CfreadCallback, LinesWithoutKeyOrValueAreLeftOut) {
    const CfreadResult result = parse("\n=v\nk\nk=\n #x\na=1\n");
    EXPECT_EQ(result.rc, 0);
    EXPECT_THAT(result.entries, ElementsAre(Pair("a", "1")));
}

TEST_F(CfreadCallback, LinesWithoutKeyOrValueAreReportedOnDemand) {
    EXPECT_THAT(parse("\n=v\nk\n#x\na=1\n", 1).entries,
                ElementsAre(Pair("", ""), Pair("", "v"), Pair("k", ""), Pair("a", "1")));
}

TEST_F(CfreadCallback, OnlyTheLowByteOfTheDemandCounts) {
    for (const int no : {0, 0x100, 0x7fffff00, INT_MIN}) {
        EXPECT_THAT(parse("k\n", no).entries, IsEmpty()) << no;
    }
    for (const int yes : {1, 0x80, 0x101, 0xff, -1}) {
        EXPECT_THAT(parse("k\n", yes).entries, ElementsAre(Pair("k", ""))) << yes;
    }
}

TEST_F(CfreadCallback, UserDataMayBeNull) {
    write("k=v\n");
    EXPECT_EQ(cfread_parse_with_callback(path().c_str(), keepUserData, nullptr, 0), 0);
}

TEST_F(CfreadCallback, AResultOtherThanZeroStopsTheParseAtOnce) {
    write("a=1\nb=2\nc=3\n");
    for (const int answer : {1, -1, 256, INT_MIN}) {
        Stopper stopper = {2, answer};
        cfread_parse_with_callback(path().c_str(), Stopper::call, &stopper, 0);
        EXPECT_EQ(stopper.calls, 2) << answer;
    }
}

TEST_F(CfreadCallback, KeepsAStoppedParseASuccess) {
    write("a=1\nb=2\nnever looked at");
    for (const int answer : {1, -1}) {
        Stopper stopper = {2, answer};
        EXPECT_EQ(cfread_parse_with_callback(path().c_str(), Stopper::call, &stopper, 0), 0);
    }
}

TEST_F(CfreadCallback, LinesBeforeAnErrorHaveBeenDelivered) {
    const CfreadResult result = parse("a=1\nb=2\nc=3");
    EXPECT_EQ(result.rc, -1);
    EXPECT_THAT(result.entries, ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST_F(CfreadCallback, LinesBehindAnErrorAreNotDelivered) {
    const CfreadResult result = parse("a=1\n" + std::string(256, 'k') + "=v\nb=2\n");
    EXPECT_EQ(result.rc, -1);
    EXPECT_THAT(result.entries, ElementsAre(Pair("a", "1")));
}

TEST_F(CfreadCallback, TheFileIsOpenDuringTheCallbackAndClosedAfterwards) {
    write("a=1\n");
    const std::size_t before = openDescriptors().size();
    std::size_t during = 0;
    EXPECT_EQ(cfread_parse_with_callback(path().c_str(), countDescriptors, &during, 0), 0);
    EXPECT_EQ(during, before + 1);
    EXPECT_EQ(openDescriptors().size(), before);
}

TEST_F(CfreadCallback, AStoppedParseClosesTheFile) {
    write("a=1\nb=2\n");
    const auto before = openDescriptors();
    Stopper stopper = {1, 1};
    cfread_parse_with_callback(path().c_str(), Stopper::call, &stopper, 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CfreadCallback, AnExceptionPassesThroughAndTheFileIsClosed) {
    write("boom=1\n");
    const auto before = openDescriptors();
    try {
        cfread_parse_with_callback(path().c_str(), throwFromCallback, nullptr, 0);
        FAIL() << "the exception was lost";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "boom");
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CfreadCallback, WithANullCallbackTheFileIsOnlyChecked) {
    write("a=1\n\nb\n");
    EXPECT_EQ(cfread_parse_with_callback(path().c_str(), nullptr, nullptr, 1), 0);
    write("a=1\nb=2");
    EXPECT_EQ(cfread_parse_with_callback(path().c_str(), nullptr, nullptr, 1), -1);
}

TEST_F(CfreadCallback, ThreadsMayReadAtTheSameTime) {
    std::string text;
    for (int line = 0; line < 200; ++line) {
        text += "key" + std::to_string(line) + "=" + std::to_string(line) + "\n";
    }
    write(text);
    std::atomic<int> complete{0};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.emplace_back([this, &complete] {
            CfreadEntries entries;
            const int rc = cfread_parse_with_callback(path().c_str(), collectEntry, &entries, 0);
            const CfreadTable table(cfread_open(path().c_str()));
            complete += rc == 0 && entries.size() == 200 && table && table->count == 200 ? 1 : 0;
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(complete, 4);
}
