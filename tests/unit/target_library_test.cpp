// What the helper for authors of targets makes of a class: the factory, and the reader of parameters.
#include "child_process.hpp"
#include "temp_dir.hpp"
#include "verbose_diagnostics.hpp"

#include <sorrel/target_library.hpp>

#include <gmock/gmock.h>

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

using testing::IsEmpty;
using testing::Not;

namespace {

enum class Colour { RED, GREEN };

struct Read {
    std::string bell;
    std::string tag;
    int rings;
    Colour colour;
    long long weight;
    long long load;
    std::string way;
    std::string map;
    std::string applicationName;
};

Read lastRead;
int living = 0;

class DoorTarget final : public sorrel::NamedLogTarget {
public:
    explicit DoorTarget(sorrel::TargetParameters& parameters) : NamedLogTarget(parameters) {
        lastRead.bell = parameters.text("bell");
        lastRead.tag = parameters.text("tag", "none");
        lastRead.rings = parameters.number("rings", 3, -5, 10);
        lastRead.colour = parameters.choice("colour", Colour::GREEN, {{"red", Colour::RED}, {"green", Colour::GREEN}});
        lastRead.weight = parameters.bytes("weight", 7);
        lastRead.load = parameters.bytes("load", 2048, 1024, 5 << 10U);
        lastRead.way = parameters.path("way", "home");
        lastRead.map = parameters.pathPattern("map", "%a.map");
        lastRead.applicationName = parameters.applicationName();
        if (lastRead.bell == "broken") {
            throw std::runtime_error("no bell there");
        }
        ++living;
    }
    DoorTarget(const DoorTarget&) = delete;
    DoorTarget& operator=(const DoorTarget&) = delete;
    ~DoorTarget() override { --living; }

    void log(int /*processId*/, int /*depth*/, long long /*seconds*/, int /*microseconds*/, sorrel_level* /*level*/,
             const std::string& /*threadName*/, const std::string& /*componentName*/,
             const std::string& /*functionName*/, const std::string& /*text*/) override {}
};

class TargetLibrary : public DiagnosticFixture {
protected:
    // The target, with these parameters; null when it is refused.
    sorrel::ILogTarget* create(const std::map<std::string, std::string>& params) {
        sorrel::CLogTargetParameters given;
        given.params = params;
        return dynamic_cast<sorrel::ILogTarget*>(m_factory.createObject("LogTarget", &given));
    }

    // As if the file that the parameter "conf" names held this text.
    void createWithFile(const std::string& text) {
        m_files.write("door.conf", text);
        m_factory.destroyObject(create({{"conf", m_files.file("door.conf")}, {"rings", "4"}}));
    }

    void expectFileRefused(const std::string& text, const std::string& why) {
        m_files.write("door.conf", text);
        expectRefused({{"conf", m_files.file("door.conf")}}, why);
    }

    std::string conf() const { return m_files.file("door.conf"); }

    void expectRefused(const std::map<std::string, std::string>& params, const std::string& why) {
        EXPECT_EQ(create(params), nullptr);
        ASSERT_THAT(diagnostics().texts(), Not(IsEmpty()));
        EXPECT_EQ(diagnostics().texts().back(), "door-target: " + why);
        EXPECT_EQ(diagnostics().records().back().priority, 3);
        EXPECT_EQ(living, 0);
    }

    sorrel::TargetFactory<DoorTarget> m_factory{"door"};
    TempDir m_files;
};

} // namespace

TEST_F(TargetLibrary, ATargetIsMadeAndDestroyedByTheFactory) {
    sorrel::ILogTarget* const target = create({{"bell", "loud"}});
    ASSERT_NE(target, nullptr);
    EXPECT_EQ(living, 1);
    m_factory.destroyObject(target);
    EXPECT_EQ(living, 0);
}

TEST_F(TargetLibrary, ANamedTargetHasItsNameAndWritesToNoSyslog) {
    sorrel::ILogTarget* const target = create({{"bell", "loud"}});
    EXPECT_EQ(target->getName(), "door");
    EXPECT_FALSE(target->isSyslogTarget());
    target->onComponentAdded(nullptr);
    target->setAppname("player");
    m_factory.destroyObject(target);
}

TEST_F(TargetLibrary, ParametersAreRead) {
    sorrel::ILogTarget* const target = create({{"bell", "loud"},
                                               {"tag", ""},
                                               {"rings", "-5"},
                                               {"colour", "red"},
                                               {sorrel::TARGET_TOKEN_APPLICATION_NAME(), "player"}});
    EXPECT_EQ(lastRead.bell, "loud");
    EXPECT_EQ(lastRead.tag, "");
    EXPECT_EQ(lastRead.rings, -5);
    EXPECT_EQ(lastRead.colour, Colour::RED);
    EXPECT_EQ(lastRead.applicationName, "player");
    m_factory.destroyObject(target);
}

