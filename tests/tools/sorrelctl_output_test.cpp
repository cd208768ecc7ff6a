// What sorrelctl writes of a large ring leaves it a block at a time.
#include "ring_fixture.hpp"

#include <sorrelctl/record_output.hpp>

#include <algorithm>

using sorrelctl::Format;
using sorrelctl::Ring;

namespace {

std::string written; // by all blocks
std::size_t largest; // of them
int blocks;

void take(std::string& block) {
    written += block;
    largest = std::max(largest, block.size());
    ++blocks;
    block.clear();
}

class SorrelctlOutput : public RingFixture {};

} // namespace

TEST_F(SorrelctlOutput, LeavesInBlocks) {
    const Container container = open("file=" + path("ring") + ",size=1M");
    for (std::uint64_t i = 1; i <= 2500; ++i) {
        log(*container, numbered(i));
    }
    const Ring ring = read("ring");
    for (const Format format : {Format::Text, Format::Json, Format::Trace}) {
        std::string atOnce;
        sorrelctl::makeOutput(format)->write(atOnce, ring, ring.records);

        written.clear();
        largest = 0;
        blocks = 0;
        std::string rest;
        const auto output = sorrelctl::makeOutput(format);
        output->setWriter(take);
        output->write(rest, ring, ring.records);
        EXPECT_TRUE(written + rest == atOnce);
        EXPECT_GT(blocks, 5);
        EXPECT_LT(largest, 70000U);
    }
}
