// The config-file reader as a C program uses it: the program is in cfread_from_c_test.c.
#include "cfread_support.hpp"

extern "C" {
int readTableFromC(const char* fileName);
int readLinesFromC(const char* fileName);
}

namespace {

class CfreadFromC : public CfreadFixture {
protected:
    CfreadFromC() { write("# a comment\nhost = example \nport=514\n\nnever reached by the callback\n"); }
};

} // namespace

TEST_F(CfreadFromC, ATableCanBeReadAndChanged) {
    EXPECT_EQ(readTableFromC(path().c_str()), 0);
}

TEST_F(CfreadFromC, LinesReachACallback) {
    EXPECT_EQ(readLinesFromC(path().c_str()), 0);
}