TEST_F(TargetLibrary, ParametersThatAreNotGivenHaveTheirDefaults) {
    sorrel::ILogTarget* const target = create({{"bell", "loud"}});
    EXPECT_EQ(lastRead.tag, "none");
    EXPECT_EQ(lastRead.rings, 3);
    EXPECT_EQ(lastRead.weight, 7);
    EXPECT_EQ(lastRead.load, 2048);
    EXPECT_EQ(lastRead.colour, Colour::GREEN);
    EXPECT_EQ(lastRead.applicationName, "");
    m_factory.destroyObject(target);
}

TEST_F(TargetLibrary, AMissingParameterRefusesTheTarget) {
    expectRefused({}, "the parameter \"bell\" is missing");
}

TEST_F(TargetLibrary, AnUnknownParameterRefusesTheTarget) {
    expectRefused({{"bell", "loud"}, {"rigns", "2"}},
                  "parameter \"rigns\": \"2\" is given to a parameter that does not exist");
}

TEST_F(TargetLibrary, AWordThatIsNoneOfTheChoicesRefusesTheTarget) {
    expectRefused({{"bell", "loud"}, {"colour", "Red"}}, "parameter \"colour\": \"Red\" is none of red, green");
}

TEST_F(TargetLibrary, WhatIsNoNumberInRangeRefusesTheTarget) {
    for (const std::string value : {"", "x", "2x", "0x2", "2.5", "-6", "11", "99999999999999999999"}) {
        expectRefused({{"bell", "loud"}, {"rings", value}},
                      "parameter \"rings\": \"" + value + "\" is not a number from -5 to 10");
    }
}

TEST_F(TargetLibrary, BytesHaveUnits) {
    const std::pair<const char*, long long> weights[] = {
        {"0", 0}, {"12", 12}, {"3k", 3072}, {"64M", 67108864}, {"8589934591G", 9223372035781033984}};
    for (const auto& weight : weights) {
        m_factory.destroyObject(create({{"bell", "loud"}, {"weight", weight.first}}));
        EXPECT_EQ(lastRead.weight, weight.second) << weight.first;
    }
}

TEST_F(TargetLibrary, WhatIsNoNumberOfBytesRefusesTheTarget) {
    for (const std::string value : {"", "k", "1K", "1kk", "-1", "1.5M", "8589934592G", "9223372036854775808"}) {
        expectRefused({{"bell", "loud"}, {"weight", value}},
                      "parameter \"weight\": \"" + value + "\" is not a number of bytes from 0 to 9223372036854775807");
    }
}

TEST_F(TargetLibrary, BytesHaveBounds) {
    const std::pair<const char*, long long> loads[] = {{"1k", 1024}, {"1024", 1024}, {"5k", 5120}};
    for (const auto& load : loads) {
        m_factory.destroyObject(create({{"bell", "loud"}, {"load", load.first}}));
        EXPECT_EQ(lastRead.load, load.second) << load.first;
    }
    for (const std::string value : {"1023", "0", "0k", "6k", "5121", "1M", "9007199254740993k"}) {
        expectRefused({{"bell", "loud"}, {"load", value}},
                      "parameter \"load\": \"" + value + "\" is not a number of bytes from 1024 to 5120");
    }
}

TEST_F(TargetLibrary, ARelativePathBeginsWhereTheProcessIs) {
    const std::string here = std::filesystem::current_path();
    const std::pair<const char*, std::string> ways[] = {
        {"/a/../b.%p", "/a/../b.%p"}, {"b.%p", here + "/b.%p"}, {"../a/b", here + "/../a/b"}};
    for (const auto& way : ways) {
        m_factory.destroyObject(create({{"bell", "loud"}, {"way", way.first}}));
        EXPECT_EQ(lastRead.way, way.second);
    }
    m_factory.destroyObject(create({{"bell", "loud"}}));
    EXPECT_EQ(lastRead.way, here + "/home");
}

TEST_F(TargetLibrary, ARelativePathIsLeftAloneWhereTheProcessMayNotPassTheDirectoriesAbove) {
    const TempDir closed;
    std::filesystem::create_directory(closed.file("inside"));
    EXPECT_TRUE(passesInChild([&] {
        std::filesystem::current_path(closed.file("inside"));
        const bool mayNotPass =
            chmod(closed.path().c_str(), 0) == 0 && (geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0));
        create({{"bell", "loud"}, {"way", "b.%p"}});
        return mayNotPass && lastRead.way == "b.%p";
    }));
    EXPECT_EQ(chmod(closed.path().c_str(), 0700), 0);
}

