#include "simulator/panelsim/FlashReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using State = BootLoader::State;

BootLoader::Image image(State state, std::uint32_t size, std::uint32_t written)
{
    BootLoader::Image result;
    result.state = state;
    result.size = size;
    result.written = written;
    return result;
}

TEST(FlashReport, untouched_noLine)
{
    BootLoader::Flash flash;
    flash.main.bytes.resize(100);
    EXPECT_THAT(describeUpgrades(flash), IsEmpty());
}

TEST(FlashReport, lineForEachMcu_inItsState)
{
    EXPECT_THAT(describeUpgrades({image(State::Verified, 12000, 12000), image(State::Incomplete, 12000, 8192)}),
                ElementsAre("main MCU: 12000 bytes, verified", "servo MCU: incomplete, 8192 of 12000 bytes"));
    EXPECT_THAT(describeUpgrades({{}, image(State::Mismatched, 1, 1)}),
                ElementsAre("servo MCU: 1 byte, does not match its CRC"));
}

} // namespace
} // namespace Vantor
