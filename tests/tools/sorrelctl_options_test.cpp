// Options of sorrelctl whose values look right and are not; and how it names itself.
#include "sorrelctl_fixture.hpp"

#include <gmock/gmock.h>
#include <sorrelctl/record_filter.hpp>

#include <ctime>

using sorrelctl::Since;
using testing::HasSubstr;

namespace {

class SorrelctlOptions : public SorrelctlFixture {
protected:
    void expectRefused(const std::string& option, const std::string& value, const std::string& why) {
        const Result result = record("export " + option + " '" + value + "' " + path("ring"));
        EXPECT_EQ(result.status, 2) << value;
        EXPECT_EQ(result.out, "") << value;
        EXPECT_THAT(result.err, HasSubstr(option + ": \"" + value + "\" is no " + why)) << value;
    }

    // What a local time is in a time zone, in seconds since 1970.
    static std::int64_t momentIn(const char* zone, const std::string& words) {
        setenv("TZ", zone, 1);
        tzset();
        return Since(words).moment(0) / 1000000;
    }
};

} // namespace

TEST_F(SorrelctlOptions, ACountIsAWholeNumber) {
    for (const std::string count : {"-1", "99999999999999999999", "18446744073709551616", "1.5", "1k", "x", "", "+1"}) {
        expectRefused("--last", count, "count");
    }
    EXPECT_EQ(record("export --last 18446744073709551615 " + path("ring")).status, 0);
}

TEST_F(SorrelctlOptions, ADayIsOneOfTheCalendar) {
    for (const std::string time : {"2024-02-30", "2023-02-29", "2024-04-31 13:04", "2024-02-30T13:04:05"}) {
        expectRefused("--since", time, "time");
    }
    EXPECT_EQ(momentIn("UTC", "2024-02-29"), 1709164800);
    EXPECT_EQ(momentIn("UTC", "2000-02-29 00:00"), 951782400);
    EXPECT_EQ(momentIn("UTC", "2016-12-31 23:59:60"), 1483228800) << "a leap second";
}

TEST_F(SorrelctlOptions, OnlySecondsHaveAFraction) {
    for (const std::string time : {"2024-02-29.5", "2024-02-29 13:04.5", "2024-02-29 13:04:05."}) {
        expectRefused("--since", time, "time");
    }
    EXPECT_EQ(Since("2024-02-29 13:04:05.5").moment(0), 1709211845500000);
}

TEST_F(SorrelctlOptions, TimesThatTheClockSkipsAreTaken) {
    const char* const summer = "XST-1XDT,M3.5.0/2,M10.5.0/3";
    EXPECT_NEAR(static_cast<double>(momentIn(summer, "2024-03-31 02:30")), 1711848600, 3600);
    const char* const midnight = "XST-1XDT,M3.5.0/0,M10.5.0/3"; // the day begins at 1:00
    EXPECT_NEAR(static_cast<double>(momentIn(midnight, "2024-03-31")), 1711839600, 3600);
    EXPECT_EQ(momentIn("XST-1XWT0,M10.5.0,M3.5.0/1", "2024-01-15"), 1705276800) << "where winter is the other time";
}

TEST_F(SorrelctlOptions, TheVersionIsThatOfTheLibrary) {
    const Result result = run("--version");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "sorrelctl " SORREL_TEST_VERSION "\n");
    EXPECT_EQ(result.err, "");
}