TEST_F(TargetLibrary, ARelativePathIsLeftAloneWhereTheDirectoryIsGone) {
    const TempDir directory;
    std::filesystem::create_directory(directory.file("gone"));
    EXPECT_TRUE(passesInChild([&] {
        std::filesystem::current_path(directory.file("gone"));
        std::filesystem::remove(directory.file("gone"));
        create({{"bell", "loud"}, {"way", "b.%p"}});
        return lastRead.way == "b.%p";
    }));
}

TEST_F(TargetLibrary, ThePercentSignsOfTheDirectoryArePartOfNoPattern) {
    const TempDir directory;
    std::filesystem::create_directory(directory.file("%p"));
    EXPECT_TRUE(passesInChild([&] {
        std::filesystem::current_path(directory.file("%p"));
        create({{"bell", "loud"}, {"way", "b%"}, {"map", "%p%%"}});
        const bool isRelative = lastRead.way == directory.file("%p/b%") && lastRead.map == directory.file("%%p/%p%%");
        create({{"bell", "loud"}, {"map", "/%p"}});
        const bool isAbsolute = lastRead.map == "/%p";
        create({{"bell", "loud"}});
        return isRelative && isAbsolute && lastRead.map == directory.file("%%p/%a.map");
    }));
}

TEST_F(TargetLibrary, AnEmptyPathRefusesTheTarget) {
    expectRefused({{"bell", "loud"}, {"way", ""}}, "parameter \"way\": \"\" is no path");
}

TEST_F(TargetLibrary, AConstructorThatThrowsRefusesTheTarget) {
    expectRefused({{"bell", "broken"}}, "no bell there");
}

TEST_F(TargetLibrary, OtherClassesAndParametersAreRefusedWithoutAWord) {
    sorrel::CLogTargetParameters given;
    EXPECT_EQ(m_factory.createObject("Door", &given), nullptr);
    sorrel::IDynamicObjectCreationParams foreign;
    EXPECT_EQ(m_factory.createObject("LogTarget", &foreign), nullptr);
    EXPECT_EQ(m_factory.createObject("LogTarget", nullptr), nullptr);
    EXPECT_THAT(diagnostics().texts(), IsEmpty());
}

TEST_F(TargetLibrary, AFileHoldsFurtherParameters) {
    createWithFile("# of the door\n\n \tbell = a, b = c \t\r\ntag=" + std::string(2000, 'x'));
    EXPECT_EQ(lastRead.bell, "a, b = c");
    EXPECT_EQ(lastRead.tag, std::string(2000, 'x'));
}

TEST_F(TargetLibrary, WhatTheTargetLineGivesCountsMoreThanTheFile) {
    createWithFile("bell=loud\nrings=5\n");
    EXPECT_EQ(lastRead.rings, 4);
}

TEST_F(TargetLibrary, TheFirstOfTwoLinesOfAFileCounts) {
    createWithFile("bell=loud\nbell=low\ntag=\n");
    EXPECT_EQ(lastRead.bell, "loud");
    EXPECT_EQ(lastRead.tag, "");
}

TEST_F(TargetLibrary, AFileThatIsNoneRefusesTheTarget) {
    expectRefused({{"conf", conf()}}, "parameter \"conf\": \"" + conf() + "\" is not a file that can be read");
    expectRefused({{"conf", "/dev/zero"}}, "parameter \"conf\": \"/dev/zero\" is not a file that can be read");
}

TEST_F(TargetLibrary, ALineOfAFileThatIsNoParameterRefusesTheTarget) {
    expectFileRefused("bell=loud\n\nring ring\n", conf() + ":3: \"ring ring\" is not NAME=VALUE");
    expectFileRefused("=loud\n", conf() + ":1: \"=loud\" is not NAME=VALUE");
}

TEST_F(TargetLibrary, AFileThatNamesAFileRefusesTheTarget) {
    expectFileRefused("bell=loud\nconf = more\n", conf() + ":2: \"conf = more\" is for the target line only");
}

TEST_F(TargetLibrary, AParameterOfAFileThatDoesNotExistRefusesTheTarget) {
    expectFileRefused("bell=loud\nrigns=2\n", "parameter \"rigns\": \"2\" is given to a parameter that does not exist");
}
