// Two containers in one process do not know of each other, also when they load the same library.
#include "container_fixture.hpp"

#include <gmock/gmock.h>

#include <memory>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class TwoContainers : public ContainerFixture {
protected:
    const std::string& otherDirectory() const { return m_other.path(); }
    void configureOther(const std::string& text) { m_other.write("sorrel.cfg", text); }

private:
    TempDir m_other;
};

} // namespace

TEST_F(TwoContainers, EachWatchesItsOwnFile) {
    configure("");
    configureOther("");
    RecordingSink sink;
    RecordingSink otherSink;
    OpenContainer container(directory(), true, &sink);
    OpenContainer other(otherDirectory(), true, &otherSink);
    ASSERT_NE(other.worker, nullptr);
    configure("component=net,1\n");
    EXPECT_TRUE(sink.waitFor("net", "1"));
    EXPECT_TRUE(waitUntilHandled(other));
    EXPECT_THAT(otherSink.levels(), IsEmpty());
    configureOther("component=net,11\n");
    EXPECT_TRUE(otherSink.waitFor("net", "11"));
    EXPECT_TRUE(waitUntilHandled(container));
    EXPECT_THAT(sink.levels(), ElementsAre(Pair("net", "1")));
}

TEST_F(TwoContainers, EachHasItsOwnTargetOfALibrary) {
    configure(targetLine("recording", "tag=one"));
    configureOther(targetLine("recording", "tag=two"));
    OpenContainer container(directory(), true);
    OpenContainer other(otherDirectory(), true, nullptr);
    container.send("hello");
    EXPECT_EQ(journal::lines().back(), "recording:one log hello");
    other.send("hello");
    EXPECT_EQ(journal::lines().back(), "recording:two log hello");
}

TEST_F(TwoContainers, TheEndOfOneLeavesTheOtherWorking) {
    configure(targetLine("recording", "tag=one"));
    configureOther(targetLine("recording", "tag=two"));
    auto container = std::make_unique<OpenContainer>(directory(), true, nullptr);
    RecordingSink otherSink;
    OpenContainer other(otherDirectory(), true, &otherSink);
    container.reset();
    EXPECT_TRUE(isLibraryOpen(pluginPath("recording")));
    other.send("hello");
    EXPECT_EQ(journal::lines().back(), "recording:two log hello");
    configureOther(targetLine("recording") + "component=net,1\n");
    EXPECT_TRUE(otherSink.waitFor("net", "1"));
}

TEST_F(TwoContainers, EachHasItsOwnNameFlagAndLock) {
    configure(targetLine("claims_syslog"));
    configureOther("");
    OpenContainer container(directory(), true);
    OpenContainer other(otherDirectory(), true, nullptr);
    container->setAppname("player");
    EXPECT_EQ(other.appname, "");
    EXPECT_TRUE(container->hasSyslogTarget());
    EXPECT_FALSE(other->hasSyslogTarget());
    container->lock();
    EXPECT_FALSE(isLockFree(*container));
    EXPECT_TRUE(isLockFree(*other));
    container->unlock();
}

TEST_F(TwoContainers, BothMayWatchTheSameFile) {
    configure("");
    RecordingSink sink;
    RecordingSink otherSink;
    OpenContainer container(directory(), true, &sink);
    OpenContainer other(directory(), true, &otherSink);
    configure("component=net,1\n");
    EXPECT_TRUE(sink.waitFor("net", "1"));
    EXPECT_TRUE(otherSink.waitFor("net", "1"));
}
